// SPDX-License-Identifier: Apache-2.0
#include "dcm/dcm_phantom.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace {

constexpr double kPixelSpacingMm = 0.2;
constexpr double kAxialSigma = 0.8;   // pixels, along a column (depth)
constexpr double kLateralSigma = 1.4; // pixels, along a row
constexpr double kDisplayTopDb = 15.0;
constexpr double kDisplayRangeDb = 45.0;
constexpr double kLinearScale = 1000.0;

// Region label of pixel (c, r) of an n x n phantom.
int Label(unsigned c, unsigned r, unsigned n)
{
  const double x = (c + 0.5) / n, y = (r + 0.5) / n;
  auto inside = [&](double cx, double cy, double radius) {
    return (x - cx) * (x - cx) + (y - cy) * (y - cy) <= radius * radius;
  };
  if (inside(0.32, 0.58, 0.13))
    return kDcmPhantomCyst;
  if (inside(0.70, 0.55, 0.11))
    return kDcmPhantomInclusion;
  if (y >= 0.12 && y < 0.27)
    return kDcmPhantomLayer;
  return kDcmPhantomTissue;
}

// Uniform in (0, 1] from 53 random bits: the same sequence on every platform.
double Uniform(std::mt19937_64& rng)
{
  return (static_cast<double>(rng() >> 11) + 1.0) * (1.0 / 9007199254740992.0);
}

// Standard normal by Box-Muller, from two uniforms.
void Gaussians(std::mt19937_64& rng, double& a, double& b)
{
  const double radius = std::sqrt(-2.0 * std::log(Uniform(rng)));
  const double angle = 2.0 * M_PI * Uniform(rng);
  a = radius * std::cos(angle);
  b = radius * std::sin(angle);
}

std::vector<double> Kernel(double sigma)
{
  const int half = static_cast<int>(std::ceil(3.0 * sigma));
  std::vector<double> k(2 * half + 1);
  for (int i = -half; i <= half; ++i)
    k[i + half] = std::exp(-0.5 * i * i / (sigma * sigma));
  return k;
}

// Separable blur of a complex field; samples outside the image count as 0.
void Blur(std::vector<double>& re, std::vector<double>& im, unsigned n, const std::vector<double>& kernel,
          bool alongRows)
{
  const int half = static_cast<int>(kernel.size() / 2);
  std::vector<double> outRe(re.size(), 0.0), outIm(im.size(), 0.0);
  for (unsigned r = 0; r < n; ++r)
    for (unsigned c = 0; c < n; ++c) {
      double sr = 0.0, si = 0.0;
      for (int k = -half; k <= half; ++k) {
        const long cc = alongRows ? static_cast<long>(c) + k : c;
        const long rr = alongRows ? r : static_cast<long>(r) + k;
        if (cc < 0 || rr < 0 || cc >= static_cast<long>(n) || rr >= static_cast<long>(n))
          continue;
        const std::size_t at = static_cast<std::size_t>(rr) * n + static_cast<std::size_t>(cc);
        sr += kernel[k + half] * re[at];
        si += kernel[k + half] * im[at];
      }
      outRe[static_cast<std::size_t>(r) * n + c] = sr;
      outIm[static_cast<std::size_t>(r) * n + c] = si;
    }
  re.swap(outRe);
  im.swap(outIm);
}

