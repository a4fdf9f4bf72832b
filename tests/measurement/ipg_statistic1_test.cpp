// SPDX-License-Identifier: Apache-2.0
#include "ipg/measurement/ipg_statistic1.h"

#include "dcm/obj_objects_list.h"
#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

TEST(IpgStatistic1, OnlyGreyLevelsUpTo2Pow24AndTheExactRoiValueCount)
{
  auto in = ImageOf(2, 2, {16777216, 16777217, 0, 2});
  IPG_STATISTIC1 op(in.get());
  ASSERT_TRUE(op.AverageGL());
  EXPECT_DOUBLE_EQ(op.GetResult(), 16777218.0 / 3.0);
  ASSERT_TRUE(op.SumOfPixels());
  EXPECT_DOUBLE_EQ(op.GetResult(), 16777218.0);
  ASSERT_TRUE(op.MinMaxGL());
  EXPECT_DOUBLE_EQ(op.GetMin(), 0.0);
  EXPECT_DOUBLE_EQ(op.GetMax(), 16777216.0);
  ASSERT_TRUE(op.BasicStats());
  EXPECT_EQ(op.GetNbPixels(), 3);
  EXPECT_DOUBLE_EQ(op.GetMax(), 16777216.0);

  // Under a ROI only its exact value selects a pixel.
  auto ramp = ImageOf(2, 2, {10, 20, 30, 40});
  auto roi = ImageOf(2, 2, {kRoiInside, 1, 255, kRoiInside});
  IPG_STATISTIC1 inRoi(ramp.get(), roi.get());
  ASSERT_TRUE(inRoi.AverageGL());
  EXPECT_DOUBLE_EQ(inRoi.GetResult(), 25.0);
  ASSERT_TRUE(inRoi.BasicStats());
  EXPECT_EQ(inRoi.GetNbPixels(), 2);
  EXPECT_DOUBLE_EQ(inRoi.GetVariance(), 225.0);
}

TEST(IpgStatistic1, PrecisionDividesEachResultOnceQueriesUseTheCacheUntilANewInput)
{
  auto in = ImageOf(2, 2, {10, 20, 30, 40});
  in->Data->SetPrecision(10);
  IPG_STATISTIC1 op(in.get());
  ASSERT_TRUE(op.BasicStats());
  EXPECT_DOUBLE_EQ(op.GetMean(), 2.5);
  EXPECT_DOUBLE_EQ(op.GetVariance(), 12.5); // 125 / 10, not / 100
  EXPECT_DOUBLE_EQ(op.GetStdDev(), std::sqrt(125.0) / 10.0);
  EXPECT_DOUBLE_EQ(op.GetMin(), 1.0);
  EXPECT_DOUBLE_EQ(op.GetMax(), 4.0);
  ASSERT_TRUE(op.AverageGL());
  EXPECT_DOUBLE_EQ(op.GetResult(), 2.5);

  // An empty selection.
  auto same = ImageOf(2, 2, {10, 20, 30, 40});
  auto roi = TestImage(2, 2).Fill(255).Build();
  same->Data->SetPrecision(10);
  IPG_STATISTIC1 empty(same.get(), roi.get());
  ASSERT_TRUE(empty.AverageGL());
  EXPECT_DOUBLE_EQ(empty.GetResult(), -0.1); // the -1.0 is scaled too
  ASSERT_TRUE(empty.SumOfPixels());
  EXPECT_DOUBLE_EQ(empty.GetResult(), 0.0);
  ASSERT_TRUE(empty.MinMaxGL());
  EXPECT_DOUBLE_EQ(empty.GetMin(), 1677721.7);
  EXPECT_DOUBLE_EQ(empty.GetMax(), -1677721.5);
  EXPECT_FALSE(empty.BasicStats());
  EXPECT_DOUBLE_EQ(empty.GetVariance(), 0.0); // computed, so queries do not retry
  EXPECT_FALSE(empty.NumberOfPixels());
  EXPECT_DOUBLE_EQ(empty.GetResult(), 0.0);

  for (int unknown : {3, 5, 17, -1})
    EXPECT_FALSE((empty.SetTools(unknown), empty.Apply())) << unknown;
  IPG_STATISTIC1 none(nullptr);
  for (int code : {0, 1, 2, 4, 6, 9, 16})
    EXPECT_FALSE((none.SetTools(code), none.Apply())) << code;

  // Queries use the cache until a new input.
  auto cached = ImageOf(2, 2, {10, 20, 30, 40});
  IPG_STATISTIC1 queries(cached.get());
  queries.SetTools(9);
  EXPECT_TRUE(queries.Apply());
  EXPECT_DOUBLE_EQ(queries.GetResult(), 10.0);
  EXPECT_FALSE(queries.Apply()); // cached: false, Result still valid
  EXPECT_DOUBLE_EQ(queries.GetResult(), 10.0);

  // A new ROI does not reset the cache, but MinMaxGL rewrites Min behind it.
  auto half = ImageOf(2, 2, {0, kRoiInside, kRoiInside, 0});
  queries.SetRoi(half.get());
  EXPECT_FALSE(queries.Variance());
  EXPECT_DOUBLE_EQ(queries.GetResult(), 125.0);
  ASSERT_TRUE(queries.MinMaxGL());
  EXPECT_FALSE(queries.MinGL());
  EXPECT_DOUBLE_EQ(queries.GetResult(), 20.0);

  queries.SetImaIn(cached.get());
  EXPECT_TRUE(queries.NumberOfPixels());
  EXPECT_DOUBLE_EQ(queries.GetResult(), 2.0);
  EXPECT_FALSE(queries.StdDeviation());
  EXPECT_DOUBLE_EQ(queries.GetResult(), 5.0);
  queries.SetTools(10);
  EXPECT_FALSE(queries.Apply());
  EXPECT_DOUBLE_EQ(queries.GetResult(), 30.0);
}

