// SPDX-License-Identifier: Apache-2.0
// The banded point-operation walk gives the pixels and extremes of a plain
// per-pixel walk through GetValueReal/SetValue, for every thread count.
#include "ipg/arithmetic/ipg_arithmetic1.h"
#include "ipg/arithmetic/ipg_arithmetic2.h"
#include "ipg/arithmetic/ipg_change_dynamic.h"
#include "ipg/filtering/ipg_filter_processing.h"
#include "ipg/filtering/ipg_generic_processing.h"
#include "ipg/framework/ipg_threads.h"
#include "ipg/measurement/ipg_statistic1.h"
#include "ipg/measurement/ipg_statistic2.h"
#include "ipg/internal/ipg_output_mode.h"
#include "ipg/internal/ipg_simd.h"
#include "ipg/internal/ipg_streamed_writes.h"
#include "support/images.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cmath>
#include <cstdlib>
#include <random>
#include <tuple>

namespace {

// Large enough for seven bands of rows; rows of an odd length start anywhere
// in a vector.
constexpr unsigned kCols = 1001, kRows = 450;

std::unique_ptr<DCM_STRUCT> RandomImage(unsigned seed, int low, int high)
{
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> level(low, high);
  auto image = TestImage(kCols, kRows).Each([&](unsigned, unsigned) { return level(random); }).Build();
  image->Data->GetIDataAddress()[17] = 16777217; // a mark
  image->Data->GetIDataAddress()[99] = -2147483647 - 1;
  return image;
}

std::unique_ptr<DCM_STRUCT> RandomRoi(unsigned seed)
{
  std::mt19937 random(seed);
  return TestImage(kCols, kRows).Each([&](unsigned, unsigned) { return random() % 3 == 0 ? 0 : kRoiInside; }).Build();
}

// Runs at seven threads stream their writes, as walks beyond the cache do.
struct StreamedAtSeven {
  explicit StreamedAtSeven(int threads) : Before(Ipg_SetStreamedWritesFrom(threads == 7 ? 0 : SIZE_MAX)) {}
  ~StreamedAtSeven() { Ipg_SetStreamedWritesFrom(Before); }
  std::size_t Before;
};

struct Outcome {
  std::vector<int> Pixels;
  int Min, Max;
  bool Applied;
  bool operator==(const Outcome&) const = default;
};

Outcome RunCode(int code, DCM_STRUCT& in, DCM_STRUCT* roi, short mode, float variable, int threads,
                bool simd = true)
{
  Ipg_SetNumThreads(threads);
  Ipg_SetSimdEnabled(simd);
  const StreamedAtSeven streamed(threads);
  DCM_STRUCT out(kCols, kRows);
  out.Data->SetPrecision(in.Data->GetPrecision());
  out.Data->SetMin(3);
  out.Data->SetMax(5);
  IPG_ARITHMETIC1 op(&in, roi);
  op.SetImaOut(&out);
  op.SetTools(code);
  op.SetMode(mode);
  op.SetVariable(variable);
  const bool applied = op.Apply();
  Ipg_SetNumThreads(0);
  Ipg_SetSimdEnabled(true);
  return {PixelsOf(out), out.Data->GetMin(), out.Data->GetMax(), applied};
}

} // namespace

