// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_resident_pool.h"

#include "ipg/internal/ipg_large_block.h"

#include <algorithm>
#include <new>

std::shared_ptr<IPG_RESIDENT_POOL> IPG_RESIDENT_POOL::Create(std::size_t points)
{
  IPG_LARGE_BLOCK block(std::max<std::size_t>(points, 1) * sizeof(MTH_2D_DOUBLE));
  if (block.Empty())
    return nullptr;
  bool aligned = false;
  void* room = block.Release(aligned);
  std::shared_ptr<IPG_RESIDENT_POOL> pool(new (std::nothrow) IPG_RESIDENT_POOL(static_cast<MTH_2D_DOUBLE*>(room), aligned));
  if (pool == nullptr)
    IPG_LARGE_BLOCK::Free(room, aligned);
  return pool;
}

IPG_RESIDENT_POOL::~IPG_RESIDENT_POOL()
{
  IPG_LARGE_BLOCK::Free(Points, Aligned);
}
