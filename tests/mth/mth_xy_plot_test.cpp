// SPDX-License-Identifier: Apache-2.0
#include "mth/mth_xy_plot.h"

#include <gtest/gtest.h>

TEST(MthXyPlot, ChiSquareBetweenTwoBinnedSets)
{
  MTH_XY_PLOT a, b;
  const float ya[] = {4, 0, 6, 2};
  const float yb[] = {2, 0, 6, 6};
  for (int k = 0; k < 4; ++k) {
    a.AddPoint(static_cast<float>(k), ya[k]);
    b.AddPoint(static_cast<float>(k), yb[k]);
  }
  // (4-2)^2/6 + 0 (empty bin skipped) + 0 + (2-6)^2/8
  EXPECT_NEAR(a.GetChi2(&b), 4.0 / 6.0 + 2.0, 1e-12);
  EXPECT_DOUBLE_EQ(a.GetChi2(&a), 0.0);
}
