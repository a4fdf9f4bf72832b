#include "mth/mth_fft.h"

#include <fftw3.h>

#include <cstddef>

bool Mth_FFT2D(MTH_COMPLEX** buf, int cols, int rows, int dir)
{
  if (buf == nullptr || cols < 1 || rows < 1 || (dir != 1 && dir != -1))
    return false;
  for (int c = 0; c < cols; ++c)
    if (buf[c] == nullptr)
      return false;

  const std::size_t n = static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows);
  fftw_complex* work = fftw_alloc_complex(n);
  if (work == nullptr)
    return false;
  // FFTW wants row-major [n0][n1] with n1 fastest; buf is [column][row], so the
  // column index is n0 and the row index n1.
  for (int c = 0; c < cols; ++c)
    for (int r = 0; r < rows; ++r) {
      work[static_cast<std::size_t>(c) * rows + r][0] = buf[c][r].re;
      work[static_cast<std::size_t>(c) * rows + r][1] = buf[c][r].im;
    }
  fftw_plan plan = fftw_plan_dft_2d(cols, rows, work, work, dir == 1 ? FFTW_FORWARD : FFTW_BACKWARD,
                                    FFTW_ESTIMATE);
  fftw_execute(plan);
  fftw_destroy_plan(plan);

  const double scale = dir == 1 ? 1.0 : 1.0 / static_cast<double>(n);
  for (int c = 0; c < cols; ++c)
    for (int r = 0; r < rows; ++r) {
      buf[c][r].re = work[static_cast<std::size_t>(c) * rows + r][0] * scale;
      buf[c][r].im = work[static_cast<std::size_t>(c) * rows + r][1] * scale;
    }
  fftw_free(work);
  return true;
}
