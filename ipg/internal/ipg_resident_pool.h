// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mth/mth_2d_double.h"

#include <cstddef>
#include <memory>

// One block of room for the residents of every component of a labelling, which
// the components share (the last one to go frees it). The points are left
// unconstructed: the labelling writes each one exactly once, so the block is
// not cleared first, and large blocks ask for huge pages, which spares most of
// the page faults of a fresh block.
class IPG_RESIDENT_POOL {
public:
  // Null when the memory cannot be had.
  static std::shared_ptr<IPG_RESIDENT_POOL> Create(std::size_t points);
  IPG_RESIDENT_POOL(const IPG_RESIDENT_POOL&) = delete;
  IPG_RESIDENT_POOL& operator=(const IPG_RESIDENT_POOL&) = delete;
  ~IPG_RESIDENT_POOL();

  MTH_2D_DOUBLE* Data() const { return Points; }

  // Writes point `at` for the first time.
  static void Place(MTH_2D_DOUBLE* at, int col, int row) { ::new (static_cast<void*>(at)) MTH_2D_DOUBLE(col, row); }
  // Writes the points (col, row) for col in [first, end) from `at` on, past
  // the cache: a block of residents is larger than the cache, and a plain
  // store would read every line first. The writing thread calls Fence() before
  // others read them.
  static void PlaceRun(MTH_2D_DOUBLE* at, int first, int end, int row);
  static void Fence();

private:
  IPG_RESIDENT_POOL(MTH_2D_DOUBLE* points, bool aligned, std::size_t bytes)
      : Points(points), Aligned(aligned), Bytes(bytes)
  {
  }
  MTH_2D_DOUBLE* Points;
  bool Aligned;
  std::size_t Bytes;
};
