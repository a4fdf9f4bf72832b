// SPDX-License-Identifier: Apache-2.0
// Fractal, multifractal, Hölder-spectrum and co-occurrence measures, the
// Haralick feature maps and the histogram-valley classification on 512 x 512
// and 2048 x 2048 12-bit noise images, default parameters (box sides up to 64,
// q from -5 to 5, GLCM of 16 levels at distance 1, 7 x 7 feature windows with
// contrast and entropy maps, smoothing over 5 bins). Counter: megapixels per
// second of CPU time.
#include "dcm/dcm_struct.h"
#include "ipg/measurement/ipg_classification_processing.h"
#include "ipg/measurement/ipg_statistic1.h"
#include "ipg/measurement/ipg_texture.h"
#include "ipg/measurement/ipg_texture_local.h"

#include <benchmark/benchmark.h>

#include <map>
#include <memory>

namespace {

const DCM_STRUCT* NoiseImage(unsigned side)
{
  static std::map<unsigned, std::unique_ptr<DCM_STRUCT>> cache;
  auto& image = cache[side];
  if (!image) {
    image = std::make_unique<DCM_STRUCT>(side, side);
    int* pixels = image->Data->GetIDataAddress();
    unsigned seed = 12345u;
    for (std::size_t k = 0; k < image->Data->GetSize(); ++k) {
      seed = seed * 1103515245u + 12345u;
      pixels[k] = static_cast<int>((seed >> 8) % 4096u) * ((seed >> 4) % 3 != 0); // one pixel in three is 0
    }
    image->Data->SetMin();
    image->Data->SetMax();
  }
  return image.get();
}

void Report(benchmark::State& state, unsigned side)
{
  state.counters["MP/s"] = benchmark::Counter(static_cast<double>(state.iterations()) * side * side / 1e6,
                                              benchmark::Counter::kIsRate);
}

// Argument: image side. Template argument: IPG_STATISTIC1 operation code.
template <int Code>
void BM_Statistic1(benchmark::State& state)
{
  const unsigned side = static_cast<unsigned>(state.range(0));
  IPG_STATISTIC1 op(const_cast<DCM_STRUCT*>(NoiseImage(side)));
  op.SetTools(Code);
  for (auto _ : state) {
    const bool done = op.Apply();
    benchmark::DoNotOptimize(done);
  }
  Report(state, side);
}

void BM_Cooccurrence(benchmark::State& state)
{
  const unsigned side = static_cast<unsigned>(state.range(0));
  IPG_TEXTURE op(const_cast<DCM_STRUCT*>(NoiseImage(side)));
  for (auto _ : state) {
    const bool done = op.Apply();
    benchmark::DoNotOptimize(done);
  }
  Report(state, side);
}

void BM_TextureMaps(benchmark::State& state)
{
  const unsigned side = static_cast<unsigned>(state.range(0));
  DCM_STRUCT* in = const_cast<DCM_STRUCT*>(NoiseImage(side));
  DCM_STRUCT contrast(*in, false), entropy(*in, false);
  contrast.Data->SetPrecision(1000);
  entropy.Data->SetPrecision(1000);
  IPG_TEXTURE_LOCAL op(in);
  op.SetImaOut(&contrast);
  op.SetImaOutTwo(&entropy);
  for (auto _ : state) {
    const bool done = op.Apply();
    benchmark::DoNotOptimize(done);
  }
  Report(state, side);
}

void BM_HistogramValleys(benchmark::State& state)
{
  const unsigned side = static_cast<unsigned>(state.range(0));
  DCM_STRUCT* in = const_cast<DCM_STRUCT*>(NoiseImage(side));
  DCM_STRUCT labels(*in, false);
  IPG_CLASSIFICATION_PROCESSING op(in, nullptr, &labels);
  for (auto _ : state) {
    const bool done = op.Apply();
    benchmark::DoNotOptimize(done);
  }
  Report(state, side);
}

BENCHMARK(BM_Statistic1<7>)->Name("BoxCounting")->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Statistic1<8>)->Name("DifferentialBoxCounting")->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Statistic1<15>)->Name("MultiFractal")->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Statistic1<14>)->Name("HolderSpectral")->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Cooccurrence)->Name("Cooccurrence")->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TextureMaps)->Name("TextureMaps")->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HistogramValleys)->Name("HistogramValleys")->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);

} // namespace
