// SPDX-License-Identifier: Apache-2.0
#include "cli/cli_pipeline.h"

#include "cli/cli_io.h"
#include "ipg/framework/ipg_container.h"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

constexpr const char* kFormat = "ipg-pipeline";
constexpr int kVersion = 1;
constexpr const char* kContainerClass = "IPG_CONTAINER";

const Json* Member(const Json& object, const std::string& key)
{
  return object.IsObject() ? object.Find(key) : nullptr;
}

std::optional<std::string> TextOf(const Json& results, const std::string& key)
{
  const Json* value = Member(results, key);
  return value != nullptr && value->IsString() ? std::optional<std::string>(value->AsString()) : std::nullopt;
}

std::optional<int> IntegerOf(const Json& object, const std::string& key, const std::string& where)
{
  const Json* value = Member(object, key);
  if (value == nullptr || value->IsNull())
    return std::nullopt;
  if (!value->IsNumber() || value->AsNumber() != std::trunc(value->AsNumber()) || std::fabs(value->AsNumber()) > 2147483647.0)
    throw CliUsageError(where + ": \"" + key + "\" must be an integer");
  return static_cast<int>(value->AsNumber());
}

std::optional<short> ShortOf(const Json& object, const std::string& key, const std::string& where)
{
  const std::optional<int> value = IntegerOf(object, key, where);
  if (value && (*value < -32768 || *value > 32767))
    throw CliUsageError(where + ": \"" + key + "\" is out of range");
  return value ? std::optional<short>(static_cast<short>(*value)) : std::nullopt;
}

Json PairsToJson(const std::vector<std::pair<std::string, std::string>>& pairs)
{
  Json::Array list;
  for (const auto& [name, value] : pairs)
    list.emplace_back(Json::Object{{"name", name}, {"value", value}});
  return Json(std::move(list));
}

// Values may be written as text or, by hand, as numbers and booleans.
std::vector<std::pair<std::string, std::string>> PairsFromJson(const Json& step, const std::string& key,
                                                               const std::string& where)
{
  std::vector<std::pair<std::string, std::string>> pairs;
  const Json* list = Member(step, key);
  if (list == nullptr || list->IsNull())
    return pairs;
  if (!list->IsArray())
    throw CliUsageError(where + ": \"" + key + "\" must be a list of {\"name\", \"value\"}");
  for (const Json& item : list->AsArray()) {
    const Json* name = Member(item, "name");
    const Json* value = Member(item, "value");
    if (name == nullptr || !name->IsString() || value == nullptr || value->IsNull() || value->IsArray() ||
        value->IsObject())
      throw CliUsageError(where + ": each of \"" + key + "\" needs a \"name\" and a \"value\"");
    pairs.emplace_back(name->AsString(), value->IsString() ? value->AsString() : value->Dump(-1));
  }
  return pairs;
}

Json StepToJson(const CliPipelineStep& step)
{
  Json json(Json::Object{});
  json.Set("class", step.className);
  json.Set("classType", step.classType ? Json(*step.classType) : Json());
  json.Set("container", step.viaContainer);
  json.Set("tools", step.tools ? Json(*step.tools) : Json());
  if (step.mode)
    json.Set("mode", Json(*step.mode));
  if (step.precision)
    json.Set("precision", Json(*step.precision));
  json.Set("parameters", PairsToJson(step.parameters));
  if (!step.options.empty())
    json.Set("options", PairsToJson(step.options));
  return json;
}

CliPipelineStep StepFromJson(const Json& json, const std::string& where)
{
  if (!json.IsObject())
    throw CliUsageError(where + " is not an object");
  CliPipelineStep step;
  const std::optional<std::string> className = TextOf(json, "class");
  step.classType = IntegerOf(json, "classType", where);
  if (className)
    step.className = *className;
  else if (step.classType)
    step.className = Cli_ContainerClassName(*step.classType);
  if (step.className.empty())
    throw CliUsageError(where + " names no operator class (\"class\" or \"classType\")");
  if (!step.classType)
    step.classType = Cli_ContainerClassType(step.className);
  if (const Json* container = Member(json, "container"); container != nullptr && !container->IsNull()) {
    if (!container->IsBool())
      throw CliUsageError(where + ": \"container\" must be true or false");
    step.viaContainer = container->AsBool();
  }
  if (step.viaContainer && !step.classType)
    throw CliUsageError(where + ": " + step.className + " has no class-type code for IPG_CONTAINER");
  step.tools = IntegerOf(json, "tools", where);
  step.mode = ShortOf(json, "mode", where);
  step.precision = ShortOf(json, "precision", where);
  step.parameters = PairsFromJson(json, "parameters", where);
  step.options = PairsFromJson(json, "options", where);
  return step;
}

} // namespace

