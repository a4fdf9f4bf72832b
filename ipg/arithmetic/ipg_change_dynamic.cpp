#include "ipg/arithmetic/ipg_change_dynamic.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_output_mode.h"
#include "ipg/internal/ipg_pixel_conversion.h"
#include "ipg/internal/ipg_roi_mask.h"
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
  for (unsigned row = 0; row < in.GetNbOfRows(); ++row)
    for (unsigned col = 0; col < in.GetNbOfCols(); ++col) {
      if (!Ipg_InsideAnyNonZeroMask(Roi, col, row))
        continue;
      const int v = in.GetValue(col, row);
      if (Ipg_IsMark(v)) {
        out.SetValue(col, row, v);
        continue;
      }
      const auto f = static_cast<float>(in.GetValueReal(col, row));
      if (LimitInf <= f && f <= LimitSup)
        out.SetValue(col, row, f);
      else
        out.SetValue(col, row, 0);
    }
  Ipg_MeasureExtremes(out);
  return true;
}

bool IPG_CHANGE_DYNAMIC::GetAbsoluteImage()
{
  if (!CanWrite())
    return false;
  const DCM_DATA& in = *ImaIn->Data;
  DCM_DATA& out = *ImaOut->Data;
  for (unsigned row = 0; row < in.GetNbOfRows(); ++row)
    for (unsigned col = 0; col < in.GetNbOfCols(); ++col) {
      if (!Ipg_InsideAnyNonZeroMask(Roi, col, row))
        continue;
      const int v = in.GetValue(col, row);
      // |INT_MIN| does not fit: it saturates.
      out.SetValue(col, row, Ipg_IsMark(v) ? v : v == INT_MIN ? INT_MAX : std::abs(v));
    }
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
  for (unsigned row = 0; row < in.GetNbOfRows(); ++row)
    for (unsigned col = 0; col < in.GetNbOfCols(); ++col) {
      const int v = in.GetValue(col, row);
      if (Ipg_IsMark(v))
        continue;
      const std::int64_t at = v - mn;
      const bool tabulated = at >= 0 && at < static_cast<std::int64_t>(table.size());
      out.SetValue(col, row, tabulated ? table[static_cast<std::size_t>(at)] : Redyn(v, mn, range, lo, hi));
    }
  Ipg_MeasureExtremes(out);
  return true;
}
