// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_pixel_conversion.h"

int Ipg_TruncateOrIntMin(double v)
{
  if (!(v > -2147483649.0 && v < 2147483648.0))
    return INT_MIN;
  return static_cast<int>(v);
}

int Ipg_RoundHalfAwayThroughDouble(long double t)
{
  const long double rounded = t >= 0 ? t + 0.5L : t - 0.5L;
  return Ipg_TruncateTowardZero(static_cast<double>(rounded));
}

