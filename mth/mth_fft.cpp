// SPDX-License-Identifier: Apache-2.0
#include "mth/mth_fft.h"

#if defined(IPG_FFT_KISSFFT)
#include <kissfft/kissfft.hh>

#include <complex>
#else
#include <fftw3.h>

#include <map>
#include <mutex>
#include <tuple>
#endif

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

static_assert(sizeof(MTH_COMPLEX) == 2 * sizeof(double) && std::is_standard_layout_v<MTH_COMPLEX>,
              "MTH_COMPLEX must be laid out as the backends' complex type: real, imaginary");

namespace {

std::size_t CountOf(int cols, int rows) { return static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows); }

bool ValidArguments(MTH_COMPLEX** buf, int cols, int rows, int dir)
{
  if (buf == nullptr || cols < 1 || rows < 1 || (dir != 1 && dir != -1))
    return false;
  for (int c = 0; c < cols; ++c)
    if (buf[c] == nullptr)
      return false;
  return true;
}

// Multiplies by the reciprocal of the count rather than dividing, as the
// inverse transform always has: the same last bits as before.
void Normalise(MTH_COMPLEX** buf, int cols, int rows)
{
  const double scale = 1.0 / static_cast<double>(CountOf(cols, rows));
  for (int c = 0; c < cols; ++c)
    for (int r = 0; r < rows; ++r) {
      buf[c][r].re *= scale;
      buf[c][r].im *= scale;
    }
}

#if defined(IPG_FFT_KISSFFT)

using Complex = std::complex<double>;

// Row-column algorithm: the 1-D transform of every column (its rows, which lie
// together), then of every row across the columns. Each line goes through a
// copy, since kissfft transforms out of place on std::complex.
bool Transform(MTH_COMPLEX** buf, int cols, int rows, int dir)
{
  // Everything that allocates comes first, so that a failure leaves buf as it was.
  const bool inverse = dir == -1;
  std::vector<Complex> line(static_cast<std::size_t>(std::max(cols, rows)));
  std::vector<Complex> spectrum(line.size());
  const kissfft<double> alongRows(static_cast<std::size_t>(rows), inverse);
  const kissfft<double> alongCols(static_cast<std::size_t>(cols), inverse);
  for (int c = 0; c < cols; ++c) {
    for (int r = 0; r < rows; ++r)
      line[r] = Complex(buf[c][r].re, buf[c][r].im);
    alongRows.transform(line.data(), spectrum.data());
    for (int r = 0; r < rows; ++r)
      buf[c][r] = MTH_COMPLEX{spectrum[r].real(), spectrum[r].imag()};
  }
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < cols; ++c)
      line[c] = Complex(buf[c][r].re, buf[c][r].im);
    alongCols.transform(line.data(), spectrum.data());
    for (int c = 0; c < cols; ++c)
      buf[c][r] = MTH_COMPLEX{spectrum[c].real(), spectrum[c].imag()};
  }
  return true;
}

#else

// One plan per shape, direction and alignment of the data, made on first use
// and kept for the life of the process. FFTW's planner (and plan destruction,
// and wisdom) is not thread-safe and runs under this mutex; a plan executes
// through the new-array calls on any array of its alignment, from any thread.
// FFTW_ESTIMATE: plans depend on the size alone, never on timings, so that a
// run gives the same pixels on every machine of the same instruction set.
// Real input (imaginary parts 0) still takes the complex transform: the
// real-to-complex one is several times faster but rounds differently, and the
// Fourier operators truncate spectra and round trips to integer pixels, so
// that a round trip's pixels would move by one here and there.
struct PlanKey {
  int Cols;
  int Rows;
  int Dir;
  int Alignment;
  auto operator<=>(const PlanKey&) const = default;
};

constexpr std::size_t kMaxCachedPlans = 32;

std::mutex& Planner()
{
  static std::mutex planner;
  return planner;
}

// Never destroyed, so that a transform during another object's static
// destruction still finds it.
std::map<PlanKey, fftw_plan>& Plans()
{
  static auto* plans = new std::map<PlanKey, fftw_plan>;
  return *plans;
}

