// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_speckle_frame.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_kernel_images.h"
#include "ipg/internal/ipg_large_block.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_output_mode.h"
#include "ipg/internal/ipg_pixel_conversion.h"
#include "ipg/internal/ipg_point_kernel.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/internal/ipg_row_bands.h"
#include "ipg/internal/ipg_simd.h"
#include "ipg/ui/ipg_message.h"
#include "ipg/ui/ipg_progress.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <new>
#include <vector>

namespace {

std::size_t At(int col, int row, int cols)
{
  return static_cast<std::size_t>(row) * static_cast<std::size_t>(cols) + static_cast<std::size_t>(col);
}

// Marks are not grey levels: in the working copy each takes the value of the
// nearest grey level of its row (0 in a row without one), so that the windows
// around it are not thrown off; the output gets the mark back. Rows [begin,
// end); left: room for cols columns.
void FillMarks(double* values, int cols, int begin, int end, std::vector<int>& left)
{
  for (int r = begin; r < end; ++r) {
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

// One output row without a ROI: the input's marks come back, every other
// pixel gets its working value rounded; widens seen to what it wrote.
// Inlined into a plain and an AVX2 copy.
[[gnu::always_inline]] inline void WriteRowBody(const int* original, const double* values, int* target, int n,
                                                IPG_BAND_EXTREMES& seen)
{
  // Rounded first, then chosen and measured: two simple walks, each of one
  // width, which the vectoriser takes.
  for (int c = 0; c < n; ++c)
    target[c] = Ipg_RoundToNearest(values[c]);
  int mn = seen.Min, mx = seen.Max;
  for (int c = 0; c < n; ++c) {
    const int v = Ipg_IsMark(original[c]) ? original[c] : target[c];
    target[c] = v;
    mn = v < mn ? v : mn;
    mx = v > mx ? v : mx;
  }
  seen.Min = mn;
  seen.Max = mx;
}

void WriteRowPlain(const int* original, const double* values, int* target, int n, IPG_BAND_EXTREMES& seen)
{
  WriteRowBody(original, values, target, n, seen);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void WriteRowAvx2(const int* original, const double* values, int* target, int n,
                                          IPG_BAND_EXTREMES& seen)
{
  WriteRowBody(original, values, target, n, seen);
}
#endif

// The filtered image into the output, where the two overlap: pixels outside
// the ROI and marks keep the input's value. Then the output's extremes. Rows
// go in parallel bands: each row depends on its own values only.
void WriteOutput(const Ipg_SpeckleJob& job, const int* source, const double* current, int cols, int rows)
{
  DCM_DATA& out = *job.Out->Data;
  const int outCols = static_cast<int>(out.GetNbOfCols());
  const int outRows = static_cast<int>(out.GetNbOfRows());
  const int usedCols = std::min(cols, outCols), usedRows = std::min(rows, outRows);
  int* target = out.GetIDataAddress();
  const bool avx2 = Ipg_UseAvx2();
  const IPG_ROW_BANDS bands = Ipg_SplitRows(static_cast<unsigned>(usedRows), static_cast<std::size_t>(usedCols));
  std::vector<IPG_BAND_EXTREMES> seenByBand(bands.Count);
  Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
    IPG_BAND_EXTREMES& seen = seenByBand[band];
    for (int r = static_cast<int>(begin); r < static_cast<int>(end); ++r) {
      const int* original = source + At(0, r, cols);
      const double* values = current + At(0, r, cols);
      int* line = target + At(0, r, outCols);
      if (job.Roi == nullptr) {
#if defined(__x86_64__)
        if (avx2) {
          WriteRowAvx2(original, values, line, usedCols, seen);
          continue;
        }
#endif
        WriteRowPlain(original, values, line, usedCols, seen);
        continue;
      }
      for (int c = 0; c < usedCols; ++c) {
        const bool outside = !Ipg_InsideRoi(job.Roi, static_cast<unsigned>(c), static_cast<unsigned>(r));
        line[c] = (outside || Ipg_IsMark(original[c])) ? original[c] : Ipg_RoundToNearest(values[c]);
      }
    }
  });
  IPG_BAND_EXTREMES seen;
  for (const IPG_BAND_EXTREMES& band : seenByBand)
    Ipg_MergeExtremes(seen, band);
  // Every pixel written without a ROI: its extremes are the output's.
  if (job.Roi == nullptr && usedCols == outCols && usedRows == outRows && out.GetSize() > 0) {
    out.SetMin(seen.Min);
    out.SetMax(seen.Max);
    return;
  }
  Ipg_MeasureExtremes(out);
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
  // Left uninitialised: a pass reads only the rows of the current image.
  IPG_LARGE_BLOCK block((size + spare * width) * sizeof(double));
  if (block.Empty())
    throw std::bad_alloc();
  double* const work = block.As<double>();
  std::size_t above = spare; // rows above the current image
  double* current = work + above * width;
  // By bands of rows, so that threads share the copy, the marks and the first
  // touch of the working image's pages.
  {
    const IPG_ROW_BANDS bands = Ipg_SplitRows(static_cast<unsigned>(rows), width);
    std::vector<std::vector<int>> left(bands.Count, std::vector<int>(width));
    Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
      std::copy(source + begin * width, source + end * width, current + begin * width);
      FillMarks(current, cols, static_cast<int>(begin), static_cast<int>(end), left[band]);
    });
  }

  {
    Ipg_Progress progress(job.Label, job.Iterations);
    for (int iteration = 1; iteration <= job.Iterations; ++iteration) {
      if (above < gap) {
        std::memmove(work + spare * width, current, size * sizeof(double));
        above = spare;
      }
      current = work + above * width;
      pass(current, current - gap * width, cols, rows, context);
      if (Ipg_StopRequested())
        return false; // the output is left as it was
      above -= gap;
      current -= gap * width;
      progress.Step(std::to_string(iteration));
    }
  }

  // The output may differ from the input in one dimension: write the overlap.
  WriteOutput(job, source, current, cols, rows);
  return true;
}
