// SPDX-License-Identifier: Apache-2.0
#include "dcm/dcm_phantom.h"
#include "dcm/dcm_struct.h"
#include "ipg/filtering/ipg_filter_processing.h"
#include "ipg/frequency/ipg_wavelet.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// Despeckling quality and speed of every speckle filter of IPG_FILTER_PROCESSING
// on the project's B-mode phantom (the generator behind `ipg phantom`), stored
// as linear intensity (1000 per unit of echogenicity) so that the truth is
// known: tissue 1000, hypoechoic layer 350, cyst 1, bright inclusion 6000.
// Arguments: filter, phantom side, looks (1: fully developed speckle, 4: milder).
// The wavelet denoisers of IPG_WAVELET run as a second benchmark on the same
// phantoms and counters.
//
// Counters, measured on the output of the last run:
//   ENL   equivalent number of looks, mean^2 / variance, over the tissue pixels
//         at least 3 pixels from any other region (the phantom's own is the looks)
//   PSNR  peak signal-to-noise ratio against the truth, in dB, peak 6000
//   SSIM  structural similarity against the truth (Wang, Bovik, Sheikh,
//         Simoncelli, IEEE TIP 13(4), 2004), 7x7 windows, dynamic range 6000
//   beta  edge preservation: correlation of the 3x3 Laplacians of the output and
//         of the truth (Sattar et al., IEEE TIP 6(6), 1997); 1 is perfect
//   MP/s  megapixels filtered per second

namespace {

struct Filter {
  const char* Name;
  int Code;
  int Iterations;
};

// Iteration counts a user would pick; every adaptive parameter at its default.
const Filter kFilters[] = {
    {"none", 0, 0},          {"Lee", 513, 1},           {"Frost", 516, 1},      {"Kuan", 517, 1},
    {"SBF", 509, 10},        {"WSBF", 519, 10},         {"SBF_DVW", 518, 5},    {"SRAD", 511, 50},
    {"AWMF", 512, 1},        {"N_B_Filter", 510, 1},    {"ADespeckling", 520, 30},
    {"Filtre_Impuls", 521, 1}, {"AdaptativeDenoise", 504, 2},
};
constexpr double kPeak = 6000.0;

// The wavelet denoisers of IPG_WAVELET (1805): universal soft threshold or
// BayesShrink, on the intensity or on its logarithm, Haar, over `Scales` scales.
struct WaveletFilter {
  const char* Name;
  bool Adaptive;
  bool Log;
  int Scales;
};

const WaveletFilter kWaveletFilters[] = {
    {"Wavelet", false, false, 2},     {"Wavelet_log", false, true, 2},     {"Wavelet_log", false, true, 4},
    {"BayesShrink", true, false, 2},  {"BayesShrink_log", true, true, 2},
};

struct Phantom {
  std::unique_ptr<DCM_STRUCT> Image;
  std::vector<int> Labels;
  std::vector<double> Truth;
};

const Phantom& GetPhantom(unsigned side, unsigned looks)
{
  static std::map<std::pair<unsigned, unsigned>, Phantom> cache;
  auto found = cache.find({side, looks});
  if (found != cache.end())
    return found->second;
  DCM_PHANTOM_OPTIONS options;
  options.Size = side;
  options.Looks = looks;
  options.Seed = 1;
  options.Linear = true;
  DCM_PHANTOM made = Dcm_MakePhantom(options);
  Phantom p;
  const int* labels = made.Mask->Data->GetIDataAddress();
  p.Labels.assign(labels, labels + made.Mask->Data->GetSize());
  for (int label : p.Labels)
    p.Truth.push_back(1000.0 * Dcm_PhantomEchogenicity(label));
  p.Image = std::move(made.Image);
  return cache.emplace(std::make_pair(side, looks), std::move(p)).first->second;
}

double Enl(const std::vector<double>& v, const std::vector<int>& labels, int side)
{
  double sum = 0.0, squares = 0.0, n = 0.0;
  for (int r = 3; r < side - 3; ++r)
    for (int c = 3; c < side - 3; ++c) {
      bool flat = true;
      for (int y = r - 3; y <= r + 3 && flat; ++y)
        for (int x = c - 3; x <= c + 3 && flat; ++x)
          flat = labels[static_cast<std::size_t>(y * side + x)] == kDcmPhantomTissue;
      if (!flat)
        continue;
      const double x = v[static_cast<std::size_t>(r * side + c)];
      sum += x;
      squares += x * x;
      n += 1.0;
    }
  const double mean = sum / n;
  const double variance = squares / n - mean * mean;
  return variance > 0.0 ? mean * mean / variance : 0.0;
}

double Psnr(const std::vector<double>& v, const std::vector<double>& truth)
{
  double error = 0.0;
  for (std::size_t i = 0; i < v.size(); ++i)
    error += (v[i] - truth[i]) * (v[i] - truth[i]);
  error /= static_cast<double>(v.size());
  return 10.0 * std::log10(kPeak * kPeak / error);
}

double Ssim(const std::vector<double>& a, const std::vector<double>& b, int side)
{
  const double c1 = (0.01 * kPeak) * (0.01 * kPeak), c2 = (0.03 * kPeak) * (0.03 * kPeak);
  double total = 0.0, windows = 0.0;
  for (int r = 0; r + 7 <= side; r += 2)
    for (int c = 0; c + 7 <= side; c += 2) {
      double ma = 0, mb = 0, va = 0, vb = 0, cov = 0;
      for (int y = r; y < r + 7; ++y)
        for (int x = c; x < c + 7; ++x) {
          ma += a[static_cast<std::size_t>(y * side + x)];
          mb += b[static_cast<std::size_t>(y * side + x)];
        }
      ma /= 49.0;
      mb /= 49.0;
      for (int y = r; y < r + 7; ++y)
        for (int x = c; x < c + 7; ++x) {
          const double da = a[static_cast<std::size_t>(y * side + x)] - ma;
          const double db = b[static_cast<std::size_t>(y * side + x)] - mb;
          va += da * da;
          vb += db * db;
          cov += da * db;
        }
      va /= 48.0;
      vb /= 48.0;
      cov /= 48.0;
      total += ((2 * ma * mb + c1) * (2 * cov + c2)) / ((ma * ma + mb * mb + c1) * (va + vb + c2));
      windows += 1.0;
    }
  return total / windows;
}

std::vector<double> Laplacian(const std::vector<double>& v, int side)
{
  std::vector<double> out;
  for (int r = 1; r < side - 1; ++r)
    for (int c = 1; c < side - 1; ++c) {
      const auto at = [&](int x, int y) { return v[static_cast<std::size_t>(y * side + x)]; };
      out.push_back(at(c - 1, r) + at(c + 1, r) + at(c, r - 1) + at(c, r + 1) - 4.0 * at(c, r));
    }
  return out;
}

double Beta(const std::vector<double>& v, const std::vector<double>& truth, int side)
{
  const std::vector<double> a = Laplacian(v, side), b = Laplacian(truth, side);
  double ma = 0.0, mb = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    ma += a[i];
    mb += b[i];
  }
  ma /= static_cast<double>(a.size());
  mb /= static_cast<double>(b.size());
  double ab = 0.0, aa = 0.0, bb = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    ab += (a[i] - ma) * (b[i] - mb);
    aa += (a[i] - ma) * (a[i] - ma);
    bb += (b[i] - mb) * (b[i] - mb);
  }
  return ab / std::sqrt(aa * bb);
}

