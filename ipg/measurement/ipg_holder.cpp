// SPDX-License-Identifier: Apache-2.0
#include "ipg/measurement/ipg_holder.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_holder_fast_measures.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/ui/ipg_message.h"
#include "mth/mth_matrix.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <new>
#include <optional>

namespace {

constexpr int kHolderCode = 1900;
constexpr double kSmallestMeasure = 1e-10; // layers 0 and R must exceed it
constexpr double kSmallestPositive = 1e-7; // floor of the minimum measure
constexpr double kIsoThreshold = 2.0;
constexpr double kPowExponent = 2.0;

// One scratch buffer for every measure, grown to the largest window gathered.
double* Scratch(std::size_t n)
{
  thread_local std::vector<double> buffer;
  if (buffer.size() < n)
    buffer.resize(n);
  return buffer.data();
}

// Where a measure is computed and how its window is read.
struct Walk {
  const double* data;
  double* layer;
  std::ptrdiff_t cols, rows;
  int stepCol, stepRow, strideCol, strideRow;

  Walk(const double* d, double* l, int c, int r, int sc, int sr, int tc, int tr)
      : data(d), layer(l), cols(c), rows(r), stepCol(std::max(sc, 1)), stepRow(std::max(sr, 1)),
        strideCol(std::max(tc, 1)), strideRow(std::max(tr, 1))
  {
  }
  bool Usable() const { return data != nullptr && layer != nullptr && cols > 0 && rows > 0; }
  // Whether some centre has `frame` elements on each side inside the image.
  bool Fits(int frame) const
  {
    return Usable() && frame >= 0 && 2 * static_cast<std::ptrdiff_t>(frame) * strideCol < cols &&
           2 * static_cast<std::ptrdiff_t>(frame) * strideRow < rows;
  }

  double At(std::ptrdiff_t col, std::ptrdiff_t row, int dx, int dy) const
  {
    return data[(row + static_cast<std::ptrdiff_t>(dy) * strideRow) * cols + col +
                static_cast<std::ptrdiff_t>(dx) * strideCol];
  }

  // Calls compute(col, row) for every centre whose neighbourhood of `frame`
  // elements on each side fits, and stores its value.
  template <typename Compute>
  void ForEachCentre(int frame, Compute compute) const
  {
    if (!Fits(frame))
      return;
    const std::ptrdiff_t marginCol = static_cast<std::ptrdiff_t>(frame) * strideCol;
    const std::ptrdiff_t marginRow = static_cast<std::ptrdiff_t>(frame) * strideRow;
    for (std::ptrdiff_t row = marginRow; row < rows - marginRow; row += stepRow)
      for (std::ptrdiff_t col = marginCol; col < cols - marginCol; col += stepCol)
        layer[row * cols + col] = compute(col, row);
  }

