// SPDX-License-Identifier: Apache-2.0
#include "ipg/arithmetic/ipg_change_dynamic.h"

#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kMark = 16777217;
using V = std::vector<int>;

// The re-dynamisation of v from [0, 1000] onto [0, 4095].
int Redyn1000(int v) { return static_cast<int>(std::floor(v / 1000.0L * 4095 + 0.5L)); }

} // namespace

TEST(IpgChangeDynamic, CopyCutAndAbsoluteValue)
{
  auto in = ImageOf(2, 1, {0, 0});
  in->Data->SetPrecision(10);
  in->Data->SetValue(0u, 0u, 20.5); // raw 205
  in->Data->SetValue(1u, 0u, 10.0);
  DCM_STRUCT out(2, 1), roi(2, 1);
  out.Data->SetPrecision(10);
  IPG_CHANGE_DYNAMIC source(in.get(), &out);
  source.SetRoi(&roi);
  source.SetMode(300);
  source.SetTools(300);
  source.SetLimitInf(10.0f);
  source.SetLimitSup(20.5f);
  IPG_CHANGE_DYNAMIC copy(source);
  EXPECT_EQ(copy.GetImaIn(), in.get());
  EXPECT_EQ(copy.GetImaOut(), &out);
  EXPECT_EQ(copy.GetRoi(), nullptr);
  EXPECT_EQ(copy.GetMode(), 301);
  EXPECT_DOUBLE_EQ(copy.GetTools(), 300.0);

  source.SetRoi(nullptr);
  ASSERT_TRUE(source.Apply());
  EXPECT_EQ(PixelsOf(out), (V{205, 100}));
  ASSERT_TRUE(copy.Apply());
  EXPECT_EQ(PixelsOf(out), (V{0, 100})) << "the copy cuts at 20, not 20.5";

  // The cut keeps the closed window and marks.
  auto window = ImageOf(5, 1, {9, 10, 20, 21, kMark});
  DCM_STRUCT cut(5, 1);
  IPG_CHANGE_DYNAMIC cutting(window.get(), &cut);
  cutting.SetTools(300);
  cutting.SetLimitInf(10.0f);
  cutting.SetLimitSup(20.0f);
  ASSERT_TRUE(cutting.Apply());
  EXPECT_EQ(PixelsOf(cut), (V{0, 10, 20, 0, kMark}));
  EXPECT_EQ(cut.Data->GetMin(), 0);
  EXPECT_EQ(cut.Data->GetMax(), kMark);

  // Any non-zero ROI value selects a pixel.
  auto negative = ImageOf(3, 1, {-5, -6, -7});
  auto anyMark = ImageOf(3, 1, {1, 0, kMark});
  DCM_STRUCT absolute(3, 1);
  IPG_CHANGE_DYNAMIC inRoi(negative.get(), &absolute);
  inRoi.SetRoi(anyMark.get());
  inRoi.SetTools(303);
  ASSERT_TRUE(inRoi.Apply());
  EXPECT_EQ(PixelsOf(absolute), (V{5, 0, 7}));
  // Called directly, outside pixels keep what the output held.
  absolute.Data->Init(42.0);
  ASSERT_TRUE(inRoi.GetAbsoluteImage());
  EXPECT_EQ(PixelsOf(absolute), (V{5, 42, 7}));

  auto marked = ImageOf(4, 1, {-5, 5, 16777218, kMark}); // marks are copied
  DCM_STRUCT copied(4, 1);
  IPG_CHANGE_DYNAMIC marks(marked.get(), &copied);
  ASSERT_TRUE((marks.SetTools(303), marks.Apply()));
  EXPECT_EQ(PixelsOf(copied), (V{5, 5, 16777218, kMark}));
}

