// SPDX-License-Identifier: Apache-2.0
#include "ipg/framework/ipg_one_input_two_output.h"

IPG_ONE_INPUT_TWO_OUTPUT::IPG_ONE_INPUT_TWO_OUTPUT(const IPG_ONE_INPUT_TWO_OUTPUT& source)
    : IPG_ONE_INPUT_ONE_OUTPUT()
{
  ImaOutTwo = source.ImaOutTwo;
}

IPG_ONE_INPUT_TWO_OUTPUT::~IPG_ONE_INPUT_TWO_OUTPUT()
{
  ImaIn = nullptr;
  Roi = nullptr;
  ImaOut = nullptr;
  ImaOutTwo = nullptr;
}
