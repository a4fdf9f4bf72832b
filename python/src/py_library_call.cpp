// SPDX-License-Identifier: Apache-2.0
#include "py_library_call.h"

#include "py_progress_sink.h"

#include "ipg/ui/ipg_message.h"
#include "ipg/ui/ipg_progress.h"

#include <cstdio>

namespace {

thread_local PyLibraryCall* current = nullptr;

// Messages shown outside any call from Python (none of the library's own paths
// does so) keep the library's default form.
void PrintMessage(const std::string& text, const std::string& caption)
{
  std::fprintf(stderr, "%s: %s\n", caption.c_str(), text.c_str());
  std::fflush(stderr);
}

} // namespace

PyLibraryCall::PyLibraryCall() : Outer(current) { current = this; }

PyLibraryCall::~PyLibraryCall()
{
  if (CallbackError)
    PyProgressSink::Instance().EndCancellation();
  current = Outer;
}

PyLibraryCall* PyLibraryCall::Current() { return current; }

void PyLibraryCall::KeepCallbackError(pybind11::error_already_set&& error)
{
  if (CallbackError)
    return; // the first exception is the one raised again
  CallbackError.emplace(std::move(error));
  PyProgressSink::Instance().BeginCancellation();
}

void PyLibraryCall::RaiseCallbackError()
{
  if (CallbackError)
    throw *CallbackError;
}

void PyLibraryCall::InstallHostSinks()
{
  Ipg_SetMessageHandler([](const std::string& text, const std::string& caption) {
    if (current != nullptr)
      current->AddMessage(text);
    else
      PrintMessage(text, caption);
  });
  Ipg_SetProgressSink(&PyProgressSink::Instance());
}
