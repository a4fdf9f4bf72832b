// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/filtering/ipg_filter.h"
#include "ipg/framework/ipg_one_input_one_output.h"

#include <memory>

// The kernel-owning layer of the filtering and morphology operators: one
// predefined ("defined") kernel, one user kernel and the image border type,
// which says what a neighbourhood operation leaves where its kernel does not fit:
//   0, 1  the output is cleared to 0 first;
//   2     the output is left as the operator found it;
//   3     every output pixel is set to 17000000 first, so the margin carries that mark.
class IPG_FILTER_VIRTUAL : public IPG_ONE_INPUT_ONE_OUTPUT {
public:
  IPG_FILTER_VIRTUAL() = default;
  // Deep copies of both kernels, the number (when a defined kernel exists) and
  // the border type; the base fields take their defaults.
  IPG_FILTER_VIRTUAL(const IPG_FILTER_VIRTUAL& source);
  IPG_FILTER_VIRTUAL& operator=(const IPG_FILTER_VIRTUAL&) = delete;
  ~IPG_FILTER_VIRTUAL();

  // Replaces the defined kernel by predefined kernel n and remembers n.
  void SetDefinedFilter(int n);
  // Replaces the user kernel by a copy of data (sizeX x sizeY, row-major); the
  // defined kernel number becomes -1 even though that kernel is still held.
  void SetUserFilter(int* data, int sizeX, int sizeY);

  // Forward to IPG_FILTER::RotateFilter; false when the kernel is missing.
  bool RotateDefinedFilter(bool direction) const;
  bool RotateUserFilter(bool direction) const;

  int GetDefinedFilterNumber() const { return DefinedFilterNumber; }
  // The kernels stay owned by the operator.
  IPG_FILTER* GetDefineFilter() const { return DefineFilter.get(); }
  IPG_FILTER* GetUserFilter() const { return UserFilter.get(); }
  int GetImageBorderType() const { return ImageBorderType; }
  // Const like every parameter setter of the filters: hosts configure them through const references.
  void SetImageBorderType(int type) const { ImageBorderType = type; }

protected:
  // Prepares out by the image border type before a neighbourhood operation:
  // 0 or 1 clear it, 3 sets every pixel to 17000000, anything else leaves it.
  void PrepareOutputBorder(DCM_STRUCT* out) const;
  // The same for a scan that then writes every pixel at least hx columns and hy
  // rows from the edges: only the frame around them is set (its value becomes
  // both stored extremes).
  void PrepareOutputFrame(DCM_STRUCT* out, int hx, int hy) const;

  std::unique_ptr<IPG_FILTER> DefineFilter;
  std::unique_ptr<IPG_FILTER> UserFilter;
  int DefinedFilterNumber = -1;
  mutable int ImageBorderType = 0;
};
