// SPDX-License-Identifier: Apache-2.0
#include "dcm/dcm_struct.h"
#include "ipg/filtering/ipg_filter_processing.h"
#include "ipg/framework/ipg_threads.h"
#include "ipg/internal/ipg_speckle_frame.h"
#include "ipg/internal/ipg_simd.h"
#include "ipg/internal/ipg_speckle_kernels.h"
#include "ipg/measurement/ipg_statistic1.h"
#include "support/images.h"
#include "support/message_capture.h"
#include "support/progress_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

// The despeckling family on a small speckled phantom: tissue of echogenicity
// 400 with a round cyst of 100 (radius 14) in the middle, linear intensity
// times unit-mean gamma speckle of 4 looks from a fixed seed.

namespace {

constexpr int kSide = 64;
constexpr double kCystRadius = 14.0;
constexpr double kTissue = 400.0;
constexpr double kCyst = 100.0;

double Radius(int col, int row) { return std::hypot(col - 31.5, row - 31.5); }

std::unique_ptr<DCM_STRUCT> Phantom(int looks, unsigned seed, unsigned side = kSide)
{
  std::mt19937 random(seed);
  std::gamma_distribution<double> speckle(looks, 1.0 / looks);
  return ImageOf(side, side, [&](unsigned c, unsigned r) {
    return static_cast<int>((Radius(c, r) < kCystRadius ? kCyst : kTissue) * speckle(random));
  });
}

// Mean^2 / variance over the tissue at least 4 pixels from the cyst and 3 from the border.
double TissueEnl(DCM_STRUCT& image)
{
  double sum = 0.0, squares = 0.0, n = 0.0;
  for (int r = 3; r < kSide - 3; ++r)
    for (int c = 3; c < kSide - 3; ++c)
      if (Radius(c, r) > kCystRadius + 4.0) {
        const double v = image.Data->GetValue(static_cast<unsigned>(c), static_cast<unsigned>(r));
        sum += v;
        squares += v * v;
        n += 1.0;
      }
  const double mean = sum / n;
  return mean * mean / (squares / n - mean * mean);
}

// Radius where the ring-averaged profile crosses half-way between the cyst and the tissue.
double CystEdgeRadius(DCM_STRUCT& image)
{
  std::vector<double> sum(40, 0.0), count(40, 0.0);
  for (int r = 0; r < kSide; ++r)
    for (int c = 0; c < kSide; ++c) {
      const int ring = static_cast<int>(Radius(c, r));
      if (ring < 40) {
        sum[static_cast<std::size_t>(ring)] += image.Data->GetValue(static_cast<unsigned>(c), static_cast<unsigned>(r));
        count[static_cast<std::size_t>(ring)] += 1.0;
      }
    }
  double inside = 0.0, insideCount = 0.0, outside = 0.0, outsideCount = 0.0;
  for (std::size_t i = 0; i < 8; ++i) {
    inside += sum[i];
    insideCount += count[i];
    outside += sum[i + 20];
    outsideCount += count[i + 20];
  }
  const double half = (inside / insideCount + outside / outsideCount) / 2.0;
  for (std::size_t i = 1; i < 40; ++i) {
    const double a = sum[i - 1] / count[i - 1], b = sum[i] / count[i];
    if ((a - half) * (b - half) <= 0.0)
      return static_cast<double>(i - 1) + (half - a) / (b - a) + 0.5;
  }
  return -1.0;
}

// Runs code on in with n passes and returns the output pixels.
// With measured, the output's stored extremes must be its pixels'.
std::vector<int> Filtered(DCM_STRUCT& in, int code, int passes = 1, double damping = 0.0, bool measured = false)
{
  DCM_STRUCT out(in, false);
  IPG_FILTER_PROCESSING filter(&in);
  filter.SetImaOut(&out);
  filter.SetTools(code);
  filter.SetNbIter(passes);
  filter.SetAdaptatifFiltreParameters(0, 0, damping);
  EXPECT_EQ(filter.Apply(), 1);
  const std::vector<int> pixels = PixelsOf(out);
  if (measured) {
    const auto [low, high] = std::minmax_element(pixels.begin(), pixels.end());
    EXPECT_EQ(std::pair(out.Data->GetMin(), out.Data->GetMax()), std::pair(*low, *high)) << code;
  }
  return pixels;
}

// 10 with one bright pixel at (1, 1): global variance 504; the first window
// has mean 20 and variance 800.
std::unique_ptr<DCM_STRUCT> SpikeStrip()
{
  return TestImage(5, 3).Fill(10).At(1, 1, 100).Build();
}

// A vertical step from 100 to 200 between columns 5 and 6.
std::unique_ptr<DCM_STRUCT> Step(unsigned cols, unsigned rows)
{
  return TestImage(cols, rows).Fill(100).Rect(6, 0, cols - 6, rows, 200).Build();
}

struct Case {
  const char* Name;
  int Code;
  int Iterations;
  const char* Label;
};

// Iterations that a user would pick for each filter; the adaptive parameters stay at their defaults.
const Case kCases[] = {
    {"SBF", 509, 5, "filtrage SBF"},
    {"N_B_Filter", 510, 1, "Ultrasound Images Filter"},
    {"SRAD", 511, 20, "Speckle Reducing Anisotropic Diffusion"},
    {"AWMF", 512, 1, "Adaptative Weighted Median Filter"},
    {"SBF_DVW", 518, 5, "SBF-DVW (using Dynamically Varying Window)"},
    {"WSBF", 519, 5, "Weighted Squeeze Box Filter (WSBF)"},
    {"ADespeckling", 520, 10, "ADAPTATIVE DESPECKLING"},
    {"AdaptativeDenoise", 504, 2, "filtrage adaptatif"},
};

// Runs one code through Apply(); code 504 needs the median's window.
bool RunCode(IPG_FILTER_PROCESSING& op, int code, int iterations)
{
  op.SetTools(code);
  op.SetNbIter(iterations);
  if (code == 504) {
    int ones[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
    op.SetUserFilter(ones, 3, 3);
  }
  return op.Apply() != 0;
}

class SpeckleFamily : public ::testing::TestWithParam<Case> {};

TEST_P(SpeckleFamily, DoublesTheTissueEnlKeepsTheCystEdgeAndShowsItsLabel)
{
  const Case& test = GetParam();
  auto phantom = Phantom(4, 11);
  DCM_STRUCT &in = *phantom, out(kSide, kSide);
  IPG_FILTER_PROCESSING op(&in);
  op.SetImaOut(&out);
  ProgressCapture progress;
  MessageCapture messages;

  ASSERT_TRUE(RunCode(op, test.Code, test.Iterations));

  EXPECT_TRUE(messages.Texts.empty());
  EXPECT_GE(TissueEnl(out), 2.0 * TissueEnl(in));
  EXPECT_NEAR(CystEdgeRadius(out), kCystRadius, 1.0);
  ASSERT_FALSE(progress.Events.empty());
  EXPECT_EQ(progress.Events.front(), std::string("open ") + test.Label + " " + std::to_string(test.Iterations));
  EXPECT_EQ(progress.Events[1], "step 1");
  if (test.Code != 504) { // the 504 chain goes on with the median's progress
    EXPECT_EQ(progress.Events.size(), static_cast<std::size_t>(test.Iterations) + 2);
    EXPECT_EQ(progress.Events.back(), "close");
  }

  DCM_STRUCT again(kSide, kSide); // deterministic: a second run gives the same pixels
  op.SetImaOut(&again);
  ASSERT_TRUE(RunCode(op, test.Code, test.Iterations));
  EXPECT_EQ(PixelsOf(again), PixelsOf(out));
}

TEST_P(SpeckleFamily, RefusesBadIterationsAndWindowsWithAMessage)
{
  const Case& test = GetParam();
  auto in = Phantom(4, 3);
  DCM_STRUCT out(kSide, kSide);
  IPG_FILTER_PROCESSING op(in.get());
  op.SetImaOut(&out);
  MessageCapture messages;

  EXPECT_FALSE(RunCode(op, test.Code, 0));
  EXPECT_FALSE(RunCode(op, test.Code, -3));
  ASSERT_EQ(messages.Texts.size(), 2u);
  EXPECT_EQ(messages.Texts[0], Ipg_SpeckleMsgIterations(test.Code == 504 ? "AdaptativeDenoise" : test.Name));

  // Negative parameters are refused too, whatever the filter reads.
  op.SetAdaptatifFiltreParameters(-1, -1, -1.0);
  EXPECT_FALSE(RunCode(op, test.Code, 1));
  EXPECT_EQ(messages.Texts.size(), 3u);
}

INSTANTIATE_TEST_SUITE_P(Codes, SpeckleFamily, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case>& info) { return std::string(info.param.Name); });

TEST(SpeckleFamily, WindowsTooLargeOrEvenAreRefused)
{
  auto in = Phantom(1, 5, 8);
  DCM_STRUCT out(8, 8);
  IPG_FILTER_PROCESSING op(in.get());
  op.SetImaOut(&out);
  MessageCapture messages;
  // The impulse filter's default 7x7 fits (window 0), its 9x9 does not.
  for (auto [window, code, result] : {std::tuple{9, 509, 0}, {9, 512, 0}, {4, 519, 0}, {0, 521, 1}, {9, 521, 0}}) {
    op.SetAdaptatifFiltreParameters(window, 0, 0.0);
    EXPECT_EQ((op.SetTools(code), op.Apply()), result) << code;
  }
  EXPECT_EQ(messages.Texts, (std::vector<std::string>{
                                "Taille de fenêtre incorrecte pour l'image : IPG_FILTER_PROCESSING::SBF()",
                                Ipg_SpeckleMsgWindow("AWMF"), Ipg_SpeckleMsgWindow("WSBF"),
                                Ipg_SpeckleMsgWindow("Filtre_Impuls")}));
  EXPECT_EQ(messages.Captions[0], "Information");

  // A time step beyond the stable range, and no output image.
  op.SetAdaptatifFiltreParameters(0, 0, 1.5);
  EXPECT_FALSE(op.SRAD());
  EXPECT_EQ(messages.Texts.back(), "Paramètre de filtrage incorrect : IPG_FILTER_PROCESSING::SRAD()");
  op.SetImaOut(nullptr);
  EXPECT_FALSE(op.SBF());
  EXPECT_EQ(messages.Texts.back(), "image de sortie non allouée");
}

TEST(FiltreImpuls, RemovesImpulsesAndLeavesEveryOtherPixel)
{
  auto ramp = ImageOf(kSide, kSide, [](unsigned c, unsigned r) { return int(100 + c + r); }); // no pixel is an extremum
  DCM_STRUCT &in = *ramp, clean(in, true), out(kSide, kSide);
  in.Data->SetValue(10, 10, 4000);
  in.Data->SetValue(40, 20, 0);
  in.Data->SetValue(41, 20, 0); // a two-pixel dark impulse
  IPG_FILTER_PROCESSING op(&in);
  op.SetImaOut(&out);
  ProgressCapture progress;
  ASSERT_EQ((op.SetTools(521), op.Apply()), 1);
  EXPECT_EQ(progress.Events.front(), "open filtrage SBF 1");

  std::vector<int> got = PixelsOf(out);
  const std::vector<int> expected = PixelsOf(clean);
  for (int k : {10 * kSide + 10, 20 * kSide + 40, 20 * kSide + 41})
    EXPECT_NEAR(std::exchange(got[k], expected[k]), expected[k], 2) << k;
  got.front() = expected.front(); // the ramp's true extrema may move
  got.back() = expected.back();
  EXPECT_EQ(got, expected);
}

TEST(SpeckleFrame, RoiMarksAndExtremes)
{
  auto phantom = Phantom(1, 9);
  auto roi = TestImage(kSide, kSide).Rect(0, 0, kSide / 2, kSide, kRoiInside).Build();
  DCM_STRUCT &in = *phantom, out(kSide, kSide);
  in.Data->SetValue(5, 5, 17000000);
  IPG_FILTER_PROCESSING op(&in, roi.get());
  op.SetImaOut(&out);
  op.SetNbIter(3);
  ASSERT_TRUE(op.SBF());

  int filtered = 0;
  for (int r = 0; r < kSide; ++r)
    for (int c = 0; c < kSide; ++c) {
      const bool changed = out.Data->GetValue(c, r) != in.Data->GetValue(c, r);
      ASSERT_FALSE(changed && c >= kSide / 2) << c << "," << r; // outside the ROI: copied
      filtered += changed;
    }
  EXPECT_GT(filtered, 100);
  // The mark comes back and does not leak into its neighbours.
  EXPECT_EQ(out.Data->GetValue(5, 5), 17000000);
  EXPECT_EQ(out.Data->GetMax(), 17000000);
  for (int r = 0; r < 12; ++r)
    for (int c = 0; c < 12; ++c)
      ASSERT_TRUE((c == 5 && r == 5) || out.Data->GetValue(c, r) < 100000) << c << "," << r;
}

TEST(SpeckleCores, FlatImagesStayFlatAndMonotoneEdgesStay)
{
  constexpr int cols = 12, rows = 10;
  std::vector<double> flat(cols * rows, 50.0), step(cols * rows), out(cols * rows);
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < cols; ++c)
      step[static_cast<std::size_t>(r * cols + c)] = c < 6 ? 20.0 : 200.0;

