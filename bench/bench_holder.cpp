// SPDX-License-Identifier: Apache-2.0
// Local Hölder exponents on a 512 x 512 image with windows of 5 and 9: the
// direct measures visit every window (O(pixels x R x window)); the fast path
// uses summed-area tables, 3x3 extreme recurrences and separable sums.
#include "dcm/dcm_struct.h"
#include "ipg/measurement/ipg_holder.h"

#include <benchmark/benchmark.h>

#include <memory>

namespace {

std::unique_ptr<DCM_STRUCT> NoiseImage(unsigned side)
{
  auto image = std::make_unique<DCM_STRUCT>(side, side);
  int* pixels = image->Data->GetIDataAddress();
  unsigned seed = 12345u;
  for (std::size_t k = 0; k < image->Data->GetSize(); ++k) {
    seed = seed * 1103515245u + 12345u;
    pixels[k] = 1 + static_cast<int>((seed >> 8) % 4095u);
  }
  image->Data->SetMin();
  image->Data->SetMax();
  return image;
}

// Arguments: WindowSize, MeasType, fast path (0 or 1).
void BM_Holder(benchmark::State& state)
{
  static const std::unique_ptr<DCM_STRUCT> image = NoiseImage(512);
  IPG_HOLDER op(image.get());
  op.SetWindowSize(static_cast<int>(state.range(0)));
  op.SetMeasType(static_cast<int>(state.range(1)));
  op.SetFastPath(state.range(2) != 0);
  for (auto _ : state) {
    const bool done = op.Apply();
    benchmark::DoNotOptimize(done);
    benchmark::DoNotOptimize(op.GetHolder());
  }
  state.SetItemsProcessed(state.iterations() * 512 * 512);
}

void HolderCases(benchmark::internal::Benchmark* b)
{
  b->ArgNames({"window", "measure", "fast"});
  for (int window : {5, 9})
    for (int measure : {1, 2, 6, 8, 12})
      for (int fast : {0, 1})
        b->Args({window, measure, fast});
}

BENCHMARK(BM_Holder)->Apply(HolderCases)->Unit(benchmark::kMillisecond);

} // namespace
