// SPDX-License-Identifier: Apache-2.0
#pragma once

// The progress sink the module installs in the library. Long operators report
// to it from the calling thread; it hands each report to the Python function
// set with ipg.set_progress, called as fn(label, done, total): done is 0 when
// an operation opens its progress, then the number of steps taken. That suits
// tqdm: `bar.reset(total)` on 0, `bar.update(1)` otherwise.
//
// Between steps it also lets Python see Ctrl-C. An exception raised by the
// function (KeyboardInterrupt included) cancels the running operation, which
// stops with its message; the call then raises the exception.

#include "ipg/ui/ipg_progress.h"

#include <pybind11/pybind11.h>

#include <atomic>
#include <string>
#include <vector>

class PyProgressSink : public Ipg_ProgressSink {
public:
  static PyProgressSink& Instance();

  // Sets the function (None: none) and returns the previous one.
  pybind11::object SetCallback(pybind11::object callback);

  void Open(const std::string& label, int maximum) override;
  void Step(const std::string& status) override;
  void Close() override;
  // Polled by the operators, also from their worker threads.
  bool Cancelled() override { return Cancelling.load(std::memory_order_relaxed) > 0; }

  // A call whose callback raised asks the operators to stop until it ends.
  void BeginCancellation() { Cancelling.fetch_add(1, std::memory_order_relaxed); }
  void EndCancellation() { Cancelling.fetch_sub(1, std::memory_order_relaxed); }

private:
  PyProgressSink();
  struct Progress {
    std::string Label;
    int Done;
    int Total;
  };
  void Report(const Progress& progress);

  // Kept for the life of the process: no Python object is released after the
  // interpreter has gone.
  pybind11::object* Callback;
  std::atomic<int> Cancelling{0};
  // The progress opened on each thread, innermost last.
  static thread_local std::vector<Progress> Opened;
};
