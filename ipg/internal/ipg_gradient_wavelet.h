// SPDX-License-Identifier: Apache-2.0
#pragma once

// Kernels of IPG_WAVELET's gradient transform on row-major float images
// (element r * cols + c), every neighbour read through the periodic index.

// a - n floor(a / n), in [0, n) (0 when n <= 0).
int Ipg_PeriodicIndex(int a, int n);

// d (cols x rows, zeroed by the caller) receives the finite difference of in:
// type 0 forward, 1 the 3 x 3 Sobel-type (scattered), 2 backward, 3 central;
// direction 0 along a row, 1 along a column. False for another type.
bool Ipg_WaveletDifference(float* d, const float* in, int cols, int rows, int type, int direction);

// out (cols x rows) = in smoothed by [1 2 1]/4 along rows, then along columns.
void Ipg_BinomialSmoothing(float* out, const float* in, int cols, int rows);
