// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_fractal_measures.h"

#include "ipg/internal/ipg_messages.h"
#include "ipg/ui/ipg_message.h"
#include "ipg/ui/ipg_progress.h"
#include "mth/mth_regression.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace {

// One progress step per box side; true when the host asked to stop (the
// cancellation message is then shown).
bool StepOrStop(Ipg_Progress& progress, int size)
{
  progress.Step("s = " + std::to_string(size));
  if (!progress.Cancelled())
    return false;
  Ipg_Inform(kIpgMsgCancelled);
  return true;
}

std::size_t At(int cols, int col, int row)
{
  return static_cast<std::size_t>(row) * static_cast<std::size_t>(cols) + static_cast<std::size_t>(col);
}

// Number of s x s boxes holding at least one marked cell.
double CountOccupied(const std::vector<unsigned char>& marked, int cols, int rows, int s)
{
  double count = 0.0;
  for (int by = 0; by < rows; by += s)
    for (int bx = 0; bx < cols; bx += s) {
      bool occupied = false;
      for (int row = by; row < by + s && !occupied; ++row) {
        const unsigned char* first = marked.data() + At(cols, bx, row);
        occupied = std::find(first, first + s, 1) != first + s;
      }
      if (occupied)
        count += 1.0;
    }
  return count;
}

// Fits ln N(s) against ln(1/s).
void FitDimension(Ipg_ScalingFit& fit)
{
  std::vector<double> x, y;
  for (std::size_t k = 0; k < fit.Sizes.size(); ++k) {
    x.push_back(-std::log(fit.Sizes[k]));
    y.push_back(std::log(fit.Counts[k]));
  }
  const MTH_LINE_FIT line = Mth_FitLine(x, y);
  fit.Dimension = line.Slope;
  fit.R2 = line.R2;
}

// Box-counting dimension of the marked cells; false when cancelled.
bool MarkedSetDimension(const Ipg_ScalingGrid& grid, const std::vector<unsigned char>& marked, Ipg_Progress& progress,
                        Ipg_ScalingFit& fit)
{
  fit = Ipg_ScalingFit();
  for (int s : grid.BoxSizes) {
    if (StepOrStop(progress, s))
      return false;
    fit.Sizes.push_back(s);
    fit.Counts.push_back(CountOccupied(marked, grid.Cols, grid.Rows, s));
  }
  FitDimension(fit);
  return true;
}

// Masses of the s x s boxes, row of boxes after row of boxes.
std::vector<double> BoxMasses(const Ipg_ScalingGrid& grid, int s)
{
  const int boxCols = grid.Cols / s;
  std::vector<double> masses(static_cast<std::size_t>(boxCols) * static_cast<std::size_t>(grid.Rows / s), 0.0);
  for (int row = 0; row < grid.Rows; ++row) {
    const std::size_t base = static_cast<std::size_t>(row / s) * boxCols;
    for (int col = 0; col < grid.Cols; ++col) {
      const std::size_t k = At(grid.Cols, col, row);
      if (grid.Selected[k] && grid.Values[k] > 0)
        masses[base + col / s] += grid.Values[k];
    }
  }
  return masses;
}

// ln sum mu_i^q, summed from the largest term so that large |q| neither
// overflows nor loses the terms that matter.
double LogSumOfPowers(const std::vector<double>& logMu, double q)
{
  double top = -std::numeric_limits<double>::infinity();
  for (double l : logMu)
    top = std::max(top, q * l);
  double sum = 0.0;
  for (double l : logMu)
    sum += std::exp(q * l - top);
  return top + std::log(sum);
}

struct MomentSums {
  double LogZ = 0.0;      // ln sum mu^q
  double WeightedLnMu = 0.0; // sum w ln mu
  double WeightedLnW = 0.0;  // sum w ln w
};

