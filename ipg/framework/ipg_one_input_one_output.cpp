// SPDX-License-Identifier: Apache-2.0
#include "ipg/framework/ipg_one_input_one_output.h"

#include "ipg/internal/ipg_output_mode.h"

IPG_ONE_INPUT_ONE_OUTPUT::IPG_ONE_INPUT_ONE_OUTPUT(const IPG_ONE_INPUT_ONE_OUTPUT* const& source)
{
  if (source != nullptr)
    ImaOut = source->ImaOut;
}

IPG_ONE_INPUT_ONE_OUTPUT::~IPG_ONE_INPUT_ONE_OUTPUT()
{
  ImaIn = nullptr;
  Roi = nullptr;
  ImaOut = nullptr;
}

bool IPG_ONE_INPUT_ONE_OUTPUT::ApplyModeToOutImage()
{
  return Ipg_ApplyModeToImage(ImaOut, Mode);
}
