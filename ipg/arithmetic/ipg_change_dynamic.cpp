// SPDX-License-Identifier: Apache-2.0
#include "ipg/arithmetic/ipg_change_dynamic.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_output_mode.h"
#include "ipg/internal/ipg_pixel_conversion.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/internal/ipg_row_bands.h"
#include "ipg/ui/ipg_message.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

// (v - mn) / range * (hi - lo) + lo, rounded half away from zero.
int Redyn(std::int64_t v, std::int64_t mn, std::int64_t range, int lo, int hi)
{
  if (range == 0)
    return lo;
  const long double t = static_cast<long double>(v - mn) / static_cast<long double>(range) *
                            (static_cast<long double>(hi) - lo) +
                        lo;
  return Ipg_RoundHalfAwayThroughDouble(t);
}

// Runs write(v, col, target) for the pixels of in (raw value v) that the
// mask selects (any non-zero value; all without a mask), target the output
// pixel at the same place or null when out has no pixel there. Each output
// pixel depends on its input pixel only, so rows run in parallel bands; the
// callers measure the output's extremes afterwards.
template <typename Write>
void ForMaskedPixels(const DCM_DATA& in, const DCM_STRUCT* mask, DCM_DATA& out, Write write)
{
  const unsigned cols = in.GetNbOfCols(), outCols = out.GetNbOfCols();
  const int* src = in.GetIDataAddress();
  int* dst = out.GetIDataAddress();
  const DCM_DATA* maskData = mask != nullptr ? mask->Data : nullptr;
  Ipg_RunBands(Ipg_SplitRows(in.GetNbOfRows(), cols), [&](unsigned, unsigned begin, unsigned end) {
    for (unsigned row = begin; row < end; ++row) {
      const int* line = src + std::size_t{row} * cols;
      int* target = row < out.GetNbOfRows() ? dst + std::size_t{row} * outCols : nullptr;
      const int* maskLine = nullptr;
      unsigned maskCols = 0;
      if (maskData != nullptr && row < maskData->GetNbOfRows()) {
        maskLine = maskData->GetIDataAddress() + std::size_t{row} * maskData->GetNbOfCols();
        maskCols = maskData->GetNbOfCols();
      }
      for (unsigned col = 0; col < cols; ++col) {
        if (maskData != nullptr && (col >= maskCols || !Ipg_InsideAnyNonZeroMask(maskLine[col])))
          continue;
        write(line[col], target != nullptr && col < outCols ? target + col : nullptr);
      }
    }
  });
}

} // namespace

IPG_CHANGE_DYNAMIC::IPG_CHANGE_DYNAMIC(DCM_STRUCT* in, DCM_STRUCT* out)
{
  SetImaIn(in);
  SetImaOut(out);
  Tools = 301;
}

IPG_CHANGE_DYNAMIC::IPG_CHANGE_DYNAMIC(const IPG_CHANGE_DYNAMIC& source) : IPG_ONE_INPUT_ONE_OUTPUT()
{
  ImaIn = source.ImaIn;
  ImaOut = source.ImaOut;
  Tools = static_cast<int>(source.GetTools());
  LimitInf = static_cast<float>(source.GetLimitInf());
  LimitSup = static_cast<float>(source.GetLimitSup());
}

int IPG_CHANGE_DYNAMIC::GetLimitInf() const { return Ipg_TruncateTowardZero<double>(LimitInf); }
int IPG_CHANGE_DYNAMIC::GetLimitSup() const { return Ipg_TruncateTowardZero<double>(LimitSup); }

const IPG_CLASS_INFO<IPG_CHANGE_DYNAMIC>& IPG_CHANGE_DYNAMIC::ClassInfo()
{
  using C = IPG_CHANGE_DYNAMIC;
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {300, "GetCutImage", [](C& op) -> int { return op.GetCutImage(); }},
      {301, "GetRedynImage", [](C& op) -> int { return op.GetRedynImage(); }},
      {303, "GetAbsoluteImage", [](C& op) -> int { return op.GetAbsoluteImage(); }},
  };
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C, &C::SetLimitInf>("LimitInf", "0", "lower limit: window bottom or bottom of the new range"),
      Ipg_Parameter<C, &C::SetLimitSup>("LimitSup", "4095", "upper limit: window top or top of the new range"),
  };
  static const IPG_CLASS_INFO<C> info{"IPG_CHANGE_DYNAMIC", operations, parameters};
  return info;
}

