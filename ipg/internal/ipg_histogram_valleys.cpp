// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_histogram_valleys.h"

#include <algorithm>
#include <cstddef>
#include <set>
#include <tuple>

namespace {

// Window sums instead of means: every bin is divided by the same width, so the
// order of the smoothed values, which is all the split uses, is exact.
std::vector<std::int64_t> WindowSums(const std::vector<std::int64_t>& counts, int width)
{
  const std::ptrdiff_t n = static_cast<std::ptrdiff_t>(counts.size());
  const std::ptrdiff_t half = width / 2;
  std::vector<std::int64_t> prefix(counts.size() + 1, 0);
  for (std::ptrdiff_t k = 0; k < n; ++k)
    prefix[k + 1] = prefix[k] + counts[k];
  std::vector<std::int64_t> sums(counts.size());
  for (std::ptrdiff_t k = 0; k < n; ++k)
    sums[k] = prefix[std::min(n, k + half + 1)] - prefix[std::max<std::ptrdiff_t>(0, k - half)];
  return sums;
}

struct Run {
  std::int64_t Value;
  int First, Last;
};

std::vector<Run> Runs(const std::vector<std::int64_t>& values)
{
  std::vector<Run> runs;
  for (int k = 0; k < static_cast<int>(values.size()); ++k)
    if (runs.empty() || runs.back().Value != values[k])
      runs.push_back({values[k], k, k});
    else
      runs.back().Last = k;
  return runs;
}

// Modes in order, each with the valley that separates it from the next one.
struct Mode {
  std::int64_t Height;
  std::int64_t ValleyHeight = 0; // of the valley to its right
  int ValleyBin = -1;
  int Previous = -1, Next = -1;
};

std::vector<Mode> ModesOf(const std::vector<Run>& runs)
{
  std::vector<Mode> modes;
  int lowest = -1; // lowest run since the last mode
  for (int r = 0; r < static_cast<int>(runs.size()); ++r) {
    const bool aboveLeft = r == 0 || runs[r].Value > runs[r - 1].Value;
    const bool aboveRight = r + 1 == static_cast<int>(runs.size()) || runs[r].Value > runs[r + 1].Value;
    if (aboveLeft && aboveRight) {
      if (!modes.empty()) {
        modes.back().ValleyHeight = runs[lowest].Value;
        modes.back().ValleyBin = (runs[lowest].First + runs[lowest].Last) / 2;
        modes.back().Next = static_cast<int>(modes.size());
      }
      modes.push_back({runs[r].Value, 0, -1, static_cast<int>(modes.size()) - 1, -1});
      lowest = -1;
    } else if (lowest < 0 || runs[r].Value < runs[lowest].Value) {
      lowest = r;
    }
  }
  return modes;
}

} // namespace

std::vector<int> Ipg_HistogramValleys(const std::vector<std::int64_t>& counts, int width, double minDepth,
                                      int maxClasses)
{
  const std::vector<std::int64_t> sums = WindowSums(counts, width);
  std::vector<Mode> modes = ModesOf(Runs(sums));
  if (modes.empty())
    return {};
  const double highest = static_cast<double>(*std::max_element(sums.begin(), sums.end()));
  auto depth = [&](int m) {
    return std::min(modes[m].Height, modes[modes[m].Next].Height) - modes[m].ValleyHeight;
  };
  // (depth, valley bin, mode on its left): the shallowest, then the leftmost, first.
  std::set<std::tuple<std::int64_t, int, int>> valleys;
  for (int m = 0; modes[m].Next >= 0; m = modes[m].Next)
    valleys.insert({depth(m), modes[m].ValleyBin, m});
  auto remove = [&](int m) { valleys.erase({depth(m), modes[m].ValleyBin, m}); };
  auto add = [&](int m) { valleys.insert({depth(m), modes[m].ValleyBin, m}); };

  while (!valleys.empty()) {
    const std::int64_t shallowest = std::get<0>(*valleys.begin());
    const int left = std::get<2>(*valleys.begin());
    const bool tooMany = static_cast<int>(valleys.size()) + 1 > maxClasses;
    if (!tooMany && static_cast<double>(shallowest) >= minDepth * highest)
      break;
    const int right = modes[left].Next;
    const int before = modes[left].Previous;
    valleys.erase(valleys.begin());
    if (before >= 0)
      remove(before);
    if (modes[right].Next >= 0)
      remove(right);
    // The right mode joins the left one, which inherits its valley.
    modes[left].Height = std::max(modes[left].Height, modes[right].Height);
    modes[left].ValleyHeight = modes[right].ValleyHeight;
    modes[left].ValleyBin = modes[right].ValleyBin;
    modes[left].Next = modes[right].Next;
    if (modes[left].Next >= 0) {
      modes[modes[left].Next].Previous = left;
      add(left);
    }
    if (before >= 0)
      add(before);
  }
  std::vector<int> bins;
  for (const auto& valley : valleys)
    bins.push_back(std::get<1>(valley));
  std::sort(bins.begin(), bins.end());
  return bins;
}
