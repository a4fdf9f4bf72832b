// SPDX-License-Identifier: Apache-2.0
#pragma once

// One call from Python into the library. The call runs with the GIL released,
// so that other Python threads go on meanwhile; the operator messages it shows
// are gathered instead of printed, and a Python exception raised by the
// progress callback stops it (the operators see a cancellation) and is raised
// again once the call returns.
//
//   PyLibraryCall call;
//   bool applied = call.Run([&] { return op.Apply(); });
//   call.RaiseCallbackError();            // the callback's exception, if any
//   for (const std::string& text : call.Messages()) ...

#include <pybind11/pybind11.h>

#include <optional>
#include <string>
#include <vector>

class PyLibraryCall {
public:
  PyLibraryCall();
  ~PyLibraryCall();
  PyLibraryCall(const PyLibraryCall&) = delete;
  PyLibraryCall& operator=(const PyLibraryCall&) = delete;

  // Runs work without the GIL; work must not touch Python objects.
  template <typename Work>
  auto Run(Work&& work)
  {
    pybind11::gil_scoped_release released;
    return work();
  }

  // The operator messages shown during the call, in order.
  const std::vector<std::string>& Messages() const { return Texts; }
  // Raises the exception of the progress callback, when it raised one.
  void RaiseCallbackError();

  // The call running on this thread, or null.
  static PyLibraryCall* Current();
  // Called by the message handler and the progress sink of the module.
  void AddMessage(const std::string& text) { Texts.push_back(text); }
  void KeepCallbackError(pybind11::error_already_set&& error);

  // Routes the library's messages and progress to the running call; done once
  // when the module is imported.
  static void InstallHostSinks();

private:
  PyLibraryCall* Outer;
  std::vector<std::string> Texts;
  std::optional<pybind11::error_already_set> CallbackError;
};
