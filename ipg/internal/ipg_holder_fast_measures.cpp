// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_holder_fast_measures.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr double kSmallestPositive = 1e-7; // floor of the minimum measure
constexpr double kLargestPixel = 2147483648.0;

bool IsPixelValue(double v)
{
  return std::floor(v) == v && std::fabs(v) <= kLargestPixel;
}

} // namespace

IPG_HOLDER_FAST_MEASURES::IPG_HOLDER_FAST_MEASURES(const double* data, int cols, int rows, int measType,
                                                   double powExponent)
    : Data(data), Cols(cols), Rows(rows), MeasType(measType), PowExponent(powExponent)
{
  if (data == nullptr || cols <= 0 || rows <= 0 || measType < 1 || measType > 15 || measType == 5)
    return;
  const std::size_t size = static_cast<std::size_t>(Cols) * static_cast<std::size_t>(Rows);
  if (NeedsIntegerTables() && !std::all_of(data, data + size, IsPixelValue))
    return;
  BuildTables();
  Ready = true;
}

bool IPG_HOLDER_FAST_MEASURES::NeedsIntegerTables() const
{
  return MeasType != 1 && MeasType != 3;
}

void IPG_HOLDER_FAST_MEASURES::BuildTables()
{
  const std::size_t size = static_cast<std::size_t>(Cols) * static_cast<std::size_t>(Rows);
  if (NeedsIntegerTables()) {
    const bool squares = MeasType == 4 || MeasType == 6 || MeasType == 7;
    const bool cubes = MeasType == 6;
    for (int t = 0; t < 3; ++t) {
      if ((t == 1 && !squares) || (t == 2 && !cubes))
        continue;
      Sums[t] = Ipg_SummedArea<Wide>::ByRowRuns(static_cast<int>(Cols), static_cast<int>(Rows), [&](long col, long row) {
        const Wide w = static_cast<Wide>(static_cast<long long>(Data[row * Cols + col]));
        return t == 0 ? w : t == 1 ? w * w : w * w * w;
      });
    }
  }
  if (MeasType == 1 || MeasType == 3 || MeasType == 8 || MeasType == 9) {
    Terms.resize(size);
    for (std::size_t k = 0; k < size; ++k) {
      const double w = Data[k];
      switch (MeasType) {
      case 1: Terms[k] = w; break;
      case 3: Terms[k] = w > kSmallestPositive ? w : std::numeric_limits<double>::infinity(); break;
      case 8: Terms[k] = w > 0.0 ? std::log(w) : 0.0; break;
      default: Terms[k] = w > 0.0 ? std::pow(w, PowExponent) : 0.0; break;
      }
    }
  }
}

double IPG_HOLDER_FAST_MEASURES::RectSum(Table table, long c0, long c1, long r0, long r1) const
{
  return static_cast<double>(Sums[static_cast<int>(table)].Over({c0, r0, c1 + 1, r1 + 1}));
}

void IPG_HOLDER_FAST_MEASURES::AdvanceTo(int i)
{
  if (Terms.empty())
    return;
  if (RunningRadius < 0 || RunningRadius > i) {
    Running = Terms;
    RunningRadius = 0;
  }
  while (RunningRadius < i) {
    if (MeasType == 1 || MeasType == 3)
      StepExtremes();
    else
      StepVerticalSums();
    ++RunningRadius;
  }
}

// Extremes of radius i + 1 from those of radius i (valid on the frame-i region).
void IPG_HOLDER_FAST_MEASURES::StepExtremes()
{
  const long i = RunningRadius;
  const bool isMax = MeasType == 1;
  auto pick = [isMax](double a, double b) { return isMax ? std::max(a, b) : std::min(a, b); };
  std::vector<double> across(Running.size(), 0.0);
  for (long row = i; row < Rows - i; ++row)
    for (long col = i + 1; col < Cols - i - 1; ++col) {
      const double* at = &Running[row * Cols + col];
      across[row * Cols + col] = pick(pick(at[-1], at[0]), at[1]);
    }
  for (long row = i + 1; row < Rows - i - 1; ++row)
    for (long col = i + 1; col < Cols - i - 1; ++col) {
      const double* at = &across[row * Cols + col];
      Running[row * Cols + col] = pick(pick(at[-Cols], at[0]), at[Cols]);
    }
}

