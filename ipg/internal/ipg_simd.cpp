// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_simd.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace {

bool ProcessorHasAvx2()
{
#if defined(__x86_64__)
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2") != 0;
#else
  return false;
#endif
}

bool SwitchedOffByEnvironment()
{
  const char* text = std::getenv("IPG_SIMD");
  return text != nullptr && std::strcmp(text, "0") == 0;
}

std::atomic<bool> simdEnabled{!SwitchedOffByEnvironment()};

} // namespace

bool Ipg_UseAvx2()
{
  static const bool available = ProcessorHasAvx2();
  return available && simdEnabled.load(std::memory_order_relaxed);
}

void Ipg_SetSimdEnabled(bool enabled) { simdEnabled.store(enabled, std::memory_order_relaxed); }
