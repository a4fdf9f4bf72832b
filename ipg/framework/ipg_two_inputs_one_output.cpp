// SPDX-License-Identifier: Apache-2.0
#include "ipg/framework/ipg_two_inputs_one_output.h"

#include "ipg/internal/ipg_output_mode.h"

IPG_TWO_INPUTS_ONE_OUTPUT::IPG_TWO_INPUTS_ONE_OUTPUT(const IPG_TWO_INPUTS_ONE_OUTPUT& source)
    : IPG_TWO_INPUTS_NO_OUTPUT()
{
  ImaOut = source.ImaOut;
}

bool IPG_TWO_INPUTS_ONE_OUTPUT::ApplyModeToOutImage()
{
  return Ipg_ApplyModeToImage(ImaOut, Mode);
}