// The reference is the scalar copy on one thread.
TEST(PointKernel, EveryCodeGivesTheSamePixelsAndExtremesAtAnyThreadCountAndWithSimd)
{
  auto in = RandomImage(7, -5000, 5000);
  auto roi = RandomRoi(8);
  for (int code = 200; code <= 212; ++code)
    for (DCM_STRUCT* mask : {static_cast<DCM_STRUCT*>(nullptr), roi.get()}) {
      SCOPED_TRACE("code " + std::to_string(code) + (mask != nullptr ? " with ROI" : ""));
      const Outcome one = RunCode(code, *in, mask, 302, 2.5f, 1, false);
      EXPECT_EQ(RunCode(code, *in, mask, 302, 2.5f, 1), one);
      EXPECT_EQ(RunCode(code, *in, mask, 302, 2.5f, 2), one);
      EXPECT_EQ(RunCode(code, *in, mask, 302, 2.5f, 7), one);
    }
  for (short mode : {300, 301, 303}) {
    SCOPED_TRACE("mode " + std::to_string(mode));
    const Outcome one = RunCode(200, *in, roi.get(), mode, -700.0f, 1, false);
    EXPECT_EQ(RunCode(200, *in, roi.get(), mode, -700.0f, 2), one);
    EXPECT_EQ(RunCode(200, *in, roi.get(), mode, -700.0f, 7), one);
  }  // Hosts calling a method directly may give a narrower ROI: its missing
  // columns are outside it.
  auto narrow = TestImage(kCols - 3, kRows).Each([](unsigned col, unsigned row) { return (col + row) % 3 ? kRoiInside : 0; }).Build();
  auto squareIn = [&](int threads) {
    Ipg_SetNumThreads(threads);
    const StreamedAtSeven streamed(threads);
    DCM_STRUCT out(kCols, kRows);
    IPG_ARITHMETIC1 op(in.get(), narrow.get());
    op.SetImaOut(&out);
    op.SetMode(302);
    op.Square();
    Ipg_SetNumThreads(0);
    return PixelsOf(out);
  };
  const std::vector<int> squared = squareIn(1);
  EXPECT_EQ(squared[kCols - 4], in->Data->GetIDataAddress()[kCols - 4] * in->Data->GetIDataAddress()[kCols - 4]);
  EXPECT_EQ(squared[kCols - 1], in->Data->GetIDataAddress()[kCols - 1]);
  EXPECT_EQ(squareIn(7), squared);
}

// Whole constants take an integer path: the plain sum in reals, kept where it
// passes the largest grey level, or the plain product, stored as
// SetValue(double) stores them (products beyond the int range saturate).
TEST(PointKernel, WholeConstantsAddAndMultiplyAsReals)
{
  auto in = RandomImage(13, -3000, 3000);
  int* levels = in->Data->GetIDataAddress();
  const int edges[] = {INT_MAX, INT_MIN + 5, INT_MIN, 16777216, 16777116, 16777117, -16777216, 33554432,
                       -2147483000, 715827882, 715827883, -715827883, 1073741824};
  for (std::size_t k = 0; k < std::size(edges); ++k)
    levels[200 + 3 * k] = edges[k];
  auto roi = RandomRoi(14);
  struct Case {
    int Code;
    float Constant;
  };
  for (const Case c : {Case{200, 100.0f}, Case{200, -700.0f}, Case{200, 16777216.0f}, Case{200, -16777216.0f},
                       Case{200, 0.0f}, Case{201, 3.0f}, Case{201, -3.0f}, Case{201, -1.0f}, Case{201, 1.0f},
                       Case{201, 0.0f}, Case{201, 65537.0f}, Case{201, -2147483648.0f}})
    for (DCM_STRUCT* mask : {static_cast<DCM_STRUCT*>(nullptr), roi.get()}) {
      const double p = c.Constant;
      std::vector<int> expected(in->Data->GetSize());
      for (std::size_t k = 0; k < expected.size(); ++k) {
        const bool inside = mask == nullptr || mask->Data->GetIDataAddress()[k] == kRoiInside;
        const double result = c.Code == 200 ? levels[k] + p : levels[k] * p;
        const bool kept = c.Code == 200 && result > 16777216;
        expected[k] = DCM_DATA::ToRaw(inside && !kept ? result : levels[k], 1);
      }
      for (int threads : {1, 7})
        EXPECT_EQ(RunCode(c.Code, *in, mask, 302, c.Constant, threads).Pixels, expected)
            << c.Code << " by " << p << ", " << threads << " threads";
    }
}

