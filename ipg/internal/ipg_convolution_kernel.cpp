// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_convolution_kernel.h"

#include "ipg/internal/ipg_point_kernel.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/internal/ipg_row_bands.h"
#include "ipg/internal/ipg_simd.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <type_traits>

namespace {

// The weighted sum of the unmarked neighbours over the magnitude of their
// weights, all in single precision (existing results were computed that way).
int WeightedPixel(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& taps, int col, int row)
{
  float sum = 0.0f;
  float norm = taps.Factor;
  std::size_t k = 0;
  for (int dy = -taps.HalfY; dy <= taps.HalfY; ++dy) {
    const int* line = images.In + static_cast<std::ptrdiff_t>(row + dy) * images.Cols + col;
    for (int dx = -taps.HalfX; dx <= taps.HalfX; ++dx) {
      const int p = line[dx];
      const double c = taps.Coef[k++];
      if (Ipg_IsGreyLevel(p))
        sum += p * c;
      else
        norm -= c; // a marked neighbour's weight leaves the normaliser
    }
  }
  norm = std::fabs(norm);
  if (norm < 0.001)
    norm = 1.0f; // zero-sum kernels (derivatives) are not normalised
  return Ipg_TruncateTowardZero<double>(sum / norm);
}

int ResultPixel(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& taps, int col, int row)
{
  const int v = images.In[images.At(col, row)];
  if (!images.InsideRoi(col, row) || Ipg_IsMark(v))
    return v;
  return WeightedPixel(images, taps, col, row);
}

void PlainRow(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& taps, int row)
{
  for (int col = taps.HalfX; col < images.Cols - taps.HalfX; ++col)
    images.Write(images.At(col, row), ResultPixel(images, taps, col, row));
}

// Integer coefficients and largest x sum of |coefficients| below 2^24: single
// precision then holds every partial sum exactly, so integer accumulation
// gives the same sums.
bool SumsStayExact(const Ipg_ConvolutionTaps& taps, std::int64_t largest)
{
  constexpr double kExactFloat = 16777216.0;
  double weight = 0.0;
  for (double c : taps.Coef) {
    if (c != std::trunc(c) || std::fabs(c) >= kExactFloat)
      return false;
    weight += std::fabs(c);
  }
  return static_cast<double>(largest) * weight < kExactFloat;
}

[[gnu::always_inline]] inline void AccumulateRow(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& taps, int row, int width,
                                                 float* acc)
{
  std::fill(acc, acc + width, 0.0f);
  std::size_t k = 0;
  for (int dy = -taps.HalfY; dy <= taps.HalfY; ++dy) {
    const int* line = images.In + static_cast<std::ptrdiff_t>(row + dy) * images.Cols;
    for (int dx = -taps.HalfX; dx <= taps.HalfX; ++dx) {
      const double c = taps.Coef[k++];
      if (c == 0.0)
        continue; // adds only a zero: the truncated result cannot change
      const int* s = line + taps.HalfX + dx;
      for (int j = 0; j < width; ++j)
        acc[j] = static_cast<float>(static_cast<double>(acc[j]) + static_cast<double>(s[j]) * c);
    }
  }
}

// acc[j] += from[j] * weight for count values: a weight of 1 only adds, 0 adds nothing.
[[gnu::always_inline]] inline void AddTap(int* acc, const int* from, int count, int weight)
{
  if (weight == 1) {
    for (int j = 0; j < count; ++j)
      acc[j] += from[j];
  } else if (weight != 0) {
    for (int j = 0; j < count; ++j)
      acc[j] += from[j] * weight;
  }
}

[[gnu::always_inline]] inline void AccumulateRowExact(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& taps, int row,
                                                      int width, int* acc)
{
  std::fill(acc, acc + width, 0);
  std::size_t k = 0;
  for (int dy = -taps.HalfY; dy <= taps.HalfY; ++dy) {
    const int* line = images.In + static_cast<std::ptrdiff_t>(row + dy) * images.Cols;
    for (int dx = -taps.HalfX; dx <= taps.HalfX; ++dx)
      AddTap(acc, line + taps.HalfX + dx, width, static_cast<int>(taps.Coef[k++]));
  }
}

// An integer kernel that is the outer product of a column and a row of
// integers, scaled by 1 / Pivot: the window sum is then a vertical pass and a
// horizontal one, divided exactly by Pivot.
struct SeparableTaps {
  std::vector<int> Column, Row;
  int Pivot = 0;           // 0: not separable
  std::int64_t Weight = 0; // sum of |Column| x sum of |Row|

