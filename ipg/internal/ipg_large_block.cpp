// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_large_block.h"

#include <algorithm>
#include <mutex>
#include <new>

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;
constexpr std::size_t kMostKept = std::size_t{128} << 20;

void* NewAligned(std::size_t bytes) { return ::operator new(bytes, std::align_val_t{kHugePage}, std::nothrow); }
void DeleteAligned(void* block) { ::operator delete(block, std::align_val_t{kHugePage}); }

// The last large block freed, kept for the next one of about its size: the
// system clears every page of a fresh block when it is first touched, which
// costs more than a fast operator's own work on it (labelling a 2048 x 2048
// image fills 37 MB). One block of at most kMostKept bytes; one of more than
// twice the size asked for is not handed out, and goes before a new block is
// allocated.
class KeptBlock {
public:
  KeptBlock(const KeptBlock&) = delete;
  KeptBlock& operator=(const KeptBlock&) = delete;
  KeptBlock() = default;

  void* Take(std::size_t bytes, std::size_t& capacity)
  {
    const std::lock_guard<std::mutex> hold(Lock);
    if (Block == nullptr || Bytes < bytes || Bytes / 2 > bytes)
      return nullptr;
    void* block = Block;
    capacity = Bytes;
    Block = nullptr;
    return block;
  }

  // Keeps the block in place of the one held, or frees it when too large.
  void Keep(void* block, std::size_t bytes)
  {
    void* dropped = block;
    if (bytes <= kMostKept) {
      const std::lock_guard<std::mutex> hold(Lock);
      dropped = Block;
      Block = block;
      Bytes = bytes;
    }
    if (dropped != nullptr)
      DeleteAligned(dropped);
  }

  void Drop()
  {
    void* dropped = nullptr;
    {
      const std::lock_guard<std::mutex> hold(Lock);
      dropped = Block;
      Block = nullptr;
    }
    if (dropped != nullptr)
      DeleteAligned(dropped);
  }

private:
  std::mutex Lock;
  void* Block = nullptr;
  std::size_t Bytes = 0;
};

// Never destroyed: blocks freed while the program ends still find it.
KeptBlock& Kept()
{
  static KeptBlock* const kept = new KeptBlock;
  return *kept;
}

} // namespace

IPG_LARGE_BLOCK::IPG_LARGE_BLOCK(std::size_t bytes)
{
  Size = std::max<std::size_t>(bytes, 1);
  Aligned = Size >= 2 * kHugePage;
  if (!Aligned) {
    Bytes = ::operator new(Size, std::nothrow);
    return;
  }
  Bytes = Kept().Take(Size, Size);
  if (Bytes != nullptr)
    return;
  Kept().Drop(); // never two large blocks where the caller needs one
  Bytes = NewAligned(Size);
#if defined(__linux__) && defined(MADV_HUGEPAGE)
  if (Bytes != nullptr)
    madvise(Bytes, Size, MADV_HUGEPAGE); // advice only: refused, the pages are small
#endif
}

IPG_LARGE_BLOCK::~IPG_LARGE_BLOCK()
{
  Free(Bytes, Aligned, Size);
}

void* IPG_LARGE_BLOCK::Release(bool& aligned, std::size_t& size)
{
  aligned = Aligned;
  size = Size;
  void* block = Bytes;
  Bytes = nullptr;
  return block;
}

void IPG_LARGE_BLOCK::Free(void* block, bool aligned, std::size_t size)
{
  if (block == nullptr)
    return;
  if (aligned)
    Kept().Keep(block, size);
  else
    ::operator delete(block);
}

void IPG_LARGE_BLOCK::ReleaseKept()
{
  Kept().Drop();
}
