// SPDX-License-Identifier: Apache-2.0
#include "cli/cli_value_parsing.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string Lower(std::string s)
{
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
  return s;
}

[[noreturn]] void BadValue(const std::string& parameter, const std::string& text, const char* type)
{
  throw CliUsageError("parameter " + parameter + ": '" + text + "' is not " + type);
}

long long ParseInteger(const std::string& parameter, const std::string& text, long long lo, long long hi)
{
  errno = 0;
  char* end = nullptr;
  const long long v = std::strtoll(text.c_str(), &end, 10);
  if (text.empty() || end == text.c_str() || *end != '\0' || errno == ERANGE)
    BadValue(parameter, text, "an integer");
  if (v < lo || v > hi)
    throw CliUsageError("parameter " + parameter + ": " + text + " is out of range [" + std::to_string(lo) +
                        ", " + std::to_string(hi) + "]");
  return v;
}

// A finite real that the parameter's type holds: no parameter of the library
// gives infinity or not-a-number a meaning, and a float parameter would
// silently turn 1e308 into infinity.
double ParseReal(const std::string& parameter, const std::string& text, double largest)
{
  errno = 0;
  char* end = nullptr;
  const double v = std::strtod(text.c_str(), &end);
  if (text.empty() || end == text.c_str() || *end != '\0')
    BadValue(parameter, text, "a real number");
  const bool underflow = errno == ERANGE && std::fabs(v) <= 1.0; // too small: rounds to 0 or a denormal
  if (!std::isfinite(v) || (errno == ERANGE && !underflow) || std::fabs(v) > largest) {
    std::ostringstream range;
    range << largest;
    throw CliUsageError("parameter " + parameter + ": " + text + " is out of range for a real of this parameter [-" +
                        range.str() + ", " + range.str() + "]");
  }
  return v;
}

} // namespace

template <> bool Cli_ParseValue<bool>(const std::string& parameter, const std::string& text)
{
  const std::string t = Lower(text);
  if (t == "1" || t == "true" || t == "yes" || t == "on")
    return true;
  if (t == "0" || t == "false" || t == "no" || t == "off")
    return false;
  BadValue(parameter, text, "a boolean (true/false)");
}

template <> int Cli_ParseValue<int>(const std::string& parameter, const std::string& text)
{
  return static_cast<int>(ParseInteger(parameter, text, INT_MIN, INT_MAX));
}

template <> long Cli_ParseValue<long>(const std::string& parameter, const std::string& text)
{
  return static_cast<long>(ParseInteger(parameter, text, LONG_MIN, LONG_MAX));
}

template <> short Cli_ParseValue<short>(const std::string& parameter, const std::string& text)
{
  return static_cast<short>(ParseInteger(parameter, text, SHRT_MIN, SHRT_MAX));
}

template <> unsigned Cli_ParseValue<unsigned>(const std::string& parameter, const std::string& text)
{
  return static_cast<unsigned>(ParseInteger(parameter, text, 0, UINT_MAX));
}

template <> unsigned short Cli_ParseValue<unsigned short>(const std::string& parameter, const std::string& text)
{
  return static_cast<unsigned short>(ParseInteger(parameter, text, 0, USHRT_MAX));
}

template <> char Cli_ParseValue<char>(const std::string& parameter, const std::string& text)
{
  return static_cast<char>(ParseInteger(parameter, text, CHAR_MIN, CHAR_MAX));
}

template <> float Cli_ParseValue<float>(const std::string& parameter, const std::string& text)
{
  return static_cast<float>(ParseReal(parameter, text, std::numeric_limits<float>::max()));
}

template <> double Cli_ParseValue<double>(const std::string& parameter, const std::string& text)
{
  return ParseReal(parameter, text, std::numeric_limits<double>::max());
}

template <> std::string Cli_ParseValue<std::string>(const std::string&, const std::string& text)
{
  return text;
}

