// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_operation_info.h"
#include "ipg/framework/ipg_one_input_one_output.h"
#include "mth/mth_2d_integer.h"

#include <memory>

// Makes a region-of-interest image: inside a box, a circle or the non-zero
// pixels of the mask (the ROI image) it writes InValueColor, or the input's own
// value when InValueColor is negative; elsewhere OutValueColor. With Resize the
// output is cropped to the box and its header follows the crop.
//
// The box is clipped to the input image: only its pixels that lie in the input
// are visited, and positions that fall outside the output are dropped.
class IPG_ROI : public IPG_ONE_INPUT_ONE_OUTPUT {
public:
  static constexpr short kRectangle = 0;
  static constexpr short kNotHandled = 1;
  static constexpr short kCircle = 2;
  static constexpr short kMask = 3;

  explicit IPG_ROI(DCM_STRUCT* in);
  IPG_ROI(DCM_STRUCT* in, DCM_STRUCT* roi);
  IPG_ROI(DCM_STRUCT* in, DCM_STRUCT* roi, DCM_STRUCT* out);
  // Makes its own points and starts from the defaults, like every constructor.
  IPG_ROI(const IPG_ROI& source);
  IPG_ROI& operator=(const IPG_ROI&) = delete;

  // OutValueColor 16777217, InValueColor -1, rectangle, no Resize, Tools 1000.
  void SetDefaultParameters();
  bool Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_ROI>& ClassInfo();
  bool MakeRoi();

  int GetOutValueColor() const { return OutValueColor; }
  void SetOutValueColor(int value) { OutValueColor = value; }
  int GetInValueColor() const { return InValueColor; }
  void SetInValueColor(int value) { InValueColor = value; }
  short GetROIType() const { return ROIType; }
  void SetROIType(short type) { ROIType = type; }
  bool GetResize() const { return Resize; }
  void SetResize(bool resize) { Resize = resize; }
  MTH_2D_INTEGER* GetTLCorner() const { return TLCorner.get(); }
  void SetTLCorner(MTH_2D_INTEGER* corner);
  MTH_2D_INTEGER* GetLRCorner() const { return LRCorner.get(); }
  void SetLRCorner(MTH_2D_INTEGER* corner);
  MTH_2D_INTEGER* GetCentre() const { return Centre.get(); }
  void SetCentre(MTH_2D_INTEGER* centre);
  short GetRadius() const { return Radius; }
  void SetRadius(short radius) { Radius = radius; }

private:
  void MakePoints();
  void CopyHeader(int x0, int y0, int x1, int y1);

  int OutValueColor = 0; // SetDefaultParameters() gives the mask value
  int InValueColor = -1;
  short ROIType = 0;
  bool Resize = false;
  std::unique_ptr<MTH_2D_INTEGER> TLCorner;
  std::unique_ptr<MTH_2D_INTEGER> LRCorner;
  std::unique_ptr<MTH_2D_INTEGER> Centre;
  short Radius = 0;
  unsigned short InCols = 0, InRows = 0;
  unsigned short OutCols = 0, OutRows = 0;
};
