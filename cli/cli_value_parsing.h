// SPDX-License-Identifier: Apache-2.0
#pragma once

// Command-line values read as the parameter's type, range checked.
#include "cli/cli_run_types.h"
#include "ipg/framework/ipg_operation_info.h"

#include <string>
#include <type_traits>

// Parses a command-line value into T; throws CliUsageError naming the parameter.
template <typename T>
T Cli_ParseValue(const std::string& parameter, const std::string& text);
template <> bool Cli_ParseValue<bool>(const std::string& parameter, const std::string& text);
template <> int Cli_ParseValue<int>(const std::string& parameter, const std::string& text);
template <> long Cli_ParseValue<long>(const std::string& parameter, const std::string& text);
template <> short Cli_ParseValue<short>(const std::string& parameter, const std::string& text);
template <> unsigned Cli_ParseValue<unsigned>(const std::string& parameter, const std::string& text);
template <> unsigned short Cli_ParseValue<unsigned short>(const std::string& parameter, const std::string& text);
template <> char Cli_ParseValue<char>(const std::string& parameter, const std::string& text);
template <> float Cli_ParseValue<float>(const std::string& parameter, const std::string& text);
template <> double Cli_ParseValue<double>(const std::string& parameter, const std::string& text);
template <> std::string Cli_ParseValue<std::string>(const std::string& parameter, const std::string& text);

// A value of a parameter of a class table, parsed from the command line as its
// type says; throws CliUsageError naming the parameter.
IPG_VALUE Cli_ParseParameter(const std::string& name, IPG_VALUE_TYPE type, long long min, long long max, double largest,
                             const std::string& text);
// How `ipg list` names a table type: bool, integer, real, text, x,y, real,real,
// kernel, real,real,...
const char* Cli_TypeName(IPG_VALUE_TYPE type);

template <typename T>
const char* Cli_TypeName()
{
  if constexpr (std::is_same_v<T, bool>) return "bool";
  else if constexpr (std::is_same_v<T, float> || std::is_same_v<T, double>) return "real";
  else if constexpr (std::is_same_v<T, std::string>) return "text";
  else return "integer";
}
