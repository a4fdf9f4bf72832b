// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_operation_info.h"
#include "ipg/framework/ipg_two_inputs_one_output.h"

// Fourier operations on two images of the same size (the first input's size
// governs every loop):
//   1300 GetPhaseDifference      per-frequency phase of F1 * conj(F2),
//   1301 GetInverseFromRealImag  image rebuilt from real and imaginary parts,
//   1302 GetInverseFromPhaseModule image rebuilt from phase (radians) and modulus,
//   1303 GetMagnitudeDifference  per-frequency |F1| - |F2|.
//
// The rebuilds write the real part of the inverse Mth_FFT2D with SetValue and
// stop there: no ApplyModeToOutImage(), no recomputation of the stored extremes
// (hosts read the extremes they set beforehand), the imaginary part dropped.
//
// The comparisons take the centred spectra of both images from four temporary
// IPG_FFT_ONE_INPUT runs (codes 1210 and 1211, precision 10) and read each raw
// part back as a, b (real, imaginary of the first) and c, d (of the second):
//   phase difference (output precision 100): a..d = raw * 0.1;
//     angle = atan((b c - a d) / (a c + b d)), the one-argument arctangent of
//     Im / Re of F1 * conj(F2), 0 when that real part is 0;
//     raw output = trunc(angle * 100), so the output reads in radians.
//   magnitude difference (output precision 10): a..d = raw / 10;
//     raw output = trunc((sqrt(a^2 + b^2) - sqrt(c^2 + d^2)) * 10).
// Both recompute the output's extremes. No operation shows a message; missing
// images or an empty first input make the operation return false.
class IPG_FFT_TWO_INPUTS : public IPG_TWO_INPUTS_ONE_OUTPUT {
public:
  IPG_FFT_TWO_INPUTS(DCM_STRUCT* in, DCM_STRUCT* second, DCM_STRUCT* out);
  // Copies nothing of the source: images null, Tools 0.
  IPG_FFT_TWO_INPUTS(const IPG_FFT_TWO_INPUTS& source);

  // Tools 1300.
  void SetDefaultParameters();
  bool Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_FFT_TWO_INPUTS>& ClassInfo();

  bool GetPhaseDifference();        // 1300
  bool GetInverseFromRealImag();    // 1301
  bool GetInverseFromPhaseModule(); // 1302
  bool GetMagnitudeDifference();    // 1303

private:
  enum class Pair { RealImag, PhaseModule };
  enum class Comparison { Phase, Magnitude };
  bool Rebuild(Pair pair);
  bool Compare(Comparison kind);
};
