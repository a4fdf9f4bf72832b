// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_spectrum_phase.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <random>
#include <utility>
#include <vector>

namespace {

// The phase as the spectra define it, in extended precision.
int ExtendedPhase(int realTenths, int imaginaryTenths, bool degrees)
{
  constexpr long double kPi = 3.141592653589793238462643383279502884L;
  const long double x = realTenths * 0.1L, y = imaginaryTenths * 0.1L;
  const long double angle = realTenths == 0 ? std::atan(0.0L) : std::atan(y / x);
  const long double tenths = degrees ? angle * 180 * (1 / kPi) * 10 : angle * 10;
  return static_cast<int>(tenths);
}

// The nearest part to v that leaves room for a nudge of one either way.
int PartNear(double v)
{
  return static_cast<int>(std::fmin(std::fmax(std::round(v), INT_MIN + 1.0), INT_MAX - 1.0));
}

void ExpectExtended(int re, int im)
{
  for (bool degrees : {true, false})
    ASSERT_EQ(Ipg_PhaseTenths(re, im, degrees), ExtendedPhase(re, im, degrees))
        << re << " + " << im << "i, " << (degrees ? "degrees" : "radians");
}

// The continued-fraction convergents p / q of t with q below 2^31: the
// integer pairs whose quotient comes nearest to t.
std::vector<std::pair<int, int>> Convergents(long double t)
{
  std::vector<std::pair<int, int>> result;
  long long p0 = 1, q0 = 0, p1 = static_cast<long long>(std::floor(t)), q1 = 1;
  long double rest = t - std::floor(t);
  while (rest > 1e-18L && std::fabs(static_cast<long double>(p1)) < INT_MAX) {
    rest = 1 / rest;
    const long long a = static_cast<long long>(std::floor(rest));
    rest -= a;
    const long long p2 = a * p1 + p0, q2 = a * q1 + q0;
    if (q2 >= INT_MAX || std::llabs(p2) >= INT_MAX)
      break;
    result.emplace_back(static_cast<int>(p2), static_cast<int>(q2));
    p0 = p1, q0 = q1, p1 = p2, q1 = q2;
  }
  return result;
}

} // namespace

// Small parts (every pair of -300..300: equal and opposite parts, zeros),
// the extremes of the stored range, random large parts, and parts whose
// phase lies on or next to a whole tenth, where truncation is decided by
// the last bits.
TEST(SpectrumPhase, TenthsAreThoseOfTheExtendedComputation)
{
  for (int re = -300; re <= 300; ++re)
    for (int im = -300; im <= 300; ++im)
      ExpectExtended(re, im);
  for (int re : {INT_MIN, INT_MIN + 1, -1, 1, INT_MAX})
    for (int im : {INT_MIN, -7, 0, 7, INT_MAX})
      ExpectExtended(re, im);
  std::mt19937 random(5);
  std::uniform_int_distribution<int> any(INT_MIN, INT_MAX);
  for (int k = 0; k < 20000; ++k)
    ExpectExtended(any(random), any(random));
  // Pairs whose phase lies within a few 1e-16 of a whole tenth: double
  // precision alone cannot tell on which side.
  const long double kPiLong = 3.141592653589793238462643383279502884L;
  for (int tenth = 1; tenth <= 899; ++tenth)
    for (const auto& [p, q] : Convergents(std::tan(tenth * kPiLong / 1800)))
      for (int sign : {1, -1}) {
        ExpectExtended(q, sign * p);
        ExpectExtended(-q, sign * p);
      }
  const double kPiDouble = std::acos(-1.0);
  for (int tenth = -899; tenth <= 899; ++tenth)
    for (int re : {1000, 999983, 123456789})
      for (int nudge : {-1, 0, 1}) {
        ExpectExtended(re, PartNear(re * std::tan(tenth * kPiDouble / 1800)) + nudge);
        if (std::abs(tenth) <= 15) // radians: within the arctangent's range
          ExpectExtended(re, PartNear(re * std::tan(tenth / 10.0)) + nudge);
      }
}
