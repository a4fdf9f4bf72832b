// SPDX-License-Identifier: Apache-2.0
#include "ipg/filtering/ipg_filter_processing.h"
#include "ipg/framework/ipg_threads.h"
#include "ipg/internal/ipg_simd.h"
#include "ipg/internal/ipg_guard.h"
#include "support/images.h"
#include "support/message_capture.h"
#include "support/progress_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

using Pixels = std::vector<int>;
constexpr int kMark = 16777217;
const char* kNoOutput = "image de sortie non allouée";
const char* kSizeMessage = "Les images n'ont pas les mêmes dimensions : IPG_FILTER_PROCESSING::Apply()";

std::unique_ptr<DCM_STRUCT> Constant(unsigned cols, unsigned rows, int v) { return TestImage(cols, rows).Fill(v).Build(); }

int At(const DCM_STRUCT& image, int c, int r) { return image.Data->GetValue(c, r); }

// An operator on in writing into a fresh output of the same size; Mode 302 keeps
// the computed values (only the extremes are re-measured).
struct Filtering {
  explicit Filtering(std::unique_ptr<DCM_STRUCT> input, DCM_STRUCT* roi = nullptr)
      : In(std::move(input)), Out(std::make_unique<DCM_STRUCT>(*In, false)), Op(In.get(), roi)
  {
    Op.SetImaOut(Out.get());
    Op.SetMode(302);
  }
  std::unique_ptr<DCM_STRUCT> In;
  std::unique_ptr<DCM_STRUCT> Out;
  IPG_FILTER_PROCESSING Op;
};

void SetUser(IPG_FILTER_PROCESSING& op, std::vector<int> k, int sx, int sy) { op.SetUserFilter(k.data(), sx, sy); }

// The sheared 25-value window of the mean and edge filters, read literally: the
// value for visited position p is written at p - 1 into the work array.
Pixels ShearedReference(Pixels w, int cols, int rows, int passes, bool edge)
{
  for (int pass = 0; pass < passes; ++pass)
    for (int r = 2; r <= rows - 3; ++r)
      for (int c = 2; c <= cols - 3; ++c) {
        const long p = static_cast<long>(r) * cols + c;
        const long at = p - 1;
        long long sum = 0;
        for (int dr = -2; dr <= 2; ++dr)
          for (int off = -dr - 2; off <= -dr + 2; ++off) {
            const long long x = w[at + static_cast<long>(dr) * cols + off];
            sum += edge ? std::llabs(w[p] - x) : x;
          }
        w[at] = edge ? static_cast<int>(sum / 24.0) : static_cast<int>(sum * 0.04);
      }
  return w;
}

std::unique_ptr<DCM_STRUCT> Random(int cols, int rows, unsigned seed, double markShare)
{
  std::mt19937 gen(seed);
  std::uniform_int_distribution<int> grey(-3000, 60000);
  std::uniform_real_distribution<double> share(0.0, 1.0);
  return ImageOf(cols, rows, [&](int, int) { return share(gen) < markShare ? kMark + 5 : grey(gen); });
}

} // namespace

TEST(IpgFilterProcessing, DefaultsAndCopySemantics)
{
  Filtering run(Constant(8, 8, 1));
  IPG_FILTER_PROCESSING& op = run.Op;
  EXPECT_EQ(op.GetLaplacianGaussianSize(), 13);
  EXPECT_DOUBLE_EQ(op.GetLaplacianGaussianSigma(), 1.4);
  op.SetGradientFlagDirection(true);
  op.SetLaplacianGaussianSize(7);
  op.SetNbrOfIter(4);
  op.setWaitbarVisible(false);
  ASSERT_EQ((op.SetTools(503), op.Apply()), 1);
  IPG_FILTER_PROCESSING copy(op);
  EXPECT_EQ(copy.GetTools(), 0.0);
  EXPECT_EQ(copy.GetImaIn(), nullptr);
  EXPECT_EQ(copy.GetDefineFilter(), nullptr);
  EXPECT_TRUE(copy.GetGradientFlagDirection());
  EXPECT_EQ(copy.GetGradientXGradient(), op.GetGradientXGradient()); // shared, not duplicated
  EXPECT_EQ(copy.GetLaplacianGaussianSize(), 7);
  EXPECT_EQ(copy.GetNbIter(), 1);
  EXPECT_TRUE(copy.GetWaitbarVisible());
}

