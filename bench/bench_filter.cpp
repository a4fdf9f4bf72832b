// SPDX-License-Identifier: Apache-2.0
#include "dcm/dcm_struct.h"
#include "ipg/filtering/ipg_filter_processing.h"

#include <benchmark/benchmark.h>

#include <map>
#include <memory>
#include <random>
#include <vector>

// The smoothing and edge filters on 512 x 512 and 2048 x 2048 images of random
// 12-bit grey levels, in megapixels per second ("MP/s"). ApplyFilter is timed
// on both its paths: the vectorised one and the plain per-pixel reading.

namespace {

DCM_STRUCT& Input(int side)
{
  static std::map<int, std::unique_ptr<DCM_STRUCT>> images;
  auto& image = images[side];
  if (!image) {
    image = std::make_unique<DCM_STRUCT>(side, side);
    std::mt19937 random(42);
    std::uniform_int_distribution<int> grey(0, 4095);
    int* pixels = image->Data->GetIDataAddress();
    for (std::size_t i = 0; i < image->Data->GetSize(); ++i)
      pixels[i] = grey(random);
  }
  return *image;
}

void CountPixels(benchmark::State& state, int side)
{
  state.counters["MP/s"] = benchmark::Counter(static_cast<double>(side) * side / 1e6,
                                              benchmark::Counter::kIsIterationInvariantRate);
}

template <typename Run>
void Filter(benchmark::State& state, Run run)
{
  const int side = static_cast<int>(state.range(0));
  DCM_STRUCT& in = Input(side);
  DCM_STRUCT out(in, false);
  IPG_FILTER_PROCESSING op(&in);
  op.SetImaOut(&out);
  op.SetMode(302);
  op.setWaitbarVisible(false);
  for (auto _ : state) {
    benchmark::DoNotOptimize(run(op));
    benchmark::ClobberMemory();
  }
  CountPixels(state, side);
}

void ApplyFilterFast(benchmark::State& state, int kernel)
{
  IPG_FILTER filter(kernel);
  Filter(state, [&](IPG_FILTER_PROCESSING& op) { return op.ApplyFilter(&filter); });
}

void ApplyFilterPlain(benchmark::State& state, int kernel)
{
  IPG_FILTER filter(kernel);
  Filter(state, [&](IPG_FILTER_PROCESSING& op) { return op.ApplyFilterPlain(&filter); });
}

void Median(benchmark::State& state, int window)
{
  Filter(state, [window](IPG_FILTER_PROCESSING& op) {
    std::vector<int> ones(static_cast<std::size_t>(window) * window, 1);
    op.SetUserFilter(ones.data(), window, window);
    return op.MedianFilter();
  });
}

void Mean(benchmark::State& state)
{
  Filter(state, [](IPG_FILTER_PROCESSING& op) { return op.MeanFilter(); });
}

void Deriche(benchmark::State& state)
{
  Filter(state, [](IPG_FILTER_PROCESSING& op) { return op.DericheDerivative(); });
}

void Sizes(benchmark::internal::Benchmark* b)
{
  b->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
}

} // namespace

BENCHMARK_CAPTURE(ApplyFilterFast, box3x3, 0)->Apply(Sizes);
BENCHMARK_CAPTURE(ApplyFilterPlain, box3x3, 0)->Apply(Sizes);
BENCHMARK_CAPTURE(ApplyFilterFast, box5x5, 50)->Apply(Sizes);
BENCHMARK_CAPTURE(ApplyFilterPlain, box5x5, 50)->Apply(Sizes);
BENCHMARK_CAPTURE(ApplyFilterFast, box7x7, 100)->Apply(Sizes);
BENCHMARK_CAPTURE(ApplyFilterPlain, box7x7, 100)->Apply(Sizes);
BENCHMARK_CAPTURE(Median, 3x3, 3)->Apply(Sizes);
BENCHMARK_CAPTURE(Median, 5x5, 5)->Apply(Sizes);
BENCHMARK(Mean)->Apply(Sizes);
BENCHMARK(Deriche)->Apply(Sizes);
