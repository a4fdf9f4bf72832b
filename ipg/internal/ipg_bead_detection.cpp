// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_bead_detection.h"

#include "ipg/internal/ipg_pixel_values.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>

namespace {

// Bins of the histogram that Otsu's threshold of the LoG response reads.
constexpr std::size_t kResponseBins = 4096;
// Widest grey-level histogram; a wider range is binned.
constexpr std::int64_t kMaxGreyBins = 65536;

// A value per pixel, the weight it gives a centroid, and whether it may belong
// to a bead at all.
struct MEASURED_IMAGE {
  std::vector<double> Value;
  std::vector<unsigned char> Candidate;
  double Threshold = 0.0; // a bead pixel lies strictly above it
};

bool Counted(const IPG_BEAD_IMAGE& image, std::size_t k)
{
  return image.Pixels[k] <= kIpgMaxGrey && (image.Roi == nullptr || image.Roi[k] == kIpgMaskValue);
}

// Otsu's threshold of the counted grey levels: the top level of the lower class.
std::optional<double> OtsuGreyThreshold(const IPG_BEAD_IMAGE& image, std::size_t size)
{
  int lowest = INT_MAX, highest = INT_MIN;
  for (std::size_t k = 0; k < size; ++k)
    if (Counted(image, k)) {
      lowest = std::min(lowest, image.Pixels[k]);
      highest = std::max(highest, image.Pixels[k]);
    }
  if (lowest >= highest)
    return std::nullopt;
  const std::int64_t range = static_cast<std::int64_t>(highest) - lowest + 1;
  const std::int64_t width = (range + kMaxGreyBins - 1) / kMaxGreyBins;
  std::vector<double> counts(static_cast<std::size_t>((range + width - 1) / width), 0.0);
  for (std::size_t k = 0; k < size; ++k)
    if (Counted(image, k))
      counts[static_cast<std::size_t>((static_cast<std::int64_t>(image.Pixels[k]) - lowest) / width)] += 1.0;
  const std::optional<std::size_t> cut = Ipg_OtsuCut(counts);
  if (!cut)
    return std::nullopt;
  return static_cast<double>(lowest + static_cast<std::int64_t>(*cut + 1) * width - 1);
}

// Normalised 1-D Gaussian of standard deviation sigma over +-ceil(3 sigma).
std::vector<double> GaussianTaps(double sigma)
{
  const int radius = std::max(1, static_cast<int>(std::ceil(3.0 * sigma)));
  std::vector<double> taps(static_cast<std::size_t>(2 * radius + 1));
  double sum = 0.0;
  for (int i = -radius; i <= radius; ++i)
    sum += taps[static_cast<std::size_t>(i + radius)] = std::exp(-0.5 * i * i / (sigma * sigma));
  for (double& t : taps)
    t /= sum;
  return taps;
}

// One separable pass along columns (step 1) or rows (step cols), the border
// replicated.
void SmoothLine(const std::vector<double>& in, std::vector<double>& out, const std::vector<double>& taps,
                unsigned cols, unsigned rows, bool alongRows)
{
  const int radius = static_cast<int>(taps.size() / 2);
  const long long length = alongRows ? rows : cols;
  for (unsigned r = 0; r < rows; ++r)
    for (unsigned c = 0; c < cols; ++c) {
      const long long at = alongRows ? r : c;
      double sum = 0.0;
      for (int i = -radius; i <= radius; ++i) {
        const long long p = std::clamp<long long>(at + i, 0, length - 1);
        const std::size_t k = alongRows ? static_cast<std::size_t>(p) * cols + c
                                        : static_cast<std::size_t>(r) * cols + static_cast<std::size_t>(p);
        sum += taps[static_cast<std::size_t>(i + radius)] * in[k];
      }
      out[static_cast<std::size_t>(r) * cols + c] = sum;
    }
}

// -sigma^2 times the 5-point Laplacian of the Gaussian-smoothed image. Marks
// and pixels outside the ROI enter the smoothing as the lowest counted level,
// so that they neither make nor hide a bead.
std::vector<double> NormalisedLaplacian(const IPG_BEAD_IMAGE& image, double sigma)
{
  const std::size_t size = static_cast<std::size_t>(image.Cols) * image.Rows;
  double lowest = 0.0;
  bool any = false;
  for (std::size_t k = 0; k < size; ++k)
    if (Counted(image, k)) {
      lowest = any ? std::min(lowest, static_cast<double>(image.Pixels[k])) : image.Pixels[k];
      any = true;
    }
  std::vector<double> a(size), b(size);
  for (std::size_t k = 0; k < size; ++k)
    a[k] = Counted(image, k) ? image.Pixels[k] : lowest;
  const std::vector<double> taps = GaussianTaps(sigma);
  SmoothLine(a, b, taps, image.Cols, image.Rows, false);
  SmoothLine(b, a, taps, image.Cols, image.Rows, true);
  const long long cols = image.Cols, rows = image.Rows;
  auto at = [&](long long c, long long r) {
    return a[static_cast<std::size_t>(std::clamp(r, 0LL, rows - 1) * cols + std::clamp(c, 0LL, cols - 1))];
  };
  for (long long r = 0; r < rows; ++r)
    for (long long c = 0; c < cols; ++c)
      b[static_cast<std::size_t>(r * cols + c)] =
          -sigma * sigma * (at(c - 1, r) + at(c + 1, r) + at(c, r - 1) + at(c, r + 1) - 4.0 * at(c, r));
  return b;
}

// Otsu's threshold of the positive responses of the candidate pixels.
std::optional<double> OtsuResponseThreshold(const MEASURED_IMAGE& measured)
{
  double highest = 0.0;
  for (std::size_t k = 0; k < measured.Value.size(); ++k)
    if (measured.Candidate[k])
      highest = std::max(highest, measured.Value[k]);
  if (!(highest > 0.0))
    return std::nullopt;
  std::vector<double> counts(kResponseBins, 0.0);
  const double width = highest / static_cast<double>(kResponseBins);
  for (std::size_t k = 0; k < measured.Value.size(); ++k)
    if (measured.Candidate[k] && measured.Value[k] > 0.0)
      counts[std::min(kResponseBins - 1, static_cast<std::size_t>(measured.Value[k] / width))] += 1.0;
  const std::optional<std::size_t> cut = Ipg_OtsuCut(counts);
  if (!cut)
    return std::nullopt;
  return static_cast<double>(*cut + 1) * width;
}

std::optional<MEASURED_IMAGE> Measure(const IPG_BEAD_IMAGE& image, const IPG_BEAD_SETTINGS& settings)
{
  const std::size_t size = static_cast<std::size_t>(image.Cols) * image.Rows;
  MEASURED_IMAGE measured;
  measured.Candidate.resize(size);
  for (std::size_t k = 0; k < size; ++k)
    measured.Candidate[k] = Counted(image, k) ? 1 : 0;
  std::optional<double> threshold;
  if (settings.Method == IPG_BEAD_METHOD::LaplacianOfGaussian) {
    measured.Value = NormalisedLaplacian(image, settings.Sigma);
    threshold = OtsuResponseThreshold(measured);
  } else {
    measured.Value.assign(image.Pixels, image.Pixels + size);
    threshold = settings.Method == IPG_BEAD_METHOD::Otsu ? OtsuGreyThreshold(image, size)
                                                         : std::optional<double>(settings.Threshold);
  }
  if (!threshold)
    return std::nullopt;
  measured.Threshold = *threshold;
  return measured;
}

// Floods the 8-connected component of bead pixels from `seed`, clearing them
// from `open`; adds the bead when its area is within the limits and it stays
// off the border.
void TakeComponent(const MEASURED_IMAGE& measured, std::vector<unsigned char>& open, std::vector<std::size_t>& stack,
                   std::size_t seed, unsigned cols, unsigned rows, const IPG_BEAD_SETTINGS& settings,
                   std::vector<IPG_BEAD>& beads)
{
  double weight = 0.0, sumX = 0.0, sumY = 0.0;
  long long area = 0;
  bool onBorder = false;
  stack.assign(1, seed);
  open[seed] = 0;
  while (!stack.empty()) {
    const std::size_t k = stack.back();
    stack.pop_back();
    const unsigned c = static_cast<unsigned>(k % cols), r = static_cast<unsigned>(k / cols);
    const double w = measured.Value[k] - measured.Threshold;
    weight += w;
    sumX += w * c;
    sumY += w * r;
    ++area;
    onBorder = onBorder || c == 0 || r == 0 || c + 1 == cols || r + 1 == rows;
    for (int dr = -1; dr <= 1; ++dr)
      for (int dc = -1; dc <= 1; ++dc) {
        const long long nc = static_cast<long long>(c) + dc, nr = static_cast<long long>(r) + dr;
        if (nc < 0 || nr < 0 || nc >= cols || nr >= rows)
          continue;
        const std::size_t n = static_cast<std::size_t>(nr) * cols + static_cast<std::size_t>(nc);
        if (open[n]) {
          open[n] = 0;
          stack.push_back(n);
        }
      }
  }
  if (onBorder || area < settings.MinArea || area > settings.MaxArea || !(weight > 0.0))
    return;
  beads.push_back({sumX / weight, sumY / weight, static_cast<int>(area)});
}

} // namespace

