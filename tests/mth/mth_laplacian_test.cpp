// SPDX-License-Identifier: Apache-2.0
#include "mth/mth_laplacian.h"
#include "mth/mth_matrix.h"

#include <gtest/gtest.h>

TEST(MthLaplacian, FourAndEightNeighbourhoods)
{
  MTH_MATRIX m(3, 3);
  m.Set(1, 1, 1.0);
  MTH_MATRIX out;
  ASSERT_TRUE(Mth_ComputeLaplacien(&m, &out, 4));
  EXPECT_DOUBLE_EQ(out.Get(1, 1), -4.0);
  EXPECT_DOUBLE_EQ(out.Get(0, 1), 1.0);
  EXPECT_DOUBLE_EQ(out.Get(0, 0), 0.0);
  ASSERT_TRUE(Mth_ComputeLaplacien(&m, &out, 8));
  EXPECT_DOUBLE_EQ(out.Get(1, 1), -8.0);
  EXPECT_DOUBLE_EQ(out.Get(0, 0), 1.0);
  EXPECT_FALSE(Mth_ComputeLaplacien(nullptr, &out, 4));
}
