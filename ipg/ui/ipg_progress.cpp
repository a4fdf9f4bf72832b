// SPDX-License-Identifier: Apache-2.0
#include "ipg/ui/ipg_progress.h"

namespace {

Ipg_ProgressSink*& CurrentSink()
{
  static Ipg_ProgressSink* sink = nullptr;
  return sink;
}

} // namespace

Ipg_ProgressSink* Ipg_SetProgressSink(Ipg_ProgressSink* sink)
{
  Ipg_ProgressSink* previous = CurrentSink();
  CurrentSink() = sink;
  return previous;
}

Ipg_ProgressSink* Ipg_GetProgressSink()
{
  return CurrentSink();
}

bool Ipg_CancelRequested()
{
  Ipg_ProgressSink* sink = CurrentSink();
  return sink != nullptr && sink->Cancelled();
}

Ipg_Progress::Ipg_Progress(const std::string& label, int maximum) : Sink(CurrentSink())
{
  if (Sink != nullptr)
    Sink->Open(label, maximum);
}

Ipg_Progress::~Ipg_Progress()
{
  if (Sink != nullptr)
    Sink->Close();
}

void Ipg_Progress::Step(const std::string& status)
{
  if (Sink != nullptr)
    Sink->Step(status);
}

bool Ipg_Progress::Cancelled() const
{
  return Sink != nullptr && Sink->Cancelled();
}
