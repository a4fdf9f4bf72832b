// SPDX-License-Identifier: Apache-2.0
// ipg replay: runs a saved pipeline (ipg run --save-pipeline) on an image.
#include "cli/cli_args.h"
#include "cli/cli_command.h"
#include "cli/cli_interrupt.h"
#include "cli/cli_io.h"
#include "cli/cli_pipeline.h"

#include <iostream>

namespace {

CliInputImages ReadInputs(const CliArgs& args)
{
  if (args.Positional().size() != 2)
    throw CliUsageError("replay needs a pipeline FILE.json and an input file IN (ipg replay --help)");
  return Cli_ReadInputs(args.Positional()[1], args);
}

void WriteImage(const DCM_STRUCT& image, const CliArgs& args, Json& written)
{
  if (args.Has("output")) {
    Cli_WriteImage(image, *args.Value("output"));
    written.Set("out", *args.Value("output"));
  }
  if (args.Has("png")) {
    Cli_WritePng(image, *args.Value("png"));
    written.Set("out.png", *args.Value("png"));
  }
}

void PrintText(const Json& steps)
{
  for (std::size_t i = 0; i < steps.AsArray().size(); ++i) {
    std::cout << "step " << i + 1 << "\n";
    for (const auto& [name, value] : steps.AsArray()[i].AsObject()) {
      std::cout << "  " << name << ": ";
      value.WriteText(std::cout);
      std::cout << "\n";
    }
  }
}

// Each step runs on the main output image of the step before it (the input
// image for the first, and after a step that writes no image).
int Replay(const std::vector<std::string>& args)
{
  CliArgs parsed;
  parsed.Option("second", true).Option("roi", true).Option("frame", true);
  parsed.Option("output", true, {"-o"}).Option("png", true).Option("json", false);
  parsed.Parse(args);
  if (parsed.Positional().empty())
    throw CliUsageError("replay needs a pipeline FILE.json and an input file IN (ipg replay --help)");
  const std::vector<CliPipelineStep> steps = Cli_ReadPipeline(parsed.Positional()[0]);
  CliInputImages inputs = ReadInputs(parsed);

  std::unique_ptr<DCM_STRUCT> current;
  Json results(Json::Array{});
  bool applied = true;
  for (const CliPipelineStep& step : steps) {
    const CliOperator& op = Cli_StepOperator(step);
    DCM_STRUCT* in = current ? current.get() : inputs.in.get();
    CliRunOutcome outcome = op.Run({in, inputs.second.get(), inputs.roi.get()}, Cli_StepSettings(step));
    Cli_StopIfInterrupted(); // before the next step and before anything is written
    results.AsArray().push_back(outcome.results);
    if (!outcome.applied) {
      std::cerr << "ipg: step " << results.AsArray().size() << " (" << step.className
                << ") failed; the pipeline stops there\n";
      applied = false;
      break;
    }
    if (!outcome.images.empty())
      current = std::move(outcome.images.front().second);
  }

  Json summary(Json::Object{{"steps", results}});
  if (applied && (parsed.Has("output") || parsed.Has("png"))) {
    if (!current)
      throw CliUsageError("no step of the pipeline writes an image: -o and --png do not apply");
    Json written(Json::Object{});
    WriteImage(*current, parsed, written);
    summary.Set("outputs", written);
  }
  if (parsed.Has("json")) {
    summary.Write(std::cout, 2);
    std::cout << "\n";
  } else {
    PrintText(results);
  }
  return applied ? kCliOk : kCliFailed;
}

const bool registered = Cli_RegisterCommand({
    "replay",
    "run a saved operator pipeline (ipg run --save-pipeline) on a DICOM file",
    "usage: ipg replay PIPELINE.json IN [--second FILE] [--roi FILE] [--frame F]\n"
    "                  [-o OUT.dcm] [--png OUT.png] [--json]\n"
    "\n"
    "Runs again the steps that `ipg run ... --save-pipeline FILE` (or\n"
    "--append-pipeline) recorded: for each step its operator class, class-type\n"
    "code, operation code, output mode, precision and parameters, through\n"
    "IPG_CONTAINER when the step was run through it. The first step reads IN;\n"
    "each later step reads the output image of the step before (a step without\n"
    "an output image, such as a statistic, passes its input on). --second and\n"
    "--roi are given to every step. The last image is written with -o / --png.\n"
    "\n"
    "A pipeline file is JSON:\n"
    "  {\"format\": \"ipg-pipeline\", \"version\": 1, \"steps\": [\n"
    "    {\"class\": \"IPG_ARITHMETIC1\", \"classType\": 20005, \"container\": false,\n"
    "     \"tools\": 201, \"mode\": 302, \"parameters\": [{\"name\": \"Variable\", \"value\": \"2\"}]}]}\n"
    "\"mode\", \"precision\" and \"options\" (class options such as --save) may be\n"
    "left out; a step may give only \"classType\" instead of \"class\".\n"
    "\n"
    "  --json           print every step's results as JSON\n"
    "\n"
    "Exit status: 0 every step succeeded, 1 a step failed (the pipeline stops\n"
    "there) or a file could not be read or written, 2 bad usage or a bad pipeline.\n",
    Replay,
});

} // namespace