TEST(IpgFilterProcessing, BoxOnConstantImageHonoursTheBorderType)
{
  Filtering run(Constant(6, 5, 100));
  for (auto [border, frame] : {std::pair{0, 0}, std::pair{3, 17000000}}) {
    run.Op.SetImageBorderType(border);
    ASSERT_EQ(run.Op.Apply(), 1);
    EXPECT_EQ(At(*run.Out, 1, 1), 100);
    EXPECT_EQ(At(*run.Out, 4, 3), 100);
    EXPECT_EQ(At(*run.Out, 0, 2), frame);
    EXPECT_EQ(At(*run.Out, 5, 4), frame);
  }

  run.Op.SetImageBorderType(2); // the frame keeps what was there
  run.Out->Data->Init(7);
  ASSERT_TRUE(run.Op.ApplyFilter(run.Op.GetDefineFilter()));
  EXPECT_EQ(At(*run.Out, 0, 0), 7);
  EXPECT_EQ(At(*run.Out, 3, 3), 100);

  run.Op.SetMode(301); // then re-scaled: 100 is the maximum, the frame 7 the minimum
  ASSERT_TRUE(run.Op.ApplyFilter(run.Op.GetDefineFilter()));
  EXPECT_EQ(At(*run.Out, 3, 3), 65536);
  EXPECT_EQ(At(*run.Out, 0, 0), 0);
}

TEST(IpgFilterProcessing, MarksAreCopiedAndLeftOutOfSumAndNorm)
{
  Filtering run(TestImage(5, 5).Fill(90).At(1, 1, kMark));
  ASSERT_EQ(run.Op.Apply(), 1);
  EXPECT_EQ(At(*run.Out, 2, 2), 90); // eight 90s over eight weights
  EXPECT_EQ(At(*run.Out, 1, 1), kMark);

  // Kernel 2 (weights 1 2 1 / 2 4 2 / 1 2 1): a marked corner of value 0 weight.
  Filtering weighted(ImageOf(3, 3, [](int c, int r) { return c == 0 && r == 0 ? kMark + 1 : 10 * (c + 3 * r); }));
  ASSERT_EQ((weighted.Op.SetDefinedFilter(2), weighted.Op.Apply()), 1);
  // (20*10 + 1*20 + 2*30 + 4*40 + 2*50 + 1*60 + 2*70 + 1*80) / 15
  EXPECT_EQ(At(*weighted.Out, 1, 1), (2 * 10 + 20 + 2 * 30 + 4 * 40 + 2 * 50 + 60 + 2 * 70 + 80) / 15);
}

TEST(IpgFilterProcessing, RoiSelectsThePixelsThatAreFiltered)
{
  auto roi = ImageOf(5, 5, [](int c, int) { return c < 3 ? kMark : 1; });
  Filtering run(ImageOf(5, 5, [](int c, int r) { return c * 10 + r; }), roi.get());
  ASSERT_EQ(run.Op.Apply(), 1);
  EXPECT_EQ(At(*run.Out, 2, 2), 22); // a plane is its own mean
  EXPECT_EQ(At(*run.Out, 3, 2), 32); // outside: the input value
  EXPECT_EQ(At(*run.Out, 3, 1), 31);
}

