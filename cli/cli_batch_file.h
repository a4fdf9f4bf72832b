// SPDX-License-Identifier: Apache-2.0
#pragma once

// One input file through a saved pipeline: the unit of work of `ipg batch`,
// callable on its own (language bindings run it from their own workers).
//
//   auto steps = Cli_ReadPipeline("p.json");
//   CliFileRecord record = Cli_RunPipelineOnFile(steps, "in/a.dcm", "out");
//   if (!record.Succeeded()) ...             // record.error says why
//   Cli_RecordToJson(record).Dump(-1);       // one line of the batch report
//
// Reading goes through Dcm_ReadFile: hosts that read untrusted files turn on
// Dcm_SetIsolatedDecoding(true) first, as the `ipg` program does. Operator
// messages are collected into the record through the process-wide message
// handler, so run files side by side in processes (as `ipg batch` does), not
// in threads of one process.

#include "cli/cli_pipeline.h"
#include "cli/cli_preview.h"
#include "cli/json.h"

#include <string>
#include <vector>

struct CliFileOptions {
  std::string second; // second input image of every step, when not empty
  std::string roi;    // ROI mask of every step, when not empty
  unsigned frame = 0; // frame of multi-frame inputs
  bool png = false;   // also write a preview of the output image
  CliPreviewOptions preview;
};

// What happened to one input.
struct CliFileRecord {
  std::string input;
  std::vector<std::string> outputs;     // the files written, complete (renamed into place)
  Json results = Json(Json::Array{});   // one object per step that ran, as `ipg replay --json` gives them
  std::vector<std::string> messages;    // the operators' messages, in order
  std::string error;                    // empty when every step succeeded and every file was written
  double seconds = 0.0;                 // wall-clock time of the whole file

  bool Succeeded() const { return error.empty(); }
};

// Runs the steps on input as `ipg replay` does (each step on the image of the
// one before) and writes the last image as outdir/<input's file name> (created
// as needed), plus a PNG preview beside it (".dcm" replaced by ".png", else
// ".png" appended) when options.png. Every file is written under a ".partial"
// name first and renamed, so that an interrupted run never leaves a half file
// under the final name. Never throws for a bad input, a failed step or an
// unwritable output: the record's error says what went wrong. Throws
// CliInterruptedError after Ctrl-C in the `ipg` program.
CliFileRecord Cli_RunPipelineOnFile(const std::vector<CliPipelineStep>& pipeline, const std::string& input,
                                    const std::string& outdir, const CliFileOptions& options = {});

// Where Cli_RunPipelineOnFile puts the image and preview of input.
std::string Cli_BatchOutputPath(const std::string& input, const std::string& outdir);
std::string Cli_BatchPreviewPath(const std::string& outputPath);

// A record as one JSON object: {"input", "outputs", "results", "messages",
// "error" (null on success), "seconds"}, and back (CliUsageError when the
// object is not a record).
Json Cli_RecordToJson(const CliFileRecord& record);
CliFileRecord Cli_RecordFromJson(const Json& json);
