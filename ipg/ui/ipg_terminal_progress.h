// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/ui/ipg_progress.h"

#include <cstdio>
#include <string>

// A progress sink that draws a one-line bar on a terminal stream:
//   "Filtre médian [##########..........]  50% ligne 128"
// The line is redrawn in place (carriage return) only when the shown
// percentage or status changes, and erased on Close(). Console hosts such as
// the `ipg` program install it when their standard error is a terminal.
class Ipg_TerminalProgress : public Ipg_ProgressSink {
public:
  explicit Ipg_TerminalProgress(std::FILE* stream = stderr, int barWidth = 30);

  void Open(const std::string& label, int maximum) override;
  void Step(const std::string& status) override;
  void Close() override;

  // Erases the bar so that other text can be written; the next Step redraws it.
  void Interrupt();

  int GetPosition() const { return Position; }

private:
  void Draw();

  std::FILE* Stream;
  int Width;
  std::string Label;
  std::string Status;
  int Maximum = 0;
  int Position = 0;
  int ShownPercent = -1;
  bool Visible = false;
};
