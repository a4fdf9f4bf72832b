// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_operation_info.h"
#include "ipg/framework/ipg_one_input_no_output.h"

#include <memory>
#include <string>
#include <vector>

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
//   7 FractalDimensionByBoxMethod   8 FractalDimensionByDBCMethod
//  14 HolderSpectral                15 MultiFractalDimension
// Codes 3 and 5 are free and unknown.
//
// Fractal measures (7, 8, 14, 15) work on boxes of side s that tile the image:
// the common divisors of its sides from 1 (2 for code 8) to BoxSize (default
// 64, at most the image's smaller side). When fewer than four sides qualify,
// the image is padded on the right and bottom with pixels that are not
// measured, up to the next multiples of the largest power of two not above
// BoxSize, whose common divisors include 1, 2, 4 ... that power. Results are
// dimensions (not scaled by the precision); GetBoxSizes()/GetBoxCounts() hold
// the (s, N(s)) pairs of codes 7 and 8 and GetFitR2() the r^2 of their fit.
//  7: Result = box-counting dimension of the non-zero pixels.
//  8: Result = differential box-counting dimension of the grey levels
//     (Sarkar & Chaudhuri 1994), between 2 and 3 for a grey-level surface.
// 15: generalised dimensions D(q) and f(alpha) by the moment method (Chhabra &
//     Jensen 1989) for q = QMin, QMin + QStep, ... up to QMax (default -5..5
//     step 1); Result = D(0), the box dimension of the grey mass's support.
// 14: Hölder spectrum: the exponents of IPG_HOLDER (HolderMeasType, default 2
//     the mean; HolderWindowSize, default 5) on the computed pixels, classed in
//     HolderBins (default 20) bins, f of a bin being the box dimension of its
//     pixels; Result = the alpha of the largest f (the most common exponent).
// Bad parameters, an empty selection, an image under 2 pixels a side or a
// cancelled run show a message and return false.
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
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_STATISTIC1>& ClassInfo();

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
  bool FractalDimensionByBoxMethod(); // 7
  bool FractalDimensionByDBCMethod(); // 8
  bool HolderSpectral();              // 14
  bool MultiFractalDimension();       // 15

  double GetMin() const { return Min; }
  double GetMax() const { return Max; }
  double GetStdDev() const { return StdDev; }
  double GetVariance() const { return VarianceValue; }
  int GetNbPixels() const { return NbPixels; }
  double GetMean() const { return Mean; }
  double GetSNR() const { return SNR; }
  bool GetOwnsRoi() const { return OwnsRoi; }

  void SetBoxSize(int size) { BoxSize = size; }
  int GetBoxSize() const { return BoxSize; }
  void SetQMin(double q) { QMin = q; }
  double GetQMin() const { return QMin; }
  void SetQMax(double q) { QMax = q; }
  double GetQMax() const { return QMax; }
  void SetQStep(double step) { QStep = step; }
  double GetQStep() const { return QStep; }
  void SetHolderMeasType(int type) { HolderMeasType = type; }
  int GetHolderMeasType() const { return HolderMeasType; }
  void SetHolderWindowSize(int size) { HolderWindowSize = size; }
  int GetHolderWindowSize() const { return HolderWindowSize; }
  void SetHolderBins(int bins) { HolderBins = bins; }
  int GetHolderBins() const { return HolderBins; }

  const std::vector<double>& GetBoxSizes() const { return BoxSizes; }
  const std::vector<double>& GetBoxCounts() const { return BoxCounts; }
  double GetFitR2() const { return FitR2; }
  const std::vector<double>& GetQValues() const { return QValues; }
  const std::vector<double>& GetDq() const { return Dq; }
  const std::vector<double>& GetAlpha() const { return Alpha; }
  const std::vector<double>& GetFAlpha() const { return FAlpha; }
  const std::vector<double>& GetHolderAlpha() const { return HolderAlpha; }
  const std::vector<double>& GetHolderFAlpha() const { return HolderFAlpha; }

  void SetMin(int v) { Min = v; }
  void SetMin(double v) { Min = v; }
  void SetMax(int v) { Max = v; }
  void SetMax(double v) { Max = v; }

private:
  static constexpr double kNotComputed = -1.0;

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

  // The fractal measures' parameters and results.
  bool BoxDimension(bool differential);
  int BoxSize = 64;
  double QMin = -5.0;
  double QMax = 5.0;
  double QStep = 1.0;
  int HolderMeasType = 2;
  int HolderWindowSize = 5;
  int HolderBins = 20;
  std::vector<double> BoxSizes;
  std::vector<double> BoxCounts;
  double FitR2 = 0.0;
  std::vector<double> QValues;
  std::vector<double> Dq;
  std::vector<double> Alpha;
  std::vector<double> FAlpha;
  std::vector<double> HolderAlpha;
  std::vector<double> HolderFAlpha;
};
