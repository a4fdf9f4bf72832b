// SPDX-License-Identifier: Apache-2.0
#include "ipg/measurement/ipg_statistic1.h"

#include "dcm/dcm_struct.h"
#include "ipg/filtering/ipg_filter_processing.h"
#include "ipg/internal/ipg_banded_sums.h"
#include "ipg/internal/ipg_selected_moments.h"
#include "ipg/internal/ipg_fractal_measures.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/measurement/ipg_holder.h"
#include "ipg/ui/ipg_message.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace {

// The signal-to-noise ratio of the noise sums; 0 without noise.
double RatioOfSums(double signal, double noise) { return noise == 0.0 ? 0.0 : std::sqrt(signal / noise); }

// The extremes start just outside the grey levels.
constexpr int kMinStart = kIpgMaxGrey + 1;
constexpr int kMaxStart = -(kIpgMaxGrey - 1);

// The counted pixels' statistics in row bands, when the per-pixel loops below
// would visit exactly the row-major pixels: a ROI of the image's size and sides
// that fit the loops' 16-bit counters.
bool BandedCountedStats(const DCM_STRUCT* in, const DCM_STRUCT* roi, IPG_SELECTED_STATS& stats)
{
  const DCM_DATA& data = *in->Data;
  const bool fits = data.GetNbOfCols() <= 0xffff && data.GetNbOfRows() <= 0xffff;
  const bool aligned = roi == nullptr ||
                       (roi->Data->GetNbOfCols() == data.GetNbOfCols() && roi->Data->GetNbOfRows() == data.GetNbOfRows());
  if (!fits || !aligned)
    return false;
  stats = Ipg_SelectedStats(data.GetIDataAddress(), data.GetSize(), data.GetNbOfCols(),
                            roi != nullptr ? roi->Data->GetIDataAddress() : nullptr,
                            roi != nullptr ? roi->Data->GetSize() : 0);
  return true;
}

} // namespace

IPG_STATISTIC1::IPG_STATISTIC1(DCM_STRUCT* in) : IPG_STATISTIC1(in, nullptr) {}

IPG_STATISTIC1::IPG_STATISTIC1(DCM_STRUCT* in, DCM_STRUCT* roi)
{
  ImaIn = in;
  Roi = roi;
  SetDefaultParameters();
}

IPG_STATISTIC1::IPG_STATISTIC1(DCM_STRUCT* in, std::string name)
{
  ImaIn = in;
  if (in != nullptr && in->GetObjectsList() != nullptr)
    BuiltRoi.reset(in->GetObjectsList()->GetBinaryImage(name));
  Roi = BuiltRoi.get();
  SetDefaultParameters();
  OwnsRoi = true;
}

IPG_STATISTIC1::IPG_STATISTIC1(const IPG_STATISTIC1& source) : IPG_ONE_INPUT_NO_OUTPUT()
{
  Min = source.Min;
  Max = source.Max;
  StdDev = source.StdDev;
  VarianceValue = source.VarianceValue;
  NbPixels = source.NbPixels;
  Mean = source.Mean;
  SNR = source.SNR;
  BoxSize = source.BoxSize;
  QMin = source.QMin;
  QMax = source.QMax;
  QStep = source.QStep;
  HolderMeasType = source.HolderMeasType;
  HolderWindowSize = source.HolderWindowSize;
  HolderBins = source.HolderBins;
  BoxSizes = source.BoxSizes;
  BoxCounts = source.BoxCounts;
  FitR2 = source.FitR2;
  QValues = source.QValues;
  Dq = source.Dq;
  Alpha = source.Alpha;
  FAlpha = source.FAlpha;
  HolderAlpha = source.HolderAlpha;
  HolderFAlpha = source.HolderFAlpha;
  OwnsRoi = false; // the ROI pointer is not copied, so there is nothing to own
}

// BuiltRoi deletes the image built from a named object: only that one, not an
// image set with SetRoi() since, and also after SetDefaultParameters() cleared OwnsRoi.
IPG_STATISTIC1::~IPG_STATISTIC1() = default;

void IPG_STATISTIC1::SetDefaultParameters()
{
  Tools = 0;
  OwnsRoi = false;
  VarianceValue = kNotComputed;
  BoxSize = 64;
  QMin = -5.0;
  QMax = 5.0;
  QStep = 1.0;
  HolderMeasType = 2;
  HolderWindowSize = 5;
  HolderBins = 20;
}

