// SPDX-License-Identifier: Apache-2.0
#include "cli/cli_command.h"

#include <algorithm>
#include <memory>

namespace {

std::vector<std::unique_ptr<CliCommand>>& Commands()
{
  static std::vector<std::unique_ptr<CliCommand>> commands;
  return commands;
}

} // namespace

bool Cli_RegisterCommand(CliCommand command)
{
  Commands().push_back(std::make_unique<CliCommand>(std::move(command)));
  return true;
}

std::vector<const CliCommand*> Cli_Commands()
{
  std::vector<const CliCommand*> list;
  for (const auto& c : Commands())
    list.push_back(c.get());
  std::sort(list.begin(), list.end(), [](const CliCommand* a, const CliCommand* b) { return a->Name < b->Name; });
  return list;
}

const CliCommand* Cli_FindCommand(const std::string& name)
{
  for (const auto& c : Commands())
    if (c->Name == name)
      return c.get();
  return nullptr;
}
