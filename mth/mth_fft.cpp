// SPDX-License-Identifier: Apache-2.0
#include "mth/mth_fft.h"

#if defined(IPG_FFT_KISSFFT)
#include <kissfft/kissfft.hh>

#include <complex>
#else
#include <fftw3.h>

#include <array>
#include <cctype>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <tuple>
#include <utility>
#endif

#ifdef _OPENMP
#include <omp.h>
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
// copy, since kissfft transforms out of place on std::complex. Lines are
// independent, so they go to threads without changing any value; each thread
// has its own transforms, whose scratch space kissfft keeps inside them.
struct KISS_LINES {
  KISS_LINES(int cols, int rows, bool inverse)
      : Line(static_cast<std::size_t>(std::max(cols, rows))), Spectrum(Line.size()),
        AlongRows(static_cast<std::size_t>(rows), inverse), AlongCols(static_cast<std::size_t>(cols), inverse)
  {
  }
  std::vector<Complex> Line;
  std::vector<Complex> Spectrum;
  kissfft<double> AlongRows;
  kissfft<double> AlongCols;
};

bool Transform(MTH_COMPLEX** buf, int cols, int rows, int dir, int threads)
{
  // Everything that allocates comes first, so that a failure leaves buf as it was.
  std::vector<KISS_LINES> perThread;
  perThread.reserve(static_cast<std::size_t>(threads));
  for (int t = 0; t < threads; ++t)
    perThread.emplace_back(cols, rows, dir == -1);
#pragma omp parallel num_threads(threads)
  {
#ifdef _OPENMP
    KISS_LINES& own = perThread[static_cast<std::size_t>(omp_get_thread_num())];
#else
    KISS_LINES& own = perThread[0];
#endif
    Complex* line = own.Line.data();
    Complex* spectrum = own.Spectrum.data();
#pragma omp for schedule(static)
    for (int c = 0; c < cols; ++c) {
      for (int r = 0; r < rows; ++r)
        line[r] = Complex(buf[c][r].re, buf[c][r].im);
      own.AlongRows.transform(line, spectrum);
      for (int r = 0; r < rows; ++r)
        buf[c][r] = MTH_COMPLEX{spectrum[r].real(), spectrum[r].imag()};
    }
#pragma omp for schedule(static)
    for (int r = 0; r < rows; ++r) {
      for (int c = 0; c < cols; ++c)
        line[c] = Complex(buf[c][r].re, buf[c][r].im);
      own.AlongCols.transform(line, spectrum);
      for (int c = 0; c < cols; ++c)
        buf[c][r] = MTH_COMPLEX{spectrum[c].real(), spectrum[c].imag()};
    }
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

// A pass of the 2-D transform: the same 1-D transform of Lines lines of
// Length values, Stride apart, each line Distance after the one before.
// Line k runs through ByPhase[k % kPhases], planned on a line of the same
// alignment (FFTW runs a plan only on arrays aligned as the one it was made on).
constexpr int kPhases = 4; // lines are 16-byte multiples apart; FFTW asks for at most 64
struct LINE_PASS {
  int Lines = 0;
  int Length = 0;
  int Stride = 1;
  int Distance = 0;
  std::array<fftw_plan, kPhases> ByPhase{};
};

// FFTW's plan for the whole transform, and when it is a loop of 1-D
// transforms over the first index and then one over the second, those two
// loops as passes whose lines can go to several threads.
struct PLAN {
  fftw_plan Whole = nullptr;
  bool Split = false;
  std::array<LINE_PASS, 2> Passes;
};

constexpr std::size_t kMaxCachedPlans = 32;

std::mutex& Planner()
{
  static std::mutex planner;
  return planner;
}

// Never destroyed, so that a transform during another object's static
// destruction still finds it.
std::map<PlanKey, PLAN>& Plans()
{
  static auto* plans = new std::map<PlanKey, PLAN>;
  return *plans;
}

// A plan as FFTW prints it, "(solver ... (child) ...)", with every run of
// white space made one space (the print indents children by depth).
std::string Printed(fftw_plan plan)
{
  char* text = fftw_sprint_plan(plan);
  std::string printed;
  if (text == nullptr)
    return printed;
  for (const char* c = text; *c != '\0'; ++c) {
    const bool space = std::isspace(static_cast<unsigned char>(*c)) != 0;
    if (!space)
      printed += *c;
    else if (!printed.empty() && printed.back() != ' ')
      printed += ' ';
  }
  std::free(text);
  while (!printed.empty() && printed.back() == ' ')
    printed.pop_back();
  return printed;
}

// The solver's name of a printed node and its parenthesised children.
struct PRINTED_NODE {
  std::string Solver;
  std::vector<std::string> Children;
};

PRINTED_NODE ParseNode(const std::string& node)
{
  PRINTED_NODE parsed;
  if (node.size() < 2 || node.front() != '(' || node.back() != ')')
    return parsed;
  const std::size_t nameEnd = node.find_first_of(" ()", 1);
  parsed.Solver = node.substr(1, nameEnd - 1);
  int depth = 0;
  std::size_t childStart = 0;
  for (std::size_t i = nameEnd; i + 1 < node.size(); ++i) {
    if (node[i] == '(' && depth++ == 0)
      childStart = i;
    else if (node[i] == ')' && --depth == 0)
      parsed.Children.push_back(node.substr(childStart, i - childStart + 1));
  }
  return parsed;
}

// The single child of a printed "loop of count transforms" node, or "".
std::string LoopBody(const std::string& node, int count)
{
  const PRINTED_NODE loop = ParseNode(node);
  if (loop.Solver != "dft-vrank>=1-x" + std::to_string(count) + "/1" || loop.Children.size() != 1)
    return {};
  return loop.Children[0];
}

void DestroyLines(LINE_PASS& pass)
{
  for (fftw_plan& plan : pass.ByPhase)
    if (plan != nullptr)
      fftw_destroy_plan(std::exchange(plan, nullptr));
}

// One-line plans for pass on data, each printed as body: the very transform
// the whole plan's loop runs on every line. False (and none kept) otherwise.
bool PlanLines(LINE_PASS& pass, fftw_complex* data, int sign, const std::string& body)
{
  for (int phase = 0; phase < kPhases && phase < pass.Lines; ++phase) {
    fftw_complex* line = data + static_cast<std::size_t>(phase) * static_cast<std::size_t>(pass.Distance);
    fftw_plan plan = fftw_plan_many_dft(1, &pass.Length, 1, line, nullptr, pass.Stride, pass.Distance, line, nullptr,
                                        pass.Stride, pass.Distance, sign, FFTW_ESTIMATE);
    pass.ByPhase[static_cast<std::size_t>(phase)] = plan;
    if (plan == nullptr || Printed(plan) != body) {
      DestroyLines(pass);
      return false;
    }
  }
  return true;
}

// For a whole plan printed as "(dft-rank>=2/1 (loop over the columns of the
// transform along their rows) (loop over the rows of the transform across
// the columns))", its two passes. Lines run through plans of the same
// printed structure, one pass after the other, compute what the whole plan
// computes bit for bit, in any order and on any number of threads.
void PlanPasses(PLAN& plan, const PlanKey& key, fftw_complex* data)
{
  const PRINTED_NODE whole = ParseNode(Printed(plan.Whole));
  if (whole.Solver != "dft-rank>=2/1" || whole.Children.size() != 2)
    return;
  const std::string alongRows = LoopBody(whole.Children[0], key.Cols);
  const std::string acrossCols = LoopBody(whole.Children[1], key.Rows);
  if (alongRows.empty() || acrossCols.empty())
    return;
  const int sign = key.Dir == 1 ? FFTW_FORWARD : FFTW_BACKWARD;
  plan.Passes[0] = LINE_PASS{key.Cols, key.Rows, 1, key.Rows, {}};
  plan.Passes[1] = LINE_PASS{key.Rows, key.Cols, key.Rows, 1, {}};
  if (!PlanLines(plan.Passes[0], data, sign, alongRows))
    return;
  if (!PlanLines(plan.Passes[1], data, sign, acrossCols)) {
    DestroyLines(plan.Passes[0]);
    return;
  }
  plan.Split = true;
}

void DestroyPlan(PLAN& plan)
{
  fftw_destroy_plan(plan.Whole);
  DestroyLines(plan.Passes[0]);
  DestroyLines(plan.Passes[1]);
}

// The cached plan for key, or a plan for this call only (owned = true) once
// the cache is full; a null Whole if FFTW cannot plan.
PLAN FindOrMakePlan(const PlanKey& key, fftw_complex* data, bool& owned)
{
  std::lock_guard lock(Planner());
  auto& plans = Plans();
  if (const auto found = plans.find(key); found != plans.end()) {
    owned = false;
    return found->second;
  }
  // Planned on the caller's array in place: FFTW_ESTIMATE leaves it untouched.
  PLAN plan;
  plan.Whole = fftw_plan_dft_2d(key.Cols, key.Rows, data, data, key.Dir == 1 ? FFTW_FORWARD : FFTW_BACKWARD,
                                FFTW_ESTIMATE);
  owned = plan.Whole != nullptr && plans.size() >= kMaxCachedPlans;
  if (plan.Whole != nullptr && !owned) {
    PlanPasses(plan, key, data);
    plans.emplace(key, plan);
  }
  return plan;
}

void RunLines(const LINE_PASS& pass, fftw_complex* data, int threads)
{
#pragma omp parallel for num_threads(threads) schedule(static)
  for (int line = 0; line < pass.Lines; ++line) {
    fftw_complex* first = data + static_cast<std::size_t>(line) * static_cast<std::size_t>(pass.Distance);
    fftw_execute_dft(pass.ByPhase[static_cast<std::size_t>(line % kPhases)], first, first);
  }
}

// Transforms cols x rows values stored column after column, in place. FFTW
// wants row-major [n0][n1] with n1 fastest: the column index is n0, the row
// index n1.
bool TransformBlock(MTH_COMPLEX* block, int cols, int rows, int dir, int threads)
{
  auto* data = reinterpret_cast<fftw_complex*>(block);
  const PlanKey key{cols, rows, dir, fftw_alignment_of(reinterpret_cast<double*>(data))};
  bool owned = false;
  PLAN plan = FindOrMakePlan(key, data, owned);
  if (plan.Whole == nullptr)
    return false;
  if (threads > 1 && plan.Split) {
    RunLines(plan.Passes[0], data, threads);
    RunLines(plan.Passes[1], data, threads);
  } else {
    fftw_execute_dft(plan.Whole, data, data);
  }
  if (owned) {
    std::lock_guard lock(Planner());
    DestroyPlan(plan);
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
bool TransformThroughCopy(MTH_COMPLEX** buf, int cols, int rows, int dir, int threads)
{
  std::unique_ptr<MTH_COMPLEX[]> block(new (std::nothrow) MTH_COMPLEX[CountOf(cols, rows)]);
  if (!block)
    return false;
  for (int c = 0; c < cols; ++c)
    std::copy(buf[c], buf[c] + rows, block.get() + CountOf(c, rows));
  if (!TransformBlock(block.get(), cols, rows, dir, threads))
    return false;
  for (int c = 0; c < cols; ++c)
    std::copy(block.get() + CountOf(c, rows), block.get() + CountOf(c + 1, rows), buf[c]);
  return true;
}

bool Transform(MTH_COMPLEX** buf, int cols, int rows, int dir, int threads)
{
  if (ColumnsInOneBlock(buf, cols, rows))
    return TransformBlock(buf[0], cols, rows, dir, threads);
  return TransformThroughCopy(buf, cols, rows, dir, threads);
}

#endif

} // namespace

bool Mth_FFT2D(MTH_COMPLEX** buf, int cols, int rows, int dir, int threads)
{
  if (!ValidArguments(buf, cols, rows, dir))
    return false;
  try {
    if (!Transform(buf, cols, rows, dir, std::max(1, threads)))
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
