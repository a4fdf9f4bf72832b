// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/internal/ipg_snake_kernels.h"
#include "mth/mth_2d_double.h"

#include <string>
#include <vector>

class DCM_STRUCT;
class OBJ_OBJECT;

// Contours of the deformable-contour operators in and out of the image
// library's objects.

// The image checks of both operators: an input and an output of the same
// size, a ROI of that size if any, at least 3 x 3 pixels. Otherwise the
// message (from className::Apply(), or where for the size) and false.
bool Ipg_ContourImagesValid(const DCM_STRUCT* in, const DCM_STRUCT* out, const DCM_STRUCT* roi,
                            const std::string& className, const std::string& where);

// The points of an object as a contour.
IPG_CONTOUR Ipg_ContourOf(const OBJ_OBJECT& object);
std::vector<MTH_2D_DOUBLE> Ipg_PointsOf(const IPG_CONTOUR& contour);

// Appends to image's object list a contour object like those of the mask
// tracing (the library's default colours), named `name`.
void Ipg_AddContourObject(DCM_STRUCT* image, const IPG_CONTOUR& contour, const std::string& name);

// out's pixels become the binary image of the closed contour: 16777217 on the
// pixels whose centre lies inside or on it, 0 elsewhere (the rule of the
// object list's binary images); the extremes are recomputed.
void Ipg_FillContourMask(const IPG_CONTOUR& contour, DCM_STRUCT* out);
