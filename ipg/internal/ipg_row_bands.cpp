// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_row_bands.h"

#include "ipg/framework/ipg_threads.h"

#include <algorithm>

#ifdef _OPENMP
#include <omp.h>
#endif

namespace {

// Below this many pixels per band a second thread does not pay for itself.
constexpr std::size_t kMinPixelsPerBand = std::size_t{1} << 16;

// The team index of the thread running a band's body, set around each body:
// a caller that is itself a worker of some other team still counts as 0.
thread_local unsigned tBandThread = 0;

void RunBody(const std::function<void(unsigned, unsigned, unsigned)>& body, unsigned thread, unsigned band,
             unsigned begin, unsigned end)
{
  const unsigned saved = tBandThread;
  tBandThread = thread;
  body(band, begin, end);
  tBandThread = saved;
}

} // namespace

IPG_ROW_BANDS Ipg_SplitRows(unsigned rows, std::size_t cols)
{
  IPG_ROW_BANDS bands;
  bands.Rows = rows;
  const std::size_t pixels = static_cast<std::size_t>(rows) * cols;
  const std::size_t worthwhile = std::max<std::size_t>(1, pixels / kMinPixelsPerBand);
  const std::size_t threads = static_cast<std::size_t>(Ipg_GetNumThreads());
  bands.Count = static_cast<unsigned>(std::max<std::size_t>(1, std::min({threads, worthwhile, std::size_t{rows}})));
  return bands;
}

void Ipg_RunBands(const IPG_ROW_BANDS& bands, const std::function<void(unsigned, unsigned, unsigned)>& body)
{
  const int count = static_cast<int>(bands.Count);
  if (count <= 1) {
    RunBody(body, 0, 0, 0, bands.Rows);
    return;
  }
  // More bands than threads are dealt in turn: band b on thread b % threads.
#pragma omp parallel for num_threads(std::min(count, Ipg_GetNumThreads())) schedule(static, 1)
  for (int band = 0; band < count; ++band) {
#ifdef _OPENMP
    const unsigned thread = static_cast<unsigned>(omp_get_thread_num());
#else
    const unsigned thread = 0;
#endif
    RunBody(body, thread, static_cast<unsigned>(band), bands.Begin(static_cast<unsigned>(band)),
            bands.End(static_cast<unsigned>(band)));
  }
}

bool Ipg_OnCallingThread()
{
  return Ipg_BandThread() == 0;
}

unsigned Ipg_BandThread()
{
  return tBandThread;
}
