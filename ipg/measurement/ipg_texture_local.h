// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_one_input_two_output.h"
#include "ipg/framework/ipg_operation_info.h"

// Haralick feature maps (Haralick, Shanmugam & Dinstein, "Textural features
// for image classification", IEEE Trans. SMC 3(6), 1973): every pixel gets a
// feature of the grey-level co-occurrence matrix of the WindowSize x WindowSize
// window centred on it. Code 1510, ComputeFeatureMap (the default).
//
// Parameters as in IPG_TEXTURE: Distance and Angle (0, 45, 90, 135 degrees)
// give the pair displacement, GreyLevels (2..256) the quantisation classes,
// Symmetric whether each pair also counts transposed. WindowSize is odd, at
// least 3 and at most the image's longer side; Distance is below WindowSize.
// Near the edges the window is cut by the image, so an edge pixel's feature
// is IPG_TEXTURE's on the part of its window inside the image.
//
// The grey levels are quantised once, over the whole image's selected pixels
// (IPG_TEXTURE's rule applied to the image, not to each window): a feature
// then means the same grey-level steps at every pixel, and the counts can be
// updated as the window slides. A window's counts and features therefore equal
// IPG_TEXTURE's on that window whenever the window holds the image's lowest
// and highest selected levels (otherwise IPG_TEXTURE re-quantises the crop).
//
// Features, numbered as Ipg_GlcmFeature: 0 energy, 1 contrast, 2 correlation,
// 3 homogeneity, 4 entropy. Feature (default 1) is written to ImaOut and,
// when an ImaOutTwo is given, FeatureTwo (default 4) to it. Values are real:
// each is stored with SetValue(double), so the output image's precision sets
// how many decimals survive (set it to 1000 to keep energies and
// homogeneities, which lie in [0, 1]). Then the output mode is applied.
//
// Selected pixels have a grey level of at most 16777216 and, with a ROI, ROI
// value exactly 16777217; only they count in windows and get a feature (0 when
// their window has no pair). Other pixels get the input value copied.
//
// No input, a missing output, an output or ROI of another size, a parameter out
// of range or no selected pixel: a message and false. Stops between rows, with
// the cancellation message, when the host cancels.
class IPG_TEXTURE_LOCAL : public IPG_ONE_INPUT_TWO_OUTPUT {
public:
  explicit IPG_TEXTURE_LOCAL(DCM_STRUCT* in);
  IPG_TEXTURE_LOCAL(DCM_STRUCT* in, DCM_STRUCT* roi);
  // Copies its own level: the parameters.
  IPG_TEXTURE_LOCAL(const IPG_TEXTURE_LOCAL& source);
  IPG_TEXTURE_LOCAL& operator=(const IPG_TEXTURE_LOCAL&) = delete;
  ~IPG_TEXTURE_LOCAL() = default;

  // Tools 1510, WindowSize 7, Distance 1, Angle 0, GreyLevels 16, Symmetric,
  // Feature 1 (contrast), FeatureTwo 4 (entropy).
  void SetDefaultParameters();
  bool Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_TEXTURE_LOCAL>& ClassInfo();
  bool ComputeFeatureMap(); // 1510

  void SetWindowSize(int size) { WindowSize = size; }
  int GetWindowSize() const { return WindowSize; }
  void SetDistance(int distance) { Distance = distance; }
  int GetDistance() const { return Distance; }
  void SetAngle(int angle) { Angle = angle; }
  int GetAngle() const { return Angle; }
  void SetGreyLevels(int levels) { GreyLevels = levels; }
  int GetGreyLevels() const { return GreyLevels; }
  void SetSymmetric(bool symmetric) { Symmetric = symmetric; }
  bool GetSymmetric() const { return Symmetric; }
  void SetFeature(int feature) { Feature = feature; }
  int GetFeature() const { return Feature; }
  void SetFeatureTwo(int feature) { FeatureTwo = feature; }
  int GetFeatureTwo() const { return FeatureTwo; }

private:
  bool CheckImages() const;
  bool CheckParameters(int& dcol, int& drow) const;
  int WindowSize = 7;
  int Distance = 1;
  int Angle = 0;
  int GreyLevels = 16;
  bool Symmetric = true;
  int Feature = 1;
  int FeatureTwo = 4;
};
