// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_large_block.h"

#include <algorithm>
#include <new>

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;

} // namespace

IPG_LARGE_BLOCK::IPG_LARGE_BLOCK(std::size_t bytes)
{
  bytes = std::max<std::size_t>(bytes, 1);
  Aligned = bytes >= 2 * kHugePage;
  Bytes = Aligned ? ::operator new(bytes, std::align_val_t{kHugePage}, std::nothrow) : ::operator new(bytes, std::nothrow);
#if defined(__linux__) && defined(MADV_HUGEPAGE)
  if (Bytes != nullptr && Aligned)
    madvise(Bytes, bytes, MADV_HUGEPAGE); // advice only: refused, the pages are small
#endif
}

IPG_LARGE_BLOCK::~IPG_LARGE_BLOCK()
{
  Free(Bytes, Aligned);
}

void* IPG_LARGE_BLOCK::Release(bool& aligned)
{
  aligned = Aligned;
  void* block = Bytes;
  Bytes = nullptr;
  return block;
}

void IPG_LARGE_BLOCK::Free(void* block, bool aligned)
{
  if (block == nullptr)
    return;
  if (aligned)
    ::operator delete(block, std::align_val_t{kHugePage});
  else
    ::operator delete(block);
}