std::optional<std::size_t> Ipg_OtsuCut(const std::vector<double>& counts)
{
  double total = 0.0, weightedTotal = 0.0;
  std::size_t filled = 0;
  for (std::size_t i = 0; i < counts.size(); ++i) {
    total += counts[i];
    weightedTotal += static_cast<double>(i) * counts[i];
    filled += counts[i] > 0.0 ? 1 : 0;
  }
  if (filled < 2)
    return std::nullopt;
  // Between-class variance w0 w1 (m0 - m1)^2, from running sums.
  double below = 0.0, weightedBelow = 0.0, best = -1.0;
  std::size_t cut = 0;
  for (std::size_t i = 0; i + 1 < counts.size(); ++i) {
    below += counts[i];
    weightedBelow += static_cast<double>(i) * counts[i];
    const double above = total - below;
    if (below <= 0.0 || above <= 0.0)
      continue;
    const double difference = weightedBelow / below - (weightedTotal - weightedBelow) / above;
    const double score = below * above * difference * difference;
    if (score > best) {
      best = score;
      cut = i;
    }
  }
  return cut;
}

std::vector<IPG_BEAD> Ipg_DetectBeads(const IPG_BEAD_IMAGE& image, const IPG_BEAD_SETTINGS& settings)
{
  std::vector<IPG_BEAD> beads;
  const std::size_t size = static_cast<std::size_t>(image.Cols) * image.Rows;
  if (image.Pixels == nullptr || size == 0)
    return beads;
  const std::optional<MEASURED_IMAGE> measured = Measure(image, settings);
  if (!measured)
    return beads;
  std::vector<unsigned char> open(size);
  for (std::size_t k = 0; k < size; ++k)
    open[k] = measured->Candidate[k] && measured->Value[k] > measured->Threshold ? 1 : 0;
  std::vector<std::size_t> stack;
  for (std::size_t k = 0; k < size; ++k)
    if (open[k])
      TakeComponent(*measured, open, stack, k, image.Cols, image.Rows, settings, beads);
  return beads;
}
