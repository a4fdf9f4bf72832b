// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "dcm/dcm_struct.h"

#include <memory>
#include <stdexcept>
#include <string>

class CliArgs;

// A file that cannot be read or written (exit status 1); the text says why.
class CliFileError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

std::unique_ptr<DCM_STRUCT> Cli_ReadImage(const std::string& path, unsigned frame = 0);
void Cli_WriteImage(const DCM_STRUCT& image, const std::string& path);
// An 8-bit preview whose window spans the image's pixel extremes.
void Cli_WritePng(const DCM_STRUCT& image, const std::string& path);
// Writes all of text to the descriptor fd, however the system splits it; false on an error.
bool Cli_WriteAll(int fd, const std::string& text);

// "out.dcm" with label "mask" gives "out-mask.dcm": where an extra output goes.
std::string Cli_DerivedPath(const std::string& path, const std::string& label);

// A ROI mask from a file: kept as it is when it already marks pixels with the
// ROI value 16777217, else every non-zero pixel becomes 16777217.
void Cli_NormaliseRoi(DCM_STRUCT& roi);

// Parses a frame number for --frame.
unsigned Cli_ParseFrame(const std::string& text);

// The images of a run (`ipg run` and `ipg replay`): IN and --second at --frame,
// --roi (its first frame) made a ROI mask.
struct CliInputImages {
  std::unique_ptr<DCM_STRUCT> in, second, roi;
};
CliInputImages Cli_ReadInputs(const std::string& inPath, const CliArgs& args);
