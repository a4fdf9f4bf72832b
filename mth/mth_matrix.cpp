// SPDX-License-Identifier: Apache-2.0
#include "mth/mth_matrix.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

MTH_MATRIX::MTH_MATRIX(int rows, int cols, int kind)
    : Rows(rows > 0 && cols > 0 ? rows : 0), Cols(rows > 0 && cols > 0 ? cols : 0), Kind(kind),
      Elements(static_cast<std::size_t>(Rows) * static_cast<std::size_t>(Cols), 0.0)
{
}

double MTH_MATRIX::Get(int i, int j) const
{
  return Inside(i, j) ? Elements[static_cast<std::size_t>(i) * Cols + j] : 0.0;
}

void MTH_MATRIX::Set(int i, int j, double v)
{
  if (Inside(i, j))
    Elements[static_cast<std::size_t>(i) * Cols + j] = v;
}

void MTH_MATRIX::SetZero()
{
  std::fill(Elements.begin(), Elements.end(), 0.0);
}

MTH_MATRIX MTH_MATRIX::operator+(const MTH_MATRIX& other) const
{
  if (Rows != other.Rows || Cols != other.Cols)
    return MTH_MATRIX();
  MTH_MATRIX sum(*this);
  for (std::size_t k = 0; k < Elements.size(); ++k)
    sum.Elements[k] += other.Elements[k];
  return sum;
}

MTH_MATRIX MTH_MATRIX::operator*(const MTH_MATRIX& other) const
{
  if (Cols != other.Rows || IsEmpty() || other.IsEmpty())
    return MTH_MATRIX();
  MTH_MATRIX product(Rows, other.Cols, Kind);
  for (int i = 0; i < Rows; ++i)
    for (int k = 0; k < Cols; ++k) {
      const double a = Get(i, k);
      for (int j = 0; j < other.Cols; ++j)
        product.Elements[static_cast<std::size_t>(i) * other.Cols + j] += a * other.Get(k, j);
    }
  return product;
}

MTH_MATRIX MTH_MATRIX::Transpose() const
{
  MTH_MATRIX t(Cols, Rows, Kind);
  for (int i = 0; i < Rows; ++i)
    for (int j = 0; j < Cols; ++j)
      t.Set(j, i, Get(i, j));
  return t;
}

MTH_MATRIX MTH_MATRIX::Inverse() const
{
  if (Rows != Cols || IsEmpty())
    return MTH_MATRIX();
  const int n = Rows;
  MTH_MATRIX a(*this);
  MTH_MATRIX inv(n, n, Kind);
  for (int i = 0; i < n; ++i)
    inv.Set(i, i, 1.0);

  double scale = 0.0;
  for (double e : Elements)
    scale = std::max(scale, std::fabs(e));
  const double tiny = scale * 1e-14 * n;

  for (int col = 0; col < n; ++col) {
    int pivot = col;
    for (int i = col + 1; i < n; ++i)
      if (std::fabs(a.Get(i, col)) > std::fabs(a.Get(pivot, col)))
        pivot = i;
    if (std::fabs(a.Get(pivot, col)) <= tiny)
      return MTH_MATRIX();
    if (pivot != col)
      for (int j = 0; j < n; ++j) {
        std::swap(a.Elements[static_cast<std::size_t>(pivot) * n + j], a.Elements[static_cast<std::size_t>(col) * n + j]);
        std::swap(inv.Elements[static_cast<std::size_t>(pivot) * n + j], inv.Elements[static_cast<std::size_t>(col) * n + j]);
      }
    const double p = a.Get(col, col);
    for (int j = 0; j < n; ++j) {
      a.Set(col, j, a.Get(col, j) / p);
      inv.Set(col, j, inv.Get(col, j) / p);
    }
    for (int i = 0; i < n; ++i) {
      if (i == col)
        continue;
      const double f = a.Get(i, col);
      if (f == 0.0)
        continue;
      for (int j = 0; j < n; ++j) {
        a.Set(i, j, a.Get(i, j) - f * a.Get(col, j));
        inv.Set(i, j, inv.Get(i, j) - f * inv.Get(col, j));
      }
    }
  }
  return inv;
}

