#include "mth/mth_fft.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

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

} // namespace

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
    for (int c = 0; c < cols; ++c)
      for (int r = 0; r < rows; ++r)
        s.at(c, r) = {std::sin(c * 1.3 + r), std::cos(r * 0.7 - c)};
    const auto original = s.Storage;
    ASSERT_TRUE(Mth_FFT2D(s.Columns.data(), cols, rows, 1));
    ASSERT_TRUE(Mth_FFT2D(s.Columns.data(), cols, rows, -1));
    for (int c = 0; c < cols; ++c)
      for (int r = 0; r < rows; ++r) {
        EXPECT_NEAR(s.at(c, r).re, original[c][r].re, 1e-12);
        EXPECT_NEAR(s.at(c, r).im, original[c][r].im, 1e-12);
      }
  }
}

TEST(MthFft, RefusesBadArguments)
{
  Spectrum s(2, 2);
  s.at(0, 0).re = 3.0;
  EXPECT_FALSE(Mth_FFT2D(nullptr, 2, 2, 1));
  EXPECT_FALSE(Mth_FFT2D(s.Columns.data(), 0, 2, 1));
  EXPECT_FALSE(Mth_FFT2D(s.Columns.data(), 2, 2, 0));
  EXPECT_EQ(s.at(0, 0).re, 3.0);
}
