// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/ui/ipg_progress.h"

#include <stdexcept>

// Ctrl-C. The first SIGINT only raises a flag: the running operator sees it
// through the program's progress sink (Cancelled()), stops with its message,
// and the program leaves with status 130 without writing any output. A second
// SIGINT ends the program at once (the default action is restored).

inline constexpr int kCliInterrupted = 130; // 128 + SIGINT, as shells report it

// Installs the SIGINT handler.
void Cli_CatchInterrupt();
// Whether SIGINT arrived.
bool Cli_Interrupted();

// Thrown where a command notices the interruption, before it writes anything.
class CliInterruptedError : public std::runtime_error {
public:
  CliInterruptedError() : std::runtime_error("interrupted; no output written") {}
};
// Throws CliInterruptedError once SIGINT arrived.
void Cli_StopIfInterrupted();

// The program's progress sink: forwards to a drawn bar when there is one (a
// terminal), is silent otherwise, and reports Ctrl-C as a cancellation.
class CliProgressSink : public Ipg_ProgressSink {
public:
  explicit CliProgressSink(Ipg_ProgressSink* bar) : Bar(bar) {}
  void Open(const std::string& label, int maximum) override;
  void Step(const std::string& status) override;
  void Close() override;
  bool Cancelled() override { return Cli_Interrupted(); }

private:
  Ipg_ProgressSink* Bar;
};