TEST(IpgStatistic1, ConstantImageWarnsNoiseMeasuresFail)
{
  MessageCapture capture;
  auto in = TestImage(3, 3).Fill(7).Build();
  IPG_STATISTIC1 op(in.get());
  EXPECT_TRUE(op.BasicStats());
  EXPECT_EQ(capture.Texts, std::vector<std::string>{"problème : variance négative"});
  EXPECT_EQ(capture.Captions[0], "Information");
  EXPECT_DOUBLE_EQ(op.GetVariance(), 0.0);
  EXPECT_DOUBLE_EQ(op.GetStdDev(), 0.0);
  EXPECT_DOUBLE_EQ(op.GetMean(), 7.0);

  auto flat = TestImage(4, 4).Fill(50).Build();
  IPG_STATISTIC1 even(flat.get());
  EXPECT_FALSE(even.SignalToNoiseRatio());
  EXPECT_DOUBLE_EQ(even.GetResult(), 0.0);

  auto black = TestImage(4, 4).Fill(0).Build();
  IPG_STATISTIC1 dark(black.get());
  EXPECT_FALSE(dark.EstimateNoisePercent());
  EXPECT_DOUBLE_EQ(dark.GetResult(), 1.0);

  auto thin = TestImage(2, 5).Fill(50).Build(); // no interior
  IPG_STATISTIC1 narrow(thin.get());
  EXPECT_FALSE(narrow.SignalToNoiseRatio());
  EXPECT_FALSE(narrow.EstimateNoisePercent());
}

TEST(IpgStatistic1, NoiseMeasuresAgainstTheSmoothedImage)
{
  // 5x5 of 90 with 180 in the centre: every interior 3x3 box sees the spike, so
  // the smoothed interior is 100 everywhere (signal 9 * 100^2, noise 8 * 10^2 + 80^2).
  auto in = TestImage(5, 5).Fill(90).At(2, 2, 180).Build();
  IPG_STATISTIC1 op(in.get());
  op.SetTools(2);
  ASSERT_TRUE(op.Apply());
  EXPECT_NEAR(op.GetResult(), std::sqrt(90000.0 / 7200.0), 1e-12);
  op.SetTools(1);
  ASSERT_TRUE(op.Apply());
  EXPECT_NEAR(op.GetResult(), 100.0 * std::sqrt(7200.0 / 9.0) / 100.0, 1e-12);

  ASSERT_TRUE(op.BasicStats());
  EXPECT_NEAR(op.GetSNR(), std::sqrt(12.5), 1e-12);
  EXPECT_DOUBLE_EQ(op.GetMean(), 93.6);
  EXPECT_NEAR(op.GetVariance(), 311.04, 1e-9);
  EXPECT_EQ(op.GetNbPixels(), 25);

  // Under a ROI the frame counts. The centre: smoothed 100 against 180; a
  // frame pixel: not smoothed (0) against 90.
  auto roi = TestImage(5, 5).At(2, 2, kRoiInside).At(0, 0, kRoiInside).Build();
  IPG_STATISTIC1 inRoi(in.get(), roi.get());
  ASSERT_TRUE(inRoi.SignalToNoiseRatio());
  EXPECT_NEAR(inRoi.GetResult(), std::sqrt(10000.0 / (6400.0 + 8100.0)), 1e-12);
}

TEST(IpgStatistic1, NamedRoiMeasuresInsideItsContourAndOnlyTheBuiltMaskIsDeleted)
{
  auto in = ImageOf(2, 2, {1, 2, 3, 4});
  auto hostRoi = TestImage(2, 2).Fill(kRoiInside).Build();
  {
    IPG_STATISTIC1 op(in.get(), std::string("absent"));
    EXPECT_TRUE(op.GetOwnsRoi());
    op.SetRoi(hostRoi.get()); // the host keeps this one; the built mask is still released
    ASSERT_TRUE(op.BasicStats());
    EXPECT_EQ(op.GetNbPixels(), 4);
  }
  EXPECT_EQ(hostRoi->Data->GetValue(1u, 1u), kRoiInside);

  auto built = TestImage(6, 6).Fill(70).Rect(0, 0, 3, 3, 10).Build();
  DCM_STRUCT& image = *built;
  auto* square = new OBJ_OBJECT(&image);
  square->SetName("liver");
  square->AddPoint(0, 0);
  square->AddPoint(2, 0);
  square->AddPoint(2, 2);
  square->AddPoint(0, 2);
  image.GetObjectsList()->Add(square);

  IPG_STATISTIC1 stat(&image, std::string("liver"));
  EXPECT_TRUE(stat.GetOwnsRoi());
  ASSERT_NE(stat.GetRoi(), nullptr);
  EXPECT_EQ(stat.GetTools(), 0);
  ASSERT_TRUE(stat.Apply());
  EXPECT_DOUBLE_EQ(stat.GetResult(), 10.0);

  IPG_STATISTIC1 absent(&image, std::string("spleen")); // an empty mask selects nothing
  ASSERT_TRUE(absent.Apply());
  EXPECT_DOUBLE_EQ(absent.GetResult(), -1.0);
  IPG_STATISTIC1 none(nullptr, std::string("liver"));
  EXPECT_EQ(none.GetRoi(), nullptr);
}