TEST(IpgChangeDynamic, RedynMapsTheStoredRangeOntoTheLimitsTabledOrNot)
{
  auto in = ImageOf(4, 1, {0, 500, 1000, kMark});
  in->Data->SetMax(1000);
  DCM_STRUCT out(4, 1);
  IPG_CHANGE_DYNAMIC op(in.get(), &out);
  ASSERT_TRUE(op.Apply());
  EXPECT_EQ(PixelsOf(out), (V{0, 2048, 4095, 0})) << "2047.5 rounds up; marks stay unwritten";

  auto tenths = ImageOf(4, 1, {10, 20, 20, 10});
  tenths->Data->SetPrecision(10);
  op.SetImaIn(tenths.get());
  op.SetLimitInf(1.0f);
  op.SetLimitSup(3.0f);
  ASSERT_TRUE(op.Apply());
  EXPECT_EQ(PixelsOf(out), (V{10, 30, 30, 10}));
  EXPECT_EQ(out.Data->GetPrecision(), 10);

  auto flat = ImageOf(4, 1, {5, 5, 5, 5});
  op.SetImaIn(flat.get());
  op.SetLimitInf(7.0f);
  op.SetLimitSup(100.0f);
  ASSERT_TRUE(op.Apply());
  EXPECT_EQ(PixelsOf(out), (V{7, 7, 7, 7})) << "equal extremes map every pixel to the lower limit";

  // 2500 pixels over a range of 1000: tabulated; 4 pixels: computed one by one.
  V many, few{0, 333, 777, 1000};
  for (int k = 0; k < 2500; ++k)
    many.push_back(k * 37 % 1001);
  for (const V& pixels : {many, few}) {
    const auto cols = static_cast<unsigned>(pixels.size() / (pixels.size() == 2500 ? 50 : 1));
    const auto rows = static_cast<unsigned>(pixels.size() / cols);
    auto tabled = ImageOf(cols, rows, pixels);
    ASSERT_EQ(tabled->Data->GetMax(), 1000);
    DCM_STRUCT tabledOut(cols, rows);
    IPG_CHANGE_DYNAMIC tabledOp(tabled.get(), &tabledOut);
    ASSERT_TRUE(tabledOp.Apply());
    const V got = PixelsOf(tabledOut);
    for (std::size_t k = 0; k < pixels.size(); ++k)
      ASSERT_EQ(got[k], Redyn1000(pixels[k])) << "value " << pixels[k];
  }
}

TEST(IpgChangeDynamic, SizeAndOutputChecksAndUnknownCodes)
{
  MessageCapture capture;
  auto in = ImageOf(4, 4, V(16, 3));
  IPG_CHANGE_DYNAMIC op(in.get(), nullptr);
  EXPECT_FALSE(op.Apply());
  EXPECT_TRUE(capture.Texts.empty()) << "Apply() refuses a missing output silently";
  EXPECT_FALSE(op.GetCutImage());
  EXPECT_FALSE(op.GetRedynImage());
  EXPECT_FALSE(op.GetAbsoluteImage());
  DCM_STRUCT halfHeight(4, 2), smaller(2, 2);
  op.SetImaOut(&halfHeight);
  EXPECT_TRUE(op.Apply()) << "one differing dimension passes";
  op.SetImaOut(&smaller);
  EXPECT_FALSE(op.Apply());
  std::vector<std::string> expected(3, "image de sortie non allouée");
  expected.push_back("Les images n'ont pas les mêmes dimensions : IPG_FILTER_PROCESSING::Apply()");
  EXPECT_EQ(capture.Texts, expected);
  EXPECT_EQ(capture.Captions[3], "Information");

  // An unknown code zeroes the input and the output.
  auto ramp = ImageOf(2, 2, {1, 2, 3, 4});
  DCM_STRUCT cleared(2, 2);
  cleared.Data->Init(9.0);
  IPG_CHANGE_DYNAMIC unknown(ramp.get(), &cleared);
  unknown.SetTools(302);
  EXPECT_TRUE(unknown.Apply());
  EXPECT_EQ(PixelsOf(*ramp), (V{0, 0, 0, 0}));
  EXPECT_EQ(PixelsOf(cleared), (V{0, 0, 0, 0}));
}
