// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_ratio_tally.h"

#include "ipg/internal/ipg_row_bands.h"
#include "ipg/internal/ipg_simd.h"
#include "ipg/internal/ipg_speckle_windows.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace {

// Non-negative doubles order as their bit patterns (+inf included); a
// negative value or a NaN has a larger pattern than +inf.
constexpr std::uint64_t kInfinityPattern = 0x7FF0000000000000ULL;

// The relative margin of a placement by products. The products differ from
// the divisions by at most about 15 units in the last place of the window's
// squares / count (2e-15 of it): the margin is a million times that.
constexpr double kMargin = 1e-9;
// A mean above this is positive by the division too, and its square is a
// normal number.
constexpr double kClearlyPositive = 1e-140;

// The ratio of one window by the divisions, tallied.
void TallyExactly(double count, double sum, double squares, int power, Ipg_RatioRange range, Ipg_RatioTally& t)
{
  const double mean = sum / count;
  const double v = squares / count - mean * mean;
  const double variance = v > 0.0 ? v : 0.0;
  if (!(mean > 0.0))
    return; // no ratio
  const double ratio = variance / (power == 2 ? mean * mean : mean);
  ++t.Seen;
  t.Unordered |= std::bit_cast<std::uint64_t>(ratio) > kInfinityPattern;
  if (ratio < range.Low)
    ++t.Below;
  else if (ratio == range.Low)
    ++t.AtLow;
  else if (ratio < range.High)
    t.Inside.push_back(ratio);
  else if (ratio == range.High)
    ++t.AtHigh;
}

// The sums over the inner window at c, as RowMoments reads them.
[[gnu::always_inline]] inline void InnerSums(const Ipg_WindowTables::Lines& lines, int half, int c, double& sum,
                                             double& squares)
{
  const int left = c - half, right = c + half + 1;
  sum = lines.SumBottom[right] - lines.SumBottom[left] - lines.SumTop[right] + lines.SumTop[left];
  squares = lines.SquaresBottom[right] - lines.SquaresBottom[left] - lines.SquaresTop[right] + lines.SquaresTop[left];
}

// The inner windows [begin, end) placed by products where the margin allows:
// counted, or marked unsure (unsure[c - begin]) for the divisions. A sum of at most zero has no
// ratio, whatever the count.
[[gnu::always_inline]] inline void PlaceBody(const Ipg_WindowTables::Lines& lines, int half, int begin, int end,
                                             int power, Ipg_RatioRange range, unsigned char* unsure, Ipg_RatioTally& t)
{
  const double inverse = 1.0 / lines.InnerCount;
  const double lowBound = range.Low * (1.0 - kMargin), highBound = range.High * (1.0 + kMargin);
  // A variance clamped to zero gives a ratio of zero, below Low only when Low is positive.
  const bool lowPositive = range.Low > 0.0;
  // Local copies: the flags written could otherwise alias the lines' addresses.
  const double* __restrict sumTop = lines.SumTop;
  const double* __restrict sumBottom = lines.SumBottom;
  const double* __restrict squaresTop = lines.SquaresTop;
  const double* __restrict squaresBottom = lines.SquaresBottom;
  std::size_t seen = 0, below = 0;
  for (int c = begin; c < end; ++c) {
    const int left = c - half, right = c + half + 1;
    const double s = sumBottom[right] - sumBottom[left] - sumTop[right] + sumTop[left];
    const double q = squaresBottom[right] - squaresBottom[left] - squaresTop[right] + squaresTop[left];
    const double mean = s * inverse;
    const double meanSquare = q * inverse;
    const double variance = meanSquare - mean * mean;
    const double divisor = power == 2 ? mean * mean : mean;
    // The errors scale with both terms of the variance, whose difference may
    // be far smaller than either (or below zero, from the tables' rounding).
    const double slack = kMargin * (std::fabs(meanSquare) + mean * mean);
    const bool positive = mean > kClearlyPositive;
    const bool isBelow = positive & lowPositive & (variance + slack < lowBound * divisor);
    const bool isAbove = positive & (variance - slack > highBound * divisor);
    const bool none = s <= 0.0;
    seen += static_cast<std::size_t>(isBelow | isAbove);
    below += static_cast<std::size_t>(isBelow);
    unsure[c - begin] = static_cast<unsigned char>(!(isBelow | isAbove | none));
  }
  t.Seen += seen;
  t.Below += below;
}

