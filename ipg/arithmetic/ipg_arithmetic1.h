// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_operation_info.h"
#include "ipg/framework/ipg_one_input_one_output.h"

#include <string>

// Point operations on one image: each output pixel is a function of the input
// pixel at the same place and of the constant Variable. With a ROI image only
// pixels whose ROI value is 16777217 are computed; the others receive the input
// value. Every operation ends with ApplyModeToOutImage().
class IPG_ARITHMETIC1 : public IPG_ONE_INPUT_ONE_OUTPUT {
public:
  IPG_ARITHMETIC1(DCM_STRUCT* in);
  IPG_ARITHMETIC1(DCM_STRUCT* in, DCM_STRUCT* roi);
  // Copies only Variable: Tools stays 0, so a copy does nothing until a code is set.
  IPG_ARITHMETIC1(const IPG_ARITHMETIC1& source);

  void SetVariable(float variable) { Variable = variable; }
  float GetVariable() const { return Variable; }

  // Tools 200, Variable 200.0 (the same number as the default code).
  void SetDefaultParameters();
  bool Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_ARITHMETIC1>& ClassInfo();

  bool AddConstant();      // 200: v + p
  bool MultiplyConstant(); // 201: v * p
  bool Abs();              // 202: |v| on the raw pixels
  bool Square();           // 203: v * v
  bool RootSquare();       // 204: sqrt(v)
  bool DivideConstant();   // 205: v / p
  bool PowerN();           // 206: sign(v) |v|^p
  bool Log10();            // 207
  bool Log();              // 208
  bool InvLog10();         // 209: 10^v
  bool Exp();              // 210: e^v
  bool DegToRad();         // 211: v * 180 / pi (radians to degrees, despite the name)
  bool RadToDeg();         // 212: v * pi / 180 (degrees to radians, despite the name)

private:
  enum class Guard { OverRange, None };
  template <typename F>
  bool ApplyPointOperation(F compute, Guard guard, const char* noOutputMessage);
  bool AddWholeConstant(int p);
  bool MultiplyByWholeConstant(int p);

  float Variable = 200.0f;
};
