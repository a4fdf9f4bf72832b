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
struct IPG_SELECTED_STATS {
  int Min = 0;           // valid when Count > 0
  int Max = 0;
  std::int64_t Count = 0;
  double Sum = 0.0;      // valid when SumExact
  bool SumExact = true;
};
IPG_SELECTED_STATS Ipg_SelectedStats(const int* pixels, std::size_t size, unsigned cols, const int* roi,
                                     std::size_t roiSize);

// Sum of s^2 and of (v - s)^2 over the pixels the noise measures take: v from in
// and s from smoothed (same size); without a ROI the interior (a one-pixel frame
// left out), with one every pixel inside it; marks of in are skipped. False when
// the sums are not exact as integers (see above).
bool Ipg_ExactNoiseSums(const DCM_DATA& in, const DCM_DATA& smoothed, const DCM_STRUCT* roi, double& signal,
                        double& noise);

// Sum of (a - b)^2 over the pixels where neither a nor b is a mark and the ROI
// (if any) holds its mark, of two cols x rows row-major images. False when the
// sum is not exact as an integer (see above).
bool Ipg_ExactSquaredDistance(const int* a, const int* b, unsigned cols, unsigned rows, const DCM_STRUCT* roi,
                              double& sum);
