// SPDX-License-Identifier: Apache-2.0
// The median kernels (compile-time networks for 3x3 and 5x5, Batcher's network
// for other small windows, selection for large ones) give each window's middle
// value, whatever the thread count and instruction set.
#include "ipg/filtering/ipg_filter_processing.h"
#include "ipg/framework/ipg_threads.h"
#include "ipg/internal/ipg_median_kernel.h"
#include "ipg/internal/ipg_simd.h"
#include "support/images.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

// Wide enough for a chunk of median rows to be cut into bands.
std::unique_ptr<DCM_STRUCT> RandomImage(unsigned cols, unsigned rows, unsigned seed)
{
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> level(-3000, 5000), pick(0, 30);
  return ImageOf(cols, rows, [&](unsigned, unsigned) {
    const int kind = pick(random);
    return kind == 0 ? 16777217 : kind == 1 ? -2147483647 - 1 : kind == 2 ? 2147483647 : level(random);
  });
}

// Levels that fit in 16 bits, their bounds included, but (with outliers) for
// one level just outside them in every fifth row.
std::unique_ptr<DCM_STRUCT> NarrowImage(unsigned cols, unsigned rows, unsigned seed, bool outliers = true)
{
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> level(-32768, 32767), pick(0, 30);
  auto image = ImageOf(cols, rows, [&](unsigned, unsigned) {
    const int kind = pick(random);
    return kind == 0 ? -32768 : kind == 1 ? 32767 : level(random);
  });
  for (unsigned row = 0; outliers && row < rows; row += 5)
    image->Data->SetValue(random() % cols, row, row % 10 == 0 ? 32768 : -32769);
  return image;
}

// The definition: the middle of the sorted window, marks included.
int ReferenceMedian(const DCM_STRUCT& in, int col, int row, int sx, int sy)
{
  std::vector<int> window;
  for (int y = row - sy / 2; y <= row + sy / 2; ++y)
    for (int x = col - sx / 2; x <= col + sx / 2; ++x)
      window.push_back(in.Data->GetValue(x, y));
  std::nth_element(window.begin(), window.begin() + window.size() / 2, window.end());
  return window[window.size() / 2];
}

} // namespace

TEST(MedianKernel, EveryWindowShapeGivesTheMiddleValue)
{
  auto wide = RandomImage(61, 23, 3);
  auto narrow = NarrowImage(61, 23, 5);
  const int shapes[][2] = {{1, 1}, {3, 3}, {5, 5}, {3, 5}, {7, 1}, {7, 7}, {9, 9}};
  for (DCM_STRUCT* in : {wide.get(), narrow.get()}) {
    for (const auto& [sx, sy] : shapes)
      for (const bool simd : {true, false}) {
        Ipg_SetSimdEnabled(simd);
        DCM_STRUCT out(61, 23);
        const Ipg_KernelImages images = Ipg_KernelImagesOf(in, &out, nullptr);
        Ipg_MedianKernel(sx, sy).Rows(images, {0, 23});
        for (int row = sy / 2; row < 23 - sy / 2; ++row)
          for (int col = sx / 2; col < 61 - sx / 2; ++col)
            ASSERT_EQ(out.Data->GetValue(col, row), ReferenceMedian(*in, col, row, sx, sy))
                << sx << "x" << sy << " at " << col << "," << row << " simd " << simd;
      }
  }
  Ipg_SetSimdEnabled(true);
}

// In place, a row's windows read the rows above as already filtered.
TEST(MedianKernel, InPlaceRowsReadTheRowsAboveFiltered)
{
  auto image = NarrowImage(40, 21, 8, false);
  auto expected = std::make_unique<DCM_STRUCT>(*image, true);
  for (int row = 2; row < 19; ++row) {
    std::vector<int> medians;
    for (int col = 2; col < 38; ++col)
      medians.push_back(ReferenceMedian(*expected, col, row, 5, 5));
    for (int col = 2; col < 38; ++col)
      expected->Data->SetValue(col, row, medians[static_cast<std::size_t>(col - 2)]);
  }
  const Ipg_KernelImages images = Ipg_KernelImagesOf(image.get(), image.get(), nullptr);
  Ipg_MedianKernel(5, 5).Rows(images, {0, 21});
  EXPECT_EQ(PixelsOf(*image), PixelsOf(*expected));
}

TEST(MedianKernel, TheFilterGivesTheSamePixelsOnAnyThreadCount)
{
  auto in = NarrowImage(2100, 70, 4);
  for (const int side : {3, 5}) {
    std::vector<int> first;
    for (const auto& [threads, simd] : {std::pair{1, false}, std::pair{2, true}, std::pair{7, true}}) {
      Ipg_SetNumThreads(threads);
      Ipg_SetSimdEnabled(simd);
      DCM_STRUCT out(2100, 70);
      IPG_FILTER_PROCESSING op(in.get());
      op.SetImaOut(&out);
      op.setWaitbarVisible(false);
      std::vector<int> ones(static_cast<std::size_t>(side) * side, 1);
      op.SetUserFilter(ones.data(), side, side);
      ASSERT_TRUE(op.MedianFilter());
      if (first.empty()) {
        first = PixelsOf(out);
        EXPECT_EQ(out.Data->GetValue(1000, 35), ReferenceMedian(*in, 1000, 35, side, side));
      }
      EXPECT_EQ(PixelsOf(out), first) << side << " threads " << threads;
    }
  }
  Ipg_SetNumThreads(0);
  Ipg_SetSimdEnabled(true);
}
