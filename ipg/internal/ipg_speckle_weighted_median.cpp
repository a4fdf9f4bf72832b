// SPDX-License-Identifier: Apache-2.0
// The adaptive weighted median filter (declared in ipg_speckle_kernels.h).
#include "ipg/internal/ipg_row_bands.h"
#include "ipg/internal/ipg_simd.h"
#include "ipg/internal/ipg_speckle_kernels.h"
#include "ipg/internal/ipg_local_ratio_median.h"
#include "ipg/internal/ipg_speckle_windows.h"
#include "ipg/ui/ipg_progress.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <utility>
#include <vector>

namespace {

// A weighted median costs about this many plain copies per pixel.
constexpr std::size_t kMedianWork = 64;
// Candidate cells are taken four at a time: the lists are padded to a multiple of it.
constexpr int kLanes = 4;
// Counting costs the square of the cells, selection about their number:
// beyond this many cells (a 15 x 15 window), the element is selected.
constexpr int kSelectedCells = 225;

// The window cells of one pixel: values, weights, how many.
struct Cells {
  std::vector<double> Values;
  std::vector<long long> Weights;
  int Count = 0;
  std::vector<std::pair<double, long long>> Pending; // scratch of the selection
};

using Lanes4d = double __attribute__((vector_size(32)));
using Mask4 = long long __attribute__((vector_size(32)));

// The smallest value v of the cells whose weight is positive and for which the
// cells of value <= v weigh more than half (total / 2): the element total / 2
// of the multiset where each value appears weight times, which a walk through
// the sorted cells finds. Counting instead of sorting: no branch depends on the values.
[[gnu::always_inline]] inline double WeightedMedianBody(const Cells& cells, long long half)
{
  const double* values = cells.Values.data();
  const long long* weights = cells.Weights.data();
  const Lanes4d infinity = Lanes4d{} + INFINITY;
  Lanes4d median = infinity; // by lane: the smallest candidate among the cells of that lane
  // Four candidate cells at a time against every cell (padding included: it weighs nothing).
  for (int i = 0; i < cells.Count; i += kLanes) {
    Lanes4d value;
    Mask4 weight;
    std::memcpy(&value, values + i, sizeof value);
    std::memcpy(&weight, weights + i, sizeof weight);
    Mask4 below{}; // weight of the cells of value <= the candidate's
    for (int j = 0; j < cells.Count; ++j)
      below += (Mask4{} + weights[j]) & (Lanes4d{} + values[j] <= value);
    const Mask4 candidate = (weight > 0) & (below > half);
    const Lanes4d kept = candidate ? value : infinity;
    median = kept < median ? kept : median;
  }
  return std::min(std::min(median[0], median[1]), std::min(median[2], median[3]));
}

// The same element by selection, in time linear in the cells on average
// (Hoare's FIND with a three-way split): the values below a pivot, equal to
// it and above it, then the part where the weight up to the element, its
// equals included, first exceeds half. The range always weighs more than
// half, and shrinks by the pivot's cells at least. A value that equals
// nothing, not even itself (NaN), would stop the shrinking: such a window
// goes back to counting.
double SelectedWeightedMedian(Cells& cells, long long half)
{
  const long long wholeHalf = half;
  auto& pending = cells.Pending;
  pending.clear();
  for (int i = 0; i < cells.Count; ++i)
    pending.emplace_back(cells.Values[static_cast<std::size_t>(i)], cells.Weights[static_cast<std::size_t>(i)]);
  auto first = pending.begin(), last = pending.end();
  for (;;) {
    const double pivot = first[(last - first) / 2].first;
    const auto lessEnd = std::partition(first, last, [pivot](const auto& cell) { return cell.first < pivot; });
    const auto equalEnd = std::partition(lessEnd, last, [pivot](const auto& cell) { return cell.first == pivot; });
    if (equalEnd == lessEnd)
      return WeightedMedianBody(cells, wholeHalf);
    long long less = 0, equal = 0;
    for (auto cell = first; cell != lessEnd; ++cell)
      less += cell->second;
    for (auto cell = lessEnd; cell != equalEnd; ++cell)
      equal += cell->second;
    if (half < less) {
      last = lessEnd;
    } else if (half < less + equal) {
      return pivot;
    } else {
      half -= less + equal;
      first = equalEnd;
    }
  }
}

// The window offsets grouped by their distance to the centre, as hypot gives
// it: offsets at the same distance get the same weight, computed once.
struct DistanceClasses {
  explicit DistanceClasses(int half)
  {
    const int side = 2 * half + 1;
    ClassOf.resize(static_cast<std::size_t>(side) * static_cast<std::size_t>(side));
    for (int dy = -half; dy <= half; ++dy)
      for (int dx = -half; dx <= half; ++dx) {
        const double d = std::hypot(static_cast<double>(dx), static_cast<double>(dy));
        const auto known = std::find(Distance.begin(), Distance.end(), d);
        ClassOf[static_cast<std::size_t>((dy + half) * side + dx + half)] = static_cast<int>(known - Distance.begin());
        if (known == Distance.end())
          Distance.push_back(d);
      }
  }
  std::vector<double> Distance;
  std::vector<int> ClassOf; // row-major over the window
};

// What every row of one pass shares.
struct AwmfJob {
  const double* In;
  int Cols;
  int Rows;
  int Half;
  int CentreWeight;
  double B;
  const DistanceClasses* Classes;
};

// What one band works with: the cells of a window, the weight of each
// distance class, and the window moments of the row.
struct AwmfBand {
  Cells Window;
  std::vector<long long> WeightOf;
  std::vector<double> Mean;
  std::vector<double> Variance;
};

[[gnu::always_inline]] inline void AwmfRowBody(const AwmfJob& job, int row, double* target, AwmfBand& band)
{
  Cells& cells = band.Window;
  std::vector<long long>& weightOf = band.WeightOf;
  const int half = job.Half, side = 2 * half + 1, cols = job.Cols;
  const std::vector<double>& distance = job.Classes->Distance;
  const int* classOf = job.Classes->ClassOf.data();
  for (int c = 0; c < cols; ++c) {
    const std::size_t at = static_cast<std::size_t>(row) * static_cast<std::size_t>(cols) + static_cast<std::size_t>(c);
    const double mean = band.Mean[static_cast<std::size_t>(c)];
    const double ratio = mean > 0.0 ? band.Variance[static_cast<std::size_t>(c)] / mean : 0.0;
    for (std::size_t k = 0; k < weightOf.size(); ++k) {
      const double w = std::round(job.CentreWeight - job.B * distance[k] * ratio);
      weightOf[k] = w > 0.0 ? static_cast<long long>(std::min(w, 1e9)) : 0LL;
    }
    long long total = 0;
    int count = 0;
    for (int y = std::max(0, row - half); y <= std::min(job.Rows - 1, row + half); ++y) {
      const double* line = job.In + static_cast<std::size_t>(y) * static_cast<std::size_t>(cols);
      const int* classes = classOf + (y - row + half) * side + half; // offset 0 of the row
      for (int x = std::max(0, c - half); x <= std::min(cols - 1, c + half); ++x) {
        const long long weight = weightOf[static_cast<std::size_t>(classes[x - c])];
        cells.Values[static_cast<std::size_t>(count)] = line[x];
        cells.Weights[static_cast<std::size_t>(count++)] = weight;
        total += weight;
      }
    }
    if (total == 0) {
      target[c] = job.In[at];
      continue;
    }
    for (int k = count; k < count + kLanes; ++k) { // padding: weighs nothing
      cells.Values[static_cast<std::size_t>(k)] = INFINITY;
      cells.Weights[static_cast<std::size_t>(k)] = 0;
    }
    cells.Count = count;
    target[c] = count > kSelectedCells ? SelectedWeightedMedian(cells, total / 2) : WeightedMedianBody(cells, total / 2);
  }
}

void AwmfRowPlain(const AwmfJob& job, int row, double* target, AwmfBand& band)
{
  AwmfRowBody(job, row, target, band);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void AwmfRowAvx2(const AwmfJob& job, int row, double* target, AwmfBand& band)
{
  AwmfRowBody(job, row, target, band);
}
#endif

} // namespace

double Ipg_AwmfAutoScale(const double* in, int cols, int rows, int half, int centreWeight)
{
  const double typical = Ipg_MedianLocalRatio(in, cols, rows, half, 1);
  const double farthest = half * std::sqrt(2.0);
  if (typical <= 0.0 || farthest <= 0.0)
    return 0.0;
  return centreWeight / (2.0 * farthest * typical);
}

void Ipg_AwmfPass(const double* in, double* out, int cols, int rows, int half, int centreWeight, double b)
{
  if (cols <= 0 || rows <= 0)
    return;
  const DistanceClasses classes(half);
  const AwmfJob job{in, cols, rows, half, centreWeight, b, &classes};
  const int side = 2 * half + 1;
  const std::size_t window = static_cast<std::size_t>(side) * static_cast<std::size_t>(side) + kLanes;
#if defined(__x86_64__)
  const auto row = Ipg_UseAvx2() ? AwmfRowAvx2 : AwmfRowPlain;
#else
  const auto row = AwmfRowPlain;
#endif
  Ipg_PassRowsInBands<AwmfBand>(in, out, cols, rows, half, half, kMedianWork,
                                [&](int r, double* target, Ipg_WindowTables& tables, AwmfBand& band) {
    if (band.Mean.empty()) { // the band's first row
      band.Window.Values.resize(window);
      band.Window.Weights.resize(window);
      band.WeightOf.resize(classes.Distance.size());
      band.Mean.resize(static_cast<std::size_t>(cols));
      band.Variance.resize(static_cast<std::size_t>(cols));
    }
    tables.RowMoments(r, half, band.Mean.data(), band.Variance.data());
    row(job, r, target, band);
  });
}