void IPG_STATISTIC1::SetImaIn(DCM_STRUCT* image)
{
  ImaIn = image;
  VarianceValue = kNotComputed;
}

const IPG_CLASS_INFO<IPG_STATISTIC1>& IPG_STATISTIC1::ClassInfo()
{
  using C = IPG_STATISTIC1;
  // 3 and 5 are free.
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {0, "AverageGL", [](C& op) -> int { return op.AverageGL(); }},
      {1, "EstimateNoisePercent", [](C& op) -> int { return op.EstimateNoisePercent(); }},
      {2, "SignalToNoiseRatio", [](C& op) -> int { return op.SignalToNoiseRatio(); }},
      {4, "MinMaxGL", [](C& op) -> int { return op.MinMaxGL(); }},
      {6, "BasicStats", [](C& op) -> int { return op.BasicStats(); }},
      {7, "FractalDimensionByBoxMethod", [](C& op) -> int { return op.FractalDimensionByBoxMethod(); }},
      {8, "FractalDimensionByDBCMethod", [](C& op) -> int { return op.FractalDimensionByDBCMethod(); }},
      {9, "MinGL", [](C& op) -> int { return op.MinGL(); }},
      {10, "MaxGL", [](C& op) -> int { return op.MaxGL(); }},
      {11, "Variance", [](C& op) -> int { return op.Variance(); }},
      {12, "StdDeviation", [](C& op) -> int { return op.StdDeviation(); }},
      {13, "NumberOfPixels", [](C& op) -> int { return op.NumberOfPixels(); }},
      {14, "HolderSpectral", [](C& op) -> int { return op.HolderSpectral(); }},
      {15, "MultiFractalDimension", [](C& op) -> int { return op.MultiFractalDimension(); }},
      {16, "SumOfPixels", [](C& op) -> int { return op.SumOfPixels(); }},
  };
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C, &C::SetBoxSize>("BoxSize", "64", "largest box side of the fractal measures (default 64)"),
      Ipg_Parameter<C, &C::SetQMin>("QMin", "-5", "first q of the multifractal spectrum (default -5)"),
      Ipg_Parameter<C, &C::SetQMax>("QMax", "5", "last q of the multifractal spectrum (default 5)"),
      Ipg_Parameter<C, &C::SetQStep>("QStep", "1", "step of q (default 1)"),
      Ipg_Parameter<C, &C::SetHolderMeasType>("HolderMeasType", "2", "IPG_HOLDER capacity measure 1-15 (default 2)"),
      Ipg_Parameter<C, &C::SetHolderWindowSize>("HolderWindowSize", "5", "IPG_HOLDER largest window (default 5)"),
      Ipg_Parameter<C, &C::SetHolderBins>("HolderBins", "20", "classes of the Hölder spectrum (default 20)"),
  };
  static const IPG_CLASS_INFO<C> info{"IPG_STATISTIC1", operations, parameters};
  return info;
}

bool IPG_STATISTIC1::Apply()
{
  if (!Ipg_RoiFitsImage(ImaIn, Roi, "IPG_STATISTIC1"))
    return false;
  return Ipg_Dispatch(ClassInfo(), *this, Tools) != 0;
}

short IPG_STATISTIC1::Precision() const
{
  return ImaIn->Data->GetPrecision();
}

double IPG_STATISTIC1::Scaled(double v) const
{
  const short precision = Precision();
  return precision > 0 ? v / precision : v;
}

bool IPG_STATISTIC1::AverageGL()
{
  if (ImaIn == nullptr)
    return false;
  const unsigned short cols = static_cast<unsigned short>(ImaIn->GetNbOfCols());
  const unsigned short rows = static_cast<unsigned short>(ImaIn->GetNbOfRows());
  IPG_SELECTED_STATS stats;
  if (BandedCountedStats(ImaIn, Roi, stats) && stats.SumExact) {
    Result = Scaled(stats.Count == 0 ? -1.0 : stats.Sum / static_cast<double>(static_cast<int>(stats.Count)));
    return true;
  }
  double sum = 0.0;
  int count = 0;
  for (unsigned short row = 0; row < rows; ++row)
    for (unsigned short col = 0; col < cols; ++col)
      if (Ipg_CountedPixel(ImaIn, Roi, col, row)) {
        sum += ImaIn->Data->GetValue(col, row);
        ++count;
      }
  // The -1.0 of an empty selection is scaled too: callers compare against the scaled value.
  Result = Scaled(count == 0 ? -1.0 : sum / count);
  return true;
}

