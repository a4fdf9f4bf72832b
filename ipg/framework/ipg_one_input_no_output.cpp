// SPDX-License-Identifier: Apache-2.0
#include "ipg/framework/ipg_one_input_no_output.h"

IPG_ONE_INPUT_NO_OUTPUT::IPG_ONE_INPUT_NO_OUTPUT(const IPG_ONE_INPUT_NO_OUTPUT* const& source)
{
  if (source == nullptr)
    return;
  Tools = source->Tools;
  ImaIn = source->ImaIn;
  Roi = source->Roi;
  Result = source->Result;
  Mode = source->Mode;
}
