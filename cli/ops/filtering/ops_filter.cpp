// SPDX-License-Identifier: Apache-2.0
#include "cli/operator_registry.h"
#include "ipg/filtering/ipg_filter_processing.h"

#include <sstream>
#include <string>
#include <vector>

namespace {

using Op = IPG_FILTER_PROCESSING;

// Splits "a,b,c" at the commas.
std::vector<std::string> Fields(const std::string& text)
{
  std::vector<std::string> fields;
  std::stringstream in(text);
  std::string field;
  while (std::getline(in, field, ','))
    fields.push_back(field);
  return fields;
}

// "WxH:c1,c2,..." - W x H integer coefficients, row by row.
void SetUserKernel(Op& op, const std::string& text)
{
  const std::string name = "UserFilter";
  const auto colon = text.find(':');
  const auto times = text.find('x');
  if (colon == std::string::npos || times == std::string::npos || times > colon)
    throw CliUsageError("parameter UserFilter: '" + text + "' is not WxH:c1,c2,... (e.g. 3x3:1,2,1,2,4,2,1,2,1)");
  const int cols = Cli_ParseValue<short>(name, text.substr(0, times));
  const int rows = Cli_ParseValue<short>(name, text.substr(times + 1, colon - times - 1));
  if (cols < 1 || rows < 1)
    throw CliUsageError("parameter UserFilter: the kernel needs at least one column and one row");
  std::vector<int> coefficients;
  for (const std::string& field : Fields(text.substr(colon + 1)))
    coefficients.push_back(Cli_ParseValue<int>(name, field));
  if (coefficients.size() != static_cast<std::size_t>(cols) * rows)
    throw CliUsageError("parameter UserFilter: " + std::to_string(cols) + "x" + std::to_string(rows) + " needs " +
                        std::to_string(cols * rows) + " coefficients, " + std::to_string(coefficients.size()) +
                        " given");
  op.SetUserFilter(coefficients.data(), cols, rows);
}

// The gradient images of a Deriche derivative, as extra outputs "gx" and "gy".
void AddGradients(Op& op, const CliImages&, CliRunOutcome& outcome)
{
  if (op.GetGradientXGradient() != nullptr)
    outcome.images.emplace_back("gx", std::make_unique<DCM_STRUCT>(*op.GetGradientXGradient(), true));
  if (op.GetGradientYGradient() != nullptr)
    outcome.images.emplace_back("gy", std::make_unique<DCM_STRUCT>(*op.GetGradientYGradient(), true));
}

const bool registered = [] {
  auto table = std::make_unique<CliOperatorTable<Op>>(
      "IPG_FILTER_PROCESSING", "convolution, smoothing and edge filters, ultrasound despeckling",
      [](const CliImages& im) { return std::make_unique<Op>(im.in, im.roi); });
  table->ParamFn("UserFilter", "kernel", "user kernel WxH:c1,c2,... row by row (code 501; window of the median)",
                 SetUserKernel);
  table->ResultFn("DefinedFilterNumber", [](Op& op) { return Json(op.GetDefinedFilterNumber()); });
  table->Output("out", [](Op& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  table->After(AddGradients);
  return Cli_Register(std::move(table));
}();

} // namespace
