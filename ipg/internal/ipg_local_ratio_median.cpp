// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_local_ratio_median.h"

#include "ipg/internal/ipg_ratio_tally.h"
#include "ipg/internal/ipg_row_bands.h"
#include "ipg/internal/ipg_simd.h"
#include "ipg/internal/ipg_speckle_windows.h"
#include "ipg/ui/ipg_progress.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>
#include <numeric>
#include <optional>
#include <vector>

namespace {

// A window's moments and ratio cost about this many plain copies per pixel:
// a band of 128 x 128 pixels outweighs waking a thread for it.
constexpr std::size_t kMomentWork = 4;

// Up to this many pixels, the local ratios are listed (2 MB at most): on small
// images the counting passes cost more than the list.
constexpr std::size_t kListedRatios = std::size_t{1} << 18;

// Marks a pixel without a positive local mean in the list of ratios (never a ratio).
constexpr double kNoRatio = -1.0;

// variance[0 .. cols) becomes the ratio of each pixel, or kNoRatio. Divisions
// are exact in any lane width, so every copy gives the same ratios.
[[gnu::always_inline]] inline void RatiosBody(const double* mean, double* variance, std::size_t cols, int power)
{
  if (power == 2)
    for (std::size_t c = 0; c < cols; ++c)
      variance[c] = variance[c] / (mean[c] * mean[c]);
  else
    for (std::size_t c = 0; c < cols; ++c)
      variance[c] = variance[c] / mean[c];
  for (std::size_t c = 0; c < cols; ++c)
    variance[c] = mean[c] > 0.0 ? variance[c] : kNoRatio;
}

void RatiosPlain(const double* mean, double* variance, std::size_t cols, int power)
{
  RatiosBody(mean, variance, cols, power);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void RatiosAvx2(const double* mean, double* variance, std::size_t cols, int power)
{
  RatiosBody(mean, variance, cols, power);
}
#endif

void RatiosOfRow(const double* mean, double* variance, std::size_t cols, int power)
{
#if defined(__x86_64__)
  if (Ipg_UseAvx2())
    return RatiosAvx2(mean, variance, cols, power);
#endif
  RatiosPlain(mean, variance, cols, power);
}

// Visits every row of the image's windows of half size: visit(band, row,
// tables), in parallel bands, each with its window tables. Bands visit their
// rows in order, so the bands' visits in turn follow the rows. False when the
// host asked to stop: the visits did not reach every row.
template <typename Visit>
bool WindowRows(const double* in, int cols, int rows, int half, Visit visit)
{
  std::atomic<bool> stop{false};
  Ipg_RunWindowBands(in, cols, rows, half, kMomentWork, [&](unsigned band, unsigned begin, unsigned end, Ipg_WindowTables& tables) {
    for (unsigned r = begin; r < end; ++r) {
      if (Ipg_OnCallingThread() && Ipg_CancelRequested())
        stop = true; // the pass that asks is dropped
      if (stop.load(std::memory_order_relaxed))
        return;
      visit(band, r, tables);
    }
  });
  return !stop;
}

// The ratios of Ipg_MedianLocalRatio, a row at a time: visit(band, row,
// ratios) with kNoRatio for a pixel without a positive local mean.
template <typename Visit>
bool RatioRows(const double* in, int cols, int rows, int half, int power, Visit visit)
{
  return WindowRows(in, cols, rows, half, [&](unsigned band, unsigned row, Ipg_WindowTables& tables) {
    thread_local std::vector<double> mean, ratio;
    mean.resize(static_cast<std::size_t>(cols));
    ratio.resize(static_cast<std::size_t>(cols));
    tables.RowMoments(static_cast<int>(row), half, mean.data(), ratio.data()); // the variance, then the ratio
    RatiosOfRow(mean.data(), ratio.data(), mean.size(), power);
    visit(band, row, static_cast<const double*>(ratio.data()));
  });
}

unsigned BandsOfRatios(int cols, int rows)
{
  return Ipg_SplitRows(static_cast<unsigned>(rows), static_cast<std::size_t>(cols) * kMomentWork).Count;
}

// Every ratio listed in row-major order, then the middle one: for small images,
// and for lists holding a value the bit patterns do not order (a NaN), whose
// selection depends on the order.
double MedianOfListedRatios(const double* in, int cols, int rows, int half, int power)
{
  const std::size_t width = static_cast<std::size_t>(cols);
  std::vector<double> ratios(width * static_cast<std::size_t>(rows));
  RatioRows(in, cols, rows, half, power, [&](unsigned, unsigned row, const double* ratio) {
    std::copy_n(ratio, width, ratios.data() + static_cast<std::size_t>(row) * width);
  });
  const auto end = std::remove(ratios.begin(), ratios.end(), kNoRatio);
  return Ipg_MiddleElement(ratios.data(), static_cast<std::size_t>(end - ratios.begin()));
}

// Non-negative doubles order as their bit patterns (+inf included); a
// negative value or a NaN has a larger pattern than +inf.
constexpr std::uint64_t kInfinityPattern = 0x7FF0000000000000ULL;
constexpr int kDigitBits = 16;
constexpr std::size_t kDigits = std::size_t{1} << kDigitBits;
// Up to this many candidates are listed and selected among.
constexpr std::size_t kListedCandidates = std::size_t{1} << 18;

// The candidates of a selection: the ratios whose top Known bits are Prefix.
struct Candidates {
  std::uint64_t Prefix = 0;
  int Known = 0;
  bool Holds(std::uint64_t key) const { return Known == 0 || (key >> (64 - Known)) == Prefix; }
};

// Counts the ratios by their bit patterns, 16 bits at a time, keeping the
// digit of the middle one, until few enough are left to list.
double MedianByCountedDigits(const double* in, int cols, int rows, int half, int power)
{
  const unsigned bands = BandsOfRatios(cols, rows);
  std::vector<std::vector<std::size_t>> counts(bands);
  std::vector<std::size_t> total(kDigits);
  std::atomic<bool> unordered{false};
  Candidates candidates;
  std::size_t rank = 0;
  for (;;) {
    for (std::vector<std::size_t>& count : counts)
      count.assign(kDigits, 0);
    const int shift = 64 - candidates.Known - kDigitBits;
    RatioRows(in, cols, rows, half, power, [&](unsigned band, unsigned, const double* ratio) {
      std::size_t* count = counts[band].data();
      for (int c = 0; c < cols; ++c) {
        if (ratio[c] == kNoRatio)
          continue;
        const std::uint64_t key = std::bit_cast<std::uint64_t>(ratio[c]);
        if (key > kInfinityPattern)
          unordered = true;
        else if (candidates.Holds(key))
          ++count[(key >> shift) & (kDigits - 1)];
      }
    });
    if (unordered)
      return MedianOfListedRatios(in, cols, rows, half, power);
    std::fill(total.begin(), total.end(), 0);
    for (const std::vector<std::size_t>& count : counts)
      for (std::size_t d = 0; d < kDigits; ++d)
        total[d] += count[d];
    if (candidates.Known == 0) {
      const std::size_t listed = std::accumulate(total.begin(), total.end(), std::size_t{0});
      if (listed == 0)
        return 0.0;
      rank = listed / 2;
    }
    std::size_t digit = 0;
    while (digit < kDigits && rank >= total[digit])
      rank -= total[digit++];
    if (digit == kDigits)
      return 0.0; // cancelled during the count: the pass is dropped
    candidates.Prefix = (candidates.Prefix << kDigitBits) | digit;
    candidates.Known += kDigitBits;
    if (candidates.Known == 64)
      return std::bit_cast<double>(candidates.Prefix);
    if (total[digit] <= kListedCandidates)
      break;
  }
  std::vector<std::vector<double>> lists(bands);
  RatioRows(in, cols, rows, half, power, [&](unsigned band, unsigned, const double* ratio) {
    for (int c = 0; c < cols; ++c)
      if (ratio[c] != kNoRatio && candidates.Holds(std::bit_cast<std::uint64_t>(ratio[c])))
        lists[band].push_back(ratio[c]);
  });
  for (std::size_t band = 1; band < lists.size(); ++band)
    lists[0].insert(lists[0].end(), lists[band].begin(), lists[band].end());
  std::vector<double>& list = lists[0];
  if (rank >= list.size())
    return 0.0; // cancelled during the listing
  return Ipg_SelectElement(list.data(), list.size(), rank);
}

// About this many ratios are sampled, from whole rows spread over the image.
constexpr std::size_t kSampledRatios = std::size_t{1} << 16;
// Fewer sampled ratios than this say too little to guess from.
constexpr std::size_t kFewestSampled = 1024;
// The sample's middle 2 x kMiddleShare of its ratios bound those listed; when
// the middle of the image lies outside them, its middle 2 x kWideShare (at
// most an eighth of the ratios listed, for a sample like the image).
constexpr double kMiddleShare = 0.015;
constexpr double kWideShare = 0.05;

// A sampled row's window sums over its rows top .. bottom, in sums and
// squares [0 .. cols], then their running totals from column 0.
void SampleRowSums(const double* in, std::size_t cols, long top, long bottom, double* __restrict sums,
                   double* __restrict squares)
{
  std::fill_n(sums, cols + 1, 0.0);
  std::fill_n(squares, cols + 1, 0.0);
  for (long y = top; y < bottom; ++y) {
    const double* __restrict line = in + static_cast<std::size_t>(y) * cols;
    for (std::size_t c = 0; c < cols; ++c) {
      sums[c + 1] += line[c];
      squares[c + 1] += line[c] * line[c];
    }
  }
  std::partial_sum(sums, sums + cols + 1, sums);
  std::partial_sum(squares, squares + cols + 1, squares);
}

// The sampled ratio of the window [left, right) from the running totals, or
// kNoRatio where its mean is not positive.
[[gnu::always_inline]] inline double SampledRatio(const double* sums, const double* squares, long left, long right,
                                                  double inverse, int power)
{
  const double mean = (sums[right] - sums[left]) * inverse;
  const double variance = std::max(0.0, (squares[right] - squares[left]) * inverse - mean * mean);
  const double ratio = variance / (power == 2 ? mean * mean : mean);
  return mean > 0.0 ? ratio : kNoRatio;
}

// The windows that the sides do not clip, columns begin .. end: inlined into
// a plain and an AVX2 copy, which give the same ratios.
[[gnu::always_inline]] inline void SampledInnerBody(const double* sums, const double* squares, long begin, long end,
                                                    long half, double inverse, int power, double* __restrict out)
{
  for (long c = begin; c < end; ++c)
    out[c] = SampledRatio(sums, squares, c - half, c + half + 1, inverse, power);
}

void SampledInnerPlain(const double* sums, const double* squares, long begin, long end, long half, double inverse,
                       int power, double* out)
{
  SampledInnerBody(sums, squares, begin, end, half, inverse, power, out);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void SampledInnerAvx2(const double* sums, const double* squares, long begin, long end,
                                              long half, double inverse, int power, double* out)
{
  SampledInnerBody(sums, squares, begin, end, half, inverse, power, out);
}
#endif

// The ratios of one sampled row into out[0 .. cols), kNoRatio for a window
// without a positive mean; sums and squares hold cols + 1 values of scratch.
void SampleRow(const double* in, int cols, int rows, int half, int power, long row, double* sums, double* squares,
               double* out)
{
  const std::size_t width = static_cast<std::size_t>(cols);
  const long top = std::max(0L, row - half), bottom = std::min<long>(rows, row + half + 1);
  SampleRowSums(in, width, top, bottom, sums, squares);
  // A guess needs no exact ratios: products by the reciprocal of the window's
  // size, the same for every window but those the sides clip.
  const long height = bottom - top;
  const double inner = 1.0 / static_cast<double>((2L * half + 1) * height);
  const long begin = std::min<long>(half, cols), end = std::max(begin, static_cast<long>(cols) - half);
  const auto clipped = [&](long c) {
    const long left = std::max(0L, c - half), right = std::min<long>(cols, c + half + 1);
    out[c] = SampledRatio(sums, squares, left, right, 1.0 / static_cast<double>((right - left) * height), power);
  };
  for (long c = 0; c < begin; ++c)
    clipped(c);
  for (long c = end; c < cols; ++c)
    clipped(c);
#if defined(__x86_64__)
  if (Ipg_UseAvx2())
    return SampledInnerAvx2(sums, squares, begin, end, half, inner, power, out);
#endif
  SampledInnerPlain(sums, squares, begin, end, half, inner, power, out);
}

// Ratios of a few rows spread evenly over the image, from window sums taken
// directly and products by the reciprocal of the window's size: they differ
// from the tables' divided ratios in the last bits, which is close enough to
// guess where the middle ratio lies. The sampled rows read at most a quarter
// of the pixels a pass reads; none when windows are too tall for that.
std::vector<double> SampledRatios(const double* in, int cols, int rows, int half, int power)
{
  const std::size_t width = static_cast<std::size_t>(cols);
  const long side = 2L * half + 1;
  const long affordable = static_cast<long>(rows) / (4 * side);
  const long wanted = std::max(1L, static_cast<long>(kSampledRatios / width));
  const long count = std::min({static_cast<long>(rows), wanted, affordable});
  if (count < 1)
    return {};
  // The sampled rows in parallel bands, each into its own part of the list;
  // their order does not matter to a quantile.
  std::vector<double> ratios(static_cast<std::size_t>(count) * width);
  const IPG_ROW_BANDS bands = Ipg_SplitRows(static_cast<unsigned>(count), width * static_cast<std::size_t>(side));
  Ipg_RunBands(bands, [&](unsigned, unsigned begin, unsigned end) {
    std::vector<double> sums(width + 1), squares(width + 1);
    for (unsigned k = begin; k < end; ++k)
      SampleRow(in, cols, rows, half, power, (2L * k + 1) * rows / (2 * count), sums.data(), squares.data(),
                ratios.data() + k * width);
  });
  // The windows without a positive mean leave the list; a NaN leaves no
  // order to guess from.
  std::size_t kept = 0;
  for (const double ratio : ratios) {
    if (ratio >= 0.0)
      ratios[kept++] = ratio;
    else if (ratio != kNoRatio)
      return {};
  }
  ratios.resize(kept);
  return ratios;
}

std::optional<Ipg_RatioRange> GuessMiddleRange(std::vector<double>& sample, double share)
{
  const std::size_t n = sample.size();
  if (n < kFewestSampled)
    return std::nullopt;
  const auto rank = [n](double at) { return static_cast<std::size_t>(static_cast<double>(n) * at); };
  const double low = Ipg_SelectElement(sample.data(), n, rank(0.5 - share));
  return Ipg_RatioRange{low, Ipg_SelectElement(sample.data(), n, rank(0.5 + share))};
}

// One band's share of the pass.
struct BandPass {
  Ipg_RatioTally Tally;
  bool Overflow = false; // more inside than the band may list
};

enum class Outcome { Found, Missed, Unordered, Stopped };

// Lists up to this many values stay with their thread for its next pass.
constexpr std::size_t kKeptList = std::size_t{1} << 18;

// The bands' tallies of the calling thread's last pass. They are kept for its
// next pass, so that their lists keep their memory: fresh memory is cleared
// by the system, and freeing it stalls the other threads.
thread_local std::vector<BandPass> tKeptPasses;
thread_local bool tKeptPassesLent = false;

// Empty tallies for a pass in bands: the kept ones, or tallies of their own
// while those are lent (a pass that starts during another on this thread).
// Lists above kKeptList go once the pass is done.
class PassTallies {
public:
  explicit PassTallies(unsigned bands) : Lent(!tKeptPassesLent), Passes(Lent ? tKeptPasses : Own)
  {
    if (Lent)
      tKeptPassesLent = true;
    Passes.resize(bands);
    for (BandPass& pass : Passes) {
      std::vector<double> inside = std::move(pass.Tally.Inside);
      inside.clear();
      pass = BandPass{};
      pass.Tally.Inside = std::move(inside);
    }
  }
  ~PassTallies()
  {
    if (!Lent)
      return;
    for (BandPass& pass : Passes)
      if (pass.Tally.Inside.capacity() > kKeptList)
        std::vector<double>().swap(pass.Tally.Inside);
    tKeptPassesLent = false;
  }
  PassTallies(const PassTallies&) = delete;
  PassTallies& operator=(const PassTallies&) = delete;

  std::vector<BandPass>& Get() { return Passes; }

private:
  bool Lent;
  std::vector<BandPass> Own;
  std::vector<BandPass>& Passes;
};

// One pass: the middle ratio when it lies within range, found among the
// listed ones by its rank.
Outcome MedianWithinRange(const double* in, int cols, int rows, int half, int power, Ipg_RatioRange range,
                          double& median)
{
  const std::size_t pixels = static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows);
  const unsigned bands = BandsOfRatios(cols, rows);
  // At most an eighth of the ratios (one byte a pixel) are listed.
  const std::size_t bandCap = std::max(kListedCandidates, pixels / 8) / bands + 1;
  PassTallies tallies(bands);
  std::vector<BandPass>& passes = tallies.Get();
  const bool complete = WindowRows(in, cols, rows, half, [&](unsigned band, unsigned row, Ipg_WindowTables& tables) {
    BandPass& pass = passes[band];
    if (pass.Overflow)
      return;
    Ipg_TallyRowRatios(tables, static_cast<int>(row), cols, half, power, range, pass.Tally);
    pass.Overflow = pass.Tally.Inside.size() > bandCap;
  });
  if (!complete)
    return Outcome::Stopped;
  Ipg_RatioTally all;
  std::vector<const std::vector<double>*> lists;
  for (const BandPass& pass : passes) {
    const Ipg_RatioTally& t = pass.Tally;
    if (t.Unordered)
      return Outcome::Unordered;
    if (pass.Overflow)
      return Outcome::Missed;
    all.Below += t.Below;
    all.AtLow += t.AtLow;
    all.AtHigh += t.AtHigh;
    all.Seen += t.Seen;
    lists.push_back(&t.Inside);
  }
  const std::size_t inside = std::accumulate(lists.begin(), lists.end(), std::size_t{0},
                                             [](std::size_t n, const std::vector<double>* list) { return n + list->size(); });
  std::size_t rank = all.Seen / 2;
  if (all.Seen == 0) {
    median = 0.0;
    return Outcome::Found;
  }
  if (rank < all.Below)
    return Outcome::Missed;
  rank -= all.Below;
  if (rank < all.AtLow) {
    median = range.Low;
    return Outcome::Found;
  }
  rank -= all.AtLow;
  if (rank < inside) {
    median = Ipg_SelectListedRatio(lists, range, rank);
    return Outcome::Found;
  }
  rank -= inside;
  if (rank < all.AtHigh) {
    median = range.High;
    return Outcome::Found;
  }
  return Outcome::Missed;
}

} // namespace

void Ipg_ReleaseRatioLists()
{
  if (!tKeptPassesLent)
    std::vector<BandPass>().swap(tKeptPasses);
}

double Ipg_MedianLocalRatio(const double* in, int cols, int rows, int half, int power)
{
  if (cols <= 0 || rows <= 0)
    return 0.0;
  if (static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows) <= kListedRatios)
    return MedianOfListedRatios(in, cols, rows, half, power);
  std::vector<double> sample = SampledRatios(in, cols, rows, half, power);
  for (const double share : {kMiddleShare, kWideShare}) {
    const std::optional<Ipg_RatioRange> range = GuessMiddleRange(sample, share);
    if (!range)
      break;
    double median = 0.0;
    switch (MedianWithinRange(in, cols, rows, half, power, *range, median)) {
    case Outcome::Found:
      return median;
    case Outcome::Stopped:
      return 0.0; // the pass is dropped
    case Outcome::Unordered:
      return MedianOfListedRatios(in, cols, rows, half, power);
    case Outcome::Missed:
      break;
    }
  }
  return MedianByCountedDigits(in, cols, rows, half, power);
}
