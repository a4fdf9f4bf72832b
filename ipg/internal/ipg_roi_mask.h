// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_pixel_values.h"

#include <cstddef>

// The ROI and mark tests of the operators. Two meanings of "inside" coexist on
// purpose: most operators take a ROI pixel as inside only when it holds exactly
// kIpgMaskValue, while a few (IPG_CHANGE_DYNAMIC, the region seeds, IPG_ROI's
// mask type) take any non-zero pixel; hosts built their masks for each.

// A grey level (at most kIpgMaxGrey), as opposed to a mark.
inline bool Ipg_IsGreyLevel(int value) { return value <= kIpgMaxGrey; }
// A mark (above kIpgMaxGrey): operators copy it through unchanged.
inline bool Ipg_IsMark(int value) { return value > kIpgMaxGrey; }

// A ROI pixel value inside the ROI: exactly kIpgMaskValue.
inline bool Ipg_InsideRoi(int roiValue) { return roiValue == kIpgMaskValue; }
// A mask pixel value inside the mask: any non-zero value.
inline bool Ipg_InsideAnyNonZeroMask(int maskValue) { return maskValue != 0; }

// (col, row) inside roi (exactly kIpgMaskValue); everything is inside without a ROI.
inline bool Ipg_InsideRoi(const DCM_STRUCT* roi, unsigned col, unsigned row)
{
  return roi == nullptr || Ipg_InsideRoi(roi->Data->GetValue(col, row));
}

// (col, row) inside mask (any non-zero value); everything is inside without a mask.
inline bool Ipg_InsideAnyNonZeroMask(const DCM_STRUCT* mask, unsigned col, unsigned row)
{
  return mask == nullptr || Ipg_InsideAnyNonZeroMask(mask->Data->GetValue(col, row));
}

// Pixel k of raw ROI rows inside the ROI; everything is inside without them.
inline bool Ipg_InsideRoi(const int* roi, std::size_t k) { return roi == nullptr || Ipg_InsideRoi(roi[k]); }

// The pixels a measure counts: grey levels inside the ROI (exactly kIpgMaskValue).
inline bool Ipg_CountedPixel(int value, const int* roi, std::size_t k)
{
  return Ipg_IsGreyLevel(value) && Ipg_InsideRoi(roi, k);
}
inline bool Ipg_CountedPixel(const DCM_STRUCT* in, const DCM_STRUCT* roi, unsigned col, unsigned row)
{
  return Ipg_IsGreyLevel(in->Data->GetValue(col, row)) && Ipg_InsideRoi(roi, col, row);
}