TEST(IpgFilterProcessing, ZeroSumAndNegativeSumKernels)
{
  Filtering ramp(ImageOf(5, 4, [](int c, int) { return c; }));
  ASSERT_EQ((ramp.Op.SetDefinedFilter(6), ramp.Op.Apply()), 1);
  EXPECT_EQ(At(*ramp.Out, 2, 1), 8); // sum 8, norm 0 taken as 1
  ASSERT_EQ((ramp.Op.SetDefinedFilter(7), ramp.Op.Apply()), 1);
  EXPECT_EQ(At(*ramp.Out, 3, 2), -8);

  Filtering negative(Constant(3, 3, 50));
  SetUser(negative.Op, {0, 0, 0, 0, -2, 0, 0, 0, 0}, 3, 3);
  ASSERT_EQ((negative.Op.SetTools(501), negative.Op.Apply()), 1);
  EXPECT_EQ(At(*negative.Out, 1, 1), -50); // the norm is |-2|

  // A 3x1 kernel: only the columns move.
  Filtering line(ImageOf(4, 2, [](int c, int) { return c * c * 4; }));
  SetUser(line.Op, {1, 2, 1}, 3, 1);
  ASSERT_EQ((line.Op.SetTools(501), line.Op.Apply()), 1);
  EXPECT_EQ(At(*line.Out, 1, 0), (0 + 8 + 16) / 4);
  EXPECT_EQ(At(*line.Out, 2, 1), (4 + 32 + 36) / 4);
}

TEST(IpgFilterProcessing, SumsAreCarriedInSinglePrecision)
{
  const int v = 16777215; // above 2^24 sums lose their last bits in single precision
  Filtering run(Constant(3, 3, v));
  ASSERT_EQ(run.Op.Apply(), 1);
  float sum = 0.0f;
  for (int k = 0; k < 9; ++k)
    sum += v * 1.0;
  EXPECT_EQ(At(*run.Out, 1, 1), static_cast<int>(sum / 9.0f));
  EXPECT_NE(At(*run.Out, 1, 1), v);
}

TEST(IpgFilterProcessing, FastConvolutionGivesThePlainPixels)
{
  double deriche[25];
  for (int k = 0; k < 25; ++k)
    deriche[k] = std::sin(k * 0.7) * 3.3;
  int wide[15] = {1, 0, -2, 3, 1, 0, 5, 9, 5, 0, 1, 3, -2, 0, 1};
  std::vector<std::unique_ptr<IPG_FILTER>> kernels;
  for (int number : {0, 2, 4, 6, 22, 51, 102, 209})
    kernels.push_back(std::make_unique<IPG_FILTER>(number));
  kernels.push_back(std::make_unique<IPG_FILTER>(deriche, 5, 5));
  kernels.push_back(std::make_unique<IPG_FILTER>(wide, 5, 3));

  unsigned seed = 1;
  for (double markShare : {0.0, 0.02}) {
    for (bool withRoi : {false, true}) {
      auto in = Random(37, 23, seed++, markShare);
      auto roi = Random(37, 23, seed++, 0.7); // about 70% inside
      auto fast = std::make_unique<DCM_STRUCT>(*in, false), plain = std::make_unique<DCM_STRUCT>(*in, false);
      IPG_FILTER_PROCESSING op(in.get(), withRoi ? roi.get() : nullptr);
      op.SetMode(302);
      for (int border : {0, 2, 3}) {
        op.SetImageBorderType(border);
        for (const auto& kernel : kernels) {
          SCOPED_TRACE("marks " + std::to_string(markShare) + " roi " + std::to_string(withRoi) + " border " +
                       std::to_string(border) + " kernel " + std::to_string(kernel->GetSizeX()));
          op.SetImaOut(fast.get());
          ASSERT_TRUE(op.ApplyFilter(kernel.get()));
          op.SetImaOut(plain.get());
          ASSERT_TRUE(op.ApplyFilterPlain(kernel.get()));
          ASSERT_EQ(PixelsOf(*fast), PixelsOf(*plain));
          ASSERT_EQ(std::pair(fast->Data->GetMin(), fast->Data->GetMax()),
                    std::pair(plain->Data->GetMin(), plain->Data->GetMax()));
        }
      }
    }
  }
}