void PlacePlain(const Ipg_WindowTables::Lines& lines, int half, int begin, int end, int power, Ipg_RatioRange range,
                unsigned char* unsure, Ipg_RatioTally& t)
{
  PlaceBody(lines, half, begin, end, power, range, unsure, t);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void PlaceAvx2(const Ipg_WindowTables::Lines& lines, int half, int begin, int end, int power,
                                       Ipg_RatioRange range, unsigned char* unsure, Ipg_RatioTally& t)
{
  PlaceBody(lines, half, begin, end, power, range, unsure, t);
}
#endif

// The index of the lowest flag set in eight flags of 0 or 1 read as one word.
int LowestFlag(std::uint64_t flags)
{
  if constexpr (std::endian::native == std::endian::big)
    return std::countl_zero(flags) / 8;
  else
    return std::countr_zero(flags) / 8;
}

// Clears that flag.
std::uint64_t WithoutLowestFlag(std::uint64_t flags, int index)
{
  if constexpr (std::endian::native == std::endian::big)
    return flags & ~(std::uint64_t{1} << (56 - 8 * index));
  else
    return flags & ~(std::uint64_t{1} << (8 * index));
}

} // namespace

void Ipg_TallyRowRatios(Ipg_WindowTables& tables, int row, int cols, int half, int power, Ipg_RatioRange range,
                        Ipg_RatioTally& tally)
{
  const Ipg_WindowTables::Lines lines = tables.RowLines(row, half);
  int begin = 0, end = 0;
  Ipg_WindowTables::InnerColumns(cols, half, begin, end);
  // The clipped windows at the sides always take the divisions.
  const auto clipped = [&](int c) {
    double count = 0.0, sum = 0.0, squares = 0.0;
    tables.Window(c, row, half, count, sum, squares);
    TallyExactly(count, sum, squares, power, range, tally);
  };
  for (int c = 0; c < begin; ++c)
    clipped(c);
  for (int c = end; c < cols; ++c)
    clipped(c);
  if (begin >= end)
    return;
  // Eight flags of padding end the row, so that the flags are read eight at a time.
  const std::size_t width = static_cast<std::size_t>(end - begin);
  tally.Unsure.assign(width + 8, 0);
  unsigned char* unsure = tally.Unsure.data();
#if defined(__x86_64__)
  const auto place = Ipg_UseAvx2() ? PlaceAvx2 : PlacePlain;
#else
  const auto place = PlacePlain;
#endif
  place(lines, half, begin, end, power, range, unsure, tally);
  // Few windows are unsure, and not in any pattern a branch could follow:
  // eight flags are tested at once, then each one set.
  for (int c = begin; c < end; c += 8) {
    std::uint64_t flags = 0;
    std::memcpy(&flags, unsure + (c - begin), sizeof flags);
    while (flags != 0) {
      const int k = LowestFlag(flags);
      double sum = 0.0, squares = 0.0;
      InnerSums(lines, half, c + k, sum, squares);
      TallyExactly(lines.InnerCount, sum, squares, power, range, tally);
      flags = WithoutLowestFlag(flags, k);
    }
  }
}

double Ipg_SelectListedRatio(const std::vector<const std::vector<double>*>& lists, Ipg_RatioRange range,
                             std::size_t rank)
{
  if (lists.empty())
    return 0.0;
  constexpr std::size_t kBuckets = 4096;
  // Monotone in the value, so each bucket holds a run of the sorted values;
  // a range too narrow or too wide for the scale leaves them in one bucket.
  const double scale = static_cast<double>(kBuckets) / (range.High - range.Low);
  const auto bucketOf = [&range, scale](double v) {
    const double x = (v - range.Low) * scale;
    return x < static_cast<double>(kBuckets) ? static_cast<std::size_t>(x) : kBuckets - 1;
  };
  IPG_ROW_BANDS perList;
  perList.Count = perList.Rows = static_cast<unsigned>(lists.size());
  std::vector<std::vector<std::size_t>> counts(lists.size());
  Ipg_RunBands(perList, [&](unsigned list, unsigned, unsigned) {
    counts[list].assign(kBuckets, 0);
    for (const double v : *lists[list])
      ++counts[list][bucketOf(v)];
  });
  std::size_t bucket = 0;
  for (; bucket < kBuckets; ++bucket) {
    std::size_t inBucket = 0;
    for (const std::vector<std::size_t>& count : counts)
      inBucket += count[bucket];
    if (rank < inBucket)
      break;
    rank -= inBucket;
  }
  if (bucket == kBuckets)
    return 0.0; // fewer values than the rank
  std::vector<std::vector<double>> held(lists.size());
  Ipg_RunBands(perList, [&](unsigned list, unsigned, unsigned) {
    held[list].reserve(counts[list][bucket]);
    for (const double v : *lists[list])
      if (bucketOf(v) == bucket)
        held[list].push_back(v);
  });
  for (std::size_t list = 1; list < held.size(); ++list)
    held[0].insert(held[0].end(), held[list].begin(), held[list].end());
  return Ipg_SelectElement(held[0].data(), held[0].size(), rank);
}
