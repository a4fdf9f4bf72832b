// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/internal/ipg_kernel_images.h"

#include <vector>

struct IPG_BAND_EXTREMES;

// A convolution kernel's taps: (2 HalfX + 1) x (2 HalfY + 1) coefficients,
// row-major, and the kernel's normalising factor.
struct Ipg_ConvolutionTaps {
  std::vector<double> Coef;
  int HalfX = 0;
  int HalfY = 0;
  float Factor = 1.0f;
};

// Convolution of images.In into images.Out over the rows of span that lie at
// least HalfY from the edge, columns HalfX .. Cols - HalfX - 1; the frame is
// left alone. Pixels outside the ROI or above 16777216 copy the input; the
// others get the weighted sum of their unmarked neighbours divided by |sum of
// those neighbours' weights| (1 when it is below 0.001, so zero-sum derivative
// kernels are not normalised), in single precision, truncated toward zero.
void Ipg_ConvolvePlain(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& taps, Ipg_RowSpan span);

// The same pixels as Ipg_ConvolvePlain, faster: rows whose window holds no mark
// are accumulated tap by tap over the whole row. The output must have the
// input's geometry. With seen, every output row computed is measured (whole,
// frame included) right after it is written, into seen; returns those rows.
Ipg_RowSpan Ipg_ConvolveFast(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& taps, Ipg_RowSpan span,
                             IPG_BAND_EXTREMES* seen = nullptr);

// The rows of the image a convolution by taps computes.
Ipg_RowSpan Ipg_ConvolutionRows(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& taps);