  // The vertical sums and their horizontal sum stay within int.
  bool Fits(std::int64_t largest) const { return Pivot != 0 && largest * Weight < (std::int64_t{1} << 31); }
};

SeparableTaps SeparableOf(const Ipg_ConvolutionTaps& taps)
{
  const int sizeX = 2 * taps.HalfX + 1, sizeY = 2 * taps.HalfY + 1;
  auto c = [&](int x, int y) { return static_cast<std::int64_t>(taps.Coef[static_cast<std::size_t>(y) * sizeX + x]); };
  int px = -1, py = -1;
  for (int y = 0; y < sizeY && px < 0; ++y)
    for (int x = 0; x < sizeX && px < 0; ++x)
      if (c(x, y) != 0)
        px = x, py = y;
  SeparableTaps result;
  if (px < 0)
    return result;
  std::int64_t columnWeight = 0, rowWeight = 0;
  for (int y = 0; y < sizeY; ++y)
    columnWeight += std::llabs(c(px, y));
  for (int x = 0; x < sizeX; ++x)
    rowWeight += std::llabs(c(x, py));
  if (columnWeight * rowWeight >= (std::int64_t{1} << 31))
    return result;
  for (int y = 0; y < sizeY; ++y)
    for (int x = 0; x < sizeX; ++x)
      if (c(x, y) * c(px, py) != c(px, y) * c(x, py))
        return result;
  for (int y = 0; y < sizeY; ++y)
    result.Column.push_back(static_cast<int>(c(px, y)));
  for (int x = 0; x < sizeX; ++x)
    result.Row.push_back(static_cast<int>(c(x, py)));
  result.Pivot = static_cast<int>(c(px, py));
  result.Weight = columnWeight * rowWeight;
  return result;
}

// What every row of a fast convolution shares.
struct FastPlan {
  const Ipg_KernelImages& Images;
  const Ipg_ConvolutionTaps& Taps;
  bool IntegerTaps = false; // SumsStayExact for some magnitude
  SeparableTaps Separable;
  float Norm = 1.0f;
};

// How a row's window is summed: exactly in integers (Exact), and then by a
// vertical and a horizontal pass (Separable), decided from the largest
// magnitude in the window. Either way the sums are those of the float walk.
struct WindowSums {
  bool Exact = false;
  bool Separable = false;
};

struct RowScratch {
  std::vector<float> Acc;
  std::vector<int> IntAcc, Vertical;
};

// out[j] = sum over k of from[j + k * stride] * weights[k], for N taps: the
// integer sums of a separable plan are exact, so taking the taps together in
// one walk gives the sums of a walk per tap. All-ones taps only add.
template <int N, bool Ones>
[[gnu::always_inline]] inline void TapsAtOnce(const int* from, std::ptrdiff_t stride, const int* weights, int count,
                                              int* out)
{
  for (int j = 0; j < count; ++j) {
    int sum = 0;
    for (int k = 0; k < N; ++k)
      sum += Ones ? from[j + k * stride] : from[j + k * stride] * weights[k];
    out[j] = sum;
  }
}

// The same for any tap count: true when N is one of the counts taken at once.
[[gnu::always_inline]] inline bool TapsAtOnceFor(const std::vector<int>& weights, const int* from, std::ptrdiff_t stride,
                                                 int count, int* out)
{
  const bool ones = std::all_of(weights.begin(), weights.end(), [](int w) { return w == 1; });
  const auto run = [&](auto n) {
    if (ones)
      TapsAtOnce<decltype(n)::value, true>(from, stride, weights.data(), count, out);
    else
      TapsAtOnce<decltype(n)::value, false>(from, stride, weights.data(), count, out);
    return true;
  };
  switch (weights.size()) {
  case 3:
    return run(std::integral_constant<int, 3>{});
  case 5:
    return run(std::integral_constant<int, 5>{});
  case 7:
    return run(std::integral_constant<int, 7>{});
  default:
    return false;
  }
}

[[gnu::always_inline]] inline void AccumulateRowSeparable(const FastPlan& plan, int row, int width, RowScratch& scratch)
{
  const Ipg_KernelImages& images = plan.Images;
  const int cols = images.Cols, hy = plan.Taps.HalfY;
  int* vertical = scratch.Vertical.data();
  const int* first = images.In + static_cast<std::ptrdiff_t>(row - hy) * cols;
  if (!TapsAtOnceFor(plan.Separable.Column, first, cols, cols, vertical)) {
    std::fill(vertical, vertical + cols, 0);
    for (int dy = 0; dy <= 2 * hy; ++dy)
      AddTap(vertical, first + static_cast<std::ptrdiff_t>(dy) * cols, cols,
             plan.Separable.Column[static_cast<std::size_t>(dy)]);
  }
  int* acc = scratch.IntAcc.data();
  if (!TapsAtOnceFor(plan.Separable.Row, vertical, 1, width, acc)) {
    std::fill(acc, acc + width, 0);
    for (std::size_t x = 0; x < plan.Separable.Row.size(); ++x)
      AddTap(acc, vertical + x, width, plan.Separable.Row[x]);
  }
  const int pivot = plan.Separable.Pivot;
  if (pivot != 1)
    for (int j = 0; j < width; ++j)
      acc[j] /= pivot; // exact: the kernel's sum times the pivot
}

// The output of one row from its window values value(j) (floats): divided by
// the norm and truncated, or the centre kept outside the ROI.
template <typename Value>
[[gnu::always_inline]] inline void WriteRow(const FastPlan& plan, int row, int width, Value value)
{
  const Ipg_KernelImages& images = plan.Images;
  const int hx = plan.Taps.HalfX;
  const std::size_t start = images.At(hx, row);
  int* out = images.Out + start;
  const int* centre = images.In + start;
  const float norm = plan.Norm;
  if (images.Roi.Pixels == nullptr) {
    for (int j = 0; j < width; ++j)
      out[j] = Ipg_TruncateTowardZero<float>(value(j) / norm);
  } else {
    for (int j = 0; j < width; ++j)
      out[j] = images.InsideRoi(hx + j, row) ? Ipg_TruncateTowardZero<float>(value(j) / norm) : centre[j];
  }
}

// One row without marks in its window: the very operations of WeightedPixel()
// in the same order for each pixel (exact integer sums where they are exact).
[[gnu::always_inline]] inline void FastRow(const FastPlan& plan, int row, RowScratch& scratch, WindowSums sums)
{
  const Ipg_KernelImages& images = plan.Images;
  const int width = images.Cols - 2 * plan.Taps.HalfX;
  if (sums.Exact) {
    if (sums.Separable)
      AccumulateRowSeparable(plan, row, width, scratch);
    else
      AccumulateRowExact(images, plan.Taps, row, width, scratch.IntAcc.data());
    const int* totals = scratch.IntAcc.data();
    WriteRow(plan, row, width, [totals](int j) { return static_cast<float>(totals[j]); });
  } else {
    float* acc = scratch.Acc.data();
    AccumulateRow(images, plan.Taps, row, width, acc);
    WriteRow(plan, row, width, [acc](int j) { return acc[j]; });
  }
}

// Whether a row holds a mark, and the largest magnitude of its other pixels
// (as unsigned, so that INT_MIN has one), without a branch per pixel.
struct RowSurvey {
  bool Marked = false;
  unsigned Largest = 0;
};

// The largest magnitude is that of the lowest or the highest unmarked value,
// and a row holds a mark when its highest value is one: three min / max
// reductions, the form the vectoriser takes.
[[gnu::always_inline]] inline RowSurvey SurveyRow(const int* line, int cols)
{
  int highest = INT_MIN, lowestUnmarked = INT_MAX, highestUnmarked = INT_MIN;
  for (int c = 0; c < cols; ++c) {
    const int v = line[c];
    const int keep = -static_cast<int>(!Ipg_IsMark(v)); // all ones for an unmarked value
    highest = std::max(highest, v);
    lowestUnmarked = std::min(lowestUnmarked, (v & keep) | (INT_MAX & ~keep));
    highestUnmarked = std::max(highestUnmarked, (v & keep) | (INT_MIN & ~keep));
  }
  RowSurvey survey;
  survey.Marked = cols > 0 && Ipg_IsMark(highest);
  if (lowestUnmarked <= highestUnmarked) // some pixel is not a mark
    survey.Largest = static_cast<unsigned>(std::max(std::llabs(static_cast<long long>(lowestUnmarked)),
                                                    std::llabs(static_cast<long long>(highestUnmarked))));
  return survey;
}

// The surveys of the rows of a window as it walks down the image: each row
// is surveyed as it enters, just before the convolution reads it.
class WindowSurvey {
public:
  [[gnu::always_inline]] WindowSurvey(const FastPlan& plan, int firstRow) : Plan(plan), Ring(static_cast<std::size_t>(2 * plan.Taps.HalfY + 1))
  {
    for (int r = firstRow - plan.Taps.HalfY; r <= firstRow + plan.Taps.HalfY; ++r)
      Enter(r);
  }
  // Moves the window centred on row to the next row.
  [[gnu::always_inline]] void Advance(int row) { Enter(row + Plan.Taps.HalfY + 1); }

