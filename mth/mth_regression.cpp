// SPDX-License-Identifier: Apache-2.0
#include "mth/mth_regression.h"

#include <algorithm>

MTH_LINE_FIT Mth_FitLine(const std::vector<double>& x, const std::vector<double>& y)
{
  MTH_LINE_FIT fit;
  const std::size_t n = std::min(x.size(), y.size());
  if (n < 2)
    return fit;
  double xbar = 0.0, ybar = 0.0;
  for (std::size_t k = 0; k < n; ++k) {
    xbar += x[k];
    ybar += y[k];
  }
  xbar /= static_cast<double>(n);
  ybar /= static_cast<double>(n);
  double sxy = 0.0, sxx = 0.0, syy = 0.0;
  for (std::size_t k = 0; k < n; ++k) {
    sxy += (x[k] - xbar) * (y[k] - ybar);
    sxx += (x[k] - xbar) * (x[k] - xbar);
    syy += (y[k] - ybar) * (y[k] - ybar);
  }
  fit.Slope = sxx == 0.0 ? 0.0 : sxy / sxx;
  fit.R2 = syy > 0.0 ? std::min(1.0, fit.Slope * fit.Slope * sxx / syy) : 0.0;
  return fit;
}

double Mth_Pente(const std::vector<double>& x, const std::vector<double>& y)
{
  return Mth_FitLine(x, y).Slope;
}
