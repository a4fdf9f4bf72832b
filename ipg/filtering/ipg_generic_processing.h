// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_operation_info.h"
#include "ipg/framework/ipg_one_input_one_output.h"

// Thresholding and resampling of one image into the caller's output image:
// binarisation by one or two thresholds (set pixels 16777217, cleared 0) or by
// Otsu's criterion (set pixels 16777216), clipping to a band of grey levels, and
// reduction by block averaging. Pixels above 16777216 carry no grey level and
// pass through the threshold operations unchanged; with a ROI image, pixels whose
// ROI value is not 16777217 receive the input value (Otsu: 0).
//
// Every operation returns the result of ApplyModeToOutImage() (non-zero) on
// success, 0 on failure; without an output image they show
// "image de sortie non allouée" (Otsu returns 0 silently).
class IPG_GENERIC_PROCESSING : public IPG_ONE_INPUT_ONE_OUTPUT {
public:
  explicit IPG_GENERIC_PROCESSING(DCM_STRUCT* in);
  // factor: the block size of Resample(), which has no setter.
  IPG_GENERIC_PROCESSING(DCM_STRUCT* in, int factor);
  IPG_GENERIC_PROCESSING(DCM_STRUCT* in, DCM_STRUCT* roi);
  // Copies the six parameters; the base fields take their defaults (Tools 0).
  IPG_GENERIC_PROCESSING(const IPG_GENERIC_PROCESSING& source);

  // Tools 400, SeuilMin 0, SeuilMax 16777216, BinaryType 1, ThesholdType 1,
  // CheckIterative false.
  void SetDefaultParameters();

  void SetSeuilMin(int threshold) { SeuilMin = threshold; }
  void SetSeuilMax(int threshold) { SeuilMax = threshold; }
  void SetBinaryType(short type) { BinaryType = type; }
  void SetThesholdType(short type) { ThesholdType = type; }
  void SetCheckIterative(bool check) { CheckIterative = check; }
  int GetSeuilMin() const { return SeuilMin; }
  int GetSeuilMax() const { return SeuilMax; }
  short GetThesholdType() const { return ThesholdType; }
  bool GetCheckIterative() const { return CheckIterative; }
  short GetBinaryTypeA() { return BinaryType; }

  int Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_GENERIC_PROCESSING>& ClassInfo();
  // 400: set where type * threshold <= type * v (type 1: v >= threshold; -1: v <= threshold).
  int MakeBinary(int threshold, short type);
  // 401: type 1 sets low <= v <= high; any other type sets the outside of the band.
  int MakeBinary(int low, int high, short type);
  // 402: the output becomes (cols / n) x (rows / n), each pixel the truncated mean
  // of its n x n block; header copied from the input, pixel spacing times n.
  int Resample();
  // 403: type 1 clamps to [low, high]; -1 zeroes the outside; any other type
  // marks the outside with 16777217.
  int DoubleThreshold(int low, int high, short type);
  // 404: N. Otsu, "A threshold selection method from gray-level histograms",
  // IEEE Trans. Systems, Man, and Cybernetics 9(1), 1979. Inputs whose maximum
  // exceeds 256 are first divided in place by max / 256 + 1 (the input stays
  // modified). The cut t is the first bin index with the largest between-class
  // score, and pixels are compared with t itself: callers feed images whose
  // minimum is 0. Pixels are addressed as row * rows + column, right for square
  // images only: existing callers depend on it; positions past the end of an
  // image are skipped.
  int BinarizeByOtsu();
  // Between-class score of cut k: with w and m the share of pixels and the
  // share-weighted bin index up to k (over cols * rows pixels), 0 when w is 0 or
  // 1, else (meanTotal * w - m)^2 / ((1 - w) * w). bins must hold k + 1 counts.
  double sig(int k, double meanTotal, int cols, int rows, int* bins);

private:
  bool InsideRoi(unsigned col, unsigned row) const;
  template <typename Map>
  bool MapSelectedPixels(Map map) const;
  int FinishOutput();
  int FinishMeasuredOutput();

  int SeuilMin = 0;
  int SeuilMax = 16777216;
  int ResolutionFactor = -1;
  short BinaryType = 1;
  short ThesholdType = 1;
  bool CheckIterative = false; // kept and copied for hosts; no operation reads it
};
