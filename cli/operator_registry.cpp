// SPDX-License-Identifier: Apache-2.0
#include "cli/operator_registry.h"

#include <algorithm>
#include <cctype>

namespace {

std::vector<std::unique_ptr<CliOperator>>& Registry()
{
  static std::vector<std::unique_ptr<CliOperator>> operators;
  return operators;
}

bool SameNameIgnoringCase(const std::string& a, const std::string& b)
{
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](unsigned char x, unsigned char y) {
    return std::tolower(x) == std::tolower(y);
  });
}

} // namespace

bool Cli_Register(std::unique_ptr<CliOperator> op)
{
  Registry().push_back(std::move(op));
  return true;
}

std::vector<const CliOperator*> Cli_Operators()
{
  std::vector<const CliOperator*> list;
  for (const auto& op : Registry())
    list.push_back(op.get());
  std::sort(list.begin(), list.end(), [](const CliOperator* a, const CliOperator* b) { return a->Name() < b->Name(); });
  return list;
}

const CliOperator* Cli_FindOperator(const std::string& name)
{
  for (const auto& op : Registry())
    if (SameNameIgnoringCase(op->Name(), name))
      return op.get();
  return nullptr;
}

