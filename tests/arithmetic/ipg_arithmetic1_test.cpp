// SPDX-License-Identifier: Apache-2.0
#include "ipg/arithmetic/ipg_arithmetic1.h"
#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <memory>
#include <vector>

namespace {

// Runs one operation on a one-row image and returns the output as real values.
// The output keeps precision 10000 and mode 302, so results are read before any
// re-scaling, to four decimals.
struct PointRun {
  PointRun(int tools, float variable, const std::vector<double>& input, const std::vector<int>* roi = nullptr)
      : In(static_cast<unsigned>(input.size()), 1, nullptr), Out(In, false)
  {
    In.Data->SetPrecision(10000);
    Out.Data->SetPrecision(10000);
    for (unsigned c = 0; c < input.size(); ++c)
      In.Data->SetValue(c, 0u, input[c]);
    if (roi != nullptr)
      RoiImage = ImageOf(static_cast<unsigned>(roi->size()), 1, *roi);
    IPG_ARITHMETIC1 op(&In, RoiImage.get());
    op.SetTools(tools);
    op.SetVariable(variable);
    op.SetMode(302);
    op.SetImaOut(&Out);
    Applied = op.Apply();
  }
  double at(unsigned c) const { return Out.Data->GetValueReal(c, 0); }

  DCM_STRUCT In;
  DCM_STRUCT Out;
  std::unique_ptr<DCM_STRUCT> RoiImage;
  bool Applied = false;
};

// Runs with precision 1 (whole grey levels), for the over-range guard near 2^24.
std::vector<int> RunWhole(int tools, float variable, const std::vector<int>& input)
{
  auto in = ImageOf(static_cast<unsigned>(input.size()), 1, input);
  DCM_STRUCT out(*in, false);
  IPG_ARITHMETIC1 op(in.get());
  op.SetTools(tools);
  op.SetVariable(variable);
  op.SetMode(302);
  op.SetImaOut(&out);
  EXPECT_TRUE(op.Apply());
  return PixelsOf(out);
}

} // namespace

TEST(Arithmetic1, OverRangeGuardKeepsTheInputAndIsInclusive)
{
  EXPECT_EQ(RunWhole(200, 10.0f, {16777210, 16777206}), (std::vector<int>{16777210, 16777216}));
  EXPECT_EQ(RunWhole(203, 0.0f, {5000, -4000, 3}), (std::vector<int>{5000, 16000000, 9}));
  EXPECT_EQ(RunWhole(201, 10.0f, {16777210}), (std::vector<int>{167772100})) << "multiplication is unguarded";
  EXPECT_EQ(RunWhole(209, 0.0f, {8}), (std::vector<int>{8}));
}

TEST(Arithmetic1, PointOperationsToFourDecimals)
{
  const struct {
    int Tools;
    float Variable;
    std::vector<double> In;
    std::vector<int> Raw;
  } cases[] = {
      {200, 2.5f, {1.0, -1.0}, {35000, 15000}},
      {201, -2.0f, {1.5}, {-30000}},
      {204, 0.0f, {-4.0, 16.0, 2.0}, {-40000, 40000, 14142}}, // the root of a negative keeps the input
      {206, 2.0f, {-3.0, 3.0, 0.0}, {-90000, 90000, 0}},       // powers keep the sign of the input
      {206, 0.0f, {0.0, -5.0}, {10000, 10000}},
      {206, 0.5f, {0.0, -16.0}, {0, -40000}},
      // 0 and |v| below 0.001 give the floor -16777216, which saturates the store
      // at precision 10000; exactly 0.001 is not below the limit; -10 is kept.
      {207, 0.0f, {0.0, -10.0, 0.001, 1000.0, -0.0005}, {INT_MIN, -100000, -30000, 30000, INT_MIN}},
      {208, 0.0f, {1.0, -1.0}, {0, -10000}},
      {210, 0.0f, {1.0, 0.0}, {27182, 10000}},
      {211, 0.0f, {1.0}, {572957}}, // named the other way round: 57.29577951308232 degrees
      {212, 0.0f, {180.0}, {31415}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Tools);
    PointRun run(c.Tools, c.Variable, c.In);
    ASSERT_TRUE(run.Applied);
    EXPECT_EQ(PixelsOf(run.Out), c.Raw);
  }
  // The floor before any re-scaling.
  EXPECT_EQ(RunWhole(207, 0.0f, {0, 100}), (std::vector<int>{-16777216, 2}));
  EXPECT_EQ(RunWhole(208, 0.0f, {0}), (std::vector<int>{-16777216}));

  PointRun tenPower(209, 0.0f, {0.0, 2.0, -1.0});
  EXPECT_DOUBLE_EQ(tenPower.at(0), 1.0);
  EXPECT_NEAR(tenPower.at(1), 100.0, 2e-4); // the store truncates at four decimals
  EXPECT_NEAR(tenPower.at(2), 0.1, 2e-4);
  PointRun div(205, -0.001f, {1.0});
  ASSERT_TRUE(div.Applied);
  EXPECT_NEAR(div.at(0), -1000.0, 0.1);
}