TEST(PointKernel, MatchesAPlainPerPixelWalkAcrossPrecisions)
{
  auto in = RandomImage(11, -300000, 300000);
  in->Data->SetPrecision(10);
  auto roi = RandomRoi(12);
  // The plain walk: read each pixel as a real, write the result back as a real.
  DCM_STRUCT expected(kCols, kRows);
  expected.Data->SetPrecision(10);
  expected.Data->SetMin(3);
  expected.Data->SetMax(5);
  for (unsigned row = 0; row < kRows; ++row)
    for (unsigned col = 0; col < kCols; ++col) {
      const double v = in->Data->GetValueReal(col, row);
      const double sum = v + static_cast<double>(0.37f);
      const bool inside = roi->Data->GetValue(col, row) == kRoiInside;
      expected.Data->SetValue(col, row, inside && sum <= 16777216 ? sum : v);
    }
  for (int threads : {1, 2, 7})
    for (bool simd : {false, true}) {
      const Outcome got = RunCode(200, *in, roi.get(), 302, 0.37f, threads, simd);
      ASSERT_TRUE(got.Applied);
      EXPECT_EQ(got.Pixels, PixelsOf(expected)) << threads << " threads, SIMD " << simd;
    }
  // Mode 302 re-measures the extremes over the pixels.
  Ipg_MeasureExtremes(*expected.Data);
  const Outcome got = RunCode(200, *in, roi.get(), 302, 0.37f, 7);
  EXPECT_EQ(got.Min, expected.Data->GetMin());
  EXPECT_EQ(got.Max, expected.Data->GetMax());
}

// Otsu on a square image read plainly: the levels divided in place toward zero
// by max / 256 + 1 when the maximum is above 256, counted from the minimum, the
// cut after the bin of the best score, the levels above it set inside the ROI.
std::vector<int> PlainOtsu(DCM_DATA& in, const DCM_STRUCT* roi)
{
  int* levels = in.GetIDataAddress();
  const std::size_t n = in.GetSize();
  int mx = *std::max_element(levels, levels + n);
  const int divisor = mx > 256 ? mx / 256 + 1 : 1;
  for (std::size_t k = 0; k < n; ++k)
    levels[k] /= divisor;
  const int mn = *std::min_element(levels, levels + n);
  mx = *std::max_element(levels, levels + n);
  std::vector<double> bins(static_cast<std::size_t>(mx - mn + 1), 0.0);
  for (std::size_t k = 0; k < n; ++k)
    ++bins[static_cast<std::size_t>(levels[k] - mn)];
  double total = 0.0, count = 0.0, weighted = 0.0, best = 0.0;
  for (std::size_t i = 0; i < bins.size(); ++i)
    total += static_cast<double>(i) * bins[i];
  int cut = 0;
  for (std::size_t i = 0; i < bins.size(); ++i) {
    count += bins[i];
    weighted += static_cast<double>(i) * bins[i];
    const double omega = count / n, gap = total / n * omega - weighted / n;
    const double score = omega == 0.0 || omega == 1.0 ? 0.0 : gap * gap / ((1.0 - omega) * omega);
    if (score > best) {
      best = score;
      cut = static_cast<int>(i);
    }
  }
  std::vector<int> out(n);
  for (std::size_t k = 0; k < n; ++k) {
    const bool inside = roi == nullptr || roi->Data->GetIDataAddress()[k] == kRoiInside;
    out[k] = levels[k] > cut && inside ? 16777216 : 0;
  }
  return out;
}

