// SPDX-License-Identifier: Apache-2.0
// The local-statistics members of the speckle family: Lee, Kuan, Frost and
// the sigma filter (declared in ipg_speckle_kernels.h with the others).
#include "ipg/internal/ipg_local_kernels.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/internal/ipg_simd.h"
#include "ipg/internal/ipg_speckle_kernels.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <vector>

namespace {

constexpr double kNinth = 1.0 / 9.0;
// Half-width of the windows the sigma filter estimates the speckle level on (5x5).
constexpr int kSpeckleHalf = 2;

// Mean and population variance of the 3x3 neighbourhood around work[idx].
template <typename T>
void LocalMoments3x3(const T* work, std::size_t idx, int cols, double& mean, double& variance)
{
  double values[9];
  int k = 0;
  for (int dy = -1; dy <= 1; ++dy) {
    const T* line = work + idx + static_cast<std::ptrdiff_t>(dy) * cols;
    for (int dx = -1; dx <= 1; ++dx)
      values[k++] = static_cast<double>(line[dx]);
  }
  double sum = 0.0;
  for (double v : values)
    sum += v;
  mean = sum * kNinth;
  double squares = 0.0;
  for (double v : values)
    squares += (v - mean) * (v - mean);
  variance = kNinth * squares;
}

// The distances of the cells of a 5x5 window to its centre: sqrt of 0, 1, 2, 4, 5, 8.
constexpr int kFrostDistances = 6;
const double kFrostDistance[kFrostDistances] = {0.0, 1.0, std::sqrt(2.0), 2.0, std::sqrt(5.0), std::sqrt(8.0)};

// Frost's value for the sheared window written at w.
int FrostPixel(const int* work, std::ptrdiff_t w, int cols, double damping, const int* distanceClass)
{
  double values[25];
  double sum = 0.0;
  for (int dr = -2; dr <= 2; ++dr) {
    const int* run = work + Ipg_ShearedRunStart(w, dr, cols);
    for (int k = 0; k < 5; ++k) {
      values[(dr + 2) * 5 + k] = run[k];
      sum += run[k];
    }
  }
  const double mean = sum * 0.04;
  double squares = 0.0;
  for (double v : values)
    squares += (v - mean) * (v - mean);
  const double variance = squares * 0.04;
  // Squared coefficient of variation; a window of mean 0 is averaged evenly.
  const double spread = mean != 0.0 ? variance / (mean * mean) : 0.0;
  // The 25 cells lie at six distinct distances: one exponential each, the
  // very values a call per cell gives.
  double byDistance[kFrostDistances];
  for (int d = 0; d < kFrostDistances; ++d)
    byDistance[d] = std::exp(-damping * spread * kFrostDistance[d]);
  double weighted = 0.0, weights = 0.0;
  for (int k = 0; k < 25; ++k) {
    const double weight = byDistance[distanceClass[k]];
    weighted += weight * values[k];
    weights += weight;
  }
  // The centre cell weighs exp(0) = 1, so weights is never 0.
  return Ipg_TruncateTowardZero<double>(weighted / weights);
}

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
// the operations of LocalMoments3x3, LeeWeight and the blend in the same order.
template <typename T>
[[gnu::always_inline]] inline void LeeValue(const T (&window)[9], const T& centre, double noiseVariance, T& updated)
{
  const T zero{}; // +0.0 in every lane
  const T one = zero + 1.0;
  T sum = zero;
  for (int k = 0; k < 9; ++k)
    sum = sum + window[k];
  const T mean = sum * kNinth;
  T squares = zero;
  for (int k = 0; k < 9; ++k)
    squares = squares + (window[k] - mean) * (window[k] - mean);
  const T variance = kNinth * squares;
  // The weight clipped to [0, 1]; a flat neighbourhood keeps its mean.
  T w = (variance - noiseVariance) / variance;
  w = w < zero ? zero : w;
  w = one < w ? one : w;
  w = variance <= zero ? zero : w;
  updated = (1.0 - w) * mean + w * centre;
}

using Lanes4d = double __attribute__((vector_size(32)));
constexpr int kLeeLanes = 4;

// One step of the wavefront for kLeeLanes rows whose pixels all lie inside:
// lane i updates (col - 2 i, first + i). Every lane reads only cells that no
// other lane of the step writes, so computing them together changes nothing.
[[gnu::always_inline]] inline void LeeLanes(double* work, int cols, int first, int col, double noiseVariance)
{
  Lanes4d window[9] = {};
  Lanes4d centre = {};
  for (int i = 0; i < kLeeLanes; ++i) {
    const std::size_t idx = At(col - 2 * i, first + i, cols);
    int k = 0;
    for (int dy = -1; dy <= 1; ++dy)
      for (int dx = -1; dx <= 1; ++dx)
        window[k++][i] = work[idx + static_cast<std::ptrdiff_t>(dy) * cols + dx];
    centre[i] = work[idx];
  }
  Lanes4d updated;
  LeeValue(window, centre, noiseVariance, updated);
  for (int i = 0; i < kLeeLanes; ++i)
    work[At(col - 2 * i, first + i, cols)] = updated[i];
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
// updated, so a row is a chain of dependent pixels. Rows are taken eight at a
// time along a diagonal wavefront, each two columns behind the row above: a
// pixel then finds its left neighbour and the three cells above it updated and
// the row below untouched, exactly as in a row-by-row pass. The pixels of one
// step are independent: two vectors of four, whose chains the processor overlaps.
constexpr int kLeeRowsInFlight = 2 * kLeeLanes;

[[gnu::always_inline]] inline void LeePassBody(double* work, int cols, int rows, double noiseVariance)
{
  for (int first = 1; first < rows - 1; first += kLeeRowsInFlight) {
    const int count = std::min(kLeeRowsInFlight, rows - 1 - first);
    for (int step = 0; step < cols - 2 + 2 * (count - 1); ++step) {
      const int lastCol = 1 + step - 2 * (count - 1); // of the lowest row
      if (count == kLeeRowsInFlight && lastCol >= 1 && 1 + step < cols - 1) {
        LeeLanes(work, cols, first, 1 + step, noiseVariance);
        LeeLanes(work, cols, first + kLeeLanes, 1 + step - 2 * kLeeLanes, noiseVariance);
        continue;
      }
      for (int i = 0; i < count; ++i) {
        const int col = 1 + step - 2 * i;
        if (col >= 1 && col < cols - 1)
          LeeOne(work, cols, col, first + i, noiseVariance);
      }
    }
  }
}

void LeePassPlain(double* work, int cols, int rows, double noiseVariance) { LeePassBody(work, cols, rows, noiseVariance); }

#if defined(__x86_64__)
[[gnu::target("avx2")]] void LeePassAvx2(double* work, int cols, int rows, double noiseVariance)
{
  LeePassBody(work, cols, rows, noiseVariance);
}
#endif

} // namespace

void Ipg_LeePass(double* work, int cols, int rows, double noiseVariance)
{
#if defined(__x86_64__)
  if (Ipg_UseAvx2()) {
    LeePassAvx2(work, cols, rows, noiseVariance);
    return;
  }
#endif
  LeePassPlain(work, cols, rows, noiseVariance);
}

void Ipg_KuanRows(const Ipg_KernelImages& images, Ipg_RowSpan span)
{
  for (int row = std::max(span.Begin, 1); row < std::min(span.End, images.Rows - 1); ++row)
    for (int col = 1; col < images.Cols - 1; ++col) {
      const std::size_t idx = images.At(col, row);
      double mean = 0.0, variance = 0.0;
      LocalMoments3x3(images.In, idx, images.Cols, mean, variance);
      // Unclipped, as existing results were computed; a flat neighbourhood keeps its mean.
      const double w = variance > 0.0 ? 0.5 * (1.0 - mean / variance) : 0.0;
      images.Write(idx, Ipg_TruncateTowardZero<double>((1.0 - w) * mean + w * images.In[idx]));
    }
}

void Ipg_FrostRows(const Ipg_KernelImages& images, double damping, Ipg_RowSpan span)
{
  // Distance class of each window cell (run j, position i) to the window's
  // centre cell: its squared distance 0, 1, 2, 4, 5 or 8.
  int distanceClass[25];
  for (int j = 0; j < 5; ++j)
    for (int i = 0; i < 5; ++i) {
      const int squared = (i - 2) * (i - 2) + (j - 2) * (j - 2);
      distanceClass[j * 5 + i] = squared == 8 ? 5 : squared == 5 ? 4 : squared == 4 ? 3 : squared;
    }
  int* work = images.Out;
  for (int row = std::max(span.Begin, 2); row < std::min(span.End, images.Rows - 2); ++row)
    for (int col = 2; col < images.Cols - 2; ++col) {
      const std::ptrdiff_t w = static_cast<std::ptrdiff_t>(row) * images.Cols + col - 1;
      work[w] = FrostPixel(work, w, images.Cols, damping, distanceClass);
    }
}

void Ipg_SigmaFilterPass(const double* in, double* out, int cols, int rows, const Ipg_RoiRows& roi, int half,
                         int fewest, double range)
{
  const std::size_t n = static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows);
  std::vector<int> pixels(n);
  for (std::size_t i = 0; i < n; ++i)
    pixels[i] = Ipg_RoundToNearest(in[i]);
  const double cu = std::sqrt(Ipg_SpeckleCu2(in, cols, rows, kSpeckleHalf));
  for (int row = 0; row < rows; ++row)
    for (int col = 0; col < cols; ++col) {
      const std::size_t at = At(col, row, cols);
      out[at] = in[at];
      if (Ipg_IsMark(pixels[at]) || !roi.Inside(col, row))
        continue;
      const int reference = pixels[at];
      const double level = std::fabs(static_cast<double>(reference));
      const int tolerance = Ipg_TruncateTowardZero<double>(std::lround(range * cu * level));
      double sum = reference; // the pixel heads its own list
      int similar = 0;
      for (int y = row - half; y <= row + half; ++y)
        for (int x = col - half; x <= col + half; ++x)
          if ((x != col || y != row) && x >= 0 && y >= 0 && x < cols && y < rows && Ipg_IsGreyLevel(pixels[At(x, y, cols)]) &&
              roi.Inside(x, y) && std::labs(static_cast<long>(pixels[At(x, y, cols)]) - reference) <= tolerance) {
            sum += pixels[At(x, y, cols)];
            ++similar;
          }
      double impulseMean = 0.0;
      if (similar >= fewest)
        out[at] = sum / (similar + 1);
      else if (NeighbourMean(in, cols, rows, col, row, impulseMean))
        out[at] = impulseMean; // too few look alike: an impulse
    }
}
