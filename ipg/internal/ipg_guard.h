// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/internal/ipg_messages.h"

#include <string>

class DCM_STRUCT;

// Checks shared by the operators before they size a buffer or a loop from a
// parameter or an image. Each failing check shows its message through
// Ipg_Inform and returns false, so an operator writes
//   if (!Ipg_RoiFitsImage(ImaIn, Roi, "IPG_ARITHMETIC1")) return false;

// Passes count of the iterative filters: more is refused. Far above any useful
// despeckling or smoothing chain, low enough that a run stays bounded.
inline constexpr int kIpgMaxPasses = 10000;

// True without a ROI (or without an input); otherwise the ROI must have the
// input's columns and rows, else the ROI message and false.
bool Ipg_RoiFitsImage(const DCM_STRUCT* in, const DCM_STRUCT* roi, const std::string& className);

// valid, or the parameter message and false.
bool Ipg_ParameterInRange(bool valid, const std::string& parameter, const std::string& className);

// Whether (col, row) lies on the image (false without one).
bool Ipg_PointOnImage(const DCM_STRUCT* image, long long col, long long row);

// True when the host asked the running operation to stop; shows the
// cancellation message then, so the caller only returns false.
bool Ipg_StopRequested();
