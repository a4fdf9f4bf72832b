// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_speckle_windows.h"

#include "ipg/internal/ipg_row_bands.h"
#include "ipg/internal/ipg_simd.h"
#include "ipg/ui/ipg_progress.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstdint>
#include <numeric>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace {

// Up to this many values, the one sought is selected without radix buckets.
constexpr std::size_t kDirectSelection = 16384;

} // namespace

void Ipg_WindowTables::Start(const double* in, int cols, int rows, int reach, int first, int end, const double* seed)
{
  In = in;
  Cols = std::max(0, cols);
  Rows = std::max(0, rows);
  Half = std::max(0, reach);
  Width = static_cast<std::size_t>(Cols) + 1;
  // Windows of the band's rows, and of the row after it (a pass may look one row ahead).
  const long top = std::max(0, first - Half);
  const long bottom = std::min<long>(Rows, static_cast<long>(end) + Half + 1);
  // The rows within reach of one image row, and up to four built ahead.
  Capacity = std::max(2L, std::min(bottom - top + 1, 2L * Half + 6));
  Fours = Ipg_UseAvx2();
  Sum.resize(static_cast<std::size_t>(Capacity) * Width);
  Squares.resize(Sum.size());
  Built = top;
  double* sums = Line(Sum, top);
  double* squares = Line(Squares, top);
  if (seed == nullptr) {
    std::fill(sums, sums + Width, 0.0);
    std::fill(squares, squares + Width, 0.0);
  } else {
    std::copy(seed, seed + Width, sums);
    std::copy(seed + Width, seed + 2 * Width, squares);
  }
}

void Ipg_WindowTables::Extend(int row)
{
  const long needed = std::min<long>(Rows, row + Half + 1L);
  const long kept = std::max(0L, static_cast<long>(row) - Half); // the top row still read
  while (Built < needed) {
    if (Fours && Built + 4 <= Rows && Built + 4 < kept + Capacity) {
      BuildFourRows(Built + 1);
      Built += 4;
      continue;
    }
    // Two rows at a time when the second fits: the processor overlaps their chains.
    const bool pair = Capacity >= 3 && Built + 2 <= Rows && Built + 2 < kept + Capacity;
    BuildRows(Built + 1, pair);
    Built += pair ? 2 : 1;
  }
}

void Ipg_WindowTables::BuildRows(long first, bool pair)
{
  // Entry (c + 1, t) is the entry above plus the running sum of image row t - 1 up to c.
  const double* firstLine = In + static_cast<std::size_t>(first - 1) * static_cast<std::size_t>(Cols);
  const double* secondLine = pair ? firstLine + Cols : firstLine;
  const double* above = SumLine(first - 1);
  const double* aboveSquares = SquaresLine(first - 1);
  double* sums = Line(Sum, first);
  double* squares = Line(Squares, first);
  // Without a second row, its results are written over the first's, then again.
  double* nextSums = pair ? Line(Sum, first + 1) : sums;
  double* nextSquares = pair ? Line(Squares, first + 1) : squares;
  nextSums[0] = nextSquares[0] = 0.0;
  double line = 0.0, lineSquares = 0.0, nextLine = 0.0, nextLineSquares = 0.0;
  for (int c = 0; c < Cols; ++c) {
    line += firstLine[c];
    lineSquares += firstLine[c] * firstLine[c];
    nextLine += secondLine[c];
    nextLineSquares += secondLine[c] * secondLine[c];
    const double sum = above[c + 1] + line, square = aboveSquares[c + 1] + lineSquares;
    nextSums[c + 1] = sum + nextLine;
    nextSquares[c + 1] = square + nextLineSquares;
    sums[c + 1] = sum;
    squares[c + 1] = square;
  }
  sums[0] = squares[0] = 0.0;
}

