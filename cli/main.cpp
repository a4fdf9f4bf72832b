#include "cli/operator_registry.h"

#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

namespace {

constexpr const char* kUsage =
    "usage: ipg COMMAND [ARGS]\n"
    "\n"
    "commands:\n"
    "  list     every operator class, its operation codes and parameters\n"
    "  help     this text\n";

int ListOperators()
{
  for (const CliOperator* op : Cli_Operators()) {
    std::cout << op->Name() << " - " << op->Summary() << "\n";
    for (const CliCode& c : op->Codes())
      std::cout << "  " << c.code << "  " << c.method << "\n";
    for (const CliParameter& p : op->Parameters())
      std::cout << "  --set " << p.name << "=<" << p.type << ">  " << p.description << "\n";
  }
  return 0;
}

} // namespace

int main(int argc, char** argv)
{
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty() || args[0] == "help" || args[0] == "--help" || args[0] == "-h") {
    std::cout << kUsage;
    return args.empty() ? 2 : 0;
  }
  if (args[0] == "list")
    return ListOperators();
  std::cerr << "ipg: unknown command '" << args[0] << "'\n" << kUsage;
  return 2;
}
