// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/internal/ipg_messages.h" // the measures' messages

#include <string>
#include <vector>

class DCM_STRUCT;

// What the fractal and multifractal measures share: the pixels they see, laid
// on a grid that boxes of every chosen side tile exactly, and the log-log fit.
//
// A pixel is seen when its grey level is at most 16777216 and, with a ROI
// image, its ROI value is exactly 16777217. Padding pixels are never seen.
// The log-log fit is Mth_FitLine (mth/mth_regression.h).

// The fewest box sides a fit is made on.
inline constexpr int kIpgMinBoxSizes = 4;

struct Ipg_ScalingGrid {
  int Cols = 0; // grid size: the image's, plus padding on the right and bottom
  int Rows = 0;
  int ImageCols = 0;
  int ImageRows = 0;
  std::vector<int> Values;             // row-major, 0 where not seen
  std::vector<unsigned char> Selected; // 1 where seen
  long long SelectedCount = 0;
  std::vector<int> BoxSizes; // the sides that tile the grid, increasing
};

// The common divisors of cols and rows within [smallest, largest], increasing.
std::vector<int> Ipg_CommonDivisors(int cols, int rows, int smallest, int largest);

// Box sides for an image of cols x rows and boxes of `smallest` to `largest`
// pixels. When the sides have at least kIpgMinBoxSizes common divisors in that
// range they are the box sides and the grid is the image. Otherwise the grid
// is padded on the right and bottom to the next multiples of P, the largest
// power of two not above `largest`, and the box sides are the common divisors
// of the padded sides in the range (all powers of two up to P among them).
// False when even that leaves fewer than kIpgMinBoxSizes sides.
bool Ipg_TileSizes(int cols, int rows, int smallest, int largest, int& gridCols, int& gridRows,
                   std::vector<int>& sizes);

// Checks the input and the largest box side, then builds the grid. On failure
// the message names `where` ("IPG_STATISTIC1::FractalDimensionByBoxMethod()")
// and the result is false: no input, a ROI of another size, an image under 2
// pixels a side, a largest side below `smallest` or above the image's smaller
// side, too few box sides, or no pixel seen.
bool Ipg_MakeScalingGrid(const DCM_STRUCT* in, const DCM_STRUCT* roi, int largestBox, int smallestBox,
                         const std::string& where, Ipg_ScalingGrid& grid);
