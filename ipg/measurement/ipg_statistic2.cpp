// SPDX-License-Identifier: Apache-2.0
#include "ipg/measurement/ipg_statistic2.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/internal/ipg_banded_sums.h"
#include "ipg/internal/ipg_guard.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <new>
#include <optional>
#include <utility>
#include <vector>

namespace {

using PixelTest = std::function<bool(int)>;

bool AnyValue(int) { return true; }
bool BelowTopGrey(int v) { return v < kIpgMaxGrey; }

// The grey levels present in one image, numbered 0, 1, 2, ... in increasing
// order over the stored range [GetMin(), GetMax()].
class LevelNumbering {
public:
  // Empty when the image has no pixel store, a flat stored range or no
  // accepted level.
  static std::optional<LevelNumbering> Build(const DCM_STRUCT* image, const PixelTest& accepted)
  {
    if (image == nullptr || image->Data == nullptr)
      return std::nullopt;
    const DCM_DATA& data = *image->Data;
    if (data.GetMax() <= data.GetMin())
      return std::nullopt;
    LevelNumbering levels(data.GetMin(), data.GetMax());
    const int* pixels = data.GetIDataAddress();
    for (std::size_t k = 0; k < data.GetSize(); ++k)
      if (accepted(pixels[k]) && levels.InRange(pixels[k]))
        levels.Present.push_back(pixels[k]);
    std::sort(levels.Present.begin(), levels.Present.end());
    levels.Present.erase(std::unique(levels.Present.begin(), levels.Present.end()), levels.Present.end());
    if (levels.Present.empty())
      return std::nullopt;
    return levels;
  }

  // Number of distinct levels present (n).
  std::uint64_t Count() const { return Present.size(); }
  // Number of cells of the level range (max - min + 1).
  std::uint64_t Range() const { return static_cast<std::uint64_t>(static_cast<std::int64_t>(Max) - Min + 1); }
  // The number of a level present in the image; nullopt for any other value.
  std::optional<std::uint64_t> BinOf(int v) const
  {
    const auto at = std::lower_bound(Present.begin(), Present.end(), v);
    if (at == Present.end() || *at != v)
      return std::nullopt;
    return static_cast<std::uint64_t>(at - Present.begin());
  }

private:
  LevelNumbering(int min, int max) : Min(min), Max(max) {}
  bool InRange(int v) const { return v >= Min && v <= Max; }

  int Min;
  int Max;
  std::vector<int> Present;
};

struct BinPair {
  std::uint64_t first;
  std::uint64_t second;
};

// The level numbers of the paired pixels (element col * rows_k + row of each
// image, over the overlapping columns and rows) whose values both pass `accepted`.
std::vector<BinPair> PairedBins(const DCM_STRUCT& a, const LevelNumbering& la, const DCM_STRUCT& b,
                                const LevelNumbering& lb, const PixelTest& accepted)
{
  const std::size_t rowsA = a.Data->GetNbOfRows();
  const std::size_t rowsB = b.Data->GetNbOfRows();
  const std::size_t cols = std::min(a.Data->GetNbOfCols(), b.Data->GetNbOfCols());
  const std::size_t rows = std::min(rowsA, rowsB);
  const int* pa = a.Data->GetIDataAddress();
  const int* pb = b.Data->GetIDataAddress();
  std::vector<BinPair> pairs;
  pairs.reserve(cols * rows);
  for (std::size_t col = 0; col < cols; ++col)
    for (std::size_t row = 0; row < rows; ++row) {
      const int va = pa[col * rowsA + row];
      const int vb = pb[col * rowsB + row];
      if (!accepted(va) || !accepted(vb))
        continue;
      const auto ba = la.BinOf(va);
      const auto bb = lb.BinOf(vb);
      if (ba && bb)
        pairs.push_back({*ba, *bb});
    }
  return pairs;
}

// The non-zero cells of a table addressed by key, as (key, count) in
// increasing key order.
std::vector<std::pair<std::uint64_t, double>> CountByKey(std::vector<std::uint64_t> keys)
{
  std::sort(keys.begin(), keys.end());
  std::vector<std::pair<std::uint64_t, double>> cells;
  for (const std::uint64_t key : keys) {
    if (cells.empty() || cells.back().first != key)
      cells.emplace_back(key, 0.0);
    cells.back().second += 1.0;
  }
  return cells;
}

// Adds up counts falling on the same index; (index, sum) in increasing index order.
std::vector<std::pair<std::uint64_t, double>> SumByIndex(std::vector<std::pair<std::uint64_t, double>> items)
{
  std::sort(items.begin(), items.end(), [](const auto& x, const auto& y) { return x.first < y.first; });
  std::vector<std::pair<std::uint64_t, double>> sums;
  for (const auto& [index, count] : items) {
    if (sums.empty() || sums.back().first != index)
      sums.emplace_back(index, 0.0);
    sums.back().second += count;
  }
  return sums;
}

// -sum of p ln p over the non-zero counts, p = count / total.
double Entropy(const std::vector<std::pair<std::uint64_t, double>>& counts, double total)
{
  double h = 0.0;
  for (const auto& entry : counts)
    if (entry.second != 0.0) {
      const double p = entry.second / total;
      h -= p * std::log(p);
    }
  return h;
}

} // namespace

