// SPDX-License-Identifier: Apache-2.0
#include "mth/mth_funct.h"

#include <gtest/gtest.h>

TEST(MthFunct, AnnealingFindsTheMinimumOfAParabola)
{
  MTH_FUNCT f([](const double* x, short) { return (x[0] - 3.0) * (x[0] - 3.0) + (x[1] + 1.0) * (x[1] + 1.0); });
  SIMULATED_ANNEALING_PARAM param;
  double x[2] = {0.0, 0.0};
  double step[2] = {0.5, 0.5};
  const double best = f.ComputeOptimumSimmulatedAnnealing(&param, x, 2, step, 11);
  EXPECT_LT(best, 1e-2);
  EXPECT_NEAR(x[0], 3.0, 0.1);
  EXPECT_NEAR(x[1], -1.0, 0.1);
}
