// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

// The option grammar of one command: `--name VALUE`, `--name=VALUE`, `-o VALUE`
// and flags, mixed freely with positional arguments; `--` ends the options.
// Unknown options and missing values are usage errors (CliUsageError).
class CliArgs {
public:
  // Declares an option; aliases are other spellings ("-o" for "--output").
  CliArgs& Option(const std::string& name, bool takesValue, std::vector<std::string> aliases = {});

  // Parses args; throws CliUsageError. Values of repeated options are kept in order.
  void Parse(const std::vector<std::string>& args);

  bool Has(const std::string& name) const { return Values.count(name) != 0; }
  std::optional<std::string> Value(const std::string& name) const; // the last one given
  const std::vector<std::string>& All(const std::string& name) const;
  // Every option given, in command-line order: (name, value).
  const std::vector<std::pair<std::string, std::string>>& InOrder() const { return Ordered; }
  const std::vector<std::string>& Positional() const { return Positionals; }

private:
  struct Spec {
    std::string name;
    bool takesValue;
  };
  const Spec* Find(const std::string& spelling) const;

  std::vector<std::pair<std::string, Spec>> Spellings;
  std::map<std::string, std::vector<std::string>> Values;
  std::vector<std::pair<std::string, std::string>> Ordered;
  std::vector<std::string> Positionals;
};

// True when args ask for help (-h or --help anywhere before `--`).
bool Cli_WantsHelp(const std::vector<std::string>& args);
