// SPDX-License-Identifier: Apache-2.0
#include "ipg/frequency/ipg_wavelet.h"

#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

namespace {

const float kPi = static_cast<float>(std::acos(-1.0));

// Rows 8 to 23 at height, the others 0: two horizontal edges.
std::unique_ptr<DCM_STRUCT> HorizontalBand(unsigned side, int height)
{
  return TestImage(side, side).Rect(0, 8, side, 16, height).Build();
}

float At(const float* image, int cols, int c, int r) { return image[r * cols + c]; }

double Binomial(int n, int k) { return std::tgamma(n + 1.0) / (std::tgamma(k + 1.0) * std::tgamma(n - k + 1.0)); }

} // namespace

TEST(Wavelet, UnprovidedCodesScaleCountsAndMissingInput)
{
  DCM_STRUCT in(8, 8, nullptr);
  IPG_WAVELET op(&in), none(nullptr);
  MessageCapture capture;
  for (int code : {1803, 1804, 1805, 1799}) // silent
    EXPECT_EQ((op.SetTools(code), op.Apply()), 0) << code;
  // Scale counts below 0 or beyond the image's smaller side (8 here) are
  // refused before any slot is allocated, for every code that builds them.
  for (int code : {1800, 1801, 1802}) {
    for (int scales : {-1, 9, 1000000000, 2147483647}) {
      op.SetNbConvolution(scales);
      EXPECT_EQ((op.SetTools(code), op.Apply()), 0) << code << " " << scales;
      EXPECT_EQ(op.GetWaveletTransform(), nullptr);
    }
    EXPECT_EQ((none.SetTools(code), none.Apply()), 0) << code;
  }
  std::vector<std::string> expected;
  for (int code = 0; code < 3; ++code) {
    expected.insert(expected.end(), 4, "Paramètre NbConvolution hors limites : IPG_WAVELET::Apply()");
    expected.push_back("Pas d'image d'entrée!");
  }
  EXPECT_EQ(capture.Texts, expected);
  EXPECT_EQ(capture.Captions[0], "Information");
  op.SetNbConvolution(8);
  EXPECT_EQ((op.SetTools(1800), op.Apply()), 1);
}

TEST(Wavelet, PeriodicIndexAndFiniteDifferences)
{
  DCM_STRUCT in(4, 4, nullptr);
  IPG_WAVELET op(&in);
  EXPECT_EQ(op.mod(-1, 5), 4);
  EXPECT_EQ(op.mod(7, 5), 2);
  EXPECT_EQ(op.mod(-10, 5), 0);

  // A unit impulse at row 1, column 1 of a 4 x 4 image.
  std::vector<float> impulse(16, 0.0f);
  impulse[1 * 4 + 1] = 1.0f;
  auto diff = [&](int type, int direction) {
    float* out = nullptr;
    EXPECT_EQ(op.WaveletDerivation(&out, impulse.data(), 4, 4, type, direction), 0);
    return std::unique_ptr<float[]>(out);
  };
  auto forwardRow = diff(0, 0), forwardCol = diff(0, 1), backward = diff(2, 0), central = diff(3, 1);
  EXPECT_EQ(At(forwardRow.get(), 4, 0, 1), -1.0f); // in(r, c) - in(r, c + 1)
  EXPECT_EQ(At(forwardRow.get(), 4, 1, 1), 1.0f);
  EXPECT_EQ(At(forwardCol.get(), 4, 1, 0), -1.0f); // in(r, c) - in(r + 1, c)
  EXPECT_EQ(At(backward.get(), 4, 2, 1), -1.0f);   // in(r, c) - in(r, c - 1)
  EXPECT_EQ(At(central.get(), 4, 1, 0), 1.0f);     // in(r + 1, c) - in(r - 1, c)
  EXPECT_EQ(At(central.get(), 4, 1, 2), -1.0f);

  // Type 1 along a row: 2 in(r, c+1) - 2 in(r, c-1) + in(r-1, c+1) - in(r-1, c-1) + in(r+1, c+1) - in(r+1, c-1).
  auto sobel = diff(1, 0), sobelCol = diff(1, 1);
  const float expectRow[4][4] = {{1, 0, -1, 0}, {2, 0, -2, 0}, {1, 0, -1, 0}, {0, 0, 0, 0}};
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) {
      EXPECT_EQ(At(sobel.get(), 4, c, r), expectRow[r][c]) << c << "," << r;
      EXPECT_EQ(At(sobelCol.get(), 4, c, r), expectRow[c][r]) << c << "," << r; // the transposition
    }

  MessageCapture capture;
  float* bad = nullptr;
  EXPECT_EQ(op.WaveletDerivation(&bad, impulse.data(), 4, 4, 4, 0), -1);
  std::unique_ptr<float[]> owned(bad);
  ASSERT_NE(bad, nullptr);
  EXPECT_EQ(std::vector<float>(bad, bad + 16), std::vector<float>(16, 0.0f));
  EXPECT_EQ(capture.Texts, std::vector<std::string>{"Mauvais choix de type de dérivation"});
}