// Otsu (on a square and a non-square image, whose walk stays serial; levels
// below zero too), the thresholds and the band clipping: the same output,
// extremes and divided input at any thread count, with and without SIMD.
TEST(PointKernel, ThresholdsGiveTheSameResultAtAnyThreadCount)
{
  for (int code : {400, 401, 403, 404})
    for (unsigned rows : {kRows, kCols})
      for (bool withRoi : {false, true}) {
        SCOPED_TRACE("code " + std::to_string(code) + ", rows " + std::to_string(rows) + (withRoi ? ", ROI" : ""));
        auto run = [&](int threads, bool simd) {
          Ipg_SetNumThreads(threads);
          Ipg_SetSimdEnabled(simd);
          const StreamedAtSeven streamed(threads);
          std::mt19937 random(3);
          auto in = TestImage(kCols, rows).Each([&](unsigned, unsigned) { return int(random() % 5000) - 1200; }).Build();
          auto roi = TestImage(kCols, rows).Each([&](unsigned, unsigned) { return random() % 3 ? kRoiInside : 0; }).Build();
          DCM_STRUCT out(kCols, rows);
          IPG_GENERIC_PROCESSING op(in.get(), withRoi ? roi.get() : nullptr);
          op.SetImaOut(&out);
          op.SetTools(code);
          op.SetSeuilMin(2500);
          op.SetMode(302);
          const int applied = op.Apply();
          Ipg_SetNumThreads(0);
          Ipg_SetSimdEnabled(true);
          const std::vector<int> written = PixelsOf(out);
          const auto [low, high] = std::minmax_element(written.begin(), written.end());
          EXPECT_EQ(std::pair(out.Data->GetMin(), out.Data->GetMax()), std::pair(*low, *high)) << threads << " threads";
          return std::make_tuple(applied, written, out.Data->GetMin(), out.Data->GetMax(), PixelsOf(*in));
        };
        const auto one = run(1, false);
        EXPECT_EQ(run(2, true), one);
        EXPECT_EQ(run(7, true), one);
        if (code == 404 && rows == kCols) {
          std::mt19937 random(3);
          auto in = TestImage(kCols, rows).Each([&](unsigned, unsigned) { return int(random() % 5000) - 1200; }).Build();
          auto roi = TestImage(kCols, rows).Each([&](unsigned, unsigned) { return random() % 3 ? kRoiInside : 0; }).Build();
          EXPECT_EQ(std::get<1>(one), PlainOtsu(*in->Data, withRoi ? roi.get() : nullptr));
          EXPECT_EQ(std::get<4>(one), PixelsOf(*in));
        }
      }
}

// Otsu measures the levels itself: stored extremes too narrow, too wide or
// wrong about a level beyond single precision give the plain reading's mask,
// divided input and extremes, for an output as large as the input or smaller.
TEST(PointKernel, OtsuReadsTheLevelsNotTheStoredExtremes)
{
  constexpr unsigned kSide = 96;
  const std::pair<int, int> stored[] = {{0, 4095}, {500, 1000}, {-5000, 60000}, {0, 4095}};
  for (std::size_t variant = 0; variant < std::size(stored); ++variant)
    for (unsigned outRows : {kSide, kSide - 5}) {
      SCOPED_TRACE("variant " + std::to_string(variant) + ", output rows " + std::to_string(outRows));
      std::mt19937 random(11);
      auto in = TestImage(kSide, kSide).Each([&](unsigned, unsigned) { return int(random() % 3000) + 40; }).Build();
      if (variant == 3)
        in->Data->GetIDataAddress()[kSide + 3] = 20000000;
      auto plain = std::make_unique<DCM_STRUCT>(*in, true);
      std::vector<int> expected = PlainOtsu(*plain->Data, nullptr);
      expected.resize(std::size_t{kSide} * outRows);
      const std::vector<int> divided = PixelsOf(*plain);
      in->Data->SetMin(stored[variant].first);
      in->Data->SetMax(stored[variant].second);
      DCM_STRUCT out(kSide, outRows);
      IPG_GENERIC_PROCESSING op(in.get());
      op.SetImaOut(&out);
      op.SetMode(302);
      EXPECT_NE(op.BinarizeByOtsu(), 0);
      EXPECT_EQ(PixelsOf(out), expected);
      EXPECT_EQ(PixelsOf(*in), divided);
      EXPECT_EQ(in->Data->GetMin(), *std::min_element(divided.begin(), divided.end()));
      EXPECT_EQ(in->Data->GetMax(), *std::max_element(divided.begin(), divided.end()));
    }
}

