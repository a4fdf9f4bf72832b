// SPDX-License-Identifier: Apache-2.0
#include "mth/mth_xy_plot.h"

#include <algorithm>
#include <cmath>

void MTH_XY_PLOT::AddPoint(float x, float y)
{
  X.push_back(x);
  Y.push_back(y);
}

void MTH_XY_PLOT::ClearData()
{
  X.clear();
  Y.clear();
  Intercept = 0.0;
  Correlation = 0.0;
}

float MTH_XY_PLOT::GetX(int k) const
{
  return k >= 0 && k < GetNbPoints() ? X[static_cast<std::size_t>(k)] : 0.0f;
}

float MTH_XY_PLOT::GetY(int k) const
{
  return k >= 0 && k < GetNbPoints() ? Y[static_cast<std::size_t>(k)] : 0.0f;
}

double MTH_XY_PLOT::GetLinearRegression()
{
  const std::size_t n = X.size();
  Intercept = 0.0;
  Correlation = 0.0;
  if (n == 0)
    return 0.0;
  double xbar = 0.0, ybar = 0.0;
  for (std::size_t k = 0; k < n; ++k) {
    xbar += X[k];
    ybar += Y[k];
  }
  xbar /= static_cast<double>(n);
  ybar /= static_cast<double>(n);
  double sxx = 0.0, syy = 0.0, sxy = 0.0;
  for (std::size_t k = 0; k < n; ++k) {
    sxx += (X[k] - xbar) * (X[k] - xbar);
    syy += (Y[k] - ybar) * (Y[k] - ybar);
    sxy += (X[k] - xbar) * (Y[k] - ybar);
  }
  if (n < 2 || sxx == 0.0) {
    Intercept = ybar;
    return 0.0;
  }
  const double slope = sxy / sxx;
  Intercept = ybar - slope * xbar;
  Correlation = syy == 0.0 ? 0.0 : sxy / std::sqrt(sxx * syy);
  return slope;
}

double MTH_XY_PLOT::GetChi2(const MTH_XY_PLOT* other) const
{
  if (other == nullptr)
    return 0.0;
  const std::size_t n = std::min(Y.size(), other->Y.size());
  double chi2 = 0.0;
  for (std::size_t k = 0; k < n; ++k) {
    const double a = Y[k];
    const double b = other->Y[k];
    if (a + b != 0.0)
      chi2 += (a - b) * (a - b) / (a + b);
  }
  return chi2;
}
