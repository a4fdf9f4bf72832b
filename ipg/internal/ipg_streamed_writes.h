// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>

// Writing a large output with streaming stores: a plain store first reads the
// line it writes, and the output then pushes the inputs out of the cache,
// though nothing reads it back soon. A walk whose inputs and output fit in the
// last level cache writes plainly: run again, or followed by a walk over its
// output, it finds them there.
//
// The values of a row are computed into a small stage that stays in the first
// level cache, then copied out with streaming stores: a chunk at a time, so
// that the loads of the next chunk overlap the stores of this one.

constexpr unsigned kIpgStageInts = 256;

// Whether a walk that reads and writes this many distinct bytes streams its
// writes: when they exceed the last level cache.
bool Ipg_StreamsWrites(std::size_t bytesTouched);

// Sets the size beyond which writes are streamed (the last level cache's size
// unless set; tests lower it) and returns the one it replaces.
std::size_t Ipg_SetStreamedWritesFrom(std::size_t bytes);

// Copies n values of stage to dst with streaming stores (plain SSE2).
void Ipg_StreamCopy(const int* stage, int* dst, unsigned n);

// Orders the streaming stores of this thread before what it does next, such as
// telling other threads that its band is written.
void Ipg_StreamFence();

// writeChunk(first, n, stage) computes the values of columns [first, first + n)
// into stage; they are then streamed to dst + first.
template <typename WriteChunk>
[[gnu::always_inline]] inline void Ipg_WriteRowStreamed(int* dst, unsigned count, WriteChunk&& writeChunk)
{
  alignas(64) int stage[kIpgStageInts];
  for (unsigned first = 0; first < count; first += kIpgStageInts) {
    const unsigned n = std::min(kIpgStageInts, count - first);
    writeChunk(first, n, stage);
    Ipg_StreamCopy(stage, dst + first, n);
  }
}
