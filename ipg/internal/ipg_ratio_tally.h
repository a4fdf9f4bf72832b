// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

// The ratios variance / mean^power of the windows of an image, tallied against
// a range [Low, High] a row at a time, for the median of Ipg_MedianLocalRatio.
//
// The ratio of a window is the one Ipg_WindowTables::RowMoments and a division
// give: mean = sum / count, variance = max(0, squares / count - mean^2), ratio
// = variance / mean^power, none when the mean is not positive. Most ratios lie
// well below or above the range, and need not be computed: products by the
// reciprocal of the count place them, with a margin of 1e-9 against errors
// below 1e-14 of their size, so that no ratio is placed where its division
// would not put it. The others, and the windows clipped by the image's sides,
// take the divisions.

struct Ipg_RatioRange {
  double Low = 0.0;
  double High = 0.0;
};

// What the rows tallied so far hold: the ratios below Low, at Low, strictly
// between Low and High (listed), at High, and all of them.
struct Ipg_RatioTally {
  std::size_t Below = 0;
  std::size_t AtLow = 0;
  std::vector<double> Inside;
  std::size_t AtHigh = 0;
  std::size_t Seen = 0;
  bool Unordered = false; // a ratio the bit patterns do not order (a NaN)
  std::vector<unsigned char> Unsure; // scratch: the windows a row leaves to the divisions
};

class Ipg_WindowTables;

// Adds the ratios of the windows of half size around the pixels of one row of
// a cols-wide image, read from its window tables, power 1 or 2.
void Ipg_TallyRowRatios(Ipg_WindowTables& tables, int row, int cols, int half, int power, Ipg_RatioRange range,
                        Ipg_RatioTally& tally);

// The rank-th smallest of the values in lists, all strictly within range
// (the tallies' Inside lists): the same value as a selection over the lists
// joined. The lists are counted by buckets of the range in parallel, and only
// the bucket holding the rank is listed and selected among.
double Ipg_SelectListedRatio(const std::vector<const std::vector<double>*>& lists, Ipg_RatioRange range,
                             std::size_t rank);