// The signal-to-noise ratio of the basic statistics, read plainly: the image
// smoothed by the 3x3 box filter, then s^2 and (v - s)^2 summed exactly over
// the interior. Levels from 12 bits to the edge of the one-walk range, on
// images small enough for the sums to stay exact in double precision.
TEST(PointKernel, BoxNoiseRatioEqualsThePlainReading)
{
  struct Case {
    int High;
    unsigned Cols, Rows;
  };
  for (const Case c : {Case{4095, 301, 97}, Case{70000, 301, 97}, Case{1864135, 41, 37}}) {
    std::mt19937 random(static_cast<unsigned>(c.High));
    std::uniform_int_distribution<int> level(-c.High, c.High);
    auto in = TestImage(c.Cols, c.Rows).Each([&](unsigned, unsigned) { return level(random); }).Build();
    DCM_STRUCT smoothed(*in, false, -1, -1);
    IPG_FILTER_PROCESSING filter(in.get());
    filter.SetImaOut(&smoothed);
    filter.SetDefinedFilter(0);
    filter.SetMode(302);
    filter.SetTools(500);
    ASSERT_TRUE(filter.Apply());
    std::uint64_t signal = 0, noise = 0;
    for (unsigned row = 1; row + 1 < c.Rows; ++row)
      for (unsigned col = 1; col + 1 < c.Cols; ++col) {
        const std::int64_t s = smoothed.Data->GetValue(col, row), gap = in->Data->GetValue(col, row) - s;
        signal += static_cast<std::uint64_t>(s * s);
        noise += static_cast<std::uint64_t>(gap * gap);
      }
    IPG_STATISTIC1 op(in.get());
    op.SetTools(6);
    op.Apply();
    EXPECT_EQ(op.GetSNR(), std::sqrt(static_cast<double>(signal) / static_cast<double>(noise))) << c.High;
  }
}

// The banded integer sums of the statistics equal the pixel-by-pixel double sums.
// Small levels take the banded sums, large ones (squares beyond 2^53) the
// serial loops.
TEST(PointKernel, StatisticsAreTheSameAtAnyThreadCount)
{
  auto small = RandomImage(20, -3000, 3000);
  small->Data->GetIDataAddress()[99] = 0;
  auto in = RandomImage(21, -3000000, 3000000);
  auto roi = RandomRoi(22);
  for (DCM_STRUCT* image : {small.get(), in.get()})
    for (int code : {0, 2, 4, 6, 16})
      for (DCM_STRUCT* mask : {static_cast<DCM_STRUCT*>(nullptr), roi.get()}) {
        SCOPED_TRACE("code " + std::to_string(code) + (mask != nullptr ? " with ROI" : ""));
        auto run = [&](int threads) {
          Ipg_SetNumThreads(threads);
          IPG_STATISTIC1 op(image, mask);
          op.SetTools(code);
          op.Apply();
          Ipg_SetNumThreads(0);
          return std::vector<double>{op.GetResult(), op.GetMin(), op.GetMax(), op.GetMean(), op.GetVariance(),
                                     op.GetSNR(), double(op.GetNbPixels())};
        };
        const std::vector<double> one = run(1);
        EXPECT_EQ(run(2), one);
        EXPECT_EQ(run(7), one);
      }
  // The mean against the pixel-by-pixel double sum it is defined by.
  double sum = 0.0;
  int count = 0;
  for (std::size_t k = 0; k < small->Data->GetSize(); ++k)
    if (small->Data->GetIDataAddress()[k] <= 16777216) {
      sum += small->Data->GetIDataAddress()[k];
      ++count;
    }
  IPG_STATISTIC1 mean(small.get());
  mean.SetTools(0);
  mean.Apply();
  EXPECT_EQ(mean.GetResult(), sum / count);
  // The variance from the exact sums: the population variance to the last bits.
  long double spread = 0.0L;
  for (std::size_t k = 0; k < small->Data->GetSize(); ++k)
    if (const int v = small->Data->GetIDataAddress()[k]; v <= 16777216)
      spread += (v - static_cast<long double>(sum) / count) * (v - static_cast<long double>(sum) / count);
  mean.SetTools(6);
  mean.Apply();
  EXPECT_DOUBLE_EQ(mean.GetVariance(), static_cast<double>(spread / count));
  // The signal-to-noise ratio against the defining sums over the 3x3 box
  // smoothing, on the interior without a ROI and on the ROI with one; the image
  // without a mark takes the row-by-row box sums.
  auto clean = RandomImage(24, -3000, 3000);
  clean->Data->GetIDataAddress()[17] = 7;
  clean->Data->GetIDataAddress()[99] = 1864135;
  for (DCM_STRUCT* image : {small.get(), clean.get()})
    for (DCM_STRUCT* mask : {static_cast<DCM_STRUCT*>(nullptr), roi.get()}) {
      DCM_STRUCT smoothed(*image, false);
      IPG_FILTER_PROCESSING box(image, mask);
      box.SetImaOut(&smoothed);
      box.SetDefinedFilter(0);
      box.SetMode(302);
      box.SetTools(500);
      box.Apply();
      double signal = 0.0, noise = 0.0;
      const unsigned edge = mask == nullptr ? 1 : 0;
      for (unsigned r = edge; r < kRows - edge; ++r)
        for (unsigned c = edge; c < kCols - edge; ++c) {
          const double v = image->Data->GetValue(c, r), m = smoothed.Data->GetValue(c, r);
          if (v <= 16777216 && (mask == nullptr || mask->Data->GetValue(c, r) == kRoiInside)) {
            signal += m * m;
            noise += (v - m) * (v - m);
          }
        }
      IPG_STATISTIC1 snr(image, mask);
      snr.SetTools(2);
      snr.Apply();
      EXPECT_EQ(snr.GetResult(), std::sqrt(signal / noise));
    }
  // The distance between two images, against its definition.
  in = std::move(small);
  auto other = RandomImage(23, -3000, 3000);
  other->Data->GetIDataAddress()[99] = 0;
  double squares = 0.0;
  for (std::size_t k = 0; k < in->Data->GetSize(); ++k) {
    const int a = in->Data->GetIDataAddress()[k], b = other->Data->GetIDataAddress()[k];
    if (a <= 16777216 && b <= 16777216 && roi->Data->GetIDataAddress()[k] == kRoiInside)
      squares += (double(a) - b) * (double(a) - b);
  }
  for (int threads : {1, 2, 7}) {
    Ipg_SetNumThreads(threads);
    IPG_STATISTIC2 distance(in.get(), other.get(), roi.get());
    distance.SetTools(102);
    distance.Apply();
    Ipg_SetNumThreads(0);
    EXPECT_EQ(distance.GetResult(), std::sqrt(squares)) << threads << " threads";
  }
}

