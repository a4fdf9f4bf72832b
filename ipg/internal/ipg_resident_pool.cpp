// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_resident_pool.h"

#include "ipg/internal/ipg_large_block.h"

#include <algorithm>
#include <new>

#if defined(__x86_64__)
#include <emmintrin.h>
#endif

std::shared_ptr<IPG_RESIDENT_POOL> IPG_RESIDENT_POOL::Create(std::size_t points)
{
  IPG_LARGE_BLOCK block(std::max<std::size_t>(points, 1) * sizeof(MTH_2D_DOUBLE));
  if (block.Empty())
    return nullptr;
  bool aligned = false;
  std::size_t size = 0;
  void* room = block.Release(aligned, size);
  std::shared_ptr<IPG_RESIDENT_POOL> pool(
      new (std::nothrow) IPG_RESIDENT_POOL(static_cast<MTH_2D_DOUBLE*>(room), aligned, size));
  if (pool == nullptr)
    IPG_LARGE_BLOCK::Free(room, aligned, size);
  return pool;
}

IPG_RESIDENT_POOL::~IPG_RESIDENT_POOL()
{
  IPG_LARGE_BLOCK::Free(Points, Aligned, Bytes);
}

void IPG_RESIDENT_POOL::PlaceRun(MTH_2D_DOUBLE* at, int first, int end, int row)
{
#if defined(__x86_64__)
  static_assert(sizeof(MTH_2D_DOUBLE) == 2 * sizeof(double) && alignof(MTH_2D_DOUBLE) == alignof(double));
  // A point is two doubles, x then y; the block's points are 16-byte aligned.
  const __m128d y = _mm_set1_pd(static_cast<double>(row));
  for (int col = first; col < end; ++col, ++at)
    _mm_stream_pd(reinterpret_cast<double*>(at), _mm_move_sd(y, _mm_set_sd(static_cast<double>(col))));
#else
  for (int col = first; col < end; ++col)
    Place(at++, col, row);
#endif
}

void IPG_RESIDENT_POOL::Fence()
{
#if defined(__x86_64__)
  _mm_sfence();
#endif
}
