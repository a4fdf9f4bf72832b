// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_gradient_vector_flow.h"

#include "ipg/internal/ipg_pixel_values.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <tuple>
#include <utility>

namespace {

std::size_t At(int col, int row, int cols)
{
  return static_cast<std::size_t>(row) * static_cast<std::size_t>(cols) + static_cast<std::size_t>(col);
}

// Normalised Gaussian taps, radius ceil(3 sigma).
std::vector<double> GaussianTaps(double sigma)
{
  const int radius = static_cast<int>(std::ceil(3.0 * sigma));
  std::vector<double> taps(static_cast<std::size_t>(2 * radius + 1));
  double sum = 0.0;
  for (int k = -radius; k <= radius; ++k)
    sum += taps[static_cast<std::size_t>(k + radius)] = std::exp(-0.5 * k * k / (sigma * sigma));
  for (double& tap : taps)
    tap /= sum;
  return taps;
}

// The separable Gaussian, borders replicated: along the rows on a padded copy
// of each row, then along the columns by adding whole weighted rows, which
// vectorises.
std::vector<double> Smooth(const std::vector<double>& in, int cols, int rows, const std::vector<double>& taps)
{
  const int radius = static_cast<int>(taps.size() / 2);
  std::vector<double> across(in.size()), line(static_cast<std::size_t>(cols + 2 * radius));
  for (int r = 0; r < rows; ++r) {
    for (int k = 0; k < cols + 2 * radius; ++k)
      line[static_cast<std::size_t>(k)] = in[At(std::clamp(k - radius, 0, cols - 1), r, cols)];
    for (int c = 0; c < cols; ++c) {
      double sum = 0.0;
      for (std::size_t k = 0; k < taps.size(); ++k)
        sum += taps[k] * line[static_cast<std::size_t>(c) + k];
      across[At(c, r, cols)] = sum;
    }
  }
  std::vector<double> out(in.size(), 0.0);
  for (int r = 0; r < rows; ++r) {
    double* target = &out[At(0, r, cols)];
    for (int k = -radius; k <= radius; ++k) {
      const double* source = &across[At(0, std::clamp(r + k, 0, rows - 1), cols)];
      const double tap = taps[static_cast<std::size_t>(k + radius)];
      for (int c = 0; c < cols; ++c)
        target[c] += tap * source[c];
    }
  }
  return out;
}

// Central difference of one pixel along a line of `count` samples `stride` apart.
template <typename T>
double Difference(const T* line, int k, int count, std::size_t stride)
{
  if (count < 2)
    return 0.0;
  const int before = std::max(k - 1, 0), after = std::min(k + 1, count - 1);
  return (static_cast<double>(line[static_cast<std::size_t>(after) * stride]) -
          static_cast<double>(line[static_cast<std::size_t>(before) * stride])) /
         (after - before);
}

} // namespace

IPG_VECTOR_FIELD Ipg_SmoothedGradient(const int* pixels, const int* roi, int cols, int rows, double sigma)
{
  const std::size_t size = static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows);
  std::vector<double> smooth(size);
  for (std::size_t k = 0; k < size; ++k)
    smooth[k] = std::min(pixels[k], kIpgMaxGrey);
  if (sigma > 0.0) {
    const std::vector<double> taps = GaussianTaps(sigma);
    smooth = Smooth(smooth, cols, rows, taps);
  }
  std::vector<double> gx(size, 0.0), gy(size, 0.0);
  double longest = 0.0;
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < cols; ++c) {
      const std::size_t k = At(c, r, cols);
      if (roi != nullptr && roi[k] != kIpgMaskValue)
        continue;
      gx[k] = Difference(&smooth[At(0, r, cols)], c, cols, 1);
      gy[k] = Difference(&smooth[At(c, 0, cols)], r, rows, static_cast<std::size_t>(cols));
      longest = std::max(longest, std::hypot(gx[k], gy[k]));
    }
  IPG_VECTOR_FIELD field{cols, rows, std::vector<float>(size, 0.0f), std::vector<float>(size, 0.0f)};
  if (longest > 0.0)
    for (std::size_t k = 0; k < size; ++k) {
      field.U[k] = static_cast<float>(gx[k] / longest);
      field.V[k] = static_cast<float>(gy[k] / longest);
    }
  return field;
}

