// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_local_kernels.h"

#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/internal/ipg_row_bands.h"
#include "ipg/internal/ipg_simd.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

// The rows of span an in-place sheared pass visits.
Ipg_RowSpan ShearedRows(const Ipg_KernelImages& images, Ipg_RowSpan span)
{
  return {std::max(span.Begin, 2), std::min(span.End, images.Rows - 2)};
}

struct Offset {
  int dx;
  int dy;
};
using Region = std::vector<Offset>;

// The nine sub-regions of the 5x5 window of Nagao and Matsuyama (1979): the
// 3x3 square around the centre, four 7-pixel pentagons pointing N, E, S, W
// (the 3x2 block on that side plus the centre) and four 7-pixel hexagons
// pointing to the corners (the 2x2 corner block, its two inner neighbours and
// the centre). Each pentagon and hexagon is the previous one turned by 90 degrees.
std::vector<Region> NagaoRegions()
{
  std::vector<Region> regions;
  Region square;
  for (int dy = -1; dy <= 1; ++dy)
    for (int dx = -1; dx <= 1; ++dx)
      square.push_back({dx, dy});
  regions.push_back(square);
  Region pentagon{{-1, -2}, {0, -2}, {1, -2}, {-1, -1}, {0, -1}, {1, -1}, {0, 0}};
  Region hexagon{{-2, -2}, {-1, -2}, {-2, -1}, {-1, -1}, {0, -1}, {-1, 0}, {0, 0}};
  for (int turn = 0; turn < 4; ++turn) {
    regions.push_back(pentagon);
    regions.push_back(hexagon);
    for (Region* r : {&pentagon, &hexagon})
      for (Offset& o : *r)
        o = {-o.dy, o.dx};
  }
  return regions;
}

// The mean of the least-variance unmarked region around idx; value when every region holds a mark.
int NagaoPixel(const int* src, std::size_t idx, int cols, int value)
{
  static const std::vector<Region> regions = NagaoRegions();
  double bestVariance = 0.0;
  bool found = false;
  for (const Region& region : regions) {
    double sum = 0.0, sumSquares = 0.0;
    bool marked = false;
    for (const Offset& o : region) {
      const int p = src[idx + static_cast<std::ptrdiff_t>(o.dy) * cols + o.dx];
      marked = marked || Ipg_IsMark(p);
      sum += p;
      sumSquares += static_cast<double>(p) * p;
    }
    if (marked)
      continue;
    const double n = static_cast<double>(region.size());
    const double variance = sumSquares / n - (sum / n) * (sum / n);
    if (!found || variance < bestVariance) {
      found = true;
      bestVariance = variance;
      value = Ipg_TruncateTowardZero<double>(sum / n);
    }
  }
  return value;
}

constexpr int kChi2Bins = 32;
constexpr double kChi2ToGrey = 8388608.0; // distances lie in [0, 2]: 2 maps to 16777216

void FillPlot(MTH_XY_PLOT& plot, const std::vector<double>& counts, double total)
{
  plot.ClearData();
  for (int b = 0; b < kChi2Bins; ++b)
    plot.AddPoint(static_cast<float>(b), static_cast<float>(total > 0 ? counts[b] / total : 0.0));
}

} // namespace

// Running sums of the five runs: moving one column right drops each run's
// first value and takes the next one; the value just written lies in the
// row-0 run of the next window, so that run follows the update. Integer sums:
// the same pixels as summing the 25 values afresh.
void Ipg_ShearedMeanRows(const Ipg_KernelImages& images, Ipg_RowSpan span)
{
  int* work = images.Out;
  const int cols = images.Cols;
  if (cols < 5)
    return; // no column two pixels from both sides, and the first runs would leave the image
  const Ipg_RowSpan rows = ShearedRows(images, span);
  for (int row = rows.Begin; row < rows.End; ++row) {
    const std::ptrdiff_t rowStart = static_cast<std::ptrdiff_t>(row) * cols;
    std::int64_t run[5] = {0, 0, 0, 0, 0};
    const std::ptrdiff_t firstW = rowStart + 1;
    for (int dr = -2; dr <= 2; ++dr)
      for (int k = 0; k < 5; ++k)
        run[dr + 2] += work[Ipg_ShearedRunStart(firstW, dr, cols) + k];
    for (int col = 2; col < cols - 2; ++col) {
      const std::ptrdiff_t w = rowStart + col - 1;
      const std::int64_t sum = run[0] + run[1] + run[2] + run[3] + run[4];
      const int value = Ipg_TruncateTowardZero<double>(static_cast<double>(sum) * 0.04);
      run[2] += static_cast<std::int64_t>(value) - work[w];
      work[w] = value;
      for (int dr = -2; dr <= 2; ++dr) {
        const std::ptrdiff_t start = Ipg_ShearedRunStart(w, dr, cols);
        run[dr + 2] += static_cast<std::int64_t>(work[start + 5]) - work[start];
      }
    }
  }
}

