// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_median_kernel.h"

#include "ipg/internal/ipg_output_mode.h"
#include "ipg/internal/ipg_point_kernel.h"
#include "ipg/internal/ipg_row_bands.h"
#include "ipg/internal/ipg_simd.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>
#include <limits>
#include <type_traits>
#include <utility>

namespace {

// Windows up to this many values go through a network, larger ones through selection.
constexpr int kLargestNetworkWindow = 64;
// Pixels of a row handled together by the network.
constexpr int kBlock = 128;

// Batcher's odd-even merge sort (K. E. Batcher, "Sorting networks and their
// applications", AFIPS 1968) on the next power of two above n, padded with
// INT_MAX, keeping only the exchanges the median of n values depends on.
std::vector<std::array<int, 2>> MedianExchanges(int n, int& lanes)
{
  int size = 1;
  while (size < n)
    size <<= 1;
  std::vector<std::array<int, 2>> all;
  for (int p = 1; p < size; p <<= 1)
    for (int k = p; k >= 1; k >>= 1)
      for (int j = k % p; j + k < size; j += 2 * k)
        for (int i = 0; i < std::min(k, size - j - k); ++i)
          if ((i + j) / (2 * p) == (i + j + k) / (2 * p))
            all.push_back({i + j, i + j + k});
  std::vector<bool> needed(static_cast<std::size_t>(size), false);
  needed[static_cast<std::size_t>(n / 2)] = true;
  std::vector<std::array<int, 2>> kept;
  for (auto it = all.rbegin(); it != all.rend(); ++it)
    if (needed[(*it)[0]] || needed[(*it)[1]]) {
      kept.push_back(*it);
      needed[(*it)[0]] = needed[(*it)[1]] = true;
    }
  std::reverse(kept.begin(), kept.end());
  lanes = size;
  return kept;
}

// Batcher's network for n values as a constant table, for the windows whose
// network is unrolled at compile time; exchanges with the INT_MAX padding lanes
// change nothing and are left out.
template <int N>
struct FixedNetwork {
  static constexpr int kCapacity = 512;
  struct Table {
    std::array<std::array<int, 2>, kCapacity> Pairs{};
    int Count = 0;
  };
  static constexpr Table Build()
  {
    int size = 1;
    while (size < N)
      size <<= 1;
    std::array<std::array<int, 2>, 2048> all{};
    int count = 0;
    for (int p = 1; p < size; p <<= 1)
      for (int k = p; k >= 1; k >>= 1)
        for (int j = k % p; j + k < size; j += 2 * k)
          for (int i = 0; i < std::min(k, size - j - k); ++i)
            if ((i + j) / (2 * p) == (i + j + k) / (2 * p))
              all[count++] = {i + j, i + j + k};
    std::array<bool, 64> needed{};
    needed[N / 2] = true;
    Table kept;
    for (int e = count - 1; e >= 0; --e)
      if (all[e][1] < N && (needed[all[e][0]] || needed[all[e][1]])) {
        kept.Pairs[kept.Count++] = all[e];
        needed[all[e][0]] = needed[all[e][1]] = true;
      }
    for (int a = 0, b = kept.Count - 1; a < b; ++a, --b)
      std::swap(kept.Pairs[a], kept.Pairs[b]);
    return kept;
  }
  static constexpr Table kTable = Build();
};

// Eight pixels at a time in one 256-bit vector (two SSE registers in the plain
// copy); sixteen when the rows' levels fit in 16 bits.
using Lanes8 = int __attribute__((vector_size(32)));
using Lanes16 = short __attribute__((vector_size(32)));
using Lanes16Wide = int __attribute__((vector_size(64))); // a Lanes16 widened

// The vector of a pixel type and how many pixels it holds.
template <typename E>
struct VectorOf;
template <>
struct VectorOf<int> {
  using Type = Lanes8;
};
template <>
struct VectorOf<short> {
  using Type = Lanes16;
};
template <typename E>
constexpr int kLanesOf = static_cast<int>(sizeof(typename VectorOf<E>::Type) / sizeof(E));

template <typename T>
[[gnu::always_inline]] inline void Exchange(T& a, T& b)
{
  const T lo = a < b ? a : b;
  const T hi = a < b ? b : a;
  a = lo;
  b = hi;
}

template <int N, typename T, std::size_t... I>
[[gnu::always_inline]] inline void RunNetwork(T* v, std::index_sequence<I...>)
{
  (Exchange(v[FixedNetwork<N>::kTable.Pairs[I][0]], v[FixedNetwork<N>::kTable.Pairs[I][1]]), ...);
}

// The median of the window at each column of [from, from + count) of one row:
// lane k reads window element k (row-major) through lines[k / SX] + k % SX.
template <int SX, int SY, typename T, typename E>
[[gnu::always_inline]] inline void WindowMedian(const E* const* lines, int j, int* median)
{
  constexpr int n = SX * SY;
  T v[n];
  for (int k = 0; k < n; ++k)
    std::memcpy(&v[k], lines[k / SX] + j + k % SX, sizeof(T));
  RunNetwork<n>(v, std::make_index_sequence<FixedNetwork<n>::kTable.Count>{});
  if constexpr (std::is_same_v<T, Lanes16>) {
    const Lanes16Wide wide = __builtin_convertvector(v[n / 2], Lanes16Wide);
    std::memcpy(median, &wide, sizeof wide);
  } else if constexpr (std::is_same_v<T, short>) {
    *median = v[n / 2];
  } else {
    std::memcpy(median, &v[n / 2], sizeof(T));
  }
}

template <int SX, int SY, typename E>
[[gnu::always_inline]] inline void FixedRow(const E* const* lines, int width, int* medians, IPG_BAND_EXTREMES& written)
{
  int j = 0;
  for (; j + kLanesOf<E> <= width; j += kLanesOf<E>)
    WindowMedian<SX, SY, typename VectorOf<E>::Type>(lines, j, medians + j);
  for (; j < width; ++j)
    WindowMedian<SX, SY, E>(lines, j, medians + j);
  Ipg_AddRowExtremes(medians, width, written); // while the row is in the cache
}

template <typename E>
[[gnu::always_inline]] inline E Median3(E a, E b, E c)
{
  return std::max(std::min(a, b), std::min(std::max(a, b), c));
}

// The three values of a column (T: one column or a vector of them) in increasing order.
template <typename T, typename E>
[[gnu::always_inline]] inline void SortColumns(const E* above, const E* centre, const E* below, E* lo, E* mid, E* hi)
{
  T a, b, d;
  std::memcpy(&a, above, sizeof(T));
  std::memcpy(&b, centre, sizeof(T));
  std::memcpy(&d, below, sizeof(T));
  Exchange(a, b);
  Exchange(a, d);
  Exchange(b, d);
  std::memcpy(lo, &a, sizeof(T));
  std::memcpy(mid, &b, sizeof(T));
  std::memcpy(hi, &d, sizeof(T));
}

// 3x3 from sorted columns: each column of three is sorted once and serves three
// windows; the median of the window is then the median of the largest column
// minimum, the median of the column medians and the smallest column maximum.
template <typename E>
[[gnu::always_inline]] inline void SortedColumnsRow(const E* const* lines, int width, int* medians, E* scratch,
                                                    IPG_BAND_EXTREMES& written)
{
  const int cols = width + 2;
  E* __restrict lo = scratch;
  E* __restrict mid = scratch + cols;
  E* __restrict hi = scratch + 2 * cols;
  const E* __restrict above = lines[0];
  const E* __restrict centre = lines[1];
  const E* __restrict below = lines[2];
  int c = 0;
  for (; c + kLanesOf<E> <= cols; c += kLanesOf<E>)
    SortColumns<typename VectorOf<E>::Type>(above + c, centre + c, below + c, lo + c, mid + c, hi + c);
  for (; c < cols; ++c)
    SortColumns<E>(above + c, centre + c, below + c, lo + c, mid + c, hi + c);
  int* __restrict out = medians;
  E lowest = std::numeric_limits<E>::max(), highest = std::numeric_limits<E>::min();
  for (int j = 0; j < width; ++j) {
    const E largestLow = std::max(std::max(lo[j], lo[j + 1]), lo[j + 2]);
    const E smallestHigh = std::min(std::min(hi[j], hi[j + 1]), hi[j + 2]);
    const E median = Median3(largestLow, Median3(mid[j], mid[j + 1], mid[j + 2]), smallestHigh);
    out[j] = median;
    lowest = std::min(lowest, median);
    highest = std::max(highest, median);
  }
  written.Add(lowest);
  written.Add(highest);
}

template <int SX, int SY, typename E>
[[gnu::always_inline]] inline void AnyFixedRow(const E* const* lines, int width, int* medians, E* scratch,
                                               IPG_BAND_EXTREMES& written)
{
  if constexpr (SX == 3 && SY == 3)
    SortedColumnsRow(lines, width, medians, scratch, written);
  else
    FixedRow<SX, SY>(lines, width, medians, written);
}

template <int SX, int SY, typename E>
void FixedRowPlain(const E* const* lines, int width, int* medians, E* scratch, IPG_BAND_EXTREMES& written)
{
  AnyFixedRow<SX, SY>(lines, width, medians, scratch, written);
}

#if defined(__x86_64__)
template <int SX, int SY, typename E>
[[gnu::target("avx2")]] void FixedRowAvx2(const E* const* lines, int width, int* medians, E* scratch,
                                          IPG_BAND_EXTREMES& written)
{
  AnyFixedRow<SX, SY>(lines, width, medians, scratch, written);
}
#endif

template <int SX, int SY, typename E>
void FixedRowDispatch(const E* const* lines, int width, int* medians, E* scratch, IPG_BAND_EXTREMES& written)
{
#if defined(__x86_64__)
  if (Ipg_UseAvx2()) {
    FixedRowAvx2<SX, SY>(lines, width, medians, scratch, written);
    return;
  }
#endif
  FixedRowPlain<SX, SY>(lines, width, medians, scratch, written);
}

// Copies a row to 16 bits; false (the copy unfinished) when a level does not fit.
[[gnu::always_inline]] inline bool NarrowBody(const int* row, int cols, short* to)
{
  int lowest = 0, highest = 0;
  for (int c = 0; c < cols; ++c) {
    lowest = std::min(lowest, row[c]);
    highest = std::max(highest, row[c]);
  }
  if (lowest < SHRT_MIN || highest > SHRT_MAX)
    return false;
  for (int c = 0; c < cols; ++c)
    to[c] = static_cast<short>(row[c]);
  return true;
}

bool NarrowPlain(const int* row, int cols, short* to) { return NarrowBody(row, cols, to); }

#if defined(__x86_64__)
[[gnu::target("avx2")]] bool NarrowAvx2(const int* row, int cols, short* to) { return NarrowBody(row, cols, to); }
#endif

bool Narrow(const int* row, int cols, short* to)
{
#if defined(__x86_64__)
  if (Ipg_UseAvx2())
    return NarrowAvx2(row, cols, to);
#endif
  return NarrowPlain(row, cols, to);
}

} // namespace

