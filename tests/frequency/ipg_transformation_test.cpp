// SPDX-License-Identifier: Apache-2.0
#include "ipg/frequency/ipg_transformation.h"

#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

namespace {

const double kPi = std::acos(-1.0);
// Daubechies-4 coefficients c1 and c2 (one-based numbering c0..c3 from 1).
const double kC1 = 0.8365163037378079, kC2 = 0.2241438680420134;

void FillPattern(DCM_STRUCT& image)
{
  for (unsigned r = 0; r < image.GetNbOfRows(); ++r)
    for (unsigned c = 0; c < image.GetNbOfCols(); ++c)
      image.Data->SetValue(c, r, static_cast<int>(1 + c + 10 * r));
}

// Geometry operators keep their values with Mode 302 (extremes only).
std::unique_ptr<IPG_TRANSFORMATION> Geometry(DCM_STRUCT* in, DCM_STRUCT* out, int code)
{
  auto op = std::make_unique<IPG_TRANSFORMATION>(in);
  op->SetImaOut(out);
  op->SetMode(302);
  op->SetTools(code);
  return op;
}

} // namespace

TEST(Transformation, WholePixelTranslationIsAShiftWithZerosComingIn)
{
  DCM_STRUCT in(6, 5, nullptr), out(6, 5, nullptr);
  FillPattern(in);
  auto op = Geometry(&in, &out, 600);
  op->SetenX(2.0);
  op->SetenY(-1.0);
  ASSERT_TRUE(op->Apply());
  for (int r = 0; r < 5; ++r)
    for (int c = 0; c < 6; ++c) {
      const int sc = c - 2, sr = r + 1;
      const int expected = sc >= 0 && sr < 5 ? in.Data->GetValue(sc, sr) : 0;
      EXPECT_EQ(out.Data->GetValue(c, r), expected) << c << "," << r;
    }
}

TEST(Transformation, QuarterTurnsOfSquareImagesAreExact)
{
  for (unsigned n : {4u, 5u}) {
    DCM_STRUCT in(n, n, nullptr), quarter(n, n, nullptr), half(n, n, nullptr);
    FillPattern(in);
    auto rot = Geometry(&in, &quarter, 601);
    rot->SetAngle(kPi / 2);
    ASSERT_TRUE(rot->Apply());
    auto rigid = Geometry(&in, &half, 603); // default angle pi, no shift
    ASSERT_TRUE(rigid->Apply());
    for (unsigned r = 0; r < n; ++r)
      for (unsigned c = 0; c < n; ++c) {
        EXPECT_EQ(quarter.Data->GetValue(c, r), in.Data->GetValue(r, n - 1 - c)) << n << ": " << c << "," << r;
        EXPECT_EQ(half.Data->GetValue(c, r), in.Data->GetValue(n - 1 - c, n - 1 - r)) << n << ": " << c << "," << r;
      }
  }
}

TEST(Transformation, RotationAboutAGivenCentreAndHalfPixelInterpolation)
{
  DCM_STRUCT in(5, 5, nullptr), out(5, 5, nullptr), shifted(5, 5, nullptr);
  FillPattern(in);
  auto op = Geometry(&in, &out, 601);
  op->SetCentre(0.0, 0.0);
  op->SetAngle(kPi / 2); // (x, y) -> (-y, x): only the first row lands inside, from column 0
  ASSERT_TRUE(op->Apply());
  for (unsigned r = 0; r < 5; ++r)
    for (unsigned c = 0; c < 5; ++c)
      EXPECT_EQ(out.Data->GetValue(c, r), c == 0 ? in.Data->GetValue(r, 0) : 0) << c << "," << r;

  auto half = Geometry(&in, &shifted, 600);
  half->SetenX(0.5);
  ASSERT_TRUE(half->Apply());
  // Between columns 1 and 2 of row 3: (32 + 33) / 2, truncated by the image store.
  EXPECT_EQ(shifted.Data->GetValue(2, 3), 32);
  EXPECT_EQ(shifted.Data->GetValue(0, 3), 0);
}