// Mean speckle intensity over the looks, of mean equal to the echogenicity.
std::vector<double> SpeckleIntensity(const std::vector<int>& labels, const DCM_PHANTOM_OPTIONS& o)
{
  const unsigned n = o.Size;
  const std::vector<double> axial = Kernel(kAxialSigma), lateral = Kernel(kLateralSigma);
  double energy = 0.0; // sum of squared PSF weights: the blurred field's variance factor
  for (double a : axial)
    for (double l : lateral)
      energy += a * a * l * l;
  std::mt19937_64 rng(o.Seed);
  std::vector<double> intensity(labels.size(), 0.0);
  std::vector<double> re(labels.size()), im(labels.size());
  for (unsigned look = 0; look < o.Looks; ++look) {
    for (std::size_t i = 0; i < labels.size(); ++i) {
      Gaussians(rng, re[i], im[i]);
      const double amplitude = std::sqrt(Dcm_PhantomEchogenicity(labels[i]) / 2.0); // E|z|^2 = echogenicity
      re[i] *= amplitude;
      im[i] *= amplitude;
    }
    Blur(re, im, n, lateral, true);
    Blur(re, im, n, axial, false);
    for (std::size_t i = 0; i < labels.size(); ++i)
      intensity[i] += (re[i] * re[i] + im[i] * im[i]) / energy;
  }
  for (double& v : intensity)
    v /= o.Looks;
  return intensity;
}

int LogCompressed(double intensity)
{
  const double db = 10.0 * std::log10(std::max(intensity, 1e-12));
  const double t = (db - (kDisplayTopDb - kDisplayRangeDb)) / kDisplayRangeDb;
  return static_cast<int>(std::lround(std::clamp(t, 0.0, 1.0) * 255.0));
}

int Linear(double intensity)
{
  return static_cast<int>(std::lround(std::min(intensity * kLinearScale, 65535.0)));
}

DCM_HEADER PhantomHeader(const DCM_STRUCT& image, short bits)
{
  DCM_HEADER h = image.GetHeader();
  h.BitsStored = bits;
  h.BitsAllocated = bits;
  h.HighBit = static_cast<short>(bits - 1);
  h.PixelRepresentation = 0;
  h.PhotometricInterpretation = 1;
  h.PixelSpacing[0] = h.PixelSpacing[1] = kPixelSpacingMm;
  h.Modality = "US";
  h.PatientName = "IPG^Phantom";
  h.PatientID = "IPG-PHANTOM";
  return h;
}

} // namespace

double Dcm_PhantomEchogenicity(int label)
{
  switch (label) {
  case kDcmPhantomLayer: return 0.35;
  case kDcmPhantomCyst: return 0.001;
  case kDcmPhantomInclusion: return 6.0;
  default: return 1.0;
  }
}

DCM_PHANTOM Dcm_MakePhantom(const DCM_PHANTOM_OPTIONS& o)
{
  DCM_PHANTOM phantom;
  if (o.Size < 16 || o.Size > 4096 || o.Looks < 1 || o.Looks > 64)
    return phantom;
  const unsigned n = o.Size;
  std::vector<int> labels(static_cast<std::size_t>(n) * n);
  for (unsigned r = 0; r < n; ++r)
    for (unsigned c = 0; c < n; ++c)
      labels[static_cast<std::size_t>(r) * n + c] = Label(c, r, n);
  const std::vector<double> intensity = SpeckleIntensity(labels, o);

  phantom.Image = std::make_unique<DCM_STRUCT>(n, n, nullptr);
  phantom.Mask = std::make_unique<DCM_STRUCT>(n, n, nullptr);
  int* pixels = phantom.Image->Data->GetIDataAddress();
  int* mask = phantom.Mask->Data->GetIDataAddress();
  for (std::size_t i = 0; i < labels.size(); ++i) {
    pixels[i] = o.Linear ? Linear(intensity[i]) : LogCompressed(intensity[i]);
    mask[i] = labels[i];
  }
  DCM_HEADER h = PhantomHeader(*phantom.Image, o.Linear ? 16 : 8);
  phantom.Image->SetHeader(h);
  h.BitsStored = h.BitsAllocated = 8;
  h.HighBit = 7;
  phantom.Mask->SetHeader(h);
  for (DCM_STRUCT* image : {phantom.Image.get(), phantom.Mask.get()}) {
    image->Data->SetMin();
    image->Data->SetMax();
  }
  return phantom;
}