  const auto check = [&](auto pass, const std::vector<double>& image) {
    pass(image.data(), out.data());
    for (std::size_t i = 0; i < out.size(); ++i)
      ASSERT_DOUBLE_EQ(out[i], image[i]) << i;
  };
  for (const auto* image : {&flat, &step}) {
    check([](const double* i, double* o) { Ipg_SbfPass(i, o, cols, rows, 1); }, *image);
    check([](const double* i, double* o) { Ipg_WsbfPass(i, o, cols, rows, 2); }, *image);
    check([](const double* i, double* o) { Ipg_SbfDvwPass(i, o, cols, rows, 3, 1.5, 0.1); }, *image);
    check([](const double* i, double* o) { Ipg_AdaptiveMedianPass(i, o, cols, rows, 3); }, *image);
    check([](const double* i, double* o) { Ipg_AwmfPass(i, o, cols, rows, 2, 99, 1.0); }, *image);
  }
  check([](const double* i, double* o) { Ipg_SradPass(i, o, cols, rows, 0.2, 0.1); }, flat);
  check([](const double* i, double* o) { Ipg_DpadPass(i, o, cols, rows, 2, 0.2, 0.1); }, flat);
  check([](const double* i, double* o) { Ipg_AdaptiveNeighbourhoodPass(i, o, cols, rows, 49, 2.0, 0.1); }, flat);
}

