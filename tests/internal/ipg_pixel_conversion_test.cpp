// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_pixel_conversion.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <random>

namespace {

// std::lround's halves away from zero, saturated, NaN to 0: the reading the
// select form must reproduce bit for bit.
int RoundByLround(double v)
{
  if (std::isnan(v))
    return 0;
  if (v >= static_cast<double>(INT_MAX))
    return INT_MAX;
  if (v <= static_cast<double>(INT_MIN))
    return INT_MIN;
  return static_cast<int>(std::lround(v));
}

TEST(PixelConversion, RoundToNearestIsLroundSaturated)
{
  const double inf = std::numeric_limits<double>::infinity();
  std::vector<double> values = {0.0, -0.0, 0.5, -0.5, 1.5, -1.5, 2.5, 0.49999999999999994, -0.49999999999999994,
                                std::nextafter(0.5, 1.0), 4503599627370495.5, 2147483646.5, 2147483647.0,
                                2147483647.4, -2147483647.5, -2147483648.0, -2147483648.6, 1e300, -1e300, inf, -inf,
                                std::nan("")};
  std::mt19937_64 random(3);
  std::uniform_real_distribution<double> level(-3e9, 3e9);
  for (int k = 0; k < 20000; ++k) {
    const double v = level(random);
    values.insert(values.end(), {v, std::floor(v) + 0.5, std::nextafter(std::floor(v) + 0.5, 0.0)});
  }
  for (double v : values)
    EXPECT_EQ(Ipg_RoundToNearest(v), RoundByLround(v)) << std::hexfloat << v;
}

} // namespace
