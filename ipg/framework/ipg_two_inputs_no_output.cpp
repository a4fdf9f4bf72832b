// SPDX-License-Identifier: Apache-2.0
#include "ipg/framework/ipg_two_inputs_no_output.h"

IPG_TWO_INPUTS_NO_OUTPUT::IPG_TWO_INPUTS_NO_OUTPUT(const IPG_TWO_INPUTS_NO_OUTPUT& source)
    : IPG_ONE_INPUT_NO_OUTPUT()
{
  InSecond = source.InSecond;
}