TEST(Arithmetic1, RoiSelectsOnlyTheExactRoiValueAbsoluteValueSetsTheDynamicRange)
{
  auto in = ImageOf(3, 1, {-7, 4, -2}), roi = ImageOf(3, 1, {kRoiInside, 0, 1});
  DCM_STRUCT out(*in, false);
  IPG_ARITHMETIC1 op(in.get(), roi.get());
  op.SetTools(202);
  op.SetMode(302);
  op.SetImaOut(&out);
  ASSERT_TRUE(op.Apply());
  EXPECT_EQ(PixelsOf(out), (std::vector<int>{7, 4, -2}));
  EXPECT_EQ(out.Data->GetDynMax(), 10u);

  // Only the exact ROI value selects a pixel.
  const std::vector<int> marks = {16777217, 1, 16777216, 16777217};
  PointRun run(200, 10.0f, {1.0, 2.0, 3.0, 4.0}, &marks);
  EXPECT_EQ(PixelsOf(run.Out), (std::vector<int>{110000, 20000, 30000, 140000}));

  const std::vector<int> ones = {1, 1, 1};
  PointRun outside(203, 0.0f, {2.0, 3.0, -4.0}, &ones);
  for (unsigned c = 0; c < 3; ++c)
    EXPECT_DOUBLE_EQ(outside.at(c), outside.In.Data->GetValueReal(c, 0));
}

TEST(Arithmetic1, DefaultModeRescalesTheResult)
{
  auto in = ImageOf(3, 1, {0, 10, 20});
  DCM_HEADER h = in->GetHeader();
  h.BitsStored = 8;
  in->SetHeader(h);
  DCM_STRUCT out(*in, false);
  IPG_ARITHMETIC1 op(in.get());
  op.SetVariable(5.0f);
  op.SetImaOut(&out);
  ASSERT_TRUE(op.Apply());
  // 5, 15, 25 with the stored minimum still 0 from construction: v / 25 * 256
  EXPECT_EQ(PixelsOf(out), (std::vector<int>{51, 154, 256}));
}

TEST(Arithmetic1, FailureMessagesAndTheirSpellings)
{
  DCM_STRUCT in(2, 1, nullptr);
  IPG_ARITHMETIC1 op(&in);
  MessageCapture capture;
  op.SetVariable(2.0f);
  for (int tools = 200; tools <= 212; ++tools)
    EXPECT_FALSE((op.SetTools(tools), op.Apply())) << tools;
  ASSERT_EQ(capture.Texts.size(), 13u);
  const std::string accented = "image de sortie non allou\xC3\xA9" "e";
  const std::string plain = "image de sortie non allouee";
  for (std::size_t k = 0; k < 13; ++k) {
    const bool unaccented = k == 1 || k == 5; // MultiplyConstant, DivideConstant
    EXPECT_EQ(capture.Texts[k], unaccented ? plain : accented) << "code " << 200 + k;
    EXPECT_EQ(capture.Captions[k], "Information");
  }

  capture.Texts.clear();
  op.SetTools(205);
  op.SetVariable(0.0005f);
  EXPECT_FALSE(op.Apply());
  ASSERT_EQ(capture.Texts.size(), 1u) << "division by zero is reported before the missing output";
  EXPECT_EQ(capture.Texts[0], "Division par Z\xC3\xA9ro");

  DCM_STRUCT out(in, false);
  out.Data->SetValue(0u, 0u, 42);
  op.SetImaOut(&out);
  EXPECT_FALSE(op.DivideConstant());
  EXPECT_EQ(out.Data->GetValue(0, 0), 42) << "output untouched";
}

TEST(Arithmetic1, ColourOutputFailsAfterWritingSmallerOutputOrMissingInputNeverCrash)
{
  DCM_STRUCT in(1, 1, nullptr), out(in, false);
  in.Data->SetValue(0u, 0u, 3);
  DCM_HEADER h = out.GetHeader();
  h.PhotometricInterpretation = 2;
  out.SetHeader(h);
  IPG_ARITHMETIC1 op(&in);
  op.SetVariable(1.0f);
  op.SetImaOut(&out);
  MessageCapture capture;
  EXPECT_FALSE(op.Apply());
  EXPECT_EQ(out.Data->GetValue(0, 0), 4);
  ASSERT_EQ(capture.Texts.size(), 1u);

  DCM_STRUCT negative(5, 5, nullptr);
  negative.Data->Init(-3.0);
  DCM_STRUCT small(2, 2, nullptr);
  IPG_ARITHMETIC1 all(&negative);
  all.SetImaOut(&small);
  all.SetMode(302);
  for (int tools = 200; tools <= 212; ++tools)
    (all.SetTools(tools), all.Apply());
  EXPECT_EQ(small.Data->GetValue(1, 1), 0) << "RadToDeg of -3 ran last over the overlap";

  IPG_ARITHMETIC1 noInput(nullptr);
  noInput.SetImaOut(&small);
  EXPECT_TRUE(noInput.Apply());
  EXPECT_TRUE((noInput.SetTools(202), noInput.Apply()));
}

