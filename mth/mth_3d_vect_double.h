// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mth/mth_3d_double.h"

// A direction of patient space (direction cosines of an image axis).
class MTH_3D_VECT_DOUBLE : public MTH_3D_DOUBLE {
public:
  MTH_3D_VECT_DOUBLE() = default;
  MTH_3D_VECT_DOUBLE(double x, double y, double z) : MTH_3D_DOUBLE(x, y, z) {}
  ~MTH_3D_VECT_DOUBLE() = default;
};
