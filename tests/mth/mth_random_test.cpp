// SPDX-License-Identifier: Apache-2.0
#include "mth/mth_random.h"

#include <gtest/gtest.h>

TEST(MthRandom, SeededGeneratorsRepeatAndStayInRange)
{
  Mth_InitRandom1(42);
  const double first = Mth_Random1(1);
  Mth_InitRandom1(42);
  EXPECT_DOUBLE_EQ(Mth_Random1(1), first);

  Mth_InitRandom3(7);
  double sum = 0.0;
  for (int k = 0; k < 10000; ++k) {
    const double v = Mth_Random3(10);
    ASSERT_GE(v, 0.0);
    ASSERT_LT(v, 10.0);
    sum += v;
  }
  EXPECT_NEAR(sum / 10000, 5.0, 0.2);
}
