// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_operation_info.h"
#include "ipg/framework/ipg_one_input_no_output.h"

#include <vector>

// Local Hölder exponents by capacity measures (code 1900).
//
// Around every pixel a capacity measure (maximum, mean, minimum, moments,
// contrasts...) is taken on the square windows of radius i = 0 .. R,
// R = floor(WindowSize / 2), and the exponent is the least-squares slope of
// ln(measure) against ln(2i + 1) (Lévy Véhel & Vojak, "Multifractal analysis of
// Choquet capacities", Adv. Appl. Math. 20, 1998; the capacity-based Hölder
// exponents of Lévy Véhel & Mignot, "Multifractal segmentation of images",
// Fractals 2(3), 1994). The result is one double per pixel, row-major, read
// with GetHolder(); no output image is written.
//
// Measure layers: layer i holds the measure at radius i, computed only where
// the window fits in the image (a frame of width i, or i + 1 for the
// half-window measures 12 to 15, keeps 0). A pixel whose layer 0 or layer R is
// not above 1e-10 gets exponent 0; intermediate layers are not tested.
//
// WindowSize must be at least 3 (R >= 1): below it the regression has a
// single abscissa. Its largest window (2R + 1, or 2R + 3 for the half-window
// measures 12 to 15) must fit in the image, else no pixel gets an exponent.
// Outside these bounds the computation shows the parameter message, returns
// false and leaves Holder as it was. It stops between radii, with the
// cancellation message, when the host cancels.
class IPG_HOLDER : public IPG_ONE_INPUT_NO_OUTPUT {
public:
  IPG_HOLDER(DCM_STRUCT* in);
  IPG_HOLDER(DCM_STRUCT* in, DCM_STRUCT* roi);
  // Copies its own level: MeasType, WindowSize, Min, Max, the fast-path switch
  // and the Holder array (deep); Tools stays 0 and ImaIn, Roi are null.
  IPG_HOLDER(const IPG_HOLDER& source);
  IPG_HOLDER& operator=(const IPG_HOLDER&) = delete;
  ~IPG_HOLDER() = default;

  // Tools 1900, no Holder array. MeasType and WindowSize keep their values:
  // the caller sets both before Apply().
  void SetDefaultParameters();
  // 1900 runs ComputeHolderByCapacityMeasure(); any other code returns false.
  bool Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_HOLDER>& ClassInfo();
  // Shows "Pas d'image en entrée!" and returns false without an input image.
  bool ComputeHolderByCapacityMeasure();

  void SetMeasType(int measType) { MeasType = measType; }
  int GetMeasType() const { return MeasType; }
  void SetWindowSize(int windowSize) { WindowSize = windowSize; }
  int GetWindowSize() const { return WindowSize; }
  // The exponents, rows x cols row-major, or null before the first computation.
  double* GetHolder() { return Holder.empty() ? nullptr : Holder.data(); }
  const double* GetHolder() const { return Holder.empty() ? nullptr : Holder.data(); }

  // Values stored for the caller; the computation does not use them.
  void SetMin(int v) { Min = v; }
  void SetMin(double v) { Min = v; }
  void SetMax(int v) { Max = v; }
  void SetMax(double v) { Max = v; }
  double GetMin() const { return Min; }
  double GetMax() const { return Max; }

  // Window sums from summed-area tables and min/max by 3x3 recurrence instead
  // of visiting every window (on by default). Layers are identical where the
  // sums are exact in doubles and within 1e-12 relative otherwise; measure 5
  // always runs the direct way.
  void SetFastPath(bool fast) { FastPath = fast; }
  bool GetFastPath() const { return FastPath; }

