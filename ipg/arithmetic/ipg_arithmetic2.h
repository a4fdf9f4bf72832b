// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_operation_info.h"
#include "ipg/framework/ipg_two_inputs_one_output.h"

#include <cstddef>

// Pixel-by-pixel combinations of two images of the same size, a = ImaIn and
// b = InSecond, into the caller's output image. A pixel is computed when a and b
// are grey levels (<= 16777216) and, with a ROI image, its ROI value is 16777217;
// the others mostly receive max(a, b). Integer arithmetic wraps around on 32 bits.
// The difference operations (303, 304) zero the pixels where a or b lies outside
// the open window (ThresholdMin, ThresholdMax); -1 in either switches it off.
//
// Apply() reports true for every code from 300 to 305 whatever the operation
// returned: hosts written against it treat those codes as infallible. Call the
// operation directly for its real outcome.
class IPG_ARITHMETIC2 : public IPG_TWO_INPUTS_ONE_OUTPUT {
public:
  IPG_ARITHMETIC2();
  IPG_ARITHMETIC2(DCM_STRUCT* a, DCM_STRUCT* b);
  IPG_ARITHMETIC2(DCM_STRUCT* a, DCM_STRUCT* b, DCM_STRUCT* roi);
  // Copies only the thresholds: Tools stays 0 until the host sets a code.
  IPG_ARITHMETIC2(const IPG_ARITHMETIC2& source);
  ~IPG_ARITHMETIC2();

  void SetThresholdMin(int threshold) { ThresholdMin = threshold; }
  void SetThresholdMax(int threshold) { ThresholdMax = threshold; }
  int GetThresholdMin() const { return ThresholdMin; }
  int GetThresholdMax() const { return ThresholdMax; }

  // Tools 303, Mode 301, both thresholds -1.
  void SetDefaultParameters();
  bool Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_ARITHMETIC2>& ClassInfo();

  bool MakeLogDifferenceImage();              // 300: log10(a) - log10(b)
  // 301: a minus b brought onto a's intensity scale, see the model codes below.
  bool MakeOptimalDifferenceImage(int model);
  bool MakeSumImage();                        // 302: a + b
  bool MakeDifferenceImage();                 // 303: a - b, then thresholds
  bool MakeAbsoluteSubstraction();            // 304: |a - b|, then thresholds; no ROI
  bool DivideImage();                         // 305: a / b (a - b under a ROI)
  bool MakeSumSquaredImages();                // a^2 + b^2
  bool MakeDifferenceSquaredImages();         // a^2 - b^2

  // Models of MakeOptimalDifferenceImage.
  //
  // kGainGammaModel (0, what Apply() uses): b is mapped onto a's scale by the
  // power law a ~ exp(alpha) * b^beta, fitted by linear least squares in the log
  // domain, ln a = alpha + beta ln b, over the computed pixels (the log-linear
  // fit of a gain and gamma: power-law transformations in R.C. Gonzalez,
  // R.E. Woods, Digital Image Processing, 4th ed., section 3.2; the straight-line
  // fit as in W.H. Press et al., Numerical Recipes, 3rd ed., section 15.2).
  // Levels are shifted to start at 1 when an image's stored minimum is below 1.
  // ln is tabulated per grey level over each image's stored range. Exact for a b
  // that is a gain and gamma change of a.
  //
  // kHistogramSpecificationModel (1): b is mapped by histogram specification
  // (Gonzalez & Woods, section 3.3.2): each level of b goes to the smallest level
  // of a whose cumulative count reaches that of b over the computed pixels. Exact
  // for any strictly increasing intensity change of a.
  //
  // Computed pixels get a - round(mapped b); the others max(a, b), as in the
  // difference. Pixels outside their image's stored extremes count as others.
  // Any other model returns false without a message.
  static constexpr int kGainGammaModel = 0;
  static constexpr int kHistogramSpecificationModel = 1;

private:
  struct Frame;
  bool OpenFrame(Frame& frame) const;
  bool Inside(const Frame& frame, std::size_t k, int a, int b) const;
  bool ThresholdsActive() const { return ThresholdMin != -1 && ThresholdMax != -1; }
  bool OutsideWindow(int a, int b) const;
  template <typename F>
  bool CombineWithMaxForOthers(F formula);

  int ThresholdMin = -1;
  int ThresholdMax = -1;
  // Handed to MakeOptimalDifferenceImage by Apply(); hosts set it through the
  // class table (OptimalModel), no public setter reaches it.
  int OptimisationParameter = kGainGammaModel;
};