TEST(SpeckleCores, SbfReplacesAStrictExtremumByItsNeighboursMean)
{
  std::vector<double> in = {1, 2, 3, 4, 90, 6, 7, 8, 9}, out(9);
  Ipg_SbfPass(in.data(), out.data(), 3, 3, 1);
  EXPECT_DOUBLE_EQ(out[4], 40.0 / 8.0);
  // Corner 1 is below its window's others (2, 4, 90): replaced by their mean.
  EXPECT_DOUBLE_EQ(out[0], 32.0);
  EXPECT_DOUBLE_EQ(out[1], 2.0);
}

TEST(SpeckleCores, AwmfWeightedMedianFollowsTheWeights)
{
  // b = 0: every weight is the centre's, a plain 3x3 median.
  std::vector<double> in = {9, 1, 8, 2, 7, 3, 6, 4, 5}, out(9);
  Ipg_AwmfPass(in.data(), out.data(), 3, 3, 1, 10, 0.0);
  EXPECT_DOUBLE_EQ(out[4], 5.0);
  // A large b leaves only the centre's weight: the centre is kept.
  Ipg_AwmfPass(in.data(), out.data(), 3, 3, 1, 10, 1e6);
  EXPECT_DOUBLE_EQ(out[4], 7.0);
}

TEST(AdaptativeDenoiseHelpers, ListOfSimilarNeighbours)
{
  auto in = ImageOf(4, 4, {100, 104, 130, 99, 98, 17000000, 101, 100});
  auto roi = TestImage(4, 4).Fill(kRoiInside).At(3, 0, 0).Build();
  IPG_FILTER_PROCESSING op(in.get(), roi.get());
  EXPECT_TRUE(op.IsTreatedPixel(0, 0, true));
  EXPECT_FALSE(op.IsTreatedPixel(1, 1, false)); // a mark
  EXPECT_FALSE(op.IsTreatedPixel(3, 0, true));  // outside the ROI
  EXPECT_TRUE(op.IsTreatedPixel(3, 0, false));
  EXPECT_FALSE(op.IsTreatedPixel(4, 0, false));
  EXPECT_FALSE(op.IsTreatedPixel(-1, 0, false));

  TLinkedList<MTH_2D_INTEGER*> list;
  EXPECT_TRUE(op.AddPixel(0, 0, 0, &list));   // the reference, 100
  EXPECT_TRUE(op.AddPixel(1, 0, 5, &list));   // 104
  EXPECT_FALSE(op.AddPixel(2, 0, 5, &list));  // 130
  EXPECT_FALSE(op.AddPixel(3, 0, 5, &list));  // 99 but outside the ROI
  EXPECT_FALSE(op.AddPixel(1, 1, 5, &list));  // a mark
  EXPECT_TRUE(op.AddPixel(0, 1, 5, &list));   // 98
  EXPECT_FALSE(op.AddPixel(0, 0, 5, nullptr));
  ASSERT_EQ(list.Count(), 3);
  EXPECT_DOUBLE_EQ(op.GetNeighboorsMeanGreyLevel(&list), (100.0 + 104.0 + 98.0) / 3.0);
  for (int i = 0; i < list.Count(); ++i)
    delete list.Get(i);
  TLinkedList<MTH_2D_INTEGER*> empty;
  EXPECT_EQ(op.GetNeighboorsMeanGreyLevel(&empty), 0.0);
}

