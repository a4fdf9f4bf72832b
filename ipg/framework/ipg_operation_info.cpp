// SPDX-License-Identifier: Apache-2.0
#include "ipg/framework/ipg_operation_info.h"

#include "ipg/internal/ipg_messages.h"
#include "ipg/ui/ipg_message.h"

const char* Ipg_ValueTypeName(IPG_VALUE_TYPE type)
{
  switch (type) {
  case IPG_VALUE_TYPE::Bool: return "bool";
  case IPG_VALUE_TYPE::Integer: return "integer";
  case IPG_VALUE_TYPE::Real: return "real";
  case IPG_VALUE_TYPE::Text: return "text";
  case IPG_VALUE_TYPE::Point: return "point";
  case IPG_VALUE_TYPE::RealPoint: return "real point";
  case IPG_VALUE_TYPE::Kernel: return "kernel";
  case IPG_VALUE_TYPE::Reals: return "reals";
  }
  return "";
}

void Ipg_InformAllocationFailure()
{
  Ipg_Inform(kIpgMsgAllocation);
}
