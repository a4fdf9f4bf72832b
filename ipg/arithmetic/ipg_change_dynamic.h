// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_operation_info.h"
#include "ipg/framework/ipg_one_input_one_output.h"

// Changes the grey-level dynamics of the input into the caller's output image:
// cuts the values outside [LimitInf, LimitSup] to 0 (300), maps the input's
// stored value range linearly onto [LimitInf, LimitSup] (301, the default) or
// takes absolute values (303). Values of 16777217 and above are marks: cut and
// absolute value copy them, re-dynamisation leaves them unwritten.
//
// Unlike the arithmetic operators this class recomputes the output's extremes
// itself instead of ApplyModeToOutImage(), and its ROI test accepts any non-zero
// ROI value, so plain 0/1 masks work here.
class IPG_CHANGE_DYNAMIC : public IPG_ONE_INPUT_ONE_OUTPUT {
public:
  // Tools 301, limits 0 and 4095.
  IPG_CHANGE_DYNAMIC(DCM_STRUCT* in, DCM_STRUCT* out);
  // Copies the images (not the ROI), the code and the limits as their getters
  // return them, that is truncated to integers; hosts duplicate operators this way.
  IPG_CHANGE_DYNAMIC(const IPG_CHANGE_DYNAMIC& source);

  void SetLimitInf(const float limit) { LimitInf = limit; }
  void SetLimitSup(const float limit) { LimitSup = limit; }
  // The limits truncated toward zero to integers, as hosts have always read them.
  int GetLimitInf() const;
  int GetLimitSup() const;

  // Clears the output, then runs the operation of Tools. Any other code copies
  // the cleared output into the INPUT image, zeroing it, and returns true: hosts
  // use that code to blank an image pair.
  bool Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_CHANGE_DYNAMIC>& ClassInfo();
  bool GetCutImage();      // 300
  // 301: t = (v - min) / (max - min) * (hi - lo) + lo over the input's stored
  // extremes, with lo and hi the limits times the input's precision, rounded half
  // away from zero. When the stored extremes are equal every pixel gets lo.
  bool GetRedynImage();
  bool GetAbsoluteImage(); // 303

private:
  bool CanWrite() const;

  float LimitInf = 0.0f;
  float LimitSup = 4095.0f;
};