void Ipg_ShearedEdgeRows(const Ipg_KernelImages& images, Ipg_RowSpan span)
{
  int* work = images.Out;
  const int cols = images.Cols;
  const Ipg_RowSpan rows = ShearedRows(images, span);
  for (int row = rows.Begin; row < rows.End; ++row)
    for (int col = 2; col < cols - 2; ++col) {
      const std::ptrdiff_t c = static_cast<std::ptrdiff_t>(row) * cols + col;
      const std::ptrdiff_t w = c - 1;
      const std::int64_t centre = work[c];
      std::int64_t sum = 0;
      for (int dr = -2; dr <= 2; ++dr) {
        const int* run = work + Ipg_ShearedRunStart(w, dr, cols);
        for (int k = 0; k < 5; ++k)
          sum += std::llabs(centre - run[k]);
      }
      // 25 differences over 24, as existing edge maps were scaled.
      work[w] = Ipg_TruncateTowardZero<double>(static_cast<double>(sum) / 24.0);
    }
}

namespace {

using Lanes4d = double __attribute__((vector_size(32)));
using Lanes4l = long long __attribute__((vector_size(32)));
using Lanes4i = int __attribute__((vector_size(16)));
constexpr int kNagaoLanes = 4;

// NagaoPixel for the four pixels from idx on, a lane each: per lane the same
// sums in the same order, the same choice of region. Reads In only, so the
// output must be another buffer. means[i] gets the chosen region's mean,
// found[i] whether a region without a mark was found.
[[gnu::always_inline]] inline void NagaoLanesBody(const int* src, std::size_t idx, int cols, double* means, long long* found)
{
  static const std::vector<Region> regions = NagaoRegions();
  const Lanes4l none = {};
  Lanes4l anyFound = none;
  Lanes4d best = {}, chosen = {};
  for (const Region& region : regions) {
    Lanes4d sum = {}, sumSquares = {};
    Lanes4l marked = none;
    for (const Offset& o : region) {
      Lanes4i raw;
      std::memcpy(&raw, src + idx + static_cast<std::ptrdiff_t>(o.dy) * cols + o.dx, sizeof raw);
      const Lanes4d p = __builtin_convertvector(raw, Lanes4d);
      marked |= __builtin_convertvector(raw > kIpgMaxGrey, Lanes4l);
      sum += p;
      sumSquares += p * p;
    }
    const double n = static_cast<double>(region.size());
    const Lanes4d variance = sumSquares / n - (sum / n) * (sum / n);
    const Lanes4l take = (marked == none) & ((anyFound == none) | (variance < best));
    best = take ? variance : best;
    chosen = take ? sum / n : chosen;
    anyFound |= marked == none;
  }
  std::memcpy(means, &chosen, sizeof chosen);
  std::memcpy(found, &anyFound, sizeof anyFound);
}

void NagaoLanesPlain(const int* src, std::size_t idx, int cols, double* means, long long* found)
{
  NagaoLanesBody(src, idx, cols, means, found);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void NagaoLanesAvx2(const int* src, std::size_t idx, int cols, double* means, long long* found)
{
  NagaoLanesBody(src, idx, cols, means, found);
}
#endif

} // namespace

// Nagao-Matsuyama edge-preserving smoothing (M. Nagao and T. Matsuyama, "Edge
// preserving smoothing", Computer Graphics and Image Processing 9, 1979,
// pp. 394-407). Every pixel at least two pixels from the edge takes the mean,
// truncated toward zero, of the sub-region (see NagaoRegions) whose grey levels
// have the least variance; ties go to the first region in the order square, N,
// NW, E, NE, S, SE, W, SW. A region holding a marked pixel (above 16777216)
// takes no part; when all of them do, or the pixel is marked or outside the
// ROI, the input value is copied. Into another buffer, four pixels at a time
// in bands of rows; in place, one after the other, as later pixels then see
// the earlier ones' results.
void Ipg_NagaoRows(const Ipg_KernelImages& images, Ipg_RowSpan span)
{
  const Ipg_RowSpan rows = ShearedRows(images, span);
  const auto pixel = [&](int col, int row) {
    const std::size_t idx = images.At(col, row);
    int value = images.In[idx];
    if (images.InsideRoi(col, row) && !Ipg_IsMark(value))
      value = NagaoPixel(images.In, idx, images.Cols, value);
    images.Write(idx, value);
  };
  if (images.In == images.Out || rows.Begin >= rows.End) {
    for (int row = rows.Begin; row < rows.End; ++row)
      for (int col = 2; col < images.Cols - 2; ++col)
        pixel(col, row);
    return;
  }
#if defined(__x86_64__)
  const auto lanes = Ipg_UseAvx2() ? NagaoLanesAvx2 : NagaoLanesPlain;
#else
  const auto lanes = NagaoLanesPlain;
#endif
  const IPG_ROW_BANDS bands = Ipg_SplitRows(static_cast<unsigned>(rows.End - rows.Begin),
                                            static_cast<std::size_t>(std::max(0, images.Cols)) * 32);
  Ipg_RunBands(bands, [&](unsigned, unsigned begin, unsigned end) {
    for (int row = rows.Begin + static_cast<int>(begin); row < rows.Begin + static_cast<int>(end); ++row) {
      int col = 2;
      for (; col + kNagaoLanes <= images.Cols - 2; col += kNagaoLanes) {
        double means[kNagaoLanes];
        long long found[kNagaoLanes];
        lanes(images.In, images.At(col, row), images.Cols, means, found);
        for (int i = 0; i < kNagaoLanes; ++i) {
          const std::size_t idx = images.At(col + i, row);
          int value = images.In[idx];
          if (images.InsideRoi(col + i, row) && !Ipg_IsMark(value) && found[i] != 0)
            value = Ipg_TruncateTowardZero<double>(means[i]);
          images.Write(idx, value);
        }
      }
      for (; col < images.Cols - 2; ++col)
        pixel(col, row);
    }
  });
}

Ipg_Chi2Kernel::Ipg_Chi2Kernel(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& support)
    : HalfX(support.HalfX), HalfY(support.HalfY)
{
  std::int64_t lo = INT64_MAX, hi = INT64_MIN;
  for (int row = 0; row < images.Rows; ++row)
    for (int col = 0; col < images.Cols; ++col) {
      const int v = images.In[images.At(col, row)];
      if (!Ipg_IsMark(v) && images.InsideRoi(col, row)) {
        lo = std::min<std::int64_t>(lo, v);
        hi = std::max<std::int64_t>(hi, v);
      }
    }
  if (lo > hi)
    lo = hi = 0;
  Low = lo;
  High = hi;

  std::vector<double> global(kChi2Bins, 0.0);
  double globalTotal = 0.0;
  for (int row = 0; row < images.Rows; ++row)
    for (int col = 0; col < images.Cols; ++col) {
      const int v = images.In[images.At(col, row)];
      if (!Ipg_IsMark(v) && images.InsideRoi(col, row)) {
        global[Bin(v)] += 1.0;
        globalTotal += 1.0;
      }
    }
  FillPlot(ImagePlot, global, globalTotal);

  for (int dy = -HalfY, k = 0; dy <= HalfY; ++dy)
    for (int dx = -HalfX; dx <= HalfX; ++dx, ++k)
      if (support.Coef[k] != 0.0)
        Support.push_back({dx, dy});
}

// Grey levels in kChi2Bins equal bins over [Low, High].
int Ipg_Chi2Kernel::Bin(int v) const
{
  return static_cast<int>((v - Low) * kChi2Bins / (High - Low + 1));
}

void Ipg_Chi2Kernel::Rows(const Ipg_KernelImages& images, Ipg_RowSpan span, float* distances)
{
  std::vector<double> local(kChi2Bins);
  for (int row = std::max(span.Begin, HalfY); row < std::min(span.End, images.Rows - HalfY); ++row)
    for (int col = HalfX; col < images.Cols - HalfX; ++col) {
      const std::size_t idx = images.At(col, row);
      int value = images.In[idx];
      if (images.InsideRoi(col, row) && !Ipg_IsMark(value)) {
        std::fill(local.begin(), local.end(), 0.0);
        double total = 0.0;
        for (const Offset& o : Support) {
          const int p = images.In[idx + static_cast<std::ptrdiff_t>(o.dy) * images.Cols + o.dx];
          if (!Ipg_IsMark(p) && p >= Low && p <= High) {
            local[Bin(p)] += 1.0;
            total += 1.0;
          }
        }
        FillPlot(LocalPlot, local, total);
        const double distance = LocalPlot.GetChi2(&ImagePlot);
        distances[idx] = static_cast<float>(distance);
        value = Ipg_TruncateTowardZero<double>(distance * kChi2ToGrey);
      }
      images.Write(idx, value);
    }
}
