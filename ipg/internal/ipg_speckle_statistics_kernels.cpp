// SPDX-License-Identifier: Apache-2.0
// The local-statistics members of the speckle family: Lee, Kuan and the
// sigma filter (declared in ipg_speckle_kernels.h with the others; Frost has
// a file of its own).
#include "ipg/internal/ipg_local_kernels.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/internal/ipg_simd.h"
#include "ipg/internal/ipg_speckle_kernels.h"
#include "ipg/internal/ipg_speckle_windows.h"
#include "ipg/internal/ipg_wavefront_link.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

constexpr double kNinth = 1.0 / 9.0;
// Half-width of the windows the sigma filter estimates the speckle level on (5x5).
constexpr int kSpeckleHalf = 2;
// A sigma filter pixel costs about this many plain copies.
constexpr std::size_t kSigmaWork = 32;

std::size_t At(int col, int row, int cols)
{
  return static_cast<std::size_t>(row) * static_cast<std::size_t>(cols) + static_cast<std::size_t>(col);
}

// Mean of the 8 neighbours of (col, row) in in, clipped; false when there are none.
bool NeighbourMean(const double* in, int cols, int rows, int col, int row, double& mean)
{
  double sum = 0.0;
  int count = 0;
  for (int y = std::max(0, row - 1); y <= std::min(rows - 1, row + 1); ++y)
    for (int x = std::max(0, col - 1); x <= std::min(cols - 1, col + 1); ++x)
      if (x != col || y != row) {
        sum += in[At(x, y, cols)];
        ++count;
      }
  if (count == 0)
    return false;
  mean = sum / count;
  return true;
}

} // namespace

