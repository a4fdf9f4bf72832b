// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/filtering/ipg_morpho_scan.h"
#include "ipg/internal/ipg_pixel_values.h"

struct IPG_BAND_EXTREMES;

// A pixel value that takes part in the scan: a grey level or the set value of
// binary images.
inline bool Ipg_MorphoTakesPart(int v) { return v <= kIpgMaxGrey || v == kIpgMaskValue; }

// The erosion / dilation scan of any structuring element, with the pixels of
// Ipg_MorphoScanPlain, by decomposing the element into horizontal runs:
// each element row is a union of runs of set flags, and the extreme over a run
// of length L is that of two overlapping runs of the largest power of two
// a <= L, taken from a table of running extremes over lengths 1, 2, 4 ... built
// by doubling (the sparse-table decomposition of
//   J. Gil, R. Kimmel, "Efficient dilation, erosion, opening, and closing
//   algorithms", IEEE PAMI 24 (2002) 1606-1617, section 3).
// A pixel then costs two comparisons per element row, whole rows at a time so
// that they vectorise; rows run in parallel bands. Minima and maxima are
// exact, so the grouping changes no value.
// Reads in (and roi) directly, a few rows at a time: the pixels are those of
// Ipg_MorphoScanPlain on Ipg_MorphoPrepare(in, roi, kind), written into out
// (in's geometry), whose pixels nearer the edge keep what they held. With seen,
// each whole row of out from sizeY / 2 to rows - sizeY / 2 is measured right
// after it is written. False when the image is smaller than the element
// (nothing is written or measured).
bool Ipg_MorphoScanRuns(const DCM_STRUCT& in, const DCM_STRUCT* roi, const std::vector<unsigned char>& element,
                        int sizeX, int sizeY, Ipg_MorphoKind kind, int init, int* out,
                        IPG_BAND_EXTREMES* seen = nullptr);
