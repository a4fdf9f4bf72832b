// SPDX-License-Identifier: Apache-2.0
#include "ipg/arithmetic/ipg_arithmetic2.h"

#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

namespace {

constexpr int kMark = 16777217;

// Runs one operation of a two-image operator with Mode 302, which leaves the
// written values as they are.
class TwoImages {
public:
  TwoImages(const std::vector<int>& a, const std::vector<int>& b, const std::vector<int>& roi = {})
      : A(ImageOf(static_cast<unsigned>(a.size()), 1, a)), B(ImageOf(static_cast<unsigned>(b.size()), 1, b)),
        Out(std::make_unique<DCM_STRUCT>(static_cast<unsigned>(a.size()), 1u))
  {
    if (!roi.empty())
      Roi = ImageOf(static_cast<unsigned>(roi.size()), 1, roi);
    Op = std::make_unique<IPG_ARITHMETIC2>(A.get(), B.get(), Roi.get());
    Op->SetImaOut(Out.get());
    Op->SetMode(302);
  }
  std::vector<int> Run(bool (IPG_ARITHMETIC2::*operation)())
  {
    EXPECT_TRUE(((*Op).*operation)());
    return PixelsOf(*Out);
  }

  std::unique_ptr<DCM_STRUCT> A, B, Out, Roi;
  std::unique_ptr<IPG_ARITHMETIC2> Op;
};

using V = std::vector<int>;

} // namespace

TEST(IpgArithmetic2, PixelFormulasThresholdsMarksAndRoi)
{
  TwoImages t({100, -7, 1000}, {30, 2, 10});
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::MakeDifferenceImage), (V{70, -9, 990}));
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::MakeAbsoluteSubstraction), (V{70, 9, 990}));
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::MakeSumImage), (V{130, -5, 1010}));
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::DivideImage), (V{3, -3, 100}));
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::MakeSumSquaredImages), (V{10900, 53, 1000100}));
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::MakeDifferenceSquaredImages), (V{9100, 45, 999900}));
  TwoImages big({50000}, {0}); // squares wrap around on 32 bits
  EXPECT_EQ(big.Run(&IPG_ARITHMETIC2::MakeSumSquaredImages), (V{-1794967296}));

  TwoImages windowed({150, 150, 150, 200, kMark}, {10, 11, 20, 20, 5});
  windowed.Op->SetThresholdMin(10);
  windowed.Op->SetThresholdMax(200);
  EXPECT_EQ(windowed.Run(&IPG_ARITHMETIC2::MakeDifferenceImage), (V{0, 139, 130, 0, 0}));
  EXPECT_EQ(windowed.Run(&IPG_ARITHMETIC2::MakeAbsoluteSubstraction), (V{0, 139, 130, 0, 0}));
  windowed.Op->SetThresholdMin(-1);
  EXPECT_EQ(windowed.Run(&IPG_ARITHMETIC2::MakeDifferenceImage), (V{140, 139, 130, 180, kMark}));

  // Pixel 0 carries a mark in a, pixel 1 is outside the ROI (value 1), pixel 2 inside.
  TwoImages marked({kMark, 100, 12}, {5, 30, 4}, {kMark, 1, kMark});
  EXPECT_EQ(marked.Run(&IPG_ARITHMETIC2::MakeDifferenceImage), (V{kMark, 100, 8}));
  EXPECT_EQ(marked.Run(&IPG_ARITHMETIC2::MakeSumImage), (V{kMark, 100, 16}));
  EXPECT_EQ(marked.Run(&IPG_ARITHMETIC2::MakeSumSquaredImages), (V{kMark, 100, 160}));
  // Under a ROI the division subtracts.
  EXPECT_EQ(marked.Run(&IPG_ARITHMETIC2::DivideImage), (V{kMark, 100, 8}));
  // The absolute difference ignores the ROI and keeps the smaller value of a mark pixel.
  EXPECT_EQ(marked.Run(&IPG_ARITHMETIC2::MakeAbsoluteSubstraction), (V{5, 70, 8}));
}

TEST(IpgArithmetic2, DivisionWithoutRoiAndLogDifferenceSlippingPastZeros)
{
  // b = 0 gives 0; quotients above 16777216 give 0; marks are divided like grey levels.
  TwoImages t({9, 2000000000, kMark, 16777216}, {0, 2, 5, 1});
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::DivideImage), (V{0, 0, 3355443, 16777216}));
  TwoImages roi({9, 3}, {0, 1}, {kMark, kMark});
  EXPECT_EQ(roi.Run(&IPG_ARITHMETIC2::DivideImage), (V{9, 2}));

  // The zero of a makes every later pixel of a read one place further on; the
  // walk past the end reads 0, whose logarithm is written as the lowest value.
  TwoImages logs({0, 100, 1000, 10}, {10, 10, 10, 10});
  EXPECT_EQ(logs.Run(&IPG_ARITHMETIC2::MakeLogDifferenceImage), (V{1, 2, 0, INT_MIN}));
  EXPECT_EQ(logs.Out->Data->GetPrecision(), 1);

  TwoImages second({1000, 1000, kMark}, {0, 10, 100});
  EXPECT_EQ(second.Run(&IPG_ARITHMETIC2::MakeLogDifferenceImage), (V{2, 1, kMark}));
}

