// SPDX-License-Identifier: Apache-2.0
#include "mth/mth_fft.h"

#if defined(IPG_FFT_KISSFFT)
#include <kissfft/kissfft.hh>

#include <complex>
#else
#include "mth/internal/mth_fft_plan_text.h"

#include <fftw3.h>

#include <array>
#include <cstdlib>
#include <cstring>
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
double InverseScale(int cols, int rows) { return 1.0 / static_cast<double>(CountOf(cols, rows)); }

void Normalise(MTH_COMPLEX** buf, int cols, int rows)
{
  const double scale = InverseScale(cols, rows);
  for (int c = 0; c < cols; ++c)
    for (int r = 0; r < rows; ++r) {
      buf[c][r].re *= scale;
      buf[c][r].im *= scale;
    }
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

// Columns loaded this many at a time: a group's columns stay in the second
// level cache until their transforms read them.
constexpr int kLoadGroup = 16;

// Every column loaded, groups of them on threads.
void LoadColumns(const MTH_FFT_STREAMS& streams, int cols, int threads)
{
  if (!streams.Load)
    return;
  const int groups = (cols + kLoadGroup - 1) / kLoadGroup;
#pragma omp parallel for num_threads(threads) schedule(static)
  for (int g = 0; g < groups; ++g)
    streams.Load(g * kLoadGroup, std::min(cols, (g + 1) * kLoadGroup));
}

// Every row of the finished block taken, a few at a time on threads (the
// values a tile of them reads lie together).
void TakeRows(const MTH_FFT_STREAMS& streams, const MTH_COMPLEX* block, int rows, int threads)
{
  constexpr int kRowsTaken = 8;
  const int pieces = (rows + kRowsTaken - 1) / kRowsTaken;
#pragma omp parallel for num_threads(threads) schedule(static)
  for (int p = 0; p < pieces; ++p)
    streams.Take(p * kRowsTaken, std::min(rows, (p + 1) * kRowsTaken), block + p * kRowsTaken,
                 static_cast<std::size_t>(rows));
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

// The columns loaded first, the results taken whole after.
bool TransformStreamed(MTH_COMPLEX** buf, int cols, int rows, int dir, int threads, const MTH_FFT_STREAMS& streams,
                       bool& taken)
{
  LoadColumns(streams, cols, threads);
  taken = false;
  return Transform(buf, cols, rows, dir, threads);
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
// Length values, Stride apart. Pass 0 takes the columns of the block, each
// one's values side by side (Stride 1); pass 1 takes the rows across them,
// kTile rows at a time gathered into a tile (Stride kTile), so that the
// transforms read a few hundred kilobytes instead of striding across the
// whole block.
// Line k of a pass (of a tile) runs through ByPhase[k % kPhases], planned on
// a line of the same alignment: FFTW runs a plan only on arrays aligned as
// the one it was made on. A pass that FFTW buffers transforms each line out
// of place into a line of scratch and copies it back, as FFTW's buffering
// does (ThroughScratch).
constexpr int kPhases = 4; // lines are 16-byte multiples apart; FFTW asks for at most 64
constexpr int kTile = 8;
struct LINE_PASS {
  int Lines = 0;
  int Length = 0;
  int Stride = 1;
  bool ThroughScratch = false;
  std::array<fftw_plan, kPhases> ByPhase{};
};

// FFTW's plan for the whole transform and, when that plan is a loop of 1-D
// transforms along the rows then one across the columns, those two loops as
// passes whose lines can go to several threads (Split).
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

// A plan as FFTW prints it, in one line (Mth_PlanText).
std::string Printed(fftw_plan plan)
{
  char* text = fftw_sprint_plan(plan);
  if (text == nullptr)
    return {};
  std::string printed = Mth_PlanText(text);
  std::free(text);
  return printed;
}

void DestroyLines(LINE_PASS& pass)
{
  for (fftw_plan& plan : pass.ByPhase)
    if (plan != nullptr)
      fftw_destroy_plan(std::exchange(plan, nullptr));
}

void DestroyPlan(PLAN& plan)
{
  fftw_destroy_plan(plan.Whole);
  DestroyLines(plan.Passes[0]);
  DestroyLines(plan.Passes[1]);
}

// Per thread, a tile of kTile rows side by side and one line, from
// fftw_malloc: every tile and line has the alignment its plans were made on.
class WORKSPACES {
public:
  WORKSPACES(int threads, int cols, int rows)
      : TileValues(static_cast<std::size_t>(cols) * kTile), LineValues(static_cast<std::size_t>(std::max(cols, rows)))
  {
    for (int t = 0; t < threads; ++t) {
      Tiles.push_back(fftw_alloc_complex(TileValues));
      Lines.push_back(fftw_alloc_complex(LineValues));
      Complete = Complete && Tiles.back() != nullptr && Lines.back() != nullptr;
    }
  }
  ~WORKSPACES()
  {
    for (fftw_complex* block : Tiles)
      fftw_free(block);
    for (fftw_complex* block : Lines)
      fftw_free(block);
  }
  WORKSPACES(const WORKSPACES&) = delete;
  WORKSPACES& operator=(const WORKSPACES&) = delete;

  std::size_t TileValues;
  std::size_t LineValues;
  bool Complete = true;
  std::vector<fftw_complex*> Tiles;
  std::vector<fftw_complex*> Lines;
};

// One-line plans for pass, line phase starting at lineAt(phase) (written out
// of place into line when the pass goes through scratch), each printed as
// body: the very transform the whole plan's loop runs on every line. False
// (and none kept) otherwise.
template <typename LineAt>
bool PlanLines(LINE_PASS& pass, LineAt lineAt, fftw_complex* line, int sign, const std::string& body)
{
  for (int phase = 0; phase < kPhases && phase < pass.Lines; ++phase) {
    fftw_complex* in = lineAt(phase);
    fftw_complex* out = pass.ThroughScratch ? line : in;
    const int outStride = pass.ThroughScratch ? 1 : pass.Stride;
    fftw_plan plan = fftw_plan_many_dft(1, &pass.Length, 1, in, nullptr, pass.Stride, 0, out, nullptr, outStride, 0,
                                        sign, FFTW_ESTIMATE | FFTW_DESTROY_INPUT);
    pass.ByPhase[static_cast<std::size_t>(phase)] = plan;
    if (plan == nullptr || Printed(plan) != body) {
      DestroyLines(pass);
      return false;
    }
  }
  return true;
}

// For a whole plan printed as "(dft-rank>=2/1 (loop along the rows of every
// column) (loop across the columns of every row))", its two passes. Lines
// run through plans of the same printed structure, one pass after the other,
// compute what the whole plan computes bit for bit, in any order and on any
// number of threads.
void PlanPasses(PLAN& plan, const PlanKey& key, fftw_complex* data)
{
  const MTH_PLAN_NODE whole = Mth_ParsePlanNode(Printed(plan.Whole));
  if (whole.Solver != "dft-rank>=2/1" || whole.Children.size() != 2)
    return;
  bool alongThroughScratch = false, acrossThroughScratch = false;
  const std::string along = Mth_PlanLineBody(whole.Children[0], key.Cols, key.Rows, alongThroughScratch);
  const std::string across = Mth_PlanLineBody(whole.Children[1], key.Rows, key.Cols, acrossThroughScratch);
  const WORKSPACES workspace(1, key.Cols, key.Rows);
  if (along.empty() || across.empty() || !workspace.Complete)
    return;
  const int sign = key.Dir == 1 ? FFTW_FORWARD : FFTW_BACKWARD;
  plan.Passes[0] = LINE_PASS{key.Cols, key.Rows, 1, alongThroughScratch, {}};
  plan.Passes[1] = LINE_PASS{key.Rows, key.Cols, kTile, acrossThroughScratch, {}};
  const auto column = [&](int c) { return data + static_cast<std::size_t>(c) * static_cast<std::size_t>(key.Rows); };
  const auto tileRow = [&](int r) { return workspace.Tiles[0] + r; };
  if (!PlanLines(plan.Passes[0], column, workspace.Lines[0], sign, along))
    return;
  if (!PlanLines(plan.Passes[1], tileRow, workspace.Lines[0], sign, across)) {
    DestroyLines(plan.Passes[0]);
    return;
  }
  plan.Split = true;
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

unsigned ThreadIndex()
{
#ifdef _OPENMP
  return static_cast<unsigned>(omp_get_thread_num());
#else
  return 0;
#endif
}

// The line at in through plan, in place or by way of line.
void TransformLine(const LINE_PASS& pass, fftw_plan plan, fftw_complex* in, fftw_complex* line)
{
  if (!pass.ThroughScratch) {
    fftw_execute_dft(plan, in, in);
    return;
  }
  fftw_execute_dft(plan, in, line);
  for (int k = 0; k < pass.Length; ++k) {
    fftw_complex& value = in[static_cast<std::size_t>(k) * static_cast<std::size_t>(pass.Stride)];
    value[0] = line[k][0];
    value[1] = line[k][1];
  }
}

// Pass 0: every column of the block, rows values each, loaded a group at a
// time just before its transforms when there is a Load.
void TransformColumns(const LINE_PASS& pass, fftw_complex* data, const WORKSPACES& workspaces, int threads,
                      const MTH_FFT_STREAMS& streams)
{
  const int groups = (pass.Lines + kLoadGroup - 1) / kLoadGroup;
#pragma omp parallel for num_threads(threads) schedule(static)
  for (int g = 0; g < groups; ++g) {
    const int first = g * kLoadGroup, last = std::min(pass.Lines, first + kLoadGroup);
    if (streams.Load)
      streams.Load(first, last);
    for (int c = first; c < last; ++c)
      TransformLine(pass, pass.ByPhase[static_cast<std::size_t>(c % kPhases)],
                    data + static_cast<std::size_t>(c) * static_cast<std::size_t>(pass.Length),
                    workspaces.Lines[ThreadIndex()]);
  }
}

// count values (a whole tile row when count is kTile: one fixed-size copy).
inline void CopyTileRow(const fftw_complex* from, fftw_complex* to, int count)
{
  if (count == kTile)
    std::memcpy(to, from, sizeof(fftw_complex) * kTile);
  else
    std::memcpy(to, from, sizeof(fftw_complex) * static_cast<std::size_t>(count));
}

// Pass 1: every row across the columns (cols of them, rows apart), kTile
// rows at a time gathered into a tile and put back, or given to Take
// (multiplied by scale first, unless it is 1).
void TransformRows(const LINE_PASS& pass, fftw_complex* data, int rows, const WORKSPACES& workspaces, int threads,
                   const MTH_FFT_STREAMS& streams, double scale)
{
  const int tiles = (pass.Lines + kTile - 1) / kTile;
#pragma omp parallel for num_threads(threads) schedule(static)
  for (int t = 0; t < tiles; ++t) {
    fftw_complex* tile = workspaces.Tiles[ThreadIndex()];
    const int first = t * kTile;
    const int count = std::min(kTile, pass.Lines - first);
    for (int c = 0; c < pass.Length; ++c) {
      const fftw_complex* from = data + static_cast<std::size_t>(c) * static_cast<std::size_t>(rows) + first;
      // The next tile but one of this column: thousands of columns are more
      // streams than the hardware prefetcher follows.
      if (first + 3 * kTile <= rows) {
        __builtin_prefetch(from + 2 * kTile);
        __builtin_prefetch(from + 2 * kTile + 4);
      }
      CopyTileRow(from, tile + static_cast<std::size_t>(c) * kTile, count);
    }
    for (int r = 0; r < count; ++r)
      TransformLine(pass, pass.ByPhase[static_cast<std::size_t>(r % kPhases)], tile + r,
                    workspaces.Lines[ThreadIndex()]);
    if (!streams.Take) {
      for (int c = 0; c < pass.Length; ++c)
        CopyTileRow(tile + static_cast<std::size_t>(c) * kTile,
                    data + static_cast<std::size_t>(c) * static_cast<std::size_t>(rows) + first, count);
      continue;
    }
    if (scale != 1.0)
      for (int c = 0; c < pass.Length; ++c)
        for (int r = 0; r < count; ++r) {
          fftw_complex& value = tile[static_cast<std::size_t>(c) * kTile + static_cast<std::size_t>(r)];
          value[0] *= scale;
          value[1] *= scale;
        }
    streams.Take(first, first + count, reinterpret_cast<const MTH_COMPLEX*>(tile), kTile);
  }
}

// Transforms cols x rows values stored column after column, in place, loaded
// and taken through streams. taken: the results went to Take, normalised.
// FFTW wants row-major [n0][n1] with n1 fastest: the column index is n0, the
// row index n1.
bool TransformBlock(MTH_COMPLEX* block, int cols, int rows, int dir, int threads, const MTH_FFT_STREAMS& streams,
                    bool& taken)
{
  auto* data = reinterpret_cast<fftw_complex*>(block);
  const PlanKey key{cols, rows, dir, fftw_alignment_of(reinterpret_cast<double*>(data))};
  bool owned = false;
  PLAN plan = FindOrMakePlan(key, data, owned);
  if (plan.Whole == nullptr)
    return false;
  const WORKSPACES workspaces(plan.Split ? threads : 0, cols, rows);
  taken = false;
  if (plan.Split && workspaces.Complete) {
    TransformColumns(plan.Passes[0], data, workspaces, threads, streams);
    TransformRows(plan.Passes[1], data, rows, workspaces, threads, streams, dir == -1 ? InverseScale(cols, rows) : 1.0);
    taken = static_cast<bool>(streams.Take);
  } else {
    LoadColumns(streams, cols, threads);
    fftw_execute_dft(plan.Whole, data, data);
  }
  if (owned) {
    std::lock_guard lock(Planner());
    DestroyPlan(plan);
  }
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
  bool taken = false;
  if (!TransformBlock(block.get(), cols, rows, dir, threads, MTH_FFT_STREAMS{}, taken))
    return false;
  for (int c = 0; c < cols; ++c)
    std::copy(block.get() + CountOf(c, rows), block.get() + CountOf(c + 1, rows), buf[c]);
  return true;
}

bool Transform(MTH_COMPLEX** buf, int cols, int rows, int dir, int threads)
{
  bool taken = false;
  if (ColumnsInOneBlock(buf, cols, rows))
    return TransformBlock(buf[0], cols, rows, dir, threads, MTH_FFT_STREAMS{}, taken);
  return TransformThroughCopy(buf, cols, rows, dir, threads);
}

// One block through streams: taken says whether the results went to Take.
bool TransformStreamed(MTH_COMPLEX** buf, int cols, int rows, int dir, int threads, const MTH_FFT_STREAMS& streams,
                       bool& taken)
{
  return TransformBlock(buf[0], cols, rows, dir, threads, streams, taken);
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

bool Mth_FFT2DStreamed(MTH_COMPLEX** buf, int cols, int rows, int dir, int threads, const MTH_FFT_STREAMS& streams)
{
  if (!ValidArguments(buf, cols, rows, dir) || !ColumnsInOneBlock(buf, cols, rows))
    return false;
  bool taken = false;
  try {
    if (!TransformStreamed(buf, cols, rows, dir, std::max(1, threads), streams, taken))
      return false;
  } catch (const std::bad_alloc&) {
    return false;
  }
  if (taken)
    return true;
  if (dir == -1)
    Normalise(buf, cols, rows);
  if (streams.Take)
    TakeRows(streams, buf[0], rows, std::max(1, threads));
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
