// SPDX-License-Identifier: Apache-2.0
#include "cli/cli_io.h"

#include "cli/cli_args.h"

#include "cli/operator_registry.h"
#include "dcm/dcm_io.h"
#include "ipg/framework/ipg_output_mode.h"

#include <algorithm>
#include <cerrno>
#include <unistd.h>

std::unique_ptr<DCM_STRUCT> Cli_ReadImage(const std::string& path, unsigned frame)
{
  std::string error;
  auto image = Dcm_ReadFile(path, &error, frame);
  if (image == nullptr)
    throw CliFileError("cannot read " + error);
  return image;
}

void Cli_WriteImage(const DCM_STRUCT& image, const std::string& path)
{
  std::string error;
  if (!Dcm_WriteFile(image, path, &error))
    throw CliFileError("cannot write " + error);
}

void Cli_WritePng(const DCM_STRUCT& image, const std::string& path)
{
  // Some filters leave the stored extremes stale; the preview spans the pixels.
  DCM_STRUCT measured(const_cast<DCM_STRUCT&>(image), true);
  measured.Data->SetMin();
  measured.Data->SetMax();
  std::string error;
  if (!Dcm_WritePng(measured, path, &error))
    throw CliFileError("cannot write " + error);
}

std::string Cli_DerivedPath(const std::string& path, const std::string& label)
{
  const std::size_t slash = path.find_last_of('/');
  const std::size_t dot = path.find_last_of('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
    return path + "-" + label;
  return path.substr(0, dot) + "-" + label + path.substr(dot);
}

void Cli_NormaliseRoi(DCM_STRUCT& roi)
{
  int* p = roi.Data->GetIDataAddress();
  int* end = p + roi.Data->GetSize();
  if (std::find(p, end, kIpgRoiValue) != end)
    return;
  std::transform(p, end, p, [](int v) { return v != 0 ? kIpgRoiValue : 0; });
  roi.Data->SetMin();
  roi.Data->SetMax();
}

unsigned Cli_ParseFrame(const std::string& text)
{
  const int frame = Cli_ParseValue<int>("--frame", text);
  if (frame < 0)
    throw CliUsageError("--frame must be 0 or more");
  return static_cast<unsigned>(frame);
}

CliInputImages Cli_ReadInputs(const std::string& inPath, const CliArgs& args)
{
  const unsigned frame = args.Has("frame") ? Cli_ParseFrame(*args.Value("frame")) : 0;
  CliInputImages inputs;
  inputs.in = Cli_ReadImage(inPath, frame);
  if (args.Has("second"))
    inputs.second = Cli_ReadImage(*args.Value("second"), frame);
  if (args.Has("roi")) {
    inputs.roi = Cli_ReadImage(*args.Value("roi"));
    Cli_NormaliseRoi(*inputs.roi);
  }
  return inputs;
}

bool Cli_WriteAll(int fd, const std::string& text)
{
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR)
      continue;
    if (n <= 0)
      return false;
    done += static_cast<std::size_t>(n);
  }
  return true;
}
