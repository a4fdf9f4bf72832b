// SPDX-License-Identifier: Apache-2.0
// Seeded region growing (code 900) on large images: a noisy disc filling most
// of the image, grown from its centre with the three connectedness modes.
#include "dcm/dcm_struct.h"
#include "ipg/segmentation/ipg_region.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <random>

namespace {

std::unique_ptr<DCM_STRUCT> NoisyDisc(unsigned side)
{
  auto image = std::make_unique<DCM_STRUCT>(side, side);
  std::mt19937 random(3);
  const long long radius = side / 2 - 2, centre = side / 2;
  for (unsigned r = 0; r < side; ++r)
    for (unsigned c = 0; c < side; ++c) {
      const long long dx = c - centre, dy = r - centre;
      image->Data->SetValue(c, r, dx * dx + dy * dy <= radius * radius ? static_cast<int>(100 + random() % 10) : 5);
    }
  return image;
}

void BM_Fill(benchmark::State& state)
{
  const unsigned side = static_cast<unsigned>(state.range(0));
  auto in = NoisyDisc(side);
  DCM_STRUCT out(side, side);
  IPG_REGION op(in.get());
  op.SetImaOut(&out);
  op.SetSeed(static_cast<int>(side / 2), static_cast<int>(side / 2));
  op.SetMinGL(100);
  op.SetMaxGL(109);
  op.SetConnectedness(static_cast<int>(state.range(1)));
  op.SetTools(900);
  for (auto _ : state)
    benchmark::DoNotOptimize(op.Apply());
  state.counters["region"] = op.GetRegionCount();
  state.SetItemsProcessed(state.iterations() * static_cast<long>(side) * side);
}

BENCHMARK(BM_Fill)->Args({2048, 403})->Args({2048, 401})->Args({4096, 403})->Unit(benchmark::kMillisecond);

} // namespace