// The cached plan for key, or a plan for this call only (owned = true) once
// the cache is full; null if FFTW cannot plan.
fftw_plan FindOrMakePlan(const PlanKey& key, fftw_complex* data, bool& owned)
{
  std::lock_guard lock(Planner());
  auto& plans = Plans();
  if (const auto found = plans.find(key); found != plans.end()) {
    owned = false;
    return found->second;
  }
  // Planned on the caller's array in place: FFTW_ESTIMATE leaves it untouched.
  fftw_plan plan = fftw_plan_dft_2d(key.Cols, key.Rows, data, data, key.Dir == 1 ? FFTW_FORWARD : FFTW_BACKWARD,
                                    FFTW_ESTIMATE);
  owned = plan != nullptr && plans.size() >= kMaxCachedPlans;
  if (plan != nullptr && !owned)
    plans.emplace(key, plan);
  return plan;
}

// Transforms cols x rows values stored column after column, in place. FFTW
// wants row-major [n0][n1] with n1 fastest: the column index is n0, the row
// index n1.
bool TransformBlock(MTH_COMPLEX* block, int cols, int rows, int dir)
{
  auto* data = reinterpret_cast<fftw_complex*>(block);
  const PlanKey key{cols, rows, dir, fftw_alignment_of(reinterpret_cast<double*>(data))};
  bool owned = false;
  fftw_plan plan = FindOrMakePlan(key, data, owned);
  if (plan == nullptr)
    return false;
  fftw_execute_dft(plan, data, data);
  if (owned) {
    std::lock_guard lock(Planner());
    fftw_destroy_plan(plan);
  }
  return true;
}

// Compared as addresses: buf[0] + c * rows may lie outside any array.
bool ColumnsInOneBlock(MTH_COMPLEX** buf, int cols, int rows)
{
  const auto first = reinterpret_cast<std::uintptr_t>(buf[0]);
  for (int c = 1; c < cols; ++c)
    if (reinterpret_cast<std::uintptr_t>(buf[c]) != first + CountOf(c, rows) * sizeof(MTH_COMPLEX))
      return false;
  return true;
}

// Columns scattered in memory: gathered into one block and back.
bool TransformThroughCopy(MTH_COMPLEX** buf, int cols, int rows, int dir)
{
  std::unique_ptr<MTH_COMPLEX[]> block(new (std::nothrow) MTH_COMPLEX[CountOf(cols, rows)]);
  if (!block)
    return false;
  for (int c = 0; c < cols; ++c)
    std::copy(buf[c], buf[c] + rows, block.get() + CountOf(c, rows));
  if (!TransformBlock(block.get(), cols, rows, dir))
    return false;
  for (int c = 0; c < cols; ++c)
    std::copy(block.get() + CountOf(c, rows), block.get() + CountOf(c + 1, rows), buf[c]);
  return true;
}

bool Transform(MTH_COMPLEX** buf, int cols, int rows, int dir)
{
  if (ColumnsInOneBlock(buf, cols, rows))
    return TransformBlock(buf[0], cols, rows, dir);
  return TransformThroughCopy(buf, cols, rows, dir);
}

#endif

} // namespace

bool Mth_FFT2D(MTH_COMPLEX** buf, int cols, int rows, int dir)
{
  if (!ValidArguments(buf, cols, rows, dir))
    return false;
  try {
    if (!Transform(buf, cols, rows, dir))
      return false;
  } catch (const std::bad_alloc&) {
    return false;
  }
  if (dir == -1)
    Normalise(buf, cols, rows);
  return true;
}

#if defined(IPG_FFT_KISSFFT)

const char* Mth_FFTBackend() { return "KissFFT"; }
bool Mth_FFTLoadWisdom(const std::string&) { return false; }
bool Mth_FFTSaveWisdom(const std::string&) { return false; }

#else

const char* Mth_FFTBackend() { return "FFTW"; }

bool Mth_FFTLoadWisdom(const std::string& path)
{
  std::lock_guard lock(Planner());
  return fftw_import_wisdom_from_filename(path.c_str()) != 0;
}

bool Mth_FFTSaveWisdom(const std::string& path)
{
  std::lock_guard lock(Planner());
  return fftw_export_wisdom_to_filename(path.c_str()) != 0;
}

#endif
