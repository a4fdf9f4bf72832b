// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_speckle_kernels.h"

#include "ipg/internal/ipg_row_bands.h"
#include "ipg/internal/ipg_simd.h"
#include "ipg/internal/ipg_local_ratio_median.h"
#include "ipg/internal/ipg_speckle_windows.h"
#include "ipg/ui/ipg_progress.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <utility>

namespace {

std::size_t At(int col, int row, int cols)
{
  return static_cast<std::size_t>(row) * static_cast<std::size_t>(cols) + static_cast<std::size_t>(col);
}

// A pixel of a diffusion step (its coefficient and its flux) costs about four
// plain copies: a band of 128 x 128 pixels outweighs waking a thread for it,
// although a job wakes them at every pass.
constexpr std::size_t kStepWork = 4;
constexpr std::size_t kWindowWork = 16; // a window statistic per pixel

double Median(std::vector<double>& values)
{
  if (values.empty())
    return 0.0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// The flux of (col, r) with zero flux across the border:
// dt / 4 (c_E dE + c dW + c_S dS + c dN), the terms added in that order;
// here holds the coefficients of row r, below those of row r + 1.
inline double BorderFlux(const double* in, const double* here, const double* below, int cols, int rows, int col, int r)
{
  const std::size_t i = At(col, r, cols);
  const double v = in[i];
  double flux = 0.0;
  if (col + 1 < cols)
    flux += here[col + 1] * (in[i + 1] - v);
  if (col > 0)
    flux += here[col] * (in[i - 1] - v);
  if (r + 1 < rows)
    flux += below[col] * (in[i + static_cast<std::size_t>(cols)] - v);
  if (r > 0)
    flux += here[col] * (in[i - static_cast<std::size_t>(cols)] - v);
  return flux;
}

// One row of the divergence step shared by SRAD and DPAD: target = in + dt / 4 (flux).
// Inner pixels have all four neighbours: the same sum without the tests
// (rows of three columns or more have some).
void DiffusionRow(const double* in, double* target, int cols, int rows, int r, const double* here, const double* below,
                  double dt)
{
  const std::size_t stride = static_cast<std::size_t>(cols);
  const bool innerRow = r > 0 && r + 1 < rows && cols > 2;
  for (int col = 0; col < cols; ++col) {
    if (innerRow && col == 1) {
      const std::size_t start = At(0, r, cols);
      for (int x = 1; x + 1 < cols; ++x) {
        const std::size_t i = start + static_cast<std::size_t>(x);
        const double v = in[i];
        double flux = 0.0;
        flux += here[x + 1] * (in[i + 1] - v);
        flux += here[x] * (in[i - 1] - v);
        flux += below[x] * (in[i + stride] - v);
        flux += here[x] * (in[i - stride] - v);
        target[x] = v + 0.25 * dt * flux;
      }
      col = cols - 2;
      continue;
    }
    target[col] = in[At(col, r, cols)] + 0.25 * dt * BorderFlux(in, here, below, cols, rows, col, r);
  }
}

// The divergence step, the coefficients made a row ahead in each band:
// coefficientRow(r, tables, target, mean, variance) writes row r's into
// target, with the band's window tables (of windows up to reach; none below 0)
// and two rows of scratch. A row reads in up to readReach rows away.
template <typename CoefficientRow>
void DiffusionStep(const double* in, double* out, int cols, int rows, int reach, int readReach, double dt,
                   CoefficientRow coefficientRow)
{
  struct Band {
    std::vector<double> Here, Below, Mean, Variance;
  };
  const std::size_t width = static_cast<std::size_t>(cols);
  Ipg_PassRowsInBands<Band>(in, out, cols, rows, reach, readReach, kStepWork,
                            [&](int r, double* target, Ipg_WindowTables& tables, Band& band) {
    if (band.Here.empty()) { // the band's first row
      for (std::vector<double>* line : {&band.Here, &band.Below, &band.Mean, &band.Variance})
        line->resize(width);
      coefficientRow(r, tables, band.Here.data(), band.Mean.data(), band.Variance.data());
    }
    if (r + 1 < rows)
      coefficientRow(r + 1, tables, band.Below.data(), band.Mean.data(), band.Variance.data());
    DiffusionRow(in, target, cols, rows, r, band.Here.data(), band.Below.data(), dt);
    band.Here.swap(band.Below);
  });
}

// SRAD's diffusion coefficient from the differences to the four neighbours
// (0 outside the image), on one pixel or (T a vector) on a lane per pixel.
// Every branch is computed and one kept, the value of the first that applies.
template <typename T>
[[gnu::always_inline]] inline void SradCoefficient(const T& v, const T& dN, const T& dS, const T& dW, const T& dE,
                                                   double q0sq, T& result)
{
  const T zero{}; // +0.0 in every lane
  const T one = zero + 1.0, tiny = zero + 1e-9, infinity = zero + INFINITY;
  const T level = v < tiny ? tiny : v;
  const T gradient2 = (dN * dN + dS * dS + dW * dW + dE * dE) / (level * level);
  const T laplacian = (dN + dS + dW + dE) / level;
  const T den = (1.0 + 0.25 * laplacian) * (1.0 + 0.25 * laplacian);
  const T ratio = (0.5 * gradient2 - laplacian * laplacian / 16.0) / den;
  const T q2 = den < tiny ? infinity : ratio;
  const T diffusion = 1.0 / (1.0 + (q2 - q0sq) / (q0sq * (1.0 + q0sq)));
  const T scaled = ((q2 == infinity) | (q2 == -infinity)) ? zero : diffusion;
  const T unscaled = q2 <= zero ? one : zero;
  const T coefficient = q0sq <= 0.0 ? unscaled : scaled;
  // A negative value means q^2 so far below q0^2 that the denominator
  // changed sign: the area is flatter than speckle, diffuse fully.
  result = ((coefficient < zero) | (coefficient > one)) ? one : coefficient;
}

using Lanes4d = double __attribute__((vector_size(32)));

[[gnu::always_inline]] inline void Load(const double* p, Lanes4d& v) { std::memcpy(&v, p, sizeof v); }

// Coefficients of the pixels [begin, end) of an inner row, four at a time,
// into c[0 .. end - begin).
[[gnu::always_inline]] inline void SradInnerBody(const double* in, double* c, std::size_t begin, std::size_t end,
                                                 std::size_t stride, double q0sq)
{
  std::size_t i = begin;
  for (; i + 4 <= end; i += 4) {
    Lanes4d v, north, south, west, east, coefficient;
    Load(in + i, v);
    Load(in + i - stride, north);
    Load(in + i + stride, south);
    Load(in + i - 1, west);
    Load(in + i + 1, east);
    SradCoefficient<Lanes4d>(v, north - v, south - v, west - v, east - v, q0sq, coefficient);
    std::memcpy(c + (i - begin), &coefficient, sizeof coefficient);
  }
  for (; i < end; ++i) {
    const double v = in[i];
    SradCoefficient<double>(v, in[i - stride] - v, in[i + stride] - v, in[i - 1] - v, in[i + 1] - v, q0sq, c[i - begin]);
  }
}

void SradInnerPlain(const double* in, double* c, std::size_t begin, std::size_t end, std::size_t stride, double q0sq)
{
  SradInnerBody(in, c, begin, end, stride, q0sq);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void SradInnerAvx2(const double* in, double* c, std::size_t begin, std::size_t end,
                                           std::size_t stride, double q0sq)
{
  SradInnerBody(in, c, begin, end, stride, q0sq);
}
#endif

// Row r's coefficients into c[0 .. cols).
void SradRow(const double* in, double* c, int cols, int rows, int r, double q0sq)
{
  const std::size_t stride = static_cast<std::size_t>(cols);
  const auto border = [&](int col) {
    const std::size_t i = At(col, r, cols);
    const double v = in[i];
    // Outside the image a neighbour equals the centre (zero flux).
    const double dN = r > 0 ? in[i - stride] - v : 0.0;
    const double dS = r + 1 < rows ? in[i + stride] - v : 0.0;
    const double dW = col > 0 ? in[i - 1] - v : 0.0;
    const double dE = col + 1 < cols ? in[i + 1] - v : 0.0;
    SradCoefficient<double>(v, dN, dS, dW, dE, q0sq, c[col]);
  };
  if (r == 0 || r + 1 >= rows || cols < 3) {
    for (int col = 0; col < cols; ++col)
      border(col);
    return;
  }
  border(0);
#if defined(__x86_64__)
  if (Ipg_UseAvx2())
    SradInnerAvx2(in, c + 1, At(1, r, cols), At(cols - 1, r, cols), stride, q0sq);
  else
#endif
    SradInnerPlain(in, c + 1, At(1, r, cols), At(cols - 1, r, cols), stride, q0sq);
  border(cols - 1);
}

} // namespace

double Ipg_SpeckleCu2(const double* in, int cols, int rows, int half)
{
  return Ipg_MedianLocalRatio(in, cols, rows, half, 2);
}

void Ipg_SradPass(const double* in, double* out, int cols, int rows, double dt, double q0sq)
{
  // The coefficients of the row below read the row below that.
  DiffusionStep(in, out, cols, rows, -1, 2, dt, [&](int r, Ipg_WindowTables&, double* c, double*, double*) {
    SradRow(in, c, cols, rows, r, q0sq);
  });
}

void Ipg_DpadPass(const double* in, double* out, int cols, int rows, int half, double dt, double cu2)
{
  DiffusionStep(in, out, cols, rows, half, half + 1, dt,
                [&](int r, Ipg_WindowTables& tables, double* c, double* mean, double* variance) {
                  tables.RowMoments(r, half, mean, variance);
                  for (int i = 0; i < cols; ++i) {
                    const double ci2 = variance[i] / (mean[i] * mean[i]);
                    const double kuan = std::clamp((1.0 + 1.0 / ci2) / (1.0 + 1.0 / cu2), 0.0, 1.0);
                    // Flat or empty: full diffusion; no speckle to remove: none.
                    const double speckled = cu2 <= 0.0 ? 0.0 : kuan;
                    c[i] = (mean[i] <= 0.0 || variance[i] <= 0.0) ? 1.0 : speckled;
                  }
                });
}

namespace {

// The adaptive median of (c, r) from window half first on, median the value
// the smaller windows left (the pixel's own before any window).
double AdaptiveMedianFrom(const double* in, int cols, int rows, int c, int r, int first, int maxHalf, double median,
                          std::vector<double>& window)
{
  const double v = in[At(c, r, cols)];
  for (int h = first; h <= maxHalf; ++h) {
    window.clear();
    for (int y = std::max(0, r - h); y <= std::min(rows - 1, r + h); ++y)
      for (int x = std::max(0, c - h); x <= std::min(cols - 1, c + h); ++x)
        window.push_back(in[At(x, y, cols)]);
    const auto [low, high] = std::minmax_element(window.begin(), window.end());
    const double lowest = *low, highest = *high;
    median = Median(window);
    if (lowest < median && median < highest)
      return (lowest < v && v < highest) ? v : median;
  }
  return median;
}

// Lowest, median and highest of the 3x3 windows of the columns [begin, end)
// of an inner row. The median by a 19-exchange network (A. W. Paeth,
// "Median finding on a 3x3 grid", Graphics Gems, 1990): the same value as any
// selection, none of whose branches depend on the values.
[[gnu::always_inline]] inline void Inner3x3Body(const double* in, int cols, int r, int begin, int end, double* low,
                                                double* median, double* high)
{
  const double* above = in + static_cast<std::ptrdiff_t>(r - 1) * cols;
  const double* line = above + cols;
  const double* below = line + cols;
  const auto order = [](double& a, double& b) {
    const double lower = b < a ? b : a;
    b = b < a ? a : b;
    a = lower;
  };
  for (int c = begin; c < end; ++c) {
    double p[9] = {above[c - 1], above[c], above[c + 1], line[c - 1], line[c], line[c + 1], below[c - 1], below[c], below[c + 1]};
    double lo = p[0], hi = p[0];
    for (int k = 1; k < 9; ++k) {
      lo = p[k] < lo ? p[k] : lo;
      hi = p[k] > hi ? p[k] : hi;
    }
    order(p[1], p[2]); order(p[4], p[5]); order(p[7], p[8]);
    order(p[0], p[1]); order(p[3], p[4]); order(p[6], p[7]);
    order(p[1], p[2]); order(p[4], p[5]); order(p[7], p[8]);
    order(p[0], p[3]); order(p[5], p[8]); order(p[4], p[7]);
    order(p[3], p[6]); order(p[1], p[4]); order(p[2], p[5]);
    order(p[4], p[7]); order(p[4], p[2]); order(p[6], p[4]);
    order(p[4], p[2]);
    low[c] = lo;
    median[c] = p[4];
    high[c] = hi;
  }
}

void Inner3x3Plain(const double* in, int cols, int r, int begin, int end, double* low, double* median, double* high)
{
  Inner3x3Body(in, cols, r, begin, end, low, median, high);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void Inner3x3Avx2(const double* in, int cols, int r, int begin, int end, double* low,
                                          double* median, double* high)
{
  Inner3x3Body(in, cols, r, begin, end, low, median, high);
}
#endif

struct MedianRow {
  std::vector<double> Window;
  std::vector<double> Low, Median, High;
};

} // namespace

void Ipg_AdaptiveMedianPass(const double* in, double* out, int cols, int rows, int maxHalf)
{
  Ipg_SpeckleRowsInBands<MedianRow>(in, out, cols, rows, maxHalf, kWindowWork, [&](int r, double* target, MedianRow& row) {
    // Inner pixels start from their 3x3 statistics, computed for the whole row.
    const bool innerRow = maxHalf >= 1 && r >= 1 && r + 1 < rows && cols >= 3;
    const int begin = innerRow ? 1 : cols, end = innerRow ? cols - 1 : cols;
    if (innerRow) {
      row.Low.resize(static_cast<std::size_t>(cols));
      row.Median.resize(static_cast<std::size_t>(cols));
      row.High.resize(static_cast<std::size_t>(cols));
#if defined(__x86_64__)
      if (Ipg_UseAvx2())
        Inner3x3Avx2(in, cols, r, begin, end, row.Low.data(), row.Median.data(), row.High.data());
      else
#endif
        Inner3x3Plain(in, cols, r, begin, end, row.Low.data(), row.Median.data(), row.High.data());
    }
    for (int c = 0; c < cols; ++c) {
      const double v = in[At(c, r, cols)];
      if (c < begin || c >= end) {
        target[c] = AdaptiveMedianFrom(in, cols, rows, c, r, 1, maxHalf, v, row.Window);
        continue;
      }
      const std::size_t k = static_cast<std::size_t>(c);
      const double lowest = row.Low[k], median = row.Median[k], highest = row.High[k];
      target[c] = lowest < median && median < highest
                      ? ((lowest < v && v < highest) ? v : median)
                      : AdaptiveMedianFrom(in, cols, rows, c, r, 2, maxHalf, median, row.Window);
    }
  });
}
