// SPDX-License-Identifier: Apache-2.0
#include "py_progress_sink.h"

#include "py_library_call.h"

namespace py = pybind11;

thread_local std::vector<PyProgressSink::Progress> PyProgressSink::Opened;

PyProgressSink::PyProgressSink() : Callback(new py::object(py::none())) {}

PyProgressSink& PyProgressSink::Instance()
{
  static PyProgressSink* sink = new PyProgressSink(); // see Callback
  return *sink;
}

py::object PyProgressSink::SetCallback(py::object callback)
{
  py::object previous = *Callback;
  *Callback = std::move(callback);
  return previous;
}

void PyProgressSink::Open(const std::string& label, int maximum)
{
  Opened.push_back({label, 0, maximum});
  Report(Opened.back());
}

void PyProgressSink::Step(const std::string&)
{
  if (Opened.empty())
    return;
  ++Opened.back().Done;
  Report(Opened.back());
}

void PyProgressSink::Close()
{
  if (!Opened.empty())
    Opened.pop_back();
}

void PyProgressSink::Report(const Progress& progress)
{
  if (Cancelled())
    return;
  py::gil_scoped_acquire gil;
  try {
    if (!Callback->is_none())
      (*Callback)(progress.Label, progress.Done, progress.Total);
    if (PyErr_CheckSignals() != 0)
      throw py::error_already_set();
  } catch (py::error_already_set& error) {
    if (PyLibraryCall* call = PyLibraryCall::Current())
      call->KeepCallbackError(std::move(error));
    else
      error.discard_as_unraisable("ipg progress callback");
  }
}
