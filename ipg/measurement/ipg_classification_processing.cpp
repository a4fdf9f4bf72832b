// SPDX-License-Identifier: Apache-2.0
#include "ipg/measurement/ipg_classification_processing.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_histogram_valleys.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_roi_mask.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

namespace {

constexpr int kValleysCode = 1600;
constexpr const char* kClassName = "IPG_CLASSIFICATION_PROCESSING";
constexpr const char* kWhere = "IPG_CLASSIFICATION_PROCESSING::ClassifyByHistogramValleys()";
constexpr std::int64_t kMaxBins = 65536;

} // namespace

IPG_CLASSIFICATION_PROCESSING::IPG_CLASSIFICATION_PROCESSING(DCM_STRUCT* in)
    : IPG_CLASSIFICATION_PROCESSING(in, nullptr, nullptr)
{
}

IPG_CLASSIFICATION_PROCESSING::IPG_CLASSIFICATION_PROCESSING(DCM_STRUCT* in, DCM_STRUCT* roi)
    : IPG_CLASSIFICATION_PROCESSING(in, roi, nullptr)
{
}

IPG_CLASSIFICATION_PROCESSING::IPG_CLASSIFICATION_PROCESSING(DCM_STRUCT* in, DCM_STRUCT* roi, DCM_STRUCT* out)
{
  ImaIn = in;
  Roi = roi;
  ImaOut = out;
  SetDefaultParameters();
}

IPG_CLASSIFICATION_PROCESSING::IPG_CLASSIFICATION_PROCESSING(const IPG_CLASSIFICATION_PROCESSING& source)
    : IPG_ONE_INPUT_ONE_OUTPUT(), SmoothingWidth(source.SmoothingWidth), MinValleyDepth(source.MinValleyDepth),
      MaxClasses(source.MaxClasses), Thresholds(source.Thresholds)
{
}

void IPG_CLASSIFICATION_PROCESSING::SetDefaultParameters()
{
  Tools = kValleysCode;
  SmoothingWidth = 5;
  MinValleyDepth = 0.05;
  MaxClasses = 16;
}

const IPG_CLASS_INFO<IPG_CLASSIFICATION_PROCESSING>& IPG_CLASSIFICATION_PROCESSING::ClassInfo()
{
  using C = IPG_CLASSIFICATION_PROCESSING;
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {kValleysCode, "ClassifyByHistogramValleys", [](C& op) -> int { return op.ClassifyByHistogramValleys(); }},
  };
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C, &C::SetSmoothingWidth>("SmoothingWidth", "5", "odd moving-average width in bins (default 5)"),
      Ipg_Parameter<C, &C::SetMinValleyDepth>(
          "MinValleyDepth", "0.05", "smallest valley depth kept, as a fraction of the highest smoothed bin (default 0.05)"),
      Ipg_Parameter<C, &C::SetMaxClasses>("MaxClasses", "16", "largest number of classes, 1-256 (default 16)"),
  };
  static const IPG_CLASS_INFO<C> info{kClassName, operations, parameters};
  return info;
}

bool IPG_CLASSIFICATION_PROCESSING::Apply()
{
  return Ipg_Dispatch(ClassInfo(), *this, Tools) != 0;
}

bool IPG_CLASSIFICATION_PROCESSING::CheckInput() const
{
  if (ImaIn == nullptr || ImaIn->Data == nullptr)
    return Ipg_InformAndFail(kIpgMsgNoInputImage);
  if (ImaOut == nullptr)
    return Ipg_InformAndFail(kIpgMsgNoOutput);
  if (ImaOut->GetNbOfCols() != ImaIn->GetNbOfCols() || ImaOut->GetNbOfRows() != ImaIn->GetNbOfRows())
    return Ipg_InformAndFail(Ipg_MsgSizes(std::string(kClassName) + "::Apply()"));
  if (!Ipg_RoiFitsImage(ImaIn, Roi, kClassName))
    return false;
  if (ImaIn->Data->GetSize() < 2)
    return Ipg_InformAndFail(Ipg_MsgImageTooSmall(kWhere));
  // Written so that a not-a-number depth fails too.
  return Ipg_ParameterInRange(SmoothingWidth >= 1 && SmoothingWidth < kMaxBins && SmoothingWidth % 2 == 1,
                              "SmoothingWidth", kClassName) &&
         Ipg_ParameterInRange(MinValleyDepth >= 0.0 && MinValleyDepth <= 1.0, "MinValleyDepth", kClassName) &&
         Ipg_ParameterInRange(MaxClasses >= 1 && MaxClasses <= 256, "MaxClasses", kClassName);
}

bool IPG_CLASSIFICATION_PROCESSING::ClassifyByHistogramValleys()
{
  if (!CheckInput())
    return false;
  const int* pixels = ImaIn->Data->GetIDataAddress();
  const int* mask = Roi != nullptr ? Roi->Data->GetIDataAddress() : nullptr;
  const std::size_t size = ImaIn->Data->GetSize();
  int lowest = INT_MAX, highest = INT_MIN;
  for (std::size_t k = 0; k < size; ++k)
    if (Ipg_CountedPixel(pixels[k], mask, k)) {
      lowest = std::min(lowest, pixels[k]);
      highest = std::max(highest, pixels[k]);
    }
  if (lowest > highest)
    return Ipg_InformAndFail(Ipg_MsgNothingToMeasure(kWhere));

  const std::int64_t range = static_cast<std::int64_t>(highest) - lowest + 1;
  const std::int64_t binWidth = (range + kMaxBins - 1) / kMaxBins;
  std::vector<int> thresholds;
  try {
    std::vector<std::int64_t> counts(static_cast<std::size_t>((range + binWidth - 1) / binWidth), 0);
    for (std::size_t k = 0; k < size; ++k)
      if (Ipg_CountedPixel(pixels[k], mask, k))
        ++counts[static_cast<std::size_t>((static_cast<std::int64_t>(pixels[k]) - lowest) / binWidth)];
    for (int bin : Ipg_HistogramValleys(counts, SmoothingWidth, MinValleyDepth, MaxClasses))
      thresholds.push_back(static_cast<int>(lowest + bin * binWidth));
  } catch (const std::bad_alloc&) {
    return Ipg_InformAndFail(kIpgMsgAllocation);
  }

  int* out = ImaOut->Data->GetIDataAddress();
  for (std::size_t k = 0; k < size; ++k) {
    if (!Ipg_CountedPixel(pixels[k], mask, k))
      out[k] = pixels[k]; // outside the ROI, or a mark: copied
    else // thresholds below the level: its class
      out[k] = static_cast<int>(std::lower_bound(thresholds.begin(), thresholds.end(), pixels[k]) - thresholds.begin());
  }
  ImaOut->Data->SetMin();
  ImaOut->Data->SetMax();
  Thresholds = std::move(thresholds);
  Result = static_cast<double>(Thresholds.size() + 1);
  return true;
}
