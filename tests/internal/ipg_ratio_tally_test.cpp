// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_ratio_tally.h"
#include "ipg/framework/ipg_threads.h"
#include "ipg/internal/ipg_speckle_windows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

// The ratio of every pixel by RowMoments and a division; none (skipped) where
// the mean is not positive.
std::vector<double> DividedRatios(const std::vector<double>& in, int cols, int rows, int half, int power)
{
  std::vector<double> mean(in.size()), variance(in.size()), ratios;
  Ipg_RunWindowBands(in.data(), cols, rows, half, 1, [&](unsigned, unsigned begin, unsigned end, Ipg_WindowTables& t) {
    for (unsigned r = begin; r < end; ++r)
      t.RowMoments(static_cast<int>(r), half, &mean[r * cols], &variance[r * cols]);
  });
  for (std::size_t i = 0; i < in.size(); ++i)
    if (mean[i] > 0.0)
      ratios.push_back(variance[i] / (power == 2 ? mean[i] * mean[i] : mean[i]));
  return ratios;
}

} // namespace

// The tally places every ratio where its division puts it, for ranges whose
// bounds are ratios of the image, on images whose ratios crowd around them:
// a faint texture on a high level (variances far smaller than the squared
// means, many ratios within the products' margin of a bound), dark rows
// without a ratio, and speckle.
TEST(RatioTally, PlacesEveryRatioWhereItsDivisionPutsIt)
{
  std::mt19937 random(11);
  std::gamma_distribution<double> speckle(1.0, 1.0);
  const int cols = 61, rows = 47;
  for (const int kind : {0, 1, 2}) {
    std::vector<double> in(static_cast<std::size_t>(cols) * rows);
    for (std::size_t i = 0; i < in.size(); ++i) {
      const std::size_t c = i % cols, r = i / cols;
      const double noise = static_cast<double>(random() % 100);
      if (kind == 0) // a faint texture on a high level
        in[i] = 16777216.0 + 4096.0 * static_cast<double>((c * 3 + r * 7) % 5) + noise;
      else if (kind == 1) // dark rows between high ones
        in[i] = r % 9 < 3 ? 0.0 : 1e6 + noise;
      else
        in[i] = std::floor(300.0 * speckle(random));
    }
    for (const int half : {1, 2})
      for (const int power : {1, 2}) {
        std::vector<double> ratios = DividedRatios(in, cols, rows, half, power);
        std::sort(ratios.begin(), ratios.end());
        const auto at = [&](double share) { return ratios[static_cast<std::size_t>(share * (ratios.size() - 1))]; };
        for (const Ipg_RatioRange range : {Ipg_RatioRange{at(0.4), at(0.6)}, Ipg_RatioRange{at(0.5), at(0.5)},
                                           Ipg_RatioRange{0.0, at(0.1)}, Ipg_RatioRange{at(0.02), at(0.98)}}) {
          Ipg_RatioTally tally;
          const auto tallyRows = [&](unsigned, unsigned begin, unsigned end, Ipg_WindowTables& t) {
            for (unsigned r = begin; r < end; ++r)
              Ipg_TallyRowRatios(t, static_cast<int>(r), cols, half, power, range, tally);
          };
          Ipg_RunWindowBands(in.data(), cols, rows, half, 1, tallyRows);
          const auto count = [&](auto keep) {
            return static_cast<std::size_t>(std::count_if(ratios.begin(), ratios.end(), keep));
          };
          std::vector<double> inside;
          std::copy_if(ratios.begin(), ratios.end(), std::back_inserter(inside),
                       [&](double x) { return x > range.Low && x < range.High; });
          std::sort(tally.Inside.begin(), tally.Inside.end());
          const std::string where =
              "kind " + std::to_string(kind) + " half " + std::to_string(half) + " power " + std::to_string(power);
          EXPECT_EQ(tally.Seen, ratios.size()) << where;
          EXPECT_EQ(tally.Below, count([&](double x) { return x < range.Low; })) << where;
          EXPECT_EQ(tally.AtLow, count([&](double x) { return x == range.Low; })) << where;
          EXPECT_EQ(tally.AtHigh, count([&](double x) { return x == range.High && x != range.Low; })) << where;
          EXPECT_EQ(tally.Inside, inside) << where;
          EXPECT_FALSE(tally.Unordered);
        }
      }
  }
}

// Selecting among several lists gives the value a selection over the lists
// joined gives, at every rank: values spread over the range, crowded into a
// sliver of it (one bucket holds nearly all) with ties, a range eight doubles
// wide, one reaching infinity, and an empty list.
TEST(RatioTally, SelectsAmongListsAsAmongTheirJoin)
{
  std::mt19937 random(5);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  const double low = 0.25, ulp = std::nextafter(low, 1.0) - low;
  for (const double high : {0.75, low + 8 * ulp, std::numeric_limits<double>::infinity()})
    for (const int kind : {0, 1, 2}) {
      const auto draw = [&]() -> double {
        if (high - low < 1e-12)
          return low + ulp * static_cast<double>(random() % 7 + 1);
        if (kind == 1)
          return low + 1e-9 * static_cast<double>(random() % 50 + 1);
        return low + (std::min(high, 1.0) - low) * (0.001 + 0.998 * unit(random));
      };
      std::vector<std::vector<double>> lists(kind == 2 ? 4 : 3);
      for (std::size_t list = 0; list < lists.size(); ++list)
        for (std::size_t k = 0; k < (kind == 2 && list == 1 ? 0 : 500 + 300 * list); ++k)
          lists[list].push_back(draw());
      std::vector<double> joined;
      std::vector<const std::vector<double>*> pointers;
      for (const std::vector<double>& list : lists) {
        joined.insert(joined.end(), list.begin(), list.end());
        pointers.push_back(&list);
      }
      std::sort(joined.begin(), joined.end());
      for (const int threads : {1, 2, 7}) {
        Ipg_SetNumThreads(threads);
        for (std::size_t rank = 0; rank < joined.size(); rank += 97)
          EXPECT_EQ(joined[rank], Ipg_SelectListedRatio(pointers, {low, high}, rank)) << high << " " << kind;
        EXPECT_EQ(joined.back(), Ipg_SelectListedRatio(pointers, {low, high}, joined.size() - 1));
      }
    }
  Ipg_SetNumThreads(0);
}
