// SPDX-License-Identifier: Apache-2.0
#include "mth/mth_fft.h"

#include "mth/mth_complex_buffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#ifdef IPG_TEST_WITH_FFTW
#include <fftw3.h>
#endif

namespace {

// buf[column][row] storage for a cols x rows transform.
struct Spectrum {
  Spectrum(int cols, int rows) : Storage(static_cast<std::size_t>(cols), std::vector<MTH_COMPLEX>(rows))
  {
    for (auto& column : Storage)
      Columns.push_back(column.data());
  }
  MTH_COMPLEX& at(int c, int r) { return Storage[static_cast<std::size_t>(c)][static_cast<std::size_t>(r)]; }
  std::vector<std::vector<MTH_COMPLEX>> Storage;
  std::vector<MTH_COMPLEX*> Columns;
};

// x[c][r] of a cols x rows test input, neither real nor symmetric.
MTH_COMPLEX Sample(int c, int r) { return {std::sin(c * 1.3 + r), std::cos(r * 0.7 - c)}; }

// X[u][v] by the definition, kernel e^(-2 pi i (u c / cols + v r / rows)).
std::complex<double> Dft(int cols, int rows, int u, int v)
{
  std::complex<double> sum = 0.0;
  for (int c = 0; c < cols; ++c)
    for (int r = 0; r < rows; ++r)
      sum += std::complex<double>(Sample(c, r).re, Sample(c, r).im) *
             std::polar(1.0, -2 * M_PI * (double(u) * c / cols + double(v) * r / rows));
  return sum;
}

// Transforms Sample through columns[] and compares with the definition.
void ExpectTheDefinition(MTH_COMPLEX** columns, int cols, int rows)
{
  for (int c = 0; c < cols; ++c)
    for (int r = 0; r < rows; ++r)
      columns[c][r] = Sample(c, r);
  ASSERT_TRUE(Mth_FFT2D(columns, cols, rows, 1));
  for (int u = 0; u < cols; ++u)
    for (int v = 0; v < rows; ++v) {
      const std::complex<double> expected = Dft(cols, rows, u, v);
      EXPECT_NEAR(columns[u][v].re, expected.real(), 1e-9) << cols << "x" << rows << " u=" << u << " v=" << v;
      EXPECT_NEAR(columns[u][v].im, expected.imag(), 1e-9) << cols << "x" << rows << " u=" << u << " v=" << v;
    }
}

// The values of FFTW's 2-D plan for cols x rows values stored column after
// column (the inverse divided by the count, as Mth_FFT2D divides it); empty
// without FFTW.
std::vector<MTH_COMPLEX> WholePlan(std::vector<MTH_COMPLEX> values, int cols, int rows, int dir)
{
#ifdef IPG_TEST_WITH_FFTW
  auto* data = reinterpret_cast<fftw_complex*>(values.data());
  fftw_plan plan = fftw_plan_dft_2d(cols, rows, data, data, dir == 1 ? FFTW_FORWARD : FFTW_BACKWARD, FFTW_ESTIMATE);
  fftw_execute(plan);
  fftw_destroy_plan(plan);
  const double scale = 1.0 / (static_cast<double>(cols) * rows);
  for (MTH_COMPLEX& z : values)
    if (dir == -1)
      z = {z.re * scale, z.im * scale};
  return values;
#else
  (void)cols, (void)rows, (void)dir;
  return {};
#endif
}

// A round trip through columns[] returns Sample.
bool RoundTripHolds(MTH_COMPLEX** columns, int cols, int rows)
{
  for (int c = 0; c < cols; ++c)
    for (int r = 0; r < rows; ++r)
      columns[c][r] = Sample(c, r);
  if (!Mth_FFT2D(columns, cols, rows, 1) || !Mth_FFT2D(columns, cols, rows, -1))
    return false;
  for (int c = 0; c < cols; ++c)
    for (int r = 0; r < rows; ++r)
      if (std::abs(columns[c][r].re - Sample(c, r).re) > 1e-12 || std::abs(columns[c][r].im - Sample(c, r).im) > 1e-12)
        return false;
  return true;
}

} // namespace

TEST(MthFft, RunsOnTheBackendTheProgramWasBuiltFor)
{
  EXPECT_STREQ(Mth_FFTBackend(), IPG_EXPECTED_FFT_BACKEND);
}

