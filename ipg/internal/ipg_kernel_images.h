// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/internal/ipg_pixel_conversion.h"

#include <cstddef>

class DCM_STRUCT;

// The rows of a ROI image (Cols x Rows), null pixels without one; a pixel is
// inside when it holds exactly 16777217, and a pixel beyond the ROI image is
// outside.
struct Ipg_RoiRows {
  const int* Pixels = nullptr;
  int Cols = 0;
  int Rows = 0;

  bool Inside(int col, int row) const;
};

// What a filtering kernel reads and writes, as raw rows: the kernels know no
// operator class, so the same loops can later be split by rows or vectorised.
//
// In: Cols x Rows pixels, row-major, stride Cols. Out: OutSize pixels at the
// same linear positions; an output narrower in one dimension is written as far
// as it goes (hosts pass strips of the input's width). The in-place filters
// pass the same buffer as In and Out.
struct Ipg_KernelImages {
  const int* In = nullptr;
  int* Out = nullptr;
  std::size_t OutSize = 0;
  int Cols = 0;
  int Rows = 0;
  Ipg_RoiRows Roi;

  std::size_t At(int col, int row) const { return static_cast<std::size_t>(row) * Cols + col; }
  bool InsideRoi(int col, int row) const { return Roi.Inside(col, row); }
  void Write(std::size_t idx, int value) const
  {
    if (idx < OutSize)
      Out[idx] = value;
  }
};

// The rows [Begin, End) a kernel call covers.
struct Ipg_RowSpan {
  int Begin = 0;
  int End = 0;
};

// Raw rows of in, out and roi (roi may be null; out may be null, then nothing is written).
Ipg_KernelImages Ipg_KernelImagesOf(const DCM_STRUCT* in, DCM_STRUCT* out, const DCM_STRUCT* roi);
Ipg_RoiRows Ipg_RoiRowsOf(const DCM_STRUCT* roi);

// Glue shared by the filtering methods around their kernels.
// Copies as much of from's pixels as fits into to, at the same linear positions.
void Ipg_CopyPixelsInto(const int* from, std::size_t fromSize, DCM_STRUCT* to);
// The pass count of IPG_FILTER_PROCESSING's iterative filters: more than
// kIpgMaxPasses is refused with the parameter message.
bool Ipg_FilterPassesInRange(int passes);
