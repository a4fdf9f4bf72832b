// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

class DCM_DATA;
class DCM_STRUCT;

// Sums that the measures define as doubles added up pixel after pixel, computed
// instead as integers in parallel row bands. While every term and every running
// total stay below 2^53 each of those double additions is exact, so the integer
// total is the very number the pixel-by-pixel loop gives. Beyond that the
// functions report "not exact" and the caller runs its own serial loop.

// Selected pixels (grey levels, inside the ROI array when there is one; past the
// ROI array's end nothing is selected) of a row-major image.
__extension__ typedef unsigned __int128 Ipg_UInt128;
__extension__ typedef __int128 Ipg_Int128;

struct IPG_SELECTED_STATS {
  int Min = 0;           // valid when Count > 0
  int Max = 0;
  std::int64_t Count = 0;
  double Sum = 0.0;      // valid when SumExact
  bool SumExact = true;
  Ipg_UInt128 SumOfSquares = 0; // the exact sum of the squared levels, valid when SquaresExact
  bool SquaresExact = false;     // only when asked for
};
IPG_SELECTED_STATS Ipg_SelectedStats(const int* pixels, std::size_t size, unsigned cols, const int* roi,
                                     std::size_t roiSize, bool withSquares = false);

// Sum of s^2 and of (v - s)^2 over the pixels the noise measures take: v from in
// and s from smoothed (same size); without a ROI the interior (a one-pixel frame
// left out), with one every pixel inside it; marks of in are skipped. False when
// the sums are not exact as integers (see above).
bool Ipg_ExactNoiseSums(const DCM_DATA& in, const DCM_DATA& smoothed, const DCM_STRUCT* roi, double& signal,
                        double& noise);

// The same sums without a ROI and without a smoothed image: s is the 3x3 box
// mean of the convolution (the integer sum of the nine neighbours over nine in
// single precision, truncated toward zero), computed row by row. False when the
// image is smaller than 3x3 or holds a mark or a level whose box sum is not exact
// in single precision (the caller then smooths the image and sums as above).
// With levels, also gives the Ipg_SelectedStats() of the whole image, from the
// same walk.
bool Ipg_BoxNoiseSums(const DCM_DATA& in, double& signal, double& noise, IPG_SELECTED_STATS* levels = nullptr);

// Sum of (a - b)^2 over the pixels where neither a nor b is a mark and the ROI
// (if any) holds its mark, of two cols x rows row-major images. False when the
// sum is not exact as an integer (see above).
bool Ipg_ExactSquaredDistance(const int* a, const int* b, unsigned cols, unsigned rows, const DCM_STRUCT* roi,
                              double& sum);
