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

private:
  IPG_RESIDENT_POOL(MTH_2D_DOUBLE* points, bool aligned) : Points(points), Aligned(aligned) {}
  MTH_2D_DOUBLE* Points;
  bool Aligned;
};