MomentSums Moments(const std::vector<double>& logMu, double q)
{
  MomentSums sums;
  sums.LogZ = LogSumOfPowers(logMu, q);
  for (double l : logMu) {
    const double lnW = q * l - sums.LogZ;
    const double w = std::exp(lnW);
    sums.WeightedLnMu += w * l;
    sums.WeightedLnW += w * lnW;
  }
  return sums;
}

// Boxes of height `height` stacked over the grid cell of side s whose corner
// is (bx, by). The cell reads its right and bottom neighbours' first column and
// row: the surface between two cells belongs to both, and leaving it out makes
// small cells see too little of a rough surface. 0 when no pixel is seen.
double BoxesOverCell(const Ipg_ScalingGrid& grid, int bx, int by, int s, double height)
{
  const int lastRow = std::min(by + s, grid.Rows - 1);
  const int lastCol = std::min(bx + s, grid.Cols - 1);
  int mn = std::numeric_limits<int>::max();
  int mx = std::numeric_limits<int>::min();
  for (int row = by; row <= lastRow; ++row) {
    const std::size_t first = At(grid.Cols, 0, row);
    for (int col = bx; col <= lastCol; ++col)
      if (grid.Selected[first + col]) {
        mn = std::min(mn, grid.Values[first + col]);
        mx = std::max(mx, grid.Values[first + col]);
      }
  }
  if (mn > mx)
    return 0.0;
  if (mn == mx)
    return 1.0;
  // Differences in double: max - min overflows int for levels near both ends.
  return std::ceil((static_cast<double>(mx) - mn + 1.0) / height);
}

} // namespace

bool Ipg_BoxCountingDimension(const Ipg_ScalingGrid& grid, const std::string& where, Ipg_ScalingFit& fit)
{
  std::vector<unsigned char> marked(grid.Selected.size(), 0);
  for (std::size_t k = 0; k < marked.size(); ++k)
    if (grid.Selected[k] && grid.Values[k] != 0)
      marked[k] = 1;
  const bool any = std::find(marked.begin(), marked.end(), 1) != marked.end();
  if (!any)
    return Ipg_InformAndFail(Ipg_MsgNothingToMeasure(where));
  Ipg_Progress progress("Dimension fractale (boîtes)", static_cast<int>(grid.BoxSizes.size()));
  return MarkedSetDimension(grid, marked, progress, fit);
}

bool Ipg_DifferentialBoxCountingDimension(const Ipg_ScalingGrid& grid, const std::string& where,
                                          Ipg_ScalingFit& fit)
{
  int lowest = std::numeric_limits<int>::max();
  int highest = std::numeric_limits<int>::min();
  for (std::size_t k = 0; k < grid.Values.size(); ++k)
    if (grid.Selected[k]) {
      lowest = std::min(lowest, grid.Values[k]);
      highest = std::max(highest, grid.Values[k]);
    }
  if (lowest > highest)
    return Ipg_InformAndFail(Ipg_MsgNothingToMeasure(where));
  const double levels = static_cast<double>(highest) - lowest + 1.0;
  const double side = std::min(grid.ImageCols, grid.ImageRows);

  fit = Ipg_ScalingFit();
  Ipg_Progress progress("Dimension fractale (DBC)", static_cast<int>(grid.BoxSizes.size()));
  for (int s : grid.BoxSizes) {
    if (StepOrStop(progress, s))
      return false;
    const double height = levels * s / side;
    double total = 0.0;
    for (int by = 0; by < grid.Rows; by += s)
      for (int bx = 0; bx < grid.Cols; bx += s)
        total += BoxesOverCell(grid, bx, by, s, height);
    fit.Sizes.push_back(s);
    fit.Counts.push_back(total);
  }
  FitDimension(fit);
  return true;
}

