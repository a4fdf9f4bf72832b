// SPDX-License-Identifier: Apache-2.0
#include "ipg/framework/ipg_threads.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <thread>

namespace {

std::atomic<int> chosenThreads{0}; // 0: the default

int DefaultThreads()
{
  if (const char* text = std::getenv("IPG_NUM_THREADS")) {
    char* end = nullptr;
    errno = 0;
    const long n = std::strtol(text, &end, 10);
    if (errno == 0 && end != text && *end == '\0' && n >= 1 && n <= 1024)
      return static_cast<int>(n);
  }
  const unsigned cores = std::thread::hardware_concurrency();
  return cores == 0 ? 1 : static_cast<int>(cores);
}

} // namespace

void Ipg_SetNumThreads(int n) { chosenThreads.store(n >= 1 ? n : 0, std::memory_order_relaxed); }

int Ipg_GetNumThreads()
{
  const int n = chosenThreads.load(std::memory_order_relaxed);
  if (n >= 1)
    return n;
  static const int fallback = DefaultThreads();
  return fallback;
}
