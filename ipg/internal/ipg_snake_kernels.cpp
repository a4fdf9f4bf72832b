// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_snake_kernels.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

// Entry (i, k), k <= i, of A + gamma I.
double MatrixEntry(int i, int k, int n, double a, double b, double c)
{
  const int distance = i - k;
  if (distance == 0)
    return c;
  if (distance == 1 || distance == n - 1)
    return b;
  if (distance == 2 || distance == n - 2)
    return a;
  return 0.0;
}

} // namespace

bool IPG_SNAKE_MATRIX::Factorise(int n, double alpha, double beta, double gamma)
{
  N = 0;
  if (n < 5)
    return false;
  const double a = beta, b = -(alpha + 4.0 * beta), c = 2.0 * alpha + 6.0 * beta + gamma;
  First.assign(static_cast<std::size_t>(n), 0);
  RowStart.assign(static_cast<std::size_t>(n) + 1, 0);
  for (int i = 0; i < n; ++i) {
    // The band, except in the two last rows, which the corners fill.
    First[static_cast<std::size_t>(i)] = i < n - 2 ? std::max(0, i - 2) : 0;
    RowStart[static_cast<std::size_t>(i) + 1] =
        RowStart[static_cast<std::size_t>(i)] + static_cast<std::size_t>(i - First[static_cast<std::size_t>(i)] + 1);
  }
  Factor.assign(RowStart.back(), 0.0);
  // Cholesky over the profile: L(i, k) = (M(i, k) - sum_j L(i, j) L(k, j)) / L(k, k).
  for (int i = 0; i < n; ++i)
    for (int k = First[static_cast<std::size_t>(i)]; k <= i; ++k) {
      double sum = MatrixEntry(i, k, n, a, b, c);
      for (int j = std::max(First[static_cast<std::size_t>(i)], First[static_cast<std::size_t>(k)]); j < k; ++j)
        sum -= Entry(i, j) * Entry(k, j);
      if (k < i) {
        Entry(i, k) = sum / Entry(k, k);
      } else {
        if (!(sum > 0.0))
          return false;
        Entry(i, i) = std::sqrt(sum);
      }
    }
  N = n;
  return true;
}

void IPG_SNAKE_MATRIX::Solve(std::vector<double>& b) const
{
  if (N == 0 || b.size() != static_cast<std::size_t>(N))
    return;
  for (int i = 0; i < N; ++i) { // L y = b
    double sum = b[static_cast<std::size_t>(i)];
    for (int k = First[static_cast<std::size_t>(i)]; k < i; ++k)
      sum -= Entry(i, k) * b[static_cast<std::size_t>(k)];
    b[static_cast<std::size_t>(i)] = sum / Entry(i, i);
  }
  for (int i = N - 1; i >= 0; --i) { // L^T x = y, column by column
    const double x = b[static_cast<std::size_t>(i)] / Entry(i, i);
    b[static_cast<std::size_t>(i)] = x;
    for (int k = First[static_cast<std::size_t>(i)]; k < i; ++k)
      b[static_cast<std::size_t>(k)] -= Entry(i, k) * x;
  }
}

float Ipg_SampleBilinear(const std::vector<float>& grid, int cols, int rows, double x, double y)
{
  // Not-a-number reads the first pixel rather than reaching an undefined conversion.
  x = std::isnan(x) ? 0.0 : std::clamp(x, 0.0, static_cast<double>(cols - 1));
  y = std::isnan(y) ? 0.0 : std::clamp(y, 0.0, static_cast<double>(rows - 1));
  const int c0 = std::min(static_cast<int>(x), std::max(cols - 2, 0));
  const int r0 = std::min(static_cast<int>(y), std::max(rows - 2, 0));
  const int c1 = std::min(c0 + 1, cols - 1), r1 = std::min(r0 + 1, rows - 1);
  const double fx = x - c0, fy = y - r0;
  auto at = [&](int c, int r) {
    return static_cast<double>(grid[static_cast<std::size_t>(r) * static_cast<std::size_t>(cols) +
                                    static_cast<std::size_t>(c)]);
  };
  const double top = at(c0, r0) + fx * (at(c1, r0) - at(c0, r0));
  const double bottom = at(c0, r1) + fx * (at(c1, r1) - at(c0, r1));
  return static_cast<float>(top + fy * (bottom - top));
}

