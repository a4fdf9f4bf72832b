// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

// Where long operations report their progress. The host installs a sink that
// draws its progress window; without one, progress is silent.
class Ipg_ProgressSink {
public:
  virtual ~Ipg_ProgressSink() = default;
  virtual void Open(const std::string& label, int maximum) = 0;
  virtual void Step(const std::string& status) = 0;
  virtual void Close() = 0;
  // Polled by long operations between rows or passes: true asks them to stop.
  // A host's cancel button (or the program's Ctrl-C) answers here.
  virtual bool Cancelled() { return false; }
};

// What an operation shows when it stops because the sink asked it to.
inline constexpr const char* kIpgMsgCancelled = "Opération annulée par l'utilisateur";

// Installs sink (null: none) and returns the previous one. The sink is not owned.
Ipg_ProgressSink* Ipg_SetProgressSink(Ipg_ProgressSink* sink);
Ipg_ProgressSink* Ipg_GetProgressSink();

// Whether the current sink asks the running operation to stop (false without a
// sink). Cheap: long loops poll it once per row or pass.
bool Ipg_CancelRequested();

// Opens the current sink on construction and closes it on destruction, so a
// progress window never stays open after an operation returns.
class Ipg_Progress {
public:
  Ipg_Progress(const std::string& label, int maximum);
  ~Ipg_Progress();
  Ipg_Progress(const Ipg_Progress&) = delete;
  Ipg_Progress& operator=(const Ipg_Progress&) = delete;

  void Step(const std::string& status = std::string());
  // Whether the sink this progress reports to asks the operation to stop.
  bool Cancelled() const;

private:
  Ipg_ProgressSink* Sink;
};
