#include "mth/mth_regression.h"

#include <algorithm>

double Mth_Pente(const std::vector<double>& x, const std::vector<double>& y)
{
  const std::size_t n = std::min(x.size(), y.size());
  if (n < 2)
    return 0.0;
  double xbar = 0.0, ybar = 0.0;
  for (std::size_t k = 0; k < n; ++k) {
    xbar += x[k];
    ybar += y[k];
  }
  xbar /= static_cast<double>(n);
  ybar /= static_cast<double>(n);
  double sxy = 0.0, sxx = 0.0;
  for (std::size_t k = 0; k < n; ++k) {
    sxy += (x[k] - xbar) * (y[k] - ybar);
    sxx += (x[k] - xbar) * (x[k] - xbar);
  }
  return sxx == 0.0 ? 0.0 : sxy / sxx;
}