  // Gathers rows dy0..dy1 x columns dx0..dx1 around (col, row), row by row,
  // into the scratch buffer; returns the count.
  std::size_t Gather(std::ptrdiff_t col, std::ptrdiff_t row, int dx0, int dx1, int dy0, int dy1, double* w) const
  {
    std::size_t n = 0;
    for (int dy = dy0; dy <= dy1; ++dy)
      for (int dx = dx0; dx <= dx1; ++dx)
        w[n++] = At(col, row, dx, dy);
    return n;
  }
};

// Applies measure(w, n) to the full (2i+1) x (2i+1) window of every centre.
template <typename Measure>
void WindowMeasure(const Walk& walk, int i, Measure measure)
{
  if (!walk.Fits(i))
    return; // no window to gather: nothing to allocate either
  const std::size_t side = 2 * static_cast<std::size_t>(i) + 1;
  double* w = Scratch(side * side);
  walk.ForEachCentre(i, [&](std::ptrdiff_t col, std::ptrdiff_t row) {
    const std::size_t n = walk.Gather(col, row, -i, i, -i, i, w);
    return measure(w, n);
  });
}

double Sum(const double* w, std::size_t n)
{
  double s = 0.0;
  for (std::size_t k = 0; k < n; ++k)
    s += w[k];
  return s;
}

double SumOfPowers(const double* w, std::size_t n, int power)
{
  double s = 0.0;
  for (std::size_t k = 0; k < n; ++k)
    s += power == 2 ? w[k] * w[k] : w[k] * w[k] * w[k];
  return s;
}

// Sum of one half-window, gathered into the scratch buffer.
double HalfSum(const Walk& walk, std::ptrdiff_t col, std::ptrdiff_t row, int dx0, int dx1, int dy0, int dy1)
{
  const std::size_t n = static_cast<std::size_t>(dx1 - dx0 + 1) * static_cast<std::size_t>(dy1 - dy0 + 1);
  double* w = Scratch(n);
  return Sum(w, walk.Gather(col, row, dx0, dx1, dy0, dy1, w));
}

// Larger mean over smaller mean of two opposite halves of the radius-i window.
double ContrastRatio(const Walk& walk, std::ptrdiff_t col, std::ptrdiff_t row, int i, bool horizontal)
{
  if (i == 0)
    return 1.0; // a single pixel has no halves
  const double countLow = static_cast<double>(i) * (2 * i + 1);
  const double countHigh = static_cast<double>(i + 1) * (2 * i + 1);
  const double low = horizontal ? HalfSum(walk, col, row, -i, -1, -i, i) / countLow
                                : HalfSum(walk, col, row, -i, i, -i, -1) / countLow;
  const double high = horizontal ? HalfSum(walk, col, row, 0, i, -i, i) / countHigh
                                 : HalfSum(walk, col, row, -i, i, 0, i) / countHigh;
  return low > high ? low / high : high / low;
}

// |A - B| / (A + B) of the two halves of radius i + 1, each sum over (2i+1)^2.
double NormalisedDifference(const Walk& walk, std::ptrdiff_t col, std::ptrdiff_t row, int i, bool horizontal)
{
  const int r = i + 1;
  const double n = static_cast<double>(2 * i + 1) * (2 * i + 1);
  const double a = horizontal ? HalfSum(walk, col, row, -r, -1, -r, r - 1) / n
                              : HalfSum(walk, col, row, -r, r - 1, -r, -1) / n;
  const double b = horizontal ? HalfSum(walk, col, row, 0, r - 1, -r, r - 1) / n
                              : HalfSum(walk, col, row, -r, r - 1, 0, r - 1) / n;
  return std::fabs(a - b) / (a + b);
}

} // namespace

IPG_HOLDER::IPG_HOLDER(DCM_STRUCT* in) : IPG_HOLDER(in, nullptr) {}

IPG_HOLDER::IPG_HOLDER(DCM_STRUCT* in, DCM_STRUCT* roi)
{
  SetImaIn(in);
  SetRoi(roi);
  SetDefaultParameters();
}

IPG_HOLDER::IPG_HOLDER(const IPG_HOLDER& source)
    : IPG_ONE_INPUT_NO_OUTPUT(), MeasType(source.MeasType), WindowSize(source.WindowSize),
      Holder(source.Holder), Min(source.Min), Max(source.Max), FastPath(source.FastPath)
{
}

void IPG_HOLDER::SetDefaultParameters()
{
  Tools = kHolderCode;
  Holder.clear();
}

const IPG_CLASS_INFO<IPG_HOLDER>& IPG_HOLDER::ClassInfo()
{
  using C = IPG_HOLDER;
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {1900, "ComputeHolderByCapacityMeasure", [](C& op) -> int { return op.ComputeHolderByCapacityMeasure(); }},
  };
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C, &C::SetMeasType>("MeasType", "0", "capacity measure 1-15: max, mean, min, raw 2nd moment, iso fraction, raw asymmetry, contrast, "
                                                "rho, power, front max, front min, normalised difference hori, vert, min, max"),
      Ipg_Parameter<C, &C::SetWindowSize>("WindowSize", "0", "largest window width, 3 or more (radii 0 to WindowSize/2)"),
      Ipg_Parameter<C, &C::SetFastPath>("FastPath", "true", "summed-area tables instead of visiting every window (default true)"),
  };
  static const IPG_CLASS_INFO<C> info{"IPG_HOLDER", operations, parameters};
  return info;
}

bool IPG_HOLDER::Apply()
{
  if (!Ipg_RoiFitsImage(ImaIn, Roi, "IPG_HOLDER"))
    return false;
  return Ipg_Dispatch(ClassInfo(), *this, Tools) != 0;
}

