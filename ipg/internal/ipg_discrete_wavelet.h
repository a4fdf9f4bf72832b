// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

// Two-channel wavelet filter banks and their passes on raw row-major images of
// doubles (element r * cols + c), periodic at every border.
//
// Decimated transform: S. Mallat, "A theory for multiresolution signal
// decomposition: the wavelet representation", IEEE PAMI 11(7), 1989; filters
// of I. Daubechies, "Ten Lectures on Wavelets", SIAM, 1992 (table 6.1) and the
// biorthogonal 9/7 pair of A. Cohen, I. Daubechies and J.-C. Feauveau,
// "Biorthogonal bases of compactly supported wavelets", CPAM 45(5), 1992.
// Undecimated frame: the algorithme à trous (M. Holschneider et al., 1989;
// M. J. Shensa, "The discrete wavelet transform: wedding the à trous and Mallat
// algorithms", IEEE TSP 40(10), 1992): the same filters with 2^j - 1 zeros
// between taps at level j, no decimation.
//
// Wavelet numbers (NameWavelet): 0 Haar, 1 Daubechies 4 taps (2 vanishing
// moments), 2 Daubechies 6 taps, 3 Daubechies 8 taps, 4 CDF 9/7 (analysis low
// pass of 9 taps, synthesis low pass of 7). Low passes sum to sqrt(2), so the
// orthogonal banks are orthonormal and white noise of deviation sigma keeps
// sigma in every detail band.
//
// Conventions, with x periodic of length N:
//   analysis   a[k] = sum_n lo[n] x[2k + n],  d[k] = sum_n hi[n] x[2k + n]
//   synthesis  x[m] = sum_k a[k] LO[m - 2k] + d[k] HI[m - 2k]
// The high passes follow from the low passes (hi[n] = (-1)^(n+1) LO[1 - n],
// HI[n] = (-1)^(n+1) lo[1 - n]), which cancels aliasing; the product of the two
// low passes is half-band, which makes the inverse exact for any even N. For
// Haar, d[k] = (x[2k + 1] - x[2k]) / sqrt(2).
//
// 2-D bands of one level: A low pass along rows and columns; H (horizontal
// details, horizontal edges) low pass along each row, high pass along each
// column; V (vertical details) high pass along rows, low pass along columns;
// D high pass along both.

inline constexpr int kIpgWaveletCount = 5;

// Taps of one filter, the first at index First.
struct IPG_WAVELET_FILTER {
  int First = 0;
  std::vector<double> Taps;
};

struct IPG_WAVELET_BANK {
  IPG_WAVELET_FILTER LowAnalysis, HighAnalysis, LowSynthesis, HighSynthesis;
};

// The bank of a wavelet number; false for a number outside 0..kIpgWaveletCount-1.
bool Ipg_WaveletBank(int name, IPG_WAVELET_BANK& bank);

// Decimated 2-D transform over `scales` levels, in place, in the quad layout:
// after level j the top-left (cols >> (j+1)) x (rows >> (j+1)) block holds A,
// the block on its right V, the one below H and the one diagonally D; the next
// level works on A. cols and rows must be multiples of 2^scales.
void Ipg_DwtForward(const IPG_WAVELET_BANK& bank, double* image, int cols, int rows, int scales);
// Its exact inverse, from the same layout.
void Ipg_DwtInverse(const IPG_WAVELET_BANK& bank, double* image, int cols, int rows, int scales);

// The four bands of one undecimated level, each cols x rows.
struct IPG_FRAME_BANDS {
  std::vector<double> Approximation, Horizontal, Vertical, Diagonal;
};

// Level `level` (0 the finest, filter taps 2^level apart) of the undecimated
// frame of in (cols x rows, any size).
void Ipg_SwtForwardLevel(const IPG_WAVELET_BANK& bank, const double* in, int cols, int rows, int level,
                         IPG_FRAME_BANDS& bands);
// The image of the level above rebuilt from the four bands of `level`:
// out = 1/4 of the sum of each band through its synthesis filters.
void Ipg_SwtInverseLevel(const IPG_WAVELET_BANK& bank, const IPG_FRAME_BANDS& bands, int cols, int rows, int level,
                         double* out);
