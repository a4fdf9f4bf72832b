// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/internal/ipg_kernel_images.h"

#include <cstddef>
#include <optional>
#include <vector>

// Kernels of the Deriche, Gaussian and Laplacian-of-Gaussian filters: the
// coefficients they convolve with (square, row-major) and the per-pixel steps
// that follow the convolution.

// 3x3 Deriche smoothing coefficients (alpha 1.2).
std::vector<double> Ipg_DericheSmoothCoefficients();
// 5x5 Deriche derivative coefficients (alpha 3.2) along x (horizontal) or y.
std::vector<double> Ipg_DericheDerivativeCoefficients(bool horizontal);
// size x size coefficients -(x^2 + y^2) / (2 sigma^2), sigma = size / 6,
// normalised by their sum (without the exponential, as existing results were
// computed); nothing when they cannot be allocated.
std::optional<std::vector<double>> Ipg_GaussianCoefficients(int size);
// size x size Laplacian-of-Gaussian coefficients in single precision; nothing
// when they cannot be allocated.
std::optional<std::vector<double>> Ipg_LaplacianGaussianCoefficients(int size, double sigma);

// Gradient magnitude sqrt(gx^2 + gy^2) into out, n pixels; where the 32-bit
// gx^2 + gy^2 wraps negative, out keeps its value.
void Ipg_GradientMagnitude(const int* gx, const int* gy, int* out, std::size_t n);
// Gradient angles atan2(gy, gx), 0 where both are 0.
void Ipg_GradientDirection(const int* gx, const int* gy, double* angle, std::size_t n);

// In place on images.Out (Cols x Rows): 16777217 where the response has the
// sign of the selected lobe (negative or positive) and 0 elsewhere; marks and
// pixels outside the ROI are left.
void Ipg_MarkLaplacianLobe(const Ipg_KernelImages& images, bool negativeLobe);