TEST(IpgSpeckleFilters, LeeWeighsByLocalAgainstGlobalVarianceInPlace)
{
  auto in = SpikeStrip();
  // (1,1): w = (800 - 504) / 800 = 0.37, 0.63 * 20 + 0.37 * 100 = 49.6.
  // (2,1) sees that 49.6: mean 14.4, variance 154.88 < 504, w clips to 0.
  // (3,1) sees 14.4: mean 10.49, w 0.
  EXPECT_EQ(Filtered(*in, 513), (std::vector<int>{10, 10, 10, 10, 10, 10, 49, 14, 10, 10, 10, 10, 10, 10, 10}));

  auto patch = ImageOf(5, 4, {7, 7, 7, 50, 0, 7, 7, 7, 90, 3, 7, 7, 7, 20, 40, 1, 2, 3, 4, 5});
  EXPECT_EQ(Filtered(*patch, 513)[6], 7); // its 3x3 patch is flat: variance 0, the mean is the centre
  EXPECT_EQ(Filtered(*patch, 513, 0), PixelsOf(*patch));
}

// The pass is a row-by-row recurrence: each pixel sees its left neighbour and
// the row above already updated, the rest as it was. Large images share the
// rows between threads, which must change nothing.
void LeeRecurrence(std::vector<double>& v, int cols, int rows, double noise)
{
  for (int row = 1; row < rows - 1; ++row)
    for (int col = 1; col < cols - 1; ++col) {
      double sum = 0.0, squares = 0.0;
      for (int y = row - 1; y <= row + 1; ++y)
        for (int x = col - 1; x <= col + 1; ++x)
          sum += v[y * cols + x];
      const double mean = sum * (1.0 / 9.0);
      for (int y = row - 1; y <= row + 1; ++y)
        for (int x = col - 1; x <= col + 1; ++x)
          squares += (v[y * cols + x] - mean) * (v[y * cols + x] - mean);
      const double variance = (1.0 / 9.0) * squares;
      const double w = variance <= 0.0 ? 0.0 : std::clamp((variance - noise) / variance, 0.0, 1.0);
      v[row * cols + col] = (1.0 - w) * mean + w * v[row * cols + col];
    }
}

