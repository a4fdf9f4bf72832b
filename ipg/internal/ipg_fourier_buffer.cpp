// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_fourier_buffer.h"

#include "ipg/internal/ipg_row_bands.h"
#include "mth/mth_fft.h"

#include <new>

namespace {

std::size_t CountOf(int cols, int rows)
{
  return static_cast<std::size_t>(cols > 0 ? cols : 0) * static_cast<std::size_t>(rows > 0 ? rows : 0);
}

// Raw storage: the values are loaded before any read, so they are not
// cleared (clearing would touch every page twice).
MTH_COMPLEX* Allocate(std::size_t count)
{
  return static_cast<MTH_COMPLEX*>(::operator new(count * sizeof(MTH_COMPLEX)));
}

void Free(MTH_COMPLEX* values) { ::operator delete(values); }

struct CACHED_BLOCK {
  MTH_COMPLEX* Values = nullptr;
  std::size_t Count = 0;
  bool InUse = false;

  void Release()
  {
    Free(Values);
    Values = nullptr;
    Count = 0;
  }
  ~CACHED_BLOCK() { Release(); }
};

thread_local CACHED_BLOCK cache;

} // namespace

IPG_FOURIER_BUFFER::IPG_FOURIER_BUFFER(int cols, int rows)
    : NbCols(cols > 0 ? cols : 0), NbRows(rows > 0 ? rows : 0), Values(nullptr), Borrowed(false),
      Columns(static_cast<std::size_t>(NbCols))
{
  const std::size_t count = CountOf(NbCols, NbRows);
  if (cache.InUse) {
    Values = Allocate(count);
  } else {
    if (cache.Count != count) {
      cache.Release(); // before the new block, so that the two never coexist
      cache.Values = Allocate(count);
      cache.Count = count;
    }
    cache.InUse = true;
    Values = cache.Values;
    Borrowed = true;
  }
  for (int c = 0; c < NbCols; ++c)
    Columns[static_cast<std::size_t>(c)] = Values + static_cast<std::size_t>(c) * static_cast<std::size_t>(NbRows);
}

IPG_FOURIER_BUFFER::~IPG_FOURIER_BUFFER()
{
  if (Borrowed)
    cache.InUse = false;
  else
    Free(Values);
}

void Ipg_ReleaseFourierBuffer()
{
  if (!cache.InUse)
    cache.Release();
}

namespace {

// The library's threads when the transform is large enough to share.
int TransformThreads(int cols, int rows)
{
  return static_cast<int>(Ipg_SplitRows(static_cast<unsigned>(rows), static_cast<std::size_t>(cols)).Count);
}

} // namespace

bool IPG_FOURIER_BUFFER::Transform(int dir)
{
  return Mth_FFT2D(Get(), NbCols, NbRows, dir, TransformThreads(NbCols, NbRows));
}

bool IPG_FOURIER_BUFFER::Transform(int dir, const MTH_FFT_STREAMS& streams)
{
  return Mth_FFT2DStreamed(Get(), NbCols, NbRows, dir, TransformThreads(NbCols, NbRows), streams);
}