  // The fifteen measures. Shared arguments: data (cols x rows doubles,
  // row-major), layer (same size, written only where computed), the image
  // size, R (carried for hosts, unused), the radius i, then the sampling step
  // of the centre pixels in columns and rows and the stride between window
  // elements in columns and rows (hosts pass 1; values below 1 are taken as 1).
  // The window is gathered row by row into one scratch buffer shared by all
  // measures.
  static void AlphaMaxGrain(const double* data, double* layer, int cols, int rows, int R, int i,
                            int stepCol, int stepRow, int strideCol, int strideRow);
  static void AlphaMoyGrain(const double* data, double* layer, int cols, int rows, int R, int i,
                            int stepCol, int stepRow, int strideCol, int strideRow);
  // Smallest value above 1e-7, starting from the first gathered value even
  // when it is not above 1e-7 (it then stays).
  static void AlphaMinGrain(const double* data, double* layer, int cols, int rows, int R, int i,
                            int stepCol, int stepRow, int strideCol, int strideRow);
  // Raw second moment: the mean is not subtracted.
  static void AlphaVarGrain(const double* data, double* layer, int cols, int rows, int R, int i,
                            int stepCol, int stepRow, int strideCol, int strideRow);
  // Fraction of the values within `threshold` of the mean (hosts pass 2.0).
  static void AlphaIsoGrain(const double* data, double* layer, int cols, int rows, int R, int i,
                            int stepCol, int stepRow, int strideCol, int strideRow, double threshold);
  // Raw third moment over the raw second moment to the power 1.5.
  static void AlphaAsymGrain(const double* data, double* layer, int cols, int rows, int R, int i,
                             int stepCol, int stepRow, int strideCol, int strideRow);
  // Raw second moment over the squared mean.
  static void AlphaContGrain(const double* data, double* layer, int cols, int rows, int R, int i,
                             int stepCol, int stepRow, int strideCol, int strideRow);
  // Mean over the geometric mean of the positive values (their log-sum divided
  // by the full count).
  static void AlphaRhoGrain(const double* data, double* layer, int cols, int rows, int R, int i,
                            int stepCol, int stepRow, int strideCol, int strideRow);
  // Mean of w^q over the positive values (divided by the full count) over mu^q;
  // 1 when mu <= 0 (hosts pass q = 2.0).
  static void AlphaPowGrain(const double* data, double* layer, int cols, int rows, int R, int i,
                            int stepCol, int stepRow, int strideCol, int strideRow, double q);
  // Contrast ratios of opposite half-windows: left = columns -i..-1 and
  // right = columns 0..i (all rows of the window), upper = rows -i..-1 and
  // lower = rows 0..i (all columns); the centre column and row belong to the
  // right and lower halves. A pair's ratio is its larger mean over its smaller
  // mean; at radius 0 the halves are empty and the ratio is 1. FrontMax keeps
  // the horizontal ratio unless the vertical one is strictly greater, FrontMin
  // unless it is strictly smaller.
  static void AlphaFrontMaxGrain(const double* data, double* layer, int cols, int rows, int R, int i,
                                 int stepCol, int stepRow, int strideCol, int strideRow);
  static void AlphaFrontMinGrain(const double* data, double* layer, int cols, int rows, int R, int i,
                                 int stepCol, int stepRow, int strideCol, int strideRow);
  // |A - B| / (A + B) of two half-window sums each divided by (2i + 1)^2, on
  // half-windows of radius r = i + 1: left = rows -r..r-1 x columns -r..-1,
  // right = rows -r..r-1 x columns 0..r-1; upper and lower are the transposed
  // split. Computed where a frame of width i + 1 leaves room.
  static void AlphaNormDiffHoriGrain(const double* data, double* layer, int cols, int rows, int R, int i,
                                     int stepCol, int stepRow, int strideCol, int strideRow);
  static void AlphaNormDiffVertGrain(const double* data, double* layer, int cols, int rows, int R, int i,
                                     int stepCol, int stepRow, int strideCol, int strideRow);
  static void AlphaNormDiffMinGrain(const double* data, double* layer, int cols, int rows, int R, int i,
                                    int stepCol, int stepRow, int strideCol, int strideRow);
  static void AlphaNormDiffMaxGrain(const double* data, double* layer, int cols, int rows, int R, int i,
                                    int stepCol, int stepRow, int strideCol, int strideRow);

private:
  // Fills one layer with the measure of MeasType at radius i (the direct way).
  void FillLayer(const double* data, double* layer, int cols, int rows, int R, int i) const;

  int MeasType = 0;
  int WindowSize = 0;
  std::vector<double> Holder;
  double Min = 0.0;
  double Max = 0.0;
  bool FastPath = true;
};