bool IPG_CHANGE_DYNAMIC::Apply()
{
  if (!Ipg_RoiFitsImage(ImaIn, Roi, "IPG_CHANGE_DYNAMIC"))
    return false;
  if (ImaOut == nullptr || ImaIn == nullptr)
    return false;
  DCM_DATA& in = *ImaIn->Data;
  DCM_DATA& out = *ImaOut->Data;
  // Only a difference in both directions is refused.
  if (out.GetNbOfCols() != in.GetNbOfCols() && out.GetNbOfRows() != in.GetNbOfRows()) {
    Ipg_Inform(Ipg_MsgSizes("IPG_FILTER_PROCESSING::Apply()")); // names another class: hosts match on it
    return false;
  }
  out.Init(0.0);
  if (const IPG_OPERATION_INFO<IPG_CHANGE_DYNAMIC>* operation = ClassInfo().FindOperation(Tools))
    return Ipg_RunOperation(*operation, *this) != 0;
  int* input = in.GetIDataAddress();
  const int* output = out.GetIDataAddress();
  for (std::size_t k = 0; k < in.GetSize(); ++k)
    input[k] = k < out.GetSize() ? output[k] : 0;
  Ipg_MeasureExtremes(out);
  return true;
}

bool IPG_CHANGE_DYNAMIC::CanWrite() const
{
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return false;
  }
  return ImaIn != nullptr;
}

bool IPG_CHANGE_DYNAMIC::GetCutImage()
{
  if (!CanWrite())
    return false;
  const DCM_DATA& in = *ImaIn->Data;
  DCM_DATA& out = *ImaOut->Data;
  const short inPrecision = in.GetPrecision(), outPrecision = out.GetPrecision();
  const float lowest = LimitInf, highest = LimitSup;
  ForMaskedPixels(in, Roi, out, [&](int v, int* target) {
    if (target == nullptr)
      return;
    if (Ipg_IsMark(v)) {
      *target = v;
      return;
    }
    // The level as GetValueReal reads it, then stored as SetValue(float) stores it.
    const double real = inPrecision > 0 ? static_cast<double>(v) / inPrecision : static_cast<double>(v);
    const auto f = static_cast<float>(real);
    *target = lowest <= f && f <= highest ? DCM_DATA::ToRaw(static_cast<double>(f), outPrecision) : 0;
  });
  Ipg_MeasureExtremes(out);
  return true;
}

bool IPG_CHANGE_DYNAMIC::GetAbsoluteImage()
{
  if (!CanWrite())
    return false;
  const DCM_DATA& in = *ImaIn->Data;
  DCM_DATA& out = *ImaOut->Data;
  ForMaskedPixels(in, Roi, out, [](int v, int* target) {
    // |INT_MIN| does not fit: it saturates.
    if (target != nullptr)
      *target = Ipg_IsMark(v) ? v : v == INT_MIN ? INT_MAX : std::abs(v);
  });
  Ipg_MeasureExtremes(out);
  return true;
}

bool IPG_CHANGE_DYNAMIC::GetRedynImage()
{
  if (!CanWrite())
    return false;
  const DCM_DATA& in = *ImaIn->Data;
  DCM_DATA& out = *ImaOut->Data;
  const std::int64_t mn = in.GetMin();
  const std::int64_t mx = in.GetMax();
  const std::int64_t range = mx - mn;
  const short precision = in.GetPrecision();
  const int lo = Ipg_TruncateTowardZero<double>(static_cast<float>(precision) * LimitInf);
  const int hi = Ipg_TruncateTowardZero<double>(static_cast<float>(precision) * LimitSup);
  out.SetPrecision(precision);

  // A table per level when the range is smaller than the image (speed only: a
  // level outside the stored extremes is computed directly, with the same formula).
  std::vector<int> table;
  if (range >= 0 && range < static_cast<std::int64_t>(in.GetSize())) {
    table.resize(static_cast<std::size_t>(range) + 1);
    for (std::int64_t v = mn; v <= mx; ++v)
      table[static_cast<std::size_t>(v - mn)] = Redyn(v, mn, range, lo, hi);
  }
  ForMaskedPixels(in, nullptr, out, [&](int v, int* target) {
    if (target == nullptr || Ipg_IsMark(v))
      return;
    const std::int64_t at = v - mn;
    const bool tabulated = at >= 0 && at < static_cast<std::int64_t>(table.size());
    *target = tabulated ? table[static_cast<std::size_t>(at)] : Redyn(v, mn, range, lo, hi);
  });
  Ipg_MeasureExtremes(out);
  return true;
}
