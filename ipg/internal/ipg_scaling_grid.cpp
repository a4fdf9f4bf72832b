// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_scaling_grid.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_roi_mask.h"

#include <algorithm>
#include <cstddef>
#include <new>

namespace {

int LargestPowerOfTwoUpTo(int n)
{
  int p = 1;
  while (p <= n / 2)
    p *= 2;
  return p;
}

int RoundUpTo(int n, int multiple)
{
  return (n + multiple - 1) / multiple * multiple;
}

void FillGrid(const DCM_STRUCT* in, const DCM_STRUCT* roi, Ipg_ScalingGrid& grid)
{
  const std::size_t size = static_cast<std::size_t>(grid.Cols) * static_cast<std::size_t>(grid.Rows);
  grid.Values.assign(size, 0);
  grid.Selected.assign(size, 0);
  grid.SelectedCount = 0;
  const int* pixels = in->Data->GetIDataAddress();
  const int* mask = roi != nullptr ? roi->Data->GetIDataAddress() : nullptr;
  for (int row = 0; row < grid.ImageRows; ++row)
    for (int col = 0; col < grid.ImageCols; ++col) {
      const std::size_t src = static_cast<std::size_t>(row) * grid.ImageCols + col;
      if (!Ipg_CountedPixel(pixels[src], mask, src))
        continue;
      const std::size_t dst = static_cast<std::size_t>(row) * grid.Cols + col;
      grid.Values[dst] = pixels[src];
      grid.Selected[dst] = 1;
      ++grid.SelectedCount;
    }
}

} // namespace

std::vector<int> Ipg_CommonDivisors(int cols, int rows, int smallest, int largest)
{
  std::vector<int> sizes;
  const int top = std::min({largest, cols, rows});
  for (int s = std::max(smallest, 1); s <= top; ++s)
    if (cols % s == 0 && rows % s == 0)
      sizes.push_back(s);
  return sizes;
}

bool Ipg_TileSizes(int cols, int rows, int smallest, int largest, int& gridCols, int& gridRows,
                   std::vector<int>& sizes)
{
  gridCols = cols;
  gridRows = rows;
  sizes = Ipg_CommonDivisors(cols, rows, smallest, largest);
  if (static_cast<int>(sizes.size()) >= kIpgMinBoxSizes)
    return true;
  const int p = LargestPowerOfTwoUpTo(std::max(largest, 1));
  gridCols = RoundUpTo(cols, p);
  gridRows = RoundUpTo(rows, p);
  sizes = Ipg_CommonDivisors(gridCols, gridRows, smallest, largest);
  return static_cast<int>(sizes.size()) >= kIpgMinBoxSizes;
}

bool Ipg_MakeScalingGrid(const DCM_STRUCT* in, const DCM_STRUCT* roi, int largestBox, int smallestBox,
                         const std::string& where, Ipg_ScalingGrid& grid)
{
  if (in == nullptr)
    return Ipg_InformAndFail(kIpgMsgNoInputImage);
  const int cols = static_cast<int>(in->GetNbOfCols());
  const int rows = static_cast<int>(in->GetNbOfRows());
  if (roi != nullptr && (static_cast<int>(roi->GetNbOfCols()) != cols || static_cast<int>(roi->GetNbOfRows()) != rows))
    return Ipg_InformAndFail(Ipg_MsgRoiSizeAt(where));
  if (cols < 2 || rows < 2)
    return Ipg_InformAndFail(Ipg_MsgImageTooSmall(where));
  if (largestBox < smallestBox || largestBox > std::min(cols, rows))
    return Ipg_InformAndFail(Ipg_MsgParameterRangeAt("BoxSize", where));
  grid.ImageCols = cols;
  grid.ImageRows = rows;
  if (!Ipg_TileSizes(cols, rows, smallestBox, largestBox, grid.Cols, grid.Rows, grid.BoxSizes))
    return Ipg_InformAndFail(Ipg_MsgParameterRangeAt("BoxSize", where));
  try {
    FillGrid(in, roi, grid);
  } catch (const std::bad_alloc&) {
    return Ipg_InformAndFail(kIpgMsgAllocation);
  }
  if (grid.SelectedCount == 0)
    return Ipg_InformAndFail(Ipg_MsgNothingToMeasure(where));
  return true;
}