// Separable kernels (pivot 1, -1 and 2) and others, on an image cut into bands.
TEST(IpgFilterProcessing, FastConvolutionGivesThePlainPixelsOnAnyThreadCount)
{
  int scaled[9] = {2, 4, 2, 4, 8, 4, 2, 4, 2};
  std::vector<std::unique_ptr<IPG_FILTER>> kernels;
  for (int number : {0, 2, 6, 22, 100})
    kernels.push_back(std::make_unique<IPG_FILTER>(number));
  kernels.push_back(std::make_unique<IPG_FILTER>(scaled, 3, 3));
  for (double markShare : {0.0, 0.0005}) {
    auto in = Random(1100, 130, 77, markShare);
    // Rows 40 to 44 hold levels whose window sums leave the integers of single
    // precision: windows over them sum in floats, the others in integers.
    int* rows40 = in->Data->GetIDataAddress() + 40 * 1100;
    std::transform(rows40, rows40 + 5 * 1100, rows40, [](int v) { return v < kMark ? v * 250 : v; });
    auto plain = std::make_unique<DCM_STRUCT>(*in, false);
    IPG_FILTER_PROCESSING op(in.get());
    op.SetMode(302);
    for (const auto& kernel : kernels) {
      op.SetImaOut(plain.get());
      ASSERT_TRUE(op.ApplyFilterPlain(kernel.get()));
      for (const auto& [threads, simd] : {std::pair{1, false}, std::pair{2, true}, std::pair{7, true}}) {
        Ipg_SetNumThreads(threads);
        Ipg_SetSimdEnabled(simd);
        auto fast = std::make_unique<DCM_STRUCT>(*in, false);
        op.SetImaOut(fast.get());
        ASSERT_TRUE(op.ApplyFilter(kernel.get()));
        EXPECT_EQ(PixelsOf(*fast), PixelsOf(*plain)) << "kernel " << kernel->GetSizeX() << " threads " << threads;
        EXPECT_EQ(std::pair(fast->Data->GetMin(), fast->Data->GetMax()),
                  std::pair(plain->Data->GetMin(), plain->Data->GetMax()));
      }
    }
  }
  Ipg_SetNumThreads(0);
  Ipg_SetSimdEnabled(true);
}

TEST(IpgFilterProcessing, FailureRowsShowTheirMessages)
{
  MessageCapture capture;
  auto in = Constant(6, 6, 10);
  IPG_FILTER_PROCESSING op(in.get());
  op.SetMode(302);
  EXPECT_EQ(op.Apply(), 0); // no output: silent
  DCM_STRUCT bothDiffer(5, 7), oneDiffers(6, 4), out(6, 6);
  op.SetImaOut(&bothDiffer);
  EXPECT_EQ(op.Apply(), 0);
  op.SetImaOut(&oneDiffers); // one equal dimension passes
  EXPECT_EQ(op.Apply(), 1);
  EXPECT_EQ(At(oneDiffers, 2, 2), 10);
  EXPECT_EQ(capture.Texts, std::vector<std::string>{kSizeMessage});

  op.SetImaOut(&out);
  EXPECT_EQ((op.SetTools(501), op.Apply()), 0);
  int even[4] = {1, 1, 1, 1};
  IPG_FILTER evenKernel(even, 2, 2);
  EXPECT_FALSE(op.ApplyFilter(&evenKernel)); // silent
  EXPECT_FALSE(op.ApplyFilter(nullptr));
  op.SetImaOut(nullptr);
  EXPECT_FALSE(op.ApplyFilter(op.GetDefineFilter()));
  EXPECT_FALSE(op.DericheDerivative());
  op.SetImaOut(&out);
  op.SetLaplacianGaussianSigma(0.0);
  EXPECT_FALSE(op.LaplacianGaussian());
  op.SetLaplacianGaussianSigma(1.0);
  op.SetLaplacianGaussianSize(0);
  EXPECT_FALSE(op.LaplacianGaussian());
  SetUser(op, {1, 1, 1, 1, 1, 1}, 2, 3);
  EXPECT_FALSE(op.MedianFilter());
  EXPECT_EQ(capture.Texts,
            (std::vector<std::string>{kSizeMessage, "Le filtre utilisateur n'est pas défini", kNoOutput, kNoOutput,
                                      "Erreur d'application du lissage", "Erreur : sigma négatif ou nul",
                                      "Erreur : taile du filtre négative ou nulle",
                                      "Erreur de parité du filtre médian !"}));
  EXPECT_EQ(capture.Captions, std::vector<std::string>(capture.Texts.size(), "Information"));
}

