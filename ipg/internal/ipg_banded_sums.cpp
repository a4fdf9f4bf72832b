// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_banded_sums.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_point_kernel.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/internal/ipg_row_bands.h"
#include "ipg/internal/ipg_simd.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <vector>

namespace {

constexpr std::uint64_t kExactLimit = std::uint64_t{1} << 53;
constexpr std::int64_t kLargestExactRoot = std::int64_t{1} << 26; // its square is below 2^53

// A running total of non-negative integer terms that remembers leaving the exact range.
struct ExactTotal {
  std::uint64_t Value = 0;
  bool Exact = true;
  void Add(std::uint64_t term)
  {
    Value += term;
    Exact = Exact && term < kExactLimit && Value < kExactLimit;
  }
  void Merge(const ExactTotal& other)
  {
    Add(other.Value);
    Exact = Exact && other.Exact;
  }
};

// The signal and noise totals of the bands, as doubles; false when either is not exact.
template <typename Band>
bool NoiseTotals(const std::vector<Band>& perBand, double& signal, double& noise)
{
  ExactTotal totalSignal, totalNoise;
  for (const Band& b : perBand) {
    totalSignal.Merge(b.Signal);
    totalNoise.Merge(b.Noise);
  }
  if (!totalSignal.Exact || !totalNoise.Exact)
    return false;
  signal = static_cast<double>(totalSignal.Value);
  noise = static_cast<double>(totalNoise.Value);
  return true;
}

} // namespace

