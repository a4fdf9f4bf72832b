// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/ui/ipg_progress.h"

#include <string>
#include <vector>

// Records every progress event ("open <label> <max>", "step <status>", "close")
// for the lifetime of the object, then restores the previous sink. With
// CancelAfter set to n >= 0 it asks the operation to stop once n steps came.
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
  void Step(const std::string& status) override
  {
    Events.push_back("step " + status);
    ++Steps;
  }
  bool Cancelled() override { return CancelAfter >= 0 && Steps >= CancelAfter; }
  void Close() override { Events.push_back("close"); }

  std::vector<std::string> Events;
  int Steps = 0;
  int CancelAfter = -1;

private:
  Ipg_ProgressSink* Previous = nullptr;
};
