// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/internal/ipg_point_kernel.h"

#include <cstddef>
#include <vector>

// The walks of Otsu's binarisation: its levels divided into about 256 and
// counted, and the mask written at the chosen cut.

// Linear positions row * rows + col of a cols x rows walk that fall inside size.
template <typename F>
void Ipg_ForSquareIndex(unsigned cols, unsigned rows, std::size_t size, F visit)
{
  for (unsigned row = 0; row < rows; ++row)
    for (unsigned col = 0; col < cols; ++col) {
      const std::size_t k = static_cast<std::size_t>(row) * rows + col;
      if (k < size)
        visit(k, col, row);
    }
}

// Otsu walks its images with the row * rows + col index above. On a square image
// that is the plain row-major order, every pixel once, so rows can go to bands;
// on any other shape positions repeat or are missed and the walk stays serial.

// Every level of a square image (all within [mn, mx]) divided by divisor (> 0)
// toward zero and, when bins is not empty, counted at its quotient less
// bins' first level firstBin, in the same pass.
void Ipg_DivideAndCountSquare(int* pixels, unsigned side, int mn, int mx, int divisor, int firstBin,
                              std::vector<int>& bins);

// Counts of the levels mn..mn + bins.size() - 1 (a level outside [mn, mx] counts as 0).
void Ipg_CountOtsuLevels(const int* pixels, unsigned cols, unsigned rows, std::size_t size, int mn, int mx,
                         std::vector<int>& bins);

// out[k] := kIpgMaxGrey where the level is above cut inside the ROI, else 0, for
// k below outSize; returns the extremes written.
IPG_BAND_EXTREMES Ipg_WriteOtsuMask(const int* pixels, int* out, unsigned cols, unsigned rows, std::size_t outSize,
                                    long long cut, const DCM_STRUCT* roi);