TEST(IpgFilterProcessing, ApplyReturnRulesPerCode)
{
  MessageCapture capture;
  auto in = Constant(8, 8, 10);
  DCM_STRUCT colour(8, 8);
  DCM_HEADER header = colour.GetHeader();
  header.PhotometricInterpretation = 2;
  colour.SetHeader(header);
  IPG_FILTER_PROCESSING op(in.get());
  op.SetImaOut(&colour);
  for (int code : {500, 502, 506, 508}) // 1 even though the operation failed
    EXPECT_EQ((op.SetTools(code), op.Apply()), 1) << code;
  EXPECT_EQ((op.SetTools(507), op.Apply()), 0);
  const size_t messages = capture.Texts.size();
  for (int code : {499, 522})
    EXPECT_EQ((op.SetTools(code), op.Apply()), 0) << code;
  EXPECT_EQ(capture.Texts.size(), messages);
}

TEST(IpgFilterProcessing, DericheDerivativeGradientsAndDirection)
{
  const int n = 16;
  Filtering run(ImageOf(n, n, [](int c, int r) { return c < 8 ? 0 : (r < 10 ? 1000 : 3000); }));
  run.Op.SetMode(301);
  run.Op.SetGradientFlagDirection(true);
  ASSERT_EQ((run.Op.SetTools(503), run.Op.Apply()), 1);
  EXPECT_EQ(run.Op.GetMode(), 304);
  const DCM_STRUCT* gx = run.Op.GetGradientXGradient();
  const DCM_STRUCT* gy = run.Op.GetGradientYGradient();
  const double* angle = run.Op.GetGradientDirectionMatrix();
  ASSERT_TRUE(gx && gy && angle);
  for (int r = 0; r < n; ++r)
    for (int c = 0; c < n; ++c) {
      const int x = At(*gx, c, r), y = At(*gy, c, r);
      EXPECT_DOUBLE_EQ(angle[r * n + c], (x == 0 && y == 0) ? 0.0 : std::atan2(y, x));
      const long long m = 1LL * x * x + 1LL * y * y;
      if (m <= INT32_MAX) {
        EXPECT_EQ(At(*run.Out, c, r), static_cast<int>(std::sqrt(static_cast<double>(m))));
      }
    }
  EXPECT_EQ(angle[2 * n + 2], 0.0); // flat corner
  EXPECT_NE(At(*gx, 8, 5), 0); // the vertical edge: a horizontal gradient only
  EXPECT_EQ(At(*gy, 8, 5), 0);
  EXPECT_NE(At(*gy, 12, 10), 0); // the horizontal edge: a vertical gradient only
  EXPECT_EQ(At(*gx, 12, 10), 0);
  ASSERT_TRUE(run.Op.DericheDerivative()); // a second run replaces the gradients
}

TEST(IpgFilterProcessing, GaussianWeighsBySquaredDistance)
{
  Filtering run(TestImage(5, 5).At(2, 2, 1200));
  EXPECT_FALSE(run.Op.GaussianFilter(4));
  EXPECT_FALSE(run.Op.GaussianFilter(0));
  ASSERT_TRUE(run.Op.GaussianFilter(3)); // sigma 0.5: corners 1/6, sides 1/12, centre 0
  EXPECT_EQ(At(*run.Out, 2, 2), 0);
  EXPECT_NEAR(At(*run.Out, 1, 1), 200, 1);
  EXPECT_NEAR(At(*run.Out, 2, 1), 100, 1);
  EXPECT_NEAR(At(*run.Out, 3, 2), 100, 1);
}

TEST(IpgFilterProcessing, LaplacianOfGaussianMarksTheSelectedLobe)
{
  // A bright blob gives a negative response inside, a positive one just outside.
  for (int type : {0, 1}) {
    Filtering run(TestImage(19, 19).Rect(7, 7, 5, 5, 1000));
    run.Op.SetLaplacianGaussianSize(7);
    run.Op.SetLaplacianGaussianSigma(1.0);
    run.Op.SetLaplacianGaussianSigmaType(type);
    ASSERT_EQ((run.Op.SetTools(507), run.Op.Apply()), 1);
    EXPECT_EQ(At(*run.Out, 9, 9), type == 0 ? kMark : 0);
    EXPECT_EQ(At(*run.Out, 5, 9), type == 0 ? 0 : kMark);
    EXPECT_EQ(At(*run.Out, 1, 1), 0); // frame
  }
}