TEST(IpgSpeckleFilters, LeePassIsTheRowByRowRecurrence)
{
  std::mt19937 random(5);
  std::uniform_int_distribution<int> level(0, 4000);
  const double noise = 90000.0;
  for (const auto& [cols, rows] : {std::pair{53, 31}, std::pair{3, 40}, std::pair{401, 359}}) {
    std::vector<double> input(static_cast<std::size_t>(cols) * rows);
    for (double& v : input)
      v = level(random);
    std::vector<double> expected = input;
    for (int pass = 0; pass < 2; ++pass)
      LeeRecurrence(expected, cols, rows, noise);
    for (const bool simd : {true, false})
      for (const int threads : {1, 2, 3}) {
        Ipg_SetSimdEnabled(simd);
        Ipg_SetNumThreads(threads);
        std::vector<double> work = input;
        for (int pass = 0; pass < 2; ++pass)
          Ipg_LeePass(work.data(), cols, rows, noise);
        EXPECT_EQ(work, expected) << cols << "x" << rows << " simd " << simd << " threads " << threads;
      }
    Ipg_SetSimdEnabled(true);
    Ipg_SetNumThreads(0);
  }
}

// The noise variance is the basic statistics' (marks left out, divided by the
// precision), and a flat input shows their message.
TEST(IpgSpeckleFilters, LeeTakesTheNoiseVarianceOfTheBasicStatistics)
{
  std::mt19937 random(6);
  std::uniform_int_distribution<int> level(0, 3000);
  const int cols = 400, rows = 350; // two bands of rows at two threads
  auto in = TestImage(cols, rows).Each([&](unsigned, unsigned) { return level(random); }).Build();
  in->Data->GetIDataAddress()[77] = 16777220; // a mark
  for (const short precision : {short{1}, short{10}}) {
    in->Data->SetPrecision(precision);
    IPG_STATISTIC1 statistics(in.get());
    statistics.SetTools(6);
    statistics.Apply();
    const int* p = in->Data->GetIDataAddress();
    std::vector<double> work(p, p + in->Data->GetSize());
    Ipg_LeePass(work.data(), cols, rows, statistics.GetVariance());
    for (const int threads : {1, 2}) {
      Ipg_SetNumThreads(threads);
      const std::vector<int> filtered = Filtered(*in, 513);
      for (std::size_t i = 0; i < work.size(); ++i)
        ASSERT_EQ(filtered[i], static_cast<int>(work[i])) << i << " precision " << precision << " threads " << threads;
    }
    Ipg_SetNumThreads(0);
  }
  MessageCapture capture;
  auto flat = TestImage(5, 5).Fill(3).Build();
  Filtered(*flat, 513);
  EXPECT_EQ(capture.Texts, std::vector<std::string>{"problème : variance négative"});
}

