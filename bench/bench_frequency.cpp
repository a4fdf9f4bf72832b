// SPDX-License-Identifier: Apache-2.0
// Fourier spectra and filters of IPG_FFT_ONE_INPUT on 512 x 512 and 2048 x 2048 images.
#include "dcm/dcm_struct.h"
#include "ipg/frequency/ipg_fft_one_input.h"

#include <benchmark/benchmark.h>

namespace {

void FillPattern(DCM_STRUCT& image)
{
  const unsigned cols = image.GetNbOfCols(), rows = image.GetNbOfRows();
  for (unsigned r = 0; r < rows; ++r)
    for (unsigned c = 0; c < cols; ++c)
      image.Data->SetValue(c, r, static_cast<int>((c * 7 + r * 13) % 4096));
}

void FftOneInput(benchmark::State& state, int code)
{
  const auto side = static_cast<unsigned>(state.range(0));
  DCM_STRUCT in(side, side, nullptr), out(side, side, nullptr);
  FillPattern(in);
  IPG_FFT_ONE_INPUT op(&in, &out);
  op.SetTools(code);
  op.SetThreshold(static_cast<int>(side / 8));
  for (auto _ : state)
    benchmark::DoNotOptimize(op.Apply());
  state.SetItemsProcessed(state.iterations() * side * side);
}

} // namespace

BENCHMARK_CAPTURE(FftOneInput, LowPass, 1202)->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(FftOneInput, HighPass, 1203)->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(FftOneInput, Real, 1210)->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(FftOneInput, Module, 1216)->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(FftOneInput, PhaseDeg, 1212)->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
