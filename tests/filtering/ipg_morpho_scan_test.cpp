// SPDX-License-Identifier: Apache-2.0
#include "ipg/filtering/ipg_morpho_scan.h"
#include "ipg/framework/ipg_threads.h"
#include "ipg/internal/ipg_morpho_runs.h"
#include "ipg/internal/ipg_point_kernel.h"
#include "ipg/internal/ipg_simd.h"
#include "support/images.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

// Grey levels with marks sprinkled in: set pixels (16777217, which take part)
// and other marks (16777218, 17000000, which do not).
std::unique_ptr<DCM_STRUCT> RandomImage(std::mt19937& random, unsigned cols = 23, unsigned rows = 19)
{
  std::uniform_int_distribution<int> grey(-50, 5000), pick(0, 19);
  return ImageOf(cols, rows, [&](unsigned, unsigned) {
    const int kind = pick(random);
    return kind == 0 ? 16777217 : kind == 1 ? 16777218 : kind == 2 ? 17000000 : grey(random);
  });
}

// Levels that fit in 16 bits with a margin at each end, their bounds
// included, and marks that take no part; two rows hold a taking-part level
// outside that range (the mask value, and one past the margin).
std::unique_ptr<DCM_STRUCT> NarrowImage(std::mt19937& random, unsigned cols, unsigned rows)
{
  std::uniform_int_distribution<int> grey(-32767, 32766), pick(0, 19);
  auto image = ImageOf(cols, rows, [&](unsigned, unsigned) {
    const int kind = pick(random);
    return kind == 0 ? -32767 : kind == 1 ? 32766 : kind == 2 ? 17000000 : kind == 3 ? 16777218 : grey(random);
  });
  image->Data->SetValue(cols / 2, rows / 3, 16777217);
  // One past the margin, alone among marks: the erosion of its neighbourhood.
  for (unsigned dy = 0; dy < 15; ++dy)
    for (unsigned dx = 0; dx < 15; ++dx)
      image->Data->SetValue(cols / 3 - 7 + dx, 2 * rows / 3 - 7 + dy, dx == 7 && dy == 7 ? 32767 : 16777218);
  return image;
}

// About a quarter of the pixels outside.
std::unique_ptr<DCM_STRUCT> RandomRoi(std::mt19937& random, unsigned cols = 23, unsigned rows = 19)
{
  std::uniform_int_distribution<int> pick(0, 3);
  return ImageOf(cols, rows, [&](unsigned, unsigned) { return pick(random) == 0 ? 0 : 16777217; });
}

std::vector<int> Scan(const Ipg_MorphoField& field, int sx, int sy, Ipg_MorphoKind kind, int init, bool fast)
{
  std::vector<int> out(field.Values.size(), -7); // -7: not computed
  if (fast)
    Ipg_MorphoScanRectangle(field, sx, sy, kind, init, out.data());
  else
    Ipg_MorphoScanPlain(field, std::vector<unsigned char>(static_cast<std::size_t>(sx) * sy, 1), sx, sy, kind,
                        init, out.data());
  return out;
}

} // namespace

TEST(MorphoScan, RectangleFastPathGivesThePlainPixels)
{
  std::mt19937 random(8);
  const int sizes[][2] = {{1, 1}, {3, 3}, {5, 3}, {1, 7}, {9, 1}, {7, 11}, {15, 15}, {23, 5}, {25, 25}};
  for (const bool withRoi : {false, true}) {
    auto image = RandomImage(random), roi = RandomRoi(random);
    for (const auto kind : {Ipg_MorphoKind::Erosion, Ipg_MorphoKind::Dilation}) {
      const Ipg_MorphoField field = Ipg_MorphoPrepare(*image, withRoi ? roi.get() : nullptr, kind);
      const int init = withRoi ? 16777216 : (kind == Ipg_MorphoKind::Erosion ? 17000000 : 0);
      for (const auto& size : sizes) {
        SCOPED_TRACE(testing::Message() << size[0] << "x" << size[1] << " roi " << withRoi);
        EXPECT_EQ(Scan(field, size[0], size[1], kind, init, true), Scan(field, size[0], size[1], kind, init, false));
      }
    }
  }
}

// Any element, holes and empty rows included, on an image large enough to be
// cut into bands: every thread count and both instruction sets give the
// pixels of the plain scan.
TEST(MorphoScan, RunsGiveThePlainPixelsForAnyElement)
{
  std::mt19937 random(9);
  auto wide = RandomImage(random, 520, 300), roi = RandomRoi(random, 500, 290); // a smaller ROI: the rest is outside
  auto narrow = NarrowImage(random, 520, 300);
  const int sizes[][2] = {{1, 1}, {3, 3}, {5, 3}, {1, 7}, {9, 1}, {11, 11}, {7, 13}, {3, 3}, {3, 3}};
  std::bernoulli_distribution flag(0.6);
  for (DCM_STRUCT* image : {wide.get(), narrow.get()}) {
    for (const auto& size : sizes) {
      std::vector<unsigned char> element(static_cast<std::size_t>(size[0]) * size[1]);
      for (auto& f : element)
        f = flag(random);
      if (&size == &sizes[7]) // the square and the cross: three runs, one per row
        element.assign(9, 1);
      if (&size == &sizes[8])
        element = {0, 1, 0, 1, 1, 1, 0, 1, 0};
      for (const auto kind : {Ipg_MorphoKind::Erosion, Ipg_MorphoKind::Dilation}) {
        const bool withRoi = size[0] == 11 || size[0] == 5;
        const Ipg_MorphoField field = Ipg_MorphoPrepare(*image, withRoi ? roi.get() : nullptr, kind);
        const int init = withRoi ? 16777216 : (kind == Ipg_MorphoKind::Erosion ? 17000000 : 0);
        std::vector<int> plain(field.Values.size(), -7);
        Ipg_MorphoScanPlain(field, element, size[0], size[1], kind, init, plain.data());
        for (const auto& [threads, simd] : {std::pair{1, true}, std::pair{2, false}, std::pair{7, true}}) {
          Ipg_SetNumThreads(threads);
          Ipg_SetSimdEnabled(simd);
          std::vector<int> runs(field.Values.size(), -7);
          IPG_BAND_EXTREMES seen;
          ASSERT_TRUE(Ipg_MorphoScanRuns(*image, withRoi ? roi.get() : nullptr, element, size[0], size[1], kind, init,
                                         runs.data(), &seen));
          EXPECT_EQ(runs, plain) << size[0] << "x" << size[1] << " threads " << threads;
          // The whole rows written, frame columns included, were measured.
          const std::ptrdiff_t frame = std::ptrdiff_t{size[1] / 2} * 520;
          const auto [low, high] = std::minmax_element(runs.begin() + frame, runs.end() - frame);
          EXPECT_EQ(std::pair(seen.Min, seen.Max), std::pair(*low, *high));
        }
      }
    }
  }
  Ipg_SetNumThreads(0);
  Ipg_SetSimdEnabled(true);
}
