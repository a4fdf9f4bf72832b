// SPDX-License-Identifier: Apache-2.0
// Frost's filter (declared in ipg_speckle_kernels.h with the others).
#include "ipg/internal/ipg_local_kernels.h"
#include "ipg/internal/ipg_pixel_conversion.h"
#include "ipg/internal/ipg_simd.h"
#include "ipg/internal/ipg_speckle_kernels.h"
#include "ipg/internal/ipg_wavefront_link.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace {

constexpr int kCells = 25;
// The distances of the cells of a 5x5 window to its centre: sqrt of 0, 1, 2, 4, 5, 8.
constexpr int kDistances = 6;
const double kDistance[kDistances] = {0.0, 1.0, std::sqrt(2.0), 2.0, std::sqrt(5.0), std::sqrt(8.0)};

// The distance class of cell k of the window (run k / 5, place k % 5).
constexpr int DistanceClass(int k)
{
  const int across = k % 5 - 2, down = k / 5 - 2;
  const int squared = across * across + down * down;
  return squared == 8 ? 5 : squared == 5 ? 4 : squared == 4 ? 3 : squared;
}

// The weight of each distance class for a window's squared coefficient of
// variation. The 25 cells lie at six distinct distances: one exponential
// each, the very values a call per cell gives.
void DistanceWeights(double damping, double spread, double (&byDistance)[kDistances])
{
  for (int d = 0; d < kDistances; ++d) {
    const double exponent = -damping * spread * kDistance[d];
    byDistance[d] = exponent == 0.0 ? 1.0 : std::exp(exponent); // exp(+-0) is exactly 1
  }
}

// Frost's value for the sheared window written at w, on one pixel or (T a
// vector) on a lane per pixel, summed in the order of a per-pixel loop.
template <typename T, typename Weights>
[[gnu::always_inline]] inline void FrostQuotient(const T (&cells)[kCells], double damping, Weights&& weightsOf,
                                                 T& quotient)
{
  T sum{}; // +0.0 in every lane
  for (const T& v : cells)
    sum = sum + v;
  const T mean = sum * 0.04;
  T squares{};
  for (const T& v : cells)
    squares = squares + (v - mean) * (v - mean);
  const T variance = squares * 0.04;
  T byDistance[kDistances];
  weightsOf(damping, mean, variance, byDistance);
  T weighted{}, weights{};
  for (int k = 0; k < kCells; ++k) {
    const T weight = byDistance[DistanceClass(k)];
    weighted = weighted + weight * cells[k];
    weights = weights + weight;
  }
  // The centre cell weighs exp(0) = 1, so weights is never 0.
  quotient = weighted / weights;
}

int FrostPixel(const int* work, std::ptrdiff_t w, int cols, double damping)
{
  double cells[kCells];
  for (int dr = -2; dr <= 2; ++dr) {
    const int* run = work + Ipg_ShearedRunStart(w, dr, cols);
    for (int k = 0; k < 5; ++k)
      cells[(dr + 2) * 5 + k] = run[k];
  }
  double quotient;
  FrostQuotient(
      cells, damping,
      [](double d, double mean, double variance, double (&byDistance)[kDistances]) {
        // Squared coefficient of variation; a window of mean 0 is averaged evenly.
        DistanceWeights(d, mean != 0.0 ? variance / (mean * mean) : 0.0, byDistance);
      },
      quotient);
  return Ipg_TruncateTowardZero<double>(quotient);
}

using Lanes4d = double __attribute__((vector_size(32)));
constexpr int kLanes = 4;
// Each row runs this many columns behind the row above (see Ipg_FrostPass).
constexpr int kLag = 5;

// The windows of kLanes rows along the wavefront: lane i visits column
// col - kLag i of row first + i. Every lane reads only cells that no other
// lane of the step writes, so computing them together changes nothing. From
// one step to the next the windows move one place along their runs; the cells
// they keep are carried over, the one written last replaced by its new value,
// so that only the cell entering each run is read.
struct FrostLaneWindows {
  Lanes4d Cells[kCells];
  Lanes4d Written;
  bool Carried = false; // false: read every cell
};

// The values at at, at + down, at + 2 down, at + 3 down.
[[gnu::always_inline]] inline void LoadLanes(const int* at, std::ptrdiff_t down, Lanes4d& v)
{
  v = Lanes4d{static_cast<double>(at[0]), static_cast<double>(at[down]), static_cast<double>(at[2 * down]),
              static_cast<double>(at[3 * down])};
}

