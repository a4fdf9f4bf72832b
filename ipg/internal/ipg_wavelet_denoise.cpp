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

// Sums of v over [i - half, i + half] clipped to the n values of a row.
void RowWindowSums(const double* v, int n, int half, double* out, std::vector<double>& prefix)
{
  prefix.assign(static_cast<std::size_t>(n) + 1, 0.0);
  for (int i = 0; i < n; ++i)
    prefix[static_cast<std::size_t>(i) + 1] = prefix[static_cast<std::size_t>(i)] + v[i];
  for (int i = 0; i < n; ++i)
    out[i] = prefix[static_cast<std::size_t>(std::min(n - 1, i + half)) + 1] -
             prefix[static_cast<std::size_t>(std::max(0, i - half))];
}

// Mean of y^2 over the clipped window around each coefficient: sums along
// rows, then a running sum of whole rows down the columns.
std::vector<double> LocalEnergy(const std::vector<double>& band, int cols, int rows, int window)
{
  const int half = window / 2;
  std::vector<double> squares(band.size()), rowSums(band.size()), out(band.size()), prefix;
  std::transform(band.begin(), band.end(), squares.begin(), [](double y) { return y * y; });
  for (int r = 0; r < rows; ++r) {
    const std::size_t at = static_cast<std::size_t>(r) * cols;
    RowWindowSums(squares.data() + at, cols, half, rowSums.data() + at, prefix);
  }
  auto row = [&](int r) { return rowSums.data() + static_cast<std::size_t>(r) * cols; };
  std::vector<double> running(static_cast<std::size_t>(cols), 0.0), width(static_cast<std::size_t>(cols));
  for (int c = 0; c < cols; ++c)
    width[static_cast<std::size_t>(c)] = std::min(cols - 1, c + half) - std::max(0, c - half) + 1;
  for (int r = 0; r < std::min(rows, half); ++r)
    for (int c = 0; c < cols; ++c)
      running[static_cast<std::size_t>(c)] += row(r)[c];
  for (int r = 0; r < rows; ++r) {
    if (r + half < rows) // the row entering the window
      for (int c = 0; c < cols; ++c)
        running[static_cast<std::size_t>(c)] += row(r + half)[c];
    if (r - half - 1 >= 0) // the row leaving it
      for (int c = 0; c < cols; ++c)
        running[static_cast<std::size_t>(c)] -= row(r - half - 1)[c];
    const double height = std::min(rows - 1, r + half) - std::max(0, r - half) + 1;
    double* o = out.data() + static_cast<std::size_t>(r) * cols;
    for (int c = 0; c < cols; ++c)
      o[c] = running[static_cast<std::size_t>(c)] / (width[static_cast<std::size_t>(c)] * height);
  }
  return out;
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
