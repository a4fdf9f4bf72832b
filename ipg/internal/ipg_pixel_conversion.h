// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <climits>
#include <cmath>
#include <cstdint>
#include <type_traits>

// Real-to-pixel conversions. Each behaviour is its own function because the
// operators' outputs depend on the differences (NaN, out-of-range values and
// the precision of the rounding step); pick the one the operator has always had.

// Truncation toward zero, saturating at the 32-bit bounds; NaN gives 0.
// Real is float, double or long double: the bounds are compared in that precision.
template <typename Real>
inline int Ipg_TruncateTowardZero(Real v)
{
  if constexpr (std::is_same_v<Real, double>) {
    // The same values as selects, so that loops over it vectorise.
    double r = v >= 2147483647.0 ? 2147483647.0 : v;
    r = r <= -2147483648.0 ? -2147483648.0 : r;
    return static_cast<int>(v == v ? r : 0.0);
  }
  if constexpr (std::is_same_v<Real, float>) {
    // The same again, eight to an instruction: no float lies between
    // INT_MAX and 2^31, so v >= 2^31 is v >= INT_MAX.
    const bool high = v >= 2147483648.0f;
    float r = high ? 0.0f : v;
    r = r <= -2147483648.0f ? -2147483648.0f : r;
    const int t = static_cast<int>(v == v ? r : 0.0f);
    return high ? INT_MAX : t;
  }
  if (std::isnan(v))
    return 0;
  if (v >= static_cast<Real>(INT_MAX))
    return INT_MAX;
  if (v <= static_cast<Real>(INT_MIN))
    return INT_MIN;
  return static_cast<int>(v);
}

// Truncation toward zero; out of the 32-bit range or NaN gives INT_MIN, what
// the x86 conversion has always produced there (the region and labelling sums
// rely on it).
int Ipg_TruncateOrIntMin(double v);

// Round half away from zero, the half added in Real's precision, saturating at
// the 32-bit bounds; NaN gives INT_MIN.
template <typename Real>
inline int Ipg_RoundHalfAwayFromZero(Real t)
{
  const Real rounded = t >= 0 ? t + Real(0.5) : t - Real(0.5);
  if (!(rounded > static_cast<Real>(INT_MIN)))
    return INT_MIN;
  if (rounded >= static_cast<Real>(INT_MAX))
    return INT_MAX;
  return static_cast<int>(rounded);
}

// Round half away from zero in long double, then narrowed to double before the
// truncation: an exact half computed a hair low still rounds up, as IPG_CHANGE_DYNAMIC
// has always re-scaled. Saturates; NaN gives 0.
int Ipg_RoundHalfAwayThroughDouble(long double t);

// Nearest integer, halves away from zero, computed exactly, saturating at the
// 32-bit bounds; NaN gives 0. Written as selects, without a call, so that
// loops over it vectorise: the distance of v to its truncation is exact, so a
// half is recognised as std::lround recognises it.
inline int Ipg_RoundToNearest(double v)
{
  const double whole = std::trunc(v);
  const double rounded = std::fabs(v - whole) >= 0.5 ? whole + std::copysign(1.0, v) : whole;
  double r = v >= 2147483647.0 ? 2147483647.0 : rounded;
  r = v <= -2147483648.0 ? -2147483648.0 : r;
  return static_cast<int>(v == v ? r : 0.0);
}

// A 64-bit count or difference saturated to the 32-bit range.
inline int Ipg_SaturateToInt(std::int64_t v)
{
  return v > INT_MAX ? INT_MAX : v < INT_MIN ? INT_MIN : static_cast<int>(v);
}

// The low 32 bits as a two's-complement int: the wrap-around integer
// arithmetic some operators have always had.
inline int Ipg_WrapToInt(std::int64_t v)
{
  return static_cast<int>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(v)));
}

// v * v wrapped to 32 bits.
inline int Ipg_WrappedSquare(int v)
{
  return Ipg_WrapToInt(static_cast<std::int64_t>(v) * v);
}
