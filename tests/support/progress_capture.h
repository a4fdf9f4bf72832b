#pragma once

#include "ipg/ui/ipg_progress.h"

#include <string>
#include <vector>

// Records every progress event ("open <label> <max>", "step <status>", "close")
// for the lifetime of the object, then restores the previous sink.
class ProgressCapture : public Ipg_ProgressSink {
public:
  ProgressCapture() { Previous = Ipg_SetProgressSink(this); }
  ~ProgressCapture() override { Ipg_SetProgressSink(Previous); }
  ProgressCapture(const ProgressCapture&) = delete;
  ProgressCapture& operator=(const ProgressCapture&) = delete;

  void Open(const std::string& label, int maximum) override
  {
    Events.push_back("open " + label + " " + std::to_string(maximum));
  }
  void Step(const std::string& status) override { Events.push_back("step " + status); }
  void Close() override { Events.push_back("close"); }

  std::vector<std::string> Events;

private:
  Ipg_ProgressSink* Previous = nullptr;
};