// The despeckling passes run in row bands: any thread count gives the same pixels.
TEST(IpgSpeckleFilters, DespecklingIsTheSameAtAnyThreadCount)
{
  std::mt19937 random(8);
  std::exponential_distribution<double> speckle(1.0 / 800.0);
  auto in = TestImage(160, 120).Each([&](unsigned c, unsigned) { return static_cast<int>(speckle(random)) + (c > 80 ? 900 : 0); }).Build();
  for (const int code : {509, 519, 518, 511, 512, 520, 521}) {
    std::vector<int> first;
    for (const int threads : {1, 2, 7}) {
      Ipg_SetNumThreads(threads);
      const std::vector<int> out = Filtered(*in, code, 2, 0.0, true);
      if (first.empty())
        first = out;
      EXPECT_EQ(out, first) << code << " threads " << threads;
    }
  }
  Ipg_SetNumThreads(0);
}

TEST(IpgSpeckleFilters, KuanReadsTheUnchangedInputAndDoesNotClip)
{
  auto in = SpikeStrip();
  // (1,1) and (2,1): mean 20, variance 800, w = 0.5 (1 - 20/800) = 0.4875;
  // (3,1): flat, the mean.
  const std::vector<int> expected{10, 10, 10, 10, 10, 10, 59, 15, 10, 10, 10, 10, 10, 10, 10};
  EXPECT_EQ(Filtered(*in, 517), expected);
  EXPECT_EQ(Filtered(*in, 517, 3), expected); // every pass computes the same

  // Mean 93/9, variance 8/9: w = -5.3125, -3.83 truncated toward zero.
  auto faint = TestImage(3, 3).Fill(10).At(1, 1, 13).Build();
  EXPECT_EQ(Filtered(*faint, 517)[4], -3);
}

