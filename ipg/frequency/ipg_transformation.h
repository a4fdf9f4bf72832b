// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_operation_info.h"
#include "ipg/framework/ipg_one_input_one_output.h"

#include <vector>

class DCM_STRUCT;

// Geometric transformations, the straight-line Hough transform and a Daubechies
// wavelet compression of one image.
//
// Geometry (600 Translation, 601 Rotation, 603 RigideTransformation): each output
// pixel (c, r) takes the input at the inverse image of (c, r) by bilinear
// interpolation (DCM_DATA::GetInterpolatedPoint); points that fall outside the
// input, [0, cols - 1] x [0, rows - 1], give 0. Coordinates within 1e-9 of a
// whole pixel are taken as that pixel, so whole-pixel shifts and quarter turns
// are exact. With a ROI image, output pixels whose ROI value is not 16777217
// receive the input pixel unchanged. In (column, row) coordinates a rotation
// by a moves a point p to centre + R(a)(p - centre), R(a) = [cos a, -sin a;
// sin a, cos a] (clockwise on a display whose rows go down); the centre is the
// one given to SetCentre, or the input's middle ((cols - 1)/2, (rows - 1)/2)
// until SetCentre is called. RigideTransformation rotates, then translates.
// They end with ApplyModeToOutImage() like the other image operators.
//
// HoughTransformation (605), after Duda and Hart, "Use of the Hough transformation
// to detect lines and curves in pictures", CACM 15(1), 1972: every input pixel
// with a grey level above 0 (marks above 16777216 and pixels outside the ROI do
// not vote) votes for the lines x cos t + y sin t = rho through it, x and y
// measured from the input's middle. The output is the accumulator: column j is
// the angle t = j * pi / outCols (0 <= t < pi), row i the distance
// rho = (i - (outRows - 1) / 2) * D / (outRows - 1) (integer halving, so rho = 0
// is a row of its own), D the input's diagonal, each vote going to the nearest
// distance row. Counts are written as raw integers, then
// ApplyModeToOutImage().
//
// Wavelet compression (604 ApplyWavelet, GetCompressedImage): a separable forward
// Daubechies transform of the (square) image down to length cols / WaveletLevel,
// absolute coefficients cut to 16 bits; the low-pass block is the compressed
// image. Daubechies coefficients and the one-based periodic transform follow
// Numerical Recipes in C, 2nd ed., sections 13.10 (daub4, pwtset, pwt, wtn).
class IPG_TRANSFORMATION : public IPG_ONE_INPUT_ONE_OUTPUT {
public:
  IPG_TRANSFORMATION(DCM_STRUCT* in);
  IPG_TRANSFORMATION(DCM_STRUCT* in, DCM_STRUCT* roi);
  // Copies Angle, enX, enY, WaveletLevel and WaveletMethod (not the centre, not
  // the rate); Tools stays 0.
  IPG_TRANSFORMATION(const IPG_TRANSFORMATION& source);

  void SetWaveletLevel(const short level) { WaveletLevel = level; }
  short GetWaveletLevel() const { return WaveletLevel; }
  void SetWaveletMethod(const short method) { WaveletMethod = method; }
  short GetWaveletMethod() const { return WaveletMethod; }
  void SetAngle(const double angle) { Angle = angle; }
  double GetAngle() const { return Angle; }
  void SetenX(const double x) { enX = x; }
  double GetenX() const { return enX; }
  void SetenY(const double y) { enY = y; }
  double GetenY() const { return enY; }
  void SetCentre(const double x, const double y);
  // Kept for hosts that set it; the compression does not read it.
  void SetWaveletRate(const short rate) { WaveletRate = rate; }

  // Angle pi, enX = enY = 0, WaveletLevel 2, WaveletMethod 0, Tools 601.
  void SetDefaultParameters();
  bool Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_TRANSFORMATION>& ClassInfo();

  bool Translation(double dx, double dy);                       // 600
  bool Rotation(double angle);                                  // 601
  bool RigideTransformation(double angle, double dx, double dy); // 603
  bool ApplyWavelet();                                          // 604
  bool HoughTransformation();                                   // 605

  // A new image (the caller owns it) holding the low-pass block of ApplyWavelet(),
  // (cols / WaveletLevel) x (rows / WaveletLevel), pixel spacings scaled to
  // match; null when the compression fails.
  DCM_STRUCT* GetCompressedImage();

  // Separable forward transform of data (dims[0] fastest) down to minLength per
  // dimension; method 0 Wavelet_Doub4, otherwise def_pwt. Stores the absolute
  // values of the coefficients. dims must hold ndim entries.
  bool WaveletnD(std::vector<double>& data, const std::vector<int>& dims, int ndim, int minLength, int method);
  // One forward (direction >= 0) Daubechies-4 step on a[0 .. n-1]. Its wrap-around
  // pair reads a[n-1], a[n], a[1], a[2] - one-based positions in a zero-based
  // vector - and the compression's results depend on it; a[n] reads 0 when the
  // vector holds only n elements. The inverse step inverts the circular
  // transform without that wrap quirk; the library does not use it.
  bool Wavelet_Doub4(std::vector<double>& a, int n, int direction);
  // Selects the 4-, 12- or 20-tap Daubechies filter; other lengths change nothing.
  bool def_pwtset(int n);
  // One step of the general periodic transform with the 12-tap filter (always
  // selected first), reading one-based positions a[1 .. n] (a[n] is 0 when the
  // vector holds only n elements). n must be a power of two of at least 4.
  // The inverse direction inverts the circular step that reads a[0 .. n-1]; the
  // library does not use it.
  bool def_pwt(std::vector<double>& a, int n, int direction);

private:
  bool Resample(double angle, double dx, double dy);

  short WaveletLevel = 2;
  short WaveletMethod = 0;
  double Angle = 3.141592653589793;
  double enX = 0.0;
  double enY = 0.0;
  double CentreX = 0.0;
  double CentreY = 0.0;
  bool CentreSet = false;
  short WaveletRate = 0;
  // State of the general transform, set by def_pwtset.
  short FilterLength = 0;
  short OffsetLow = 0;
  short OffsetHigh = 0;
  const double* LowPass = nullptr; // one-based: LowPass[1 .. FilterLength]
  std::vector<double> HighPass;    // one-based, HighPass[0] = 0
};