TEST(MthFft, ForwardOfAnImpulseIsFlatAndOfAConstantIsAnImpulse)
{
  Spectrum s(4, 3);
  s.at(0, 0).re = 1.0;
  ASSERT_TRUE(Mth_FFT2D(s.Columns.data(), 4, 3, 1));
  for (int c = 0; c < 4; ++c)
    for (int r = 0; r < 3; ++r) {
      EXPECT_NEAR(s.at(c, r).re, 1.0, 1e-12);
      EXPECT_NEAR(s.at(c, r).im, 0.0, 1e-12);
    }

  Spectrum k(5, 2);
  for (int c = 0; c < 5; ++c)
    for (int r = 0; r < 2; ++r)
      k.at(c, r).re = 2.0;
  ASSERT_TRUE(Mth_FFT2D(k.Columns.data(), 5, 2, 1));
  EXPECT_NEAR(k.at(0, 0).re, 20.0, 1e-12) << "forward transform is unnormalised";
  EXPECT_NEAR(std::hypot(k.at(3, 1).re, k.at(3, 1).im), 0.0, 1e-12);
}

TEST(MthFft, ForwardUsesTheNegativeExponentOverColumnsAndRows)
{
  // x[c][r] = delta at (1, 0): X[u][v] = e^(-2 pi i u / cols)
  const int cols = 4, rows = 2;
  Spectrum s(cols, rows);
  s.at(1, 0).re = 1.0;
  ASSERT_TRUE(Mth_FFT2D(s.Columns.data(), cols, rows, 1));
  for (int u = 0; u < cols; ++u)
    for (int v = 0; v < rows; ++v) {
      const double angle = -2.0 * M_PI * u / cols;
      EXPECT_NEAR(s.at(u, v).re, std::cos(angle), 1e-12);
      EXPECT_NEAR(s.at(u, v).im, std::sin(angle), 1e-12);
    }
  // and a delta at row 1 varies along v with the row count
  Spectrum t(cols, 3);
  t.at(0, 1).re = 1.0;
  ASSERT_TRUE(Mth_FFT2D(t.Columns.data(), cols, 3, 1));
  EXPECT_NEAR(t.at(2, 1).re, std::cos(-2.0 * M_PI / 3), 1e-12);
  EXPECT_NEAR(t.at(2, 1).im, std::sin(-2.0 * M_PI / 3), 1e-12);
}

TEST(MthFft, RoundTripReturnsTheInputForAnySize)
{
  for (auto [cols, rows] : {std::pair{8, 8}, std::pair{7, 5}, std::pair{1, 9}, std::pair{13, 1}}) {
    Spectrum s(cols, rows);
    EXPECT_TRUE(RoundTripHolds(s.Columns.data(), cols, rows)) << cols << "x" << rows;
  }
}

TEST(MthFft, RefusesBadArguments)
{
  Spectrum s(2, 2);
  s.at(0, 0).re = 3.0;
  EXPECT_FALSE(Mth_FFT2D(nullptr, 2, 2, 1));
  EXPECT_FALSE(Mth_FFT2D(s.Columns.data(), 0, 2, 1));
  EXPECT_FALSE(Mth_FFT2D(s.Columns.data(), 2, 2, 0));
  // Streamed: columns apart from each other are refused too, before any load.
  bool loaded = false;
  EXPECT_FALSE(Mth_FFT2DStreamed(s.Columns.data(), 2, 2, 1, 1, {[&](int, int) { loaded = true; }, nullptr}));
  EXPECT_FALSE(loaded);
  EXPECT_EQ(s.at(0, 0).re, 3.0);
}

TEST(MthFft, MatchesTheDefinitionInOneBlockOrColumnByColumnAtAnyAlignment)
{
  for (auto [cols, rows] : {std::pair{6, 4}, std::pair{7, 5}, std::pair{12, 9}}) {
    MTH_COMPLEX_BUFFER block(cols, rows);
    ExpectTheDefinition(block.Get(), cols, rows);
    ExpectTheDefinition(block.Get(), cols, rows); // the same size again, with its plan made
    Spectrum scattered(cols, rows);
    ExpectTheDefinition(scattered.Columns.data(), cols, rows);
    // One block starting 8 bytes off a 16-byte boundary: no plan of aligned data may run on it.
    std::vector<unsigned char> storage((cols * rows + 2) * sizeof(MTH_COMPLEX));
    unsigned char* start = storage.data() + 8 + (16 - reinterpret_cast<std::uintptr_t>(storage.data()) % 16) % 16;
    for (int k = 0; k < cols * rows; ++k)
      new (start + k * sizeof(MTH_COMPLEX)) MTH_COMPLEX;
    std::vector<MTH_COMPLEX*> shifted;
    for (int c = 0; c < cols; ++c)
      shifted.push_back(std::launder(reinterpret_cast<MTH_COMPLEX*>(start + c * rows * sizeof(MTH_COMPLEX))));
    ExpectTheDefinition(shifted.data(), cols, rows);
  }
}

