// SPDX-License-Identifier: Apache-2.0
#include "ipg/segmentation/ipg_roi.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_output_mode.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/internal/ipg_row_bands.h"
#include "ipg/ui/ipg_message.h"

#include <algorithm>

IPG_ROI::IPG_ROI(DCM_STRUCT* in) : IPG_ROI(in, nullptr, nullptr) {}

IPG_ROI::IPG_ROI(DCM_STRUCT* in, DCM_STRUCT* roi) : IPG_ROI(in, roi, nullptr) {}

IPG_ROI::IPG_ROI(DCM_STRUCT* in, DCM_STRUCT* roi, DCM_STRUCT* out)
{
  SetImaIn(in);
  SetRoi(roi);
  SetImaOut(out);
  if (in != nullptr) {
    InCols = static_cast<unsigned short>(in->GetNbOfCols());
    InRows = static_cast<unsigned short>(in->GetNbOfRows());
  }
  if (out != nullptr) {
    OutCols = static_cast<unsigned short>(out->GetNbOfCols());
    OutRows = static_cast<unsigned short>(out->GetNbOfRows());
  }
  MakePoints();
  SetDefaultParameters();
}

IPG_ROI::IPG_ROI(const IPG_ROI&) : IPG_ONE_INPUT_ONE_OUTPUT()
{
  MakePoints();
  SetDefaultParameters();
}

void IPG_ROI::MakePoints()
{
  TLCorner = std::make_unique<MTH_2D_INTEGER>(0, 0);
  LRCorner = std::make_unique<MTH_2D_INTEGER>(0, 0);
  Centre = std::make_unique<MTH_2D_INTEGER>(0, 0);
}

void IPG_ROI::SetDefaultParameters()
{
  OutValueColor = kIpgMaskValue;
  InValueColor = -1;
  ROIType = kRectangle;
  Resize = false;
  Tools = 1000;
}

void IPG_ROI::SetTLCorner(MTH_2D_INTEGER* corner)
{
  if (corner != nullptr)
    *TLCorner = *corner;
}

void IPG_ROI::SetLRCorner(MTH_2D_INTEGER* corner)
{
  if (corner != nullptr)
    *LRCorner = *corner;
}

void IPG_ROI::SetCentre(MTH_2D_INTEGER* centre)
{
  if (centre != nullptr)
    *Centre = *centre;
}

const IPG_CLASS_INFO<IPG_ROI>& IPG_ROI::ClassInfo()
{
  using C = IPG_ROI;
  // Hosts read the output, not the result of MakeRoi.
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {1000, "MakeRoi", [](C& op) -> int { op.MakeRoi(); return 1; }},
  };
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C, &C::SetOutValueColor>("OutValueColor", "16777217", "value outside the region (16777217)"),
      Ipg_Parameter<C, &C::SetInValueColor>("InValueColor", "-1", "value inside; negative copies the input (-1)"),
      Ipg_Parameter<C, &C::SetROIType>("ROIType", "0", "0 box, 2 circle, 3 mask"),
      Ipg_Parameter<C, &C::SetResize>("Resize", "false", "crop the output to the box"),
      Ipg_Parameter<C, &C::SetRadius>("Radius", "0", "radius of the circle in pixels"),
      Ipg_Parameter<C>("TLCorner", IPG_VALUE_TYPE::Point, "", "top-left corner of the box, inclusive",
                        [](C& op, const IPG_VALUE& value) {
                          MTH_2D_INTEGER point(std::get<IPG_POINT>(value).X, std::get<IPG_POINT>(value).Y);
                          op.SetTLCorner(&point);
                        }),
      Ipg_Parameter<C>("LRCorner", IPG_VALUE_TYPE::Point, "", "lower-right corner of the box, inclusive",
                        [](C& op, const IPG_VALUE& value) {
                          MTH_2D_INTEGER point(std::get<IPG_POINT>(value).X, std::get<IPG_POINT>(value).Y);
                          op.SetLRCorner(&point);
                        }),
      Ipg_Parameter<C>("Centre", IPG_VALUE_TYPE::Point, "", "centre of the circle",
                        [](C& op, const IPG_VALUE& value) {
                          MTH_2D_INTEGER point(std::get<IPG_POINT>(value).X, std::get<IPG_POINT>(value).Y);
                          op.SetCentre(&point);
                        }),
  };
  static const IPG_CLASS_INFO<C> info{"IPG_ROI", operations, parameters};
  return info;
}

bool IPG_ROI::Apply()
{
  if (!Ipg_RoiFitsImage(ImaIn, Roi, "IPG_ROI"))
    return false;
  const IPG_OPERATION_INFO<IPG_ROI>* operation = ClassInfo().FindOperation(Tools);
  if (operation == nullptr) {
    Ipg_Inform(kIpgMsgNoTool); // the one class that names a wrong code
    return false;
  }
  return Ipg_RunOperation(*operation, *this) != 0;
}

