// SPDX-License-Identifier: Apache-2.0
#pragma once

class DCM_STRUCT;

// Root of the operators: one input image, an optional ROI image, an operation
// code and a numerical result. Operators have no virtual operations.
class IPG_ONE_INPUT_NO_OUTPUT {
public:
  IPG_ONE_INPUT_NO_OUTPUT() = default;
  // Copies all five fields of *source (a null source gives the defaults).
  IPG_ONE_INPUT_NO_OUTPUT(const IPG_ONE_INPUT_NO_OUTPUT* const& source);
  IPG_ONE_INPUT_NO_OUTPUT(const IPG_ONE_INPUT_NO_OUTPUT& source) : IPG_ONE_INPUT_NO_OUTPUT(&source) {}
  IPG_ONE_INPUT_NO_OUTPUT& operator=(const IPG_ONE_INPUT_NO_OUTPUT&) = delete;

  double GetResult() const { return Result; }
  // The code as a real number, as hosts have always read it.
  double GetTools() const { return Tools; }
  short GetMode() const { return Mode; }
  DCM_STRUCT* GetImaIn() const { return ImaIn; }
  DCM_STRUCT* GetRoi() const { return Roi; }

  void SetResult(const double result) { Result = result; }
  void SetTools(const int tools) { Tools = tools; }
  void SetMode(const short mode) { Mode = mode; }
  void SetImaIn(DCM_STRUCT* image) { ImaIn = image; }
  void SetRoi(DCM_STRUCT* roi) { Roi = roi; }

protected:
  int Tools = 0;
  DCM_STRUCT* ImaIn = nullptr;
  DCM_STRUCT* Roi = nullptr;
  double Result = 0.0;
  short Mode = 301;
};