// The fixed-network medians of one row, in 32 or 16 bits, with their extremes.
struct Ipg_MedianRowFunctions {
  void (*Wide)(const int* const*, int, int*, int*, IPG_BAND_EXTREMES&);
  void (*Narrow)(const short* const*, int, int*, short*, IPG_BAND_EXTREMES&);
};

namespace {

template <int SX, int SY>
constexpr Ipg_MedianRowFunctions kFixedRows{FixedRowDispatch<SX, SY, int>, FixedRowDispatch<SX, SY, short>};

} // namespace

// For 3x3 windows Paeth's 19 exchanges (A. W. Paeth, "Median finding on a 3x3
// grid", Graphics Gems, 1990, as arranged by N. Devillard, "Fast median
// search", 1998); Batcher's network for the other small windows.
Ipg_MedianKernel::Ipg_MedianKernel(int sizeX, int sizeY)
    : SizeX(sizeX), SizeY(sizeY), ByNetwork(sizeX * sizeY <= kLargestNetworkWindow),
      Window(static_cast<std::size_t>(sizeX) * sizeY)
{
  const int n = sizeX * sizeY;
  Middle = n / 2;
  if (!ByNetwork)
    return;
  if (n == 9) {
    Lanes = 9;
    Exchanges = {{1, 2}, {4, 5}, {7, 8}, {0, 1}, {3, 4}, {6, 7}, {1, 2}, {4, 5}, {7, 8}, {0, 3},
                 {5, 8}, {4, 7}, {3, 6}, {1, 4}, {2, 5}, {4, 7}, {4, 2}, {6, 4}, {4, 2}};
  } else {
    Exchanges = MedianExchanges(n, Lanes);
  }
  LaneValues.resize(static_cast<std::size_t>(Lanes) * kBlock);
}

