// SPDX-License-Identifier: Apache-2.0
#include "mth/mth_random.h"

#include <array>
#include <cstdint>

namespace {

struct MinimalStandard {
  static constexpr std::int64_t IA = 16807, IM = 2147483647, IQ = 127773, IR = 2836;
  static constexpr int NTAB = 32;
  std::int64_t state = 1;
  std::int64_t last = 0;
  std::array<std::int64_t, NTAB> table{};

  std::int64_t Step()
  {
    const std::int64_t k = state / IQ;
    state = IA * (state - k * IQ) - IR * k;
    if (state < 0)
      state += IM;
    return state;
  }
  void Seed(int seed)
  {
    state = seed <= 0 ? 1 : seed;
    for (int j = NTAB + 7; j >= 0; --j) {
      Step();
      if (j < NTAB)
        table[static_cast<std::size_t>(j)] = state;
    }
    last = table[0];
  }
  double Next()
  {
    Step();
    const int j = static_cast<int>(last / (1 + (IM - 1) / NTAB));
    last = table[static_cast<std::size_t>(j)];
    table[static_cast<std::size_t>(j)] = state;
    const double r = static_cast<double>(last) / static_cast<double>(IM);
    return r < 1.0 - 1.2e-7 ? r : 1.0 - 1.2e-7;
  }
};

struct Subtractive {
  static constexpr std::int64_t MBIG = 1000000000, MSEED = 161803398;
  std::array<std::int64_t, 56> ma{};
  int inext = 0, inextp = 31;

  void Seed(int seed)
  {
    std::int64_t mj = MSEED - (seed <= 0 ? 1 : seed);
    mj %= MBIG;
    ma[55] = mj;
    std::int64_t mk = 1;
    for (int i = 1; i <= 54; ++i) {
      const int ii = (21 * i) % 55;
      ma[static_cast<std::size_t>(ii)] = mk;
      mk = mj - mk;
      if (mk < 0)
        mk += MBIG;
      mj = ma[static_cast<std::size_t>(ii)];
    }
    for (int k = 1; k <= 4; ++k)
      for (int i = 1; i <= 55; ++i) {
        ma[static_cast<std::size_t>(i)] -= ma[static_cast<std::size_t>(1 + (i + 30) % 55)];
        if (ma[static_cast<std::size_t>(i)] < 0)
          ma[static_cast<std::size_t>(i)] += MBIG;
      }
    inext = 0;
    inextp = 31;
  }
  double Next()
  {
    if (++inext == 56)
      inext = 1;
    if (++inextp == 56)
      inextp = 1;
    std::int64_t mj = ma[static_cast<std::size_t>(inext)] - ma[static_cast<std::size_t>(inextp)];
    if (mj < 0)
      mj += MBIG;
    ma[static_cast<std::size_t>(inext)] = mj;
    return static_cast<double>(mj) / static_cast<double>(MBIG);
  }
};

MinimalStandard& Generator1()
{
  static MinimalStandard g = [] { MinimalStandard s; s.Seed(1); return s; }();
  return g;
}
Subtractive& Generator3()
{
  static Subtractive g = [] { Subtractive s; s.Seed(1); return s; }();
  return g;
}

double Scaled(double unit, short scale)
{
  return unit * (scale > 0 ? scale : 1);
}

} // namespace

void Mth_InitRandom1(short seed) { Generator1().Seed(seed); }
void Mth_InitRandom3(short seed) { Generator3().Seed(seed); }
double Mth_Random1(short scale) { return Scaled(Generator1().Next(), scale); }
double Mth_Random3(short scale) { return Scaled(Generator3().Next(), scale); }
