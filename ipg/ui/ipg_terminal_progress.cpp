// SPDX-License-Identifier: Apache-2.0
#include "ipg/ui/ipg_terminal_progress.h"

#include <algorithm>

Ipg_TerminalProgress::Ipg_TerminalProgress(std::FILE* stream, int barWidth)
    : Stream(stream), Width(std::max(barWidth, 1))
{
}

void Ipg_TerminalProgress::Open(const std::string& label, int maximum)
{
  Label = label;
  Status.clear();
  Maximum = std::max(maximum, 0);
  Position = 0;
  ShownPercent = -1;
  Draw();
}

void Ipg_TerminalProgress::Step(const std::string& status)
{
  if (Position < Maximum)
    ++Position;
  const int percent = Maximum > 0 ? static_cast<int>(100LL * Position / Maximum) : 100;
  if (percent == ShownPercent && status == Status && Visible)
    return;
  Status = status;
  Draw();
}

void Ipg_TerminalProgress::Close()
{
  Interrupt();
  Maximum = Position = 0;
}

void Ipg_TerminalProgress::Interrupt()
{
  if (!Visible || Stream == nullptr)
    return;
  std::fputs("\r\033[K", Stream); // back to the line start, erase to its end
  std::fflush(Stream);
  Visible = false;
}

void Ipg_TerminalProgress::Draw()
{
  if (Stream == nullptr)
    return;
  const int percent = Maximum > 0 ? static_cast<int>(100LL * Position / Maximum) : 0;
  const int filled = Maximum > 0 ? static_cast<int>(static_cast<long long>(Width) * Position / Maximum) : 0;
  const std::string bar = std::string(filled, '#') + std::string(Width - filled, '.');
  std::fprintf(Stream, "\r\033[K%s [%s] %3d%%%s%s", Label.c_str(), bar.c_str(), percent, Status.empty() ? "" : " ",
               Status.c_str());
  std::fflush(Stream);
  ShownPercent = percent;
  Visible = true;
}
