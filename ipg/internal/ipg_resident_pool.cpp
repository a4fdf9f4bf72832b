// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_resident_pool.h"

#include <algorithm>
#include <new>

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;

} // namespace

std::shared_ptr<IPG_RESIDENT_POOL> IPG_RESIDENT_POOL::Create(std::size_t points)
{
  const std::size_t bytes = std::max<std::size_t>(points, 1) * sizeof(MTH_2D_DOUBLE);
  const bool aligned = bytes >= 2 * kHugePage;
  void* block = aligned ? ::operator new(bytes, std::align_val_t{kHugePage}, std::nothrow)
                        : ::operator new(bytes, std::nothrow);
  if (block == nullptr)
    return nullptr;
#if defined(__linux__) && defined(MADV_HUGEPAGE)
  if (aligned)
    madvise(block, bytes, MADV_HUGEPAGE); // advice only: refused, the pages are small
#endif
  std::shared_ptr<IPG_RESIDENT_POOL> pool(new (std::nothrow) IPG_RESIDENT_POOL(static_cast<MTH_2D_DOUBLE*>(block), aligned));
  if (pool == nullptr) {
    if (aligned)
      ::operator delete(block, std::align_val_t{kHugePage});
    else
      ::operator delete(block);
  }
  return pool;
}

IPG_RESIDENT_POOL::~IPG_RESIDENT_POOL()
{
  if (Aligned)
    ::operator delete(Points, std::align_val_t{kHugePage});
  else
    ::operator delete(Points);
}
