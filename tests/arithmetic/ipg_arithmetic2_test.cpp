#include "ipg/arithmetic/ipg_arithmetic2.h"

#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <memory>
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

TEST(IpgArithmetic2, PixelFormulas)
{
  TwoImages t({100, -7, 1000}, {30, 2, 10});
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::MakeDifferenceImage), (V{70, -9, 990}));
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::MakeAbsoluteSubstraction), (V{70, 9, 990}));
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::MakeSumImage), (V{130, -5, 1010}));
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::DivideImage), (V{3, -3, 100}));
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::MakeSumSquaredImages), (V{10900, 53, 1000100}));
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::MakeDifferenceSquaredImages), (V{9100, 45, 999900}));
}

TEST(IpgArithmetic2, SquaresWrapAroundOn32Bits)
{
  TwoImages t({50000}, {0});
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::MakeSumSquaredImages), (V{-1794967296}));
}

TEST(IpgArithmetic2, ThresholdsKeepOnlyPixelsStrictlyInsideTheWindowInBothImages)
{
  TwoImages t({150, 150, 150, 200, kMark}, {10, 11, 20, 20, 5});
  t.Op->SetThresholdMin(10);
  t.Op->SetThresholdMax(200);
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::MakeDifferenceImage), (V{0, 139, 130, 0, 0}));
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::MakeAbsoluteSubstraction), (V{0, 139, 130, 0, 0}));
  t.Op->SetThresholdMin(-1);
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::MakeDifferenceImage), (V{140, 139, 130, 180, kMark}));
}

TEST(IpgArithmetic2, MarksAndRoiChooseTheOtherValue)
{
  // Pixel 0 carries a mark in a, pixel 1 is outside the ROI (value 1), pixel 2 inside.
  TwoImages t({kMark, 100, 12}, {5, 30, 4}, {kMark, 1, kMark});
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::MakeDifferenceImage), (V{kMark, 100, 8}));
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::MakeSumImage), (V{kMark, 100, 16}));
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::MakeSumSquaredImages), (V{kMark, 100, 160}));
  // Under a ROI the division subtracts.
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::DivideImage), (V{kMark, 100, 8}));
  // The absolute difference ignores the ROI and keeps the smaller value of a mark pixel.
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::MakeAbsoluteSubstraction), (V{5, 70, 8}));
}

TEST(IpgArithmetic2, DivisionWithoutRoi)
{
  // b = 0 gives 0; quotients above 16777216 give 0; marks are divided like grey levels.
  TwoImages t({9, 2000000000, kMark, 16777216}, {0, 2, 5, 1});
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::DivideImage), (V{0, 0, 3355443, 16777216}));
  TwoImages roi({9, 3}, {0, 1}, {kMark, kMark});
  EXPECT_EQ(roi.Run(&IPG_ARITHMETIC2::DivideImage), (V{9, 2}));
}

TEST(IpgArithmetic2, LogDifferenceSlipsPastZeros)
{
  // The zero of a makes every later pixel of a read one place further on; the
  // walk past the end reads 0, whose logarithm is written as the lowest value.
  TwoImages t({0, 100, 1000, 10}, {10, 10, 10, 10});
  EXPECT_EQ(t.Run(&IPG_ARITHMETIC2::MakeLogDifferenceImage), (V{1, 2, 0, INT_MIN}));
  EXPECT_EQ(t.Out->Data->GetPrecision(), 1);

  TwoImages second({1000, 1000, kMark}, {0, 10, 100});
  EXPECT_EQ(second.Run(&IPG_ARITHMETIC2::MakeLogDifferenceImage), (V{2, 1, kMark}));
}

TEST(IpgArithmetic2, FailuresAndApplyResult)
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
}

TEST(IpgArithmetic2, ApplyRescalesTheDifference)
{
  auto a = ImageOf(3, 1, {100, 100, 100});
  auto b = ImageOf(3, 1, {30, 50, 100});
  DCM_STRUCT out(3, 1);
  IPG_ARITHMETIC2 op(a.get(), b.get());
  op.SetImaOut(&out);
  ASSERT_TRUE(op.Apply());
  // 0..70 onto 0..2^16
  EXPECT_EQ(PixelsOf(out), (V{65536, 46811, 0}));
}

TEST(IpgArithmetic2, OptimalDifferenceCancelsAGainAndGammaChange)
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
}

TEST(IpgArithmetic2, OptimalDifferenceKeepsARealChange)
{
  std::vector<int> before, after;
  for (int v = 0; v < 64; ++v) {
    after.push_back(20 + (v * 13) % 180);
    before.push_back(3 * after.back());
  }
  after[10] += 60; // a change in a, beyond the intensity change
  TwoImages t(after, before);
  ASSERT_TRUE(t.Op->MakeOptimalDifferenceImage(IPG_ARITHMETIC2::kGainGammaModel));
  const std::vector<int> d = PixelsOf(*t.Out);
  EXPECT_GE(d[10], 50);
  for (std::size_t k = 0; k < d.size(); ++k) {
    if (k == 10)
      continue;
    EXPECT_LE(std::abs(d[k]), 3) << "pixel " << k;
  }
}

TEST(IpgArithmetic2, HistogramSpecificationCancelsAnyIncreasingChange)
{
  std::vector<int> a, b;
  for (int v = -6; v <= 9; ++v) {
    a.push_back(v);
    b.push_back(v * v * v + 7 + (v > 0 ? 1000 : 0));
  }
  a.push_back(kMark);
  b.push_back(3);
  TwoImages t(a, b);
  ASSERT_TRUE(t.Op->MakeOptimalDifferenceImage(IPG_ARITHMETIC2::kHistogramSpecificationModel));
  V expected(a.size() - 1, 0);
  expected.push_back(kMark);
  EXPECT_EQ(PixelsOf(*t.Out), expected);
  EXPECT_FALSE(t.Op->MakeOptimalDifferenceImage(7));
}
