// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_wavefront_link.h"

#include "ipg/framework/ipg_threads.h"
#include "ipg/internal/ipg_row_bands.h"

#include <thread>
#include <vector>

namespace {

// Below this many pixels a second thread does not pay for its waits.
constexpr std::size_t kMinPixelsToShare = std::size_t{1} << 15;

// A group's progress, on its own cache line.
struct alignas(64) GroupSteps {
  std::atomic<int> Steps{0};
};

} // namespace

int IPG_WAVEFRONT_LINK::WaitFor(const std::atomic<int>& steps, int needed)
{
  for (int spins = 0;; ++spins) {
    const int seen = steps.load(std::memory_order_acquire);
    if (seen >= needed)
      return seen;
    if (spins >= 64)
      std::this_thread::yield(); // the group above may share this core
  }
}

void Ipg_RunWavefront(int groups, std::size_t pixels,
                      const std::function<void(int group, IPG_WAVEFRONT_LINK& link)>& body)
{
  if (groups <= 0)
    return;
  if (Ipg_GetNumThreads() <= 1 || groups == 1 || pixels < kMinPixelsToShare) {
    for (int g = 0; g < groups; ++g) {
      IPG_WAVEFRONT_LINK alone(nullptr, nullptr);
      body(g, alone);
    }
    return;
  }
  // Bands run in turn on each thread, group g after g - threads, so a group
  // only ever waits for one that is running or done.
  std::vector<GroupSteps> progress(static_cast<std::size_t>(groups));
  IPG_ROW_BANDS bands;
  bands.Count = bands.Rows = static_cast<unsigned>(groups);
  Ipg_RunBands(bands, [&](unsigned band, unsigned, unsigned) {
    const std::atomic<int>* above = band > 0 ? &progress[band - 1].Steps : nullptr;
    IPG_WAVEFRONT_LINK link(above, &progress[band].Steps);
    body(static_cast<int>(band), link);
  });
}