bool IPG_STATISTIC1::SumOfPixels()
{
  if (ImaIn == nullptr)
    return false;
  const unsigned short cols = static_cast<unsigned short>(ImaIn->GetNbOfCols());
  const unsigned short rows = static_cast<unsigned short>(ImaIn->GetNbOfRows());
  IPG_SELECTED_STATS stats;
  if (BandedCountedStats(ImaIn, Roi, stats) && stats.SumExact) {
    Result = Scaled(stats.Sum);
    return true;
  }
  double sum = 0.0;
  for (unsigned short row = 0; row < rows; ++row)
    for (unsigned short col = 0; col < cols; ++col)
      if (Ipg_CountedPixel(ImaIn, Roi, col, row))
        sum += ImaIn->Data->GetValue(col, row);
  Result = Scaled(sum);
  return true;
}

bool IPG_STATISTIC1::MinMaxGL()
{
  if (ImaIn == nullptr)
    return false;
  const unsigned short cols = static_cast<unsigned short>(ImaIn->GetNbOfCols());
  const unsigned short rows = static_cast<unsigned short>(ImaIn->GetNbOfRows());
  int mn = kMinStart;
  int mx = kMaxStart;
  IPG_SELECTED_STATS stats;
  if (BandedCountedStats(ImaIn, Roi, stats)) {
    if (stats.Count > 0) {
      mn = std::min(mn, stats.Min);
      mx = std::max(mx, stats.Max);
    }
    SetMin(Scaled(mn));
    SetMax(Scaled(mx));
    return true;
  }
  for (unsigned short row = 0; row < rows; ++row)
    for (unsigned short col = 0; col < cols; ++col)
      if (Ipg_CountedPixel(ImaIn, Roi, col, row)) {
        const int v = ImaIn->Data->GetValue(col, row);
        if (v < mn)
          mn = v;
        if (v > mx)
          mx = v;
      }
  SetMin(Scaled(mn));
  SetMax(Scaled(mx));
  return true;
}

bool IPG_STATISTIC1::NoiseSums(double& signal, double& noise)
{
  signal = 0.0;
  noise = 0.0;
  if (ImaIn == nullptr)
    return false;

  if (Roi == nullptr && Ipg_BoxNoiseSums(*ImaIn->Data, signal, noise))
    return true;
  // The reference: the input smoothed by the 3x3 box, extremes only re-measured.
  DCM_STRUCT smoothed(*ImaIn, false, -1, -1);
  {
    IPG_FILTER_PROCESSING filter(ImaIn, Roi);
    filter.SetImaOut(&smoothed);
    filter.SetDefinedFilter(0);
    filter.SetMode(302);
    filter.SetTools(500);
    filter.Apply();
  }

  const int cols = static_cast<int>(ImaIn->GetNbOfCols());
  const int rows = static_cast<int>(ImaIn->GetNbOfRows());
  if (Ipg_ExactNoiseSums(*ImaIn->Data, *smoothed.Data, Roi, signal, noise))
    return true;
  auto add = [&](int col, int row) {
    const int raw = ImaIn->Data->GetValue(col, row);
    if (Ipg_IsMark(raw))
      return;
    const double in = raw;
    const double s = smoothed.Data->GetValue(col, row);
    signal += s * s;
    noise += (in - s) * (in - s);
  };
  if (Roi == nullptr) {
    for (int row = 1; row < rows - 1; ++row)
      for (int col = 1; col < cols - 1; ++col)
        add(col, row);
  } else {
    for (int row = 0; row < rows; ++row)
      for (int col = 0; col < cols; ++col)
        if (Ipg_InsideRoi(Roi, col, row))
          add(col, row);
  }
  return true;
}

bool IPG_STATISTIC1::SignalToNoiseRatio()
{
  double signal = 0.0, noise = 0.0;
  if (!NoiseSums(signal, noise))
    return false;
  Result = RatioOfSums(signal, noise);
  return noise != 0.0;
}

