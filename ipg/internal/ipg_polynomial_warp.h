// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

// A two-dimensional polynomial mapping of order n (the classic model of lens
// and image-intensifier distortion; Brown, "Decentering distortion of lenses",
// Photogramm. Eng. 32(3), 1966):
//   x' = sum_t X[t] m_t(u, v),  y' = sum_t Y[t] m_t(u, v),
//   u = (x - CentreX) / Scale,  v = (y - CentreY) / Scale,
// with the monomials m_t = u^p v^q, p + q <= n, ordered by degree and then by
// the power of v: 1, u, v, u^2, u v, v^2, u^3, ... Normalised coordinates keep
// every monomial within [-1, 1] over the image, so the least-squares problem
// stays well conditioned up to order 5.
struct IPG_POLYNOMIAL_WARP {
  int Order = 0;
  double CentreX = 0.0;
  double CentreY = 0.0;
  double Scale = 1.0;
  std::vector<double> X;
  std::vector<double> Y;
};

// (order + 1)(order + 2) / 2.
int Ipg_PolynomialTermCount(int order);

// A point and where the mapping should take it.
struct IPG_POINT_PAIR {
  double FromX = 0.0, FromY = 0.0;
  double ToX = 0.0, ToY = 0.0;
};

// Fills warp.X and warp.Y (Order, CentreX, CentreY and Scale set by the caller)
// with the least-squares fit to the pairs, by Householder QR of the column-
// scaled design matrix (Golub & Van Loan, "Matrix Computations", 5.3). False,
// the coefficients cleared, when there are fewer pairs than terms or the
// points do not determine every term (all on one line, say).
bool Ipg_FitPolynomialWarp(const std::vector<IPG_POINT_PAIR>& pairs, IPG_POLYNOMIAL_WARP& warp);

// Where the mapping takes (x, y).
void Ipg_EvaluateWarp(const IPG_POLYNOMIAL_WARP& warp, double x, double y, double& toX, double& toY);

// Raw rows of the resampling: the input and optional ROI read, the output
// written, all of Cols x Rows pixels; each with its precision.
struct IPG_WARP_IMAGES {
  const int* In = nullptr;
  const int* Roi = nullptr;
  int* Out = nullptr;
  unsigned Cols = 0;
  unsigned Rows = 0;
  short InPrecision = 1;
  short OutPrecision = 1;
};

// Every output pixel (c, r) inside the ROI reads the input at warp(c, r),
// bilinearly; a point off the input gives 0; when one of the four pixels read
// is a mark (above 16777216), the nearest of them is copied instead, so marks
// move with the image and never blend into grey levels. Pixels outside the ROI
// get the input's value. Rows run in parallel bands; the pixels do not depend
// on the thread count.
void Ipg_ResampleThroughWarp(const IPG_WARP_IMAGES& images, const IPG_POLYNOMIAL_WARP& warp);