TEST(IpgArithmetic2, FailuresApplyResultAndRescaling)
{
  MessageCapture capture;
  auto a = ImageOf(2, 1, {1, 2});
  auto b = ImageOf(2, 1, {1, 2});
  auto wide = ImageOf(3, 1, {1, 2, 3});
  IPG_ARITHMETIC2 op(a.get(), b.get());
  EXPECT_FALSE(op.MakeDifferenceImage());
  EXPECT_TRUE(op.Apply()) << "codes 300 to 305 report success whatever happened";
  ASSERT_EQ(capture.Texts.size(), 2u);
  EXPECT_EQ(capture.Texts[0], "image de sortie non allouée");
  EXPECT_EQ(capture.Captions[0], "Information");

  DCM_STRUCT out(2, 1);
  op.SetImaOut(&out);
  op.SetInSecond(wide.get());
  EXPECT_FALSE(op.MakeSumImage());
  op.SetTools(302);
  EXPECT_TRUE(op.Apply());
  op.SetTools(306);
  EXPECT_FALSE(op.Apply());
  op.SetTools(299);
  EXPECT_FALSE(op.Apply());
  EXPECT_EQ(capture.Texts.size(), 2u) << "size differences and unknown codes are silent";

  // By default Apply() rescales the difference.
  auto hundreds = ImageOf(3, 1, {100, 100, 100});
  auto lower = ImageOf(3, 1, {30, 50, 100});
  DCM_STRUCT scaled(3, 1);
  IPG_ARITHMETIC2 rescaling(hundreds.get(), lower.get());
  rescaling.SetImaOut(&scaled);
  ASSERT_TRUE(rescaling.Apply());
  // 0..70 onto 0..2^16
  EXPECT_EQ(PixelsOf(scaled), (V{65536, 46811, 0}));
}

TEST(IpgArithmetic2, OptimalDifferenceCancelsIntensityChangesButNotARealOne)
{
  std::vector<int> base, gain, gamma;
  for (int v = 1; v <= 40; ++v) {
    base.push_back(v * 7 % 53 + 3);
    gain.push_back(4 * base.back());
    gamma.push_back(base.back() * base.back());
  }
  TwoImages byGain(base, gain);
  byGain.Op->SetTools(301);
  ASSERT_TRUE(byGain.Op->Apply());
  EXPECT_EQ(PixelsOf(*byGain.Out), V(base.size(), 0));
  TwoImages byGamma(base, gamma);
  EXPECT_TRUE(byGamma.Op->MakeOptimalDifferenceImage(IPG_ARITHMETIC2::kGainGammaModel));
  EXPECT_EQ(PixelsOf(*byGamma.Out), V(base.size(), 0));
  V roi(base.size(), kMark);
  roi.back() = 0;
  TwoImages masked(base, gain, roi);
  ASSERT_TRUE(masked.Op->MakeOptimalDifferenceImage(IPG_ARITHMETIC2::kGainGammaModel));
  EXPECT_EQ(PixelsOf(*masked.Out).front(), 0);
  EXPECT_EQ(PixelsOf(*masked.Out).back(), gain.back()); // outside the ROI: the larger of the two

  // A real change stays.
  std::vector<int> before, after;
  for (int v = 0; v < 64; ++v) {
    after.push_back(20 + (v * 13) % 180);
    before.push_back(3 * after.back());
  }
  after[10] += 60; // a change in a, beyond the intensity change
  TwoImages changed(after, before);
  ASSERT_TRUE(changed.Op->MakeOptimalDifferenceImage(IPG_ARITHMETIC2::kGainGammaModel));
  std::vector<int> d = PixelsOf(*changed.Out);
  EXPECT_GE(std::exchange(d[10], 0), 50);
  for (std::size_t k = 0; k < d.size(); ++k)
    EXPECT_LE(std::abs(d[k]), 3) << "pixel " << k;

  // Histogram specification cancels any increasing change.
  std::vector<int> first, increased;
  for (int v = -6; v <= 9; ++v) {
    first.push_back(v);
    increased.push_back(v * v * v + 7 + (v > 0 ? 1000 : 0));
  }
  first.push_back(kMark);
  increased.push_back(3);
  TwoImages specified(first, increased);
  ASSERT_TRUE(specified.Op->MakeOptimalDifferenceImage(IPG_ARITHMETIC2::kHistogramSpecificationModel));
  V expectedSpec(first.size() - 1, 0);
  expectedSpec.push_back(kMark);
  EXPECT_EQ(PixelsOf(*specified.Out), expectedSpec);
  EXPECT_FALSE(specified.Op->MakeOptimalDifferenceImage(7));
}

