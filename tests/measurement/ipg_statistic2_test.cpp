// SPDX-License-Identifier: Apache-2.0
#include "ipg/measurement/ipg_statistic2.h"

#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

constexpr int kTop = 16777216;

double RunCode(IPG_STATISTIC2& op, int tools)
{
  op.SetTools(tools);
  EXPECT_TRUE(op.Apply());
  return op.GetResult();
}

TEST(Statistic2, LeastSquaredIsTheEuclideanDistanceOfValidPairsElseLeavesTheResult)
{
  // Pairs (0,3), (16777216,16777210) and (5,1) count; 16777217 does not.
  auto a = ImageOf(2, 2, {0, kTop, kTop + 1, 5});
  auto b = ImageOf(2, 2, {3, kTop - 6, 0, 1});
  IPG_STATISTIC2 op(a.get(), b.get());
  EXPECT_DOUBLE_EQ(RunCode(op, 102), std::sqrt(9.0 + 36.0 + 16.0));

  auto roi = ImageOf(2, 2, {0, kRoiInside, kRoiInside, 1});
  IPG_STATISTIC2 inRoi(a.get(), b.get(), roi.get());
  EXPECT_DOUBLE_EQ(RunCode(inRoi, 102), 6.0);

  IPG_STATISTIC2 same(a.get(), a.get());
  EXPECT_EQ(RunCode(same, 102), 0.0);

  // Different sizes or a missing image leave the result, silently.
  MessageCapture capture;
  auto wide = ImageOf(4, 1, {0, 1, 2, 3});
  IPG_STATISTIC2 sized(a.get(), wide.get());
  sized.SetResult(7.0);
  EXPECT_FALSE(sized.ComputeLeastSquared());
  EXPECT_EQ(RunCode(sized, 102), 7.0);
  IPG_STATISTIC2 missing(a.get(), nullptr);
  missing.SetResult(7.0);
  EXPECT_EQ(RunCode(missing, 102), 7.0);
  EXPECT_TRUE(capture.Texts.empty());
}

TEST(Statistic2, MutualInformationOfIdenticalAndIndependentImages)
{
  // Levels 0, 1, 1, 2: H = -(1/4 ln 1/4 + 1/2 ln 1/2 + 1/4 ln 1/4) = 1.5 ln 2.
  auto a = ImageOf(2, 2, {0, 1, 1, 2});
  IPG_STATISTIC2 same(a.get(), a.get());
  EXPECT_DOUBLE_EQ(RunCode(same, 100), 1.5 * std::log(2.0));
  const double* record = same.GetMutualInformationRecord();
  ASSERT_NE(record, nullptr);
  EXPECT_DOUBLE_EQ(record[IPG_STATISTIC2::kFirstEntropy], 1.5 * std::log(2.0));
  EXPECT_DOUBLE_EQ(record[IPG_STATISTIC2::kSecondEntropy], 1.5 * std::log(2.0));
  EXPECT_DOUBLE_EQ(record[IPG_STATISTIC2::kJointEntropy], 1.5 * std::log(2.0));
  EXPECT_DOUBLE_EQ(record[IPG_STATISTIC2::kNormalisedMutualInformation], 2.0);
  for (int k = 5; k < IPG_STATISTIC2::kMutualInformationRecordSize; ++k)
    EXPECT_EQ(record[k], 0.0);

  // Every joint cell once: H1 = H2 = ln 2, H12 = ln 4.
  auto columns = ImageOf(2, 2, {0, 1, 0, 1});
  auto rows = ImageOf(2, 2, {0, 0, 1, 1});
  IPG_STATISTIC2 independent(columns.get(), rows.get());
  EXPECT_NEAR(RunCode(independent, 100), 0.0, 1e-15);
  EXPECT_DOUBLE_EQ(independent.GetMutualInformationRecord()[IPG_STATISTIC2::kJointEntropy], std::log(4.0));
  EXPECT_DOUBLE_EQ(independent.GetMutualInformationRecord()[IPG_STATISTIC2::kNormalisedMutualInformation], 1.0);
}