TEST(IpgFilterProcessing, MedianRemovesImpulsesAndReportsProgress)
{
  ProgressCapture progress;
  Filtering run(ImageOf(6, 5, [](int c, int r) { return c == 2 && r == 2 ? 5000 : 40 + c; }));
  SetUser(run.Op, std::vector<int>(9, 1), 3, 3);
  ASSERT_TRUE(run.Op.MedianFilter());
  EXPECT_EQ(At(*run.Out, 2, 2), 42);
  EXPECT_EQ(progress.Events,
            (std::vector<std::string>{"open filtrage Médian 3", "step ", "step ", "step ", "close"}));
  // The user kernel's array holds the last window (centre (4, 3)), sorted.
  const int* window = run.Op.GetUserFilter()->GetDataFilter();
  EXPECT_EQ(std::vector<int>(window, window + 9), (std::vector<int>{43, 43, 43, 44, 44, 44, 45, 45, 45}));

  progress.Events.clear();
  run.Op.setWaitbarVisible(false);
  ASSERT_TRUE(run.Op.MedianFilter());
  EXPECT_TRUE(progress.Events.empty());
}

TEST(IpgFilterProcessing, MedianIsTheMiddleOfTheSortedWindow)
{
  const int cols = 13, rows = 11;
  for (auto [sx, sy] : {std::pair{3, 3}, std::pair{5, 5}, std::pair{7, 7}, std::pair{9, 9}, std::pair{5, 3},
                        std::pair{1, 5}}) {
    for (unsigned seed : {5u, 6u}) {
      std::mt19937 gen(seed);
      std::uniform_int_distribution<int> grey(-4, 4); // many ties
      auto in = ImageOf(cols, rows, [&](int, int) { return grey(gen) * 1000 + (seed == 6u ? 0 : grey(gen)); });
      in->Data->SetValue(6, 5, INT32_MAX);
      Filtering run(std::make_unique<DCM_STRUCT>(*in, true));
      SetUser(run.Op, std::vector<int>(sx * sy, 1), sx, sy);
      ASSERT_TRUE(run.Op.MedianFilter());
      const int hx = sx / 2, hy = sy / 2;
      for (int r = hy; r < rows - hy; ++r)
        for (int c = hx; c < cols - hx; ++c) {
          std::vector<int> window;
          for (int dy = -hy; dy <= hy; ++dy)
            for (int dx = -hx; dx <= hx; ++dx)
              window.push_back(At(*in, c + dx, r + dy));
          std::sort(window.begin(), window.end());
          ASSERT_EQ(At(*run.Out, c, r), window[window.size() / 2]) << sx << "x" << sy << " " << c << "," << r;
        }
      const std::vector<int> pixels = PixelsOf(*run.Out);
      const auto [low, high] = std::minmax_element(pixels.begin(), pixels.end());
      EXPECT_EQ(std::pair(run.Out->Data->GetMin(), run.Out->Data->GetMax()), std::pair(*low, *high));
    }
  }
}

TEST(IpgFilterProcessing, Code505RunsNagaoOnTheMedianResult)
{
  auto make = [] { return Random(14, 12, 77, 0.0); };
  Filtering chain(make()), median(make());
  SetUser(chain.Op, std::vector<int>(9, 1), 3, 3);
  chain.Op.setWaitbarVisible(false);
  ASSERT_EQ((chain.Op.SetTools(505), chain.Op.Apply()), 1);
  SetUser(median.Op, std::vector<int>(9, 1), 3, 3);
  median.Op.setWaitbarVisible(false);
  ASSERT_TRUE(median.Op.MedianFilter());
  Filtering nagao(std::make_unique<DCM_STRUCT>(*median.Out, true));
  ASSERT_TRUE(nagao.Op.Nagao_5_x_5());
  EXPECT_EQ(PixelsOf(*chain.Out), PixelsOf(*nagao.Out));

  MessageCapture capture; // without a user kernel the chain reports the median's failure
  Filtering noKernel(make());
  EXPECT_EQ((noKernel.Op.SetTools(505), noKernel.Op.Apply()), 0);
  EXPECT_EQ(capture.Texts.at(0), "Le filtre utilisateur n'est pas défini");
}

