// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

// A sub-command of `ipg` (info, list, run, phantom...). Each command registers
// itself from its own cmd_*.cpp file, so a new command is one new file.
struct CliCommand {
  std::string Name;
  std::string Summary; // one line, for `ipg --help`
  std::string Help;    // the full text of `ipg NAME --help`, synopsis first
  // Receives the arguments after the command name; returns the exit status
  // (0 success, 1 failure, 2 bad usage). May throw CliUsageError.
  std::function<int(const std::vector<std::string>& args)> Run;
};

bool Cli_RegisterCommand(CliCommand command);
// Every command, in registration-independent (alphabetical) order.
std::vector<const CliCommand*> Cli_Commands();
const CliCommand* Cli_FindCommand(const std::string& name);

// Exit statuses of the program.
inline constexpr int kCliOk = 0;
inline constexpr int kCliFailed = 1; // an operator failed, or a file could not be read or written
inline constexpr int kCliUsage = 2;  // bad usage
