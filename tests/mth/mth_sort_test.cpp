// SPDX-License-Identifier: Apache-2.0
#include "mth/mth_sort.h"
#include "mth/mth_matrix.h"

#include <gtest/gtest.h>

#include <vector>

TEST(MthSort, SortsAndCarriesTheIndex)
{
  int values[] = {5, -2, 9, 0, 5};
  Mth_Sort(values, 5);
  EXPECT_EQ(std::vector<int>(values, values + 5), (std::vector<int>{-2, 0, 5, 5, 9}));

  double reals[] = {3.5, 1.0, 2.0, 1.0};
  int index[] = {0, 1, 2, 3};
  Mth_SortVector(reals, index, 4);
  EXPECT_EQ(std::vector<double>(reals, reals + 4), (std::vector<double>{1.0, 1.0, 2.0, 3.5}));
  EXPECT_EQ(std::vector<int>(index, index + 4), (std::vector<int>{1, 3, 2, 0})) << "stable for ties";
}

TEST(MthSort, MedianOfOddAndEvenCounts)
{
  MTH_MATRIX odd(1, 5), even(2, 2);
  const double oddValues[] = {7, 1, 3, 9, 5}, evenValues[] = {4, 1, 10, 2};
  for (int k = 0; k < 5; ++k)
    odd.Set(0, k, oddValues[k]);
  for (int k = 0; k < 4; ++k)
    even.Set(k / 2, k % 2, evenValues[k]);
  EXPECT_DOUBLE_EQ(Mth_Median(&odd), 5.0);
  EXPECT_DOUBLE_EQ(Mth_Median(&even), 3.0);
  EXPECT_DOUBLE_EQ(Mth_Median(nullptr), 0.0);
}
