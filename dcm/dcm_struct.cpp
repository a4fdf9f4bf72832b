// SPDX-License-Identifier: Apache-2.0
#include "dcm/dcm_struct.h"

#include <algorithm>
#include <string>

void DCM_STRUCT::Allocate(unsigned cols, unsigned rows)
{
  if (cols > MaxSide || rows > MaxSide)
    throw DCM_SIZE_ERROR("image of " + std::to_string(cols) + " x " + std::to_string(rows) +
                         " pixels: at most " + std::to_string(MaxSide) + " columns and rows");
  Data = new DCM_DATA(cols, rows);
  Header.Columns = static_cast<unsigned short>(cols);
  Header.Rows = static_cast<unsigned short>(rows);
  Objects = std::make_unique<OBJ_OBJECTS_LIST>(this);
}

DCM_STRUCT::DCM_STRUCT(unsigned cols, unsigned rows, DCM_STRUCT* parent) : Data(nullptr)
{
  if (parent != nullptr)
    Header = parent->Header;
  Allocate(cols, rows);
}

DCM_STRUCT::DCM_STRUCT(DCM_STRUCT& src, bool copyPixels) : DCM_STRUCT(src, copyPixels, -1, -1) {}

DCM_STRUCT::DCM_STRUCT(DCM_STRUCT& src, bool copyPixels, int cols, int rows) : Data(nullptr), Header(src.Header)
{
  const unsigned c = cols < 0 ? src.GetNbOfCols() : static_cast<unsigned>(cols);
  const unsigned r = rows < 0 ? src.GetNbOfRows() : static_cast<unsigned>(rows);
  Allocate(c, r);
  Data->SetPrecision(src.Data->GetPrecision());
  Data->SetRGB(src.Data->GetRGB());
  if (!copyPixels)
    return;
  const unsigned overlapCols = std::min(c, src.GetNbOfCols());
  const unsigned overlapRows = std::min(r, src.GetNbOfRows());
  const int* from = src.Data->GetIDataAddress();
  int* to = Data->GetIDataAddress();
  for (unsigned row = 0; row < overlapRows; ++row)
    std::copy_n(from + static_cast<std::size_t>(row) * src.GetNbOfCols(), overlapCols,
                to + static_cast<std::size_t>(row) * c);
  Data->SetMin(src.Data->GetMin());
  Data->SetMax(src.Data->GetMax());
  Data->SetDynMax(src.Data->GetDynMax());
}

DCM_STRUCT::~DCM_STRUCT()
{
  delete Data;
}

void DCM_STRUCT::SetHeader(const DCM_HEADER& header)
{
  Header = header;
  Header.Columns = static_cast<unsigned short>(GetNbOfCols());
  Header.Rows = static_cast<unsigned short>(GetNbOfRows());
}

void DCM_STRUCT::Get3DCoord(unsigned col, unsigned row, MTH_3D_DOUBLE* point) const
{
  if (point == nullptr)
    return;
  const double dc = col * Header.PixelSpacing[1];
  const double dr = row * Header.PixelSpacing[0];
  point->SetX(Header.ImagePosition[0] + dc * Header.RowDirection[0] + dr * Header.ColumnDirection[0]);
  point->SetY(Header.ImagePosition[1] + dc * Header.RowDirection[1] + dr * Header.ColumnDirection[1]);
  point->SetZ(Header.ImagePosition[2] + dc * Header.RowDirection[2] + dr * Header.ColumnDirection[2]);
}

MTH_3D_VECT_DOUBLE DCM_STRUCT::GetRowDirection() const
{
  return {Header.RowDirection[0], Header.RowDirection[1], Header.RowDirection[2]};
}

MTH_3D_VECT_DOUBLE DCM_STRUCT::GetColumnDirection() const
{
  return {Header.ColumnDirection[0], Header.ColumnDirection[1], Header.ColumnDirection[2]};
}

MTH_3D_DOUBLE DCM_STRUCT::GetImagePosition() const
{
  return {Header.ImagePosition[0], Header.ImagePosition[1], Header.ImagePosition[2]};
}

void DCM_STRUCT::SetRowDirection(MTH_3D_VECT_DOUBLE* d)
{
  if (d == nullptr)
    return;
  Header.RowDirection[0] = d->GetX();
  Header.RowDirection[1] = d->GetY();
  Header.RowDirection[2] = d->GetZ();
}

void DCM_STRUCT::SetColumnDirection(MTH_3D_VECT_DOUBLE* d)
{
  if (d == nullptr)
    return;
  Header.ColumnDirection[0] = d->GetX();
  Header.ColumnDirection[1] = d->GetY();
  Header.ColumnDirection[2] = d->GetZ();
}

void DCM_STRUCT::SetImagePosition(MTH_3D_DOUBLE* p)
{
  if (p == nullptr)
    return;
  Header.ImagePosition[0] = p->GetX();
  Header.ImagePosition[1] = p->GetY();
  Header.ImagePosition[2] = p->GetZ();
}