TEST(IpgSpeckleFilters, FrostKeepsFlatAreasAndTheFrame)
{
  auto flat = TestImage(6, 6).Fill(321).Build();
  EXPECT_EQ(Filtered(*flat, 516, 3), PixelsOf(*flat));

  auto in = Step(12, 9);
  in->Data->SetValue(4u, 4u, 180);
  const std::vector<int> out = Filtered(*in, 516);
  for (unsigned r = 0; r < 9; ++r)
    for (unsigned c = 0; c < 12; ++c)
      if (r < 2 || r > 6 || c == 0 || c > 8) { // the written positions are c - 1 of columns 2..9
        EXPECT_EQ(out[r * 12 + c], in->Data->GetValue(c, r)) << c << "," << r;
      }
  EXPECT_EQ(Filtered(*in, 516, 0), PixelsOf(*in));
}

TEST(IpgSpeckleFilters, FrameRulesProgressAndNoRoi)
{
  auto in = SpikeStrip();
  auto roi = TestImage(5, 3).Build(); // selects nothing: the speckle filters ignore it
  for (const auto& [code, label] : {std::pair{513, "LEE FILTER"}, std::pair{516, "FROST FILTER"}, std::pair{517, "KUAN FILTER"}}) {
    ProgressCapture sink;
    DCM_STRUCT out(*in, false);
    IPG_FILTER_PROCESSING filter(in.get(), roi.get());
    filter.SetImaOut(&out);
    filter.SetTools(code);
    filter.SetNbrOfIter(2);
    ASSERT_EQ(filter.Apply(), 1) << code;
    EXPECT_EQ(sink.Events, (std::vector<std::string>{"open " + std::string(label) + " 2", "step 1", "step 2", "close"}));
    EXPECT_EQ(out.Data->GetMax(), 0) << code; // extremes are not recomputed
    if (code != 516) { // Frost's 5x5 window does not fit in three rows
      EXPECT_NE(out.Data->GetValue(1u, 1u), 100) << code;
    }
  }
}

} // namespace