bool IPG_STATISTIC1::EstimateNoisePercent()
{
  double signal = 0.0, noise = 0.0;
  if (!NoiseSums(signal, noise))
    return false;
  Result = 1.0;
  // The interior count, also under a ROI: the percentages hosts compare were made so.
  const double interior = (static_cast<double>(ImaIn->GetNbOfCols()) - 2.0) *
                          (static_cast<double>(ImaIn->GetNbOfRows()) - 2.0);
  if (interior <= 0.0)
    return false; // no interior: nothing meaningful to report
  const double noiseLevel = std::sqrt(noise / interior);
  const double signalPower = signal / interior;
  if (signalPower == 0.0)
    return false;
  Result = 100.0 * noiseLevel / std::sqrt(signalPower);
  return true;
}

bool IPG_STATISTIC1::BasicStats()
{
  if (ImaIn == nullptr)
    return false;
  Min = kMinStart;
  Max = kMaxStart;
  Mean = VarianceValue = StdDev = SNR = 0.0;
  NbPixels = 0;

  IPG_SELECTED_MOMENTS moments;
  double signal = 0.0, noise = 0.0;
  IPG_SELECTED_STATS levels;
  // Without a ROI, one walk gives the noise sums and the moments.
  if (Roi == nullptr && Ipg_BoxNoiseSums(*ImaIn->Data, signal, noise, &levels) &&
      Ipg_MomentsOfExactStats(levels, moments)) {
    Result = RatioOfSums(signal, noise);
    SNR = Result;
  } else {
    SignalToNoiseRatio();
    SNR = GetResult();
    const int* roi = Roi != nullptr ? Roi->Data->GetIDataAddress() : nullptr;
    const std::size_t roiSize = Roi != nullptr ? Roi->Data->GetSize() : 0;
    if (!Ipg_SelectedMoments(ImaIn->Data->GetIDataAddress(), ImaIn->Data->GetSize(), ImaIn->Data->GetNbOfCols(), roi,
                             roiSize, moments))
      return false;
  }
  Min = std::min<double>(Min, moments.Min);
  Max = std::max<double>(Max, moments.Max);
  NbPixels = moments.Count;
  Mean = moments.Mean;
  VarianceValue = moments.Variance; // population variance

  // A constant image lands here too: hosts rely on the warning for flat selections.
  if (VarianceValue <= 0.0)
    Ipg_Inform(kIpgMsgNegativeVariance);
  else
    StdDev = std::sqrt(VarianceValue);

  const short precision = Precision();
  if (precision >= 1) {
    // The variance is divided by the precision, not its square: stored results
    // have always been scaled this way.
    Min /= precision;
    Max /= precision;
    Mean /= precision;
    VarianceValue /= precision;
    StdDev /= precision;
    SNR /= precision;
  }
  return true;
}

bool IPG_STATISTIC1::ComputeIfNotCached()
{
  // With cached statistics the query reports false although Result is valid:
  // callers read Result, not the return value.
  if (VarianceValue == kNotComputed)
    return BasicStats();
  return false;
}

bool IPG_STATISTIC1::MinGL()
{
  const bool computed = ComputeIfNotCached();
  Result = Min;
  return computed;
}

bool IPG_STATISTIC1::MaxGL()
{
  const bool computed = ComputeIfNotCached();
  Result = Max;
  return computed;
}

bool IPG_STATISTIC1::Variance()
{
  const bool computed = ComputeIfNotCached();
  Result = VarianceValue;
  return computed;
}

bool IPG_STATISTIC1::StdDeviation()
{
  const bool computed = ComputeIfNotCached();
  Result = StdDev;
  return computed;
}

bool IPG_STATISTIC1::NumberOfPixels()
{
  const bool computed = ComputeIfNotCached();
  Result = static_cast<double>(NbPixels);
  return computed;
}

bool IPG_STATISTIC1::BoxDimension(bool differential)
{
  const std::string where = differential ? "IPG_STATISTIC1::FractalDimensionByDBCMethod()"
                                         : "IPG_STATISTIC1::FractalDimensionByBoxMethod()";
  Ipg_ScalingGrid grid;
  if (!Ipg_MakeScalingGrid(ImaIn, Roi, BoxSize, differential ? 2 : 1, where, grid))
    return false;
  Ipg_ScalingFit fit;
  const bool done = differential ? Ipg_DifferentialBoxCountingDimension(grid, where, fit)
                                 : Ipg_BoxCountingDimension(grid, where, fit);
  if (!done)
    return false;
  BoxSizes = fit.Sizes;
  BoxCounts = fit.Counts;
  FitR2 = fit.R2;
  Result = fit.Dimension;
  return true;
}