namespace {

struct SelectedBand {
  IPG_BAND_EXTREMES Extremes;
  std::int64_t Count = 0, Sum = 0;
  Ipg_UInt128 Squares = 0;
  bool SquaresSmall = true; // no selected level below -2^24 (whose square could wrap a block's total)
};

// Pixels walked block by block, so that the three loops of a block read it from
// the first-level cache; 2^12 squares below 2^48 each stay below 2^60.
constexpr std::size_t kSelectedBlock = 4096;

// Pixels [first, last) of the walk, without a branch per pixel.
template <bool HasRoi>
[[gnu::always_inline]] inline int SelectedMask(const int* pixels, const int* roi, std::size_t i)
{
  const int selected = static_cast<int>(!Ipg_IsMark(pixels[i])) & static_cast<int>(HasRoi ? Ipg_InsideRoi(roi[i]) : true);
  return -selected;
}

// Pixels [first, last) of the walk, without a branch per pixel: the selection
// is a bit mask (the form the vectoriser takes for conditional extremes), and
// the 64-bit sum and the sum of squares have loops of their own.
template <bool HasRoi>
[[gnu::always_inline]] inline void AddSelectedIn(const int* pixels, std::size_t first, std::size_t last,
                                                 const int* roi, std::size_t roiSize, bool withSquares,
                                                 SelectedBand& b)
{
  const std::size_t roiLast = roi == nullptr ? last : std::min(last, std::max(first, roiSize));
  int mn = b.Extremes.Min, mx = b.Extremes.Max;
  for (std::size_t block = first; block < roiLast; block += kSelectedBlock) {
    const std::size_t blockEnd = std::min(roiLast, block + kSelectedBlock);
    int count = 0;
    for (std::size_t i = block; i < blockEnd; ++i) {
      const int v = pixels[i];
      const int keep = SelectedMask<HasRoi>(pixels, roi, i);
      mn = std::min(mn, (v & keep) | (INT_MAX & ~keep));
      mx = std::max(mx, (v & keep) | (INT_MIN & ~keep));
      count -= keep;
    }
    std::int64_t sum = 0;
    for (std::size_t i = block; i < blockEnd; ++i)
      sum += static_cast<std::int64_t>(pixels[i] & SelectedMask<HasRoi>(pixels, roi, i));
    b.Count += count;
    b.Sum += sum;
    if (!withSquares)
      continue;
    std::uint64_t squares = 0;
    int large = 0;
    for (std::size_t i = block; i < blockEnd; ++i) {
      const std::int64_t v = pixels[i] & SelectedMask<HasRoi>(pixels, roi, i);
      squares += static_cast<std::uint64_t>(v * v);
      large |= static_cast<int>(v < -kIpgMaxGrey);
    }
    b.Squares += squares;
    b.SquaresSmall = b.SquaresSmall && large == 0;
  }
  b.Extremes.Min = mn;
  b.Extremes.Max = mx;
  b.SquaresSmall = b.SquaresSmall && withSquares;
}

// Inlined into a plain and an AVX2 copy.
[[gnu::always_inline]] inline void AddSelected(const int* pixels, std::size_t first, std::size_t last, const int* roi,
                                               std::size_t roiSize, bool withSquares, SelectedBand& b)
{
  if (roi == nullptr)
    AddSelectedIn<false>(pixels, first, last, roi, roiSize, withSquares, b);
  else
    AddSelectedIn<true>(pixels, first, last, roi, roiSize, withSquares, b);
}

void AddSelectedPlain(const int* pixels, std::size_t first, std::size_t last, const int* roi, std::size_t roiSize,
                      bool withSquares, SelectedBand& b)
{
  AddSelected(pixels, first, last, roi, roiSize, withSquares, b);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void AddSelectedAvx2(const int* pixels, std::size_t first, std::size_t last, const int* roi,
                                             std::size_t roiSize, bool withSquares, SelectedBand& b)
{
  AddSelected(pixels, first, last, roi, roiSize, withSquares, b);
}
#endif

// The noise sums' terms over columns [from, to) of a row with a ROI, one by one.
void NoiseTermsChecked(const int* v, const int* s, const IPG_ROI_ROW& roiRow, unsigned from, unsigned to,
                       ExactTotal& signal, ExactTotal& noise)
{
  for (unsigned col = from; col < to; ++col) {
    if (Ipg_IsMark(v[col]) || !roiRow.Inside(col))
      continue;
    const std::int64_t level = s[col];
    const std::int64_t gap = static_cast<std::int64_t>(v[col]) - s[col];
    const bool small = std::llabs(level) <= kLargestExactRoot && std::llabs(gap) <= kLargestExactRoot;
    signal.Add(small ? static_cast<std::uint64_t>(level * level) : kExactLimit);
    noise.Add(small ? static_cast<std::uint64_t>(gap * gap) : kExactLimit);
  }
}

// 2^10 terms below 2^53 each stay below 2^63.
constexpr unsigned kNoiseRun = 1024;

struct NoiseRunSums {
  std::uint64_t Signal = 0, Noise = 0;
  bool Small = true; // every counted term below kExactLimit
};

// The same terms over a row without a ROI, without a branch per pixel: a mark
// or a term out of the exact range adds nothing and clears Small.
[[gnu::always_inline]] inline NoiseRunSums NoiseRun(const int* v, const int* s, unsigned from, unsigned to)
{
  std::uint64_t signal = 0, noise = 0;
  int large = 0;
  for (unsigned col = from; col < to; ++col) {
    const std::int64_t level = s[col];
    const std::int64_t gap = static_cast<std::int64_t>(v[col]) - s[col];
    const bool counted = !Ipg_IsMark(v[col]);
    const bool small = (level <= kLargestExactRoot) & (level >= -kLargestExactRoot) & (gap <= kLargestExactRoot) &
                       (gap >= -kLargestExactRoot);
    const bool add = counted & small;
    signal += add ? static_cast<std::uint64_t>(level * level) : 0;
    noise += add ? static_cast<std::uint64_t>(gap * gap) : 0;
    large |= static_cast<int>(counted & !small);
  }
  return {signal, noise, large == 0};
}

NoiseRunSums NoiseRunPlain(const int* v, const int* s, unsigned from, unsigned to) { return NoiseRun(v, s, from, to); }

#if defined(__x86_64__)
[[gnu::target("avx2")]] NoiseRunSums NoiseRunAvx2(const int* v, const int* s, unsigned from, unsigned to)
{
  return NoiseRun(v, s, from, to);
}
#endif

// The stats of the whole walk from those of its bands.
IPG_SELECTED_STATS TotalOfBands(const std::vector<SelectedBand>& perBand, unsigned rows, unsigned cols,
                                std::size_t size)
{
  IPG_SELECTED_STATS stats;
  IPG_BAND_EXTREMES extremes;
  std::int64_t sum = 0;
  bool squaresSmall = true;
  for (const SelectedBand& b : perBand) {
    extremes.Add(b.Extremes.Min);
    extremes.Add(b.Extremes.Max);
    stats.Count += b.Count;
    sum += b.Sum;
    stats.SumOfSquares += b.Squares;
    squaresSmall = squaresSmall && b.SquaresSmall;
  }
  // count x the largest magnitude bounds the sum of magnitudes, hence every
  // running total of the serial loop. A row count that leaves pixels over (size
  // not a multiple of cols) is not covered by the bands: the serial loop then
  // does the whole work.
  const long double largest = std::max(std::fabs(static_cast<long double>(extremes.Min)),
                                       std::fabs(static_cast<long double>(extremes.Max)));
  const bool bounded = stats.Count == 0 || largest * static_cast<long double>(stats.Count) < 9007199254740992.0L;
  stats.SumExact = bounded && std::size_t{rows} * cols == size;
  stats.SquaresExact = stats.SumExact && squaresSmall;
  stats.Min = extremes.Min;
  stats.Max = extremes.Max;
  stats.Sum = static_cast<double>(sum);
  return stats;
}

// Levels whose nine-neighbour sums stay below 2^24 in magnitude, so that single
// precision holds them exactly: 9 x 1864135 = 16777215.
constexpr int kBoxLevelLimit = 1864135;

struct BoxNoiseBand {
  ExactTotal Signal, Noise;
  bool InRange = true;
  SelectedBand Levels; // the moments of the rows the band owns
};

// Moments of a row whose levels are all in the box range (squares below 2^42).
[[gnu::always_inline]] inline void AddRowLevels(const int* row, unsigned cols, SelectedBand& b)
{
  int mn = b.Extremes.Min, mx = b.Extremes.Max;
  std::int64_t sum = 0;
  std::uint64_t squares = 0;
  for (unsigned col = 0; col < cols; ++col) {
    const std::int64_t v = row[col];
    mn = std::min(mn, row[col]);
    mx = std::max(mx, row[col]);
    sum += v;
    squares += static_cast<std::uint64_t>(v * v);
  }
  b.Extremes.Min = mn;
  b.Extremes.Max = mx;
  b.Count += cols;
  b.Sum += sum;
  b.Squares += squares;
}

// The noise terms of an interior row against the box means of its column sums.
// Every level of the three rows is in the box range: none is a mark and every
// term is exact (below 2^44), so no pixel needs a test.
[[gnu::always_inline]] inline void AddInRangeNoise(const int* here, const int* column, unsigned cols,
                                                   BoxNoiseBand& b)
{
  for (unsigned from = 1; from + 1 < cols; from += kNoiseRun) {
    const unsigned to = std::min(cols - 1, from + kNoiseRun);
    std::uint64_t signal = 0, noise = 0;
    for (unsigned col = from; col < to; ++col) {
      const int level = static_cast<int>(static_cast<float>(column[col - 1] + column[col] + column[col + 1]) / 9.0f);
      const int gap = here[col] - level;
      signal += static_cast<std::uint64_t>(std::int64_t{level} * level);
      noise += static_cast<std::uint64_t>(std::int64_t{gap} * gap);
    }
    b.Signal.Add(signal);
    b.Noise.Add(noise);
  }
}

// Interior rows [begin, end) of a cols-wide image (cols >= 3): the column sums
// of each row, then its noise terms against their box means.
[[gnu::always_inline]] inline bool OutsideBoxRange(int level)
{
  return static_cast<unsigned>(level) + static_cast<unsigned>(kBoxLevelLimit) > 2u * kBoxLevelLimit;
}

[[gnu::always_inline]] inline bool RowOutsideBoxRange(const int* row, unsigned cols)
{
  int outside = 0;
  for (unsigned col = 0; col < cols; ++col)
    outside |= static_cast<int>(OutsideBoxRange(row[col]));
  return outside != 0;
}

[[gnu::always_inline]] inline void BoxNoiseRows(const int* pixels, unsigned cols, unsigned rows, unsigned begin,
                                                unsigned end, int* column, BoxNoiseBand& b)
{
  // Each row's range is tested once, as it enters the window from below.
  if (begin < end && (RowOutsideBoxRange(pixels + std::size_t{begin - 1} * cols, cols) ||
                      RowOutsideBoxRange(pixels + std::size_t{begin} * cols, cols))) {
    b.InRange = false;
    return;
  }
  for (unsigned row = begin; row < end; ++row) {
    const int* above = pixels + std::size_t{row - 1} * cols;
    const int* here = above + cols;
    const int* below = here + cols;
    if (row + 2 < rows) // the row the next window brings in, fetched while this one is computed
      Ipg_PrefetchRow(below + cols, static_cast<int>(cols));
    int outside = 0;
    // The moments of the row in the same loop: here is in range (tested as it
    // entered), so its squares are exact.
    int mn = b.Levels.Extremes.Min, mx = b.Levels.Extremes.Max;
    std::int64_t sum = 0;
    std::uint64_t squares = 0;
    for (unsigned col = 0; col < cols; ++col) {
      const int h = here[col], w = below[col];
      // Added without overflow: a row holding a level out of range is dropped.
      column[col] = static_cast<int>(static_cast<unsigned>(above[col]) + static_cast<unsigned>(h) +
                                     static_cast<unsigned>(w));
      outside |= static_cast<int>(OutsideBoxRange(w));
      mn = std::min(mn, h);
      mx = std::max(mx, h);
      sum += h;
      squares += static_cast<std::uint64_t>(std::int64_t{h} * h);
    }
    if (outside != 0) {
      b.InRange = false;
      return;
    }
    b.Levels.Extremes.Min = mn;
    b.Levels.Extremes.Max = mx;
    b.Levels.Count += cols;
    b.Levels.Sum += sum;
    b.Levels.Squares += squares;
    if (row == 1)
      AddRowLevels(above, cols, b.Levels);
    if (row + 2 == rows)
      AddRowLevels(below, cols, b.Levels);
    AddInRangeNoise(here, column, cols, b);
  }
}

void BoxNoiseRowsPlain(const int* pixels, unsigned cols, unsigned rows, unsigned begin, unsigned end, int* column,
                       BoxNoiseBand& b)
{
  BoxNoiseRows(pixels, cols, rows, begin, end, column, b);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void BoxNoiseRowsAvx2(const int* pixels, unsigned cols, unsigned rows, unsigned begin,
                                              unsigned end, int* column, BoxNoiseBand& b)
{
  BoxNoiseRows(pixels, cols, rows, begin, end, column, b);
}
#endif

} // namespace

bool Ipg_BoxNoiseSums(const DCM_DATA& in, double& signal, double& noise, IPG_SELECTED_STATS* levels)
{
  const unsigned cols = in.GetNbOfCols(), rows = in.GetNbOfRows();
  if (cols < 3 || rows < 3 || std::size_t{cols} * rows != in.GetSize())
    return false;
  const IPG_ROW_BANDS bands = Ipg_SplitRows(rows - 2, cols);
  std::vector<BoxNoiseBand> perBand(bands.Count);
  const bool avx2 = Ipg_UseAvx2();
  Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
    std::vector<int> column(cols);
#if defined(__x86_64__)
    if (avx2) {
      BoxNoiseRowsAvx2(in.GetIDataAddress(), cols, rows, begin + 1, end + 1, column.data(), perBand[band]);
      return;
    }
#endif
    BoxNoiseRowsPlain(in.GetIDataAddress(), cols, rows, begin + 1, end + 1, column.data(), perBand[band]);
  });
  std::vector<SelectedBand> levelBands;
  for (const BoxNoiseBand& b : perBand) {
    if (!b.InRange)
      return false;
    levelBands.push_back(b.Levels);
  }
  if (!NoiseTotals(perBand, signal, noise))
    return false;
  if (levels != nullptr)
    *levels = TotalOfBands(levelBands, rows, cols, in.GetSize());
  return true;
}

