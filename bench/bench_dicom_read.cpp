// SPDX-License-Identifier: Apache-2.0
// Reading a DICOM file in the caller's process and through the isolation wall
// (a forked decoder): the difference is the cost per file of isolation.
// Files are written here, uncompressed, at 256² and 2048² (16-bit).
#include "dcm/dcm_io.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

namespace {

std::string WriteImage(unsigned side)
{
  DCM_STRUCT image(side, side, nullptr);
  for (unsigned r = 0; r < side; ++r)
    for (unsigned c = 0; c < side; ++c)
      image.Data->SetValue(c, r, static_cast<int>((c * 7 + r * 13) % 4096));
  const std::string path = "/tmp/ipg_bench_read_" + std::to_string(side) + ".dcm";
  std::string error;
  if (!Dcm_WriteFile(image, path, &error))
    std::fprintf(stderr, "%s\n", error.c_str());
  return path;
}

void BM_Read(benchmark::State& state)
{
  const std::string path = WriteImage(static_cast<unsigned>(state.range(0)));
  const bool previous = Dcm_SetIsolatedDecoding(state.range(1) != 0);
  for (auto _ : state) {
    std::string error;
    benchmark::DoNotOptimize(Dcm_ReadFile(path, &error));
  }
  Dcm_SetIsolatedDecoding(previous);
  state.SetLabel(state.range(1) ? "isolated" : "in-process");
}

} // namespace

BENCHMARK(BM_Read)->ArgsProduct({{256, 2048}, {0, 1}})->Unit(benchmark::kMillisecond);