namespace {

// Lee's update of work[idx], on one pixel or (T a vector) on a lane per pixel:
// the 3x3 moments, the weight and the blend in the order of a per-pixel loop.
// Mean and population variance of a 3x3 window, on one pixel or (T a vector)
// on a lane per pixel, summed in the order of a per-pixel loop.
template <typename T>
[[gnu::always_inline]] inline void WindowMoments(const T (&window)[9], T& mean, T& variance)
{
  T sum{}; // +0.0 in every lane
  for (int k = 0; k < 9; ++k)
    sum = sum + window[k];
  mean = sum * kNinth;
  T squares{};
  for (int k = 0; k < 9; ++k)
    squares = squares + (window[k] - mean) * (window[k] - mean);
  variance = kNinth * squares;
}

template <typename T>
[[gnu::always_inline]] inline void LeeValue(const T (&window)[9], const T& centre, double noiseVariance, T& updated)
{
  const T zero{}; // +0.0 in every lane
  const T one = zero + 1.0;
  T mean, variance;
  WindowMoments(window, mean, variance);
  // The weight clipped to [0, 1]; a flat neighbourhood keeps its mean.
  T w = (variance - noiseVariance) / variance;
  w = w < zero ? zero : w;
  w = one < w ? one : w;
  w = variance <= zero ? zero : w;
  updated = (1.0 - w) * mean + w * centre;
}

using Lanes4d = double __attribute__((vector_size(32)));
constexpr int kLeeLanes = 4;

// The 3x3 windows of kLeeLanes rows along the wavefront: lane i updates
// (col - 2 i, first + i). Every lane reads only cells that no other lane of the
// step writes, so computing them together changes nothing. From one step to
// the next the windows move one column right; the cells they keep are carried
// over, so only the column entering them is read: its upper cell is what the
// lane above wrote at the last step, the other two are still as they were.
struct LeeLaneWindows {
  Lanes4d AboveMiddle, AboveRight, Right, BelowMiddle, BelowRight, Updated;
  bool Carried = false; // false: read every cell
};

// The values of rows first .. first + 3 at columns col, col - 2, col - 4, col - 6.
[[gnu::always_inline]] inline void LeeColumn(const double* work, int cols, int first, int col, Lanes4d& column)
{
  const double* p = work + At(col, first, cols);
  const std::ptrdiff_t down = static_cast<std::ptrdiff_t>(cols) - 2;
  column = Lanes4d{p[0], p[down], p[2 * down], p[3 * down]};
}

[[gnu::always_inline]] inline void LeeLanes(double* work, int cols, int first, int col, double noiseVariance,
                                            LeeLaneWindows& kept)
{
  Lanes4d window[9] = {};
  if (kept.Carried) {
    const Lanes4d& last = kept.Updated;
    window[0] = kept.AboveMiddle;
    window[1] = kept.AboveRight;
    window[2] = Lanes4d{work[At(col + 1, first - 1, cols)], last[0], last[1], last[2]};
    window[3] = last;
    window[4] = kept.Right;
    window[6] = kept.BelowMiddle;
    window[7] = kept.BelowRight;
  } else {
    for (int k = 0; k < 9; ++k)
      if (k != 5 && k != 8)
        LeeColumn(work, cols, first + k / 3 - 1, col + k % 3 - 1, window[k]);
  }
  LeeColumn(work, cols, first, col + 1, window[5]);
  LeeColumn(work, cols, first + 1, col + 1, window[8]);
  Lanes4d updated;
  LeeValue(window, window[4], noiseVariance, updated);
  kept = LeeLaneWindows{window[1], window[2], window[5], window[7], window[8], updated, true};
  double* p = work + At(col, first, cols);
  const std::ptrdiff_t down = static_cast<std::ptrdiff_t>(cols) - 2;
  for (int i = 0; i < kLeeLanes; ++i)
    p[i * down] = updated[i];
}

void LeeOne(double* work, int cols, int col, int row, double noiseVariance)
{
  const std::size_t idx = At(col, row, cols);
  double window[9];
  int k = 0;
  for (int dy = -1; dy <= 1; ++dy)
    for (int dx = -1; dx <= 1; ++dx)
      window[k++] = work[idx + static_cast<std::ptrdiff_t>(dy) * cols + dx];
  const double centre = work[idx];
  LeeValue(window, centre, noiseVariance, work[idx]);
}

// Each value depends on its left neighbour and on the row above as already
// updated, so a row is a chain of dependent pixels. Rows are taken in groups
// along a diagonal wavefront, each two columns behind the row above: a pixel
// then finds its left neighbour and the three cells above it updated and the
// row below untouched, exactly as in a row-by-row pass. The pixels of one step
// are independent: four vectors of four, whose chains the processor overlaps.
constexpr int kLeeGroupRows = 4 * kLeeLanes;

// Steps a group of count rows takes to cross an image cols wide.
int LeeSteps(int cols, int count) { return cols - 2 + 2 * (count - 1); }

// One step of a group: row first + i updates column 1 + step - 2 i.
[[gnu::always_inline]] inline void LeeStep(double* work, int cols, int first, int count, int step, double noiseVariance,
                                           LeeLaneWindows (&kept)[kLeeGroupRows / kLeeLanes])
{
  for (int v = 0; v < count; v += kLeeLanes) {
    const int col = 1 + step - 2 * v; // of the vector's first row
    if (v + kLeeLanes <= count && col < cols - 1 && col - 2 * (kLeeLanes - 1) >= 1) {
      LeeLanes(work, cols, first + v, col, noiseVariance, kept[v / kLeeLanes]);
      continue;
    }
    for (int i = v; i < std::min(count, v + kLeeLanes); ++i) {
      const int c = 1 + step - 2 * i;
      if (c >= 1 && c < cols - 1)
        LeeOne(work, cols, c, first + i, noiseVariance);
    }
  }
}

// The rows first .. first + count - 1. The group above (aboveCount rows) must
// have finished the three cells over each pixel before the pixel is updated,
// and read the pixel's old value before it is overwritten: both hold once its
// lowest row is past the next column.
[[gnu::always_inline]] inline void LeeGroupBody(double* work, int cols, int first, int count, int aboveCount,
                                                IPG_WAVEFRONT_LINK& link, double noiseVariance)
{
  const int steps = LeeSteps(cols, count);
  const int aboveSteps = LeeSteps(cols, aboveCount);
  LeeLaneWindows kept[kLeeGroupRows / kLeeLanes];
  for (int step = 0; step < steps; ++step) {
    link.WaitForAbove(std::min(step + 2 * aboveCount, aboveSteps));
    LeeStep(work, cols, first, count, step, noiseVariance, kept);
    link.Done(step + 1, step + 1 == steps);
  }
}

using LeeGroupPass = void (*)(double*, int, int, int, int, IPG_WAVEFRONT_LINK&, double);

void LeeGroupPlain(double* work, int cols, int first, int count, int aboveCount, IPG_WAVEFRONT_LINK& link,
                   double noiseVariance)
{
  LeeGroupBody(work, cols, first, count, aboveCount, link, noiseVariance);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void LeeGroupAvx2(double* work, int cols, int first, int count, int aboveCount,
                                          IPG_WAVEFRONT_LINK& link, double noiseVariance)
{
  LeeGroupBody(work, cols, first, count, aboveCount, link, noiseVariance);
}
#endif

} // namespace

void Ipg_LeePass(double* work, int cols, int rows, double noiseVariance)
{
  if (cols < 3 || rows < 3)
    return;
  LeeGroupPass groupPass = &LeeGroupPlain;
#if defined(__x86_64__)
  if (Ipg_UseAvx2())
    groupPass = &LeeGroupAvx2;
#endif
  const int inner = rows - 2;
  const int groups = (inner + kLeeGroupRows - 1) / kLeeGroupRows;
  const std::size_t pixels = static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows);
  Ipg_RunWavefront(groups, pixels, [&](int g, IPG_WAVEFRONT_LINK& link) {
    const int first = g * kLeeGroupRows;
    groupPass(work, cols, 1 + first, std::min(kLeeGroupRows, inner - first), kLeeGroupRows, link, noiseVariance);
  });
}