const char* Cli_TypeName(IPG_VALUE_TYPE type)
{
  switch (type) {
  case IPG_VALUE_TYPE::Point: return "x,y";
  case IPG_VALUE_TYPE::RealPoint: return "real,real";
  case IPG_VALUE_TYPE::Reals: return "real,real,...";
  default: return Ipg_ValueTypeName(type);
  }
}

namespace {

// "a,b" split at its only comma; throws naming the syntax otherwise.
std::pair<std::string, std::string> Pair(const std::string& name, const std::string& text, const char* syntax)
{
  const std::size_t comma = text.find(',');
  if (comma == std::string::npos || text.find(',', comma + 1) != std::string::npos)
    throw CliUsageError("parameter " + name + " expects " + syntax + ", got '" + text + "'");
  return {text.substr(0, comma), text.substr(comma + 1)};
}

// "WxH:c1,c2,..." - W x H integer coefficients, row by row.
IPG_KERNEL ParseKernel(const std::string& name, const std::string& text)
{
  const std::size_t colon = text.find(':');
  const std::size_t times = text.find('x');
  if (colon == std::string::npos || times == std::string::npos || times > colon)
    throw CliUsageError("parameter " + name + ": '" + text + "' is not WxH:c1,c2,...");
  IPG_KERNEL kernel;
  kernel.Cols = Cli_ParseValue<short>(name, text.substr(0, times));
  kernel.Rows = Cli_ParseValue<short>(name, text.substr(times + 1, colon - times - 1));
  std::stringstream values(text.substr(colon + 1));
  for (std::string value; std::getline(values, value, ',');)
    kernel.Values.push_back(Cli_ParseValue<int>(name, value));
  if (kernel.Cols < 1 || kernel.Rows < 1 ||
      kernel.Values.size() != static_cast<std::size_t>(kernel.Cols) * static_cast<std::size_t>(kernel.Rows))
    throw CliUsageError("parameter " + name + ": the coefficients do not fill a " + std::to_string(kernel.Cols) + "x" +
                        std::to_string(kernel.Rows) + " kernel");
  return kernel;
}

// "r1,r2,..." - between `fewest` and `most` reals, each within [-largest, largest].
std::vector<double> ParseReals(const std::string& name, const std::string& text, long long fewest, long long most,
                               double largest)
{
  std::vector<double> values;
  std::stringstream fields(text);
  for (std::string field; std::getline(fields, field, ',');)
    values.push_back(ParseReal(name, field, largest));
  if (text.empty() || text.back() == ',' || static_cast<long long>(values.size()) < fewest ||
      static_cast<long long>(values.size()) > most)
    throw CliUsageError("parameter " + name + " expects " +
                        (fewest == most ? std::to_string(fewest) : std::to_string(fewest) + " to " + std::to_string(most)) +
                        " comma-separated numbers, got '" + text + "'");
  return values;
}

} // namespace

IPG_VALUE Cli_ParseParameter(const std::string& name, IPG_VALUE_TYPE type, long long min, long long max, double largest,
                             const std::string& text)
{
  switch (type) {
  case IPG_VALUE_TYPE::Bool: return Cli_ParseValue<bool>(name, text);
  case IPG_VALUE_TYPE::Integer: return ParseInteger(name, text, min, max);
  case IPG_VALUE_TYPE::Real: return ParseReal(name, text, largest);
  case IPG_VALUE_TYPE::Text: return text;
  case IPG_VALUE_TYPE::Point: {
    const auto [x, y] = Pair(name, text, "x,y (two integers)");
    return IPG_POINT{Cli_ParseValue<int>(name, x), Cli_ParseValue<int>(name, y)};
  }
  case IPG_VALUE_TYPE::RealPoint: {
    const auto [x, y] = Pair(name, text, "two reals x,y");
    return IPG_REAL_POINT{Cli_ParseValue<double>(name, x), Cli_ParseValue<double>(name, y)};
  }
  case IPG_VALUE_TYPE::Kernel: return ParseKernel(name, text);
  case IPG_VALUE_TYPE::Reals: return ParseReals(name, text, min, max, largest);
  }
  throw CliUsageError("parameter " + name + " has a type this program does not read");
}
