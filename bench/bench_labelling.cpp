// SPDX-License-Identifier: Apache-2.0
// Connected-component labelling on large masks: the union-find resolution
// against the equivalence-table reading, on blobs and on random noise.
#include "dcm/dcm_struct.h"
#include "ipg/segmentation/ipg_connexity_processing.h"
#include "ipg/ui/ipg_message.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <random>

namespace {

constexpr int kSet = 16777217;

// Discs on a grid: a typical segmentation mask with a few hundred components.
std::unique_ptr<DCM_STRUCT> Blobs(unsigned side)
{
  auto image = std::make_unique<DCM_STRUCT>(side, side);
  const int spacing = static_cast<int>(side / 16);
  for (unsigned r = 0; r < side; ++r)
    for (unsigned c = 0; c < side; ++c) {
      const int dx = static_cast<int>(c % spacing) - spacing / 2;
      const int dy = static_cast<int>(r % spacing) - spacing / 2;
      if (dx * dx + dy * dy < spacing * spacing / 6)
        image->Data->SetValue(c, r, kSet);
    }
  return image;
}

std::unique_ptr<DCM_STRUCT> Noise(unsigned side, double density)
{
  auto image = std::make_unique<DCM_STRUCT>(side, side);
  std::mt19937 random(7);
  std::bernoulli_distribution set(density);
  for (unsigned r = 0; r < side; ++r)
    for (unsigned c = 0; c < side; ++c)
      if (set(random))
        image->Data->SetValue(c, r, kSet);
  return image;
}

template <bool Fast>
void Label(benchmark::State& state, DCM_STRUCT* image, int nbCompMax)
{
  Ipg_SetMessageHandler([](const std::string&, const std::string&) {});
  IPG_CONNEXITY_PROCESSING op(image, kSet);
  op.SetNbCompMax(nbCompMax);
  for (auto _ : state) {
    const bool ok = Fast ? op.Labelling_8Neighbors() : op.Labelling_8NeighborsTwoPass();
    benchmark::DoNotOptimize(ok);
  }
  state.counters["components"] = op.GetNbComponents();
  state.SetItemsProcessed(state.iterations() * static_cast<long>(image->Data->GetSize()));
  Ipg_SetMessageHandler(nullptr);
}

void BM_BlobsUnionFind(benchmark::State& state)
{
  auto image = Blobs(static_cast<unsigned>(state.range(0)));
  Label<true>(state, image.get(), 2000);
}
void BM_BlobsTable(benchmark::State& state)
{
  auto image = Blobs(static_cast<unsigned>(state.range(0)));
  Label<false>(state, image.get(), 2000);
}
// Dense noise issues thousands of provisional labels (over 20000 at 4096 x 4096);
// the table needs N(N-1)/2 bytes, so at the 16-bit label limit only the
// union-find runs.
void BM_NoiseUnionFind(benchmark::State& state)
{
  auto image = Noise(static_cast<unsigned>(state.range(0)), 0.8);
  Label<true>(state, image.get(), 65535);
}
void BM_NoiseTableAt8000(benchmark::State& state)
{
  auto image = Noise(static_cast<unsigned>(state.range(0)), 0.8);
  Label<false>(state, image.get(), 8000);
}
void BM_NoiseUnionFindAt8000(benchmark::State& state)
{
  auto image = Noise(static_cast<unsigned>(state.range(0)), 0.8);
  Label<true>(state, image.get(), 8000);
}

BENCHMARK(BM_BlobsUnionFind)->Arg(2048)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BlobsTable)->Arg(2048)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NoiseUnionFind)->Arg(2048)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NoiseTableAt8000)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NoiseUnionFindAt8000)->Arg(2048)->Unit(benchmark::kMillisecond);

} // namespace
