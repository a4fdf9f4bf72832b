// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_glcm_window.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace {

// c ln c is tabulated up to this count; larger counts (windows of more than
// some 2000 pixels) take the logarithm directly.
constexpr std::size_t kTabulatedCounts = 4096;

} // namespace

Ipg_SlidingGlcm::Ipg_SlidingGlcm(const int* classes, int cols, int levels, int dcol, int drow, bool symmetric)
    : Classes(classes), Cols(cols), Levels(levels), Dcol(dcol), Drow(drow), Symmetric(symmetric),
      Cells(static_cast<std::size_t>(levels) * levels, 0), Differences(levels, 0), CountLogCount(kTabulatedCounts)
{
  for (std::size_t c = 1; c < kTabulatedCounts; ++c)
    CountLogCount[c] = static_cast<double>(c) * std::log(static_cast<double>(c));
}

void Ipg_SlidingGlcm::Clear()
{
  std::fill(Cells.begin(), Cells.end(), 0);
  std::fill(Differences.begin(), Differences.end(), 0);
  Pairs = SumSquares = SumContrast = SumI = SumJ = SumII = SumJJ = SumIJ = 0;
  SumCountLogCount = 0.0;
}

double Ipg_SlidingGlcm::CellEntropyTerm(std::int64_t count) const
{
  if (count < static_cast<std::int64_t>(kTabulatedCounts))
    return CountLogCount[static_cast<std::size_t>(count)];
  return static_cast<double>(count) * std::log(static_cast<double>(count));
}

// One count more (sign +1) or less (-1) in cell (i, j), with every sum that
// depends on it.
void Ipg_SlidingGlcm::Count(int i, int j, int sign)
{
  std::int64_t& cell = Cells[static_cast<std::size_t>(i) * Levels + j];
  const std::int64_t before = cell;
  cell += sign;
  SumSquares += cell * cell - before * before;
  SumCountLogCount += CellEntropyTerm(cell) - CellEntropyTerm(before);
  const int d = i > j ? i - j : j - i;
  Differences[d] += sign;
  Pairs += sign;
  SumContrast += sign * static_cast<std::int64_t>(d) * d;
  SumI += sign * i;
  SumJ += sign * j;
  SumII += sign * static_cast<std::int64_t>(i) * i;
  SumJJ += sign * static_cast<std::int64_t>(j) * j;
  SumIJ += sign * static_cast<std::int64_t>(i) * j;
}

void Ipg_SlidingGlcm::CountPair(std::ptrdiff_t first, std::ptrdiff_t second, int sign)
{
  const int i = Classes[first];
  const int j = Classes[second];
  if (i < 0 || j < 0)
    return;
  Count(i, j, sign);
  if (Symmetric)
    Count(j, i, sign);
}

void Ipg_SlidingGlcm::UpdateColumn(int col, int colLo, int colHi, int rowLo, int rowHi, int sign)
{
  auto inBox = [&](int c, int r) { return c >= colLo && c <= colHi && r >= rowLo && r <= rowHi; };
  for (int row = rowLo; row <= rowHi; ++row) {
    const std::ptrdiff_t here = static_cast<std::ptrdiff_t>(row) * Cols + col;
    const std::ptrdiff_t offset = static_cast<std::ptrdiff_t>(Drow) * Cols + Dcol;
    // The pixel as the first of its pair...
    if (inBox(col + Dcol, row + Drow))
      CountPair(here, here + offset, sign);
    // ...and as the second, unless both lie in this column (vertical pairs),
    // which the first case already counted.
    if (Dcol != 0 && inBox(col - Dcol, row - Drow))
      CountPair(here - offset, here, sign);
  }
}

double Ipg_SlidingGlcm::Feature(int feature) const
{
  if (Pairs <= 0)
    return 0.0;
  const double n = static_cast<double>(Pairs);
  switch (feature) {
  case kIpgEnergy:
    return static_cast<double>(SumSquares) / (n * n);
  case kIpgContrast:
    return static_cast<double>(SumContrast) / n;
  case kIpgCorrelation: {
    // Variances and covariance times N^2, exact in 128-bit integers: no
    // cancellation between the raw moments and the squared means.
    const __int128 varI = static_cast<__int128>(Pairs) * SumII - static_cast<__int128>(SumI) * SumI;
    const __int128 varJ = static_cast<__int128>(Pairs) * SumJJ - static_cast<__int128>(SumJ) * SumJ;
    const __int128 cov = static_cast<__int128>(Pairs) * SumIJ - static_cast<__int128>(SumI) * SumJ;
    if (varI <= 0 || varJ <= 0)
      return 1.0; // a constant texture is perfectly correlated
    return static_cast<double>(cov) / std::sqrt(static_cast<double>(varI) * static_cast<double>(varJ));
  }
  case kIpgHomogeneity: {
    double sum = 0.0;
    for (int d = 0; d < Levels; ++d)
      sum += static_cast<double>(Differences[d]) / (1.0 + static_cast<double>(d) * d);
    return sum / n;
  }
  case kIpgEntropy:
    // -sum p ln p = ln N - (sum c ln c) / N
    return std::max(0.0, std::log(n) - SumCountLogCount / n);
  default:
    return 0.0;
  }
}
