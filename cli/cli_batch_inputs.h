// SPDX-License-Identifier: Apache-2.0
#pragma once

// The inputs of `ipg batch` and where their outputs go.

#include <string>
#include <vector>

struct CliBatchInput {
  std::string path;     // as it will be read, and named in the report
  std::string relative; // its place below the output folder
  std::string problem;  // why it cannot run (its output place is taken), else empty
};

// Expands the arguments in order, without duplicates:
//   FILE    itself; its output place is the path as written when relative and
//           below the current folder, else its file name;
//   FOLDER  every regular file below it (hidden files and folders, and the
//           output folder, left out), sorted; output place: the path inside FOLDER;
//   @LIST   every line of the text file LIST taken as FILE or FOLDER (blank
//           lines and lines starting with '#' skipped).
// A path that does not exist stays an input: reading it fails and says why.
// Two inputs with one output place: the later one gets a problem.
// Throws CliFileError when a list cannot be read.
std::vector<CliBatchInput> Cli_GatherInputs(const std::vector<std::string>& arguments, const std::string& outdir);
