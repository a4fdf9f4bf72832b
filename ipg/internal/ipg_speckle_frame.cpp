// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_speckle_frame.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_kernel_images.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_pixel_conversion.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/ui/ipg_message.h"
#include "ipg/ui/ipg_progress.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <vector>

namespace {

std::size_t At(int col, int row, int cols)
{
  return static_cast<std::size_t>(row) * static_cast<std::size_t>(cols) + static_cast<std::size_t>(col);
}

// Marks are not grey levels: in the working copy each takes the value of the
// nearest grey level of its row (0 in a row without one), so that the windows
// around it are not thrown off; the output gets the mark back.
void FillMarks(double* values, int cols, int rows)
{
  std::vector<int> left(static_cast<std::size_t>(cols));
  for (int r = 0; r < rows; ++r) {
    double* line = values + At(0, r, cols);
    int nearest = -1; // the last grey level seen, scanning right
    for (int c = 0; c < cols; ++c) {
      if (Ipg_IsGreyLevel(line[c]))
        nearest = c;
      left[static_cast<std::size_t>(c)] = nearest;
    }
    if (nearest < 0) {
      std::fill(line, line + cols, 0.0);
      continue;
    }
    int right = -1; // the next grey level, scanning left
    for (int c = cols - 1; c >= 0; --c) {
      if (Ipg_IsGreyLevel(line[c])) {
        right = c;
        continue;
      }
      const int l = left[static_cast<std::size_t>(c)];
      const bool useLeft = right < 0 || (l >= 0 && c - l <= right - c);
      line[c] = line[useLeft ? l : right];
    }
  }
}

} // namespace

std::string Ipg_SpeckleMsgIterations(const std::string& method)
{
  return Ipg_MsgIterations("IPG_FILTER_PROCESSING::" + method + "()");
}

std::string Ipg_SpeckleMsgWindow(const std::string& method)
{
  return Ipg_MsgWindowSize("IPG_FILTER_PROCESSING::" + method + "()");
}

std::string Ipg_SpeckleMsgParameter(const std::string& method)
{
  return Ipg_MsgFilterParameter("IPG_FILTER_PROCESSING::" + method + "()");
}

bool Ipg_SpeckleJobValid(const Ipg_SpeckleJob& job)
{
  if (job.Out == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return false;
  }
  if (job.In == nullptr) {
    Ipg_Inform(kIpgMsgInputNotAllocated);
    return false;
  }
  if (job.Iterations <= 0) {
    Ipg_Inform(Ipg_SpeckleMsgIterations(job.Method));
    return false;
  }
  if (!Ipg_FilterPassesInRange(job.Iterations))
    return false;
  const int side = static_cast<int>(std::min(job.In->GetNbOfCols(), job.In->GetNbOfRows()));
  if (side < job.MinSide || side == 0) {
    Ipg_Inform(Ipg_SpeckleMsgWindow(job.Method));
    return false;
  }
  return true;
}

bool Ipg_RunSpeckleLoop(const Ipg_SpeckleJob& job, Ipg_SpecklePass pass, const void* context)
{
  if (!Ipg_SpeckleJobValid(job))
    return false;
  const int cols = static_cast<int>(job.In->GetNbOfCols());
  const int rows = static_cast<int>(job.In->GetNbOfRows());
  const int* source = job.In->Data->GetIDataAddress();
  // One working image: each pass writes its rows from gap rows above its
  // input, over the input rows it no longer reads, so the image climbs by gap
  // rows a pass. Spare rows above it let it climb a few passes before it
  // moves back down.
  const std::size_t width = static_cast<std::size_t>(cols);
  const std::size_t size = width * static_cast<std::size_t>(rows);
  const std::size_t gap = job.Reach < 0 ? static_cast<std::size_t>(rows)
                                        : std::min<std::size_t>(static_cast<std::size_t>(job.Reach) + 1, rows);
  const std::size_t spare = gap * std::clamp<std::size_t>(static_cast<std::size_t>(rows) / (16 * gap), 1, 64);
  std::vector<double> work(size + spare * width);
  std::size_t above = spare; // rows above the current image
  double* current = work.data() + above * width;
  std::copy(source, source + size, current);
  FillMarks(current, cols, rows);

  {
    Ipg_Progress progress(job.Label, job.Iterations);
    for (int iteration = 1; iteration <= job.Iterations; ++iteration) {
      if (above < gap) {
        std::memmove(work.data() + spare * width, current, size * sizeof(double));
        above = spare;
      }
      current = work.data() + above * width;
      pass(current, current - gap * width, cols, rows, context);
      if (Ipg_StopRequested())
        return false; // the output is left as it was
      above -= gap;
      current -= gap * width;
      progress.Step(std::to_string(iteration));
    }
  }

  // The output may differ from the input in one dimension: write the overlap.
  const int outCols = static_cast<int>(job.Out->GetNbOfCols());
  const int outRows = static_cast<int>(job.Out->GetNbOfRows());
  int* target = job.Out->Data->GetIDataAddress();
  for (int r = 0; r < std::min(rows, outRows); ++r)
    for (int c = 0; c < std::min(cols, outCols); ++c) {
      const int original = source[At(c, r, cols)];
      const bool outside = !Ipg_InsideRoi(job.Roi, static_cast<unsigned>(c), static_cast<unsigned>(r));
      target[At(c, r, outCols)] = (outside || Ipg_IsMark(original)) ? original : Ipg_RoundToNearest(current[At(c, r, cols)]);
    }
  job.Out->Data->SetMin();
  job.Out->Data->SetMax();
  return true;
}