std::optional<int> Cli_ContainerClassType(const std::string& className)
{
  for (const IPG_HELD_CLASS& entry : Ipg_HeldClasses())
    if (className == entry.Name)
      return entry.ClassType;
  return std::nullopt;
}

std::string Cli_ContainerClassName(int classType)
{
  for (const IPG_HELD_CLASS& entry : Ipg_HeldClasses())
    if (classType == entry.ClassType)
      return entry.Name;
  return "";
}

CliPipelineStep Cli_DescribeRun(const CliOperator& op, const CliSettings& settings, const CliRunOutcome& outcome)
{
  CliPipelineStep step;
  step.className = op.Name();
  step.mode = settings.mode;
  step.precision = settings.precision;
  step.parameters = settings.values;
  step.options = settings.options;
  if (op.Name() == kContainerClass) {
    // The container's own ClassType parameter becomes the step's class.
    step.viaContainer = true;
    step.className = TextOf(outcome.results, "heldClass").value_or("");
    std::erase_if(step.parameters, [](const auto& p) { return p.first == "ClassType" || p.first == "SetClassType"; });
  }
  step.classType = Cli_ContainerClassType(step.className);
  if (settings.tools)
    step.tools = settings.tools;
  else if (const Json* tools = Member(outcome.results, "tools"); tools != nullptr && tools->IsNumber())
    step.tools = static_cast<int>(tools->AsNumber()); // the class's default code, made explicit
  return step;
}

const CliOperator& Cli_StepOperator(const CliPipelineStep& step)
{
  const CliOperator* op = Cli_FindOperator(step.viaContainer ? kContainerClass : step.className);
  if (op == nullptr)
    throw CliUsageError("operator class '" + (step.viaContainer ? std::string(kContainerClass) : step.className) +
                        "' is not available in this ipg (ipg list shows them)");
  return *op;
}

CliSettings Cli_StepSettings(const CliPipelineStep& step)
{
  CliSettings settings;
  settings.tools = step.tools;
  settings.mode = step.mode;
  settings.precision = step.precision;
  if (step.viaContainer)
    settings.values.emplace_back("ClassType", std::to_string(*step.classType));
  settings.values.insert(settings.values.end(), step.parameters.begin(), step.parameters.end());
  settings.options = step.options;
  return settings;
}

Json Cli_PipelineToJson(const std::vector<CliPipelineStep>& steps)
{
  Json::Array list;
  for (const CliPipelineStep& step : steps)
    list.push_back(StepToJson(step));
  return Json(Json::Object{{"format", kFormat}, {"version", kVersion}, {"steps", Json(std::move(list))}});
}

std::vector<CliPipelineStep> Cli_PipelineFromJson(const Json& description)
{
  const std::optional<std::string> format = TextOf(description, "format");
  if (!format || *format != kFormat)
    throw CliUsageError(std::string("not a pipeline description (\"format\": \"") + kFormat + "\" expected)");
  if (const std::optional<int> version = IntegerOf(description, "version", "pipeline"); version && *version > kVersion)
    throw CliUsageError("pipeline version " + std::to_string(*version) + " is newer than this ipg reads");
  const Json* list = Member(description, "steps");
  if (list == nullptr || !list->IsArray() || list->AsArray().empty())
    throw CliUsageError("pipeline has no \"steps\"");
  std::vector<CliPipelineStep> steps;
  for (std::size_t i = 0; i < list->AsArray().size(); ++i)
    steps.push_back(StepFromJson(list->AsArray()[i], "step " + std::to_string(i + 1)));
  return steps;
}

std::vector<CliPipelineStep> Cli_ReadPipeline(const std::string& path)
{
  std::ifstream in(path);
  if (!in)
    throw CliFileError("cannot read pipeline " + path);
  std::stringstream text;
  text << in.rdbuf();
  Json description;
  try {
    description = Json::Parse(text.str());
  } catch (const std::runtime_error& e) {
    throw CliUsageError(path + ": " + e.what());
  }
  try {
    return Cli_PipelineFromJson(description);
  } catch (const CliUsageError& e) {
    throw CliUsageError(path + ": " + e.what());
  }
}

void Cli_WritePipeline(const std::string& path, const std::vector<CliPipelineStep>& steps)
{
  std::ofstream out(path, std::ios::trunc);
  out << Cli_PipelineToJson(steps).Dump(2) << "\n";
  if (!out)
    throw CliFileError("cannot write pipeline " + path);
}

void Cli_AppendPipelineStep(const std::string& path, const CliPipelineStep& step)
{
  std::vector<CliPipelineStep> steps;
  if (std::filesystem::exists(path))
    steps = Cli_ReadPipeline(path);
  steps.push_back(step);
  Cli_WritePipeline(path, steps);
}
