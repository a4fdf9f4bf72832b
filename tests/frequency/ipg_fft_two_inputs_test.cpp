// SPDX-License-Identifier: Apache-2.0
#include "ipg/frequency/ipg_fft_two_inputs.h"

#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <memory>
#include <vector>

namespace {

const double kPi = std::acos(-1.0);

std::unique_ptr<DCM_STRUCT> MakeRow(const std::vector<int>& values)
{
  return ImageOf(static_cast<unsigned>(values.size()), 1, values);
}

// A 5 x 4 test image and its unnormalised DFT (kernel e^(-2 pi i (u c / cols + v r / rows))).
struct Spectrum {
  static constexpr int cols = 5, rows = 4;
  std::unique_ptr<DCM_STRUCT> owner = ImageOf(cols, rows, [](unsigned c, unsigned r) { return int(c * 31 + r * 17) % 50; });
  DCM_STRUCT& image = *owner;
  std::complex<double> f[cols][rows];
  Spectrum()
  {
    for (int u = 0; u < cols; ++u)
      for (int v = 0; v < rows; ++v) {
        f[u][v] = 0.0;
        for (int c = 0; c < cols; ++c)
          for (int r = 0; r < rows; ++r)
            f[u][v] += double(image.Data->GetValue(c, r)) *
                       std::polar(1.0, -2 * kPi * (double(u) * c / cols + double(v) * r / rows));
      }
  }
  // An image holding g(coefficient) at each (u, v), read back through precision 1000.
  template <typename G>
  std::unique_ptr<DCM_STRUCT> PartImage(G g) const
  {
    auto part = std::make_unique<DCM_STRUCT>(cols, rows, nullptr);
    part->Data->SetPrecision(1000);
    for (int u = 0; u < cols; ++u)
      for (int v = 0; v < rows; ++v)
        part->Data->SetValue(u, v, g(f[u][v]));
    return part;
  }
};

bool RunTwo(DCM_STRUCT* in, DCM_STRUCT* second, DCM_STRUCT* out, int code)
{
  IPG_FFT_TWO_INPUTS op(in, second, out);
  op.SetTools(code);
  return op.Apply();
}

} // namespace

TEST(FftTwoInputs, RebuildsTheImageFromItsSpectrumEitherWay)
{
  const Spectrum s;
  auto re = s.PartImage([](std::complex<double> z) { return z.real(); });
  auto im = s.PartImage([](std::complex<double> z) { return z.imag(); });
  auto phase = s.PartImage([](std::complex<double> z) { return std::arg(z); });
  auto modulus = s.PartImage([](std::complex<double> z) { return std::abs(z); });
  DCM_STRUCT fromReIm(s.cols, s.rows, nullptr), fromPhase(s.cols, s.rows, nullptr);
  ASSERT_TRUE(RunTwo(re.get(), im.get(), &fromReIm, 1301));
  ASSERT_TRUE(RunTwo(phase.get(), modulus.get(), &fromPhase, 1302));
  for (int c = 0; c < s.cols; ++c)
    for (int r = 0; r < s.rows; ++r) {
      EXPECT_NEAR(fromReIm.Data->GetValue(c, r), s.image.Data->GetValue(c, r), 1) << c << "," << r;
      EXPECT_NEAR(fromPhase.Data->GetValue(c, r), s.image.Data->GetValue(c, r), 1) << c << "," << r;
    }
}

// Levels stored at precision 1 or 0 are read as they are, and at 10 divided
// by 10: the same spectrum stored either way rebuilds the same image, an
// imaginary part smaller than the real one reading 0 beyond its edge.
TEST(FftTwoInputs, PartsAtEveryPrecisionGiveTheSameRebuild)
{
  const auto level = [](unsigned c, unsigned r) { return static_cast<int>((c * 7919 + r * 104729) % 2001) - 1000; };
  const unsigned cols = 37, rows = 23;
  auto tenthsRe = ImageOf(cols, rows, [&](unsigned c, unsigned r) { return 10 * level(c, r); });
  auto tenthsIm = ImageOf(cols - 5, rows - 3, [&](unsigned c, unsigned r) { return 10 * level(r, c); });
  tenthsRe->Data->SetPrecision(10);
  tenthsIm->Data->SetPrecision(10);
  DCM_STRUCT expected(cols, rows, nullptr);
  ASSERT_TRUE(RunTwo(tenthsRe.get(), tenthsIm.get(), &expected, 1301));
  for (short precision : {1, 0}) {
    auto re = ImageOf(cols, rows, level);
    auto im = ImageOf(cols - 5, rows - 3, [&](unsigned c, unsigned r) { return level(r, c); });
    re->Data->SetPrecision(precision);
    im->Data->SetPrecision(precision);
    DCM_STRUCT out(cols, rows, nullptr);
    ASSERT_TRUE(RunTwo(re.get(), im.get(), &out, 1301));
    EXPECT_EQ(PixelsOf(out), PixelsOf(expected)) << "precision " << precision;
  }
}