IPG_SELECTED_STATS Ipg_SelectedStats(const int* pixels, std::size_t size, unsigned cols, const int* roi,
                                     std::size_t roiSize, bool withSquares)
{
  const unsigned rows = cols == 0 ? 0 : static_cast<unsigned>(size / cols);
  const IPG_ROW_BANDS bands = Ipg_SplitRows(rows, cols);
  std::vector<SelectedBand> perBand(bands.Count);
  const bool avx2 = Ipg_UseAvx2();
  Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
    const std::size_t first = std::size_t{begin} * cols, last = std::min(size, std::size_t{end} * cols);
#if defined(__x86_64__)
    if (avx2) {
      AddSelectedAvx2(pixels, first, last, roi, roiSize, withSquares, perBand[band]);
      return;
    }
#endif
    AddSelectedPlain(pixels, first, last, roi, roiSize, withSquares, perBand[band]);
  });
  return TotalOfBands(perBand, rows, cols, size);
}

bool Ipg_ExactNoiseSums(const DCM_DATA& in, const DCM_DATA& smoothed, const DCM_STRUCT* roi, double& signal,
                        double& noise)
{
  const unsigned cols = in.GetNbOfCols();
  const unsigned rows = in.GetNbOfRows();
  if (smoothed.GetNbOfCols() != cols || smoothed.GetNbOfRows() != rows || cols < 3 || rows < 3)
    return false;
  // Without a ROI the walk leaves out the one-pixel frame.
  const unsigned first = roi == nullptr ? 1 : 0;
  const unsigned endCols = roi == nullptr ? cols - 1 : cols;
  const unsigned endRows = roi == nullptr ? rows - 1 : rows;
  struct Band {
    ExactTotal Signal, Noise;
  };
  const IPG_ROW_BANDS bands = Ipg_SplitRows(endRows - first, cols);
  std::vector<Band> perBand(bands.Count);
  const int* v0 = in.GetIDataAddress();
  const int* s0 = smoothed.GetIDataAddress();
  const bool avx2 = Ipg_UseAvx2();
  Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
    Band b;
    for (unsigned row = first + begin; row < first + end; ++row) {
      const IPG_ROI_ROW roiRow = Ipg_RoiRow(roi, row);
      const int* v = v0 + std::size_t{row} * cols;
      const int* s = s0 + std::size_t{row} * cols;
      if (roiRow.Values != nullptr) {
        NoiseTermsChecked(v, s, roiRow, first, endCols, b.Signal, b.Noise);
        continue;
      }
      // Runs short enough that 64 bits cannot wrap before the total is checked.
      for (unsigned from = first; from < endCols; from += kNoiseRun) {
        const unsigned to = std::min(endCols, from + kNoiseRun);
        NoiseRunSums sums;
#if defined(__x86_64__)
        if (avx2)
          sums = NoiseRunAvx2(v, s, from, to);
        else
#endif
          sums = NoiseRunPlain(v, s, from, to);
        b.Signal.Add(sums.Signal);
        b.Noise.Add(sums.Noise);
        b.Signal.Exact = b.Signal.Exact && sums.Small;
        b.Noise.Exact = b.Noise.Exact && sums.Small;
      }
    }
    perBand[band] = b;
  });
  return NoiseTotals(perBand, signal, noise);
}

bool Ipg_ExactSquaredDistance(const int* a, const int* b, unsigned cols, unsigned rows, const DCM_STRUCT* roi,
                              double& sum)
{
  const IPG_ROW_BANDS bands = Ipg_SplitRows(rows, cols);
  std::vector<ExactTotal> perBand(bands.Count);
  Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
    ExactTotal total;
    for (unsigned row = begin; row < end; ++row) {
      const IPG_ROI_ROW roiRow = Ipg_RoiRow(roi, row);
      const std::size_t first = std::size_t{row} * cols;
      for (unsigned col = 0; col < cols; ++col) {
        const int va = a[first + col], vb = b[first + col];
        if (Ipg_IsMark(va) || Ipg_IsMark(vb) || !roiRow.Inside(col))
          continue;
        const std::int64_t gap = static_cast<std::int64_t>(va) - vb;
        total.Add(std::llabs(gap) <= kLargestExactRoot ? static_cast<std::uint64_t>(gap * gap) : kExactLimit);
      }
    }
    perBand[band] = total;
  });
  ExactTotal all;
  for (const ExactTotal& t : perBand)
    all.Merge(t);
  if (!all.Exact)
    return false;
  sum = static_cast<double>(all.Value);
  return true;
}
