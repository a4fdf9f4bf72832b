// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_operation_info.h"
#include "dcm/obj_object.h"
#include "ipg/framework/ipg_two_inputs_one_output.h"

#include <memory>

// Turns a binary mask (16777217 object, anything else background) into contour
// objects: the NumberOfContour largest 8-connected components are traced, every
// Step-th boundary point kept, each contour made in the likeness of the
// template and added to the output image's object list (not to its pixels).
class IPG_CONVERT_BINARY_TO_OBJECT : public IPG_TWO_INPUTS_ONE_OUTPUT {
public:
  IPG_CONVERT_BINARY_TO_OBJECT();
  // The second input is stored for hosts; the conversion does not read it.
  IPG_CONVERT_BINARY_TO_OBJECT(DCM_STRUCT* mask, DCM_STRUCT* second);
  IPG_CONVERT_BINARY_TO_OBJECT(DCM_STRUCT* mask, DCM_STRUCT* second, DCM_STRUCT* roi);
  // Copies the four parameters and the template; the base takes its defaults.
  IPG_CONVERT_BINARY_TO_OBJECT(const IPG_CONVERT_BINARY_TO_OBJECT& source);
  IPG_CONVERT_BINARY_TO_OBJECT& operator=(const IPG_CONVERT_BINARY_TO_OBJECT&) = delete;

  // SesCheck true, RtCheck false, NumberOfContour 10, Step 5.
  void SetDefaultParameters();
  // No operation code. Fails silently (beyond the labelling's messages) without
  // a mask, an output image, or when the components cannot be labelled.
  bool Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_CONVERT_BINARY_TO_OBJECT>& ClassInfo();

  bool GetSesCheck() const { return SesCheck; }
  bool GetRtCheck() const { return RtCheck; }
  short GetNumberOfContour() const { return NumberOfContour; }
  short GetStep() const { return Step; }
  void SetSesCheck(bool check) { SesCheck = check; }
  void SetRtCheck(bool check) { RtCheck = check; }
  void SetNumberOfContour(short n) { NumberOfContour = n; }
  void SetStep(short step) { Step = step; }
  // The model of the created contours (name, colours).
  OBJ_OBJECT* GetTemplate() const { return Template.get(); }

private:
  void MakeTemplate();

  bool SesCheck = true;
  bool RtCheck = false;
  short NumberOfContour = 10;
  short Step = 5;
  std::unique_ptr<OBJ_OBJECT> Template;
};