TEST(FftTwoInputs, ZeroPhaseEqualsModulusAsRealPart)
{
  const Spectrum s;
  auto modulus = s.PartImage([](std::complex<double> z) { return std::abs(z); });
  DCM_STRUCT zeros(s.cols, s.rows, nullptr), a(s.cols, s.rows, nullptr), b(s.cols, s.rows, nullptr);
  ASSERT_TRUE(RunTwo(&zeros, modulus.get(), &a, 1302));
  ASSERT_TRUE(RunTwo(modulus.get(), &zeros, &b, 1301));
  EXPECT_EQ(PixelsOf(a), PixelsOf(b));
}

TEST(FftTwoInputs, RebuildsLeaveTheStoredExtremesUnrecomputed)
{
  auto re = MakeRow({4, 4, 4, 4});
  auto im = MakeRow({0, 0, 0, 0});
  for (int code : {1301, 1302}) {
    DCM_STRUCT out(4, 1, nullptr);
    out.Data->SetMin(-1000);
    out.Data->SetMax(1000);
    ASSERT_TRUE(RunTwo(re.get(), im.get(), &out, code));
    EXPECT_EQ(out.Data->GetValue(0, 0), code == 1301 ? 4 : 0); // 1302: modulus 0 everywhere
    EXPECT_EQ(out.Data->GetMin(), -1000) << code;
    EXPECT_EQ(out.Data->GetMax(), 1000) << code;
  }
}

TEST(FftTwoInputs, PhaseDifferenceOfAShiftedImageIsTheShiftPhaseModuloPi)
{
  // Second = first shifted by one column: F1 conj(F2) = |F1|^2 e^(2 pi i u / 8).
  auto first = MakeRow({1000, 200, 0, 0, 0, 0, 0, 0});
  auto second = MakeRow({0, 1000, 200, 0, 0, 0, 0, 0});
  DCM_STRUCT out(8, 1, nullptr);
  ASSERT_TRUE(RunTwo(first.get(), second.get(), &out, 1300));
  EXPECT_EQ(out.Data->GetPrecision(), 100);
  // Frequencies whose shift phase is not near +-pi/2 (centred at (u + 4) mod 8).
  const std::pair<int, int> expected[] = {{0, 0}, {1, 78}, {3, -78}, {4, 0}, {5, 78}, {7, -78}};
  for (auto [u, raw] : expected)
    EXPECT_NEAR(out.Data->GetValue((u + 4) % 8, 0), raw, 1) << "u=" << u;
  EXPECT_GE(out.Data->GetMax(), 78); // extremes recomputed over the raw writes
  EXPECT_LE(out.Data->GetMin(), -78);
}

TEST(FftTwoInputs, MagnitudeDifferenceIsModulusOfFirstMinusSecond)
{
  auto first = MakeRow({1000, 200, 0, 0, 0, 0, 0, 0});
  auto shifted = MakeRow({0, 0, 0, 1000, 200, 0, 0, 0});
  auto doubled = MakeRow({2000, 400, 0, 0, 0, 0, 0, 0});
  DCM_STRUCT same(8, 1, nullptr), minus(8, 1, nullptr);
  ASSERT_TRUE(RunTwo(first.get(), shifted.get(), &same, 1303));
  ASSERT_TRUE(RunTwo(first.get(), doubled.get(), &minus, 1303));
  EXPECT_EQ(minus.Data->GetPrecision(), 10);
  for (int u = 0; u < 8; ++u) {
    const double modulus = std::abs(1000.0 + 200.0 * std::polar(1.0, -2 * kPi * u / 8));
    EXPECT_NEAR(same.Data->GetValue((u + 4) % 8, 0), 0, 1) << u;
    EXPECT_NEAR(minus.Data->GetValue((u + 4) % 8, 0), -modulus * 10, 2) << u;
  }
  EXPECT_EQ(minus.Data->GetMin(), -12000);
  EXPECT_LT(minus.Data->GetMax(), 0);
}

TEST(FftTwoInputs, BadCallsReturnFalseWithoutMessageAndLeaveOutputAlone)
{
  MessageCapture capture;
  DCM_STRUCT a(4, 4, nullptr), b(4, 4, nullptr), out(4, 4, nullptr);
  out.Data->SetValue(2, 2, 7);
  EXPECT_FALSE(RunTwo(&a, &b, &out, 1304));
  EXPECT_EQ(out.Data->GetValue(2, 2), 7);
  for (int code : {1300, 1301, 1302, 1303}) {
    EXPECT_FALSE(RunTwo(&a, nullptr, &out, code)) << code;
    EXPECT_FALSE(RunTwo(nullptr, &b, &out, code)) << code;
    EXPECT_FALSE(RunTwo(&a, &b, nullptr, code)) << code;
  }
  EXPECT_TRUE(capture.Texts.empty());
}
