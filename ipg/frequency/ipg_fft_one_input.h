// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_operation_info.h"
#include "ipg/framework/ipg_one_input_one_output.h"

// Fourier filtering and spectra of one image, through Mth_FFT2D on a
// [column][row] complex buffer loaded with the raw input pixels (imaginary 0).
//
// Filters (output precision unchanged, the real part of the inverse transform):
//   1202 FourierLowPass   zeroes the cross of half-width Threshold around
//                         (cols/2, rows/2) of the uncentred spectrum (the
//                         highest frequencies);
//   1203 FourierHighPass  zeroes the four Threshold x Threshold corner blocks
//                         (the lowest frequencies).
// Spectra, centred so that the zero frequency sits at pixel (cols/2, rows/2):
//   1210 GetReal, 1211 GetImaginary   precision 10;
//   1216 GetModule                    precision 10, raw = trunc(sqrt(trunc(re^2 + im^2)) * 10);
//   1212 GetPhaseDeg, 1213 GetPhaseRad precision 100 but raw values in tenths
//        (degrees x 10, radians x 10): hosts read phase images that way.
// The phase uses the one-argument atan(im / re), so it lies in (-90, 90) degrees.
// Centring moves coefficient (c, r) to ((c + cols/2) mod cols, (r + rows/2) mod
// rows): the usual quadrant swap for even sizes, and for odd sizes the same
// shift, which still puts the zero frequency at (cols/2, rows/2).
// No operation shows a message nor calls ApplyModeToOutImage(); a missing input
// or output image, or an empty one, makes the operation return false.
class IPG_FFT_ONE_INPUT : public IPG_ONE_INPUT_ONE_OUTPUT {
public:
  IPG_FFT_ONE_INPUT(DCM_STRUCT* in, DCM_STRUCT* out);
  // Copies only Threshold; Tools stays 0.
  IPG_FFT_ONE_INPUT(const IPG_FFT_ONE_INPUT& source);

  void SetThreshold(const int threshold) { Threshold = threshold; }
  int GetThreshold() const { return Threshold; }

  // Tools 1210, Threshold 0.
  void SetDefaultParameters();
  bool Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_FFT_ONE_INPUT>& ClassInfo();

  bool FourierLowPass();  // 1202
  bool FourierHighPass(); // 1203
  bool GetReal();         // 1210
  bool GetImaginary();    // 1211
  bool GetPhaseDeg();     // 1212
  bool GetPhaseRad();     // 1213
  bool GetModule();       // 1216

  // The Fourier operators of both classes keep their working buffer (16 bytes
  // per pixel) on the calling thread for the next transform of the same size;
  // this frees the calling thread's idle buffer at once.
  static void ReleaseBuffers();

private:
  enum class Part { Real, Imaginary };
  enum class Derived { Module, PhaseDeg, PhaseRad };
  template <typename Zero>
  bool Filter(Zero zeroBand);
  bool CentredSpectrum(Part part);
  bool DerivedSpectrum(Derived kind);
  bool DerivedSpectrumByParts(Derived kind);
  static int DerivedValue(int realTenths, int imaginaryTenths, Derived kind);

  int Threshold = 0; // half-width of the zeroed band, used as a 16-bit count
};
