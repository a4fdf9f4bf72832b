// SPDX-License-Identifier: Apache-2.0
// ipg: runs the operators of the library on DICOM files.
#include "cli/cli_args.h"
#include "cli/cli_command.h"
#include "cli/cli_interrupt.h"
#include "cli/cli_io.h"
#include "cli/operator_registry.h"
#include "cli/cli_value_parsing.h"
#include "dcm/dcm_io.h"
#include "ipg/framework/ipg_threads.h"
#include "ipg/ui/ipg_message.h"
#include "ipg/ui/ipg_terminal_progress.h"

#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

void PrintUsage(std::ostream& out)
{
  out << "usage: ipg [--threads N] COMMAND [ARGS]    (ipg COMMAND --help for a command's options)\n\ncommands:\n";
  for (const CliCommand* c : Cli_Commands())
    out << "  " << c->Name << std::string(c->Name.size() < 10 ? 10 - c->Name.size() : 1, ' ') << c->Summary << "\n";
  out << "\n  --threads N  threads of the operators (default: IPG_NUM_THREADS, else every core);\n"
         "               every count gives the same results\n";
  out << "\nexit status: 0 success, 1 an operator failed or a file could not be read or written,\n"
         "2 bad usage, 130 interrupted (Ctrl-C; nothing written).\n";
}

// Takes the options that come before the command off the front of args.
void ApplyGlobalOptions(std::vector<std::string>& args)
{
  while (!args.empty() && args[0] == "--threads") {
    if (args.size() < 2)
      throw CliUsageError("--threads needs a number");
    const int threads = Cli_ParseValue<int>("--threads", args[1]);
    if (threads < 1 || threads > 1024)
      throw CliUsageError("--threads must be between 1 and 1024");
    Ipg_SetNumThreads(threads);
    args.erase(args.begin(), args.begin() + 2);
  }
}

int Dispatch(std::vector<std::string> args)
{
  ApplyGlobalOptions(args);
  if (args.empty()) {
    PrintUsage(std::cerr);
    return kCliUsage;
  }
  if (args[0] == "help" || args[0] == "--help" || args[0] == "-h") {
    const CliCommand* topic = args.size() > 1 ? Cli_FindCommand(args[1]) : nullptr;
    if (topic != nullptr)
      std::cout << topic->Help;
    else
      PrintUsage(std::cout);
    return kCliOk;
  }
  const CliCommand* command = Cli_FindCommand(args[0]);
  if (command == nullptr)
    throw CliUsageError("unknown command '" + args[0] + "' (ipg --help lists them)");
  const std::vector<std::string> rest(args.begin() + 1, args.end());
  if (Cli_WantsHelp(rest)) {
    std::cout << command->Help;
    return kCliOk;
  }
  return command->Run(rest);
}

} // namespace

int main(int argc, char** argv)
{
  // Progress of long filters drawn on a terminal, silent otherwise; the sink is
  // always there so that Ctrl-C reaches the running operator. Messages erase
  // the bar first; the operator's cancellation message gives way to the
  // program's own line.
  Cli_CatchInterrupt();
  // Files come from anywhere: a codec that aborts or faults ends a child
  // process, and the file is reported as unreadable.
  Dcm_SetIsolatedDecoding(true);
  Ipg_TerminalProgress bar(stderr);
  const bool terminal = isatty(STDERR_FILENO) != 0;
  CliProgressSink sink(terminal ? &bar : nullptr);
  Ipg_SetProgressSink(&sink);
  Ipg_SetMessageHandler([&bar, terminal](const std::string& text, const std::string& caption) {
    if (Cli_Interrupted() && text == kIpgMsgCancelled)
      return;
    if (terminal)
      bar.Interrupt();
    std::fprintf(stderr, "%s: %s\n", caption.c_str(), text.c_str());
    std::fflush(stderr);
  });
  int status = kCliFailed;
  try {
    status = Dispatch(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const CliInterruptedError& e) {
    std::cerr << "ipg: " << e.what() << "\n";
    status = kCliInterrupted;
  } catch (const CliUsageError& e) {
    std::cerr << "ipg: " << e.what() << "\n";
    status = kCliUsage;
  } catch (const CliFileError& e) {
    std::cerr << "ipg: " << e.what() << "\n";
    status = kCliFailed;
  } catch (const std::exception& e) {
    std::cerr << "ipg: " << e.what() << "\n";
    status = kCliFailed;
  }
  Ipg_SetProgressSink(nullptr);
  Ipg_SetMessageHandler(nullptr);
  return status;
}
