// SPDX-License-Identifier: Apache-2.0
#pragma once

// Work run in child processes, a few at a time: what `ipg batch --jobs N` does
// with its inputs. A child that faults, aborts or is killed ends only itself;
// its task ends with what it wrote (nothing) and how it ended. Children die
// with the calling process (a killed batch leaves no worker running).

#include <cstddef>
#include <functional>
#include <string>

// How one child ended.
struct CliChildEnd {
  std::string output; // everything the task's function returned, or empty
  int waitStatus = 0; // as waitpid gives it
  // True when the child returned normally (its output is complete).
  bool Finished() const;
  // "killed by signal 11 (Segmentation fault)", "exit status 3"...
  std::string Describe() const;
};

// The exit status of a child whose work threw CliInterruptedError.
inline constexpr int kCliChildInterrupted = 130;

struct CliPoolTasks {
  std::size_t count = 0;
  // Runs in the child; its text goes back to the parent.
  std::function<std::string(std::size_t task)> work;
  // Runs in the parent as each child ends, in the order they end.
  std::function<void(std::size_t task, const CliChildEnd& end)> done;
  // Asked in the parent before each start: true stops starting new children
  // (those running are waited for).
  std::function<bool()> stop;
};

// Runs tasks 0 .. count-1, each in a forked child, at most jobs at once, and
// returns when every started child has ended. The caller must have no other
// threads: children are forked from it. Throws std::system_error when no
// process or pipe can be made.
void Cli_RunInChildren(const CliPoolTasks& tasks, int jobs);