std::vector<float> Ipg_EdgeMap(const int* pixels, const int* roi, int cols, int rows, double sigma)
{
  const IPG_VECTOR_FIELD gradient = Ipg_SmoothedGradient(pixels, roi, cols, rows, sigma);
  std::vector<float> edges(gradient.U.size());
  for (std::size_t k = 0; k < edges.size(); ++k)
    edges[k] = gradient.U[k] * gradient.U[k] + gradient.V[k] * gradient.V[k];
  return edges;
}

IPG_VECTOR_FIELD Ipg_GradientOf(const std::vector<float>& f, int cols, int rows)
{
  IPG_VECTOR_FIELD field{cols, rows, std::vector<float>(f.size()), std::vector<float>(f.size())};
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < cols; ++c) {
      const std::size_t k = At(c, r, cols);
      field.U[k] = static_cast<float>(Difference(&f[At(0, r, cols)], c, cols, 1));
      field.V[k] = static_cast<float>(Difference(&f[At(c, 0, cols)], r, rows, static_cast<std::size_t>(cols)));
    }
  return field;
}

void Ipg_NormaliseField(IPG_VECTOR_FIELD& field)
{
  for (std::size_t k = 0; k < field.U.size(); ++k) {
    const float length = std::hypot(field.U[k], field.V[k]);
    if (length >= 1e-6f) {
      field.U[k] /= length;
      field.V[k] /= length;
    }
  }
}

IPG_GVF_DIFFUSION::IPG_GVF_DIFFUSION(const std::vector<float>& edgeMap, int cols, int rows, double mu)
    : Current(Ipg_GradientOf(edgeMap, cols, rows)), Next(Current), Keep(edgeMap.size()), DataU(edgeMap.size()),
      DataV(edgeMap.size()), Bands(Ipg_SplitRows(static_cast<unsigned>(rows), static_cast<std::size_t>(cols)))
{
  double strongest = 0.0;
  for (std::size_t k = 0; k < Keep.size(); ++k)
    strongest = std::max(strongest, static_cast<double>(Current.U[k]) * Current.U[k] +
                                        static_cast<double>(Current.V[k]) * Current.V[k]);
  Dt = std::min(1.0, 1.0 / (4.0 * mu + strongest));
  Spread = static_cast<float>(mu * Dt);
  for (std::size_t k = 0; k < Keep.size(); ++k) {
    const double data = Dt * (static_cast<double>(Current.U[k]) * Current.U[k] +
                              static_cast<double>(Current.V[k]) * Current.V[k]);
    Keep[k] = static_cast<float>(1.0 - 4.0 * mu * Dt - data);
    DataU[k] = static_cast<float>(data * Current.U[k]);
    DataV[k] = static_cast<float>(data * Current.V[k]);
  }
}

void IPG_GVF_DIFFUSION::Step()
{
  Ipg_RunBands(Bands, [this](unsigned, unsigned first, unsigned end) { StepRows(first, end); });
  std::swap(Current, Next);
}

void IPG_GVF_DIFFUSION::StepRows(unsigned firstRow, unsigned endRow)
{
  const int cols = Current.Cols, rows = Current.Rows;
  const float r = Spread;
  for (int row = static_cast<int>(firstRow); row < static_cast<int>(endRow); ++row) {
    const std::size_t here = At(0, row, cols);
    const std::size_t up = At(0, std::max(row - 1, 0), cols), down = At(0, std::min(row + 1, rows - 1), cols);
    for (auto [in, out, data] : {std::tuple{Current.U.data(), Next.U.data(), DataU.data()},
                                 std::tuple{Current.V.data(), Next.V.data(), DataV.data()}}) {
      const float* line = in + here;
      const float* above = in + up;
      const float* below = in + down;
      const float* keep = Keep.data() + here;
      const float* add = data + here;
      float* target = out + here;
      // The border columns replicate themselves; the interior loop vectorises.
      auto update = [&](int c, float left, float right) {
        target[c] = keep[c] * line[c] + r * (left + right + above[c] + below[c]) + add[c];
      };
      update(0, line[0], line[std::min(1, cols - 1)]);
      for (int c = 1; c < cols - 1; ++c)
        target[c] = keep[c] * line[c] + r * (line[c - 1] + line[c + 1] + above[c] + below[c]) + add[c];
      if (cols > 1)
        update(cols - 1, line[cols - 2], line[cols - 1]);
    }
  }
}
