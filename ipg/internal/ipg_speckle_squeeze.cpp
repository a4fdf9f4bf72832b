// SPDX-License-Identifier: Apache-2.0
// The squeeze box filters: SBF, WSBF and SBF-DVW (declared in ipg_speckle_kernels.h).
#include "ipg/internal/ipg_simd.h"
#include "ipg/internal/ipg_speckle_kernels.h"
#include "ipg/internal/ipg_speckle_windows.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace {

constexpr std::size_t kWindowWork = 16; // a window statistic per pixel

std::size_t At(int col, int row, int cols)
{
  return static_cast<std::size_t>(row) * static_cast<std::size_t>(cols) + static_cast<std::size_t>(col);
}

// Statistics of the window of a pixel without the pixel itself.
struct Others {
  double Min = 0.0;
  double Max = 0.0;
  double Sum = 0.0;
  int Count = 0;
};

// The window clipped to the image, row by row, the sum in that order.
Others OthersOf(const double* in, int cols, int rows, int col, int row, int half)
{
  Others o;
  o.Min = INFINITY;
  o.Max = -INFINITY;
  for (int r = std::max(0, row - half); r <= std::min(rows - 1, row + half); ++r)
    for (int c = std::max(0, col - half); c <= std::min(cols - 1, col + half); ++c) {
      if (c == col && r == row)
        continue;
      const double v = in[At(c, r, cols)];
      o.Min = std::min(o.Min, v);
      o.Max = std::max(o.Max, v);
      o.Sum += v;
      ++o.Count;
    }
  return o;
}

bool StrictExtremum(double centre, const Others& o)
{
  return o.Count > 0 && (centre > o.Max || centre < o.Min);
}

// Per band: the lowest and highest of the other values of every pixel's window.
struct Bounds {
  std::vector<double> Low;
  std::vector<double> High;
  std::vector<int> Extrema; // columns
};

// Low and high over the windows of the columns [begin, end) of an inner row,
// all of whose windows lie inside the image. A NaN never replaces a bound and
// the bounds of finite values do not depend on the visiting order, so these
// are OthersOf's.
[[gnu::always_inline]] inline void InnerBoundsBody(const double* in, int cols, int row, int half, int begin, int end,
                                                   double* low, double* high)
{
  if (half == 1) { // the 3x3 window, in registers
    const double* above = in + static_cast<std::ptrdiff_t>(row - 1) * cols;
    const double* line = above + cols;
    const double* below = line + cols;
    const auto lower = [](double a, double b) { return b < a ? b : a; };
    const auto higher = [](double a, double b) { return b > a ? b : a; };
    for (int c = begin; c < end; ++c) {
      const double n[8] = {above[c - 1], above[c], above[c + 1], line[c - 1], line[c + 1], below[c - 1], below[c], below[c + 1]};
      low[c] = lower(lower(lower(n[0], n[1]), lower(n[2], n[3])), lower(lower(n[4], n[5]), lower(n[6], n[7])));
      high[c] = higher(higher(higher(n[0], n[1]), higher(n[2], n[3])), higher(higher(n[4], n[5]), higher(n[6], n[7])));
    }
    return;
  }
  for (int c = begin; c < end; ++c) {
    low[c] = INFINITY;
    high[c] = -INFINITY;
  }
  for (int dy = -half; dy <= half; ++dy)
    for (int dx = -half; dx <= half; ++dx) {
      if (dy == 0 && dx == 0)
        continue;
      const double* source = in + static_cast<std::ptrdiff_t>(row + dy) * cols + dx;
      for (int c = begin; c < end; ++c) {
        const double v = source[c];
        low[c] = v < low[c] ? v : low[c];
        high[c] = v > high[c] ? v : high[c];
      }
    }
}