[[gnu::always_inline]] inline void FrostLanes(int* work, int cols, int first, int col, double damping,
                                              FrostLaneWindows& kept)
{
  const std::ptrdiff_t w = static_cast<std::ptrdiff_t>(first) * cols + col - 1; // lane 0 writes here
  const std::ptrdiff_t down = static_cast<std::ptrdiff_t>(cols) - kLag;
  Lanes4d(&cells)[kCells] = kept.Cells;
  if (kept.Carried) {
    for (int run = 0; run < 5; ++run) {
      for (int k = 0; k < 4; ++k)
        cells[run * 5 + k] = cells[run * 5 + k + 1];
      LoadLanes(work + Ipg_ShearedRunStart(w, run - 2, cols) + 4, down, cells[run * 5 + 4]);
    }
    cells[2 * 5 + 1] = kept.Written; // the cell left of the centre
  } else {
    for (int run = 0; run < 5; ++run)
      for (int k = 0; k < 5; ++k)
        LoadLanes(work + Ipg_ShearedRunStart(w, run - 2, cols) + k, down, cells[run * 5 + k]);
  }
  Lanes4d quotient;
  FrostQuotient(
      cells, damping,
      [](double d, const Lanes4d& mean, const Lanes4d& variance, Lanes4d (&byDistance)[kDistances]) {
        const Lanes4d spread = mean != 0.0 ? variance / (mean * mean) : Lanes4d{};
        for (int i = 0; i < kLanes; ++i) {
          double lane[kDistances];
          DistanceWeights(d, spread[i], lane);
          for (int k = 0; k < kDistances; ++k)
            byDistance[k][i] = lane[k];
        }
      },
      quotient);
  for (int i = 0; i < kLanes; ++i) {
    const int value = Ipg_TruncateTowardZero<double>(quotient[i]);
    work[w + i * down] = value;
    kept.Written[i] = value;
  }
  kept.Carried = true;
}

constexpr int kGroupRows = 2 * kLanes;

// Steps a group of count rows takes to cross an image cols wide.
int FrostSteps(int cols, int count) { return cols - 4 + kLag * (count - 1); }

// One step of a group: row first + i visits column 2 + step - kLag i.
[[gnu::always_inline]] inline void FrostStep(int* work, int cols, int first, int count, int step, double damping,
                                             FrostLaneWindows (&kept)[kGroupRows / kLanes])
{
  for (int v = 0; v < count; v += kLanes) {
    const int col = 2 + step - kLag * v; // of the vector's first row
    if (v + kLanes <= count && col < cols - 2 && col - kLag * (kLanes - 1) >= 2) {
      FrostLanes(work, cols, first + v, col, damping, kept[v / kLanes]);
      continue;
    }
    for (int i = v; i < std::min(count, v + kLanes); ++i) {
      const int c = 2 + step - kLag * i;
      if (c >= 2 && c < cols - 2) {
        const std::ptrdiff_t w = static_cast<std::ptrdiff_t>(first + i) * cols + c - 1;
        work[w] = FrostPixel(work, w, cols, damping);
      }
    }
  }
}

// The rows first .. first + count - 1. A pixel's window reaches two rows up,
// as far as three and four columns right: the group above (aboveCount rows)
// must have visited three columns past this group's first row before that row
// visits a column, which is also when it has read, as they were, the cells
// this group overwrites.
[[gnu::always_inline]] inline void FrostGroupBody(int* work, int cols, int first, int count, int aboveCount,
                                                  IPG_WAVEFRONT_LINK& link, double damping)
{
  const int steps = FrostSteps(cols, count);
  const int aboveSteps = FrostSteps(cols, aboveCount);
  FrostLaneWindows kept[kGroupRows / kLanes];
  for (int step = 0; step < steps; ++step) {
    link.WaitForAbove(std::min(step + 4 + kLag * (aboveCount - 1), aboveSteps));
    FrostStep(work, cols, first, count, step, damping, kept);
    link.Done(step + 1, step + 1 == steps);
  }
}

using FrostGroupPass = void (*)(int*, int, int, int, int, IPG_WAVEFRONT_LINK&, double);

void FrostGroupPlain(int* work, int cols, int first, int count, int aboveCount, IPG_WAVEFRONT_LINK& link,
                     double damping)
{
  FrostGroupBody(work, cols, first, count, aboveCount, link, damping);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void FrostGroupAvx2(int* work, int cols, int first, int count, int aboveCount,
                                            IPG_WAVEFRONT_LINK& link, double damping)
{
  FrostGroupBody(work, cols, first, count, aboveCount, link, damping);
}
#endif

} // namespace

// A pixel's window reaches two rows up and down and, on its own row, the
// value just written to its left: each row is one chain of dependent pixels.
// Rows are taken in groups, each row kLag columns behind the row above: a
// pixel then finds the rows above final as far as its window reaches and the
// rows below untouched, exactly as row by row, while the chains overlap.
void Ipg_FrostPass(int* work, int cols, int rows, double damping)
{
  if (cols < 5 || rows < 5)
    return;
  FrostGroupPass groupPass = &FrostGroupPlain;
#if defined(__x86_64__)
  if (Ipg_UseAvx2())
    groupPass = &FrostGroupAvx2;
#endif
  const int inner = rows - 4;
  const int groups = (inner + kGroupRows - 1) / kGroupRows;
  const std::size_t pixels = static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows);
  Ipg_RunWavefront(groups, pixels, [&](int g, IPG_WAVEFRONT_LINK& link) {
    const int first = g * kGroupRows;
    groupPass(work, cols, 2 + first, std::min(kGroupRows, inner - first), kGroupRows, link, damping);
  });
}
