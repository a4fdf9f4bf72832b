// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_derivative_kernels.h"

#include "ipg/internal/ipg_roi_mask.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

constexpr float kPiF = 3.14159265358979f;

std::optional<std::vector<double>> SquareCoefficients(int size)
{
  std::vector<double> coef;
  try {
    coef.reserve(static_cast<std::size_t>(size) * size);
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
  return coef;
}

} // namespace

std::vector<double> Ipg_DericheSmoothCoefficients()
{
  const double alpha = 1.2;
  const double k = alpha / 4.0;
  std::vector<double> coef;
  for (int j = -1; j <= 1; ++j)
    for (int i = -1; i <= 1; ++i) {
      const double ai = std::abs(i) * alpha;
      const double aj = std::abs(j) * alpha;
      coef.push_back(10.0 * k * k * (1.0 + ai) * std::exp(-ai) * (1.0 + aj) * std::exp(-aj));
    }
  return coef;
}

std::vector<double> Ipg_DericheDerivativeCoefficients(bool horizontal)
{
  const double alpha = 3.2;
  const double c = -1.25 * alpha * alpha * alpha;
  std::vector<double> coef;
  for (int j = -2; j <= 2; ++j)
    for (int i = -2; i <= 2; ++i) {
      const double ei = std::exp(-alpha * std::abs(i));
      const double ej = std::exp(-alpha * std::abs(j));
      coef.push_back(horizontal ? c * i * ei * (1.0 + alpha * std::abs(j)) * ej
                                     : c * j * ej * (1.0 + alpha * std::abs(i)) * ei);
    }
  return coef;
}

std::optional<std::vector<double>> Ipg_GaussianCoefficients(int size)
{
  auto coef = SquareCoefficients(size);
  if (!coef)
    return std::nullopt;
  const double sigma = size / 6.0;
  const int h = size / 2;
  double sum = 0.0;
  for (int y = -h; y <= h; ++y)
    for (int x = -h; x <= h; ++x) {
      coef->push_back(-(x * x + y * y) / (2.0 * sigma * sigma));
      sum += coef->back();
    }
  if (sum != 0.0) // a 1x1 kernel is the single 0
    for (double& c : *coef)
      c /= sum;
  return coef;
}

std::optional<std::vector<double>> Ipg_LaplacianGaussianCoefficients(int size, double sigma)
{
  auto coef = SquareCoefficients(size);
  if (!coef)
    return std::nullopt;
  const float sigma2 = static_cast<float>(sigma) * static_cast<float>(sigma);
  const float scale = -1.0f / (2.0f * kPiF * sigma2 * sigma2);
  const int h = size / 2;
  for (int y = -h; y <= h; ++y)
    for (int x = -h; x <= h; ++x) {
      const float t = -static_cast<float>(x * x + y * y) / sigma2;
      coef->push_back((t + 2.0f) * scale * std::exp(t / 2.0f));
    }
  return coef;
}

void Ipg_GradientMagnitude(const int* gx, const int* gy, int* out, std::size_t n)
{
  for (std::size_t i = 0; i < n; ++i) {
    // 32-bit magnitude: where gx^2 + gy^2 wraps negative the smoothed value stays.
    const std::uint32_t wrapped = static_cast<std::uint32_t>(gx[i]) * static_cast<std::uint32_t>(gx[i]) +
                                  static_cast<std::uint32_t>(gy[i]) * static_cast<std::uint32_t>(gy[i]);
    const std::int32_t m = static_cast<std::int32_t>(wrapped);
    if (m >= 0)
      out[i] = static_cast<int>(std::sqrt(static_cast<double>(m)));
  }
}

void Ipg_GradientDirection(const int* gx, const int* gy, double* angle, std::size_t n)
{
  for (std::size_t i = 0; i < n; ++i)
    angle[i] = (gx[i] == 0 && gy[i] == 0) ? 0.0 : std::atan2(static_cast<double>(gy[i]), static_cast<double>(gx[i]));
}

void Ipg_MarkLaplacianLobe(const Ipg_KernelImages& images, bool negativeLobe)
{
  for (int row = 0; row < images.Rows; ++row)
    for (int col = 0; col < images.Cols; ++col) {
      int& v = images.Out[images.At(col, row)];
      if (Ipg_IsMark(v) || !images.InsideRoi(col, row))
        continue;
      v = (negativeLobe ? v < 0 : v > 0) ? kIpgMaskValue : 0;
    }
}
