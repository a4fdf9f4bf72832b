// SPDX-License-Identifier: Apache-2.0
// Distortion correction from a bead grid: detection with the lattice walk and
// the order-3 fit, then the resampling of an image through the model, on barrel
// grids of 32-pixel pitch (17 x 17 beads at 512, 65 x 65 at 2048).
#include "dcm/dcm_struct.h"
#include "ipg/correction/ipg_gridcorrection.h"
#include "ipg/ui/ipg_message.h"
#include "tests/support/images.h"

#include <benchmark/benchmark.h>

namespace {

BeadGridShape Shape(benchmark::State& state)
{
  const unsigned side = static_cast<unsigned>(state.range(0));
  return {.Cols = side, .Rows = side, .Pitch = 32.0, .K = -0.05, .Sigma = 3.0};
}

void BM_DetectAndFit(benchmark::State& state)
{
  auto grid = BeadGrid(Shape(state));
  IPG_GRIDCORRECTION correction(grid.get());
  correction.SetPitch(32.0);
  for (auto _ : state)
    benchmark::DoNotOptimize(correction.DetectAndFit());
  state.counters["beads"] = correction.GetNumberOfBeads();
  state.counters["rms"] = correction.GetResidualRms();
  state.SetItemsProcessed(state.iterations() * static_cast<long>(grid->Data->GetSize()));
}

void BM_CorrectDistortion(benchmark::State& state)
{
  auto grid = BeadGrid(Shape(state));
  DCM_STRUCT out(*grid, false);
  IPG_GRIDCORRECTION correction(grid.get(), nullptr, &out);
  correction.SetPitch(32.0);
  correction.SetMode(302);
  if (!correction.DetectAndFit())
    state.SkipWithError("no model");
  for (auto _ : state)
    benchmark::DoNotOptimize(correction.CorrectDistortion());
  state.SetItemsProcessed(state.iterations() * static_cast<long>(grid->Data->GetSize()));
}

} // namespace

BENCHMARK(BM_DetectAndFit)->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CorrectDistortion)->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
