// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_spectrum_phase.h"

#include "ipg/internal/ipg_pixel_conversion.h"

#include <cmath>

namespace {

constexpr long double kPi = 3.141592653589793238462643383279502884L;

// Far beyond the two computations' difference: the double quotient of the two
// parts is within 2^-53 of the exact one, the arctangent and the scaling add a
// few units in the last place, and a result is at most 900 tenths.
constexpr double kUndecided = 1e-6;

int ExtendedPhaseTenths(int realTenths, int imaginaryTenths, bool degrees)
{
  const long double x = realTenths * 0.1L;
  const long double y = imaginaryTenths * 0.1L;
  const long double angle = realTenths == 0 ? std::atan(0.0L) : std::atan(y / x);
  return degrees ? Ipg_TruncateTowardZero(angle * 180 * (1 / kPi) * 10) : Ipg_TruncateTowardZero(angle * 10);
}

} // namespace

int Ipg_PhaseTenths(int realTenths, int imaginaryTenths, bool degrees)
{
  if (realTenths == 0)
    return 0;
  const double angle = std::atan(static_cast<double>(imaginaryTenths) / static_cast<double>(realTenths));
  const double tenths = degrees ? angle * (1800 / static_cast<double>(kPi)) : angle * 10;
  if (std::abs(tenths - std::nearbyint(tenths)) > kUndecided)
    return static_cast<int>(tenths); // within +-900: the cast truncates toward zero
  return ExtendedPhaseTenths(realTenths, imaginaryTenths, degrees);
}
