// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_polynomial_warp.h"

#include "dcm/dcm_data.h"
#include "ipg/internal/ipg_pixel_values.h"
#include "ipg/internal/ipg_row_bands.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace {

// A diagonal entry of R this far below the largest means a term the points do
// not determine.
constexpr double kRankTolerance = 1e-10;

// Index of u^p v^q among the monomials.
std::size_t TermIndex(int p, int q)
{
  const int degree = p + q;
  return static_cast<std::size_t>(degree * (degree + 1) / 2 + q);
}

std::vector<double> Monomials(int order, double u, double v)
{
  std::vector<double> terms(static_cast<std::size_t>(Ipg_PolynomialTermCount(order)));
  for (int degree = 0; degree <= order; ++degree)
    for (int q = 0; q <= degree; ++q)
      terms[TermIndex(degree - q, q)] = std::pow(u, degree - q) * std::pow(v, q);
  return terms;
}

// Column-major dense matrix of the least-squares problem.
struct DESIGN {
  std::size_t Rows = 0, Cols = 0;
  std::vector<double> A;
  double& At(std::size_t r, std::size_t c) { return A[c * Rows + r]; }
};

// Householder QR in place: A becomes R above its diagonal (the reflectors below
// are not kept) while the same reflections are applied to the right-hand sides.
// False when a column is (numerically) dependent on the previous ones.
bool Triangularise(DESIGN& design, std::vector<double>& bx, std::vector<double>& by)
{
  double largest = 0.0;
  for (std::size_t k = 0; k < design.Cols; ++k) {
    double norm = 0.0;
    for (std::size_t r = k; r < design.Rows; ++r)
      norm += design.At(r, k) * design.At(r, k);
    norm = std::sqrt(norm);
    largest = std::max(largest, norm);
    if (!(norm > kRankTolerance * largest))
      return false;
    const double alpha = design.At(k, k) > 0 ? -norm : norm;
    std::vector<double> w(design.Rows - k);
    for (std::size_t r = k; r < design.Rows; ++r)
      w[r - k] = design.At(r, k);
    w[0] -= alpha;
    double wNorm2 = 0.0;
    for (double e : w)
      wNorm2 += e * e;
    auto reflect = [&](auto&& element) {
      double dot = 0.0;
      for (std::size_t r = k; r < design.Rows; ++r)
        dot += w[r - k] * element(r);
      const double f = 2.0 * dot / wNorm2;
      for (std::size_t r = k; r < design.Rows; ++r)
        element(r) -= f * w[r - k];
    };
    for (std::size_t c = k; c < design.Cols; ++c)
      reflect([&](std::size_t r) -> double& { return design.At(r, c); });
    reflect([&](std::size_t r) -> double& { return bx[r]; });
    reflect([&](std::size_t r) -> double& { return by[r]; });
  }
  return true;
}

std::vector<double> BackSubstitute(DESIGN& design, const std::vector<double>& b)
{
  std::vector<double> x(design.Cols);
  for (std::size_t k = design.Cols; k-- > 0;) {
    double sum = b[k];
    for (std::size_t c = k + 1; c < design.Cols; ++c)
      sum -= design.At(k, c) * x[c];
    x[k] = sum / design.At(k, k);
  }
  return x;
}

// The polynomial in u alone along one output row: coefficient of u^p.
void RowPolynomial(const std::vector<double>& coefficients, int order, double v, double* inU)
{
  for (int p = 0; p <= order; ++p) {
    double sum = 0.0, vq = 1.0;
    for (int q = 0; q + p <= order; ++q, vq *= v)
      sum += coefficients[TermIndex(p, q)] * vq;
    inU[p] = sum;
  }
}

double Horner(const double* inU, int order, double u)
{
  double value = inU[order];
  for (int p = order - 1; p >= 0; --p)
    value = value * u + inU[p];
  return value;
}

// The input read at (x, y) as the output's raw value.
int Sample(const IPG_WARP_IMAGES& images, double x, double y)
{
  const double lastCol = images.Cols - 1.0, lastRow = images.Rows - 1.0;
  if (!(x >= 0.0 && y >= 0.0 && x <= lastCol && y <= lastRow))
    return DCM_DATA::ToRaw(0.0, images.OutPrecision);
  const std::size_t c0 = static_cast<std::size_t>(x), r0 = static_cast<std::size_t>(y);
  const std::size_t c1 = std::min<std::size_t>(c0 + 1, images.Cols - 1);
  const std::size_t r1 = std::min<std::size_t>(r0 + 1, images.Rows - 1);
  const double dx = x - static_cast<double>(c0), dy = y - static_cast<double>(r0);
  const int* top = images.In + r0 * images.Cols;
  const int* bottom = images.In + r1 * images.Cols;
  const int v00 = top[c0], v01 = top[c1], v10 = bottom[c0], v11 = bottom[c1];
  if (std::max({v00, v01, v10, v11}) > kIpgMaxGrey) {
    const int* row = dy < 0.5 ? top : bottom;
    return dx < 0.5 ? row[c0] : row[c1];
  }
  const double raw = (1 - dy) * ((1 - dx) * v00 + dx * v01) + dy * ((1 - dx) * v10 + dx * v11);
  const double value = images.InPrecision > 0 ? raw / images.InPrecision : raw;
  return DCM_DATA::ToRaw(value, images.OutPrecision);
}

} // namespace

