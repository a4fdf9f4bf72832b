// SPDX-License-Identifier: Apache-2.0
#pragma once

class DCM_STRUCT;

// Output post-processing shared by the operators that write an image.
// Mode 300 clamps grey levels to [0, 16777216] (16777217, the ROI value, passes),
// 301 re-scales to [0, 2^BitsStored], 303 takes absolute values; any other mode
// only recomputes the stored extremes. Shows the operator's message and returns
// false for a null image or a colour header.
bool Ipg_ApplyModeToImage(DCM_STRUCT* out, short mode);

struct IPG_BAND_EXTREMES;
// The same, for a kernel that has just written every pixel of out and seen
// their extremes: the modes that only re-measure take them instead of a pass.
bool Ipg_ApplyModeToImage(DCM_STRUCT* out, short mode, const IPG_BAND_EXTREMES& measured);

class DCM_DATA;
// SetMin() and SetMax() in one pass over the pixels (nothing for an empty image).
void Ipg_MeasureExtremes(DCM_DATA& data);

// Merges the extremes of cols values of a row into seen.
void Ipg_MeasureRow(const int* row, int cols, IPG_BAND_EXTREMES& seen);

// The same result when the rows [measuredBegin, measuredEnd) were measured into
// seen as they were written: only the other rows are read.
void Ipg_StoreExtremes(DCM_DATA& data, int measuredBegin, int measuredEnd, const IPG_BAND_EXTREMES& seen);
