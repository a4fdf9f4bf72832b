// SPDX-License-Identifier: Apache-2.0
#include "ipg/frequency/ipg_fft_one_input.h"

#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <memory>
#include <vector>

namespace {

const double kPi = std::acos(-1.0);

// Forward DFT by its definition: kernel e^(-2 pi i (u c / cols + v r / rows)), unnormalised.
std::complex<double> Dft(const DCM_STRUCT& in, int u, int v)
{
  std::complex<double> sum = 0.0;
  const int cols = in.GetNbOfCols(), rows = in.GetNbOfRows();
  for (int c = 0; c < cols; ++c)
    for (int r = 0; r < rows; ++r)
      sum += double(in.Data->GetValue(c, r)) *
             std::polar(1.0, -2 * kPi * (double(u) * c / cols + double(v) * r / rows));
  return sum;
}

int Raw(const DCM_STRUCT& image, int c, int r) { return image.Data->GetValue(c, r); }

int RunCode(DCM_STRUCT& in, DCM_STRUCT& out, int code, int threshold = 0)
{
  IPG_FFT_ONE_INPUT op(&in, &out);
  op.SetTools(code);
  op.SetThreshold(threshold);
  return op.Apply();
}

} // namespace

TEST(FftOneInput, CentredRealAndImaginaryPartsFollowTheDftAtPrecisionTen)
{
  // An even and an odd size: zero frequency lands at (cols/2, rows/2) in both.
  for (auto [cols, rows] : {std::pair{6, 4}, std::pair{5, 3}}) {
    auto owner = ImageOf(cols, rows, [&](unsigned c, unsigned r) { return int((r * cols + c) * 37 + 11) % 23; });
    DCM_STRUCT& in = *owner;
    DCM_STRUCT re(in, false), im(in, false);
    ASSERT_TRUE(RunCode(in, re, 1210));
    ASSERT_TRUE(RunCode(in, im, 1211));
    EXPECT_TRUE(re.Data->GetPrecision() == 10 && im.Data->GetPrecision() == 10);
    for (int u = 0; u < cols; ++u)
      for (int v = 0; v < rows; ++v) {
        const std::complex<double> f = Dft(in, u, v);
        const int c = (u + cols / 2) % cols, r = (v + rows / 2) % rows;
        // Truncation loses up to 1; a part that is an integer in tenths may come
        // out of the transform a rounding below it and lose the whole 1.
        EXPECT_NEAR(Raw(re, c, r), f.real() * 10, 1.0 + 1e-9) << cols << "x" << rows << " u=" << u << " v=" << v;
        EXPECT_NEAR(Raw(im, c, r), f.imag() * 10, 1.0 + 1e-9) << cols << "x" << rows << " u=" << u << " v=" << v;
      }
  }
}

TEST(FftOneInput, ConstantImageHasOnlyTheCentreCoefficient)
{
  DCM_STRUCT in(8, 6, nullptr), re(in, false), mod(in, false);
  in.Data->Init(3.0);
  ASSERT_TRUE(RunCode(in, re, 1210));
  ASSERT_TRUE(RunCode(in, mod, 1216));
  const std::vector<int> centreOnly = PixelsOf(*TestImage(8, 6).At(4, 3, 1440).Build()); // 3 * 48 at precision 10
  EXPECT_EQ(PixelsOf(re), centreOnly);
  EXPECT_EQ(PixelsOf(mod), centreOnly);
  EXPECT_EQ(mod.Data->GetPrecision(), 10);
  EXPECT_EQ(mod.Data->GetMax(), 1440);
  EXPECT_EQ(mod.Data->GetMin(), 0);
}

TEST(FftOneInput, PhaseIsOneArgumentArctangentInTenthsUnderPrecisionHundred)
{
  // Row [0 0 1 1]: F0 = 2, F1 = -1 + i, F2 = 0, F3 = -1 - i; centring puts Fu at (u + 2) mod 4.
  auto owner = ImageOf(4, 1, {0, 0, 1, 1});
  DCM_STRUCT& in = *owner;
  DCM_STRUCT deg(in, false), rad(in, false), mod(in, false);
  ASSERT_TRUE(RunCode(in, deg, 1212));
  ASSERT_TRUE(RunCode(in, rad, 1213));
  ASSERT_TRUE(RunCode(in, mod, 1216));
  EXPECT_EQ(deg.Data->GetPrecision(), 100);
  EXPECT_EQ(rad.Data->GetPrecision(), 100);
  EXPECT_EQ(PixelsOf(deg), (std::vector<int>{0, 450, 0, -450})); // -1 + i gives -45 degrees, not 135
  EXPECT_EQ(PixelsOf(rad), (std::vector<int>{0, 7, 0, -7}));
  EXPECT_EQ(PixelsOf(mod), (std::vector<int>{0, 14, 20, 14}));
  EXPECT_EQ(deg.Data->GetMin(), -450);
  EXPECT_EQ(deg.Data->GetMax(), 450);
}