#if defined(__x86_64__)
namespace {

[[gnu::target("avx2")]] inline void Transpose(__m256d v[4])
{
  const __m256d low01 = _mm256_unpacklo_pd(v[0], v[1]), high01 = _mm256_unpackhi_pd(v[0], v[1]);
  const __m256d low23 = _mm256_unpacklo_pd(v[2], v[3]), high23 = _mm256_unpackhi_pd(v[2], v[3]);
  v[0] = _mm256_permute2f128_pd(low01, low23, 0x20);
  v[1] = _mm256_permute2f128_pd(high01, high23, 0x20);
  v[2] = _mm256_permute2f128_pd(low01, low23, 0x31);
  v[3] = _mm256_permute2f128_pd(high01, high23, 0x31);
}

// Four table rows from four image rows, each row's running sums in a lane of
// its own: every block of four columns is turned so that a vector holds one
// column of the four rows, summed on down the lanes, and turned back, so
// that each table row is the one above plus its running sums. Every value
// takes the additions, in the order, of the row-by-row build.
[[gnu::target("avx2")]] void BuildFourRowsAvx2(const double* const image[4], std::size_t cols, const double* above,
                                               const double* aboveSquares, double* const sums[4],
                                               double* const squares[4])
{
  __m256d line = _mm256_setzero_pd(), lineSquares = _mm256_setzero_pd();
  std::size_t c = 0;
  for (; c + 4 <= cols; c += 4) {
    __m256d runs[4], runSquares[4];
    for (int i = 0; i < 4; ++i)
      runs[i] = _mm256_loadu_pd(image[i] + c);
    Transpose(runs); // runs[j]: column c + j of the four rows
    for (int j = 0; j < 4; ++j) {
      const __m256d x = runs[j];
      line = _mm256_add_pd(line, x);
      lineSquares = _mm256_add_pd(lineSquares, _mm256_mul_pd(x, x));
      runs[j] = line;
      runSquares[j] = lineSquares;
    }
    Transpose(runs); // runs[i]: row i's running sums at columns c .. c + 3
    Transpose(runSquares);
    __m256d sum = _mm256_loadu_pd(above + c + 1), square = _mm256_loadu_pd(aboveSquares + c + 1);
    for (int i = 0; i < 4; ++i) {
      sum = _mm256_add_pd(sum, runs[i]);
      square = _mm256_add_pd(square, runSquares[i]);
      _mm256_storeu_pd(sums[i] + c + 1, sum);
      _mm256_storeu_pd(squares[i] + c + 1, square);
    }
  }
  alignas(32) double lines[4], lineSquareSums[4];
  _mm256_store_pd(lines, line);
  _mm256_store_pd(lineSquareSums, lineSquares);
  for (; c < cols; ++c) {
    double sum = above[c + 1], square = aboveSquares[c + 1];
    for (int i = 0; i < 4; ++i) {
      const double x = image[i][c];
      lines[i] += x;
      lineSquareSums[i] += x * x;
      sum += lines[i];
      square += lineSquareSums[i];
      sums[i][c + 1] = sum;
      squares[i][c + 1] = square;
    }
  }
  for (int i = 0; i < 4; ++i)
    sums[i][0] = squares[i][0] = 0.0;
}

} // namespace
#endif

void Ipg_WindowTables::BuildFourRows(long first)
{
#if defined(__x86_64__)
  const std::size_t cols = static_cast<std::size_t>(Cols);
  const double* image[4];
  double* sums[4];
  double* squares[4];
  for (int i = 0; i < 4; ++i) {
    image[i] = In + static_cast<std::size_t>(first - 1 + i) * cols;
    sums[i] = Line(Sum, first + i);
    squares[i] = Line(Squares, first + i);
  }
  BuildFourRowsAvx2(image, cols, SumLine(first - 1), SquaresLine(first - 1), sums, squares);
#else
  BuildRows(first, true);
  BuildRows(first + 2, true);
#endif
}

void Ipg_WindowTables::Window(int col, int row, int half, double& count, double& sum, double& squares)
{
  Reach(row);
  const long c0 = std::max(0, col - half), c1 = std::min(Cols, col + half + 1);
  const long r0 = std::max(0, row - half), r1 = std::min(Rows, row + half + 1);
  count = static_cast<double>(c1 - c0) * static_cast<double>(r1 - r0);
  const double *sumTop = SumLine(r0), *sumBottom = SumLine(r1);
  const double *squareTop = SquaresLine(r0), *squareBottom = SquaresLine(r1);
  sum = sumBottom[c1] - sumBottom[c0] - sumTop[c1] + sumTop[c0];
  squares = squareBottom[c1] - squareBottom[c0] - squareTop[c1] + squareTop[c0];
}