void Ipg_SnakeStep(const IPG_SNAKE_MATRIX& matrix, const IPG_VECTOR_FIELD& force, double gamma, double kappa,
                   IPG_CONTOUR& contour)
{
  for (std::size_t i = 0; i < contour.Size(); ++i) {
    const double x = contour.X[i], y = contour.Y[i];
    contour.X[i] = gamma * x + kappa * Ipg_SampleBilinear(force.U, force.Cols, force.Rows, x, y);
    contour.Y[i] = gamma * y + kappa * Ipg_SampleBilinear(force.V, force.Cols, force.Rows, x, y);
  }
  matrix.Solve(contour.X);
  matrix.Solve(contour.Y);
  for (std::size_t i = 0; i < contour.Size(); ++i) {
    contour.X[i] = std::clamp(contour.X[i], 0.0, static_cast<double>(force.Cols - 1));
    contour.Y[i] = std::clamp(contour.Y[i], 0.0, static_cast<double>(force.Rows - 1));
  }
}

IPG_CONTOUR Ipg_ResampleContour(const IPG_CONTOUR& contour, int n)
{
  const std::size_t size = contour.Size();
  IPG_CONTOUR out;
  if (size == 0 || n < 1)
    return out;
  std::vector<double> along(size + 1, 0.0); // arc length at each vertex, closing edge included
  for (std::size_t i = 0; i < size; ++i) {
    const std::size_t j = (i + 1) % size;
    along[i + 1] = along[i] + std::hypot(contour.X[j] - contour.X[i], contour.Y[j] - contour.Y[i]);
  }
  const double total = along[size];
  std::size_t edge = 0;
  for (int k = 0; k < n; ++k) {
    const double s = total * k / n;
    while (edge + 1 < size && along[edge + 1] <= s)
      ++edge;
    const std::size_t next = (edge + 1) % size;
    const double length = along[edge + 1] - along[edge];
    const double t = length > 0.0 ? (s - along[edge]) / length : 0.0;
    out.X.push_back(contour.X[edge] + t * (contour.X[next] - contour.X[edge]));
    out.Y.push_back(contour.Y[edge] + t * (contour.Y[next] - contour.Y[edge]));
  }
  return out;
}

double Ipg_ContourArea(const IPG_CONTOUR& contour)
{
  double twice = 0.0;
  for (std::size_t i = 0; i < contour.Size(); ++i) {
    const std::size_t j = (i + 1) % contour.Size();
    twice += contour.X[i] * contour.Y[j] - contour.X[j] * contour.Y[i];
  }
  return 0.5 * twice;
}

IPG_CONTOUR Ipg_EllipseContour(const double* ellipse, int n)
{
  const double cx = ellipse[0], cy = ellipse[1], a = ellipse[2], b = ellipse[3];
  const double cosAngle = std::cos(ellipse[4]), sinAngle = std::sin(ellipse[4]);
  IPG_CONTOUR contour;
  for (int k = 0; k < n; ++k) {
    const double t = 2.0 * std::numbers::pi * k / n;
    const double u = a * std::cos(t), v = b * std::sin(t);
    contour.X.push_back(cx + u * cosAngle - v * sinAngle);
    contour.Y.push_back(cy + u * sinAngle + v * cosAngle);
  }
  return contour;
}

double Ipg_ContourEnergy(const IPG_CONTOUR& contour, const IPG_VECTOR_FIELD& gradient, double alpha, double beta)
{
  const std::size_t n = contour.Size();
  if (n == 0)
    return 0.0;
  double internal = 0.0, flux = 0.0;
  for (std::size_t i = 0; i < n; ++i) {
    const std::size_t next = (i + 1) % n, previous = (i + n - 1) % n;
    const double dx = contour.X[next] - contour.X[i], dy = contour.Y[next] - contour.Y[i];
    const double ddx = contour.X[next] - 2.0 * contour.X[i] + contour.X[previous];
    const double ddy = contour.Y[next] - 2.0 * contour.Y[i] + contour.Y[previous];
    internal += alpha * (dx * dx + dy * dy) + beta * (ddx * ddx + ddy * ddy);
    // The normal from the tangent across the point.
    const double tx = contour.X[next] - contour.X[previous], ty = contour.Y[next] - contour.Y[previous];
    const double length = std::hypot(tx, ty);
    if (length > 0.0) {
      const double x = contour.X[i], y = contour.Y[i];
      flux += (ty * Ipg_SampleBilinear(gradient.U, gradient.Cols, gradient.Rows, x, y) -
               tx * Ipg_SampleBilinear(gradient.V, gradient.Cols, gradient.Rows, x, y)) /
              length;
    }
  }
  return (internal - std::fabs(flux)) / static_cast<double>(n);
}
