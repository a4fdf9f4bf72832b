// SPDX-License-Identifier: Apache-2.0
#include "ipg/arithmetic/ipg_arithmetic1.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_output_mode.h"
#include "ipg/internal/ipg_point_kernel.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/ui/ipg_message.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>

namespace {

constexpr double kSmallestMagnitude = 0.001;
constexpr double kOneOverPi = 0.3183098861837907;
constexpr double kOneOver180 = 0.005555555555555556;
constexpr long double kPi = 3.141592653589793238462643383279502884L;

double LogarithmOrFloor(double v, double (*logarithm)(double))
{
  if (std::fabs(v) < kSmallestMagnitude)
    return -static_cast<double>(kIpgMaxGrey);
  return logarithm(v); // of v itself: a negative v gives NaN and keeps its input value
}

} // namespace

IPG_ARITHMETIC1::IPG_ARITHMETIC1(DCM_STRUCT* in) : IPG_ARITHMETIC1(in, nullptr) {}

IPG_ARITHMETIC1::IPG_ARITHMETIC1(DCM_STRUCT* in, DCM_STRUCT* roi)
{
  SetImaIn(in);
  SetRoi(roi);
  SetDefaultParameters();
}

IPG_ARITHMETIC1::IPG_ARITHMETIC1(const IPG_ARITHMETIC1& source) : IPG_ONE_INPUT_ONE_OUTPUT()
{
  Variable = source.Variable;
}

void IPG_ARITHMETIC1::SetDefaultParameters()
{
  Tools = 200;
  Variable = 200.0f;
}

const IPG_CLASS_INFO<IPG_ARITHMETIC1>& IPG_ARITHMETIC1::ClassInfo()
{
  using C = IPG_ARITHMETIC1;
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {200, "AddConstant", [](C& op) -> int { return op.AddConstant(); }},
      {201, "MultiplyConstant", [](C& op) -> int { return op.MultiplyConstant(); }},
      {202, "Abs", [](C& op) -> int { return op.Abs(); }},
      {203, "Square", [](C& op) -> int { return op.Square(); }},
      {204, "RootSquare", [](C& op) -> int { return op.RootSquare(); }},
      {205, "DivideConstant", [](C& op) -> int { return op.DivideConstant(); }},
      {206, "PowerN", [](C& op) -> int { return op.PowerN(); }},
      {207, "Log10", [](C& op) -> int { return op.Log10(); }},
      {208, "Log", [](C& op) -> int { return op.Log(); }},
      {209, "InvLog10", [](C& op) -> int { return op.InvLog10(); }},
      {210, "Exp", [](C& op) -> int { return op.Exp(); }},
      {211, "DegToRad", [](C& op) -> int { return op.DegToRad(); }},
      {212, "RadToDeg", [](C& op) -> int { return op.RadToDeg(); }},
  };
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C, &C::SetVariable>("Variable", "200", "the constant: addend, factor, divisor or exponent"),
  };
  static const IPG_CLASS_INFO<C> info{"IPG_ARITHMETIC1", operations, parameters};
  return info;
}

bool IPG_ARITHMETIC1::Apply()
{
  if (!Ipg_RoiFitsImage(ImaIn, Roi, "IPG_ARITHMETIC1"))
    return false;
  return Ipg_Dispatch(ClassInfo(), *this, Tools) != 0;
}

template <typename F>
bool IPG_ARITHMETIC1::ApplyPointOperation(F compute, Guard guard, const char* noOutputMessage)
{
  unsigned short cols = 0, rows = 0;
  if (ImaIn != nullptr) {
    cols = static_cast<unsigned short>(ImaIn->Data->GetNbOfCols());
    rows = static_cast<unsigned short>(ImaIn->Data->GetNbOfRows());
  }
  if (ImaOut == nullptr) {
    Ipg_Inform(noOutputMessage);
    return false;
  }
  if (rows == 0 || cols == 0)
    return ApplyModeToOutImage();
  const bool guarded = guard == Guard::OverRange;
  const IPG_WRITTEN written =
      Ipg_MapRealPixels(*ImaIn->Data, Roi, *ImaOut->Data, cols, rows, [compute, guarded](double v, bool inside) {
    const double r = compute(v); // computed outside the ROI too, so that the loop has no branch
    const bool accepted = !guarded || r <= kIpgMaxGrey; // NaN fails the comparison and keeps v
    return inside && accepted ? r : v;
  });
  return written.WholeOutput ? Ipg_ApplyModeToImage(ImaOut, Mode, written.Extremes) : ApplyModeToOutImage();
}

