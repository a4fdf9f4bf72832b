// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_kernel_images.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_roi_mask.h"

#include <algorithm>

bool Ipg_RoiRows::Inside(int col, int row) const
{
  if (Pixels == nullptr)
    return true;
  if (col < 0 || row < 0 || col >= Cols || row >= Rows)
    return false;
  return Ipg_InsideRoi(Pixels[static_cast<std::size_t>(row) * Cols + col]);
}

Ipg_RoiRows Ipg_RoiRowsOf(const DCM_STRUCT* roi)
{
  Ipg_RoiRows rows;
  if (roi != nullptr) {
    rows.Pixels = roi->Data->GetIDataAddress();
    rows.Cols = static_cast<int>(roi->GetNbOfCols());
    rows.Rows = static_cast<int>(roi->GetNbOfRows());
  }
  return rows;
}

Ipg_KernelImages Ipg_KernelImagesOf(const DCM_STRUCT* in, DCM_STRUCT* out, const DCM_STRUCT* roi)
{
  Ipg_KernelImages images;
  if (in != nullptr) {
    images.In = in->Data->GetIDataAddress();
    images.Cols = static_cast<int>(in->GetNbOfCols());
    images.Rows = static_cast<int>(in->GetNbOfRows());
  }
  if (out != nullptr) {
    images.Out = out->Data->GetIDataAddress();
    images.OutSize = out->Data->GetSize();
  }
  images.Roi = Ipg_RoiRowsOf(roi);
  return images;
}

void Ipg_CopyPixelsInto(const int* from, std::size_t fromSize, DCM_STRUCT* to)
{
  const std::size_t n = std::min(fromSize, to->Data->GetSize());
  std::copy(from, from + n, to->Data->GetIDataAddress());
}

bool Ipg_FilterPassesInRange(int passes)
{
  return Ipg_ParameterInRange(passes <= kIpgMaxPasses, "NbIter", "IPG_FILTER_PROCESSING");
}