TEST(MthFft, ConcurrentCallsAndMoreSizesThanPlansKeptStayExact)
{
  std::vector<std::thread> threads;
  std::vector<int> failures(4, 0);
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([t, &failures] {
      for (int size = 1; size <= 24; ++size) {
        MTH_COMPLEX_BUFFER buffer(size + t, size);
        failures[t] += RoundTripHolds(buffer.Get(), size + t, size) ? 0 : 1;
      }
    });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(failures, std::vector<int>(4, 0));
}

TEST(MthFft, GivesFftwsWholePlanBitsOnEveryThreadCountLoadedAndTakenOrNot)
{
  // Square and oblong sides, powers of two and others (some of which FFTW
  // buffers, or plans otherwise than line by line), odd row counts whose
  // columns start at alternating alignments, both directions. The reference
  // is FFTW's own 2-D plan when FFTW computes, else the one-thread result.
  const bool fftw = std::string(Mth_FFTBackend()) == "FFTW";
  std::mt19937 random(3);
  std::uniform_real_distribution<double> level(-4096.0, 4096.0);
  for (auto [cols, rows] : {std::pair{64, 256}, std::pair{24, 96}, std::pair{40, 37}, std::pair{160, 120},
                            std::pair{100, 100}, std::pair{64, 64}, std::pair{45, 50}, std::pair{1, 16}})
    for (int dir : {1, -1}) {
      std::vector<MTH_COMPLEX> input(static_cast<std::size_t>(cols * rows));
      for (MTH_COMPLEX& z : input)
        z = {level(random), level(random)};
      std::vector<MTH_COMPLEX> expected;
      if (fftw)
        expected = WholePlan(input, cols, rows, dir);
      // Streams: none, a Load and a Take, a Load alone, a Take alone.
      for (int threads : {1, 2, 3})
        for (int streamed : {0, 1, 2, 3}) {
          MTH_COMPLEX_BUFFER buffer(cols, rows);
          MTH_COMPLEX* block = buffer.Get()[0];
          const auto load = [&](int first, int last) {
            std::copy(input.data() + first * rows, input.data() + last * rows, block + first * rows);
          };
          if (streamed == 0 || streamed == 3)
            load(0, cols);
          std::vector<MTH_COMPLEX> result(input.size());
          std::vector<int> takes(input.size());
          const auto take = [&](int first, int last, const MTH_COMPLEX* values, std::size_t stride) {
            for (int c = 0; c < cols; ++c)
              for (int r = first; r < last; ++r) {
                result[c * rows + r] = values[c * stride + (r - first)];
                ++takes[c * rows + r];
              }
          };
          MTH_FFT_STREAMS streams;
          if (streamed == 1 || streamed == 2)
            streams.Load = load;
          if (streamed == 1 || streamed == 3)
            streams.Take = take;
          if (streamed == 0)
            ASSERT_TRUE(Mth_FFT2D(buffer.Get(), cols, rows, dir, threads));
          else
            ASSERT_TRUE(Mth_FFT2DStreamed(buffer.Get(), cols, rows, dir, threads, streams));
          if (streamed == 0 || streamed == 2)
            result.assign(block, block + cols * rows);
          else
            EXPECT_EQ(takes, std::vector<int>(input.size(), 1)) << cols << "x" << rows;
          if (expected.empty())
            expected = result;
          EXPECT_EQ(std::memcmp(result.data(), expected.data(), input.size() * sizeof(MTH_COMPLEX)), 0)
              << cols << "x" << rows << " dir " << dir << " threads " << threads << " streams " << streamed;
        }
    }
}

TEST(MthFft, WisdomGoesToAFileAndBackWithFftwOnly)
{
  const std::string path = testing::TempDir() + "ipg-wisdom-" + std::to_string(getpid());
  MTH_COMPLEX_BUFFER buffer(16, 8);
  ASSERT_TRUE(RoundTripHolds(buffer.Get(), 16, 8));
  const bool fftw = std::string(Mth_FFTBackend()) == "FFTW";
  EXPECT_EQ(Mth_FFTSaveWisdom(path), fftw);
  EXPECT_EQ(Mth_FFTLoadWisdom(path), fftw);
  EXPECT_FALSE(Mth_FFTLoadWisdom(path + "-missing"));
  std::remove(path.c_str());
}