TEST(Transformation, RoiKeepsOutsidePixelsAndMissingOutputIsReported)
{
  DCM_STRUCT in(4, 4, nullptr), roi(4, 4, nullptr), out(4, 4, nullptr);
  FillPattern(in);
  roi.Data->SetValue(1, 1, 16777217);
  IPG_TRANSFORMATION op(&in, &roi);
  op.SetImaOut(&out);
  op.SetMode(302);
  op.SetTools(600);
  op.SetenX(1.0);
  ASSERT_TRUE(op.Apply());
  for (unsigned r = 0; r < 4; ++r)
    for (unsigned c = 0; c < 4; ++c)
      EXPECT_EQ(out.Data->GetValue(c, r), in.Data->GetValue(c == 1 && r == 1 ? 0 : c, r));

  MessageCapture capture;
  IPG_TRANSFORMATION noOutput(&in);
  for (int code : {600, 601, 603, 605})
    EXPECT_FALSE((noOutput.SetTools(code), noOutput.Apply()));
  EXPECT_FALSE((noOutput.SetTools(602), noOutput.Apply()));
  EXPECT_FALSE((noOutput.SetTools(604), noOutput.Apply()));
  EXPECT_EQ(capture.Texts, std::vector<std::string>(4, "image de sortie non allouée"));
  EXPECT_EQ(capture.Captions[0], "Information");
}

TEST(Transformation, HoughPeakSitsAtTheAngleAndDistanceOfTheLine)
{
  const unsigned n = 64;
  const double diagonal = std::hypot(double(n), double(n)), middle = (n - 1) / 2.0;
  auto distanceRow = [&](double rho) { return static_cast<unsigned>((n - 1) / 2 + std::lround(rho * (n - 1) / diagonal)); };
  struct Line {
    const char* name;
    bool (*on)(unsigned c, unsigned r);
    unsigned angleColumn;
    double rho;
  };
  const Line lines[] = {
      {"column 40", [](unsigned c, unsigned) { return c == 40; }, 0, 40 - middle},
      {"row 10", [](unsigned, unsigned r) { return r == 10; }, 32, 10 - middle},
      {"diagonal", [](unsigned c, unsigned r) { return c == r; }, 48, 0.0},
  };
  for (const Line& line : lines) {
    auto in = ImageOf(n, n, [&](unsigned c, unsigned r) { return line.on(c, r) ? 255 : 0; });
    DCM_STRUCT out(n, n, nullptr);
    ASSERT_TRUE(Geometry(in.get(), &out, 605)->Apply());
    unsigned bestC = 0, bestR = 0;
    for (unsigned r = 0; r < n; ++r)
      for (unsigned c = 0; c < n; ++c)
        if (out.Data->GetValue(c, r) > out.Data->GetValue(bestC, bestR))
          bestC = c, bestR = r;
    EXPECT_EQ(bestC, line.angleColumn) << line.name;
    EXPECT_EQ(bestR, distanceRow(line.rho)) << line.name;
    EXPECT_EQ(out.Data->GetValue(bestC, bestR), 64) << line.name; // every pixel of the line votes there
  }
}

TEST(Transformation, Doub4StepReadsOneBasedWrapPositions)
{
  DCM_STRUCT in(4, 4, nullptr);
  IPG_TRANSFORMATION op(&in);
  std::vector<double> a(8, 1.0); // a[8] is past the end: read as 0
  ASSERT_TRUE(op.Wavelet_Doub4(a, 8, 1));
  const double wrapSmooth = (std::sqrt(2.0) - kC1) / std::sqrt(2.0);
  const double expected[8] = {1, 1, 1, wrapSmooth, 0, 0, 0, kC2};
  for (int k = 0; k < 8; ++k)
    EXPECT_NEAR(a[k], expected[k], 1e-12) << k;
  std::vector<double> small(3, 1.0);
  EXPECT_FALSE(op.Wavelet_Doub4(small, 3, 1));
}

