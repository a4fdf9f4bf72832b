// SPDX-License-Identifier: Apache-2.0
#include "ipg/framework/ipg_threads.h"
#include "ipg/internal/ipg_local_ratio_median.h"
#include "ipg/internal/ipg_speckle_windows.h"
#include "ipg/internal/ipg_summed_area.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace {

double NthElement(std::vector<double> values)
{
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// Lists long enough to be narrowed by bit patterns: heavy ties (all in one
// bucket), zeros, +inf, and a negative value that sends the list to nth_element.
TEST(SpeckleWindows, MiddleElementIsTheElementNthElementSelects)
{
  std::mt19937 random(5);
  std::gamma_distribution<double> spread(0.7, 2.0);
  std::uniform_int_distribution<int> level(0, 9);
  for (const std::size_t size : {1u, 2u, 16384u, 16385u, 100001u}) {
    std::vector<std::vector<double>> lists(5, std::vector<double>(size));
    for (std::size_t i = 0; i < size; ++i) {
      lists[0][i] = spread(random);
      lists[1][i] = 0.25;                                // one value
      lists[2][i] = level(random) * 1e-3;                // few values, zeros among them
      lists[3][i] = i % 7 == 0 ? INFINITY : spread(random);
      lists[4][i] = i == size / 3 ? -1.5 : spread(random);
    }
    for (std::vector<double>& list : lists) {
      const double expected = NthElement(list);
      EXPECT_EQ(expected, Ipg_MiddleElement(list.data(), list.size())) << size;
    }
  }
  EXPECT_EQ(0.0, Ipg_MiddleElement(nullptr, 0));
}

// The rings of table rows give every band the moments of row-run tables
// built over the whole image, at any thread count and window size; the
// image's width leaves columns beyond the last block of four.
TEST(SpeckleWindows, BandedTablesGiveTheWholeImageMoments)
{
  std::mt19937 random(9);
  std::gamma_distribution<double> speckle(1.0, 1.0);
  const int cols = 301, rows = 517;
  std::vector<double> in(static_cast<std::size_t>(cols) * rows);
  for (double& v : in)
    v = 400.0 * speckle(random);
  const auto term = [&](int c, int r) { return in[static_cast<std::size_t>(r) * cols + c]; };
  const auto sums = Ipg_SummedArea<double>::ByRowRuns(cols, rows, term);
  const auto squares = Ipg_SummedArea<double>::ByRowRuns(cols, rows, [&](int c, int r) { return term(c, r) * term(c, r); });
  for (const int half : {0, 1, 3, 40, 600}) {
    std::vector<double> mean(in.size()), variance(in.size());
    for (int r = 0; r < rows; ++r)
      for (int c = 0; c < cols; ++c) {
        const Ipg_Rect window = Ipg_ClippedWindow(c, r, half, cols, rows);
        const std::size_t i = static_cast<std::size_t>(r) * cols + c;
        mean[i] = sums.Over(window) / window.Area();
        variance[i] = std::max(0.0, squares.Over(window) / window.Area() - mean[i] * mean[i]);
      }
    for (const int threads : {1, 2, 7}) {
      Ipg_SetNumThreads(threads);
      std::vector<double> bandMean(in.size()), bandVariance(in.size());
      Ipg_RunWindowBands(in.data(), cols, rows, half, 1, [&](unsigned, unsigned begin, unsigned end, Ipg_WindowTables& t) {
        for (unsigned r = begin; r < end; r += 1 + r % 3) // rows skipped, as a sparse walk does
          t.RowMoments(static_cast<int>(r), half, &bandMean[r * cols], &bandVariance[r * cols]);
      });
      for (unsigned r = 0; r < static_cast<unsigned>(rows); ++r) {
        if (bandMean[r * cols] == 0.0 && bandVariance[r * cols] == 0.0)
          continue; // skipped
        ASSERT_TRUE(std::equal(mean.begin() + r * cols, mean.begin() + (r + 1) * cols, bandMean.begin() + r * cols))
            << half << " " << threads << " row " << r;
        ASSERT_TRUE(std::equal(variance.begin() + r * cols, variance.begin() + (r + 1) * cols,
                               bandVariance.begin() + r * cols));
      }
      // A window read whole: the clipped sums of the plain loops.
      double count = 0.0, sum = 0.0, squares = 0.0;
      Ipg_RunWindowBands(in.data(), cols, rows, half, 1, [&](unsigned band, unsigned, unsigned, Ipg_WindowTables& t) {
        if (band == 0)
          t.Window(5, 2, half, count, sum, squares);
      });
      double plain = 0.0;
      for (int y = std::max(0, 2 - half); y <= std::min(rows - 1, 2 + half); ++y)
        for (int x = std::max(0, 5 - half); x <= std::min(cols - 1, 5 + half); ++x)
          plain += in[static_cast<std::size_t>(y) * cols + x];
      EXPECT_NEAR(plain, sum, 1e-9 * plain);
      EXPECT_EQ((std::min(rows - 1, 2 + half) - std::max(0, 2 - half) + 1.0) *
                    (std::min(cols - 1, 5 + half) - std::max(0, 5 - half) + 1.0),
                count);
    }
  }
  Ipg_SetNumThreads(0);
}

// Ratios found in one pass around a sample's middle, or counted by their bit
// patterns, give the middle of the listed ratios: speckle, most of the image
// flat (the middle one is 0, shared by many), dark patches without a positive
// mean, flat strips every 20 rows (a sample of rows may see only them and
// guess a middle of 0, wrongly: the ratios are then counted), a faint texture
// on a high level (variances are small differences of large terms, and many
// ratios lie within a hair of the bounds the sample gives), and speckle with a
// darker row every 20 (a sample of rows may see them all, and guess a middle
// close to the image's but not close enough: a wider guess is tried).
TEST(SpeckleWindows, MedianLocalRatioIsTheMiddleOfTheListedRatios)
{
  std::mt19937 random(3);
  std::gamma_distribution<double> speckle(1.0, 1.0);
  const int cols = 700, rows = 620;
  for (const int kind : {0, 1, 2, 3, 4, 5}) {
    std::vector<double> in(static_cast<std::size_t>(cols) * rows);
    for (std::size_t i = 0; i < in.size(); ++i) {
      const std::size_t c = i % cols, r = i / cols;
      const bool flat = (kind == 1 && c < 600) || (kind == 3 && r % 20 >= 7 && r % 20 <= 13);
      const bool dark = kind == 2 && r % 37 < 14;
      const double texture =
          16777216.0 + 4096.0 * static_cast<double>((c * 3 + r * 7) % 5) + static_cast<double>(random() % 100);
      const double level = kind == 5 && r % 20 == 10 ? 180.0 : 300.0;
      in[i] = kind == 4 ? texture : flat ? 500.0 : dark ? 0.0 : std::floor(level * speckle(random));
    }
    for (const int power : {1, 2}) {
      Ipg_SetNumThreads(1);
      std::vector<double> mean(in.size()), variance(in.size()), ratios;
      Ipg_RunWindowBands(in.data(), cols, rows, 2, 1, [&](unsigned, unsigned begin, unsigned end, Ipg_WindowTables& t) {
        for (unsigned r = begin; r < end; ++r)
          t.RowMoments(static_cast<int>(r), 2, &mean[r * cols], &variance[r * cols]);
      });
      for (std::size_t i = 0; i < in.size(); ++i)
        if (mean[i] > 0.0)
          ratios.push_back(variance[i] / (power == 2 ? mean[i] * mean[i] : mean[i]));
      const double expected = NthElement(ratios);
      for (const int threads : {1, 2, 7}) {
        Ipg_SetNumThreads(threads);
        EXPECT_EQ(expected, Ipg_MedianLocalRatio(in.data(), cols, rows, 2, power)) << kind << " " << threads;
      }
    }
  }
  Ipg_SetNumThreads(0);
}

// A pass run in place, its output rows before its input, writes what it
// writes into an image of its own; so does one whose output overlaps its
// input too closely (through a copy).
TEST(SpeckleWindows, PassesInPlaceWriteWhatTheyWriteElsewhere)
{
  const int cols = 37, rows = 211, reach = 3;
  const std::size_t size = static_cast<std::size_t>(cols) * rows;
  std::vector<double> image(size);
  for (std::size_t i = 0; i < size; ++i)
    image[i] = static_cast<double>((i * 7919) % 1009);
  // Each value: the sum of its column over the rows within reach.
  const auto pass = [&](const double* in, double* out) {
    // Weighed as a costly filter, so that the image splits into bands.
    Ipg_PassRowsInBands<int>(in, out, cols, rows, -1, reach, 4096, [&](int r, double* target, Ipg_WindowTables&, int&) {
      for (int c = 0; c < cols; ++c) {
        double sum = 0.0;
        for (int y = std::max(0, r - reach); y <= std::min(rows - 1, r + reach); ++y)
          sum += in[static_cast<std::size_t>(y) * cols + c];
        target[c] = sum;
      }
    });
  };
  std::vector<double> expected(size);
  Ipg_SetNumThreads(1);
  pass(image.data(), expected.data());
  for (const int threads : {1, 2, 7})
    for (const std::size_t offset : {static_cast<std::size_t>(reach + 1) * cols, static_cast<std::size_t>(reach) * cols,
                                     std::size_t{5}}) {
      Ipg_SetNumThreads(threads);
      std::vector<double> work(size + offset);
      std::copy(image.begin(), image.end(), work.begin() + static_cast<std::ptrdiff_t>(offset));
      pass(work.data() + offset, work.data());
      EXPECT_TRUE(std::equal(expected.begin(), expected.end(), work.begin())) << threads << " " << offset;
    }
  Ipg_SetNumThreads(0);
}

} // namespace
