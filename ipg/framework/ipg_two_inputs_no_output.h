// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_one_input_no_output.h"

// Two input images, a numerical result.
class IPG_TWO_INPUTS_NO_OUTPUT : public IPG_ONE_INPUT_NO_OUTPUT {
public:
  IPG_TWO_INPUTS_NO_OUTPUT() = default;
  // Copies only InSecond; the root fields take their defaults.
  IPG_TWO_INPUTS_NO_OUTPUT(const IPG_TWO_INPUTS_NO_OUTPUT& source);

  DCM_STRUCT* GetInSecond() const { return InSecond; }
  void SetInSecond(DCM_STRUCT* image) { InSecond = image; }

protected:
  DCM_STRUCT* InSecond = nullptr;
};