void InnerBoundsPlain(const double* in, int cols, int row, int half, int begin, int end, double* low, double* high)
{
  InnerBoundsBody(in, cols, row, half, begin, end, low, high);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void InnerBoundsAvx2(const double* in, int cols, int row, int half, int begin, int end,
                                             double* low, double* high)
{
  InnerBoundsBody(in, cols, row, half, begin, end, low, high);
}
#endif

// The squeeze frame on row r: every pixel that is a strict extremum of its
// window (half) gets squeezed(col, value); every other keeps its value. The
// inner extrema are listed, then handed to squeezeListed(extrema, count, line,
// target) together.
template <typename Squeezed, typename SqueezeListed>
void SqueezeRow(const double* in, double* target, int cols, int rows, int half, int r, Bounds& bounds,
                Squeezed squeezed, SqueezeListed squeezeListed)
{
  bounds.Low.resize(static_cast<std::size_t>(cols));
  bounds.High.resize(static_cast<std::size_t>(cols));
  bounds.Extrema.resize(static_cast<std::size_t>(cols) + 1);
  const bool innerRow = half > 0 && r >= half && r + half < rows;
  const int begin = innerRow ? std::min(half, cols) : cols;
  const int end = innerRow ? std::max(begin, cols - half) : cols;
  if (begin < end) {
#if defined(__x86_64__)
    if (Ipg_UseAvx2())
      InnerBoundsAvx2(in, cols, r, half, begin, end, bounds.Low.data(), bounds.High.data());
    else
#endif
      InnerBoundsPlain(in, cols, r, half, begin, end, bounds.Low.data(), bounds.High.data());
  }
  const double* line = in + At(0, r, cols);
  const auto border = [&](int c) {
    target[c] = StrictExtremum(line[c], OthersOf(in, cols, rows, c, r, half)) ? squeezed(c, line[c]) : line[c];
  };
  for (int c = 0; c < begin; ++c)
    border(c);
  // Inner pixels: the extrema listed first, without a branch on each pixel.
  int* extrema = bounds.Extrema.data();
  int count = 0;
  for (int c = begin; c < end; ++c) {
    const double v = line[c];
    target[c] = v;
    extrema[count] = c;
    count += static_cast<int>(v > bounds.High[static_cast<std::size_t>(c)]) |
             static_cast<int>(v < bounds.Low[static_cast<std::size_t>(c)]);
  }
  squeezeListed(extrema, count, line, target);
  for (int c = std::max(begin, end); c < cols; ++c)
    border(c);
}

template <typename Squeezed>
void SqueezeRow(const double* in, double* target, int cols, int rows, int half, int r, Bounds& bounds,
                Squeezed squeezed)
{
  SqueezeRow(in, target, cols, rows, half, r, bounds, squeezed,
             [&](const int* extrema, int count, const double* line, double* out) {
               for (int k = 0; k < count; ++k)
                 out[extrema[k]] = squeezed(extrema[k], line[extrema[k]]);
             });
}

// The squeeze frame on every row: squeezed(col, row, value).
template <typename Squeezed>
void SqueezeRows(const double* in, double* out, int cols, int rows, int half, Squeezed squeezed)
{
  Ipg_SpeckleRowsInBands<Bounds>(in, out, cols, rows, half, kWindowWork, [&](int r, double* target, Bounds& bounds) {
    SqueezeRow(in, target, cols, rows, half, r, bounds, [&](int c, double v) { return squeezed(c, r, v); });
  });
}

// WSBF's value for a pixel whose window lies inside the image: the sums of
// the clipped version in the same order, without the clipping.
double InnerWeightedSqueeze(const double* in, int cols, int col, int row, int half)
{
  const int side = 2 * half + 1;
  const double* corner = in + At(col - half, row - half, cols);
  const auto each = [&](auto visit) {
    for (int y = 0; y < side; ++y)
      for (int x = 0; x < side; ++x)
        if (x != half || y != half)
          visit(corner[static_cast<std::ptrdiff_t>(y) * cols + x]);
  };
  double sum = 0.0;
  each([&](double v) { sum += v; });
  const int count = side * side - 1;
  const double m = sum / count;
  double spread = 0.0;
  each([&](double v) { spread += (v - m) * (v - m); });
  const double s2 = spread / count;
  if (s2 <= 0.0)
    return m;
  double weighted = 0.0, weights = 0.0;
  each([&](double v) {
    const double d = v - m;
    const double w = std::exp(-d * d / (2.0 * s2));
    weighted += w * v;
    weights += w;
  });
  return weights > 0.0 ? weighted / weights : m;
}

#if defined(__x86_64__)
using FourLanes = double __attribute__((vector_size(32)));
constexpr int kWidestFourLaneHalf = 3;
constexpr int kMostFourLaneNeighbours = (2 * kWidestFourLaneHalf + 1) * (2 * kWidestFourLaneHalf + 1) - 1;

// InnerWeightedSqueeze for four listed columns of an inner row at once, one
// column per lane: the same operations in the same order, no fused
// multiply-add, and the library's exp lane by lane, so every lane holds the
// value the scalar walk gives its column.
[[gnu::target("avx2")]] void InnerWeightedSqueezeFour(const double* in, int cols, const int* columns, int row, int half,
                                                      double* target)
{
  const int side = 2 * half + 1;
  const int count = side * side - 1;
  FourLanes n[kMostFourLaneNeighbours];
  int k = 0;
  for (int y = 0; y < side; ++y) {
    const double* line = in + At(0, row - half + y, cols);
    for (int x = 0; x < side; ++x)
      if (x != half || y != half)
        n[k++] = FourLanes{line[columns[0] - half + x], line[columns[1] - half + x], line[columns[2] - half + x],
                           line[columns[3] - half + x]};
  }
  FourLanes sum = {0.0, 0.0, 0.0, 0.0};
  for (k = 0; k < count; ++k)
    sum += n[k];
  const FourLanes m = sum / static_cast<double>(count);
  FourLanes spread = {0.0, 0.0, 0.0, 0.0};
  for (k = 0; k < count; ++k)
    spread += (n[k] - m) * (n[k] - m);
  const FourLanes s2 = spread / static_cast<double>(count);
  alignas(32) double w[kMostFourLaneNeighbours][4];
  for (k = 0; k < count; ++k) {
    const FourLanes d = n[k] - m;
    const FourLanes exponent = -d * d / (2.0 * s2);
    for (int lane = 0; lane < 4; ++lane)
      w[k][lane] = s2[lane] <= 0.0 ? 0.0 : std::exp(exponent[lane]);
  }
  FourLanes weighted = {0.0, 0.0, 0.0, 0.0}, weights = {0.0, 0.0, 0.0, 0.0};
  for (k = 0; k < count; ++k) {
    const FourLanes wk = {w[k][0], w[k][1], w[k][2], w[k][3]};
    weighted += wk * n[k];
    weights += wk;
  }
  for (int lane = 0; lane < 4; ++lane)
    target[columns[lane]] = s2[lane] <= 0.0 || !(weights[lane] > 0.0) ? m[lane] : weighted[lane] / weights[lane];
}
#endif

// WSBF's listed inner extrema of row r: four at a time where the processor allows.
void WeightedSqueezeListed(const double* in, int cols, int r, int half, const int* extrema, int count, double* target)
{
  int k = 0;
#if defined(__x86_64__)
  if (Ipg_UseAvx2() && half <= kWidestFourLaneHalf)
    for (; k + 4 <= count; k += 4)
      InnerWeightedSqueezeFour(in, cols, extrema + k, r, half, target);
#endif
  for (; k < count; ++k)
    target[extrema[k]] = InnerWeightedSqueeze(in, cols, extrema[k], r, half);
}

} // namespace