// Two-image sums and differences (with the difference window) in bands.
TEST(PointKernel, TwoImageCombinationsAreTheSameAtAnyThreadCount)
{
  auto a = RandomImage(31, -5000, 5000);
  auto b = RandomImage(32, -5000, 5000);
  b->Data->GetIDataAddress()[500] = 16777300; // a mark in b alone
  auto roi = RandomRoi(33);
  for (int code : {302, 303, 304, 305})
    for (DCM_STRUCT* mask : {static_cast<DCM_STRUCT*>(nullptr), roi.get()})
      for (short mode : {301, 302}) {
        SCOPED_TRACE("code " + std::to_string(code) + " mode " + std::to_string(mode) + (mask ? " ROI" : ""));
        auto run = [&](int threads) {
          Ipg_SetNumThreads(threads);
          const StreamedAtSeven streamed(threads);
          DCM_STRUCT out(kCols, kRows);
          IPG_ARITHMETIC2 op(a.get(), b.get(), mask);
          op.SetImaOut(&out);
          op.SetTools(code);
          op.SetMode(mode);
          op.SetThresholdMin(-4000);
          op.SetThresholdMax(4500);
          const bool applied = op.Apply();
          Ipg_SetNumThreads(0);
          return Outcome{PixelsOf(out), out.Data->GetMin(), out.Data->GetMax(), applied};
        };
        const Outcome one = run(1);
        EXPECT_EQ(run(2), one);
        EXPECT_EQ(run(7), one);
        if (code == 303 || mode != 302)
          continue;
        // The sum, the absolute difference and the division against their pixel-by-pixel reading.
        for (std::size_t k = 0; k < one.Pixels.size(); ++k) {
          const int x = a->Data->GetIDataAddress()[k], y = b->Data->GetIDataAddress()[k];
          const bool grey = x <= 16777216 && y <= 16777216;
          const bool inRoi = mask == nullptr || mask->Data->GetIDataAddress()[k] == kRoiInside;
          int expected;
          if (code == 302) {
            expected = grey && inRoi ? static_cast<int>(static_cast<unsigned>(x) + static_cast<unsigned>(y)) : std::max(x, y);
          } else if (code == 304) {
            const bool outside = 4500 <= x || 4500 <= y || -4000 >= x || -4000 >= y;
            expected = outside ? 0 : grey ? static_cast<int>(std::llabs(static_cast<long long>(x) - y)) : std::min(x, y);
          } else if (mask == nullptr) {
            const long long q = y == 0 ? 0 : static_cast<long long>(x) / y;
            expected = q > 16777216 ? 0 : static_cast<int>(q);
          } else {
            expected = y != 0 && grey && inRoi ? x - y : std::max(x, y);
          }
          ASSERT_EQ(one.Pixels[k], expected) << "pixel " << k;
        }
      }
}

