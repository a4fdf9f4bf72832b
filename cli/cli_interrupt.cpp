// SPDX-License-Identifier: Apache-2.0
#include "cli/cli_interrupt.h"

#include <csignal>

namespace {

volatile std::sig_atomic_t interrupted = 0;

// Async-signal-safe: one store to a sig_atomic_t.
extern "C" void OnInterrupt(int)
{
  interrupted = 1;
}

} // namespace

void Cli_CatchInterrupt()
{
  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESETHAND | SA_RESTART; // a second Ctrl-C is not caught
  sigaction(SIGINT, &action, nullptr);
  // A parent may have left SIGINT blocked; a pending one arrives now.
  sigset_t interrupt;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  sigprocmask(SIG_UNBLOCK, &interrupt, nullptr);
}

bool Cli_Interrupted()
{
  return interrupted != 0;
}

void Cli_StopIfInterrupted()
{
  if (Cli_Interrupted())
    throw CliInterruptedError();
}

void CliProgressSink::Open(const std::string& label, int maximum)
{
  if (Bar != nullptr)
    Bar->Open(label, maximum);
}

void CliProgressSink::Step(const std::string& status)
{
  if (Bar != nullptr)
    Bar->Step(status);
}

void CliProgressSink::Close()
{
  if (Bar != nullptr)
    Bar->Close();
}
