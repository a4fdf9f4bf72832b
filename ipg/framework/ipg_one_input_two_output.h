// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_one_input_one_output.h"

// One input image, two output images.
class IPG_ONE_INPUT_TWO_OUTPUT : public IPG_ONE_INPUT_ONE_OUTPUT {
public:
  IPG_ONE_INPUT_TWO_OUTPUT() = default;
  // Copies only ImaOutTwo; everything else takes its default.
  IPG_ONE_INPUT_TWO_OUTPUT(const IPG_ONE_INPUT_TWO_OUTPUT& source);
  ~IPG_ONE_INPUT_TWO_OUTPUT();

  // Returns the FIRST output image: hosts written against this library read the
  // first output through this getter, so it stays that way.
  DCM_STRUCT* GetImaOutTwo() const { return ImaOut; }
  void SetImaOutTwo(DCM_STRUCT* image) { ImaOutTwo = image; }

protected:
  DCM_STRUCT* ImaOutTwo = nullptr;
};