void Ipg_MedianKernel::Rows(const Ipg_KernelImages& images, Ipg_RowSpan span, IPG_BAND_EXTREMES* seen)
{
  const int hy = SizeY / 2;
  for (int row = std::max(span.Begin, hy); row < std::min(span.End, images.Rows - hy); ++row) {
    bool measured = false;
    if (SizeX == 3 && SizeY == 3)
      measured = RowByFixedNetwork(images, row, kFixedRows<3, 3>, seen);
    else if (SizeX == 5 && SizeY == 5)
      measured = RowByFixedNetwork(images, row, kFixedRows<5, 5>, seen);
    else if (ByNetwork)
      RowByNetwork(images, row);
    else
      RowBySelection(images, row);
    if (seen != nullptr && !measured)
      Ipg_MeasureRow(images.Out + images.At(0, row), images.Cols, *seen);
  }
}

const std::vector<int>& Ipg_MedianKernel::SortedWindow(const Ipg_KernelImages& images, int col, int row)
{
  Gather(images, col, row);
  std::sort(Window.begin(), Window.end());
  return Window;
}

void Ipg_MedianKernel::Gather(const Ipg_KernelImages& images, int col, int row)
{
  const int hx = SizeX / 2, hy = SizeY / 2;
  std::size_t k = 0;
  for (int dy = -hy; dy <= hy; ++dy) {
    const int* line = images.In + images.At(col - hx, row + dy);
    std::copy(line, line + SizeX, Window.begin() + static_cast<std::ptrdiff_t>(k));
    k += static_cast<std::size_t>(SizeX);
  }
}