TEST(IpgFilterProcessing, MeanAndEdgeFiltersFollowTheShearedWindow)
{
  for (int passes : {0, 1, 3}) {
    auto in = Random(11, 9, 40 + passes, 0.0);
    const Pixels input = PixelsOf(*in);
    Filtering mean(std::make_unique<DCM_STRUCT>(*in, true));
    mean.Op.SetNbIter(passes);
    ASSERT_EQ((mean.Op.SetTools(515), mean.Op.Apply()), 1);
    EXPECT_EQ(PixelsOf(*mean.Out), ShearedReference(input, 11, 9, passes, false)) << passes;

    Filtering edge(std::make_unique<DCM_STRUCT>(*in, true));
    edge.Op.SetNbrOfIter(passes);
    ASSERT_EQ((edge.Op.SetTools(514), edge.Op.Apply()), 1);
    EXPECT_EQ(PixelsOf(*edge.Out), ShearedReference(input, 11, 9, passes, true)) << passes;
  }
  // On a flat image the first window sees no difference; the next one sees the
  // zero just written, and the frame keeps the input.
  Filtering flat(Constant(7, 7, 250));
  ASSERT_EQ((flat.Op.SetTools(514), flat.Op.Apply()), 1);
  EXPECT_EQ(At(*flat.Out, 1, 2), 0);
  EXPECT_EQ(At(*flat.Out, 2, 2), 10); // 250 / 24
  EXPECT_EQ(At(*flat.Out, 3, 5), 250);

  ProgressCapture progress; // shown even when the wait bar is hidden
  flat.Op.setWaitbarVisible(false);
  flat.Op.SetNbIter(2);
  ASSERT_TRUE(flat.Op.MeanFilter());
  ASSERT_TRUE(flat.Op.EdgeDetection());
  EXPECT_EQ(progress.Events, (std::vector<std::string>{"open AVREAGING FILTER 2", "step 1", "step 2", "close",
                                                       "open EDGE FILTER DETECTION 2", "step 1", "step 2",
                                                       "close"}));
}

TEST(IpgFilterProcessing, NagaoPreservesEdgesAndSmoothsFlatNoise)
{
  Filtering step(TestImage(12, 10).Rect(6, 0, 6, 10, 1000));
  ASSERT_EQ((step.Op.SetTools(506), step.Op.Apply()), 1);
  for (int r = 2; r < 8; ++r)
    for (int c = 2; c < 10; ++c)
      EXPECT_EQ(At(*step.Out, c, r), c < 6 ? 0 : 1000) << c << "," << r;

  // A lone impulse lies in every region: the 3x3 square has the least variance.
  // Next to it the region turned away has variance 0.
  Filtering impulse(TestImage(7, 7).At(3, 3, 900));
  ASSERT_TRUE(impulse.Op.Nagao_5_x_5());
  EXPECT_EQ(At(*impulse.Out, 3, 3), 100);
  EXPECT_EQ(At(*impulse.Out, 2, 3), 0);

  // Regions holding a mark are skipped; a marked pixel is copied.
  Filtering marked(ImageOf(7, 7, [](int c, int r) { return c == 3 && r == 2 ? kMark : (r >= 3 ? 60 : 20); }));
  ASSERT_TRUE(marked.Op.Nagao_5_x_5());
  EXPECT_EQ(At(*marked.Out, 3, 2), kMark);
  EXPECT_EQ(At(*marked.Out, 3, 3), 60);
}

