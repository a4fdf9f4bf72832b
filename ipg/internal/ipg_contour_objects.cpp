// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_contour_objects.h"

#include "dcm/dcm_struct.h"
#include "dcm/obj_object.h"
#include "dcm/obj_objects_list.h"
#include "ipg/internal/ipg_guard.h"

#include <algorithm>
#include <memory>

namespace {

constexpr const char* kMaskObject = "Contour";

OBJ_OBJECT* NewObject(DCM_STRUCT* image, const IPG_CONTOUR& contour, const std::string& name)
{
  auto object = std::make_unique<OBJ_OBJECT>(image);
  object->SetName(name);
  for (std::size_t i = 0; i < contour.Size(); ++i)
    object->AddPoint(contour.X[i], contour.Y[i]);
  return object.release();
}

} // namespace

bool Ipg_ContourImagesValid(const DCM_STRUCT* in, const DCM_STRUCT* out, const DCM_STRUCT* roi,
                            const std::string& className, const std::string& where)
{
  if (in == nullptr || in->Data == nullptr)
    return Ipg_InformAndFail(kIpgMsgNoInputImage);
  if (out == nullptr)
    return Ipg_InformAndFail(kIpgMsgNoOutput);
  if (out->GetNbOfCols() != in->GetNbOfCols() || out->GetNbOfRows() != in->GetNbOfRows())
    return Ipg_InformAndFail(Ipg_MsgSizes(className + "::Apply()"));
  if (!Ipg_RoiFitsImage(in, roi, className))
    return false;
  if (in->GetNbOfCols() < 3 || in->GetNbOfRows() < 3)
    return Ipg_InformAndFail(Ipg_MsgImageTooSmall(where));
  return true;
}

IPG_CONTOUR Ipg_ContourOf(const OBJ_OBJECT& object)
{
  IPG_CONTOUR contour;
  for (const MTH_2D_DOUBLE& point : object.GetPoints()) {
    contour.X.push_back(point.GetX());
    contour.Y.push_back(point.GetY());
  }
  return contour;
}

std::vector<MTH_2D_DOUBLE> Ipg_PointsOf(const IPG_CONTOUR& contour)
{
  std::vector<MTH_2D_DOUBLE> points;
  for (std::size_t i = 0; i < contour.Size(); ++i)
    points.emplace_back(contour.X[i], contour.Y[i]);
  return points;
}

void Ipg_AddContourObject(DCM_STRUCT* image, const IPG_CONTOUR& contour, const std::string& name)
{
  image->GetObjectsList()->Add(NewObject(image, contour, name));
}

void Ipg_FillContourMask(const IPG_CONTOUR& contour, DCM_STRUCT* out)
{
  OBJ_OBJECTS_LIST list(out);
  list.Add(NewObject(out, contour, kMaskObject));
  const std::unique_ptr<DCM_STRUCT> mask(list.GetBinaryImage(kMaskObject));
  const int* from = mask->Data->GetIDataAddress();
  std::copy(from, from + mask->Data->GetSize(), out->Data->GetIDataAddress());
  out->Data->SetMin();
  out->Data->SetMax();
}