void Ipg_SbfPass(const double* in, double* out, int cols, int rows, int half)
{
  SqueezeRows(in, out, cols, rows, half, [&](int c, int r, double) {
    const Others o = OthersOf(in, cols, rows, c, r, half);
    return o.Sum / o.Count;
  });
}

void Ipg_WsbfPass(const double* in, double* out, int cols, int rows, int half)
{
  const auto squeezed = [&](int c, int r) {
    if (c >= half && r >= half && c + half < cols && r + half < rows)
      return InnerWeightedSqueeze(in, cols, c, r, half);
    const Others o = OthersOf(in, cols, rows, c, r, half);
    const double m = o.Sum / o.Count;
    double spread = 0.0;
    for (int y = std::max(0, r - half); y <= std::min(rows - 1, r + half); ++y)
      for (int x = std::max(0, c - half); x <= std::min(cols - 1, c + half); ++x)
        if (x != c || y != r)
          spread += (in[At(x, y, cols)] - m) * (in[At(x, y, cols)] - m);
    const double s2 = spread / o.Count;
    if (s2 <= 0.0)
      return m;
    double weighted = 0.0, weights = 0.0;
    for (int y = std::max(0, r - half); y <= std::min(rows - 1, r + half); ++y)
      for (int x = std::max(0, c - half); x <= std::min(cols - 1, c + half); ++x) {
        if (x == c && y == r)
          continue;
        const double d = in[At(x, y, cols)] - m;
        const double w = std::exp(-d * d / (2.0 * s2));
        weighted += w * in[At(x, y, cols)];
        weights += w;
      }
    return weights > 0.0 ? weighted / weights : m;
  };
  Ipg_SpeckleRowsInBands<Bounds>(in, out, cols, rows, half, kWindowWork, [&](int r, double* target, Bounds& bounds) {
    SqueezeRow(
        in, target, cols, rows, half, r, bounds, [&](int c, double) { return squeezed(c, r); },
        [&](const int* extrema, int count, const double*, double* row) {
          WeightedSqueezeListed(in, cols, r, half, extrema, count, row);
        });
  });
}

void Ipg_SbfDvwPass(const double* in, double* out, int cols, int rows, int maxHalf, double factor, double cu2)
{
  const double limit = factor * factor * cu2;
  const int reach = std::max(1, maxHalf);
  Ipg_PassRowsInBands<Bounds>(in, out, cols, rows, reach, reach, kWindowWork,
                              [&](int r, double* target, Ipg_WindowTables& area, Bounds& bounds) {
    SqueezeRow(in, target, cols, rows, 1, r, bounds, [&](int c, double v) {
      // The largest homogeneous window, 3x3 at least.
      double count = 0.0, sum = 0.0, squares = 0.0;
      area.Window(c, r, 1, count, sum, squares);
      for (int h = 2; h <= maxHalf; ++h) {
        double n = 0.0, s = 0.0, q = 0.0;
        area.Window(c, r, h, n, s, q);
        const double mean = s / n;
        const double variance = std::max(0.0, q / n - mean * mean);
        if (mean <= 0.0 || variance > limit * mean * mean)
          break;
        count = n;
        sum = s;
      }
      return count > 1.0 ? (sum - v) / (count - 1.0) : v;
    });
  });
}
