// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_speckle_windows.h"

#include "ipg/internal/ipg_row_bands.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

namespace {

// A band of rows per thread once a row costs about this many plain copies per
// pixel: little, since the passes of a job each wake the threads.
constexpr std::size_t kMomentWork = 1;

// Up to this many values, the middle one is selected without radix buckets.
constexpr std::size_t kDirectSelection = 16384;

} // namespace

void Ipg_WindowTables::Build(const double* in, int cols, int rows)
{
  Cols = std::max(0, cols);
  Rows = std::max(0, rows);
  Width = static_cast<std::size_t>(Cols) + 1;
  const std::size_t size = Width * (static_cast<std::size_t>(Rows) + 1);
  Sum.resize(size);
  Squares.resize(size);
  Spare.resize(2 * Width);
  std::fill(Sum.begin(), Sum.begin() + static_cast<std::ptrdiff_t>(Width), 0.0);
  std::fill(Squares.begin(), Squares.begin() + static_cast<std::ptrdiff_t>(Width), 0.0);
  // Entry (c + 1, r + 1) is the entry above plus the running sum of row r up
  // to c, as row by row; two rows at a time, whose chains the processor overlaps.
  for (int r = 0; r < Rows; r += 2) {
    const bool pair = r + 1 < Rows;
    const double* first = in + static_cast<std::size_t>(r) * static_cast<std::size_t>(Cols);
    const double* second = pair ? first + Cols : first;
    double* sums = Sum.data() + static_cast<std::size_t>(r + 1) * Width;
    double* squares = Squares.data() + static_cast<std::size_t>(r + 1) * Width;
    // Without a second row, its results go to a scratch line.
    double* nextSums = pair ? sums + Width : Spare.data();
    double* nextSquares = pair ? squares + Width : Spare.data() + Width;
    sums[0] = squares[0] = nextSums[0] = nextSquares[0] = 0.0;
    double line = 0.0, lineSquares = 0.0, nextLine = 0.0, nextLineSquares = 0.0;
    for (int c = 0; c < Cols; ++c) {
      line += first[c];
      lineSquares += first[c] * first[c];
      nextLine += second[c];
      nextLineSquares += second[c] * second[c];
      sums[c + 1] = sums[c + 1 - static_cast<std::ptrdiff_t>(Width)] + line;
      squares[c + 1] = squares[c + 1 - static_cast<std::ptrdiff_t>(Width)] + lineSquares;
      nextSums[c + 1] = sums[c + 1] + nextLine;
      nextSquares[c + 1] = squares[c + 1] + nextLineSquares;
    }
  }
}

void Ipg_WindowTables::Window(int col, int row, int half, double& count, double& sum, double& squares) const
{
  const long c0 = std::max(0, col - half), c1 = std::min(Cols, col + half + 1);
  const long r0 = std::max(0, row - half), r1 = std::min(Rows, row + half + 1);
  count = static_cast<double>(c1 - c0) * static_cast<double>(r1 - r0);
  const double *sumTop = Line(Sum, r0), *sumBottom = Line(Sum, r1);
  const double *squareTop = Line(Squares, r0), *squareBottom = Line(Squares, r1);
  sum = sumBottom[c1] - sumBottom[c0] - sumTop[c1] + sumTop[c0];
  squares = squareBottom[c1] - squareBottom[c0] - squareTop[c1] + squareTop[c0];
}

void Ipg_WindowTables::RowMoments(int row, int half, double* mean, double* variance) const
{
  const auto clipped = [&](int c) {
    double count = 0.0, sum = 0.0, squares = 0.0;
    Window(c, row, half, count, sum, squares);
    mean[c] = sum / count;
    variance[c] = std::max(0.0, squares / count - mean[c] * mean[c]);
  };
  // Inner columns: the window spans 2 half + 1 columns from c - half.
  const int innerBegin = std::min(half, Cols), innerEnd = std::max(innerBegin, Cols - half);
  for (int c = 0; c < innerBegin; ++c)
    clipped(c);
  const long r0 = std::max(0, row - half), r1 = std::min(Rows, row + half + 1);
  const double count = static_cast<double>(2 * half + 1) * static_cast<double>(r1 - r0);
  const double *sumTop = Line(Sum, r0) - half, *sumBottom = Line(Sum, r1) - half;
  const double *squareTop = Line(Squares, r0) - half, *squareBottom = Line(Squares, r1) - half;
  const int span = 2 * half + 1;
  for (int c = innerBegin; c < innerEnd; ++c) {
    const double sum = sumBottom[c + span] - sumBottom[c] - sumTop[c + span] + sumTop[c];
    const double squares = squareBottom[c + span] - squareBottom[c] - squareTop[c + span] + squareTop[c];
    const double m = sum / count;
    mean[c] = m;
    variance[c] = std::max(0.0, squares / count - m * m);
  }
  for (int c = innerEnd; c < Cols; ++c)
    clipped(c);
}