void SetQualityCounters(benchmark::State& state, const DCM_STRUCT& image, const Phantom& phantom, int side);

void Despeckle(benchmark::State& state)
{
  const Filter& filter = kFilters[state.range(0)];
  const int side = static_cast<int>(state.range(1));
  const Phantom& phantom = GetPhantom(static_cast<unsigned>(side), static_cast<unsigned>(state.range(2)));
  DCM_STRUCT out(*phantom.Image, false);
  IPG_FILTER_PROCESSING op(phantom.Image.get());
  op.SetImaOut(&out);
  op.SetTools(filter.Code);
  op.SetMode(302); // the 504 chain ends with the output mode: keep the grey scale
  op.SetNbIter(filter.Iterations);
  int window[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
  op.SetUserFilter(window, 3, 3); // the median stage of 504
  state.SetLabel(filter.Name);

  for (auto _ : state) {
    if (filter.Code == 0) {
      DCM_STRUCT copy(*phantom.Image, true);
      benchmark::DoNotOptimize(copy.Data->GetIDataAddress());
    } else if (op.Apply() == 0) {
      state.SkipWithError("filter not available in this build");
      return;
    }
  }
  SetQualityCounters(state, filter.Code == 0 ? *phantom.Image : out, phantom, side);
}

void WaveletDespeckle(benchmark::State& state)
{
  const WaveletFilter& filter = kWaveletFilters[state.range(0)];
  const int side = static_cast<int>(state.range(1));
  const Phantom& phantom = GetPhantom(static_cast<unsigned>(side), static_cast<unsigned>(state.range(2)));
  DCM_STRUCT out(*phantom.Image, false);
  IPG_WAVELET op(phantom.Image.get());
  op.SetImaOut(&out);
  op.SetTools(1805);
  op.SetMode(302);
  op.SetAdaptative(filter.Adaptive);
  op.SetLogTransform(filter.Log);
  op.SetNbScale(filter.Scales);
  state.SetLabel(std::string(filter.Name) + ", " + std::to_string(filter.Scales) + " scales");
  for (auto _ : state)
    if (op.Apply() == 0) {
      state.SkipWithError("refused");
      return;
    }
  SetQualityCounters(state, out, phantom, side);
}

void SetQualityCounters(benchmark::State& state, const DCM_STRUCT& image, const Phantom& phantom, int side)
{
  const int* pixels = image.Data->GetIDataAddress();
  const std::vector<double> result(pixels, pixels + image.Data->GetSize());
  state.counters["ENL"] = Enl(result, phantom.Labels, side);
  state.counters["PSNR"] = Psnr(result, phantom.Truth);
  state.counters["SSIM"] = Ssim(result, phantom.Truth, side);
  state.counters["beta"] = Beta(result, phantom.Truth, side);
  state.counters["MP/s"] = benchmark::Counter(static_cast<double>(side) * side * 1e-6 * state.iterations(),
                                              benchmark::Counter::kIsRate);
}

void AllFilters(benchmark::internal::Benchmark* b)
{
  for (long looks : {1, 4})
    for (long side : {128, 256})
      for (long f = 0; f < static_cast<long>(std::size(kFilters)); ++f)
        b->Args({f, side, looks});
}

void AllWaveletFilters(benchmark::internal::Benchmark* b)
{
  for (long looks : {1, 4})
    for (long side : {128, 256})
      for (long f = 0; f < static_cast<long>(std::size(kWaveletFilters)); ++f)
        b->Args({f, side, looks});
}

} // namespace

BENCHMARK(WaveletDespeckle)
    ->Apply(AllWaveletFilters)
    ->ArgNames({"filter", "side", "looks"})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(Despeckle)->Apply(AllFilters)->ArgNames({"filter", "side", "looks"})->Unit(benchmark::kMillisecond);
