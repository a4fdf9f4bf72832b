// SPDX-License-Identifier: Apache-2.0
// Gradient vector flow on speckled phantoms: one diffusion step, and the whole
// field a snake needs (edge map, 100 steps, normalisation), at one and two
// threads. The step is the inner loop of IPG_DEFORMABLE_SURFACE.
#include "dcm/dcm_phantom.h"
#include "ipg/framework/ipg_threads.h"
#include "ipg/internal/ipg_gradient_vector_flow.h"

#include <benchmark/benchmark.h>

namespace {

constexpr double kMu = 0.2;
constexpr double kSigma = 1.5;

std::vector<float> PhantomEdges(unsigned side)
{
  DCM_PHANTOM phantom = Dcm_MakePhantom({.Size = side});
  const int n = static_cast<int>(side);
  return Ipg_EdgeMap(phantom.Image->Data->GetIDataAddress(), nullptr, n, n, kSigma);
}

// Arguments: phantom side, threads.
void GvfStep(benchmark::State& state)
{
  const unsigned side = static_cast<unsigned>(state.range(0));
  Ipg_SetNumThreads(static_cast<int>(state.range(1)));
  IPG_GVF_DIFFUSION gvf(PhantomEdges(side), static_cast<int>(side), static_cast<int>(side), kMu);
  for (auto _ : state) {
    gvf.Step();
    benchmark::DoNotOptimize(gvf.Field().U.data());
  }
  state.SetItemsProcessed(state.iterations() * side * side);
  Ipg_SetNumThreads(0);
}

void GvfField100(benchmark::State& state)
{
  const unsigned side = static_cast<unsigned>(state.range(0));
  Ipg_SetNumThreads(static_cast<int>(state.range(1)));
  DCM_PHANTOM phantom = Dcm_MakePhantom({.Size = side});
  const int n = static_cast<int>(side);
  for (auto _ : state) {
    IPG_GVF_DIFFUSION gvf(Ipg_EdgeMap(phantom.Image->Data->GetIDataAddress(), nullptr, n, n, kSigma), n, n, kMu);
    for (int k = 0; k < 100; ++k)
      gvf.Step();
    IPG_VECTOR_FIELD field = gvf.Field();
    Ipg_NormaliseField(field);
    benchmark::DoNotOptimize(field.U.data());
  }
  Ipg_SetNumThreads(0);
}

void Sizes(benchmark::internal::Benchmark* b)
{
  for (int side : {512, 2048})
    for (int threads : {1, 2})
      b->Args({side, threads});
}

} // namespace

BENCHMARK(GvfStep)->Apply(Sizes)->ArgNames({"side", "threads"})->Unit(benchmark::kMillisecond);
BENCHMARK(GvfField100)->Apply(Sizes)->ArgNames({"side", "threads"})->Unit(benchmark::kMillisecond)->Iterations(2);
