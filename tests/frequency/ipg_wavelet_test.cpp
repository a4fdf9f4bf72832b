// SPDX-License-Identifier: Apache-2.0
#include "ipg/frequency/ipg_wavelet.h"
#include "mth/mth_matrix.h"

#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <random>
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

TEST(Wavelet, UnknownCodesScaleCountsAndMissingInput)
{
  DCM_STRUCT in(8, 8, nullptr);
  IPG_WAVELET op(&in), none(nullptr);
  MessageCapture capture;
  for (int code : {1799, 1806}) // silent
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

// ---------------------------------------------------------------- discrete transforms

namespace {

std::unique_ptr<DCM_STRUCT> Noise(unsigned cols, unsigned rows, unsigned seed)
{
  std::mt19937 generator(seed);
  return ImageOf(cols, rows, [&](unsigned, unsigned) { return static_cast<int>(generator() % 4096); });
}

double MaxDifference(const MTH_MATRIX& m, const DCM_STRUCT& image, bool rounded = false)
{
  double worst = 0.0;
  for (int r = 0; r < m.GetNbRows(); ++r)
    for (int c = 0; c < m.GetNbCols(); ++c) {
      const double v = rounded ? std::round(m.Get(r, c)) : m.Get(r, c);
      worst = std::max(worst, std::fabs(v - image.Data->GetValue(c, r)));
    }
  return worst;
}

// Piecewise-constant regions (a disc, an ellipse, a dark band) over a ramp, 0..255.
std::vector<double> Regions(int side)
{
  std::vector<double> truth;
  for (int r = 0; r < side; ++r)
    for (int c = 0; c < side; ++c) {
      const double dx = c - side / 2.0, dy = r - side / 2.0;
      double v = r < side / 6 ? 30 : 60 + 0.4 * c;
      if (dx * dx + dy * dy < side * side / 18.0)
        v = 170;
      if (dx * dx / 100 + (dy - 10) * (dy - 10) / 400 < 1)
        v = 90;
      truth.push_back(v);
    }
  return truth;
}

double Psnr(const std::vector<double>& v, const std::vector<double>& truth)
{
  double error = 0.0;
  for (std::size_t k = 0; k < v.size(); ++k)
    error += (v[k] - truth[k]) * (v[k] - truth[k]);
  return 10.0 * std::log10(255.0 * 255.0 * static_cast<double>(v.size()) / error);
}

// The 3 x 3 mean, clipped at the borders.
std::vector<double> Mean3x3(const std::vector<int>& v, int side)
{
  std::vector<double> out;
  for (int r = 0; r < side; ++r)
    for (int c = 0; c < side; ++c) {
      double sum = 0, n = 0;
      for (int y = std::max(0, r - 1); y <= std::min(side - 1, r + 1); ++y)
        for (int x = std::max(0, c - 1); x <= std::min(side - 1, c + 1); ++x, ++n)
          sum += v[static_cast<std::size_t>(y * side + x)];
      out.push_back(sum / n);
    }
  return out;
}

} // namespace

TEST(DiscreteWavelet, EveryWaveletInvertsExactly)
{
  auto in = Noise(16, 8, 1), odd = Noise(13, 10, 2);
  DCM_STRUCT out(16, 8);
  for (int name = 0; name < 5; ++name) {
    IPG_WAVELET op(in.get());
    op.SetImaOut(&out);
    op.SetMode(302);
    op.SetNameWavelet(name);
    op.SetNbScale(3);
    ASSERT_EQ((op.SetTools(1803), op.Apply()), 1) << name;
    ASSERT_EQ(op.GetEnsWt()->Count(), 10);
    MTH_MATRIX back;
    ASSERT_EQ(op.InverseDiscreteWaveletTransform(back), 1);
    EXPECT_LT(MaxDifference(back, *in), 1e-9) << name;
    EXPECT_EQ(MaxDifference(back, *in, true), 0.0) << name;

    // The frame takes any size.
    op.SetImaIn(odd.get());
    op.SetNbScale(2);
    ASSERT_EQ((op.SetTools(1804), op.Apply()), 1) << name;
    ASSERT_EQ(op.GetEnsWf()->Count(), 8);
    ASSERT_EQ(op.RedundantInverseWaveletTransform(back), 1);
    EXPECT_LT(MaxDifference(back, *odd), 1e-9) << name;
  }
}

TEST(DiscreteWavelet, HaarOfAConstantHasNoDetails)
{
  auto in = TestImage(8, 8).Fill(100).Build();
  DCM_STRUCT out(8, 8);
  IPG_WAVELET op(in.get());
  op.SetImaOut(&out);
  op.SetNbScale(3);
  ASSERT_EQ((op.SetTools(1803), op.Apply()), 1);
  TList* bands = op.GetEnsWt();
  for (int k = 0; k < 9; ++k) {
    auto* detail = static_cast<MTH_MATRIX*>(bands->Get(k));
    for (int i = 0; i < detail->GetNbRows() * detail->GetNbCols(); ++i)
      EXPECT_EQ(detail->GetData()[i], 0.0) << k;
  }
  // Orthonormal: each scale doubles the approximation of a constant.
  EXPECT_NEAR(static_cast<MTH_MATRIX*>(bands->Get(9))->Get(0, 0), 800.0, 1e-12);

  ASSERT_EQ((op.SetTools(1804), op.Apply()), 1);
  for (int scale : {0, 1, 2}) {
    op.SetScale(scale);
    for (MTH_MATRIX* detail : {op.DetailsHorizontalByDWF(), op.DetailsVerticalByDWF(), op.DetailsDiagonalByDWF()})
      EXPECT_EQ(detail->Get(3, 5), 0.0);
    EXPECT_NEAR(op.ApproximationByDWF()->Get(7, 0), 100.0 * (2 << scale), 1e-12);
  }
}

TEST(DiscreteWavelet, HaarMosaicOfAnEightByEightImageWorkedByHand)
{
  // 2 x 2 blocks [0 4; 8 12], plus 16 in every other block column.
  auto in = ImageOf(8, 8, [](unsigned c, unsigned r) {
    return static_cast<int>(4 * (c % 2) + 8 * (r % 2) + 16 * ((c / 2) % 2));
  });
  // Scale 0 of each block [a b; c d]: A = (a+b+c+d)/2 = 12 or 44, V = (b+d-a-c)/2 = 4,
  // H = (c+d-a-b)/2 = 8, D = (a+d-b-c)/2 = 0. Scale 1 of A (columns 12 44 12 44):
  // A = 56, V = 32, H = D = 0.
  const std::vector<int> expected = {
      56, 56, 32, 32, 4, 4, 4, 4, //
      56, 56, 32, 32, 4, 4, 4, 4, //
      0,  0,  0,  0,  4, 4, 4, 4, //
      0,  0,  0,  0,  4, 4, 4, 4, //
      8,  8,  8,  8,  0, 0, 0, 0, //
      8,  8,  8,  8,  0, 0, 0, 0, //
      8,  8,  8,  8,  0, 0, 0, 0, //
      8,  8,  8,  8,  0, 0, 0, 0, //
  };
  DCM_STRUCT out(8, 8);
  IPG_WAVELET op(in.get());
  op.SetImaOut(&out);
  op.SetMode(302);
  ASSERT_EQ((op.SetTools(1803), op.Apply()), 1);
  EXPECT_EQ(PixelsOf(out), expected);
}

TEST(DiscreteWavelet, DenoisingRaisesPsnrAndBeatsTheMeanFilter)
{
  const int side = 128;
  const std::vector<double> truth = Regions(side);
  std::mt19937 generator(3);
  for (double sigma : {10.0, 20.0, 40.0}) {
    std::normal_distribution<double> gauss(0.0, sigma);
    std::vector<int> noisy;
    for (double v : truth)
      noisy.push_back(static_cast<int>(std::lround(v + gauss(generator))));
    auto in = ImageOf(side, side, noisy);
    const double before = Psnr(std::vector<double>(noisy.begin(), noisy.end()), truth);
    const double mean = Psnr(Mean3x3(noisy, side), truth);
    for (bool adaptive : {false, true}) {
      DCM_STRUCT out(side, side);
      IPG_WAVELET op(in.get());
      op.SetImaOut(&out);
      op.SetMode(302);
      op.SetAdaptative(adaptive);
      ASSERT_EQ((op.SetTools(1805), op.Apply()), 1);
      EXPECT_NEAR(op.GetResult(), sigma, 0.05 * sigma); // the MAD estimate
      const std::vector<int> pixels = PixelsOf(out);
      const double after = Psnr(std::vector<double>(pixels.begin(), pixels.end()), truth);
      EXPECT_GT(after, before + 4.0) << sigma << " " << adaptive;
      EXPECT_GT(after, mean) << sigma << " " << adaptive;
    }
  }
  // A noise-free image keeps its grey levels.
  std::vector<int> clean(truth.begin(), truth.end());
  auto in = ImageOf(side, side, clean);
  DCM_STRUCT out(side, side);
  IPG_WAVELET op(in.get());
  op.SetImaOut(&out);
  op.SetMode(302);
  ASSERT_EQ((op.SetTools(1805), op.Apply()), 1);
  const std::vector<int> pixels = PixelsOf(out);
  double change = 0.0;
  for (std::size_t k = 0; k < clean.size(); ++k)
    change += std::abs(pixels[k] - clean[k]);
  EXPECT_LT(change / static_cast<double>(clean.size()), 1.0);
}

TEST(DiscreteWavelet, DenoisingKeepsPixelsOutsideTheRoiAndMarks)
{
  auto in = Noise(32, 32, 4);
  in->Data->SetValue(5u, 20u, 16777300);
  auto roi = ImageOf(32, 32, [](unsigned c, unsigned) { return c < 16 ? kRoiInside : 0; });
  DCM_STRUCT out(32, 32);
  IPG_WAVELET op(in.get(), roi.get());
  op.SetImaOut(&out);
  op.SetMode(302);
  op.SetLogTransform(true);
  op.SetNbScale(3);
  ASSERT_EQ((op.SetTools(1805), op.Apply()), 1);
  double inside = 0, insideIn = 0;
  for (unsigned r = 0; r < 32; ++r)
    for (unsigned c = 0; c < 32; ++c) {
      if (c >= 16)
        EXPECT_EQ(out.Data->GetValue(c, r), in->Data->GetValue(c, r));
      else if (c != 5 || r != 20) {
        inside += out.Data->GetValue(c, r);
        insideIn += in->Data->GetValue(c, r);
      }
    }
  EXPECT_EQ(out.Data->GetValue(5u, 20u), 16777300);
  // The log transform is brought back to the input's mean (uniform noise: no bias left).
  EXPECT_NEAR(inside / insideIn, 1.0, 0.05);
}

TEST(DiscreteWavelet, BadInputShowsItsMessageAndFails)
{
  auto in8 = Noise(8, 8, 5), in12 = Noise(12, 8, 6);
  DCM_STRUCT out8(8, 8), out12(12, 8), small(4, 4);
  out8.Data->Init(7);
  struct Case {
    DCM_STRUCT* In;
    DCM_STRUCT* Out;
    int Code;
    std::function<void(IPG_WAVELET&)> Set;
    std::string Message;
  };
  const std::string where = " : IPG_WAVELET::";
  const std::string all = where + "ComputeDiscreteWaveletTransformAllScale()";
  const std::string frame = where + "RedundantWaveletTransform()", denoise = where + "ApplyDenoisingImageByWavelet()";
  auto range = [](const std::string& parameter) { return "Paramètre " + parameter + " hors limites"; };
  auto scales = [](int n) { return [n](IPG_WAVELET& op) { op.SetNbScale(n); }; };
  const std::vector<Case> cases = {
      {nullptr, &out8, 1803, {}, "Pas d'image d'entrée!"},
      {nullptr, &out8, 1804, {}, "Pas d'image d'entrée!"},
      {in8.get(), nullptr, 1805, {}, "image de sortie non allouée"},
      {in8.get(), &small, 1803, {}, "Les images n'ont pas les mêmes dimensions" + all},
      {in8.get(), &out8, 1803, scales(0), range("NbScale") + all},
      {in8.get(), &out8, 1804, scales(4), range("NbScale") + frame},
      {in8.get(), &out8, 1805, scales(2147483647), range("NbScale") + denoise},
      {in12.get(), &out12, 1803, scales(3), "Dimensions de l'image non divisibles par 2^NbScale" + all},
      {in8.get(), &out8, 1803, [](IPG_WAVELET& op) { op.SetNameWavelet(5); }, range("NameWavelet") + all},
      {in8.get(), &out8, 1804, [](IPG_WAVELET& op) { op.SetNameWavelet(-1); }, range("NameWavelet") + frame},
      {in8.get(), &out8, 1805, [](IPG_WAVELET& op) { op.SetThrFactor(-0.5); }, range("ThrFactor") + denoise},
      {in8.get(), &out8, 1805, [](IPG_WAVELET& op) { op.SetThrFactor(std::nan("")); }, range("ThrFactor") + denoise},
      {in8.get(), &out8, 1805, [](IPG_WAVELET& op) { op.SetWindowSize(4); }, range("WindowSize") + denoise},
      {in8.get(), &out8, 1805, [](IPG_WAVELET& op) { op.SetWindowSize(0); }, range("WindowSize") + denoise},
  };
  for (const Case& c : cases) {
    MessageCapture capture;
    IPG_WAVELET op(c.In);
    op.SetImaOut(c.Out);
    if (c.Set)
      c.Set(op);
    EXPECT_EQ((op.SetTools(c.Code), op.Apply()), 0) << c.Message;
    EXPECT_EQ(capture.Texts, std::vector<std::string>{c.Message});
  }
  EXPECT_EQ(PixelsOf(out8), std::vector<int>(64, 7)); // untouched by every refusal

  // Frame bands of a scale the frame does not have, and inverses of lists of the wrong shape.
  MessageCapture capture;
  IPG_WAVELET op(in8.get());
  ASSERT_EQ((op.SetTools(1804), op.Apply()), 1);
  op.SetScale(2);
  EXPECT_EQ(op.ApproximationByDWF(), nullptr);
  TList wrong; // five bands: neither 3 per scale and 1 nor 4 per scale
  MTH_MATRIX unit(1, 1);
  for (int k = 0; k < 5; ++k)
    wrong.Add(&unit);
  MTH_MATRIX image;
  op.SetEnsWt(&wrong);
  EXPECT_EQ(op.InverseDiscreteWaveletTransform(image), 0);
  op.SetEnsWf(&wrong);
  EXPECT_EQ(op.RedundantInverseWaveletTransform(image), 0);
  EXPECT_EQ(capture.Texts, (std::vector<std::string>{range("Scale") + where + "ApproximationByDWF()",
                                                     range("EnsWt") + where + "InverseDiscreteWaveletTransform()",
                                                     range("EnsWf") + where + "RedundantInverseWaveletTransform()"}));
}