void Ipg_MedianKernel::RowBySelection(const Ipg_KernelImages& images, int row)
{
  const int hx = SizeX / 2;
  const auto middle = Window.begin() + Middle;
  for (int col = hx; col < images.Cols - hx; ++col) {
    Gather(images, col, row);
    // Selecting the middle element gives the sorted window's middle element.
    std::nth_element(Window.begin(), middle, Window.end());
    images.Write(images.At(col, row), *middle);
  }
}

// Lane k holds window element k (row-major) of each pixel of a block of the
// row, so that every exchange is a vectorisable min/max over the block.
void Ipg_MedianKernel::RowByNetwork(const Ipg_KernelImages& images, int row)
{
  const int hx = SizeX / 2, hy = SizeY / 2, n = SizeX * SizeY;
  const int width = images.Cols - 2 * hx;
  for (int j0 = 0; j0 < width; j0 += kBlock) {
    const int w = std::min(kBlock, width - j0);
    for (int k = 0; k < Lanes; ++k) {
      int* lane = LaneValues.data() + static_cast<std::size_t>(k) * kBlock;
      if (k < n) {
        const int* from = images.In + static_cast<std::ptrdiff_t>(row + k / SizeX - hy) * images.Cols + j0 + k % SizeX;
        std::copy(from, from + w, lane);
      } else {
        std::fill(lane, lane + w, INT_MAX);
      }
    }
    for (const auto& e : Exchanges) {
      int* x = LaneValues.data() + static_cast<std::size_t>(e[0]) * kBlock;
      int* y = LaneValues.data() + static_cast<std::size_t>(e[1]) * kBlock;
      for (int j = 0; j < w; ++j) {
        const int lo = std::min(x[j], y[j]);
        const int hi = std::max(x[j], y[j]);
        x[j] = lo;
        y[j] = hi;
      }
    }
    const int* medians = LaneValues.data() + static_cast<std::size_t>(Middle) * kBlock;
    for (int j = 0; j < w; ++j)
      images.Write(images.At(hx + j0 + j, row), medians[j]);
  }
}