namespace {

// Mean and variance of the windows of the columns [begin, end), all of whose
// windows span 2 half + 1 columns: the four table reads of each window. The
// divisions are exact in any lane width, so both copies give the same values.
[[gnu::always_inline]] inline void InnerMomentsBody(const double* sumTop, const double* sumBottom,
                                                    const double* squareTop, const double* squareBottom, int half,
                                                    double count, int begin, int end, double* mean, double* variance)
{
  for (int c = begin; c < end; ++c) {
    const int left = c - half, right = c + half + 1;
    const double sum = sumBottom[right] - sumBottom[left] - sumTop[right] + sumTop[left];
    const double squares = squareBottom[right] - squareBottom[left] - squareTop[right] + squareTop[left];
    const double m = sum / count;
    mean[c] = m;
    const double v = squares / count - m * m;
    variance[c] = v > 0.0 ? v : 0.0; // max(0, v): NaN gives 0, as std::max(0.0, v)
  }
}

void InnerMomentsPlain(const double* sumTop, const double* sumBottom, const double* squareTop,
                       const double* squareBottom, int half, double count, int begin, int end, double* mean,
                       double* variance)
{
  InnerMomentsBody(sumTop, sumBottom, squareTop, squareBottom, half, count, begin, end, mean, variance);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void InnerMomentsAvx2(const double* sumTop, const double* sumBottom, const double* squareTop,
                                              const double* squareBottom, int half, double count, int begin, int end,
                                              double* mean, double* variance)
{
  InnerMomentsBody(sumTop, sumBottom, squareTop, squareBottom, half, count, begin, end, mean, variance);
}
#endif

} // namespace

void Ipg_WindowTables::RowMoments(int row, int half, double* mean, double* variance)
{
  Reach(row);
  const auto clipped = [&](int c) {
    double count = 0.0, sum = 0.0, squares = 0.0;
    Window(c, row, half, count, sum, squares);
    mean[c] = sum / count;
    variance[c] = std::max(0.0, squares / count - mean[c] * mean[c]);
  };
  // Inner columns: the window spans 2 half + 1 columns from c - half.
  int innerBegin = 0, innerEnd = 0;
  InnerColumns(Cols, half, innerBegin, innerEnd);
  for (int c = 0; c < innerBegin; ++c)
    clipped(c);
  const long r0 = std::max(0, row - half), r1 = std::min(Rows, row + half + 1);
  const double count = static_cast<double>(2 * half + 1) * static_cast<double>(r1 - r0);
#if defined(__x86_64__)
  const auto inner = Ipg_UseAvx2() ? InnerMomentsAvx2 : InnerMomentsPlain;
#else
  const auto inner = InnerMomentsPlain;
#endif
  inner(SumLine(r0), SumLine(r1), SquaresLine(r0), SquaresLine(r1), half, count, innerBegin, innerEnd, mean, variance);
  for (int c = innerEnd; c < Cols; ++c)
    clipped(c);
}

Ipg_WindowTables::Lines Ipg_WindowTables::RowLines(int row, int half)
{
  Reach(row);
  const long r0 = std::max(0, row - half), r1 = std::min(Rows, row + half + 1);
  return {SumLine(r0), SumLine(r1), SquaresLine(r0), SquaresLine(r1),
          static_cast<double>(2 * half + 1) * static_cast<double>(r1 - r0)};
}

void Ipg_WindowTables::CopyRow(long t, double* target)
{
  Reach(static_cast<int>(std::max(0L, t - Half - 1)));
  std::copy_n(SumLine(t), Width, target);
  std::copy_n(SquaresLine(t), Width, target + Width);
}

namespace {

// Bands for rows that read up to reach rows above and below them: windows
// near the image's size keep the bands few.
IPG_ROW_BANDS SplitForReach(int cols, int rows, int reach, std::size_t work)
{
  IPG_ROW_BANDS bands = Ipg_SplitRows(static_cast<unsigned>(rows), static_cast<std::size_t>(cols) * work);
  if (reach >= 0) {
    const long ring = std::min(static_cast<long>(rows) + 1, 2L * reach + 3);
    bands.Count = static_cast<unsigned>(std::clamp<long>((rows + 1L) / ring, 1L, bands.Count));
  }
  return bands;
}

// A pass whose cost follows the image (windows that grow, impulses) costs
// more in some bands than in others: a few bands per thread, dealt in turn,
// even that out. Each band stays at least this many times the rows a row
// reads, so that its held rows stay few. Passes with tables keep one band per
// thread: each band would build the table rows around it again.
constexpr unsigned kBandsPerThread = 4;
constexpr long kBandRowsPerReach = 8;

IPG_ROW_BANDS DealtInTurn(IPG_ROW_BANDS bands, int reach, int readReach)
{
  if (bands.Count <= 1 || reach >= 0)
    return bands;
  const long tallest = static_cast<long>(bands.Rows) / (kBandRowsPerReach * (2L * std::max(0, readReach) + 1));
  bands.Count = static_cast<unsigned>(std::max<long>(bands.Count, std::min<long>(bands.Count * kBandsPerThread, tallest)));
  return bands;
}

// A row of the walk that seeds a band's tables costs about this many plain
// copies of its pixels.
constexpr double kSeedWork = 1.0;

// Where each band starts when every band below the first walks from the top
// to its seed on its own thread: a walk row costs share = kSeedWork / work of
// a band row, and band j starting at a_j takes share a_j + (a_(j+1) - a_j)
// row times. All take the same with a_j = rows (1 - q^j) / (1 - q^count),
// q = 1 - share: the bands grow shorter down the image.
std::vector<unsigned> SeededBounds(unsigned rows, unsigned count, std::size_t work)
{
  const double share = std::min(0.5, kSeedWork / static_cast<double>(std::max<std::size_t>(work, 1)));
  const double q = 1.0 - share, whole = 1.0 - std::pow(q, count);
  std::vector<unsigned> bounds(count + 1, rows);
  bounds[0] = 0;
  for (unsigned j = 1; j < count; ++j)
    bounds[j] = std::max(bounds[j - 1], static_cast<unsigned>(std::lround(rows * (1.0 - std::pow(q, j)) / whole)));
  return bounds;
}

// Runs body over bands of rows, each band's tables seeded with the table row
// above its first window, computed by a walk from the top: every band adds in
// the order of one walk over the image. A pass that reads its input while the
// bands write over it (inputChanges) walks first, for all the bands, on the
// calling thread. Any other pass lets each band below the first walk on its
// own thread, the bands cut by SeededBounds.
void RunBandsWithTables(const IPG_ROW_BANDS& bands, const double* in, int cols, int rows, int reach, std::size_t work,
                        bool inputChanges,
                        const std::function<void(unsigned, unsigned, unsigned, Ipg_WindowTables&)>& body)
{
  const bool seeded = bands.Count > 1 && reach >= 0;
  const std::vector<unsigned> bounds =
      seeded && !inputChanges ? SeededBounds(bands.Rows, bands.Count, work) : std::vector<unsigned>{};
  const auto beginOf = [&](unsigned band) { return bounds.empty() ? bands.Begin(band) : bounds[band]; };
  // The table row above a band's first window; 0 (no seed) for a band whose
  // windows reach the top.
  const auto seedRow = [&](unsigned band) { return seeded ? std::max(0L, static_cast<long>(beginOf(band)) - reach) : 0L; };
  const std::size_t width = static_cast<std::size_t>(cols) + 1;
  std::vector<double> seeds; // the walk for every band, first
  if (seeded && inputChanges) {
    seeds.resize(2 * width * bands.Count);
    Ipg_WindowTables walk;
    walk.Start(in, cols, rows, 0, 0, rows, nullptr);
    for (unsigned band = 1; band < bands.Count; ++band)
      if (seedRow(band) > 0)
        walk.CopyRow(seedRow(band), seeds.data() + 2 * width * band);
  }
  Ipg_RunBands(bands, [&](unsigned band, unsigned, unsigned) {
    const unsigned begin = beginOf(band), end = band + 1 < bands.Count ? beginOf(band + 1) : bands.Rows;
    std::vector<double> own;
    const double* seed = nullptr;
    if (seedRow(band) > 0 && !seeds.empty()) {
      seed = seeds.data() + 2 * width * band;
    } else if (seedRow(band) > 0) { // this band's own walk
      own.resize(2 * width);
      Ipg_WindowTables walk;
      walk.Start(in, cols, rows, 0, 0, rows, nullptr);
      walk.CopyRow(seedRow(band), own.data());
      seed = own.data();
    }
    Ipg_WindowTables tables;
    if (reach >= 0)
      tables.Start(in, cols, rows, reach, static_cast<int>(begin), static_cast<int>(end), seed);
    body(band, begin, end, tables);
  });
}

} // namespace

void Ipg_RunWindowBands(const double* in, int cols, int rows, int reach, std::size_t work,
                        const std::function<void(unsigned, unsigned, unsigned, Ipg_WindowTables&)>& body)
{
  if (cols <= 0 || rows <= 0)
    return;
  RunBandsWithTables(SplitForReach(cols, rows, reach, work), in, cols, rows, reach, work, false, body);
}

double Ipg_MiddleElement(double* values, std::size_t count) { return Ipg_SelectElement(values, count, count / 2); }

double Ipg_SelectElement(double* values, std::size_t count, std::size_t rank)
{
  if (rank >= count)
    return 0.0;
  double* end = values + count;
  const auto select = [&] {
    std::nth_element(values, values + rank, end);
    return values[rank];
  };
  // A short list is selected directly: the radix buckets below cost more to
  // clear than it takes to order a few thousand values.
  if (count <= kDirectSelection)
    return select();
  // Non-negative doubles order as their bit patterns (+inf included): count
  // them by their top 16 bits, keep the bucket of the one sought and narrow
  // it 12 bits at a time, moving the values kept to the front. A negative
  // value or a NaN has a larger pattern than +inf.
  constexpr std::uint64_t kInfinity = 0x7FF0000000000000ULL;
  constexpr int kTopShift = 48;
  std::vector<std::uint32_t> top(std::size_t{1} << (64 - kTopShift), 0);
  bool ordered = true;
  for (const double* v = values; v < end; ++v) {
    const std::uint64_t key = std::bit_cast<std::uint64_t>(*v);
    ordered &= key <= kInfinity;
    ++top[key >> kTopShift];
  }
  if (!ordered)
    return select();
  std::uint64_t bucket = 0;
  while (rank >= top[bucket])
    rank -= top[bucket++];
  end = std::partition(values, end, [&](double v) { return (std::bit_cast<std::uint64_t>(v) >> kTopShift) == bucket; });
  constexpr int kDigit = 12;
  std::vector<std::size_t> histogram(std::size_t{1} << kDigit);
  for (int shift = kTopShift - kDigit; end - values > 64 && shift > -kDigit; shift -= kDigit) {
    const int low = std::max(0, shift);
    const std::uint64_t mask = (1ULL << (kDigit - (low - shift))) - 1;
    const auto digitOf = [&](double v) { return (std::bit_cast<std::uint64_t>(v) >> low) & mask; };
    std::fill(histogram.begin(), histogram.end(), 0);
    for (const double* v = values; v < end; ++v)
      ++histogram[digitOf(*v)];
    std::uint64_t digit = 0;
    while (rank >= histogram[digit])
      rank -= histogram[digit++];
    end = std::partition(values, end, [&](double v) { return digitOf(v) == digit; });
  }
  return select();
}

void Ipg_RunPassBands(const double* in, double* out, int cols, int rows, int reach, int readReach, std::size_t work,
                      const std::function<void(unsigned, unsigned, unsigned, Ipg_WindowTables&, Ipg_BandOutput&)>& body)
{
  if (cols <= 0 || rows <= 0)
    return;
  const std::size_t width = static_cast<std::size_t>(cols);
  const std::size_t size = width * static_cast<std::size_t>(rows);
  const auto address = [](const double* p) { return reinterpret_cast<std::uintptr_t>(p); };
  const bool overlap = out != nullptr && address(out) < address(in + size) && address(in) < address(out + size);
  long gap = 0; // rows from the output's start to the input's
  if (overlap) {
    const std::uintptr_t bytes = address(in) - address(out);
    const bool rowsApart = address(out) < address(in) && bytes % (width * sizeof(double)) == 0;
    gap = rowsApart ? static_cast<long>(bytes / (width * sizeof(double))) : 0;
    if (gap <= std::max(0, readReach)) {
      std::vector<double> copy(size);
      Ipg_RunPassBands(in, copy.data(), cols, rows, reach, readReach, work, body);
      std::copy(copy.begin(), copy.end(), out);
      return;
    }
  }
  // A band's first rows are read by the band above up to its readReach rows
  // below them, that is up to readReach + gap of the output's rows.
  const long held = overlap ? std::max(0, readReach) + gap : 0;
  // Rows read far away keep the bands few, so that their held rows stay few too.
  const IPG_ROW_BANDS bands = DealtInTurn(SplitForReach(cols, rows, std::max(reach, readReach), work), reach, readReach);
  std::vector<Ipg_BandOutput> outputs(bands.Count);
  RunBandsWithTables(bands, in, cols, rows, reach, work, overlap, [&](unsigned band, unsigned begin, unsigned end, Ipg_WindowTables& tables) {
    Ipg_BandOutput& output = outputs[band];
    output.Out = out;
    output.Cols = cols;
    output.Begin = static_cast<int>(begin);
    output.HeldEnd = band == 0 ? 0 : static_cast<int>(std::min<long>(end, begin + held));
    output.Held.resize(static_cast<std::size_t>(output.HeldEnd - output.Begin) * width);
    body(band, begin, end, tables, output);
  });
  for (Ipg_BandOutput& output : outputs)
    if (!output.Held.empty())
      std::copy(output.Held.begin(), output.Held.end(), out + static_cast<std::size_t>(output.Begin) * width);
}