IPG_STATISTIC2::IPG_STATISTIC2(DCM_STRUCT* first, DCM_STRUCT* second) : IPG_STATISTIC2(first, second, nullptr) {}

IPG_STATISTIC2::IPG_STATISTIC2(DCM_STRUCT* first, DCM_STRUCT* second, DCM_STRUCT* roi)
{
  SetImaIn(first);
  SetInSecond(second);
  SetRoi(roi);
  SetDefaultParameters();
}

IPG_STATISTIC2::IPG_STATISTIC2(const IPG_STATISTIC2& source) : IPG_TWO_INPUTS_NO_OUTPUT()
{
  if (source.Record)
    Record = std::make_unique<MutualInformationRecord>(*source.Record);
}

void IPG_STATISTIC2::SetDefaultParameters()
{
  Tools = 102;
}

const IPG_CLASS_INFO<IPG_STATISTIC2>& IPG_STATISTIC2::ClassInfo()
{
  using C = IPG_STATISTIC2;
  // Hosts read Result; the success flag only says that the code is known.
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {100, "ComputeMutualInformation", [](C& op) -> int { op.ComputeMutualInformation(); return 1; }},
      {101, "ComputeCorrelationRatio", [](C& op) -> int { op.ComputeCorrelationRatio(); return 1; }},
      {102, "ComputeLeastSquared", [](C& op) -> int { op.ComputeLeastSquared(); return 1; }},
  };
  static const IPG_CLASS_INFO<C> info{"IPG_STATISTIC2", operations, {}};
  return info;
}

bool IPG_STATISTIC2::Apply()
{
  if (!Ipg_RoiFitsImage(ImaIn, Roi, "IPG_STATISTIC2"))
    return false;
  return Ipg_Dispatch(ClassInfo(), *this, Tools) != 0;
}

bool IPG_STATISTIC2::ComputeLeastSquared()
{
  if (ImaIn == nullptr || InSecond == nullptr || ImaIn->Data == nullptr || InSecond->Data == nullptr)
    return false;
  const unsigned cols = ImaIn->Data->GetNbOfCols();
  const unsigned rows = ImaIn->Data->GetNbOfRows();
  if (InSecond->Data->GetNbOfCols() != cols || InSecond->Data->GetNbOfRows() != rows)
    return false;
  const int* a = ImaIn->Data->GetIDataAddress();
  const int* b = InSecond->Data->GetIDataAddress();
  double sum = 0.0;
  if (Ipg_ExactSquaredDistance(a, b, cols, rows, Roi, sum)) {
    Result = std::sqrt(sum);
    return true;
  }
  for (unsigned row = 0; row < rows; ++row)
    for (unsigned col = 0; col < cols; ++col) {
      const std::size_t k = static_cast<std::size_t>(row) * cols + col;
      if (Ipg_IsMark(a[k]) || Ipg_IsMark(b[k]) || !Ipg_InsideRoi(Roi, col, row))
        continue;
      const double d = static_cast<double>(a[k]) - static_cast<double>(b[k]);
      sum += d * d;
    }
  Result = std::sqrt(sum); // a distance, deliberately not divided by the pixel count
  return true;
}

