// SPDX-License-Identifier: Apache-2.0
#include "dcm/dcm_struct.h"
#include "support/images.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>

TEST(DcmData, RealValuesAreScaledTruncatedTowardZeroAndSaturated)
{
  DCM_STRUCT image(3, 2, nullptr);
  DCM_DATA& d = *image.Data;
  d.SetValue(0u, 0u, 2.9);
  d.SetValue(1u, 0u, -2.9);
  EXPECT_EQ(d.GetValue(0, 0), 2);
  EXPECT_EQ(d.GetValue(1, 0), -2);

  d.SetPrecision(10000);
  d.SetValue(2u, 0u, 3.14159265);
  EXPECT_EQ(d.GetValue(2, 0), 31415);
  EXPECT_DOUBLE_EQ(d.GetValueReal(2, 0), 3.1415);
  d.SetValue(0u, 1u, -0.00019f);
  EXPECT_EQ(d.GetValue(0, 1), -1);

  d.SetPrecision(0); // no scaling at or below 0
  d.SetValue(1u, 1u, 7.7);
  EXPECT_EQ(d.GetValue(1, 1), 7);
  EXPECT_DOUBLE_EQ(d.GetValueReal(1, 1), 7.0);

  // Not a number stores 0; overflow saturates.
  d.SetValue(0u, 0u, std::numeric_limits<double>::quiet_NaN());
  d.SetValue(1u, 0u, 1e30);
  d.SetValue(2u, 0u, -std::numeric_limits<double>::infinity());
  EXPECT_EQ(d.GetValue(0, 0), 0);
  EXPECT_EQ(d.GetValue(1, 0), INT_MAX);
  EXPECT_EQ(d.GetValue(2, 0), INT_MIN);
}

TEST(DcmData, SetValueWidensTheStoredExtremesAndInitResetsThem)
{
  DCM_STRUCT image(2, 2, nullptr);
  DCM_DATA& d = *image.Data;
  EXPECT_EQ(d.GetMin(), 0);
  EXPECT_EQ(d.GetMax(), 0);
  d.SetValue(0u, 0u, 50);
  d.SetValue(1u, 0u, -7.5);
  EXPECT_EQ(d.GetMin(), -7);
  EXPECT_EQ(d.GetMax(), 50);
  d.SetValue(0u, 0u, 10); // the 50 is gone, but the maximum stays
  EXPECT_EQ(d.GetMax(), 50);
  d.SetMax();
  d.SetMin();
  EXPECT_EQ(d.GetMax(), 10);
  EXPECT_EQ(d.GetMin(), -7);
  d.SetMin(-100);
  d.SetMax(100);
  EXPECT_EQ(d.GetMin(), -100);
  EXPECT_EQ(d.GetMax(), 100);

  // Init stores as SetValue would and resets both extremes.
  d.SetPrecision(10);
  d.Init(1.25);
  EXPECT_EQ(PixelsOf(image), std::vector<int>(4, 12));
  EXPECT_EQ(d.GetMin(), 12);
  EXPECT_EQ(d.GetMax(), 12);
}

TEST(DcmData, AccessOutsideTheImageReadsZeroWritesNothingInsideInterpolates)
{
  DCM_STRUCT image(2, 2, nullptr);
  DCM_DATA& d = *image.Data;
  d.Init(3.0);
  d.SetValue(2u, 0u, 99);
  d.SetValue(0u, 2u, 99.0);
  d.SetValue(UINT_MAX, UINT_MAX, -99);
  EXPECT_EQ(d.GetValue(2, 0), 0);
  EXPECT_EQ(d.GetValueReal(0, 7), 0.0);
  EXPECT_EQ(d.GetMax(), 3) << "an ignored write must not widen the extremes";
  EXPECT_EQ(d.GetMin(), 3);
  EXPECT_EQ(PixelsOf(image), std::vector<int>(4, 3));

  // Inside, reads interpolate bilinearly.
  auto corners = ImageOf(2, 2, {0, 10, 20, 30});
  const DCM_DATA& grid = *corners->Data;
  EXPECT_DOUBLE_EQ(grid.GetInterpolatedPoint(0.5, 0.5), 15.0);
  EXPECT_DOUBLE_EQ(grid.GetInterpolatedPoint(1.0, 0.0), 10.0);
  EXPECT_DOUBLE_EQ(grid.GetInterpolatedPoint(0.25, 0.0), 2.5);
  EXPECT_DOUBLE_EQ(grid.GetInterpolatedPoint(-50.0, 3.0), 0.0);
}

