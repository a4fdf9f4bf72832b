// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

// Least-squares line y = a + b x through the points (x[k], y[k]), over the
// first min(|x|, |y|) points: its slope b = sum((x - xbar)(y - ybar)) /
// sum((x - xbar)^2), and its coefficient of determination r^2 = b^2 Sxx / Syy
// (explained over total variance of y, at most 1; 1 when y is exactly linear).
// Both are 0 when fewer than two points are given or all x are equal; r^2 is
// 0 when all y are equal.
struct MTH_LINE_FIT {
  double Slope = 0.0;
  double R2 = 0.0;
};
MTH_LINE_FIT Mth_FitLine(const std::vector<double>& x, const std::vector<double>& y);

// The slope of Mth_FitLine alone.
double Mth_Pente(const std::vector<double>& x, const std::vector<double>& y);
