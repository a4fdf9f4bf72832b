// SPDX-License-Identifier: Apache-2.0
// Nagao-Matsuyama smoothing against a plain, one-pixel-at-a-time version.
#include "dcm/dcm_struct.h"
#include "ipg/framework/ipg_threads.h"
#include "ipg/internal/ipg_kernel_images.h"
#include "ipg/internal/ipg_local_kernels.h"
#include "ipg/internal/ipg_simd.h"
#include "support/images.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <utility>
#include <vector>

namespace {

using Region = std::vector<std::pair<int, int>>; // (dx, dy)

// Square, then the N pentagon and NW hexagon, each turned by 90 degrees three times.
std::vector<Region> Regions()
{
  std::vector<Region> regions{{{-1, -1}, {0, -1}, {1, -1}, {-1, 0}, {0, 0}, {1, 0}, {-1, 1}, {0, 1}, {1, 1}}};
  Region pentagon{{-1, -2}, {0, -2}, {1, -2}, {-1, -1}, {0, -1}, {1, -1}, {0, 0}};
  Region hexagon{{-2, -2}, {-1, -2}, {-2, -1}, {-1, -1}, {0, -1}, {-1, 0}, {0, 0}};
  for (int turn = 0; turn < 4; ++turn) {
    regions.push_back(pentagon);
    regions.push_back(hexagon);
    for (Region* r : {&pentagon, &hexagon})
      for (auto& [dx, dy] : *r)
        std::tie(dx, dy) = std::pair{-dy, dx};
  }
  return regions;
}

// Inner pixels inside the ROI and unmarked take the truncated mean of their
// first least-variance unmarked region; the rest of out is left as it was.
void PlainNagao(const int* in, int* out, int cols, int rows, const DCM_STRUCT* roi)
{
  for (int r = 2; r < rows - 2; ++r)
    for (int c = 2; c < cols - 2; ++c) {
      int value = in[r * cols + c];
      const bool inside = roi == nullptr || roi->Data->GetValue(c, r) == kRoiInside;
      double best = 0.0;
      bool found = false;
      static const std::vector<Region> regions = Regions();
      for (const Region& region : regions) {
        double sum = 0.0, squares = 0.0;
        bool marked = false;
        for (const auto& [dx, dy] : region) {
          const int p = in[(r + dy) * cols + c + dx];
          marked = marked || p > 16777216;
          sum += p;
          squares += static_cast<double>(p) * p;
        }
        const double n = static_cast<double>(region.size()), variance = squares / n - (sum / n) * (sum / n);
        if (!marked && inside && value <= 16777216 && (!found || variance < best)) {
          found = true;
          best = variance;
          value = static_cast<int>(std::trunc(sum / n));
        }
      }
      out[r * cols + c] = value;
    }
}

TEST(LocalKernels, NagaoGivesThePlainPixelsAtAnyThreadCountAndInPlace)
{
  std::mt19937 random(7);
  std::exponential_distribution<double> speckle(1.0 / 700.0);
  std::uniform_int_distribution<int> kind(0, 59);
  for (const auto& [cols, rows] : {std::pair{5, 5}, std::pair{9, 6}, std::pair{130, 70}}) {
    auto in = TestImage(cols, rows).Each([&](unsigned, unsigned) {
      const int k = kind(random);
      return k == 0 ? 17000000 : k == 1 ? -5000 : static_cast<int>(speckle(random));
    }).Build();
    auto roi = TestImage(cols, rows).Rect(0, 0, cols / 2 + 1, rows, kRoiInside).Build();
    for (const DCM_STRUCT* mask : {static_cast<const DCM_STRUCT*>(nullptr), static_cast<const DCM_STRUCT*>(roi.get())}) {
      std::vector<int> plain(static_cast<std::size_t>(cols) * rows, -1);
      PlainNagao(in->Data->GetIDataAddress(), plain.data(), cols, rows, mask);
      for (const int threads : {1, 2, 7})
        for (const bool simd : {true, false}) {
          Ipg_SetNumThreads(threads);
          Ipg_SetSimdEnabled(simd);
          DCM_STRUCT out(cols, rows);
          std::fill(out.Data->GetIDataAddress(), out.Data->GetIDataAddress() + out.Data->GetSize(), -1);
          Ipg_NagaoRows(Ipg_KernelImagesOf(in.get(), &out, mask), {0, rows});
          EXPECT_EQ(PixelsOf(out), plain) << cols << "x" << rows << " threads " << threads;
        }
      // In place, later pixels see the earlier results (the plain loop then reads what it wrote).
      DCM_STRUCT copy(*in, true), sequential(*in, true);
      Ipg_NagaoRows(Ipg_KernelImagesOf(&copy, &copy, mask), {0, rows});
      PlainNagao(sequential.Data->GetIDataAddress(), sequential.Data->GetIDataAddress(), cols, rows, mask);
      EXPECT_EQ(PixelsOf(copy), PixelsOf(sequential));
    }
  }
  Ipg_SetNumThreads(0);
  Ipg_SetSimdEnabled(true);
}

} // namespace