bool Ipg_MomentSpectrum(const Ipg_ScalingGrid& grid, const std::vector<double>& qs, const std::string& where,
                        Ipg_MultifractalSpectrum& spectrum)
{
  const std::size_t nq = qs.size();
  // Per q, one value per box side of: ln Z, sum w ln mu, sum w ln w.
  std::vector<std::vector<double>> logZ(nq), lnMu(nq), lnW(nq);
  std::vector<double> logSizes;
  Ipg_Progress progress("Spectre multifractal", static_cast<int>(grid.BoxSizes.size()));
  for (int s : grid.BoxSizes) {
    if (StepOrStop(progress, s))
      return false;
    const std::vector<double> masses = BoxMasses(grid, s);
    double total = 0.0;
    for (double m : masses)
      total += m;
    if (total <= 0.0)
      return Ipg_InformAndFail(Ipg_MsgNothingToMeasure(where));
    std::vector<double> logMu;
    for (double m : masses)
      if (m > 0.0)
        logMu.push_back(std::log(m / total));
    logSizes.push_back(std::log(static_cast<double>(s)));
    for (std::size_t k = 0; k < nq; ++k) {
      const MomentSums sums = Moments(logMu, qs[k]);
      logZ[k].push_back(sums.LogZ);
      lnMu[k].push_back(sums.WeightedLnMu);
      lnW[k].push_back(sums.WeightedLnW);
    }
  }

  spectrum = Ipg_MultifractalSpectrum();
  spectrum.Q = qs;
  for (std::size_t k = 0; k < nq; ++k) {
    const double q = qs[k];
    // At q = 1 the weights are the measures themselves: sum w ln mu is the entropy sum.
    const bool information = std::fabs(q - 1.0) < 1e-12;
    spectrum.Dq.push_back(information ? Mth_FitLine(logSizes, lnMu[k]).Slope
                                      : Mth_FitLine(logSizes, logZ[k]).Slope / (q - 1.0));
    spectrum.Alpha.push_back(Mth_FitLine(logSizes, lnMu[k]).Slope);
    spectrum.F.push_back(Mth_FitLine(logSizes, lnW[k]).Slope);
  }
  return true;
}

bool Ipg_IsoHolderSpectrum(const Ipg_ScalingGrid& grid, const std::vector<double>& exponents,
                           const std::vector<unsigned char>& valid, int bins, const std::string& where,
                           Ipg_HolderSpectrum& spectrum)
{
  double lowest = std::numeric_limits<double>::infinity();
  double highest = -lowest;
  for (std::size_t k = 0; k < exponents.size(); ++k)
    if (valid[k] && std::isfinite(exponents[k])) {
      lowest = std::min(lowest, exponents[k]);
      highest = std::max(highest, exponents[k]);
    }
  if (lowest > highest)
    return Ipg_InformAndFail(Ipg_MsgNothingToMeasure(where));
  const double width = (highest - lowest) / bins;
  auto binOf = [&](double a) {
    return width > 0.0 ? std::min(bins - 1, static_cast<int>((a - lowest) / width)) : 0;
  };

  std::vector<int> population(static_cast<std::size_t>(bins), 0);
  for (std::size_t k = 0; k < exponents.size(); ++k)
    if (valid[k] && std::isfinite(exponents[k]))
      ++population[static_cast<std::size_t>(binOf(exponents[k]))];

  spectrum = Ipg_HolderSpectrum();
  Ipg_Progress progress("Spectre de Hölder", bins * static_cast<int>(grid.BoxSizes.size()));
  std::vector<unsigned char> marked(exponents.size(), 0);
  for (int b = 0; b < bins; ++b) {
    if (population[static_cast<std::size_t>(b)] == 0)
      continue;
    for (std::size_t k = 0; k < exponents.size(); ++k)
      marked[k] = valid[k] && std::isfinite(exponents[k]) && binOf(exponents[k]) == b;
    Ipg_ScalingFit fit;
    if (!MarkedSetDimension(grid, marked, progress, fit))
      return false;
    spectrum.Alpha.push_back(lowest + (b + 0.5) * width);
    spectrum.F.push_back(fit.Dimension);
  }
  return true;
}