TEST(Wavelet, BinomialSmoothingWrapsAroundTheBorders)
{
  DCM_STRUCT in(4, 4, nullptr);
  IPG_WAVELET op(&in);
  std::vector<float> corner(16, 0.0f);
  corner[0] = 16.0f;
  float* raw = nullptr;
  op.ConvoRapideMasqBin(&raw, corner.data(), 4, 4);
  std::unique_ptr<float[]> out(raw);
  EXPECT_EQ(std::vector<float>(raw, raw + 16), (std::vector<float>{4, 2, 0, 2, 2, 1, 0, 1, 0, 0, 0, 0, 2, 1, 0, 1}));
  op.MatXConst(&raw, 4, 4, 0.5f);
  EXPECT_EQ(out[0], 2.0f);
}

TEST(Wavelet, DirectionQuantisationAndLocalMaxima)
{
  DCM_STRUCT in(4, 4, nullptr);
  IPG_WAVELET op(&in);
  const std::pair<float, std::pair<int, int>> cases[] = {
      {0.0f, {1, 0}},       {kPi / 4, {1, 1}},      {kPi / 2, {0, 1}},      {3 * kPi / 4, {-1, 1}},
      {kPi, {-1, 0}},       {-kPi / 4, {1, -1}},    {-kPi / 2, {0, -1}},    {-3 * kPi / 4, {-1, -1}},
      {-kPi + 0.1f, {-1, 0}}, {2 * kPi - 0.1f, {1, 0}}, {-2 * kPi + 0.1f, {1, 0}}};
  for (auto [angle, step] : cases) {
    int di = 9, dj = 9;
    op.SeekDirection1(&di, &dj, angle);
    EXPECT_EQ(di, step.first) << angle;
    EXPECT_EQ(dj, step.second) << angle;
  }

  // Row 1 of a 3 x 3 image, tested across the rows (di = 1, dj = 0): P below, Q above.
  auto maxAt = [&](float above, float centre, float below) {
    std::vector<float> m = {0, above, 0, 0, centre, 0, 0, below, 0};
    return op.TestIfMaxLocal(m.data(), 1, 1, 1, 0, 3, 3);
  };
  EXPECT_EQ(maxAt(4.0f, 5.0f, 4.0f), 1);
  EXPECT_EQ(maxAt(0.4f, 0.5f, 0.4f), 0); // exactly 0.1 below: not enough
  EXPECT_EQ(maxAt(5.0f, 5.0f, 3.5f), 1); // a plateau side counts when the other drops by more than 1
  EXPECT_EQ(maxAt(5.0f, 5.0f, 4.5f), 0);
  EXPECT_EQ(maxAt(3.5f, 5.0f, 5.0f), 1);
  EXPECT_EQ(maxAt(4.5f, 5.0f, 5.0f), 0);
  EXPECT_EQ(maxAt(5.0f, 5.0f, 5.0f), 0);
}

TEST(Wavelet, TransformGivesModulusAndAngleWithPeriodicBorders)
{
  DCM_STRUCT in(8, 8, nullptr);
  in.Data->SetValue(2, 2, 100);
  in.Data->SetValue(0, 0, 100);
  IPG_WAVELET op(&in);
  op.SetNbConvolution(1);
  op.SetThreshold(500.0f); // replaced by the noise threshold of the image size
  ASSERT_EQ(op.Apply(), 1);
  EXPECT_FLOAT_EQ(op.GetThreshold(), static_cast<float>(5 * std::sqrt(std::log(64.0)) * 2 / 3));
  ASSERT_EQ(op.GetNbOfSlots(), 4);
  float** slots = op.GetWaveletTransform();
  EXPECT_TRUE(slots[2] == nullptr && slots[3] == nullptr);
  const float *modulus = slots[0], *angle = slots[1];
  EXPECT_FLOAT_EQ(At(modulus, 8, 2, 2), 100 * std::sqrt(2.0f)); // Dx = Dy = 100
  EXPECT_FLOAT_EQ(At(angle, 8, 2, 2), kPi / 4);
  EXPECT_FLOAT_EQ(At(modulus, 8, 1, 2), 100.0f); // Dx only: angle 0
  EXPECT_EQ(At(angle, 8, 1, 2), 0.0f);
  EXPECT_FLOAT_EQ(At(modulus, 8, 7, 0), 100.0f); // the corner pixel seen across the border
  EXPECT_FLOAT_EQ(At(modulus, 8, 0, 7), 100.0f);
  EXPECT_EQ(At(modulus, 8, 5, 5), 0.0f);
}

