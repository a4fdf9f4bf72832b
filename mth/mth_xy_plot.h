// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

// A series of (x, y) points, with a least-squares line and a chi-square distance.
class MTH_XY_PLOT {
public:
  void AddPoint(float x, float y);
  void ClearData();
  int GetNbPoints() const { return static_cast<int>(X.size()); }
  float GetX(int k) const;
  float GetY(int k) const;

  // Fits y = a + b x by least squares and returns the slope b; the intercept a
  // and the correlation coefficient are then read with GetIntercept() and
  // GetCorrelation(). Fewer than two points or all x equal give slope 0,
  // intercept the mean of y, correlation 0.
  double GetLinearRegression();
  double GetIntercept() const { return Intercept; }
  double GetCorrelation() const { return Correlation; }

  // Chi-square distance between the y values of two binned data sets, point by
  // point: sum over k of (y1 - y2)^2 / (y1 + y2), bins where y1 + y2 = 0 left out
  // (Press et al., Numerical Recipes, "chstwo", equal totals). Only the first
  // min(n1, n2) points are compared; a null other plot gives 0.
  double GetChi2(const MTH_XY_PLOT* other) const;

private:
  std::vector<float> X;
  std::vector<float> Y;
  double Intercept = 0.0;
  double Correlation = 0.0;
};