bool IPG_ROI::MakeRoi()
{
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return false;
  }
  if (ImaIn == nullptr)
    return false;
  InCols = static_cast<unsigned short>(ImaIn->GetNbOfCols());
  InRows = static_cast<unsigned short>(ImaIn->GetNbOfRows());
  OutCols = static_cast<unsigned short>(ImaOut->GetNbOfCols());
  OutRows = static_cast<unsigned short>(ImaOut->GetNbOfRows());
  DCM_DATA* out = ImaOut->Data;
  std::fill_n(out->GetIDataAddress(), out->GetSize(), OutValueColor);

  const int x0 = TLCorner->GetX(), y0 = TLCorner->GetY();
  const int x1 = LRCorner->GetX(), y1 = LRCorner->GetY();
  if (ROIType == kNotHandled)
    Ipg_Inform(kIpgMsgRoiNotHandled);
  else if (ROIType != kRectangle && ROIType != kCircle && ROIType != kMask)
    Ipg_Inform(kIpgMsgUnknownRoiType);
  else {
    const DCM_DATA* in = ImaIn->Data;
    const long long radius2 = Radius * Radius;
    // Clipped to the input: the box may reach past it.
    const int firstCol = std::max(x0, 0), lastCol = std::min(x1, static_cast<int>(InCols) - 1);
    const int firstRow = std::max(y0, 0), lastRow = std::min(y1, static_cast<int>(InRows) - 1);
    // The circle is always written from the output's top-left corner, with or
    // without Resize: hosts place its output by the recorded origin.
    const bool shifted = Resize || ROIType == kCircle;
    const long long centreX = Centre->GetX(), centreY = Centre->GetY();
    const short inPrecision = in->GetPrecision(), outPrecision = out->GetPrecision();
    const unsigned outCols = out->GetNbOfCols(), outRows = out->GetNbOfRows();
    int* target = out->GetIDataAddress();
    const int* source = in->GetIDataAddress();
    const std::size_t inStride = in->GetNbOfCols();
    // Both bounds are clipped to the input, but a box may lie wholly past it.
    const unsigned rowCount = lastRow >= firstRow ? static_cast<unsigned>(lastRow - firstRow + 1) : 0;
    const std::size_t colCount = lastCol >= firstCol ? static_cast<std::size_t>(lastCol - firstCol + 1) : 0;
    // Every input pixel has its own output position, so rows go to parallel bands.
    Ipg_RunBands(Ipg_SplitRows(rowCount, colCount),
                 [&](unsigned, unsigned begin, unsigned end) {
      for (int row = firstRow + static_cast<int>(begin); row < firstRow + static_cast<int>(end); ++row) {
        // Wide arithmetic: a corner may be any int; a pixel landing off the
        // output is not written.
        const unsigned orow = static_cast<unsigned>(shifted ? static_cast<long long>(row) - y0 : row);
        if (orow >= outRows)
          continue;
        const long long dy = row - centreY;
        for (int col = firstCol; col <= lastCol; ++col) {
          const unsigned oc = static_cast<unsigned>(shifted ? static_cast<long long>(col) - x0 : col);
          if (oc >= outCols)
            continue;
          bool inside = true;
          if (ROIType == kCircle) {
            const long long dx = col - centreX;
            // Each square is below 2^63; their sum is taken unsigned, where it fits.
            const unsigned long long distance2 =
                static_cast<unsigned long long>(dx * dx) + static_cast<unsigned long long>(dy * dy);
            inside = static_cast<double>(distance2) <= static_cast<double>(radius2);
          } else if (ROIType == kMask) {
            // No mask: nothing inside.
            inside = Roi != nullptr && Ipg_InsideAnyNonZeroMask(Roi, static_cast<unsigned>(col), static_cast<unsigned>(row));
          }
          int value = OutValueColor;
          if (inside && InValueColor >= 0) {
            value = InValueColor;
          } else if (inside) { // the input's level, as GetValueReal reads it and SetValue(double) stores it
            const double raw = source[static_cast<std::size_t>(row) * inStride + static_cast<unsigned>(col)];
            value = DCM_DATA::ToRaw(inPrecision > 0 ? raw / inPrecision : raw, outPrecision);
          }
          target[static_cast<std::size_t>(orow) * outCols + oc] = value;
        }
      }
    });
  }
  CopyHeader(x0, y0, x1, y1);
  Ipg_MeasureExtremes(*out);
  out->SetDynMax(static_cast<unsigned>(static_cast<long long>(out->GetMax()) - out->GetMin() + 1));
  out->SetRoi(static_cast<unsigned>(std::max(x0, 0)), static_cast<unsigned>(std::max(y0, 0)));
  return true;
}

void IPG_ROI::CopyHeader(int x0, int y0, int x1, int y1)
{
  DCM_HEADER header = ImaIn->GetHeader();
  if (Resize) {
    header.Columns = static_cast<unsigned short>(static_cast<long long>(x1) - x0 + 1);
    header.Rows = static_cast<unsigned short>(static_cast<long long>(y1) - y0 + 1);
  }
  ImaOut->SetHeader(header); // the store's own size wins over the header's
  if (!Resize)
    return;
  if (x0 >= 0 && y0 >= 0 && x0 < InCols && y0 < InRows) { // a corner off the input has no position
    MTH_3D_DOUBLE position;
    ImaIn->Get3DCoord(static_cast<unsigned>(x0), static_cast<unsigned>(y0), &position);
    ImaOut->SetImagePosition(&position);
  }
  MTH_3D_VECT_DOUBLE rowDirection = ImaIn->GetRowDirection();
  MTH_3D_VECT_DOUBLE columnDirection = ImaIn->GetColumnDirection();
  ImaOut->SetRowDirection(&rowDirection);
  ImaOut->SetColumnDirection(&columnDirection);
}