  bool Marked() const { return MarkedRows > 0; }
  WindowSums Sums() const
  {
    std::int64_t largest = 0;
    for (const RowSurvey& r : Ring)
      largest = std::max<std::int64_t>(largest, r.Largest);
    WindowSums sums;
    sums.Exact = Plan.IntegerTaps && SumsStayExact(Plan.Taps, largest);
    sums.Separable = sums.Exact && Plan.Separable.Fits(largest);
    return sums;
  }

private:
  // Inlined, as the survey, into the walk's plain and AVX2 copies.
  [[gnu::always_inline]] void Enter(int row)
  {
    RowSurvey& slot = Ring[static_cast<std::size_t>(row) % Ring.size()];
    MarkedRows -= slot.Marked ? 1 : 0;
    slot = SurveyRow(Plan.Images.In + Plan.Images.At(0, row), Plan.Images.Cols);
    MarkedRows += slot.Marked ? 1 : 0;
  }
  const FastPlan& Plan;
  std::vector<RowSurvey> Ring; // row r at r % size
  int MarkedRows = 0;
};

// With seen, each whole output row is measured as soon as it is written, while
// it is still in the cache.
[[gnu::always_inline]] inline void FastRows(const FastPlan& plan, int begin, int end, RowScratch& scratch,
                                            IPG_BAND_EXTREMES* seen)
{
  const int hy = plan.Taps.HalfY;
  const Ipg_KernelImages& images = plan.Images;
  if (begin >= end)
    return;
  WindowSurvey window(plan, begin);
  for (int row = begin; row < end; ++row) {
    if (row + hy + 1 < images.Rows) // the row the next window brings in, fetched while this one is computed
      Ipg_PrefetchRow(images.In + images.At(0, row + hy + 1), images.Cols);
    if (window.Marked())
      PlainRow(images, plan.Taps, row);
    else
      FastRow(plan, row, scratch, window.Sums());
    if (seen != nullptr)
      Ipg_AddRowExtremes(images.Out + images.At(0, row), images.Cols, *seen);
    if (row + 1 < end)
      window.Advance(row);
  }
}

void FastRowsPlain(const FastPlan& plan, int begin, int end, RowScratch& scratch, IPG_BAND_EXTREMES* seen)
{
  FastRows(plan, begin, end, scratch, seen);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void FastRowsAvx2(const FastPlan& plan, int begin, int end, RowScratch& scratch,
                                          IPG_BAND_EXTREMES* seen)
{
  FastRows(plan, begin, end, scratch, seen);
}
#endif

} // namespace

Ipg_RowSpan Ipg_ConvolutionRows(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& taps)
{
  return {taps.HalfY, images.Rows - taps.HalfY};
}

void Ipg_ConvolvePlain(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& taps, Ipg_RowSpan span)
{
  for (int row = std::max(span.Begin, taps.HalfY); row < std::min(span.End, images.Rows - taps.HalfY); ++row)
    PlainRow(images, taps, row);
}


// Rows near a mark take the plain path; the others go whole rows at a time,
// in parallel bands. Filtering in place reads rows already written, so it
// keeps the serial order.
Ipg_RowSpan Ipg_ConvolveFast(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& taps, Ipg_RowSpan span,
                             IPG_BAND_EXTREMES* seen)
{
  const int cols = images.Cols, rows = images.Rows, hx = taps.HalfX, hy = taps.HalfY;
  const int width = cols - 2 * hx;
  if (width <= 0 || rows - 2 * hy <= 0)
    return {};
  FastPlan plan{images, taps, SumsStayExact(taps, 0), {}, 1.0f};
  if (plan.IntegerTaps)
    plan.Separable = SeparableOf(taps);
  plan.Norm = std::fabs(taps.Factor);
  if (plan.Norm < 0.001)
    plan.Norm = 1.0f;

  const int first = std::max(span.Begin, hy), end = std::min(span.End, rows - hy);
  if (end <= first)
    return {};
  const bool avx2 = Ipg_UseAvx2();
  const IPG_ROW_BANDS bands =
      images.In == images.Out ? IPG_ROW_BANDS{1, static_cast<unsigned>(end - first)}
                              : Ipg_SplitRows(static_cast<unsigned>(end - first), static_cast<std::size_t>(cols));
  std::vector<IPG_BAND_EXTREMES> seenByBand(bands.Count);
  Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned stop) {
    RowScratch scratch{std::vector<float>(static_cast<std::size_t>(width)), std::vector<int>(static_cast<std::size_t>(width)),
                       std::vector<int>(static_cast<std::size_t>(cols))};
    IPG_BAND_EXTREMES* bandSeen = seen != nullptr ? &seenByBand[band] : nullptr;
#if defined(__x86_64__)
    if (avx2) {
      FastRowsAvx2(plan, first + static_cast<int>(begin), first + static_cast<int>(stop), scratch, bandSeen);
      return;
    }
#endif
    FastRowsPlain(plan, first + static_cast<int>(begin), first + static_cast<int>(stop), scratch, bandSeen);
  });
  if (seen == nullptr)
    return {};
  for (const IPG_BAND_EXTREMES& b : seenByBand)
    Ipg_MergeExtremes(*seen, b);
  return {first, end};
}
