// SPDX-License-Identifier: Apache-2.0
#include "cli/cli_args.h"

#include "cli/operator_registry.h"

CliArgs& CliArgs::Option(const std::string& name, bool takesValue, std::vector<std::string> aliases)
{
  Spellings.emplace_back("--" + name, Spec{name, takesValue});
  for (const std::string& alias : aliases)
    Spellings.emplace_back(alias, Spec{name, takesValue});
  return *this;
}

const CliArgs::Spec* CliArgs::Find(const std::string& spelling) const
{
  for (const auto& [known, spec] : Spellings)
    if (known == spelling)
      return &spec;
  return nullptr;
}

void CliArgs::Parse(const std::vector<std::string>& args)
{
  bool optionsEnded = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (optionsEnded || arg.size() < 2 || arg[0] != '-' || (arg[1] >= '0' && arg[1] <= '9') || arg[1] == '.') {
      Positionals.push_back(arg); // "-5" is a value, not an option
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }
    const std::size_t equals = arg.find('=');
    const std::string spelling = arg.rfind("--", 0) == 0 && equals != std::string::npos ? arg.substr(0, equals) : arg;
    const Spec* spec = Find(spelling);
    if (spec == nullptr)
      throw CliUsageError("unknown option " + spelling);
    std::string value;
    if (spec->takesValue) {
      if (spelling != arg)
        value = arg.substr(equals + 1);
      else if (i + 1 < args.size())
        value = args[++i];
      else
        throw CliUsageError("option " + spelling + " needs a value");
    } else if (spelling != arg) {
      throw CliUsageError("option " + spelling + " takes no value");
    }
    Values[spec->name].push_back(value);
    Ordered.emplace_back(spec->name, value);
  }
}

std::optional<std::string> CliArgs::Value(const std::string& name) const
{
  const auto it = Values.find(name);
  if (it == Values.end() || it->second.empty())
    return std::nullopt;
  return it->second.back();
}

const std::vector<std::string>& CliArgs::All(const std::string& name) const
{
  static const std::vector<std::string> none;
  const auto it = Values.find(name);
  return it == Values.end() ? none : it->second;
}

bool Cli_WantsHelp(const std::vector<std::string>& args)
{
  for (const std::string& a : args) {
    if (a == "--")
      return false;
    if (a == "-h" || a == "--help")
      return true;
  }
  return false;
}
