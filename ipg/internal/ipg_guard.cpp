// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_guard.h"

#include "dcm/dcm_struct.h"
#include "ipg/ui/ipg_message.h"
#include "ipg/ui/ipg_progress.h"

bool Ipg_RoiFitsImage(const DCM_STRUCT* in, const DCM_STRUCT* roi, const std::string& className)
{
  if (in == nullptr || roi == nullptr)
    return true;
  if (roi->GetNbOfCols() == in->GetNbOfCols() && roi->GetNbOfRows() == in->GetNbOfRows())
    return true;
  Ipg_Inform(Ipg_MsgRoiSize(className));
  return false;
}

bool Ipg_ParameterInRange(bool valid, const std::string& parameter, const std::string& className)
{
  if (!valid)
    Ipg_Inform(Ipg_MsgParameterRange(parameter, className));
  return valid;
}

bool Ipg_PointOnImage(const DCM_STRUCT* image, long long col, long long row)
{
  return image != nullptr && col >= 0 && row >= 0 && col < static_cast<long long>(image->GetNbOfCols()) &&
         row < static_cast<long long>(image->GetNbOfRows());
}

bool Ipg_StopRequested()
{
  if (!Ipg_CancelRequested())
    return false;
  Ipg_Inform(kIpgMsgCancelled);
  return true;
}
