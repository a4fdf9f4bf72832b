#pragma once

// Images with known fractal, multifractal, texture and histogram properties.

#include "dcm/dcm_struct.h"
#include "mth/mth_fft.h"

#include <cmath>
#include <functional>
#include <memory>
#include <random>
#include <vector>

// A cols x rows image whose pixel (col, row) is value(col, row), extremes recomputed.
inline std::unique_ptr<DCM_STRUCT> MakeImageOf(unsigned cols, unsigned rows,
                                               const std::function<int(unsigned, unsigned)>& value)
{
  auto image = std::make_unique<DCM_STRUCT>(cols, rows);
  int* pixels = image->Data->GetIDataAddress();
  for (unsigned row = 0; row < rows; ++row)
    for (unsigned col = 0; col < cols; ++col)
      pixels[static_cast<std::size_t>(row) * cols + col] = value(col, row);
  image->Data->SetMin();
  image->Data->SetMax();
  return image;
}

// Sierpinski carpet of 3^level pixels a side: 1 on the carpet, 0 in its holes.
// Dimension ln 8 / ln 3 = 1.8928.
inline std::unique_ptr<DCM_STRUCT> SierpinskiCarpet(int level)
{
  unsigned side = 1;
  for (int k = 0; k < level; ++k)
    side *= 3;
  return MakeImageOf(side, side, [](unsigned col, unsigned row) {
    for (; col > 0 || row > 0; col /= 3, row /= 3)
      if (col % 3 == 1 && row % 3 == 1)
        return 0;
    return 1;
  });
}

// Each pixel is 1 with the given probability, else 0.
inline std::unique_ptr<DCM_STRUCT> RandomDots(unsigned side, double density, unsigned seed)
{
  std::mt19937 generator(seed);
  return MakeImageOf(side, side, [&](unsigned, unsigned) {
    return generator() < density * 4294967296.0 ? 1 : 0;
  });
}

// Fractional Brownian surface of Hurst exponent h by spectral synthesis
// (Saupe, in "The Science of Fractal Images", 1988): amplitudes |f|^-(h + 1),
// random phases, inverse transform; grey levels 0..4095. Its surface dimension is 3 - h.
inline std::unique_ptr<DCM_STRUCT> FbmSurface(int side, double h, unsigned seed)
{
  std::mt19937 generator(seed);
  std::vector<MTH_COMPLEX> store(static_cast<std::size_t>(side) * side);
  std::vector<MTH_COMPLEX*> columns(side);
  for (int c = 0; c < side; ++c)
    columns[c] = store.data() + static_cast<std::size_t>(c) * side;
  const double pi = std::acos(-1.0);
  for (int u = 0; u < side; ++u)
    for (int v = 0; v < side; ++v) {
      const double fu = u <= side / 2 ? u : u - side;
      const double fv = v <= side / 2 ? v : v - side;
      const double f = std::sqrt(fu * fu + fv * fv);
      const double phase = 2.0 * pi * (generator() / 4294967296.0);
      const double amplitude = f > 0.0 ? std::pow(f, -(h + 1.0)) : 0.0;
      columns[u][v] = {amplitude * std::cos(phase), amplitude * std::sin(phase)};
    }
  Mth_FFT2D(columns.data(), side, side, -1);
  double lo = 1e300, hi = -1e300;
  for (const MTH_COMPLEX& z : store) {
    lo = std::min(lo, z.re);
    hi = std::max(hi, z.re);
  }
  return MakeImageOf(side, side, [&](unsigned col, unsigned row) {
    return static_cast<int>(std::lround((columns[col][row].re - lo) / (hi - lo) * 4095.0));
  });
}

// Binomial cascade on 2^levels pixels a side: at each level a square's mass
// goes p, 1 - p to its left, right halves and p, 1 - p to its upper, lower
// halves. Grey levels are the masses scaled so that the heaviest pixel is 2^24.
// D(q) = 2 log2(p^q + (1 - p)^q) / (1 - q).
inline std::unique_ptr<DCM_STRUCT> BinomialCascade(int levels, double p)
{
  const unsigned side = 1u << levels;
  auto weight = [&](unsigned k) {
    double w = 1.0;
    for (int bit = levels - 1; bit >= 0; --bit)
      w *= ((k >> bit) & 1u) ? 1.0 - p : p;
    return w;
  };
  const double top = std::pow(std::max(p, 1.0 - p), 2 * levels);
  return MakeImageOf(side, side, [&](unsigned col, unsigned row) {
    return static_cast<int>(std::lround(weight(col) * weight(row) / top * 16777216.0));
  });
}
