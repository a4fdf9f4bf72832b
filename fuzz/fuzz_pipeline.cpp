// SPDX-License-Identifier: Apache-2.0
// The program's JSON files as a hostile hand or a broken disk leaves them:
// pipeline descriptions (`ipg replay`, `ipg batch`) and batch report lines.
// Reading must refuse what it cannot take with an error, never crash; the two
// readings (values one by one, or numbers as tables) must agree on what they
// accept and print the same text, and a printed value must read back to itself.
#include "cli/cli_batch_file.h"
#include "cli/cli_pipeline.h"
#include "cli/json.h"

#include <cstdlib>
#include <exception>
#include <optional>
#include <stdexcept>
#include <sstream>
#include <string>

namespace {

void Require(bool condition)
{
  if (!condition)
    std::abort();
}

std::optional<Json> Read(const std::string& text, bool tables)
{
  try {
    return tables ? Json::ParseTables(text) : Json::Parse(text);
  } catch (const std::runtime_error&) {
    return std::nullopt;
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::optional<Json> values = Read(text, false), tables = Read(text, true);
  Require(values.has_value() == tables.has_value());
  if (!values)
    return 0;
  const std::string printed = values->Dump(-1);
  Require(tables->Dump(-1) == printed);
  const std::optional<Json> reread = Read(printed, true);
  Require(reread.has_value() && reread->Dump(-1) == printed);
  std::ostringstream written;
  tables->Write(written, 2);
  Require(written.str() == values->Dump(2));
  try {
    for (const CliPipelineStep& step : Cli_PipelineFromJson(*tables))
      Cli_StepSettings(step);
  } catch (const std::exception&) {
  }
  try {
    Cli_RecordFromJson(*tables);
  } catch (const std::exception&) {
  }
  return 0;
}
