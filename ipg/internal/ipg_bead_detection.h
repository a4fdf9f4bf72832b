// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

// Bright calibration beads found on raw image rows: a foreground mask, its
// 8-connected components, and one intensity-weighted centroid per component.
//
// The mask is one of
//   - the pixels above Otsu's threshold of the grey levels (Otsu, "A threshold
//     selection method from gray-level histograms", IEEE Trans. SMC 9, 1979);
//   - the pixels above a given level;
//   - the pixels where the scale-normalised Laplacian of Gaussian -s^2 (Lxx + Lyy)
//     at scale s (Lindeberg, "Feature detection with automatic scale
//     selection", IJCV 30(2), 1998) lies above Otsu's threshold of its positive
//     values: the normalised response of a Gaussian bead of standard deviation
//     s peaks at that scale, so touching beads and a slow background separate.
// A pixel counts only when it is a grey level (not a mark) inside the ROI
// (exactly the ROI value). A component is a bead when its area lies within the
// limits and it does not touch the image border, whose beads are cut.
// The centroid weighs each pixel by how far its value (or LoG response) lies
// above the threshold, which for a symmetric bead is unbiased to a small
// fraction of a pixel.

enum class IPG_BEAD_METHOD { Otsu = 0, FixedThreshold = 1, LaplacianOfGaussian = 2 };

struct IPG_BEAD_SETTINGS {
  IPG_BEAD_METHOD Method = IPG_BEAD_METHOD::Otsu;
  int Threshold = 0;  // FixedThreshold: a bead pixel lies above it
  double Sigma = 2.0; // LaplacianOfGaussian: the scale, in pixels
  int MinArea = 4;
  int MaxArea = 10000;
};

struct IPG_BEAD {
  double X = 0.0; // column of the centroid
  double Y = 0.0; // row of the centroid
  int Area = 0;
};

// Raw rows of one image and its optional ROI (same size, or null).
struct IPG_BEAD_IMAGE {
  const int* Pixels = nullptr;
  const int* Roi = nullptr;
  unsigned Cols = 0;
  unsigned Rows = 0;
};

// The beads of the image, in raster order of their first pixel.
std::vector<IPG_BEAD> Ipg_DetectBeads(const IPG_BEAD_IMAGE& image, const IPG_BEAD_SETTINGS& settings);

// Otsu's cut of a histogram: the last bin of the lower class, or none when
// fewer than two bins are filled.
std::optional<std::size_t> Ipg_OtsuCut(const std::vector<double>& counts);
