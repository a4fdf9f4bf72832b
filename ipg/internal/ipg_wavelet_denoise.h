// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/internal/ipg_discrete_wavelet.h"

#include <vector>

// Wavelet shrinkage on the undecimated frame of ipg_discrete_wavelet (every
// shift of the decimated transform at once, hence no block artefacts and no
// size constraint: R. R. Coifman and D. L. Donoho, "Translation-invariant
// de-noising", Wavelets and Statistics, Springer, 1995).
//
// The noise deviation is sigma = MAD / 0.6745 of the finest diagonal band
// (D. L. Donoho and I. M. Johnstone, "Ideal spatial adaptation by wavelet
// shrinkage", Biometrika 81(3), 1994); detail coefficients y are soft
// thresholded, y -> sign(y) max(|y| - T, 0), with
//   universal:  T = factor/2 x sigma sqrt(2 ln N), N the pixel count, in every band;
//   adaptive:   BayesShrink T = factor/2 x sigma^2 / sigma_x (S. G. Chang, B. Yu and
//               M. Vetterli, "Adaptive wavelet thresholding for image denoising
//               and compression", IEEE TIP 9(9), 2000), sigma_x^2 = max(m2 - sigma^2, 0)
//               where m2 is the mean of y^2 over the window x window square around
//               each coefficient (clipped at the borders), as in the spatially
//               adaptive form of the same authors (IEEE TIP 9(9), 2000, 1522-1531);
//               sigma_x = 0 sets the coefficient to 0.
// The approximation of the coarsest level is kept.
//
// Log transform (homomorphic filtering of multiplicative speckle, after
// Arsenault and April, JOSA 66(11), 1976): the image goes through ln(1 + v)
// (negative values taken as 0), is denoised there and comes back through
// exp(u) - 1, then is scaled so that its mean is the input's mean again (the
// logarithm of speckle is biased low, so the mean would otherwise drop).
struct IPG_DENOISE_SETTINGS {
  int Scales = 2;
  double Factor = 2.0;
  bool Adaptive = false;
  int Window = 5;
  bool LogTransform = false;
};

// Denoises image (cols x rows, row-major) in place; returns sigma, measured
// in the log domain when LogTransform is set.
double Ipg_WaveletDenoise(const IPG_WAVELET_BANK& bank, std::vector<double>& image, int cols, int rows,
                          const IPG_DENOISE_SETTINGS& settings);