namespace {

// Kuan's value from the 3x3 window of a pixel, on one pixel or (T a vector)
// on a lane per pixel: the 3x3 moments and the blend in the order of a
// per-pixel loop.
template <typename T>
[[gnu::always_inline]] inline void KuanValue(const T (&window)[9], const T& centre, T& updated)
{
  const T zero{};
  T mean, variance;
  WindowMoments(window, mean, variance);
  // Unclipped, as existing results were computed; a flat neighbourhood keeps its mean.
  const T w = variance > zero ? 0.5 * (1.0 - mean / variance) : zero;
  updated = (1.0 - w) * mean + w * centre;
}

using Lanes4i = int __attribute__((vector_size(16)));

[[gnu::always_inline]] inline void KuanRowBody(const Ipg_KernelImages& images, int row)
{
  const int cols = images.Cols;
  int col = 1;
  for (; col + kLeeLanes <= cols - 1; col += kLeeLanes) { // four pixels at a time
    const int* first = images.In + images.At(col, row);
    Lanes4d window[9], centre, updated;
    for (int dy = -1, k = 0; dy <= 1; ++dy)
      for (int dx = -1; dx <= 1; ++dx, ++k) {
        Lanes4i values;
        std::memcpy(&values, first + static_cast<std::ptrdiff_t>(dy) * cols + dx, sizeof values);
        window[k] = __builtin_convertvector(values, Lanes4d);
      }
    centre = window[4];
    KuanValue(window, centre, updated);
    // Truncated toward zero as Ipg_TruncateTowardZero does: clamped to the int range, NaN to 0.
    Lanes4d clamped = updated >= 2147483647.0 ? Lanes4d{} + 2147483647.0 : updated;
    clamped = clamped <= -2147483648.0 ? Lanes4d{} - 2147483648.0 : clamped;
    clamped = updated == updated ? clamped : Lanes4d{};
    const Lanes4i values = __builtin_convertvector(clamped, Lanes4i);
    const std::size_t at = images.At(col, row);
    if (at + kLeeLanes <= images.OutSize)
      std::memcpy(images.Out + at, &values, sizeof values);
    else
      for (int i = 0; i < kLeeLanes; ++i)
        images.Write(at + static_cast<std::size_t>(i), values[i]);
  }
  for (; col < cols - 1; ++col) {
    const std::size_t idx = images.At(col, row);
    double window[9];
    for (int dy = -1, k = 0; dy <= 1; ++dy)
      for (int dx = -1; dx <= 1; ++dx, ++k)
        window[k] = images.In[idx + static_cast<std::ptrdiff_t>(dy) * cols + dx];
    double updated = 0.0;
    KuanValue(window, window[4], updated);
    images.Write(idx, Ipg_TruncateTowardZero<double>(updated));
  }
}

void KuanRowPlain(const Ipg_KernelImages& images, int row) { KuanRowBody(images, row); }

#if defined(__x86_64__)
[[gnu::target("avx2")]] void KuanRowAvx2(const Ipg_KernelImages& images, int row) { KuanRowBody(images, row); }
#endif

} // namespace