TEST(Transformation, GeneralTransformUsesAnOrthonormalTwelveTapFilter)
{
  DCM_STRUCT in(4, 4, nullptr);
  IPG_TRANSFORMATION op(&in);
  EXPECT_TRUE(op.def_pwtset(4));
  EXPECT_TRUE(op.def_pwtset(20));
  EXPECT_FALSE(op.def_pwtset(6));
  // With a[n] = a[0] the one-based reads are a periodic shift: an orthonormal
  // filter then halves the energy (the step divides by sqrt 2) and sends a
  // constant to smooth coefficients only.
  std::vector<double> a(17);
  for (int k = 0; k < 16; ++k)
    a[k] = std::sin(k * 1.3) * 10 + k;
  a[16] = a[0];
  const double energy = std::inner_product(a.begin(), a.begin() + 16, a.begin(), 0.0);
  ASSERT_TRUE(op.def_pwt(a, 16, 1));
  EXPECT_NEAR(std::inner_product(a.begin(), a.begin() + 16, a.begin(), 0.0), energy / 2, energy * 1e-9);
  std::vector<double> constant(17, 5.0);
  ASSERT_TRUE(op.def_pwt(constant, 16, 1));
  for (int k = 0; k < 8; ++k) {
    EXPECT_NEAR(constant[k], 5.0, 1e-9);
    EXPECT_NEAR(constant[k + 8], 0.0, 1e-9);
  }
  std::vector<double> notPowerOfTwo(13, 1.0);
  EXPECT_FALSE(op.def_pwt(notPowerOfTwo, 12, 1));
  EXPECT_FALSE(op.def_pwt(constant, 2, 1));
}

TEST(Transformation, WaveletCompressionOfAConstantImage)
{
  // Level 2 on 16 x 16: one Daubechies-4 step per dimension. Each row becomes
  // f = [1 x7, wrap smooth, 0 x7, |c2|] times the value; the columns again.
  DCM_STRUCT in(16, 16, nullptr), out(16, 16, nullptr);
  in.Data->Init(1000.0);
  IPG_TRANSFORMATION op(&in);
  op.SetImaOut(&out);
  op.SetTools(604);
  ASSERT_TRUE(op.Apply());
  const double wrapSmooth = (std::sqrt(2.0) - kC1) / std::sqrt(2.0);
  auto f = [&](int k) { return k < 7 ? 1.0 : k == 7 ? wrapSmooth : k < 15 ? 0.0 : kC2; };
  for (int r = 0; r < 16; ++r)
    for (int c = 0; c < 16; ++c)
      EXPECT_NEAR(out.Data->GetValue(c, r), 1000.0 * f(c) * f(r), 1.0) << c << "," << r;

  std::unique_ptr<DCM_STRUCT> small(op.GetCompressedImage());
  ASSERT_NE(small, nullptr);
  EXPECT_EQ(small->GetNbOfCols(), 8u);
  EXPECT_EQ(small->GetNbOfRows(), 8u);
  EXPECT_EQ(small->GetHeader().PixelSpacing[0], 2.0);
  EXPECT_EQ(small->GetHeader().PixelSpacing[1], 2.0);
  EXPECT_EQ(small->GetHeader().Columns, 8);
  for (int r = 0; r < 8; ++r)
    for (int c = 0; c < 8; ++c)
      EXPECT_EQ(small->Data->GetValue(c, r), out.Data->GetValue(c, r));
  EXPECT_NEAR(small->Data->GetMax(), 1000, 1);
  EXPECT_NEAR(small->Data->GetMin(), 1000 * wrapSmooth * wrapSmooth, 1);
}

TEST(Transformation, WaveletCoefficientsAreCutTo16Bits)
{
  DCM_STRUCT in(8, 8, nullptr), out(8, 8, nullptr);
  in.Data->Init(40000.0);
  IPG_TRANSFORMATION op(&in);
  op.SetImaOut(&out);
  ASSERT_TRUE(op.ApplyWavelet());
  EXPECT_NEAR(out.Data->GetValue(0, 0), 40000 - 65536, 1);
  op.SetWaveletLevel(0);
  EXPECT_FALSE(op.ApplyWavelet());
  EXPECT_EQ(op.GetCompressedImage(), nullptr);
}