// The window's rows in 16 bits when all their levels fit: each input row is
// narrowed once (not in place, where rows above change as they are written).
bool Ipg_MedianKernel::NarrowLines(const Ipg_KernelImages& images, int row, const short** lines)
{
  const int hy = SizeY / 2;
  const std::size_t cols = static_cast<std::size_t>(images.Cols);
  if (NarrowSource != images.In) { // rows held are another image's
    NarrowHeld.assign(static_cast<std::size_t>(SizeY), {-1, false});
    NarrowSource = images.In;
  }
  NarrowRows.resize(static_cast<std::size_t>(SizeY) * cols);
  for (int dy = -hy; dy <= hy; ++dy) {
    const int r = row + dy;
    const std::size_t slot = static_cast<std::size_t>(r % SizeY);
    short* to = NarrowRows.data() + slot * cols;
    if (NarrowHeld[slot].first != r || images.In == images.Out)
      NarrowHeld[slot] = {r, Narrow(images.In + images.At(0, r), images.Cols, to)};
    if (!NarrowHeld[slot].second)
      return false;
    lines[dy + hy] = to;
  }
  return true;
}

bool Ipg_MedianKernel::RowByFixedNetwork(const Ipg_KernelImages& images, int row,
                                         const Ipg_MedianRowFunctions& medianRow, IPG_BAND_EXTREMES* seen)
{
  const int hx = SizeX / 2, hy = SizeY / 2;
  const int width = images.Cols - 2 * hx;
  if (width <= 0)
    return false;
  if (row + hy + 1 < images.Rows) // the row the next window brings in, fetched while this one is computed
    Ipg_PrefetchRow(images.In + images.At(0, row + hy + 1), images.Cols);
  const std::size_t start = images.At(hx, row);
  const std::size_t fits = start < images.OutSize ? std::min<std::size_t>(width, images.OutSize - start) : 0;
  // Apart from the input and whole, the row is written where it belongs.
  const bool direct = images.In != images.Out && fits == static_cast<std::size_t>(width);
  LaneValues.resize(static_cast<std::size_t>(width) + 3 * static_cast<std::size_t>(images.Cols));
  int* medians = direct ? images.Out + start : LaneValues.data();
  IPG_BAND_EXTREMES written;
  const short* narrowLines[kLargestFixedSide];
  if (NarrowLines(images, row, narrowLines)) {
    NarrowScratch.resize(3 * static_cast<std::size_t>(images.Cols));
    medianRow.Narrow(narrowLines, width, medians, NarrowScratch.data(), written);
  } else {
    const int* lines[kLargestFixedSide];
    for (int dy = -hy; dy <= hy; ++dy)
      lines[dy + hy] = images.In + images.At(0, row + dy);
    // The medians, then three rows of scratch (sorted columns of the 3x3 path).
    medianRow.Wide(lines, width, medians, LaneValues.data() + width, written);
  }
  if (!direct) {
    std::copy(LaneValues.begin(), LaneValues.begin() + static_cast<std::ptrdiff_t>(fits), images.Out + start);
    return false;
  }
  if (seen == nullptr)
    return false;
  // The medians were measured as they were written: the frame columns remain.
  const int* line = images.Out + images.At(0, row);
  Ipg_MeasureRow(line, hx, *seen);
  Ipg_MeasureRow(line + hx + width, hx, *seen);
  Ipg_MergeExtremes(*seen, written);
  return true;
}
