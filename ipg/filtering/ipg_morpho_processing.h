// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_operation_info.h"
#include "ipg/filtering/ipg_filter_virtual.h"
#include "ipg/filtering/ipg_morpho_scan.h"

class DCM_STRUCT;
class IPG_FILTER;

// Grey-level mathematical morphology: erosion, dilation, opening and closing by a
// structuring element, grey-level thinning and skeletonisation by hit-or-miss
// masks, and a local contrast enhancement.
//
// The structuring element is the defined kernel (default 200, the 3x3 square) or
// the user kernel; a position takes part when GetFilterValue reads it non-zero
// (with its square-kernel indexing, so a tall element keeps only the positions
// that indexing reaches: hosts built their elements for it).
// The image border type prepares the margin that the scan does not reach
// (0 or 1: 0; 3: 17000000; 2: the output as found).
//
// Codes: 1100 Dilate, 1101 Erode (default), 1102 Open, 1103 Close with the defined
// kernel; 1104 Erode, 1105 Dilate, 1106 Open, 1107 Close with the user kernel;
// 1108 Skeleton, 1109 Thinning, 1110 EnhancedImage.
//
// EnhancedImage is the local contrast enhancement of
//   A. Beghdadi, A. Le Negrate, "Contrast enhancement technique based on local
//   detection of edges", Computer Vision, Graphics, and Image Processing 46 (1989)
//   162-174 (after R. Gordon, R. M. Rangayyan, Applied Optics 23 (1984) 560-564),
// with the mid-grey image as the local background:
//   1. M = MidGreyOfImage(input): each pixel's mean diagonal neighbour.
//   2. For each pixel I, E = the mean of M over the WindowSize x WindowSize
//      window centred on it, clipped at the image edges (a size below 1 counts as 1).
//   3. Local contrast C = |I - E| / (I + E), in [0, 1].
//   4. C' = ApplyFunction(C, TypeFunction, ParamFct1, ParamFct2), clipped to
//      [0, 1 - 1e-7]; a function undefined at C (not a number) leaves C' = C.
//   5. Back to a grey level, keeping the pixel on its side of E:
//      I' = E (1 - C') / (1 + C') when I <= E, E (1 + C') / (1 - C') otherwise,
//      rounded to nearest and clipped to [0, 16777216].
// With C' = C the pixel is unchanged; a function above the identity near 0
// (type 3 with ParamFct2 < ParamFct1, or types 0 to 2 with ParamFct1 > 1) raises
// the contrast of faint edges, and a flat image (C = 0 everywhere) stays flat.
// Pixels above 16777216, pixels outside the ROI and pixels where the contrast is
// undefined (I < 0 or E <= 0) keep their input value.
class IPG_MORPHO_PROCESSING : public IPG_FILTER_VIRTUAL {
public:
  IPG_MORPHO_PROCESSING(DCM_STRUCT* in);
  IPG_MORPHO_PROCESSING(DCM_STRUCT* in, DCM_STRUCT* roi);
  // Builds the kernel layer only: Tools and the enhancement settings take their defaults.
  IPG_MORPHO_PROCESSING(const IPG_MORPHO_PROCESSING& source);

  // Defined kernel 200, Tools 1101, image border type 0.
  void SetDefaultParameters();
  int Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_MORPHO_PROCESSING>& ClassInfo();

  int Erode(IPG_FILTER* element);
  int Dilate(IPG_FILTER* element);
  int Open(IPG_FILTER* element);  // erosion, then dilation of the eroded image
  int Close(IPG_FILTER* element); // dilation, then erosion of the dilated image
  int Skeleton();                 // thinning passes until one changes at most 5 % of the pixels
  int Thinning();                 // one thinning pass (eight turns of the two masks)
  int EnhancedImage();

  // One thinning pass of image as a new image (the caller destroys it); null on failure.
  DCM_STRUCT* Thinning(DCM_STRUCT* image);
  // One hit-or-miss thinning of image by mask (0 background, 1 foreground,
  // 2 ignored) as a new image; null when image or mask is null, the mask
  // is empty or allocation fails.
  DCM_STRUCT* ThinningFunction(DCM_STRUCT* image, IPG_FILTER* mask);

  // Floor of the mean of each pixel's diagonal neighbours (a corner has one, an
  // edge pixel two, an inner pixel four; a pixel with none keeps its value), as
  // a new array that the caller releases with delete[]. Null for bad arguments.
  int* MidGreyOfImage(int* data, int rows, int cols);
  // 0: 1 - exp(-p1 d); 1: ln(p1 d + 1); 2: tanh(p1 d); 3: d^(p2 / p1) with a real
  // exponent (0 when p1 is 0); other types: 0.
  double ApplyFunction(double value, int type, int p1, int p2);

  void SetTypeFunction(int type) { TypeFunction = type; }
  void SetWindowSize(int size) { WindowSize = size; }
  void SetParamFct1(int p1) { ParamFct1 = p1; }
  void SetParamFct2(int p2) { ParamFct2 = p2; }
  int GetTypeFunction() const { return TypeFunction; }
  int GetWindowSize() const { return WindowSize; }
  int GetParamFct1() const { return ParamFct1; }
  int GetParamFct2() const { return ParamFct2; }

private:
  // One scan of in into the output (the second step of an opening or a
  // closing reads the first step's result).
  int RunScan(const DCM_STRUCT* in, IPG_FILTER* element, Ipg_MorphoKind kind);
  int RunTwoSteps(IPG_FILTER* element, Ipg_MorphoKind first, Ipg_MorphoKind second);
  int UserElementCode(int (IPG_MORPHO_PROCESSING::*operation)(IPG_FILTER*));

  // Defaults: the square root of the contrast over a 7x7 window.
  int TypeFunction = 3;
  int WindowSize = 7;
  int ParamFct1 = 2;
  int ParamFct2 = 1;
};
