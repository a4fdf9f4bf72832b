// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_glcm.h"

#include <cmath>
#include <cstddef>

bool Ipg_GlcmOffset(int angle, int distance, int& dcol, int& drow)
{
  switch (angle) {
  case 0: dcol = distance; drow = 0; return true;
  case 45: dcol = distance; drow = -distance; return true;
  case 90: dcol = 0; drow = -distance; return true;
  case 135: dcol = -distance; drow = -distance; return true;
  default: return false;
  }
}

int Ipg_GlcmQuantise(int value, int lowest, int highest, int levels)
{
  const double span = static_cast<double>(highest) - lowest + 1.0;
  const int level = static_cast<int>((static_cast<double>(value) - lowest) * levels / span);
  return level < 0 ? 0 : level >= levels ? levels - 1 : level;
}

Ipg_GlcmFeatures Ipg_GlcmFeaturesOf(const std::vector<double>& counts, int levels)
{
  Ipg_GlcmFeatures f;
  double total = 0.0;
  for (double c : counts)
    total += c;
  if (total <= 0.0)
    return f;
  double mui = 0.0, muj = 0.0;
  for (int i = 0; i < levels; ++i)
    for (int j = 0; j < levels; ++j) {
      const double p = counts[static_cast<std::size_t>(i) * levels + j] / total;
      mui += i * p;
      muj += j * p;
    }
  double vari = 0.0, varj = 0.0, covariance = 0.0;
  for (int i = 0; i < levels; ++i)
    for (int j = 0; j < levels; ++j) {
      const double p = counts[static_cast<std::size_t>(i) * levels + j] / total;
      if (p == 0.0)
        continue;
      const double d = static_cast<double>(i - j);
      f.Energy += p * p;
      f.Contrast += d * d * p;
      f.Homogeneity += p / (1.0 + d * d);
      f.Entropy -= p * std::log(p);
      vari += (i - mui) * (i - mui) * p;
      varj += (j - muj) * (j - muj) * p;
      covariance += (i - mui) * (j - muj) * p;
    }
  f.Correlation = vari > 0.0 && varj > 0.0 ? covariance / std::sqrt(vari * varj) : 1.0;
  return f;
}
