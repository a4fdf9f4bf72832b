// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_streamed_writes.h"

#include <atomic>
#include <cstdint>
#include <fstream>
#include <string>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace {

// The size of the highest cache level the kernel lists for the first processor
// ("32768K"); sysconf's figure is wrong on some virtual machines.
std::size_t LastLevelCacheBytes()
{
  std::size_t bytes = 0;
  for (int index = 0; index < 8; ++index) {
    const std::string dir = "/sys/devices/system/cpu/cpu0/cache/index" + std::to_string(index);
    std::ifstream sizeFile(dir + "/size");
    std::size_t amount = 0;
    std::string unit;
    if (!(sizeFile >> amount))
      break;
    sizeFile >> unit;
    bytes = amount << (unit == "K" ? 10 : unit == "M" ? 20 : 0);
  }
  return bytes > 0 ? bytes : std::size_t{8} << 20;
}

// Read when first asked, not when the library loads.
std::atomic<std::size_t>& StreamFrom()
{
  static std::atomic<std::size_t> from{LastLevelCacheBytes()};
  return from;
}

} // namespace

bool Ipg_StreamsWrites(std::size_t bytesTouched) { return bytesTouched > StreamFrom().load(std::memory_order_relaxed); }

std::size_t Ipg_SetStreamedWritesFrom(std::size_t bytes) { return StreamFrom().exchange(bytes, std::memory_order_relaxed); }

#if defined(__x86_64__)
namespace {

[[gnu::target("avx2")]] void StreamCopyAvx2(const int* stage, int* dst, unsigned n)
{
  unsigned i = 0;
  for (; i < n && (reinterpret_cast<std::uintptr_t>(dst + i) & 31) != 0; ++i)
    _mm_stream_si32(dst + i, stage[i]);
  for (; i + 8 <= n; i += 8)
    _mm256_stream_si256(reinterpret_cast<__m256i*>(dst + i),
                        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(stage + i)));
  for (; i < n; ++i)
    _mm_stream_si32(dst + i, stage[i]);
}

} // namespace
#endif

void Ipg_StreamCopy(const int* stage, int* dst, unsigned n)
{
#if defined(__x86_64__)
  static const bool avx2 = __builtin_cpu_supports("avx2");
  if (avx2) {
    StreamCopyAvx2(stage, dst, n);
    return;
  }
  unsigned i = 0;
  for (; i < n && (reinterpret_cast<std::uintptr_t>(dst + i) & 15) != 0; ++i)
    _mm_stream_si32(dst + i, stage[i]);
  for (; i + 4 <= n; i += 4)
    _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i), _mm_loadu_si128(reinterpret_cast<const __m128i*>(stage + i)));
  for (; i < n; ++i)
    _mm_stream_si32(dst + i, stage[i]);
#else
  std::copy_n(stage, n, dst);
#endif
}

void Ipg_StreamFence()
{
#if defined(__x86_64__)
  _mm_sfence();
#endif
}