bool IPG_ARITHMETIC1::AddConstant()
{
  const double p = Variable;
  if (ImaIn != nullptr && ImaOut != nullptr && ImaIn->Data->GetPrecision() <= 1 && ImaOut->Data->GetPrecision() <= 1 &&
      std::fabs(p) <= kIpgMaxGrey && p == std::trunc(p))
    return AddWholeConstant(static_cast<int>(p));
  return ApplyPointOperation([p](double v) { return v + p; }, Guard::OverRange, kIpgMsgNoOutput);
}

// The sum of an unscaled level and a whole constant, without reals: eight
// pixels per instruction instead of four, the same values. A sum above the
// largest grey level keeps the level; one below INT_MIN stores INT_MIN, as
// the real path's conversion does.
bool IPG_ARITHMETIC1::AddWholeConstant(int p)
{
  const int highest = kIpgMaxGrey - p;                     // the largest level whose sum is accepted
  const int lowest = p < 0 ? INT_MIN - p : INT_MIN;        // below it the sum leaves the int range
  const auto cols = static_cast<unsigned short>(ImaIn->Data->GetNbOfCols());
  const auto rows = static_cast<unsigned short>(ImaIn->Data->GetNbOfRows());
  if (rows == 0 || cols == 0)
    return ApplyModeToOutImage();
  const IPG_WRITTEN written =
      Ipg_MapPixels(*ImaIn->Data, Roi, *ImaOut->Data, cols, rows, [p, highest, lowest](int v, bool inside) {
        const int sum = v < lowest ? INT_MIN : static_cast<int>(static_cast<unsigned>(v) + static_cast<unsigned>(p));
        return inside && v <= highest ? sum : v;
      });
  return written.WholeOutput ? Ipg_ApplyModeToImage(ImaOut, Mode, written.Extremes) : ApplyModeToOutImage();
}

bool IPG_ARITHMETIC1::MultiplyConstant()
{
  const double p = Variable;
  if (ImaIn != nullptr && ImaOut != nullptr && ImaIn->Data->GetPrecision() <= 1 && ImaOut->Data->GetPrecision() <= 1 &&
      std::fabs(p) <= INT_MAX && p == std::trunc(p))
    return MultiplyByWholeConstant(static_cast<int>(p));
  return ApplyPointOperation([p](double v) { return v * p; }, Guard::None, kIpgMsgNoOutputUnaccented);
}

// The product of an unscaled level and a whole factor, without reals: in 32
// bits where it fits (the real product is then exact), else the bound it
// passes, as the real path's conversion saturates.
bool IPG_ARITHMETIC1::MultiplyByWholeConstant(int p)
{
  // Levels above upper have products past one bound (atUpper), levels below
  // lower past the other; quotients toward zero give exactly those levels.
  const auto level = [](long long bound) { return static_cast<int>(std::clamp<long long>(bound, INT_MIN, INT_MAX)); };
  int upper = INT_MAX, lower = INT_MIN, atUpper = INT_MAX, atLower = INT_MIN;
  if (p > 0) {
    upper = INT_MAX / p;
    lower = INT_MIN / p;
  } else if (p < 0) {
    upper = level(static_cast<long long>(INT_MIN) / p); // beyond INT_MAX for p = -1: never passed
    lower = INT_MAX / p;
    atUpper = INT_MIN;
    atLower = INT_MAX;
  }
  const auto cols = static_cast<unsigned short>(ImaIn->Data->GetNbOfCols());
  const auto rows = static_cast<unsigned short>(ImaIn->Data->GetNbOfRows());
  if (rows == 0 || cols == 0)
    return ApplyModeToOutImage();
  const IPG_WRITTEN written = Ipg_MapPixels(*ImaIn->Data, Roi, *ImaOut->Data, cols, rows, [=](int v, bool inside) {
    const int product = static_cast<int>(static_cast<unsigned>(v) * static_cast<unsigned>(p));
    const int stored = v > upper ? atUpper : (v < lower ? atLower : product);
    return inside ? stored : v;
  });
  return written.WholeOutput ? Ipg_ApplyModeToImage(ImaOut, Mode, written.Extremes) : ApplyModeToOutImage();
}

