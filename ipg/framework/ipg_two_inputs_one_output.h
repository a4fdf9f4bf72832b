// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_two_inputs_no_output.h"

// Two input images, one caller-allocated output image.
class IPG_TWO_INPUTS_ONE_OUTPUT : public IPG_TWO_INPUTS_NO_OUTPUT {
public:
  IPG_TWO_INPUTS_ONE_OUTPUT() = default;
  // Copies only ImaOut; everything else takes its default.
  IPG_TWO_INPUTS_ONE_OUTPUT(const IPG_TWO_INPUTS_ONE_OUTPUT& source);

  DCM_STRUCT* GetImaOut() const { return ImaOut; }
  void SetImaOut(DCM_STRUCT* image) { ImaOut = image; }

  // The same post-processing as IPG_ONE_INPUT_ONE_OUTPUT::ApplyModeToOutImage.
  bool ApplyModeToOutImage();

protected:
  DCM_STRUCT* ImaOut = nullptr;
};
