// SPDX-License-Identifier: Apache-2.0
#include "ipg/segmentation/ipg_convert_binary_to_object.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_pixel_values.h"
#include "ipg/segmentation/ipg_connexity_processing.h"

IPG_CONVERT_BINARY_TO_OBJECT::IPG_CONVERT_BINARY_TO_OBJECT()
{
  MakeTemplate();
  SetDefaultParameters();
}

IPG_CONVERT_BINARY_TO_OBJECT::IPG_CONVERT_BINARY_TO_OBJECT(DCM_STRUCT* mask, DCM_STRUCT* second)
    : IPG_CONVERT_BINARY_TO_OBJECT(mask, second, nullptr)
{
}

IPG_CONVERT_BINARY_TO_OBJECT::IPG_CONVERT_BINARY_TO_OBJECT(DCM_STRUCT* mask, DCM_STRUCT* second, DCM_STRUCT* roi)
{
  SetImaIn(mask);
  SetInSecond(second);
  SetRoi(roi);
  MakeTemplate();
  SetDefaultParameters();
}

IPG_CONVERT_BINARY_TO_OBJECT::IPG_CONVERT_BINARY_TO_OBJECT(const IPG_CONVERT_BINARY_TO_OBJECT& source)
    : IPG_TWO_INPUTS_ONE_OUTPUT(), SesCheck(source.SesCheck), RtCheck(source.RtCheck),
      NumberOfContour(source.NumberOfContour), Step(source.Step),
      Template(std::make_unique<OBJ_OBJECT>(*source.Template))
{
}

void IPG_CONVERT_BINARY_TO_OBJECT::MakeTemplate()
{
  Template = std::make_unique<OBJ_OBJECT>();
  Template->SetDefaultParameters();
}

void IPG_CONVERT_BINARY_TO_OBJECT::SetDefaultParameters()
{
  SesCheck = true;
  RtCheck = false;
  NumberOfContour = 10;
  Step = 5;
}

const IPG_CLASS_INFO<IPG_CONVERT_BINARY_TO_OBJECT>& IPG_CONVERT_BINARY_TO_OBJECT::ClassInfo()
{
  using C = IPG_CONVERT_BINARY_TO_OBJECT;
  // No operation code: Apply() traces the contours whatever Tools holds.
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C, &C::SetNumberOfContour>("NumberOfContour", "10", "how many of the largest regions are traced (10)"),
      Ipg_Parameter<C, &C::SetStep>("Step", "5", "keep every Step-th boundary point (5)"),
      Ipg_Parameter<C, &C::SetSesCheck>("SesCheck", "true", "stored only"),
      Ipg_Parameter<C, &C::SetRtCheck>("RtCheck", "false", "stored only"),
      Ipg_Parameter<C>("Name", IPG_VALUE_TYPE::Text, "Object", "name of the created contours (\"Object\")",
                        [](C& op, const IPG_VALUE& value) { op.GetTemplate()->SetName(std::get<std::string>(value)); }),
  };
  static const IPG_CLASS_INFO<C> info{"IPG_CONVERT_BINARY_TO_OBJECT", {}, parameters};
  return info;
}

bool IPG_CONVERT_BINARY_TO_OBJECT::Apply()
{
  // One operation, whatever Tools holds; a failed allocation ends it as in
  // every other class.
  return Ipg_FailOnAllocation([this] {
    if (!Ipg_RoiFitsImage(ImaIn, Roi, "IPG_CONVERT_BINARY_TO_OBJECT"))
      return false;
    if (ImaIn == nullptr || ImaOut == nullptr)
      return false;
    DCM_STRUCT working(*ImaIn, true);
    IPG_CONNEXITY_PROCESSING components(ImaIn, kIpgMaskValue);
    components.SetImaOut(&working);
    components.SetTools(800);
    components.Apply();
    components.SetNrOfComponentsToKeep(NumberOfContour < 1 ? 1 : NumberOfContour);
    components.SetTools(802);
    if (!components.Apply())
      return false;
    ImaOut->GetObjectsList()->GetFromBinaryImageWithOffset(&working, Template.get(), Step, 0, 0);
    return true;
  }) != 0;
}