bool IPG_STATISTIC2::ComputeMutualInformation()
{
  try {
    const auto first = LevelNumbering::Build(ImaIn, AnyValue);
    const auto second = LevelNumbering::Build(InSecond, AnyValue);
    if (!first || !second) {
      Result = -1.0;
      return false;
    }
    const std::vector<BinPair> pairs = PairedBins(*ImaIn, *first, *InSecond, *second, AnyValue);
    if (pairs.empty()) {
      Result = -1.0;
      return false;
    }
    const std::uint64_t n1 = first->Count();
    std::vector<std::uint64_t> keys;
    keys.reserve(pairs.size());
    for (const BinPair& p : pairs)
      keys.push_back(p.second * n1 + p.first);
    const auto cells = CountByKey(std::move(keys));

    // The joint table is n1 x n2 but its marginals are read with the level range
    // as stride (cell j * range1 + i); results that callers have recorded
    // depend on it, and it is exact when every level of the range is present.
    const std::uint64_t range1 = first->Range();
    std::vector<std::pair<std::uint64_t, double>> along1, along2;
    for (const auto& [key, count] : cells) {
      along1.emplace_back(key % range1, count);
      along2.emplace_back(key / range1, count);
    }
    const double total = static_cast<double>(pairs.size());
    const double h1 = Entropy(SumByIndex(std::move(along1)), total);
    const double h2 = Entropy(SumByIndex(std::move(along2)), total);
    const double h12 = Entropy(cells, total);

    if (!Record)
      Record = std::make_unique<MutualInformationRecord>();
    Record->fill(0.0);
    (*Record)[kMutualInformation] = h1 + h2 - h12;
    (*Record)[kNormalisedMutualInformation] = (h1 + h2) / h12;
    (*Record)[kJointEntropy] = h12;
    (*Record)[kFirstEntropy] = h1;
    (*Record)[kSecondEntropy] = h2;
    Result = (*Record)[kMutualInformation];
    return true;
  } catch (const std::bad_alloc&) {
    Result = -1.0;
    return false;
  }
}

bool IPG_STATISTIC2::ComputeCorrelationRatio()
{
  try {
    const auto first = LevelNumbering::Build(ImaIn, BelowTopGrey);
    const auto second = LevelNumbering::Build(InSecond, BelowTopGrey);
    if (!first || !second) {
      Result = -1.0;
      return false;
    }
    const std::vector<BinPair> pairs = PairedBins(*ImaIn, *first, *InSecond, *second, BelowTopGrey);
    if (pairs.empty()) {
      Result = -1.0;
      return false;
    }
    const std::uint64_t n2 = second->Count();
    std::vector<std::uint64_t> keys;
    keys.reserve(pairs.size());
    for (const BinPair& p : pairs)
      keys.push_back(p.first * n2 + p.second); // grouped by the first image's bin
    const auto cells = CountByKey(std::move(keys));
    const double total = static_cast<double>(pairs.size());

    // The second image is measured by its level numbers j, not its grey levels.
    std::vector<double> p2(n2, 0.0);
    for (const BinPair& p : pairs)
      p2[p.second] += 1.0;
    double mean = 0.0, moment2 = 0.0;
    for (std::uint64_t j = 0; j < n2; ++j) {
      const double jd = static_cast<double>(j);
      mean += jd * p2[j] / total;
      moment2 += jd * jd * p2[j] / total;
    }
    const double variance = moment2 - mean * mean;
    if (variance == 0.0) {
      Result = -1.0;
      return false;
    }

    double within = 0.0;
    for (std::size_t start = 0; start < cells.size();) {
      const std::uint64_t i = cells[start].first / n2;
      double count = 0.0, s1 = 0.0, s2 = 0.0;
      std::size_t k = start;
      for (; k < cells.size() && cells[k].first / n2 == i; ++k) {
        const double j = static_cast<double>(cells[k].first % n2);
        count += cells[k].second / total;
        s1 += j * cells[k].second / total;
        s2 += j * j * cells[k].second / total;
      }
      start = k;
      const double inverse = 1.0 / count; // 1 / p_i, p_i being the marginal of bin i
      const double conditionalVariance = inverse * s2 - inverse * inverse * s1 * s1;
      within += conditionalVariance * count;
    }
    Result = 1.0 - within / variance;
    return true;
  } catch (const std::bad_alloc&) {
    Result = -1.0;
    return false;
  }
}