bool IPG_STATISTIC1::FractalDimensionByBoxMethod()
{
  return BoxDimension(false);
}

bool IPG_STATISTIC1::FractalDimensionByDBCMethod()
{
  return BoxDimension(true);
}

bool IPG_STATISTIC1::MultiFractalDimension()
{
  const std::string where = "IPG_STATISTIC1::MultiFractalDimension()";
  // The q range is walked by index, so that a step that does not divide it
  // exactly still ends at or below QMax; at most 10001 values of q.
  const double span = QMax - QMin;
  if (!(QStep > 0.0) || !(span >= 0.0) || span / QStep > 10000.0) {
    Ipg_Inform(Ipg_MsgParameterRangeAt("Q", where));
    return false;
  }
  Ipg_ScalingGrid grid;
  if (!Ipg_MakeScalingGrid(ImaIn, Roi, BoxSize, 1, where, grid))
    return false;
  std::vector<double> qs;
  const int count = static_cast<int>(std::floor(span / QStep + 1e-9)) + 1;
  for (int k = 0; k < count; ++k)
    qs.push_back(QMin + k * QStep);
  qs.push_back(0.0); // D(0) is the Result, whether or not the range holds 0
  Ipg_MultifractalSpectrum spectrum;
  if (!Ipg_MomentSpectrum(grid, qs, where, spectrum))
    return false;
  Result = spectrum.Dq.back();
  QValues.assign(spectrum.Q.begin(), spectrum.Q.end() - 1);
  Dq.assign(spectrum.Dq.begin(), spectrum.Dq.end() - 1);
  Alpha.assign(spectrum.Alpha.begin(), spectrum.Alpha.end() - 1);
  FAlpha.assign(spectrum.F.begin(), spectrum.F.end() - 1);
  return true;
}

bool IPG_STATISTIC1::HolderSpectral()
{
  const std::string where = "IPG_STATISTIC1::HolderSpectral()";
  Ipg_ScalingGrid grid;
  if (!Ipg_MakeScalingGrid(ImaIn, Roi, BoxSize, 1, where, grid))
    return false;
  // The largest window must fit for any exponent to be measured.
  const int reach = HolderWindowSize / 2 + (HolderMeasType >= 12 && HolderMeasType <= 15 ? 1 : 0);
  const char* bad = HolderBins < 1 || HolderBins > 1000             ? "HolderBins"
                    : HolderMeasType < 1 || HolderMeasType > 15      ? "HolderMeasType"
                    : HolderWindowSize < 3 || 2LL * reach + 1 > std::min(grid.ImageCols, grid.ImageRows) ? "HolderWindowSize"
                                                                     : nullptr;
  if (bad != nullptr) {
    Ipg_Inform(Ipg_MsgParameterRangeAt(bad, where));
    return false;
  }
  IPG_HOLDER holder(ImaIn);
  holder.SetMeasType(HolderMeasType);
  holder.SetWindowSize(HolderWindowSize);
  if (!holder.ComputeHolderByCapacityMeasure() || holder.GetHolder() == nullptr)
    return false; // IPG_HOLDER has shown why

  // Exponents of the selected pixels whose largest window fits: the frame
  // IPG_HOLDER leaves at 0 is not a measured exponent.
  std::vector<double> exponents(grid.Selected.size(), 0.0);
  std::vector<unsigned char> valid(grid.Selected.size(), 0);
  const double* computed = holder.GetHolder();
  for (int row = reach; row < grid.ImageRows - reach; ++row)
    for (int col = reach; col < grid.ImageCols - reach; ++col) {
      const std::size_t k = static_cast<std::size_t>(row) * grid.Cols + col;
      exponents[k] = computed[static_cast<std::size_t>(row) * grid.ImageCols + col];
      valid[k] = grid.Selected[k];
    }
  Ipg_HolderSpectrum spectrum;
  if (!Ipg_IsoHolderSpectrum(grid, exponents, valid, HolderBins, where, spectrum))
    return false;
  HolderAlpha = spectrum.Alpha;
  HolderFAlpha = spectrum.F;
  const auto top = std::max_element(HolderFAlpha.begin(), HolderFAlpha.end());
  Result = HolderAlpha[static_cast<std::size_t>(top - HolderFAlpha.begin())];
  return true;
}
