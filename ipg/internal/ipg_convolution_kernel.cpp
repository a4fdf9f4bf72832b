#include "ipg/internal/ipg_convolution_kernel.h"

#include "ipg/internal/ipg_roi_mask.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace {

// The weighted sum of the unmarked neighbours over the magnitude of their
// weights, all in single precision (existing results were computed that way).
int WeightedPixel(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& taps, int col, int row)
{
  float sum = 0.0f;
  float norm = taps.Factor;
  std::size_t k = 0;
  for (int dy = -taps.HalfY; dy <= taps.HalfY; ++dy) {
    const int* line = images.In + static_cast<std::ptrdiff_t>(row + dy) * images.Cols + col;
    for (int dx = -taps.HalfX; dx <= taps.HalfX; ++dx) {
      const int p = line[dx];
      const double c = taps.Coef[k++];
      if (Ipg_IsGreyLevel(p))
        sum += p * c;
      else
        norm -= c; // a marked neighbour's weight leaves the normaliser
    }
  }
  norm = std::fabs(norm);
  if (norm < 0.001)
    norm = 1.0f; // zero-sum kernels (derivatives) are not normalised
  return Ipg_TruncateTowardZero<double>(sum / norm);
}

int ResultPixel(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& taps, int col, int row)
{
  const int v = images.In[images.At(col, row)];
  if (!images.InsideRoi(col, row) || Ipg_IsMark(v))
    return v;
  return WeightedPixel(images, taps, col, row);
}

void PlainRow(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& taps, int row)
{
  for (int col = taps.HalfX; col < images.Cols - taps.HalfX; ++col)
    images.Write(images.At(col, row), ResultPixel(images, taps, col, row));
}

// Integer coefficients and largest x sum of |coefficients| below 2^24: single
// precision then holds every partial sum exactly, so integer accumulation
// gives the same sums.
bool SumsStayExact(const Ipg_ConvolutionTaps& taps, std::int64_t largest)
{
  constexpr double kExactFloat = 16777216.0;
  double weight = 0.0;
  for (double c : taps.Coef) {
    if (c != std::trunc(c) || std::fabs(c) >= kExactFloat)
      return false;
    weight += std::fabs(c);
  }
  return static_cast<double>(largest) * weight < kExactFloat;
}

void AccumulateRow(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& taps, int row, int width, float* acc)
{
  std::fill(acc, acc + width, 0.0f);
  std::size_t k = 0;
  for (int dy = -taps.HalfY; dy <= taps.HalfY; ++dy) {
    const int* line = images.In + static_cast<std::ptrdiff_t>(row + dy) * images.Cols;
    for (int dx = -taps.HalfX; dx <= taps.HalfX; ++dx) {
      const double c = taps.Coef[k++];
      if (c == 0.0)
        continue; // adds only a zero: the truncated result cannot change
      const int* s = line + taps.HalfX + dx;
      for (int j = 0; j < width; ++j)
        acc[j] = static_cast<float>(static_cast<double>(acc[j]) + static_cast<double>(s[j]) * c);
    }
  }
}

void AccumulateRowExact(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& taps, int row, int width, int* acc)
{
  std::fill(acc, acc + width, 0);
  std::size_t k = 0;
  for (int dy = -taps.HalfY; dy <= taps.HalfY; ++dy) {
    const int* line = images.In + static_cast<std::ptrdiff_t>(row + dy) * images.Cols;
    for (int dx = -taps.HalfX; dx <= taps.HalfX; ++dx) {
      const int c = static_cast<int>(taps.Coef[k++]);
      const int* s = line + taps.HalfX + dx;
      if (c == 1) {
        for (int j = 0; j < width; ++j)
          acc[j] += s[j];
      } else if (c != 0) {
        for (int j = 0; j < width; ++j)
          acc[j] += s[j] * c;
      }
    }
  }
}

} // namespace

Ipg_RowSpan Ipg_ConvolutionRows(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& taps)
{
  return {taps.HalfY, images.Rows - taps.HalfY};
}

void Ipg_ConvolvePlain(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& taps, Ipg_RowSpan span)
{
  for (int row = std::max(span.Begin, taps.HalfY); row < std::min(span.End, images.Rows - taps.HalfY); ++row)
    PlainRow(images, taps, row);
}

// Rows near a mark take the plain path; the others do the very operations of
// WeightedPixel() in the same order for each pixel, so the pixels are identical.
void Ipg_ConvolveFast(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& taps, Ipg_RowSpan span)
{
  const int cols = images.Cols, rows = images.Rows, hx = taps.HalfX, hy = taps.HalfY;
  const int width = cols - 2 * hx;
  if (width <= 0 || rows - 2 * hy <= 0)
    return;
  std::vector<int> markedRowsBefore(static_cast<std::size_t>(rows) + 1, 0);
  std::int64_t largest = 0; // of the unmarked magnitudes
  for (int r = 0; r < rows; ++r) {
    const int* line = images.In + static_cast<std::size_t>(r) * cols;
    bool marked = false;
    for (int c = 0; c < cols; ++c) {
      marked = marked || Ipg_IsMark(line[c]);
      if (!Ipg_IsMark(line[c]))
        largest = std::max<std::int64_t>(largest, std::llabs(static_cast<long long>(line[c])));
    }
    markedRowsBefore[r + 1] = markedRowsBefore[r] + (marked ? 1 : 0);
  }
  const bool exact = SumsStayExact(taps, largest);
  float cleanNorm = taps.Factor;
  cleanNorm = std::fabs(cleanNorm);
  if (cleanNorm < 0.001)
    cleanNorm = 1.0f;

  std::vector<float> acc(static_cast<std::size_t>(width));
  std::vector<int> intAcc(static_cast<std::size_t>(width));
  for (int row = std::max(span.Begin, hy); row < std::min(span.End, rows - hy); ++row) {
    if (markedRowsBefore[row + hy + 1] != markedRowsBefore[row - hy]) {
      PlainRow(images, taps, row);
      continue;
    }
    if (exact) {
      AccumulateRowExact(images, taps, row, width, intAcc.data());
      for (int j = 0; j < width; ++j)
        acc[j] = static_cast<float>(intAcc[j]);
    } else {
      AccumulateRow(images, taps, row, width, acc.data());
    }
    const std::size_t start = images.At(hx, row);
    int* out = images.Out + start;
    const int* centre = images.In + start;
    if (images.Roi.Pixels == nullptr) {
      for (int j = 0; j < width; ++j)
        out[j] = Ipg_TruncateTowardZero<double>(acc[j] / cleanNorm);
    } else {
      for (int j = 0; j < width; ++j)
        out[j] = images.InsideRoi(hx + j, row) ? Ipg_TruncateTowardZero<double>(acc[j] / cleanNorm) : centre[j];
    }
  }
}