// IPG_CHANGE_DYNAMIC's banded walks against the per-pixel reading through
// GetValue / SetValue they replace: a mask of any non-zero values smaller than
// the image, precisions 1 and 10 in and 4 out, at 1, 2 and 7 threads.
TEST(PointKernel, ChangeDynamicMatchesThePixelByPixelReading)
{
  auto in = RandomImage(31, -5000, 5000);
  in->Data->GetIDataAddress()[5] = -2147483647 - 1;
  std::mt19937 random(32);
  auto mask = TestImage(kCols - 3, kRows - 2).Each([&](unsigned, unsigned) { return int(random() % 3) - 1; }).Build();
  auto reference = [&](int code, DCM_DATA& out) {
    const DCM_DATA& d = *in->Data;
    for (unsigned row = 0; row < d.GetNbOfRows(); ++row)
      for (unsigned col = 0; col < d.GetNbOfCols(); ++col) {
        const int v = d.GetValue(col, row);
        if (code == 300 && mask->Data->GetValue(col, row) != 0) {
          const auto f = static_cast<float>(d.GetValueReal(col, row));
          if (v > 16777216)
            out.SetValue(col, row, v);
          else if (-100.0f <= f && f <= 2000.0f)
            out.SetValue(col, row, f);
          else
            out.SetValue(col, row, 0);
        } else if (code == 303 && mask->Data->GetValue(col, row) != 0) {
          out.SetValue(col, row, v > 16777216 ? v : v == INT_MIN ? INT_MAX : std::abs(v));
        }
      }
    out.SetMin();
    out.SetMax();
  };
  for (const short precision : {short{1}, short{10}})
    for (const int code : {300, 303}) {
      in->Data->SetPrecision(precision);
      DCM_STRUCT expected(kCols, kRows);
      expected.Data->SetPrecision(4);
      expected.Data->Init(7.0);
      reference(code, *expected.Data);
      for (const int threads : {1, 2, 7}) {
        Ipg_SetNumThreads(threads);
        const StreamedAtSeven streamed(threads);
        DCM_STRUCT out(kCols, kRows);
        out.Data->SetPrecision(4);
        out.Data->Init(7.0);
        IPG_CHANGE_DYNAMIC op(in.get(), &out);
        op.SetRoi(mask.get());
        op.SetLimitInf(-100.0f);
        op.SetLimitSup(2000.0f);
        // The methods themselves: Apply refuses a mask of another size, hosts
        // calling them directly do not.
        ASSERT_TRUE(code == 300 ? op.GetCutImage() : op.GetAbsoluteImage());
        EXPECT_EQ(PixelsOf(out), PixelsOf(expected)) << code << " precision " << precision << " threads " << threads;
        EXPECT_EQ(out.Data->GetMin(), expected.Data->GetMin());
        EXPECT_EQ(out.Data->GetMax(), expected.Data->GetMax());
      }
    }
  Ipg_SetNumThreads(0);
}
