// SPDX-License-Identifier: Apache-2.0
#include "ipg/filtering/ipg_filter_virtual.h"

#include "dcm/dcm_struct.h"
#include "ipg/framework/ipg_output_mode.h"

#include <algorithm>

IPG_FILTER_VIRTUAL::IPG_FILTER_VIRTUAL(const IPG_FILTER_VIRTUAL& source) : IPG_ONE_INPUT_ONE_OUTPUT()
{
  if (source.DefineFilter != nullptr) {
    DefineFilter = std::make_unique<IPG_FILTER>(source.DefineFilter.get());
    DefinedFilterNumber = source.DefinedFilterNumber;
  }
  if (source.UserFilter != nullptr)
    UserFilter = std::make_unique<IPG_FILTER>(source.UserFilter.get());
  ImageBorderType = source.ImageBorderType;
}

IPG_FILTER_VIRTUAL::~IPG_FILTER_VIRTUAL() = default;

void IPG_FILTER_VIRTUAL::SetDefinedFilter(int n)
{
  DefineFilter = std::make_unique<IPG_FILTER>(n);
  DefinedFilterNumber = n;
}

void IPG_FILTER_VIRTUAL::SetUserFilter(int* data, int sizeX, int sizeY)
{
  UserFilter = std::make_unique<IPG_FILTER>(data, static_cast<short>(sizeX), static_cast<short>(sizeY));
  DefinedFilterNumber = -1;
}

bool IPG_FILTER_VIRTUAL::RotateDefinedFilter(bool direction) const
{
  return DefineFilter != nullptr && DefineFilter->RotateFilter(direction);
}

bool IPG_FILTER_VIRTUAL::RotateUserFilter(bool direction) const
{
  return UserFilter != nullptr && UserFilter->RotateFilter(direction);
}

void IPG_FILTER_VIRTUAL::PrepareOutputFrame(DCM_STRUCT* out, int hx, int hy) const
{
  if (out == nullptr || (ImageBorderType != 0 && ImageBorderType != 1 && ImageBorderType != 3))
    return;
  // Cleared as Init(0) clears: the raw 0 at any precision.
  const int value = ImageBorderType == 3 ? kIpgMarginValue : 0;
  DCM_DATA& data = *out->Data;
  const int cols = static_cast<int>(data.GetNbOfCols()), rows = static_cast<int>(data.GetNbOfRows());
  int* p = data.GetIDataAddress();
  for (int row = 0; row < rows; ++row) {
    int* line = p + static_cast<std::size_t>(row) * cols;
    if (row < hy || row >= rows - hy || cols <= 2 * hx) {
      std::fill(line, line + cols, value);
      continue;
    }
    std::fill(line, line + hx, value);
    std::fill(line + cols - hx, line + cols, value);
  }
  data.SetMin(value);
  data.SetMax(value);
}

void IPG_FILTER_VIRTUAL::PrepareOutputBorder(DCM_STRUCT* out) const
{
  if (out == nullptr)
    return;
  DCM_DATA& data = *out->Data;
  if (ImageBorderType == 0 || ImageBorderType == 1) {
    data.Init(0);
  } else if (ImageBorderType == 3) {
    // The raw mark, whatever the precision of the output.
    std::fill(data.GetIDataAddress(), data.GetIDataAddress() + data.GetSize(), kIpgMarginValue);
    data.SetMin(kIpgMarginValue);
    data.SetMax(kIpgMarginValue);
  }
}