TEST(Statistic2, MutualInformationStridesByTheLevelRangeAndPairsByColumnTimesRows)
{
  // First image levels 0 and 2 (range 3, two bins), second 0 and 1. Joint cells
  // at keys 0 and 3; read with stride 3 both fall in the first marginal's cell 0,
  // so H1 = 0, H2 = H12 = ln 2 and I = 0 (the true value would be ln 2).
  auto a = ImageOf(2, 1, {0, 2});
  auto b = ImageOf(2, 1, {0, 1});
  IPG_STATISTIC2 op(a.get(), b.get());
  EXPECT_DOUBLE_EQ(RunCode(op, 100), 0.0);
  const double* record = op.GetMutualInformationRecord();
  EXPECT_EQ(record[IPG_STATISTIC2::kFirstEntropy], 0.0);
  EXPECT_DOUBLE_EQ(record[IPG_STATISTIC2::kSecondEntropy], std::log(2.0));
  EXPECT_DOUBLE_EQ(record[IPG_STATISTIC2::kNormalisedMutualInformation], 1.0);

  // 2x3 and 3x2: elements col * rows_k + row for col < 2, row < 2 are 0, 1, 3, 4
  // of the first and 0, 1, 2, 3 of the second, identical here, so I = ln 4.
  auto tall = ImageOf(2, 3, {0, 1, 3, 2, 3, 3});
  auto wide = ImageOf(3, 2, {0, 1, 2, 3, 3, 3});
  IPG_STATISTIC2 paired(tall.get(), wide.get());
  EXPECT_DOUBLE_EQ(RunCode(paired, 100), std::log(4.0));
  EXPECT_DOUBLE_EQ(paired.GetMutualInformationRecord()[IPG_STATISTIC2::kNormalisedMutualInformation], 2.0);
}

TEST(Statistic2, CorrelationRatioUsesLevelNumbersSkipsTopGreyFlatOrMissingGiveMinusOne)
{
  // Second image levels 0, 1, 5 are numbered 0, 1, 2: m = 5/4, V = 11/16,
  // W = 1/8, so 1 - 2/11 (grey levels would give 1 - 2/83). The fifth pair
  // holds 16777216 and is left out.
  auto a = ImageOf(5, 1, {0, 0, 1, 1, kTop});
  auto b = ImageOf(5, 1, {0, 1, 5, 5, 0});
  IPG_STATISTIC2 op(a.get(), b.get());
  EXPECT_DOUBLE_EQ(RunCode(op, 101), 9.0 / 11.0);

  auto c = ImageOf(2, 2, {0, 1, 1, 2});
  IPG_STATISTIC2 same(c.get(), c.get());
  EXPECT_NEAR(RunCode(same, 101), 1.0, 1e-12);

  MessageCapture capture;
  auto flat = ImageOf(2, 2, {4, 4, 4, 4});
  auto alternating = ImageOf(2, 2, {0, 1, 0, 1});
  for (int tools : {100, 101}) {
    IPG_STATISTIC2 single(alternating.get(), flat.get());
    EXPECT_EQ(RunCode(single, tools), -1.0) << tools;
    IPG_STATISTIC2 missing(nullptr, alternating.get());
    EXPECT_EQ(RunCode(missing, tools), -1.0) << tools;
  }
  // The second image's valid pixels share one level although max > min.
  auto oneValidLevel = ImageOf(2, 2, {3, 3, 3, kTop});
  IPG_STATISTIC2 single(alternating.get(), oneValidLevel.get());
  EXPECT_FALSE(single.ComputeCorrelationRatio());
  EXPECT_EQ(single.GetResult(), -1.0);
  EXPECT_TRUE(capture.Texts.empty());
}

} // namespace
