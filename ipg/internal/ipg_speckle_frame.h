// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

class DCM_STRUCT;

// The frame shared by the despeckling filters of IPG_FILTER_PROCESSING: checks
// the images and the iteration count (showing the method's message and
// returning false), copies the input into a working image, opens the progress
// seam with label and maximum iterations, runs pass(in, out) once per
// iteration with one progress step each (the 1-based iteration as status;
// with a Reach, out starts Reach + 1 rows before in, in the same image: the
// pass runs in place as Ipg_RunPassBands describes),
// then writes the result into the output's pixel array (rounded to the
// nearest integer), copying the input where the ROI (when set) is not
// 16777217 and where the input holds a mark (above 16777216), and recomputes
// the output's extremes. More than kIpgMaxPasses iterations are refused; a
// cancellation between passes stops with its message, the output untouched.
// minSide is the smallest image side the filter needs
// (its window); a smaller image is refused with the window message.
struct Ipg_SpeckleJob {
  DCM_STRUCT* In = nullptr;
  DCM_STRUCT* Out = nullptr;
  DCM_STRUCT* Roi = nullptr;
  int Iterations = 1;
  std::string Label;  // progress label
  std::string Method; // "SBF": names the method in the messages
  int MinSide = 1;
  // The rows a pass reads above and below the row it writes: the pass then
  // runs in place, on one working image. Below 0, each pass writes an image
  // of its own.
  int Reach = -1;
};

using Ipg_SpecklePass = void (*)(const double* in, double* out, int cols, int rows, const void* context);

// Validation alone: false, with the method's message, when the job cannot run.
bool Ipg_SpeckleJobValid(const Ipg_SpeckleJob& job);
// Validation, then the passes; false when validation failed.
template <typename Pass>
bool Ipg_RunSpeckleJob(const Ipg_SpeckleJob& job, Pass pass);

// Messages of the family, for a method name such as "SBF".
std::string Ipg_SpeckleMsgIterations(const std::string& method);
std::string Ipg_SpeckleMsgWindow(const std::string& method);
std::string Ipg_SpeckleMsgParameter(const std::string& method);

// The loop behind Ipg_RunSpeckleJob.
bool Ipg_RunSpeckleLoop(const Ipg_SpeckleJob& job, Ipg_SpecklePass pass, const void* context);

template <typename Pass>
bool Ipg_RunSpeckleJob(const Ipg_SpeckleJob& job, Pass pass)
{
  return Ipg_RunSpeckleLoop(
      job,
      [](const double* in, double* out, int cols, int rows, const void* context) {
        (*static_cast<const Pass*>(context))(in, out, cols, rows);
      },
      &pass);
}
