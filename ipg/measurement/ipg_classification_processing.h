// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_one_input_one_output.h"
#include "ipg/framework/ipg_operation_info.h"

#include <vector>

// Grey levels classified by the valleys of their smoothed histogram (the mode
// method of Prewitt & Mendelsohn, "The analysis of cell images", Ann. N.Y.
// Acad. Sci. 128, 1966; the steps are in ipg/internal/ipg_histogram_valleys.h).
// Code 1600, ClassifyByHistogramValleys (the default).
//
// The histogram holds the selected pixels: grey level at most 16777216 and,
// with a ROI, ROI value exactly 16777217. It has one bin per grey level from
// the lowest to the highest selected level; a range wider than 65536 levels is
// binned by ceil(range / 65536) levels.
//
// Parameters:
//   SmoothingWidth  odd width, in bins, of the moving average (1..65535,
//                   default 5; 1 leaves the histogram as it is)
//   MinValleyDepth  a valley is kept only if its depth (lower neighbouring
//                   mode minus valley) reaches this fraction of the highest
//                   smoothed bin (0..1, default 0.05): sampling ripples and
//                   tail bumps go, real dips between populations stay
//   MaxClasses      at most this many classes (1..256, default 16): the
//                   shallowest valleys go first
//
// Each kept valley gives a threshold, the first grey level of its bin;
// GetThresholds() lists them increasing. A selected pixel's label is the
// number of thresholds below its grey level, 0..k-1 (the valley level itself
// stays in the lower class). Result = k, the number of classes. Pixels outside
// the ROI and marks (above 16777216) get the input value copied. The labels
// are written as they are and only the output's extremes are recomputed,
// whatever Mode says: re-scaling would lose the class numbers that callers
// index with.
//
// No input or output, an output or ROI of another size, an image of a single
// pixel, a parameter out of range or no selected pixel: a message and false.
class IPG_CLASSIFICATION_PROCESSING : public IPG_ONE_INPUT_ONE_OUTPUT {
public:
  explicit IPG_CLASSIFICATION_PROCESSING(DCM_STRUCT* in);
  IPG_CLASSIFICATION_PROCESSING(DCM_STRUCT* in, DCM_STRUCT* roi);
  IPG_CLASSIFICATION_PROCESSING(DCM_STRUCT* in, DCM_STRUCT* roi, DCM_STRUCT* out);
  // Copies its own level: the parameters and the thresholds.
  IPG_CLASSIFICATION_PROCESSING(const IPG_CLASSIFICATION_PROCESSING& source);
  IPG_CLASSIFICATION_PROCESSING& operator=(const IPG_CLASSIFICATION_PROCESSING&) = delete;
  ~IPG_CLASSIFICATION_PROCESSING() = default;

  // Tools 1600, SmoothingWidth 5, MinValleyDepth 0.05, MaxClasses 16.
  void SetDefaultParameters();
  bool Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_CLASSIFICATION_PROCESSING>& ClassInfo();
  bool ClassifyByHistogramValleys(); // 1600

  void SetSmoothingWidth(int width) { SmoothingWidth = width; }
  int GetSmoothingWidth() const { return SmoothingWidth; }
  void SetMinValleyDepth(double depth) { MinValleyDepth = depth; }
  double GetMinValleyDepth() const { return MinValleyDepth; }
  void SetMaxClasses(int classes) { MaxClasses = classes; }
  int GetMaxClasses() const { return MaxClasses; }

  const std::vector<int>& GetThresholds() const { return Thresholds; }

private:
  bool CheckInput() const;
  int SmoothingWidth = 5;
  double MinValleyDepth = 0.05;
  int MaxClasses = 16;
  std::vector<int> Thresholds;
};