bool IPG_HOLDER::ComputeHolderByCapacityMeasure()
{
  if (ImaIn == nullptr || ImaIn->Data == nullptr) {
    Ipg_Inform(kIpgMsgNoImageAsInput);
    return false;
  }
  const int cols = static_cast<int>(ImaIn->Data->GetNbOfCols());
  const int rows = static_cast<int>(ImaIn->Data->GetNbOfRows());
  const int R = WindowSize / 2;
  const std::size_t size = static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows);
  // Below 3 a single radius leaves no slope to fit. Beyond the image the
  // largest window fits nowhere and every exponent would be 0: refused rather
  // than reported as a result. Holder is left as it was.
  const long long reach = MeasType >= 12 && MeasType <= 15 ? R + 1LL : R;
  if (!Ipg_ParameterInRange(WindowSize >= 3 && 2 * reach + 1 <= std::min(cols, rows), "WindowSize", "IPG_HOLDER"))
    return false;

  try {

    MTH_MATRIX pixels(rows, cols);
    double* data = pixels.GetData();
    const int* raw = ImaIn->Data->GetIDataAddress();
    for (std::size_t k = 0; k < size; ++k)
      data[k] = raw[k];

    std::vector<std::vector<double>> layers(static_cast<std::size_t>(R) + 2, std::vector<double>(size, 0.0));
    std::optional<IPG_HOLDER_FAST_MEASURES> fast;
    if (FastPath)
      fast.emplace(data, cols, rows, MeasType, kPowExponent);
    const bool useFast = fast && fast->Supported();
    for (int i = 0; i <= R; ++i) {
      if (Ipg_StopRequested())
        return false;
      if (useFast)
        fast->FillLayer(layers[i].data(), i);
      else
        FillLayer(data, layers[i].data(), cols, rows, R, i);
    }

    std::vector<double> x(static_cast<std::size_t>(R) + 1);
    double xbar = 0.0;
    for (int i = 0; i <= R; ++i) {
      x[i] = std::log(2.0 * i + 1.0);
      xbar += x[i];
    }
    xbar /= R + 1;
    double sxx = 0.0;
    for (int i = 0; i <= R; ++i)
      sxx += (x[i] - xbar) * (x[i] - xbar);
    sxx /= R + 1;

    std::vector<double>& slope = layers[R + 1];
    std::vector<double> y(static_cast<std::size_t>(R) + 1);
    for (std::size_t p = 0; p < size; ++p) {
      if (!(layers[0][p] > kSmallestMeasure && layers[R][p] > kSmallestMeasure))
        continue; // the layer was zero-filled: exponent 0
      double ybar = 0.0;
      for (int i = 0; i <= R; ++i) {
        y[i] = std::log(layers[i][p]);
        ybar += y[i];
      }
      ybar /= R + 1;
      double c = 0.0;
      for (int i = 0; i <= R; ++i)
        c += (y[i] - ybar) * (x[i] - xbar);
      c /= R + 1;
      slope[p] = c / sxx;
    }
    Holder = std::move(slope);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

void IPG_HOLDER::FillLayer(const double* data, double* layer, int cols, int rows, int R, int i) const
{
  switch (MeasType) {
  case 1: AlphaMaxGrain(data, layer, cols, rows, R, i, 1, 1, 1, 1); break;
  case 2: AlphaMoyGrain(data, layer, cols, rows, R, i, 1, 1, 1, 1); break;
  case 3: AlphaMinGrain(data, layer, cols, rows, R, i, 1, 1, 1, 1); break;
  case 4: AlphaVarGrain(data, layer, cols, rows, R, i, 1, 1, 1, 1); break;
  case 5: AlphaIsoGrain(data, layer, cols, rows, R, i, 1, 1, 1, 1, kIsoThreshold); break;
  case 6: AlphaAsymGrain(data, layer, cols, rows, R, i, 1, 1, 1, 1); break;
  case 7: AlphaContGrain(data, layer, cols, rows, R, i, 1, 1, 1, 1); break;
  case 8: AlphaRhoGrain(data, layer, cols, rows, R, i, 1, 1, 1, 1); break;
  case 9: AlphaPowGrain(data, layer, cols, rows, R, i, 1, 1, 1, 1, kPowExponent); break;
  case 10: AlphaFrontMaxGrain(data, layer, cols, rows, R, i, 1, 1, 1, 1); break;
  case 11: AlphaFrontMinGrain(data, layer, cols, rows, R, i, 1, 1, 1, 1); break;
  case 12: AlphaNormDiffHoriGrain(data, layer, cols, rows, R, i, 1, 1, 1, 1); break;
  case 13: AlphaNormDiffVertGrain(data, layer, cols, rows, R, i, 1, 1, 1, 1); break;
  case 14: AlphaNormDiffMinGrain(data, layer, cols, rows, R, i, 1, 1, 1, 1); break;
  case 15: AlphaNormDiffMaxGrain(data, layer, cols, rows, R, i, 1, 1, 1, 1); break;
  default: break; // unknown measure: the layer stays 0
  }
}

void IPG_HOLDER::AlphaMaxGrain(const double* data, double* layer, int cols, int rows, int, int i, int stepCol,
                               int stepRow, int strideCol, int strideRow)
{
  const Walk walk(data, layer, cols, rows, stepCol, stepRow, strideCol, strideRow);
  WindowMeasure(walk, i, [](const double* w, std::size_t n) {
    double m = w[0];
    for (std::size_t k = 1; k < n; ++k)
      if (w[k] > m)
        m = w[k];
    return m;
  });
}

void IPG_HOLDER::AlphaMoyGrain(const double* data, double* layer, int cols, int rows, int, int i, int stepCol,
                               int stepRow, int strideCol, int strideRow)
{
  const Walk walk(data, layer, cols, rows, stepCol, stepRow, strideCol, strideRow);
  WindowMeasure(walk, i, [](const double* w, std::size_t n) { return Sum(w, n) / static_cast<double>(n); });
}

void IPG_HOLDER::AlphaMinGrain(const double* data, double* layer, int cols, int rows, int, int i, int stepCol,
                               int stepRow, int strideCol, int strideRow)
{
  const Walk walk(data, layer, cols, rows, stepCol, stepRow, strideCol, strideRow);
  WindowMeasure(walk, i, [](const double* w, std::size_t n) {
    double m = w[0]; // kept even when it is not above the floor: callers depend on it
    for (std::size_t k = 1; k < n; ++k)
      if (w[k] > kSmallestPositive && w[k] < m)
        m = w[k];
    return m;
  });
}

void IPG_HOLDER::AlphaVarGrain(const double* data, double* layer, int cols, int rows, int, int i, int stepCol,
                               int stepRow, int strideCol, int strideRow)
{
  const Walk walk(data, layer, cols, rows, stepCol, stepRow, strideCol, strideRow);
  // The raw second moment, the mean not subtracted: recorded exponents rely on it.
  WindowMeasure(walk, i, [](const double* w, std::size_t n) {
    return SumOfPowers(w, n, 2) / static_cast<double>(n);
  });
}

void IPG_HOLDER::AlphaIsoGrain(const double* data, double* layer, int cols, int rows, int, int i, int stepCol,
                               int stepRow, int strideCol, int strideRow, double threshold)
{
  const Walk walk(data, layer, cols, rows, stepCol, stepRow, strideCol, strideRow);
  WindowMeasure(walk, i, [threshold](const double* w, std::size_t n) {
    const double mu = Sum(w, n) / static_cast<double>(n);
    std::size_t close = 0;
    for (std::size_t k = 0; k < n; ++k)
      if (std::fabs(w[k] - mu) < threshold)
        ++close;
    return static_cast<double>(close) / static_cast<double>(n);
  });
}

void IPG_HOLDER::AlphaAsymGrain(const double* data, double* layer, int cols, int rows, int, int i, int stepCol,
                                int stepRow, int strideCol, int strideRow)
{
  const Walk walk(data, layer, cols, rows, stepCol, stepRow, strideCol, strideRow);
  // Raw, not centred, moments: recorded exponents rely on them.
  WindowMeasure(walk, i, [](const double* w, std::size_t n) {
    const double m2 = SumOfPowers(w, n, 2) / static_cast<double>(n);
    const double m3 = SumOfPowers(w, n, 3) / static_cast<double>(n);
    return m3 / std::pow(m2, 1.5);
  });
}

void IPG_HOLDER::AlphaContGrain(const double* data, double* layer, int cols, int rows, int, int i, int stepCol,
                                int stepRow, int strideCol, int strideRow)
{
  const Walk walk(data, layer, cols, rows, stepCol, stepRow, strideCol, strideRow);
  WindowMeasure(walk, i, [](const double* w, std::size_t n) {
    const double mu = Sum(w, n) / static_cast<double>(n);
    return SumOfPowers(w, n, 2) / static_cast<double>(n) / (mu * mu);
  });
}

void IPG_HOLDER::AlphaRhoGrain(const double* data, double* layer, int cols, int rows, int, int i, int stepCol,
                               int stepRow, int strideCol, int strideRow)
{
  const Walk walk(data, layer, cols, rows, stepCol, stepRow, strideCol, strideRow);
  WindowMeasure(walk, i, [](const double* w, std::size_t n) {
    const double mu = Sum(w, n) / static_cast<double>(n);
    double logs = 0.0;
    for (std::size_t k = 0; k < n; ++k)
      if (w[k] > 0.0)
        logs += std::log(w[k]);
    return mu / std::exp(logs / static_cast<double>(n));
  });
}

void IPG_HOLDER::AlphaPowGrain(const double* data, double* layer, int cols, int rows, int, int i, int stepCol,
                               int stepRow, int strideCol, int strideRow, double q)
{
  const Walk walk(data, layer, cols, rows, stepCol, stepRow, strideCol, strideRow);
  WindowMeasure(walk, i, [q](const double* w, std::size_t n) {
    const double mu = Sum(w, n) / static_cast<double>(n);
    if (!(mu > 0.0))
      return 1.0;
    double powers = 0.0;
    for (std::size_t k = 0; k < n; ++k)
      if (w[k] > 0.0)
        powers += std::pow(w[k], q);
    return powers / static_cast<double>(n) / std::pow(mu, q);
  });
}

void IPG_HOLDER::AlphaFrontMaxGrain(const double* data, double* layer, int cols, int rows, int, int i,
                                    int stepCol, int stepRow, int strideCol, int strideRow)
{
  const Walk walk(data, layer, cols, rows, stepCol, stepRow, strideCol, strideRow);
  walk.ForEachCentre(i, [&](std::ptrdiff_t col, std::ptrdiff_t row) {
    const double horizontal = ContrastRatio(walk, col, row, i, true);
    const double vertical = ContrastRatio(walk, col, row, i, false);
    return vertical > horizontal ? vertical : horizontal;
  });
}

void IPG_HOLDER::AlphaFrontMinGrain(const double* data, double* layer, int cols, int rows, int, int i,
                                    int stepCol, int stepRow, int strideCol, int strideRow)
{
  const Walk walk(data, layer, cols, rows, stepCol, stepRow, strideCol, strideRow);
  walk.ForEachCentre(i, [&](std::ptrdiff_t col, std::ptrdiff_t row) {
    const double horizontal = ContrastRatio(walk, col, row, i, true);
    const double vertical = ContrastRatio(walk, col, row, i, false);
    return vertical < horizontal ? vertical : horizontal;
  });
}

void IPG_HOLDER::AlphaNormDiffHoriGrain(const double* data, double* layer, int cols, int rows, int, int i,
                                        int stepCol, int stepRow, int strideCol, int strideRow)
{
  const Walk walk(data, layer, cols, rows, stepCol, stepRow, strideCol, strideRow);
  walk.ForEachCentre(i + 1, [&](std::ptrdiff_t col, std::ptrdiff_t row) {
    return NormalisedDifference(walk, col, row, i, true);
  });
}

void IPG_HOLDER::AlphaNormDiffVertGrain(const double* data, double* layer, int cols, int rows, int, int i,
                                        int stepCol, int stepRow, int strideCol, int strideRow)
{
  const Walk walk(data, layer, cols, rows, stepCol, stepRow, strideCol, strideRow);
  walk.ForEachCentre(i + 1, [&](std::ptrdiff_t col, std::ptrdiff_t row) {
    return NormalisedDifference(walk, col, row, i, false);
  });
}

void IPG_HOLDER::AlphaNormDiffMinGrain(const double* data, double* layer, int cols, int rows, int, int i,
                                       int stepCol, int stepRow, int strideCol, int strideRow)
{
  const Walk walk(data, layer, cols, rows, stepCol, stepRow, strideCol, strideRow);
  walk.ForEachCentre(i + 1, [&](std::ptrdiff_t col, std::ptrdiff_t row) {
    return std::min(NormalisedDifference(walk, col, row, i, true), NormalisedDifference(walk, col, row, i, false));
  });
}

void IPG_HOLDER::AlphaNormDiffMaxGrain(const double* data, double* layer, int cols, int rows, int, int i,
                                       int stepCol, int stepRow, int strideCol, int strideRow)
{
  const Walk walk(data, layer, cols, rows, stepCol, stepRow, strideCol, strideRow);
  walk.ForEachCentre(i + 1, [&](std::ptrdiff_t col, std::ptrdiff_t row) {
    return std::max(NormalisedDifference(walk, col, row, i, true), NormalisedDifference(walk, col, row, i, false));
  });
}
