// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_wavelet_denoise.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>

namespace {

// MAD of a zero-mean Gaussian is 0.6745 of its deviation.
constexpr double kMadToSigma = 0.6745;

double Mean(const std::vector<double>& v)
{
  return v.empty() ? 0.0 : std::accumulate(v.begin(), v.end(), 0.0) / static_cast<double>(v.size());
}

double NoiseSigma(const std::vector<double>& diagonal)
{
  std::vector<double> magnitudes(diagonal.size());
  std::transform(diagonal.begin(), diagonal.end(), magnitudes.begin(), [](double v) { return std::fabs(v); });
  if (magnitudes.empty())
    return 0.0;
  auto middle = magnitudes.begin() + static_cast<std::ptrdiff_t>(magnitudes.size() / 2);
  std::nth_element(magnitudes.begin(), middle, magnitudes.end());
  return *middle / kMadToSigma;
}

double Soft(double y, double threshold)
{
  const double shrunk = std::fabs(y) - threshold;
  return shrunk > 0.0 ? std::copysign(shrunk, y) : 0.0;
}

// Running sums along one line of n values spaced `stride` apart: out[i] = sum
// of v over [i - half, i + half] clipped to the line.
void WindowSums(const double* v, std::size_t stride, int n, int half, double* out, std::vector<double>& prefix)
{
  prefix.assign(static_cast<std::size_t>(n) + 1, 0.0);
  for (int i = 0; i < n; ++i)
    prefix[static_cast<std::size_t>(i) + 1] = prefix[static_cast<std::size_t>(i)] + v[i * stride];
  for (int i = 0; i < n; ++i) {
    const int lo = std::max(0, i - half), hi = std::min(n - 1, i + half);
    out[i * stride] = prefix[static_cast<std::size_t>(hi) + 1] - prefix[static_cast<std::size_t>(lo)];
  }
}

// Mean of y^2 over the clipped window around each coefficient.
std::vector<double> LocalEnergy(const std::vector<double>& band, int cols, int rows, int window)
{
  const int half = window / 2;
  std::vector<double> squares(band.size()), rowsSummed(band.size()), sums(band.size()), prefix;
  std::transform(band.begin(), band.end(), squares.begin(), [](double y) { return y * y; });
  for (int r = 0; r < rows; ++r) {
    const std::size_t at = static_cast<std::size_t>(r) * cols;
    WindowSums(squares.data() + at, 1, cols, half, rowsSummed.data() + at, prefix);
  }
  for (int c = 0; c < cols; ++c)
    WindowSums(rowsSummed.data() + c, static_cast<std::size_t>(cols), rows, half, sums.data() + c, prefix);
  for (int r = 0; r < rows; ++r) {
    const double height = std::min(rows - 1, r + half) - std::max(0, r - half) + 1;
    for (int c = 0; c < cols; ++c) {
      const double width = std::min(cols - 1, c + half) - std::max(0, c - half) + 1;
      sums[static_cast<std::size_t>(r) * cols + c] /= width * height;
    }
  }
  return sums;
}

void ShrinkUniversal(std::vector<double>& band, double threshold)
{
  for (double& y : band)
    y = Soft(y, threshold);
}

void ShrinkBayes(std::vector<double>& band, int cols, int rows, double sigma, const IPG_DENOISE_SETTINGS& settings)
{
  const std::vector<double> energy = LocalEnergy(band, cols, rows, settings.Window);
  const double noise = sigma * sigma;
  for (std::size_t k = 0; k < band.size(); ++k) {
    const double signal = energy[k] - noise;
    band[k] = signal > 0.0 ? Soft(band[k], settings.Factor / 2 * noise / std::sqrt(signal)) : 0.0;
  }
}

void ToLog(std::vector<double>& image)
{
  for (double& v : image)
    v = std::log1p(std::max(v, 0.0));
}

void FromLog(std::vector<double>& image, double targetMean)
{
  for (double& v : image)
    v = std::expm1(v);
  const double mean = Mean(image);
  if (mean > 0.0)
    for (double& v : image)
      v *= targetMean / mean;
}

} // namespace

double Ipg_WaveletDenoise(const IPG_WAVELET_BANK& bank, std::vector<double>& image, int cols, int rows,
                          const IPG_DENOISE_SETTINGS& settings)
{
  const double inputMean = Mean(image);
  if (settings.LogTransform)
    ToLog(image);

  std::vector<IPG_FRAME_BANDS> levels(static_cast<std::size_t>(settings.Scales));
  for (int level = 0; level < settings.Scales; ++level) {
    const std::vector<double>& source = level == 0 ? image : levels[static_cast<std::size_t>(level) - 1].Approximation;
    Ipg_SwtForwardLevel(bank, source.data(), cols, rows, level, levels[static_cast<std::size_t>(level)]);
    if (level > 0) // only the coarsest approximation is needed for the inverse
      levels[static_cast<std::size_t>(level) - 1].Approximation.clear();
  }

  const double sigma = NoiseSigma(levels.front().Diagonal);
  const double universal = settings.Factor / 2 * sigma * std::sqrt(2.0 * std::log(static_cast<double>(image.size())));
  for (IPG_FRAME_BANDS& bands : levels)
    for (auto* band : {&bands.Horizontal, &bands.Vertical, &bands.Diagonal}) {
      if (settings.Adaptive)
        ShrinkBayes(*band, cols, rows, sigma, settings);
      else
        ShrinkUniversal(*band, universal);
    }

  for (int level = settings.Scales - 1; level >= 0; --level) {
    IPG_FRAME_BANDS& bands = levels[static_cast<std::size_t>(level)];
    Ipg_SwtInverseLevel(bank, bands, cols, rows, level, image.data());
    if (level > 0)
      levels[static_cast<std::size_t>(level) - 1].Approximation = image;
    bands = IPG_FRAME_BANDS();
  }
  if (settings.LogTransform)
    FromLog(image, inputMean);
  return sigma;
}
