// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

// Grey-level co-occurrence matrix and Haralick features (Haralick, Shanmugam &
// Dinstein, "Textural features for image classification", IEEE Trans. SMC
// 3(6), 1973), shared by the texture operators.

// Displacement of an angle (0, 45, 90 or 135 degrees) at distance d, in
// Haralick's convention: 0 to the right, 45 up and to the right, 90 up,
// 135 up and to the left. False for any other angle.
bool Ipg_GlcmOffset(int angle, int distance, int& dcol, int& drow);

// Grey levels quantised to `levels` classes of equal width over [lowest,
// highest]: class = floor((v - lowest) * levels / (highest - lowest + 1)).
int Ipg_GlcmQuantise(int value, int lowest, int highest, int levels);

// Features of a co-occurrence count matrix (levels x levels, row i = first
// pixel's class); the counts are normalised to probabilities p(i, j) here.
//   energy      sum p^2 (angular second moment)
//   contrast    sum (i - j)^2 p
//   correlation sum (i - mu_i)(j - mu_j) p / (sigma_i sigma_j); 1 when a
//               sigma is 0 (a constant texture is perfectly correlated)
//   homogeneity sum p / (1 + (i - j)^2) (inverse difference moment)
//   entropy     -sum p ln p
struct Ipg_GlcmFeatures {
  double Energy = 0.0;
  double Contrast = 0.0;
  double Correlation = 0.0;
  double Homogeneity = 0.0;
  double Entropy = 0.0;
};
Ipg_GlcmFeatures Ipg_GlcmFeaturesOf(const std::vector<double>& counts, int levels);
