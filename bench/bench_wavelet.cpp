// SPDX-License-Identifier: Apache-2.0
// Discrete wavelet transforms and wavelet denoising of IPG_WAVELET on 512 x 512
// and 2048 x 2048 images, two scales (the default), Haar and CDF 9/7.
#include "dcm/dcm_struct.h"
#include "ipg/frequency/ipg_wavelet.h"

#include <benchmark/benchmark.h>

#include <random>

namespace {

// A ramp under uniform noise, 12 bits.
void FillNoisyRamp(DCM_STRUCT& image)
{
  std::mt19937 generator(1);
  const unsigned cols = image.GetNbOfCols(), rows = image.GetNbOfRows();
  for (unsigned r = 0; r < rows; ++r)
    for (unsigned c = 0; c < cols; ++c)
      image.Data->SetValue(c, r, static_cast<int>((c + r) % 2048 + generator() % 2048));
}

void Wavelet(benchmark::State& state, int code, int wavelet, bool adaptive)
{
  const auto side = static_cast<unsigned>(state.range(0));
  DCM_STRUCT in(side, side, nullptr), out(side, side, nullptr);
  FillNoisyRamp(in);
  IPG_WAVELET op(&in);
  op.SetImaOut(&out);
  op.SetMode(302);
  op.SetTools(code);
  op.SetNameWavelet(wavelet);
  op.SetAdaptative(adaptive);
  for (auto _ : state)
    if (op.Apply() == 0) {
      state.SkipWithError("refused");
      return;
    }
  state.SetItemsProcessed(state.iterations() * side * side);
}

} // namespace

BENCHMARK_CAPTURE(Wavelet, DwtHaar, 1803, 0, false)->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Wavelet, DwtCdf97, 1803, 4, false)->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Wavelet, FrameHaar, 1804, 0, false)->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Wavelet, FrameCdf97, 1804, 4, false)->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Wavelet, DenoiseUniversalHaar, 1805, 0, false)->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Wavelet, DenoiseBayesHaar, 1805, 0, true)->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Wavelet, DenoiseUniversalCdf97, 1805, 4, false)->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
