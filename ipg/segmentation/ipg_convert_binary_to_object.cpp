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

bool IPG_CONVERT_BINARY_TO_OBJECT::Apply()
{
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
}
