// SPDX-License-Identifier: Apache-2.0
#pragma once

// The reserved pixel values. Grey levels run up to kIpgMaxGrey; anything above
// is a mark an operator leaves alone. The public names (kIpgRoiValue, ...) stay
// in ipg/framework/ipg_output_mode.h for hosts; the values are written there once.
#include "ipg/framework/ipg_output_mode.h"

// Set pixels of ROI and binary images (16777217).
inline constexpr int kIpgMaskValue = kIpgRoiValue;

static_assert(kIpgMaxGrey == 16777216 && kIpgMaskValue == 16777217 && kIpgMarginValue == 17000000);
