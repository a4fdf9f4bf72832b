// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

class DCM_STRUCT;

// The grey-level erosion / dilation scan of the morphology operator, as free
// functions so that the plain scan and its fast path can be run side by side.
//
// A neighbour takes part when it is a grey level (<= 16777216) or the set value
// of binary images (16777217, which thus counts as the highest level), and, with
// a ROI image, only where the ROI holds 16777217. Ipg_MorphoPrepare replaces the
// other pixels by a neutral value that can never win (INT_MAX for an erosion,
// INT_MIN for a dilation), so both scans reduce to a plain minimum / maximum.

enum class Ipg_MorphoKind { Erosion, Dilation };

// Neighbour values as the scan sees them, cols x rows, row-major.
struct Ipg_MorphoField {
  std::vector<int> Values;
  int Cols = 0;
  int Rows = 0;
};

// The field of `in` for that kind; roi may be null (whole image). A ROI image of
// another size counts as outside where it has no pixel.
Ipg_MorphoField Ipg_MorphoPrepare(const DCM_STRUCT& in, const DCM_STRUCT* roi, Ipg_MorphoKind kind);

// Plain scan. For each pixel at least half an element from the edge (rows
// sizeY/2 ... rows - sizeY/2 - 1, columns likewise), out = the minimum (erosion)
// or maximum (dilation) of `init` and of the field under the element's non-zero
// positions; the element is sizeX x sizeY flags, row-major, centred on the pixel.
// Both sizes must be odd and positive. out holds Cols x Rows values; the pixels
// nearer the edge keep what they held.
void Ipg_MorphoScanPlain(const Ipg_MorphoField& field, const std::vector<unsigned char>& element, int sizeX,
                         int sizeY, Ipg_MorphoKind kind, int init, int* out);

// The same pixels as Ipg_MorphoScanPlain for a full sizeX x sizeY rectangle
// (every flag set), in a constant number of comparisons per pixel whatever the
// element size: the separable running minimum / maximum of
//   M. van Herk, "A fast algorithm for local minimum and maximum filters on
//   rectangular and octagonal kernels", Pattern Recognition Letters 13 (1992) 517-521;
//   J. Gil, M. Werman, "Computing 2-D min, median, and max filters", IEEE PAMI 15
//   (1993) 504-507.
// Each line is cut into blocks of the window length; a window then spans at most
// two blocks and its extreme is that of a block suffix and the next block prefix.
void Ipg_MorphoScanRectangle(const Ipg_MorphoField& field, int sizeX, int sizeY, Ipg_MorphoKind kind, int init,
                             int* out);

// True when every flag of the element is set (the fast path applies).
bool Ipg_MorphoIsFullRectangle(const std::vector<unsigned char>& element);