void Ipg_KuanRows(const Ipg_KernelImages& images, Ipg_RowSpan span)
{
#if defined(__x86_64__)
  const auto kuanRow = Ipg_UseAvx2() ? KuanRowAvx2 : KuanRowPlain;
#else
  const auto kuanRow = KuanRowPlain;
#endif
  for (int row = std::max(span.Begin, 1); row < std::min(span.End, images.Rows - 1); ++row)
    kuanRow(images, row);
}

namespace {

// The similar neighbours of the inner pixels [begin, end) of row: count and
// sum of the usable pixels of the window (without the centre) within
// tolerance of the centre. usable holds the grey levels inside the ROI and
// NaN elsewhere, which no test passes. The values are whole numbers far below
// 2^53, so their sum is exact in any order: the same sum as the listing's.
[[gnu::always_inline]] inline void SimilarBody(const double* levels, const double* usable, int cols, int row, int half,
                                               int begin, int end, const double* tolerance, double* sum, double* count)
{
  const double* centre = levels + static_cast<std::ptrdiff_t>(row) * cols;
  const auto load = [](const double* p, Lanes4d& v) { std::memcpy(&v, p, sizeof v); };
  int c = begin;
  for (; c + kLeeLanes <= end; c += kLeeLanes) { // four pixels at a time
    Lanes4d middle, limit, total = {}, similar = {};
    load(centre + c, middle);
    load(tolerance + c, limit);
    const Lanes4d zero = {}, one = zero + 1.0;
    for (int dy = -half; dy <= half; ++dy)
      for (int dx = -half; dx <= half; ++dx) {
        if (dy == 0 && dx == 0)
          continue;
        Lanes4d level;
        load(usable + static_cast<std::ptrdiff_t>(row + dy) * cols + dx + c, level);
        const Lanes4d distance = level - middle;
        const auto near = (distance <= limit) & (-distance <= limit); // |distance| <= limit, false for NaN
        total += near ? level : zero;
        similar += near ? one : zero;
      }
    std::memcpy(sum + c, &total, sizeof total);
    std::memcpy(count + c, &similar, sizeof similar);
  }
  for (; c < end; ++c) {
    double total = 0.0, similar = 0.0;
    for (int dy = -half; dy <= half; ++dy)
      for (int dx = -half; dx <= half; ++dx) {
        const double level = usable[static_cast<std::ptrdiff_t>(row + dy) * cols + dx + c];
        if ((dy != 0 || dx != 0) && std::fabs(level - centre[c]) <= tolerance[c]) {
          total += level;
          similar += 1.0;
        }
      }
    sum[c] = total;
    count[c] = similar;
  }
}

void SimilarPlain(const double* levels, const double* usable, int cols, int row, int half, int begin, int end,
                  const double* tolerance, double* sum, double* count)
{
  SimilarBody(levels, usable, cols, row, half, begin, end, tolerance, sum, count);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void SimilarAvx2(const double* levels, const double* usable, int cols, int row, int half,
                                         int begin, int end, const double* tolerance, double* sum, double* count)
{
  SimilarBody(levels, usable, cols, row, half, begin, end, tolerance, sum, count);
}
#endif

// What one band of the sigma filter works with: the usable levels of the rows
// its windows read (grey levels inside the ROI rounded to whole numbers, NaN
// elsewhere) in a buffer of twice a window's rows, each row filled once or
// twice, and the sums of a row.
struct SigmaRow {
  std::vector<double> Levels;
  int First = 0; // the image row of Levels' first row
  int Held = 0;  // rows held
  std::vector<double> Tolerance, Sum, Count;

  double* Row(int r, int cols) { return Levels.data() + static_cast<std::size_t>(r - First) * static_cast<std::size_t>(cols); }
  const double* Row(int r, int cols) const { return const_cast<SigmaRow*>(this)->Row(r, cols); }
};

} // namespace

void Ipg_SigmaFilterPass(const double* in, double* out, int cols, int rows, const Ipg_RoiRows& roi, int half,
                         int fewest, double range)
{
  const int windowRows = std::min(rows, 2 * half + 1);
  // Holds the rows [top, bottom) of in's usable levels in line's buffer.
  const auto cover = [&](SigmaRow& line, int top, int bottom) {
    const int capacity = std::min(rows, 2 * windowRows);
    if (line.Levels.empty())
      line.Levels.resize(static_cast<std::size_t>(capacity) * static_cast<std::size_t>(cols));
    if (line.Held == 0 || bottom > line.First + capacity) { // keep the rows still read, at the front
      const int kept = std::max(0, line.First + line.Held - top);
      std::copy_n(line.Row(line.First + line.Held - kept, cols), static_cast<std::size_t>(kept) * cols, line.Levels.data());
      line.First = top;
      line.Held = kept;
    }
    for (int r = line.First + line.Held; r < bottom; ++r, ++line.Held) {
      double* target = line.Row(r, cols);
      for (int col = 0; col < cols; ++col) {
        const int level = Ipg_RoundToNearest(in[At(col, r, cols)]);
        target[col] = Ipg_IsGreyLevel(level) && roi.Inside(col, r) ? static_cast<double>(level) : NAN;
      }
    }
  };
  const auto usable = [&](const SigmaRow& line, int col, int row) { return line.Row(row, cols)[col]; };
  const auto levelOf = [](double usableLevel) { return static_cast<int>(usableLevel); };
  const double cu = std::sqrt(Ipg_SpeckleCu2(in, cols, rows, kSpeckleHalf));
  const auto toleranceOf = [&](int reference) {
    return Ipg_TruncateTowardZero<double>(std::lround(range * cu * std::fabs(static_cast<double>(reference))));
  };
  // A grey level inside roi takes the mean of itself and its similar
  // neighbours, or, with too few of them, that of its 8 neighbours in in.
  const auto finish = [&](const SigmaRow& line, double* target, int col, int row, double sum, int similar) {
    double impulseMean = 0.0;
    if (similar >= fewest)
      target[col] = (levelOf(usable(line, col, row)) + sum) / (similar + 1);
    else if (NeighbourMean(in, cols, rows, col, row, impulseMean))
      target[col] = impulseMean; // too few look alike: an impulse
  };
  const auto clipped = [&](const SigmaRow& line, double* target, int col, int row) {
    const int reference = levelOf(usable(line, col, row));
    const int tolerance = toleranceOf(reference);
    double sum = 0.0;
    int similar = 0;
    for (int y = std::max(0, row - half); y <= std::min(rows - 1, row + half); ++y)
      for (int x = std::max(0, col - half); x <= std::min(cols - 1, col + half); ++x) {
        const double level = usable(line, x, y);
        if ((x != col || y != row) && !std::isnan(level) &&
            std::labs(static_cast<long>(levelOf(level)) - reference) <= tolerance) {
          sum += levelOf(level);
          ++similar;
        }
      }
    finish(line, target, col, row, sum, similar);
  };
  // The impulses' means read the rows next to theirs.
  const int readReach = std::max(half, 1);
  Ipg_SpeckleRowsInBands<SigmaRow>(in, out, cols, rows, readReach, kSigmaWork, [&](int row, double* target, SigmaRow& line) {
    cover(line, std::max(0, row - half), std::min(rows, row + half + 1));
    const double* levels = line.Row(row, cols);
    std::copy_n(in + At(0, row, cols), cols, target);
    const bool innerRow = half > 0 && row >= half && row + half < rows;
    const int begin = innerRow ? std::min(half, cols) : cols, end = innerRow ? std::max(begin, cols - half) : cols;
    if (begin < end) {
      line.Tolerance.resize(static_cast<std::size_t>(cols));
      line.Sum.resize(static_cast<std::size_t>(cols));
      line.Count.resize(static_cast<std::size_t>(cols));
      // The centres are read from the usable levels too: those that are not are never filtered.
      for (int col = begin; col < end; ++col)
        line.Tolerance[static_cast<std::size_t>(col)] = std::isnan(levels[col]) ? 0.0 : toleranceOf(levelOf(levels[col]));
      // The row's window rows lie around it in the buffer.
#if defined(__x86_64__)
      if (Ipg_UseAvx2())
        SimilarAvx2(levels, levels, cols, 0, half, begin, end, line.Tolerance.data(), line.Sum.data(), line.Count.data());
      else
#endif
        SimilarPlain(levels, levels, cols, 0, half, begin, end, line.Tolerance.data(), line.Sum.data(),
                     line.Count.data());
    }
    for (int col = 0; col < cols; ++col) {
      if (std::isnan(levels[col]))
        continue;
      if (col < begin || col >= end) {
        clipped(line, target, col, row);
        continue;
      }
      const std::size_t k = static_cast<std::size_t>(col);
      finish(line, target, col, row, line.Sum[k], static_cast<int>(line.Count[k]));
    }
  });
}