TEST(Wavelet, ConstantImageHasNoMaximaNoChainsAndNoExponents)
{
  auto in = TestImage(16, 16).Fill(50).Build();
  IPG_WAVELET op(in.get());
  auto all = [](const float* p) { return std::vector<float>(p, p + 256); };
  ASSERT_EQ((op.SetTools(1801), op.Apply()), 1);
  EXPECT_EQ(op.GetNbOfSlots(), 18);
  ASSERT_NE(op.GetAlphaPixel(), nullptr);
  EXPECT_EQ(all(op.GetAlphaPixel()), std::vector<float>(256, 30.0f));
  EXPECT_EQ(all(op.GetChainPixel()), std::vector<float>(256, 0.0f));
  EXPECT_EQ(all(op.GetWaveletTransform()[14]), std::vector<float>(256, 0.0f));
  EXPECT_EQ(op.GetResult(), 0.0);
  ASSERT_EQ((op.SetTools(1802), op.Apply()), 1);
  EXPECT_EQ(all(op.GetAlphaPixel()), std::vector<float>(256, 30.0f));
}

TEST(Wavelet, ThreeScalesOrFewerCannotRegress)
{
  auto in = HorizontalBand(16, 100);
  IPG_WAVELET op(in.get());
  op.SetTools(1801);
  op.SetNbConvolution(3);
  MessageCapture capture;
  EXPECT_EQ(op.Apply(), 1);
  EXPECT_EQ(capture.Texts, std::vector<std::string>{"Aïe, déterminant nul!!"});
  EXPECT_EQ(op.GetAlphaPixel(), nullptr);
  EXPECT_EQ(op.GetChainPixel(), nullptr);
}

TEST(Wavelet, StepEdgeChainsCarryTheRegressionSlopeOfTheBinomialModulus)
{
  // Across a step of height h, scale s has modulus h C(2s, s) / 4^s * sqrt(s + 1) / sqrt(2)
  // on the row before the step; the chain regresses ln of it on ln(sqrt(j / 2)), j = 2 .. S - 1.
  const int S = 6, h = 100;
  auto in = HorizontalBand(32, h);
  IPG_WAVELET op(in.get());
  op.SetTools(1801);
  op.SetNbConvolution(S);
  ASSERT_EQ(op.Apply(), 1);
  double sx = 0, sy = 0, sxx = 0, sxy = 0;
  const int L = S - 2;
  for (int j = 2; j <= S - 1; ++j) {
    const double x = std::log(std::sqrt(j / 2.0));
    const double y = std::log(h * Binomial(2 * j, j) / std::pow(4.0, j) * std::sqrt((j + 1) / 2.0));
    sx += x, sy += y, sxx += x * x, sxy += x * y;
  }
  const double slope = (L * sxy - sx * sy) / (L * sxx - sx * sx);
  const float *alpha = op.GetAlphaPixel(), *chain = op.GetChainPixel();
  ASSERT_NE(alpha, nullptr);
  for (int r = 0; r < 32; ++r)
    for (int c = 0; c < 32; ++c) {
      const bool edge = r == 7 || r == 23;
      EXPECT_NEAR(At(alpha, 32, c, r), edge ? slope : 30.0, edge ? 1e-4 : 0.0) << c << "," << r;
      EXPECT_EQ(At(chain, 32, c, r), edge ? float(h) : 0.0f) << c << "," << r;
    }
  EXPECT_EQ(op.GetResult(), 64.0);
}

TEST(Wavelet, ThresholdBeforeChainAnalysisActsOnScaleZeroOnly)
{
  auto in = HorizontalBand(32, 100);
  IPG_WAVELET op(in.get());
  op.SetTools(1801);
  op.SetNbConvolution(5);
  op.SetThreshold(150.0f); // above the scale-0 modulus of 100
  ASSERT_EQ(op.Apply(), 1);
  float** slots = op.GetWaveletTransform();
  EXPECT_EQ(At(slots[0], 32, 3, 7), 0.0f);
  EXPECT_GT(At(slots[2], 32, 3, 7), 0.0f);
  EXPECT_EQ(op.GetResult(), 0.0); // no chain reaches the finest scale
}

TEST(Wavelet, ExponentAtEveryPixelFollowsTheEdges)
{
  auto in = HorizontalBand(32, 1000);
  IPG_WAVELET op(in.get());
  op.SetTools(1802);
  op.SetNbConvolution(4);
  ASSERT_EQ(op.Apply(), 1);
  const float* alpha = op.GetAlphaPixel();
  ASSERT_NE(alpha, nullptr);
  for (int c = 0; c < 32; ++c) {
    EXPECT_NE(At(alpha, 32, c, 7), 30.0f);
    EXPECT_FLOAT_EQ(At(alpha, 32, c, 7), At(alpha, 32, 0, 7)) << c; // same along the edge
    EXPECT_FLOAT_EQ(At(alpha, 32, c, 23), At(alpha, 32, 0, 7)) << c; // and on the other edge
    EXPECT_EQ(At(alpha, 32, c, 15), 30.0f) << c;                   // out of reach of both edges
  }
}
