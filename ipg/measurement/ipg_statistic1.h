#pragma once

#include "ipg/framework/ipg_one_input_no_output.h"

#include <memory>
#include <string>

// First-order statistics and noise estimates of one image, optionally restricted
// to a ROI image. A pixel counts when its raw value is at most 16777216 and, with a
// ROI image, when the ROI value at the same place is exactly 16777217. When the
// image's precision is above 0, grey-level results are divided by it.
//
// Operation codes (Tools, default 0):
//   0 AverageGL            1 EstimateNoisePercent   2 SignalToNoiseRatio
//   4 MinMaxGL             6 BasicStats             9 MinGL
//  10 MaxGL               11 Variance              12 StdDeviation
//  13 NumberOfPixels      16 SumOfPixels
// Codes 3 and 5 are free and unknown. The fractal and multifractal measures
// (7 box counting, 8 differential box counting, 14 Hölder spectrum,
// 15 multifractal dimension) are not implemented yet: Apply() returns false for
// them, as for any unknown code.
//
// The basic statistics (code 6) are cached: a variance of -1.0 marks them as not
// computed, and the single-value queries 9 to 13 compute them only then.
class IPG_STATISTIC1 : public IPG_ONE_INPUT_NO_OUTPUT {
public:
  explicit IPG_STATISTIC1(DCM_STRUCT* in);
  IPG_STATISTIC1(DCM_STRUCT* in, DCM_STRUCT* roi);
  // The ROI is the mask of the input's contour objects of that name
  // (OBJ_OBJECTS_LIST::GetBinaryImage); the operator owns it (OwnsRoi).
  IPG_STATISTIC1(DCM_STRUCT* in, std::string name);
  // Copies the statistics only: the images and Tools take their defaults, and
  // the copy never owns a ROI image.
  IPG_STATISTIC1(const IPG_STATISTIC1& source);
  IPG_STATISTIC1& operator=(const IPG_STATISTIC1&) = delete;
  // Deletes the ROI image when the operator built it itself (only that image,
  // even when another ROI was set since).
  ~IPG_STATISTIC1();

  // Tools 0, no owned ROI, statistics not computed.
  void SetDefaultParameters();
  // A new input invalidates the cached basic statistics.
  void SetImaIn(DCM_STRUCT* image);
  bool Apply();

  bool AverageGL();            // 0: mean of the valid pixels, -1.0 when none
  bool EstimateNoisePercent(); // 1: 100 * noise RMS / signal RMS over the interior
  bool SignalToNoiseRatio();   // 2: sqrt(signal power / noise power), no logarithm
  bool MinMaxGL();             // 4: Min and Max only; Result untouched
  bool BasicStats();           // 6: Min, Max, Mean, Variance, StdDev, NbPixels, SNR
  bool MinGL();                // 9
  bool MaxGL();                // 10
  bool Variance();             // 11
  bool StdDeviation();         // 12
  bool NumberOfPixels();       // 13
  bool SumOfPixels();          // 16: 0 when nothing is selected

  double GetMin() const { return Min; }
  double GetMax() const { return Max; }
  double GetStdDev() const { return StdDev; }
  double GetVariance() const { return VarianceValue; }
  int GetNbPixels() const { return NbPixels; }
  double GetMean() const { return Mean; }
  double GetSNR() const { return SNR; }
  bool GetOwnsRoi() const { return OwnsRoi; }

  void SetMin(int v) { Min = v; }
  void SetMin(double v) { Min = v; }
  void SetMax(int v) { Max = v; }
  void SetMax(double v) { Max = v; }

private:
  static constexpr double kNotComputed = -1.0;

  bool Selected(unsigned col, unsigned row) const;
  short Precision() const;
  double Scaled(double v) const;
  // Runs BasicStats when the cache mark says so and returns its result; false
  // when the cached statistics are used.
  bool ComputeIfNotCached();
  // Sums S^2 and (I - S)^2 over the noise-measure pixels, S the smoothed input.
  bool NoiseSums(double& signal, double& noise);

  double Min = 16777217.0;
  double Max = -16777215.0;
  double StdDev = 0.0;
  double VarianceValue = kNotComputed; // the value of Variance(), and the cache mark
  int NbPixels = 0;
  double Mean = 0.0;
  double SNR = 0.0;
  bool OwnsRoi = false;
  std::unique_ptr<DCM_STRUCT> BuiltRoi; // the ROI image built from a named object
};