double Ipg_MiddleElement(std::vector<double>& values, std::vector<unsigned long long>& keys)
{
  if (values.empty())
    return 0.0;
  std::size_t rank = values.size() / 2;
  // A short list is selected directly: the radix buckets below cost more to
  // clear than it takes to order a few thousand values.
  if (values.size() <= kDirectSelection) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(rank);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
  }
  // Non-negative doubles order as their bit patterns (+inf included): count
  // them by their top 16 bits, keep the bucket of the middle one and narrow
  // it 12 bits at a time. A negative value or a NaN has a larger pattern than +inf.
  constexpr std::uint64_t kInfinity = 0x7FF0000000000000ULL;
  constexpr int kTopShift = 48;
  std::vector<std::uint32_t> top(std::size_t{1} << (64 - kTopShift), 0);
  bool ordered = true;
  for (const double v : values) {
    const std::uint64_t key = std::bit_cast<std::uint64_t>(v);
    ordered &= key <= kInfinity;
    ++top[key >> kTopShift];
  }
  if (!ordered) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(rank);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
  }
  std::uint64_t bucket = 0;
  while (rank >= top[bucket])
    rank -= top[bucket++];
  keys.clear();
  for (const double v : values)
    if ((std::bit_cast<std::uint64_t>(v) >> kTopShift) == bucket)
      keys.push_back(std::bit_cast<std::uint64_t>(v));
  constexpr int kDigit = 12;
  std::vector<std::size_t> histogram(std::size_t{1} << kDigit);
  for (int shift = kTopShift - kDigit; keys.size() > 64 && shift > -kDigit; shift -= kDigit) {
    const int low = std::max(0, shift);
    const unsigned long long mask = (1ULL << (kDigit - (low - shift))) - 1;
    std::fill(histogram.begin(), histogram.end(), 0);
    for (const unsigned long long key : keys)
      ++histogram[(key >> low) & mask];
    std::size_t digit = 0;
    while (rank >= histogram[digit])
      rank -= histogram[digit++];
    std::erase_if(keys, [&](unsigned long long key) { return ((key >> low) & mask) != digit; });
  }
  const auto middle = keys.begin() + static_cast<std::ptrdiff_t>(rank);
  std::nth_element(keys.begin(), middle, keys.end());
  return std::bit_cast<double>(*middle);
}

void Ipg_LocalMomentsInto(const double* in, int cols, int rows, int half, Ipg_SpeckleBuffers& buffers)
{
  // Always built: the same address may hold new values since the last pass.
  buffers.Tables.Build(in, cols, rows);
  buffers.TablesOf = in;
  const Ipg_WindowTables& tables = buffers.Tables;
  const std::size_t n = static_cast<std::size_t>(std::max(0, cols)) * static_cast<std::size_t>(std::max(0, rows));
  buffers.Mean.resize(n);
  buffers.Variance.resize(n);
  if (n > 0)
    Ipg_RunBands(Ipg_SplitRows(static_cast<unsigned>(rows), static_cast<std::size_t>(cols) * kMomentWork),
                 [&](unsigned, unsigned begin, unsigned end) {
                   for (unsigned r = begin; r < end; ++r) {
                     const std::size_t at = static_cast<std::size_t>(r) * static_cast<std::size_t>(cols);
                     tables.RowMoments(static_cast<int>(r), half, buffers.Mean.data() + at, buffers.Variance.data() + at);
                   }
                 });
  buffers.MomentsOf = in;
  buffers.MomentsHalf = half;
}

double Ipg_MedianLocalRatio(const double* in, int cols, int rows, int half, int power, Ipg_SpeckleBuffers& buffers)
{
  buffers.Tables.Build(in, cols, rows);
  buffers.TablesOf = in;
  const std::size_t n = static_cast<std::size_t>(std::max(0, cols)) * static_cast<std::size_t>(std::max(0, rows));
  const bool keep = buffers.KeepMoments;
  if (keep) {
    buffers.Mean.resize(n);
    buffers.Variance.resize(n);
  }
  if (n == 0)
    return 0.0;
  const IPG_ROW_BANDS bands = Ipg_SplitRows(static_cast<unsigned>(rows), static_cast<std::size_t>(cols) * kMomentWork);
  buffers.BandRatios.resize(bands.Count);
  Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
    std::vector<double>& ratios = buffers.BandRatios[band];
    ratios.clear();
    std::vector<double> line(3 * static_cast<std::size_t>(cols)); // ratio, and mean and variance unless kept
    for (unsigned r = begin; r < end; ++r) {
      const std::size_t at = static_cast<std::size_t>(r) * static_cast<std::size_t>(cols);
      double* ratio = line.data();
      double* mean = keep ? buffers.Mean.data() + at : ratio + cols;
      double* variance = keep ? buffers.Variance.data() + at : ratio + 2 * cols;
      buffers.Tables.RowMoments(static_cast<int>(r), half, mean, variance);
      if (power == 2)
        for (int c = 0; c < cols; ++c)
          ratio[c] = variance[c] / (mean[c] * mean[c]);
      else
        for (int c = 0; c < cols; ++c)
          ratio[c] = variance[c] / mean[c];
      for (int c = 0; c < cols; ++c)
        if (mean[c] > 0.0)
          ratios.push_back(ratio[c]);
    }
  });
  if (keep) {
    buffers.MomentsOf = in;
    buffers.MomentsHalf = half;
  }
  // The bands' lists one after the other: the pixels in row-major order.
  std::vector<double>& ratios = buffers.BandRatios[0];
  for (std::size_t band = 1; band < bands.Count; ++band)
    ratios.insert(ratios.end(), buffers.BandRatios[band].begin(), buffers.BandRatios[band].end());
  return Ipg_MiddleElement(ratios, buffers.Keys);
}

const Ipg_WindowTables& Ipg_SpeckleBuffers::TablesFor(const double* in, int cols, int rows)
{
  if (TablesOf != in) {
    Tables.Build(in, cols, rows);
    TablesOf = in;
  }
  return Tables;
}
