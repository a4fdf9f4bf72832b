// SPDX-License-Identifier: Apache-2.0
// Kuan's filter against a plain, one-pixel-at-a-time version of its arithmetic.
#include "dcm/dcm_struct.h"
#include "ipg/filtering/ipg_filter_processing.h"
#include "ipg/framework/ipg_threads.h"
#include "ipg/internal/ipg_simd.h"
#include "support/images.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

// Inner pixels: (1 - w) m + w x over the 3x3 window, w = 0.5 (1 - m / v),
// truncated; the frame keeps the input.
std::vector<int> PlainKuan(const DCM_STRUCT& in)
{
  const int cols = static_cast<int>(in.GetNbOfCols()), rows = static_cast<int>(in.GetNbOfRows());
  const int* p = in.Data->GetIDataAddress();
  std::vector<int> out(p, p + in.Data->GetSize());
  for (int r = 1; r < rows - 1; ++r)
    for (int c = 1; c < cols - 1; ++c) {
      double sum = 0.0, squares = 0.0;
      for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx)
          sum += p[(r + dy) * cols + c + dx];
      const double mean = sum * (1.0 / 9.0);
      for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx)
          squares += (p[(r + dy) * cols + c + dx] - mean) * (p[(r + dy) * cols + c + dx] - mean);
      const double variance = (1.0 / 9.0) * squares;
      const double w = variance > 0.0 ? 0.5 * (1.0 - mean / variance) : 0.0;
      const double value = std::trunc((1.0 - w) * mean + w * p[r * cols + c]);
      out[static_cast<std::size_t>(r * cols + c)] = static_cast<int>(std::clamp(value, -2147483648.0, 2147483647.0));
    }
  return out;
}

TEST(SpeckleStatisticsKernels, KuanGivesThePlainPixelsAtAnyThreadCount)
{
  std::mt19937 random(3);
  std::exponential_distribution<double> speckle(1.0 / 500.0);
  for (const auto& [cols, rows] : {std::pair{3u, 3u}, std::pair{10u, 7u}, std::pair{301u, 260u}}) {
    auto in = TestImage(cols, rows).Each([&](unsigned c, unsigned) { return static_cast<int>(speckle(random)) * (c % 7 == 3 ? -3 : 1); }).Build();
    for (const int threads : {1, 2, 7})
      for (const bool simd : {true, false}) {
        Ipg_SetNumThreads(threads);
        Ipg_SetSimdEnabled(simd);
        DCM_STRUCT out(cols, rows);
        IPG_FILTER_PROCESSING op(in.get());
        op.SetImaOut(&out);
        op.SetNbIter(2);
        ASSERT_TRUE(op.KuanFilter());
        EXPECT_EQ(PixelsOf(out), PlainKuan(*in)) << cols << "x" << rows << " threads " << threads;
      }
    // In place: the input is read as it was before the pass.
    DCM_STRUCT copy(*in, true);
    IPG_FILTER_PROCESSING op(&copy);
    op.SetImaOut(&copy);
    ASSERT_TRUE(op.KuanFilter());
    EXPECT_EQ(PixelsOf(copy), PlainKuan(*in));
  }
  Ipg_SetNumThreads(0);
  Ipg_SetSimdEnabled(true);
}

// Frost in place, pixel after pixel, row after row: each visited (col, row)
// writes (col - 1, row) from the sheared 5x5 window of runs starting at
// w + dr (cols - 1) - 2.
std::vector<int> PlainFrost(const DCM_STRUCT& in, double damping)
{
  const int cols = static_cast<int>(in.GetNbOfCols()), rows = static_cast<int>(in.GetNbOfRows());
  std::vector<int> work(in.Data->GetIDataAddress(), in.Data->GetIDataAddress() + in.Data->GetSize());
  for (int r = 2; r < rows - 2; ++r)
    for (int c = 2; c < cols - 2; ++c) {
      const std::ptrdiff_t w = static_cast<std::ptrdiff_t>(r) * cols + c - 1;
      double values[25], sum = 0.0, squares = 0.0, weighted = 0.0, weights = 0.0;
      for (int dr = -2, k = 0; dr <= 2; ++dr)
        for (int i = 0; i < 5; ++i, ++k)
          sum += values[k] = work[static_cast<std::size_t>(w + dr * cols - dr - 2 + i)];
      const double mean = sum * 0.04;
      for (double v : values)
        squares += (v - mean) * (v - mean);
      const double spread = mean != 0.0 ? squares * 0.04 / (mean * mean) : 0.0;
      for (int dr = -2, k = 0; dr <= 2; ++dr)
        for (int i = -2; i <= 2; ++i, ++k) {
          const double weight = std::exp(-damping * spread * std::sqrt(static_cast<double>(dr * dr + i * i)));
          weighted += weight * values[k];
          weights += weight;
        }
      work[static_cast<std::size_t>(w)] = static_cast<int>(std::trunc(weighted / weights));
    }
  return work;
}

TEST(SpeckleStatisticsKernels, FrostGivesThePixelByPixelValues)
{
  std::mt19937 random(4);
  std::exponential_distribution<double> speckle(1.0 / 500.0);
  for (const auto& [cols, rows] : {std::pair{5u, 5u}, std::pair{9u, 8u}, std::pair{67u, 41u}, std::pair{403u, 333u}}) {
    auto in = TestImage(cols, rows).Each([&](unsigned, unsigned) { return static_cast<int>(speckle(random)); }).Build();
    for (const double damping : {1.0, 0.3}) {
      const std::vector<int> expected = PlainFrost(*in, damping);
      for (const bool simd : {true, false})
        for (const int threads : {1, 2, 3}) {
          Ipg_SetSimdEnabled(simd);
          Ipg_SetNumThreads(threads);
          DCM_STRUCT out(cols, rows);
          IPG_FILTER_PROCESSING op(in.get());
          op.SetImaOut(&out);
          op.SetAdaptatifFiltreParameters(0, 0, damping);
          ASSERT_TRUE(op.FrostFilter());
          EXPECT_EQ(PixelsOf(out), expected) << cols << "x" << rows << " simd " << simd << " threads " << threads;
        }
    }
  }
  Ipg_SetNumThreads(0);
  Ipg_SetSimdEnabled(true);
}

} // namespace
