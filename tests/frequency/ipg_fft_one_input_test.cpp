#include "ipg/frequency/ipg_fft_one_input.h"

#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

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
    std::vector<int> pixels;
    for (int k = 0; k < cols * rows; ++k)
      pixels.push_back((k * 37 + 11) % 23);
    auto owner = ImageOf(cols, rows, pixels);
  DCM_STRUCT& in = *owner;
    DCM_STRUCT re(in, false), im(in, false);
    ASSERT_TRUE(RunCode(in, re, 1210));
    ASSERT_TRUE(RunCode(in, im, 1211));
    EXPECT_EQ(re.Data->GetPrecision(), 10);
    EXPECT_EQ(im.Data->GetPrecision(), 10);
    for (int u = 0; u < cols; ++u)
      for (int v = 0; v < rows; ++v) {
        const std::complex<double> f = Dft(in, u, v);
        const int c = (u + cols / 2) % cols, r = (v + rows / 2) % rows;
        EXPECT_NEAR(Raw(re, c, r), f.real() * 10, 1.0) << cols << "x" << rows << " u=" << u << " v=" << v;
        EXPECT_NEAR(Raw(im, c, r), f.imag() * 10, 1.0) << cols << "x" << rows << " u=" << u << " v=" << v;
      }
  }
}

TEST(FftOneInput, ConstantImageHasOnlyTheCentreCoefficient)
{
  DCM_STRUCT in(8, 6, nullptr), re(in, false), mod(in, false);
  in.Data->Init(3.0);
  ASSERT_TRUE(RunCode(in, re, 1210));
  ASSERT_TRUE(RunCode(in, mod, 1216));
  for (int c = 0; c < 8; ++c)
    for (int r = 0; r < 6; ++r) {
      const bool centre = c == 4 && r == 3;
      EXPECT_EQ(Raw(re, c, r), centre ? 1440 : 0);  // 3 * 48 at precision 10
      EXPECT_EQ(Raw(mod, c, r), centre ? 1440 : 0);
    }
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
  const int expectDeg[4] = {0, 450, 0, -450}; // -1 + i gives -45 degrees, not 135
  const int expectRad[4] = {0, 7, 0, -7};
  const int expectMod[4] = {0, 14, 20, 14};
  for (int c = 0; c < 4; ++c) {
    EXPECT_EQ(Raw(deg, c, 0), expectDeg[c]) << c;
    EXPECT_EQ(Raw(rad, c, 0), expectRad[c]) << c;
    EXPECT_EQ(Raw(mod, c, 0), expectMod[c]) << c;
  }
  EXPECT_EQ(deg.Data->GetMin(), -450);
  EXPECT_EQ(deg.Data->GetMax(), 450);
}

TEST(FftOneInput, FiltersWithZeroThresholdGiveTheInputBack)
{
  std::vector<int> pixels;
  for (int k = 0; k < 8 * 8; ++k)
    pixels.push_back((k * 13) % 29 + 1);
  auto owner = ImageOf(8, 8, pixels);
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
  std::vector<int> pixels;
  for (int r = 0; r < 8; ++r)
    for (int c = 0; c < 8; ++c)
      pixels.push_back(500 + ((c + r) % 2 == 0 ? 100 : -100));
  auto owner = ImageOf(8, 8, pixels);
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

TEST(FftOneInput, BadCallsReturnFalseWithoutMessage)
{
  MessageCapture capture;
  DCM_STRUCT in(4, 4, nullptr), out(4, 4, nullptr);
  out.Data->SetValue(1, 1, 9);
  EXPECT_FALSE(RunCode(in, out, 1204));
  EXPECT_EQ(Raw(out, 1, 1), 9);
  for (int code : {1202, 1203, 1210, 1211, 1212, 1213, 1216}) {
    IPG_FFT_ONE_INPUT noOutput(&in, nullptr);
    noOutput.SetTools(code);
    EXPECT_FALSE(noOutput.Apply()) << code;
    IPG_FFT_ONE_INPUT noInput(nullptr, &out);
    noInput.SetTools(code);
    EXPECT_FALSE(noInput.Apply()) << code;
  }
  EXPECT_TRUE(capture.Texts.empty());
}
