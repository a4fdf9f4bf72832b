// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cli/json.h"
#include "cli/operator_registry.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

// One operator run as `ipg run` was given it, kept in a pipeline file that
// `ipg replay` runs again: the class, its IPG_CONTAINER class-type code, the
// operation code, the output mode and the parameters.
struct CliPipelineStep {
  std::string className;        // the operator class, e.g. IPG_ARITHMETIC1
  std::optional<int> classType; // its IPG_CONTAINER code, when it has one
  bool viaContainer = false;    // run through IPG_CONTAINER (output mode 302)
  std::optional<int> tools;     // the operation code Apply() used
  std::optional<short> mode;
  std::optional<short> precision;
  std::vector<std::pair<std::string, std::string>> parameters; // --set Name=Value, in order
  std::vector<std::pair<std::string, std::string>> options;    // class options (--name VALUE)
};

// The IPG_CONTAINER class-type code of a class (20001 to 20014), if it has one.
std::optional<int> Cli_ContainerClassType(const std::string& className);
// The class of a class-type code; empty for 20000, 20012 and unknown codes.
std::string Cli_ContainerClassName(int classType);

// The step that `ipg run` has just run.
CliPipelineStep Cli_DescribeRun(const CliOperator& op, const CliSettings& settings, const CliRunOutcome& outcome);

// The registered class that runs a step, and the settings to run it with.
const CliOperator& Cli_StepOperator(const CliPipelineStep& step);
CliSettings Cli_StepSettings(const CliPipelineStep& step);

Json Cli_PipelineToJson(const std::vector<CliPipelineStep>& steps);
// Throws CliUsageError naming what is wrong in the description.
std::vector<CliPipelineStep> Cli_PipelineFromJson(const Json& description);

// Read and write pipeline files (CliFileError when the file cannot be read or
// written, CliUsageError when it is not a pipeline). Appending to a missing
// file creates it.
std::vector<CliPipelineStep> Cli_ReadPipeline(const std::string& path);
void Cli_WritePipeline(const std::string& path, const std::vector<CliPipelineStep>& steps);
void Cli_AppendPipelineStep(const std::string& path, const CliPipelineStep& step);
