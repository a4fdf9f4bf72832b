// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>

// In-place passes whose pixels read their neighbours above as already updated
// and those below as they were (Lee, Frost) take their rows in groups along a
// diagonal wavefront. Groups can run on several threads when each follows the
// group above it closely enough: before its step s, a group waits until the
// group above has done the steps that finish every cell s reads there and
// that read, in their old state, every cell s overwrites. The same cells are
// then read in the same states as in a row-by-row pass, whatever the thread
// count.
class IPG_WAVEFRONT_LINK {
public:
  IPG_WAVEFRONT_LINK(const std::atomic<int>* above, std::atomic<int>* own) : Above(above), Own(own) {}

  // Returns once the group above has done at least steps steps (at once
  // without one, or when the group above ran before this one).
  void WaitForAbove(int steps)
  {
    if (Above != nullptr && Seen < steps)
      Seen = WaitFor(*Above, steps);
  }
  // Tells the group below that this one has done steps steps: every few
  // steps, and always when final.
  void Done(int steps, bool final)
  {
    if (Own != nullptr && (final || steps % kPublishEvery == 0))
      Own->store(steps, std::memory_order_release);
  }

private:
  static constexpr int kPublishEvery = 16;
  static int WaitFor(const std::atomic<int>& steps, int needed);

  const std::atomic<int>* Above;
  std::atomic<int>* Own;
  int Seen = 0;
};

// Runs body(group, link) for groups 0 .. groups - 1, top to bottom. Images of
// at least pixels worth sharing at the library's thread count deal the groups
// to the threads in turn; smaller ones run them in order on the calling thread.
void Ipg_RunWavefront(int groups, std::size_t pixels,
                      const std::function<void(int group, IPG_WAVEFRONT_LINK& link)>& body);