TEST(IpgFilterProcessing, Chi2IsZeroWhereTheTextureMatchesTheImage)
{
  // Each 3x3 window of a period-3 pattern holds each grey level three times,
  // like the 9x9 image as a whole.
  auto pattern = [](int c, int r) { return ((c + 2 * r) % 3) * 100; };
  Filtering run(ImageOf(9, 9, pattern));
  ASSERT_EQ((run.Op.SetTools(508), run.Op.Apply()), 1);
  const float* chi2 = run.Op.GetChi2InFloat();
  ASSERT_NE(chi2, nullptr);
  for (int r = 1; r < 8; ++r)
    for (int c = 1; c < 8; ++c) {
      EXPECT_FLOAT_EQ(chi2[r * 9 + c], 0.0f);
      EXPECT_EQ(At(*run.Out, c, r), 0);
    }

  // A uniform patch of a grey level the rest of the image lacks deviates.
  Filtering patch(ImageOf(9, 9, [&](int c, int r) { return c >= 3 && c <= 5 && r >= 3 && r <= 5 ? 250 : pattern(c, r); }));
  ASSERT_EQ((patch.Op.SetTools(508), patch.Op.Apply()), 1);
  const float* d = patch.Op.GetChi2InFloat();
  // Centre window: all nine in the patch bin, q = 9/81 there; the other bins hold 72/81.
  const double q = 9.0 / 81.0;
  const double expected = (1.0 - q) * (1.0 - q) / (1.0 + q) + (1.0 - q);
  EXPECT_NEAR(d[4 * 9 + 4], expected, 1e-5);
  EXPECT_NEAR(At(*patch.Out, 4, 4), d[4 * 9 + 4] * 8388608.0, 2.0);
  EXPECT_GT(d[2 * 9 + 2], 0.0f);
  EXPECT_FLOAT_EQ(d[0], 0.0f); // frame not computed
}

// Sizes that no image allows are refused at once, before any buffer or pass:
// the pass count of every iterative filter, and the neighbourhood filter's
// region and tolerance.
TEST(IpgFilterProcessing, HugePassCountsAndRegionsAreRefusedAtOnce)
{
  auto in = Random(16, 16, 3, 0.0);
  for (int code : {513, 514, 515, 516, 517, 509, 510, 511, 512, 518, 519, 520, 521, 504}) {
    SCOPED_TRACE(code);
    MessageCapture capture;
    Filtering run(std::make_unique<DCM_STRUCT>(*in, true));
    run.Op.SetNbIter(2147483647);
    EXPECT_EQ((run.Op.SetTools(code), run.Op.Apply()), 0);
    EXPECT_EQ(capture.Texts, std::vector<std::string>{"Paramètre NbIter hors limites : IPG_FILTER_PROCESSING::Apply()"});
  }
  const double inf = std::numeric_limits<double>::infinity();
  for (double tolerance : {inf, std::nan(""), 2.0}) {
    MessageCapture capture;
    Filtering run(std::make_unique<DCM_STRUCT>(*in, true));
    run.Op.SetAdaptatifFiltreParameters(tolerance == 2.0 ? 257 : 49, 2147483647, tolerance); // 257 > 16 x 16
    EXPECT_EQ((run.Op.SetTools(510), run.Op.Apply()), 0) << tolerance;
    EXPECT_EQ(capture.Texts, std::vector<std::string>{"Paramètre de filtrage incorrect : IPG_FILTER_PROCESSING::N_B_Filter()"});
  }
}

// A host's cancel stops every long filter at its next row or pass, with the
// cancellation message and a false result; Lee's output is still the input.
TEST(IpgFilterProcessing, LongFiltersStopWhenTheHostCancels)
{
  auto in = Random(24, 24, 5, 0.0);
  for (int code : {513, 515, 516, 517, 511, 519, 505}) {
    SCOPED_TRACE(code);
    MessageCapture capture;
    ProgressCapture progress;
    progress.CancelAfter = 3;
    Filtering run(std::make_unique<DCM_STRUCT>(*in, true));
    SetUser(run.Op, std::vector<int>(9, 1), 3, 3);
    run.Op.SetNbIter(kIpgMaxPasses);
    EXPECT_EQ((run.Op.SetTools(code), run.Op.Apply()), 0);
    EXPECT_EQ(progress.Steps, 3);
    EXPECT_EQ(progress.Events.back(), "close");
    EXPECT_EQ(capture.Texts, std::vector<std::string>{"Opération annulée par l'utilisateur"});
    if (code == 513) {
      EXPECT_EQ(PixelsOf(*run.Out), PixelsOf(*in));
    }
  }
}
