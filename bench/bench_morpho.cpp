// SPDX-License-Identifier: Apache-2.0
#include "dcm/dcm_struct.h"
#include "ipg/filtering/ipg_morpho_processing.h"
#include "ipg/filtering/ipg_morpho_scan.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

// Erosion of a 512 x 512 image by square elements: the plain scan grows with the
// element's area, the van Herk/Gil-Werman path stays flat.

namespace {

constexpr unsigned kSide = 512;

DCM_STRUCT& Image()
{
  static DCM_STRUCT image(kSide, kSide);
  static const bool filled = [] {
    std::mt19937 random(42);
    std::uniform_int_distribution<int> grey(0, 4095);
    int* pixels = image.Data->GetIDataAddress();
    for (std::size_t i = 0; i < image.Data->GetSize(); ++i)
      pixels[i] = grey(random);
    return true;
  }();
  (void)filled;
  return image;
}

void ErodePlain(benchmark::State& state)
{
  const int side = static_cast<int>(state.range(0));
  const Ipg_MorphoField field = Ipg_MorphoPrepare(Image(), nullptr, Ipg_MorphoKind::Erosion);
  const std::vector<unsigned char> element(static_cast<std::size_t>(side) * side, 1);
  std::vector<int> out(field.Values.size());
  for (auto _ : state) {
    Ipg_MorphoScanPlain(field, element, side, side, Ipg_MorphoKind::Erosion, 17000000, out.data());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(state.iterations() * kSide * kSide);
}

void ErodeRectangle(benchmark::State& state)
{
  const int side = static_cast<int>(state.range(0));
  const Ipg_MorphoField field = Ipg_MorphoPrepare(Image(), nullptr, Ipg_MorphoKind::Erosion);
  std::vector<int> out(field.Values.size());
  for (auto _ : state) {
    Ipg_MorphoScanRectangle(field, side, side, Ipg_MorphoKind::Erosion, 17000000, out.data());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(state.iterations() * kSide * kSide);
}

// The whole operator (margin, preparation, scan, output mode) with a user square.
void OperatorErode(benchmark::State& state)
{
  const int side = static_cast<int>(state.range(0));
  DCM_STRUCT out(kSide, kSide);
  IPG_MORPHO_PROCESSING op(&Image());
  op.SetImaOut(&out);
  op.SetMode(302);
  std::vector<int> ones(static_cast<std::size_t>(side) * side, 1);
  op.SetUserFilter(ones.data(), side, side);
  op.SetTools(1104);
  for (auto _ : state)
    benchmark::DoNotOptimize(op.Apply());
  state.SetItemsProcessed(state.iterations() * kSide * kSide);
}

} // namespace

BENCHMARK(ErodePlain)->Arg(3)->Arg(5)->Arg(7)->Arg(15)->Arg(31)->Unit(benchmark::kMillisecond);
BENCHMARK(ErodeRectangle)->Arg(3)->Arg(5)->Arg(7)->Arg(15)->Arg(31)->Unit(benchmark::kMillisecond);
BENCHMARK(OperatorErode)->Arg(3)->Arg(31)->Unit(benchmark::kMillisecond);
