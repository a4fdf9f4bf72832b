// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "dcm/dcm_struct.h"

#include <cstdint>
#include <memory>

// A synthetic B-mode ultrasound phantom with its ground truth: the project's
// own data for demonstrations, tests and benchmarks.
//
// Echogenicity (mean backscattered intensity) is piecewise constant: tissue 1,
// a hypoechoic layer near the top 0.35, an anechoic cyst 0.001 and a bright
// inclusion 6. The echo is simulated as fully developed speckle: for each
// look, circular complex Gaussian scatterers weighted by the square root of
// the echogenicity, blurred by a separable Gaussian point-spread function
// (axial sigma 0.8 px, lateral sigma 1.4 px, normalised to unit energy), whose
// squared modulus is exponentially distributed about the echogenicity; L
// independent looks are averaged, giving gamma-distributed intensity of mean
// the echogenicity and variance its square over L (J. W. Goodman, "Speckle
// Phenomena in Optics", Roberts & Co., 2007, ch. 3 and 5; C. B. Burckhardt,
// "Speckle in ultrasound B-mode scans", IEEE Trans. Sonics Ultrason. 25(1),
// 1978). The intensity is then log-compressed to 8 bits over a 45 dB display
// range (10 log10 I from -30 dB to +15 dB maps to 0..255), or, when Linear,
// stored as 16-bit linear intensity (1000 per unit of echogenicity, clipped
// at 65535).
//
// The mask labels each pixel with its region: 0 tissue, 1 layer, 2 cyst,
// 3 inclusion. Both images are square, MONOCHROME2, modality US, 0.2 mm pixels.
struct DCM_PHANTOM_OPTIONS {
  unsigned Size = 256;   // columns and rows, 16 to 4096
  std::uint64_t Seed = 1;
  unsigned Looks = 1;    // 1 to 64
  bool Linear = false;   // 16-bit linear intensity instead of 8-bit log
};

struct DCM_PHANTOM {
  std::unique_ptr<DCM_STRUCT> Image;
  std::unique_ptr<DCM_STRUCT> Mask;
};

inline constexpr int kDcmPhantomTissue = 0;
inline constexpr int kDcmPhantomLayer = 1;
inline constexpr int kDcmPhantomCyst = 2;
inline constexpr int kDcmPhantomInclusion = 3;

// Returns empty images when the size or the looks are out of range.
DCM_PHANTOM Dcm_MakePhantom(const DCM_PHANTOM_OPTIONS& options);
// Mean echogenicity of a region label.
double Dcm_PhantomEchogenicity(int label);
