// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_operation_info.h"
#include "ipg/framework/ipg_one_input_no_output.h"

#include <vector>

// Grey-level co-occurrence matrix of an image or of its ROI, and Haralick's
// texture features (Haralick, Shanmugam & Dinstein, IEEE Trans. SMC 3(6),
// 1973). Code 1500, ComputeCooccurrence (the default).
//
// The selected pixels (grey level at most 16777216 and, with a ROI image, ROI
// value exactly 16777217) are quantised to GreyLevels classes of equal width
// between their smallest and largest value. Every pair of selected pixels at
// the displacement of Distance and Angle (0, 45, 90, 135 degrees: right, up
// right, up, up left) adds one count to (class of the first, class of the
// second); with Symmetric (the default) also to the transposed cell, so the
// matrix does not depend on the direction's sign. GetMatrix() returns the
// normalised matrix, GreyLevels x GreyLevels, row = first pixel's class.
// Result = the energy; the five features have their getters. Features are
// ratios of counts and are not scaled by the precision.
//
// No input, a ROI of another size, GreyLevels outside 2..256, a Distance below
// 1 or not shorter than the image, an angle other than the four, or no pair of
// selected pixels: a message and false.
class IPG_TEXTURE : public IPG_ONE_INPUT_NO_OUTPUT {
public:
  explicit IPG_TEXTURE(DCM_STRUCT* in);
  IPG_TEXTURE(DCM_STRUCT* in, DCM_STRUCT* roi);
  // Copies its own level: parameters, matrix and features.
  IPG_TEXTURE(const IPG_TEXTURE& source);
  IPG_TEXTURE& operator=(const IPG_TEXTURE&) = delete;
  ~IPG_TEXTURE() = default;

  // Tools 1500, Distance 1, Angle 0, GreyLevels 16, Symmetric.
  void SetDefaultParameters();
  bool Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_TEXTURE>& ClassInfo();
  bool ComputeCooccurrence(); // 1500

  void SetDistance(int distance) { Distance = distance; }
  int GetDistance() const { return Distance; }
  void SetAngle(int angle) { Angle = angle; }
  int GetAngle() const { return Angle; }
  void SetGreyLevels(int levels) { GreyLevels = levels; }
  int GetGreyLevels() const { return GreyLevels; }
  void SetSymmetric(bool symmetric) { Symmetric = symmetric; }
  bool GetSymmetric() const { return Symmetric; }

  const std::vector<double>& GetMatrix() const { return Matrix; }
  double GetEnergy() const { return Energy; }
  double GetContrast() const { return Contrast; }
  double GetCorrelation() const { return Correlation; }
  double GetHomogeneity() const { return Homogeneity; }
  double GetEntropy() const { return Entropy; }

private:
  int Distance = 1;
  int Angle = 0;
  int GreyLevels = 16;
  bool Symmetric = true;
  std::vector<double> Matrix;
  double Energy = 0.0;
  double Contrast = 0.0;
  double Correlation = 0.0;
  double Homogeneity = 0.0;
  double Entropy = 0.0;
};