// The modulus and phases of an output the input's size come from one
// transform; an output of another size pairs pixels by index with the stored
// real and imaginary parts. Where both place the same pixels they agree.
TEST(FftOneInput, DerivedSpectraAgreeForOutputsOfEitherSize)
{
  const int cols = 16, rows = 12;
  auto owner = ImageOf(cols, rows, [](unsigned c, unsigned r) { return int((r * 131 + c * 71 + c * r * 17) % 4096); });
  DCM_STRUCT& in = *owner;
  for (int code : {1212, 1213, 1216}) {
    DCM_STRUCT same(in, false), taller(cols, rows + 3, nullptr);
    ASSERT_TRUE(RunCode(in, same, code));
    ASSERT_TRUE(RunCode(in, taller, code));
    EXPECT_EQ(same.Data->GetPrecision(), taller.Data->GetPrecision());
    for (int r = 0; r < rows; ++r)
      for (int c = 0; c < cols; ++c)
        ASSERT_EQ(Raw(same, c, r), Raw(taller, c, r)) << code << " at " << c << "," << r;
    const std::vector<int> pixels = PixelsOf(same);
    EXPECT_EQ(same.Data->GetMin(), *std::min_element(pixels.begin(), pixels.end())) << code;
    EXPECT_EQ(same.Data->GetMax(), *std::max_element(pixels.begin(), pixels.end())) << code;
  }
}

TEST(FftOneInput, FiltersWithZeroThresholdGiveTheInputBack)
{
  auto owner = ImageOf(8, 8, [](unsigned c, unsigned r) { return int((r * 8 + c) * 13) % 29 + 1; });
  DCM_STRUCT& in = *owner;
  for (int code : {1202, 1203}) {
    DCM_STRUCT out(in, false);
    ASSERT_TRUE(RunCode(in, out, code, 0));
    for (int c = 0; c < 8; ++c)
      for (int r = 0; r < 8; ++r)
        EXPECT_NEAR(Raw(out, c, r), Raw(in, c, r), 1) << code;
  }
}

TEST(FftOneInput, LowPassRemovesTheHighestFrequencyAndHighPassTheMean)
{
  auto owner = ImageOf(8, 8, [](unsigned c, unsigned r) { return (c + r) % 2 == 0 ? 600 : 400; });
  DCM_STRUCT& in = *owner;
  DCM_STRUCT low(in, false), high(in, false);
  ASSERT_TRUE(RunCode(in, low, 1202, 1));
  ASSERT_TRUE(RunCode(in, high, 1203, 1));
  for (int c = 0; c < 8; ++c)
    for (int r = 0; r < 8; ++r) {
      EXPECT_NEAR(Raw(low, c, r), 500, 1);
      EXPECT_NEAR(Raw(high, c, r), (c + r) % 2 == 0 ? 100 : -100, 1);
    }
}

// A transform reads all of its input before it writes any output: an image
// that is its own output gets what a separate output gets, for sizes the
// transform splits into lines or runs whole, on several threads.
TEST(FftOneInput, OwnOutputGetsWhatASeparateOutputGets)
{
  for (auto [cols, rows] : {std::pair{64, 48}, std::pair{45, 50}})
    for (int code : {1202, 1203, 1210, 1211, 1213, 1216}) {
      auto owner = ImageOf(cols, rows, [](unsigned c, unsigned r) { return int((r * 131 + c * 71 + c * r * 17) % 4096); });
      DCM_STRUCT separate(*owner, false);
      ASSERT_TRUE(RunCode(*owner, separate, code, 3));
      ASSERT_TRUE(RunCode(*owner, *owner, code, 3));
      EXPECT_EQ(PixelsOf(*owner), PixelsOf(separate)) << cols << "x" << rows << " code " << code;
    }
}

TEST(FftOneInput, BadCallsReturnFalseWithoutMessage)
{
  MessageCapture capture;
  DCM_STRUCT in(4, 4, nullptr), out(4, 4, nullptr);
  out.Data->SetValue(1, 1, 9);
  EXPECT_FALSE(RunCode(in, out, 1204));
  EXPECT_EQ(Raw(out, 1, 1), 9);
  for (int code : {1202, 1203, 1210, 1211, 1212, 1213, 1216}) {
    IPG_FFT_ONE_INPUT noOutput(&in, nullptr), noInput(nullptr, &out);
    EXPECT_FALSE((noOutput.SetTools(code), noOutput.Apply())) << code;
    EXPECT_FALSE((noInput.SetTools(code), noInput.Apply())) << code;
  }
  EXPECT_TRUE(capture.Texts.empty());
}
