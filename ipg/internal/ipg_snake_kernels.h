// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/internal/ipg_gradient_vector_flow.h"

#include <cstddef>
#include <vector>

// The closed snake of M. Kass, A. Witkin & D. Terzopoulos, "Snakes: active
// contour models", Int. J. Computer Vision 1(4), 1988, pp. 321-331, moved by
// the semi-implicit step of Xu & Prince (IEEE TIP 7(3), 1998, eq. 4-5):
//   x_t = (A + gamma I)^-1 (gamma x_{t-1} + kappa f_x(x_{t-1}, y_{t-1})),
// the same for y, where A is the cyclic pentadiagonal matrix of the internal
// energy: row i holds beta at i +- 2, -(alpha + 4 beta) at i +- 1 and
// 2 alpha + 6 beta on the diagonal (indices modulo the number of points).

// A closed polygon: X[i], Y[i] (column, row), the last point joined to the first.
struct IPG_CONTOUR {
  std::vector<double> X;
  std::vector<double> Y;

  std::size_t Size() const { return X.size(); }
};

// The Cholesky factor of A + gamma I. The matrix is symmetric and, for
// alpha, beta >= 0 and gamma > 0, positive definite (its eigenvalues are
// gamma + 2 alpha (1 - cos t) + 4 beta (1 - cos t)^2). The factor keeps the
// band of width 3 plus the two last rows, which the corner entries fill: a
// solve costs O(n).
class IPG_SNAKE_MATRIX {
public:
  // False when n < 5 (the corners would overlap the band) or a pivot is not
  // positive.
  bool Factorise(int n, double alpha, double beta, double gamma);
  // b becomes (A + gamma I)^-1 b; b holds n values.
  void Solve(std::vector<double>& b) const;

private:
  std::size_t Index(int i, int k) const
  {
    const auto row = static_cast<std::size_t>(i);
    return RowStart[row] + static_cast<std::size_t>(k - First[row]);
  }
  double Entry(int i, int k) const { return Factor[Index(i, k)]; }
  double& Entry(int i, int k) { return Factor[Index(i, k)]; }

  int N = 0;
  std::vector<int> First;            // first stored column of each row
  std::vector<std::size_t> RowStart; // where each row starts in Factor
  std::vector<double> Factor;        // rows of L from First[i] to i
};

// Bilinear value of a grid (Cols x Rows) at (x, y), clamped to the grid
// (not-a-number reads as 0).
float Ipg_SampleBilinear(const std::vector<float>& grid, int cols, int rows, double x, double y);

// One step of the snake in force (gamma, kappa as above); the points are
// kept on the grid.
void Ipg_SnakeStep(const IPG_SNAKE_MATRIX& matrix, const IPG_VECTOR_FIELD& force, double gamma, double kappa,
                   IPG_CONTOUR& contour);

// n points evenly spaced by arc length along the closed polygon, starting at its
// first point. A polygon of zero length gives n copies of its first point.
IPG_CONTOUR Ipg_ResampleContour(const IPG_CONTOUR& contour, int n);

// Signed area (shoelace); positive when the points turn clockwise on screen
// (rows growing downwards).
double Ipg_ContourArea(const IPG_CONTOUR& contour);

// n points of the ellipse (centre x, centre y, semi-axis a, semi-axis b, angle
// of the a axis from the columns toward the rows, in radians), evenly spaced in
// the parametric angle.
IPG_CONTOUR Ipg_EllipseContour(const double* ellipse, int n);

// The discrete energy of a closed snake per point (Kass et al., eq. 1-2):
//   (1/n) sum alpha |v_i+1 - v_i|^2 + beta |v_i+1 - 2 v_i + v_i-1|^2
//   - |(1/n) sum n_i . g(v_i)|,
// g the smoothed image gradient (at most 1 long, sampled bilinearly) and n_i
// the unit normal at v_i. The edge term is the gradient flux through the
// contour (A. Vasilevskiy & K. Siddiqi, "Flux maximizing geometric flows",
// IEEE PAMI 24(12), 2002): it rewards a contour whose whole length crosses the
// edges the same way, while a thin contour lying along a single edge, which
// |g|^2 alone rates as high as the object's outline, has no flux.
double Ipg_ContourEnergy(const IPG_CONTOUR& contour, const IPG_VECTOR_FIELD& gradient, double alpha, double beta);
