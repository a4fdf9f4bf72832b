// SPDX-License-Identifier: Apache-2.0
#pragma once

// Runs a job in a forked child process that writes its result into memory
// shared with the caller, so that an abort, a memory fault, an endless loop or
// an exhausted allocation inside the job ends the child, not the caller.

#include <cstddef>
#include <functional>
#include <string>

class IsolatedCall {
public:
  // The job writes at most resultBytes into its result area and returns true,
  // or false with a reason.
  using Job = std::function<bool(void* result, std::string& error)>;

  IsolatedCall(std::size_t resultBytes, double maxSeconds, std::size_t maxChildBytes)
      : ResultBytes(resultBytes), MaxSeconds(maxSeconds), MaxChildBytes(maxChildBytes)
  {
  }

  // Reads the child's result (resultBytes bytes) where the child left it.
  using Take = std::function<void(const void* result)>;

  // Runs job in a child; on success copies its result into result (resultBytes
  // bytes). False with a reason: the job's own, or how the child ended.
  bool Run(const Job& job, void* result, std::string& error) const;
  // The same, handing the result to take instead of copying it.
  bool Run(const Job& job, const Take& take, std::string& error) const;

private:
  std::size_t ResultBytes;
  double MaxSeconds;
  std::size_t MaxChildBytes; // address-space ceiling of the child beyond the caller's own
};