int Ipg_PolynomialTermCount(int order) { return (order + 1) * (order + 2) / 2; }

bool Ipg_FitPolynomialWarp(const std::vector<IPG_POINT_PAIR>& pairs, IPG_POLYNOMIAL_WARP& warp)
{
  warp.X.clear();
  warp.Y.clear();
  const std::size_t terms = static_cast<std::size_t>(Ipg_PolynomialTermCount(warp.Order));
  if (warp.Order < 0 || pairs.size() < terms || !(warp.Scale > 0.0))
    return false;
  DESIGN design{pairs.size(), terms, std::vector<double>(pairs.size() * terms)};
  std::vector<double> bx(pairs.size()), by(pairs.size());
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    const std::vector<double> m = Monomials(warp.Order, (pairs[i].FromX - warp.CentreX) / warp.Scale,
                                            (pairs[i].FromY - warp.CentreY) / warp.Scale);
    for (std::size_t t = 0; t < terms; ++t)
      design.At(i, t) = m[t];
    bx[i] = pairs[i].ToX;
    by[i] = pairs[i].ToY;
  }
  // Columns of unit length: the high powers, small near the centre, weigh as
  // much as the constant term in the rank test and the reflections.
  std::vector<double> columnScale(terms, 1.0);
  for (std::size_t t = 0; t < terms; ++t) {
    double norm = 0.0;
    for (std::size_t i = 0; i < pairs.size(); ++i)
      norm += design.At(i, t) * design.At(i, t);
    if (!(norm > 0.0))
      return false;
    columnScale[t] = 1.0 / std::sqrt(norm);
    for (std::size_t i = 0; i < pairs.size(); ++i)
      design.At(i, t) *= columnScale[t];
  }
  if (!Triangularise(design, bx, by))
    return false;
  std::vector<double> x = BackSubstitute(design, bx), y = BackSubstitute(design, by);
  for (std::size_t t = 0; t < terms; ++t) {
    x[t] *= columnScale[t];
    y[t] *= columnScale[t];
  }
  warp.X = std::move(x);
  warp.Y = std::move(y);
  return true;
}

void Ipg_EvaluateWarp(const IPG_POLYNOMIAL_WARP& warp, double x, double y, double& toX, double& toY)
{
  const std::vector<double> m = Monomials(warp.Order, (x - warp.CentreX) / warp.Scale, (y - warp.CentreY) / warp.Scale);
  toX = toY = 0.0;
  for (std::size_t t = 0; t < m.size() && t < warp.X.size() && t < warp.Y.size(); ++t) {
    toX += warp.X[t] * m[t];
    toY += warp.Y[t] * m[t];
  }
}

void Ipg_ResampleThroughWarp(const IPG_WARP_IMAGES& images, const IPG_POLYNOMIAL_WARP& warp)
{
  const int order = warp.Order;
  if (order < 0 || order > 16 ||
      warp.X.size() != static_cast<std::size_t>(Ipg_PolynomialTermCount(order)) || warp.Y.size() != warp.X.size())
    return;
  const IPG_ROW_BANDS bands = Ipg_SplitRows(images.Rows, images.Cols);
  Ipg_RunBands(bands, [&](unsigned, unsigned firstRow, unsigned endRow) {
    std::vector<double> xInU(static_cast<std::size_t>(order) + 1), yInU(static_cast<std::size_t>(order) + 1);
    for (unsigned r = firstRow; r < endRow; ++r) {
      const double v = (r - warp.CentreY) / warp.Scale;
      RowPolynomial(warp.X, order, v, xInU.data());
      RowPolynomial(warp.Y, order, v, yInU.data());
      const std::size_t rowStart = static_cast<std::size_t>(r) * images.Cols;
      for (unsigned c = 0; c < images.Cols; ++c) {
        const std::size_t k = rowStart + c;
        if (images.Roi != nullptr && images.Roi[k] != kIpgMaskValue) {
          images.Out[k] = images.In[k];
          continue;
        }
        const double u = (c - warp.CentreX) / warp.Scale;
        images.Out[k] = Sample(images, Horner(xInU.data(), order, u), Horner(yInU.data(), order, u));
      }
    }
  });
}