bool IPG_ARITHMETIC1::Abs()
{
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return false;
  }
  const int cols = ImaIn != nullptr ? static_cast<int>(ImaIn->Data->GetNbOfCols()) : 0;
  const int rows = ImaIn != nullptr ? static_cast<int>(ImaIn->Data->GetNbOfRows()) : 0;
  const int outCols = static_cast<int>(ImaOut->Data->GetNbOfCols());
  const int outRows = static_cast<int>(ImaOut->Data->GetNbOfRows());
  const int* in = ImaIn != nullptr ? ImaIn->Data->GetIDataAddress() : nullptr;
  int* out = ImaOut->Data->GetIDataAddress();
  // Raw walk; positions outside a smaller output image are skipped.
  for (int row = 0; row < rows && row < outRows; ++row)
    for (int col = 0; col < cols && col < outCols; ++col) {
      const int v = in[static_cast<std::size_t>(row) * cols + col];
      const bool inside = Ipg_InsideRoi(Roi, static_cast<unsigned>(col), static_cast<unsigned>(row));
      const int magnitude = v == INT_MIN ? INT_MAX : std::abs(v);
      out[static_cast<std::size_t>(row) * outCols + col] = inside ? magnitude : v;
    }
  Ipg_MeasureExtremes(*ImaOut->Data);
  ImaOut->Data->SetDynMax(static_cast<unsigned>(ImaOut->Data->GetMax()) -
                          static_cast<unsigned>(ImaOut->Data->GetMin()) + 1u);
  return ApplyModeToOutImage();
}

bool IPG_ARITHMETIC1::Square()
{
  return ApplyPointOperation([](double v) { return v * v; }, Guard::OverRange, kIpgMsgNoOutput);
}

bool IPG_ARITHMETIC1::RootSquare()
{
  return ApplyPointOperation([](double v) { return std::sqrt(v); }, Guard::OverRange, kIpgMsgNoOutput);
}

bool IPG_ARITHMETIC1::DivideConstant()
{
  if (std::fabs(Variable) < kSmallestMagnitude) {
    Ipg_Inform(kIpgMsgDivisionByZero);
    return false;
  }
  const double p = Variable;
  return ApplyPointOperation([p](double v) { return v / p; }, Guard::None, kIpgMsgNoOutputUnaccented);
}

bool IPG_ARITHMETIC1::PowerN()
{
  const double p = Variable;
  // The sign of the input is kept whatever the exponent ((-3)^2 gives -9): callers
  // use it as an odd-symmetric contrast curve.
  auto signedPower = [p](double v) {
    if (p == 0.0)
      return 1.0;
    if (v == 0.0)
      return 0.0;
    const double magnitude = std::exp(p * std::log(std::fabs(v)));
    return v < 0 ? -magnitude : magnitude;
  };
  return ApplyPointOperation(signedPower, Guard::OverRange, kIpgMsgNoOutput);
}

bool IPG_ARITHMETIC1::Log10()
{
  return ApplyPointOperation([](double v) { return LogarithmOrFloor(v, std::log10); }, Guard::OverRange,
                             kIpgMsgNoOutput);
}

bool IPG_ARITHMETIC1::Log()
{
  return ApplyPointOperation([](double v) { return LogarithmOrFloor(v, std::log); }, Guard::OverRange,
                             kIpgMsgNoOutput);
}

bool IPG_ARITHMETIC1::InvLog10()
{
  auto powerOfTen = [](double v) {
    if (v == 0.0)
      return 1.0;
    return std::exp(v * std::log(10.0)) * 1.0;
  };
  return ApplyPointOperation(powerOfTen, Guard::OverRange, kIpgMsgNoOutput);
}

bool IPG_ARITHMETIC1::Exp()
{
  return ApplyPointOperation([](double v) { return std::exp(v); }, Guard::OverRange, kIpgMsgNoOutput);
}

// The two conversions are named the other way round from what they compute;
// hosts call them by code and by name, so both stay as they are.
bool IPG_ARITHMETIC1::DegToRad()
{
  auto toDegrees = [](double v) {
    return static_cast<double>(static_cast<long double>(v) * 180.0L * static_cast<long double>(kOneOverPi));
  };
  return ApplyPointOperation(toDegrees, Guard::None, kIpgMsgNoOutput);
}

bool IPG_ARITHMETIC1::RadToDeg()
{
  auto toRadians = [](double v) {
    return static_cast<double>(static_cast<long double>(v) * kPi * static_cast<long double>(kOneOver180));
  };
  return ApplyPointOperation(toRadians, Guard::None, kIpgMsgNoOutput);
}
