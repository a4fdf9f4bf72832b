// SPDX-License-Identifier: Apache-2.0
#include "mth/mth_regression.h"
#include "mth/mth_xy_plot.h"

#include <gtest/gtest.h>

TEST(MthRegression, SlopeOfKnownLines)
{
  EXPECT_DOUBLE_EQ(Mth_Pente({0, 1, 2, 3}, {1, 3, 5, 7}), 2.0);
  EXPECT_NEAR(Mth_Pente({1, 2, 3, 4}, {2, 1, 4, 3}), 0.6, 1e-15);
  EXPECT_DOUBLE_EQ(Mth_Pente({2, 2, 2}, {1, 2, 3}), 0.0);
  EXPECT_DOUBLE_EQ(Mth_Pente({1}, {1}), 0.0);

  MTH_XY_PLOT plot;
  for (int k = 0; k < 5; ++k)
    plot.AddPoint(static_cast<float>(k), static_cast<float>(3 - 0.5 * k));
  EXPECT_NEAR(plot.GetLinearRegression(), -0.5, 1e-7);
  EXPECT_NEAR(plot.GetIntercept(), 3.0, 1e-6);
  EXPECT_NEAR(plot.GetCorrelation(), -1.0, 1e-7);
}