bool MTH_MATRIX::QR(MTH_MATRIX** q, MTH_MATRIX* r) const
{
  if (q == nullptr || r == nullptr || IsEmpty() || Rows < Cols)
    return false;
  const int m = Rows;
  const int n = Cols;
  MTH_MATRIX rr(*this);
  MTH_MATRIX qq(m, m, Kind);
  for (int i = 0; i < m; ++i)
    qq.Set(i, i, 1.0);

  std::vector<double> v(static_cast<std::size_t>(m));
  for (int k = 0; k < n && k < m - 1; ++k) {
    double norm = 0.0;
    for (int i = k; i < m; ++i)
      norm += rr.Get(i, k) * rr.Get(i, k);
    norm = std::sqrt(norm);
    if (norm == 0.0)
      continue;
    const double alpha = rr.Get(k, k) > 0 ? -norm : norm;
    double vnorm = 0.0;
    for (int i = k; i < m; ++i) {
      v[i] = rr.Get(i, k) - (i == k ? alpha : 0.0);
      vnorm += v[i] * v[i];
    }
    if (vnorm == 0.0)
      continue;
    // R <- H R and Q <- Q H with H = I - 2 v v^T / (v^T v).
    for (int j = 0; j < n; ++j) {
      double dot = 0.0;
      for (int i = k; i < m; ++i)
        dot += v[i] * rr.Get(i, j);
      const double f = 2.0 * dot / vnorm;
      for (int i = k; i < m; ++i)
        rr.Set(i, j, rr.Get(i, j) - f * v[i]);
    }
    for (int i = 0; i < m; ++i) {
      double dot = 0.0;
      for (int l = k; l < m; ++l)
        dot += qq.Get(i, l) * v[l];
      const double f = 2.0 * dot / vnorm;
      for (int l = k; l < m; ++l)
        qq.Set(i, l, qq.Get(i, l) - f * v[l]);
    }
  }
  for (int i = 1; i < m; ++i)
    for (int j = 0; j < std::min(i, n); ++j)
      rr.Set(i, j, 0.0);
  *q = new MTH_MATRIX(qq);
  *r = rr;
  return true;
}

double MTH_MATRIX::MirroredAt(int i, int j) const
{
  auto mirror = [](int k, int n) {
    if (n == 1)
      return 0;
    const int period = 2 * n;
    k %= period;
    if (k < 0)
      k += period;
    return k < n ? k : period - 1 - k;
  };
  return Get(mirror(i, Rows), mirror(j, Cols));
}

MTH_MATRIX MTH_MATRIX::Convolution2D(const MTH_MATRIX* kernel, int borderType) const
{
  if (kernel == nullptr || kernel->IsEmpty() || IsEmpty())
    return MTH_MATRIX();
  MTH_MATRIX out(Rows, Cols, Kind);
  const int kr = kernel->Rows / 2;
  const int kc = kernel->Cols / 2;
  for (int i = 0; i < Rows; ++i)
    for (int j = 0; j < Cols; ++j) {
      double sum = 0.0;
      for (int a = 0; a < kernel->Rows; ++a)
        for (int b = 0; b < kernel->Cols; ++b) {
          const int si = i + kr - a;
          const int sj = j + kc - b;
          const double v = borderType == 0 ? Get(si, sj) : MirroredAt(si, sj);
          sum += v * kernel->Get(a, b);
        }
      out.Set(i, j, sum);
    }
  return out;
}

void MTH_MATRIX::AddRowBySymetry(int n)
{
  if (n <= 0 || IsEmpty())
    return;
  MTH_MATRIX grown(Rows + 2 * n, Cols, Kind);
  for (int i = 0; i < grown.Rows; ++i)
    for (int j = 0; j < Cols; ++j)
      grown.Set(i, j, MirroredAt(i - n, j));
  *this = grown;
}

void MTH_MATRIX::AddColBySymetry(int n)
{
  if (n <= 0 || IsEmpty())
    return;
  MTH_MATRIX grown(Rows, Cols + 2 * n, Kind);
  for (int i = 0; i < Rows; ++i)
    for (int j = 0; j < grown.Cols; ++j)
      grown.Set(i, j, MirroredAt(i, j - n));
  *this = grown;
}

MTH_MATRIX MTH_MATRIX::RegionOfMatrix(int row0, int col0, int row1, int col1) const
{
  row0 = std::max(row0, 0);
  col0 = std::max(col0, 0);
  row1 = std::min(row1, Rows - 1);
  col1 = std::min(col1, Cols - 1);
  if (row1 < row0 || col1 < col0)
    return MTH_MATRIX();
  MTH_MATRIX region(row1 - row0 + 1, col1 - col0 + 1, Kind);
  for (int i = row0; i <= row1; ++i)
    for (int j = col0; j <= col1; ++j)
      region.Set(i - row0, j - col0, Get(i, j));
  return region;
}
