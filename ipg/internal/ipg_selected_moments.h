// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

struct IPG_SELECTED_STATS;

// Count, extremes, mean and population variance of the selected pixels of a
// row-major image (grey levels, inside the ROI array when there is one; past
// its end nothing is selected), as the basic statistics define them: the mean
// from the sum of the pixels (exact in bands, or added pixel after pixel), the
// variance from the exact integer sums of the levels and of their squares
// (divided once), or, for levels beyond 2^53 in total, summed as (p - mean)^2
// pixel after pixel. Raw values, no precision scaling. False when nothing is
// selected.
struct IPG_SELECTED_MOMENTS {
  int Count = 0; // as an int: the divisor of the mean and the variance
  int Min = 0;
  int Max = 0;
  double Mean = 0.0;
  double Variance = 0.0;
};
bool Ipg_SelectedMoments(const int* pixels, std::size_t size, unsigned cols, const int* roi, std::size_t roiSize,
                         IPG_SELECTED_MOMENTS& moments);

// The same moments from stats whose sums are exact (SquaresExact); false when
// they are not or nothing is selected.
bool Ipg_MomentsOfExactStats(const IPG_SELECTED_STATS& stats, IPG_SELECTED_MOMENTS& moments);