// Vertical sums over 2(i+1)+1 rows from those over 2i+1 rows.
void IPG_HOLDER_FAST_MEASURES::StepVerticalSums()
{
  const long reach = RunningRadius + 1;
  for (long row = reach; row < Rows - reach; ++row)
    for (long col = 0; col < Cols; ++col)
      Running[row * Cols + col] += Terms[(row - reach) * Cols + col] + Terms[(row + reach) * Cols + col];
}

double IPG_HOLDER_FAST_MEASURES::HorizontalSum(long col, long row, int i) const
{
  const double* at = &Running[row * Cols + col];
  double s = 0.0;
  for (long dx = -i; dx <= i; ++dx)
    s += at[dx];
  return s;
}

void IPG_HOLDER_FAST_MEASURES::FillLayer(double* layer, int i)
{
  if (!Ready || layer == nullptr || i < 0)
    return;
  AdvanceTo(i);
  const long frame = MeasType >= 12 ? i + 1 : i;
  for (long row = frame; row < Rows - frame; ++row)
    for (long col = frame; col < Cols - frame; ++col)
      layer[row * Cols + col] = MeasureAt(col, row, i);
}

double IPG_HOLDER_FAST_MEASURES::MeasureAt(long col, long row, int i) const
{
  const double n = static_cast<double>(2 * i + 1) * (2 * i + 1);
  switch (MeasType) {
  case 1: return Running[row * Cols + col];
  case 2: return WindowSum(Table::Values, col, row, i) / n;
  case 3: {
    const double first = Data[(row - i) * Cols + col - i];
    return first > kSmallestPositive ? Running[row * Cols + col] : first;
  }
  case 4: return WindowSum(Table::Squares, col, row, i) / n;
  case 6: {
    const double m2 = WindowSum(Table::Squares, col, row, i) / n;
    const double m3 = WindowSum(Table::Cubes, col, row, i) / n;
    return m3 / std::pow(m2, 1.5);
  }
  case 7: {
    const double mu = WindowSum(Table::Values, col, row, i) / n;
    return WindowSum(Table::Squares, col, row, i) / n / (mu * mu);
  }
  case 8: {
    const double mu = WindowSum(Table::Values, col, row, i) / n;
    return mu / std::exp(HorizontalSum(col, row, i) / n);
  }
  case 9: {
    const double mu = WindowSum(Table::Values, col, row, i) / n;
    if (!(mu > 0.0))
      return 1.0;
    return HorizontalSum(col, row, i) / n / std::pow(mu, PowExponent);
  }
  case 10:
  case 11: {
    const double horizontal = ContrastRatio(col, row, i, true);
    const double vertical = ContrastRatio(col, row, i, false);
    if (MeasType == 10)
      return vertical > horizontal ? vertical : horizontal;
    return vertical < horizontal ? vertical : horizontal;
  }
  case 12: return NormalisedDifference(col, row, i, true);
  case 13: return NormalisedDifference(col, row, i, false);
  case 14: return std::min(NormalisedDifference(col, row, i, true), NormalisedDifference(col, row, i, false));
  default: return std::max(NormalisedDifference(col, row, i, true), NormalisedDifference(col, row, i, false));
  }
}

double IPG_HOLDER_FAST_MEASURES::ContrastRatio(long col, long row, int i, bool horizontal) const
{
  if (i == 0)
    return 1.0;
  const double countLow = static_cast<double>(i) * (2 * i + 1);
  const double countHigh = static_cast<double>(i + 1) * (2 * i + 1);
  const double low = horizontal ? RectSum(Table::Values, col - i, col - 1, row - i, row + i) / countLow
                                : RectSum(Table::Values, col - i, col + i, row - i, row - 1) / countLow;
  const double high = horizontal ? RectSum(Table::Values, col, col + i, row - i, row + i) / countHigh
                                 : RectSum(Table::Values, col - i, col + i, row, row + i) / countHigh;
  return low > high ? low / high : high / low;
}

double IPG_HOLDER_FAST_MEASURES::NormalisedDifference(long col, long row, int i, bool horizontal) const
{
  const long r = i + 1;
  const double n = static_cast<double>(2 * i + 1) * (2 * i + 1);
  const double a = horizontal ? RectSum(Table::Values, col - r, col - 1, row - r, row + r - 1) / n
                              : RectSum(Table::Values, col - r, col + r - 1, row - r, row - 1) / n;
  const double b = horizontal ? RectSum(Table::Values, col, col + r - 1, row - r, row + r - 1) / n
                              : RectSum(Table::Values, col - r, col + r - 1, row, row + r - 1) / n;
  return std::fabs(a - b) / (a + b);
}
