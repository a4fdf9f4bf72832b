// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_one_input_no_output.h"

// One input image, one caller-allocated output image written in place.
class IPG_ONE_INPUT_ONE_OUTPUT : public IPG_ONE_INPUT_NO_OUTPUT {
public:
  IPG_ONE_INPUT_ONE_OUTPUT() = default;
  // Copies only ImaOut; the root fields take their defaults. Operators copied
  // this way are re-configured by their host, which relies on the reset.
  IPG_ONE_INPUT_ONE_OUTPUT(const IPG_ONE_INPUT_ONE_OUTPUT* const& source);
  IPG_ONE_INPUT_ONE_OUTPUT(const IPG_ONE_INPUT_ONE_OUTPUT& source) : IPG_ONE_INPUT_ONE_OUTPUT(&source) {}
  ~IPG_ONE_INPUT_ONE_OUTPUT();

  DCM_STRUCT* GetImaOut() const { return ImaOut; }
  void SetImaOut(DCM_STRUCT* image) { ImaOut = image; }

  // Post-processes ImaOut according to Mode (300 clamp, 301 re-scale to the bit
  // depth, 303 absolute value, otherwise extremes only).
  bool ApplyModeToOutImage();

protected:
  DCM_STRUCT* ImaOut = nullptr;
};
