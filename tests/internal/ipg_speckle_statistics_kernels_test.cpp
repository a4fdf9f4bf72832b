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

} // namespace
