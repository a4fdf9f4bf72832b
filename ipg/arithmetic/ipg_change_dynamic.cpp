#include "ipg/arithmetic/ipg_change_dynamic.h"

#include "dcm/dcm_struct.h"
#include "ipg/framework/ipg_output_mode.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/ui/ipg_message.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

// The text names another class; hosts match on it as it stands.
constexpr const char* kMsgSizes = "Les images n'ont pas les mêmes dimensions : IPG_FILTER_PROCESSING::Apply()";

int TruncateToInt(double v)
{
  if (std::isnan(v))
    return 0;
  if (v >= static_cast<double>(INT_MAX))
    return INT_MAX;
  if (v <= static_cast<double>(INT_MIN))
    return INT_MIN;
  return static_cast<int>(v);
}

// (v - mn) / range * (hi - lo) + lo, rounded half away from zero.
int Redyn(std::int64_t v, std::int64_t mn, std::int64_t range, int lo, int hi)
{
  if (range == 0)
    return lo;
  const long double t = static_cast<long double>(v - mn) / static_cast<long double>(range) *
                            (static_cast<long double>(hi) - lo) +
                        lo;
  const long double rounded = t >= 0 ? t + 0.5L : t - 0.5L;
  return TruncateToInt(static_cast<double>(rounded));
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

int IPG_CHANGE_DYNAMIC::GetLimitInf() const { return TruncateToInt(LimitInf); }
int IPG_CHANGE_DYNAMIC::GetLimitSup() const { return TruncateToInt(LimitSup); }

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
    Ipg_Inform(kMsgSizes);
    return false;
  }
  out.Init(0.0);
  if (const IPG_OPERATION_INFO<IPG_CHANGE_DYNAMIC>* operation = ClassInfo().FindOperation(Tools))
    return Ipg_RunOperation(*operation, *this) != 0;
  int* input = in.GetIDataAddress();
  const int* output = out.GetIDataAddress();
  for (std::size_t k = 0; k < in.GetSize(); ++k)
    input[k] = k < out.GetSize() ? output[k] : 0;
  out.SetMin();
  out.SetMax();
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

bool IPG_CHANGE_DYNAMIC::InsideRoi(unsigned col, unsigned row) const
{
  return Roi == nullptr || Roi->Data->GetValue(col, row) != 0;
}

bool IPG_CHANGE_DYNAMIC::GetCutImage()
{
  if (!CanWrite())
    return false;
  const DCM_DATA& in = *ImaIn->Data;
  DCM_DATA& out = *ImaOut->Data;
  for (unsigned row = 0; row < in.GetNbOfRows(); ++row)
    for (unsigned col = 0; col < in.GetNbOfCols(); ++col) {
      if (!InsideRoi(col, row))
        continue;
      const int v = in.GetValue(col, row);
      if (v >= kIpgRoiValue) {
        out.SetValue(col, row, v);
        continue;
      }
      const auto f = static_cast<float>(in.GetValueReal(col, row));
      if (LimitInf <= f && f <= LimitSup)
        out.SetValue(col, row, f);
      else
        out.SetValue(col, row, 0);
    }
  out.SetMin();
  out.SetMax();
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
      if (!InsideRoi(col, row))
        continue;
      const int v = in.GetValue(col, row);
      // |INT_MIN| does not fit: it saturates.
      out.SetValue(col, row, v >= kIpgRoiValue ? v : v == INT_MIN ? INT_MAX : std::abs(v));
    }
  out.SetMin();
  out.SetMax();
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
  const int lo = TruncateToInt(static_cast<float>(precision) * LimitInf);
  const int hi = TruncateToInt(static_cast<float>(precision) * LimitSup);
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
      if (v >= kIpgRoiValue)
        continue;
      const std::int64_t at = v - mn;
      const bool tabulated = at >= 0 && at < static_cast<std::int64_t>(table.size());
      out.SetValue(col, row, tabulated ? table[static_cast<std::size_t>(at)] : Redyn(v, mn, range, lo, hi));
    }
  out.SetMin();
  out.SetMax();
  return true;
}
