// SPDX-License-Identifier: Apache-2.0
#include "ipg/measurement/ipg_holder.h"
#include "ipg/internal/ipg_holder_fast_measures.h"

#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

namespace {

// 3x3, centre window at radius 1: sum 18, mean 2, squares 92, cubes 594;
// positive values 4 1 2 8 1 1 2 (product 128, squares 91).
const std::vector<double> kMixed = {4, 0, 1, 2, -1, 8, 1, 1, 2};
// 5x5 ramp: value 5 * row + col + 1.
std::vector<double> Ramp()
{
  std::vector<double> v(25);
  std::iota(v.begin(), v.end(), 1.0);
  return v;
}

using Measure = void (*)(const double*, double*, int, int, int, int, int, int, int, int);

// The layer a measure writes at radius i (zero-filled beforehand).
std::vector<double> Layer(Measure measure, const std::vector<double>& data, int cols, int rows, int i)
{
  std::vector<double> layer(data.size(), 0.0);
  measure(data.data(), layer.data(), cols, rows, 1, i, 1, 1, 1, 1);
  return layer;
}

// Value at the centre of the 3x3 image at radius 1; the frame must stay 0.
double CentreOfMixed(Measure measure)
{
  std::vector<double> layer = Layer(measure, kMixed, 3, 3, 1);
  const double centre = std::exchange(layer[4], 0.0);
  EXPECT_EQ(layer, std::vector<double>(9, 0.0));
  return centre;
}

TEST(HolderMeasures, WindowAndParameterisedMeasuresAtRadiusOne)
{
  EXPECT_EQ(CentreOfMixed(IPG_HOLDER::AlphaMaxGrain), 8.0);
  EXPECT_EQ(CentreOfMixed(IPG_HOLDER::AlphaMoyGrain), 2.0);
  EXPECT_EQ(CentreOfMixed(IPG_HOLDER::AlphaMinGrain), 1.0);   // 0 and -1 are not above 1e-7
  EXPECT_DOUBLE_EQ(CentreOfMixed(IPG_HOLDER::AlphaVarGrain), 92.0 / 9.0); // mean not subtracted
  EXPECT_DOUBLE_EQ(CentreOfMixed(IPG_HOLDER::AlphaAsymGrain), 66.0 / std::pow(92.0 / 9.0, 1.5));
  EXPECT_DOUBLE_EQ(CentreOfMixed(IPG_HOLDER::AlphaContGrain), 23.0 / 9.0);
  EXPECT_DOUBLE_EQ(CentreOfMixed(IPG_HOLDER::AlphaRhoGrain), 2.0 / std::pow(2.0, 7.0 / 9.0));

  // The minimum keeps a first value below the floor.
  const std::vector<double> firstZero = {0, 5, 3, 2, 4, 8, 1, 1, 2};
  EXPECT_EQ(Layer(IPG_HOLDER::AlphaMinGrain, firstZero, 3, 3, 1)[4], 0.0);
  const std::vector<double> firstHigh = {9, 5, 3, 0, 4, 8, 2, 3, 2};
  EXPECT_EQ(Layer(IPG_HOLDER::AlphaMinGrain, firstHigh, 3, 3, 1)[4], 2.0);

  // |w - 2| < 2 holds for 1 2 1 1 2 (4 and 0 are exactly 2 away).
  std::vector<double> layer(9, 0.0);
  IPG_HOLDER::AlphaIsoGrain(kMixed.data(), layer.data(), 3, 3, 1, 1, 1, 1, 1, 1, 2.0);
  EXPECT_DOUBLE_EQ(layer[4], 5.0 / 9.0);
  // Squares of the positive values only: 91 / 9 / 2^2.
  IPG_HOLDER::AlphaPowGrain(kMixed.data(), layer.data(), 3, 3, 1, 1, 1, 1, 1, 1, 2.0);
  EXPECT_DOUBLE_EQ(layer[4], 91.0 / 36.0);
  const std::vector<double> negative = {-4, 0, 1, 2, -1, 8, 1, -9, 2};
  IPG_HOLDER::AlphaPowGrain(negative.data(), layer.data(), 3, 3, 1, 1, 1, 1, 1, 1, 2.0);
  EXPECT_EQ(layer[4], 1.0);
}

TEST(HolderMeasures, ContrastRatiosAndNormalisedDifferencesOfHalfWindows)
{
  // Left column 4 2 1 (mean 7/3) against the right two (mean 11/6): 14/11;
  // upper row 4 0 1 (mean 5/3) against the lower two (mean 13/6): 13/10.
  EXPECT_DOUBLE_EQ(CentreOfMixed(IPG_HOLDER::AlphaFrontMaxGrain), 13.0 / 10.0);
  EXPECT_DOUBLE_EQ(CentreOfMixed(IPG_HOLDER::AlphaFrontMinGrain), 14.0 / 11.0);
  // A single pixel has no contrast.
  const std::vector<double> ramp = Ramp();
  EXPECT_EQ(Layer(IPG_HOLDER::AlphaFrontMaxGrain, ramp, 5, 5, 0)[0], 1.0);

  // Radius 1 uses halves of radius 2 on the 5x5 ramp: left (columns 0-1,
  // rows 0-3) sums 72, right (columns 2-3, the centre column included) 88;
  // upper (rows 0-1, columns 0-3) 40, lower (rows 2-3) 120.
  const struct {
    Measure measure;
    double expected;
  } cases[] = {{IPG_HOLDER::AlphaNormDiffHoriGrain, 0.1},
               {IPG_HOLDER::AlphaNormDiffVertGrain, 0.5},
               {IPG_HOLDER::AlphaNormDiffMinGrain, 0.1},
               {IPG_HOLDER::AlphaNormDiffMaxGrain, 0.5}};
  for (const auto& c : cases) {
    std::vector<double> layer = Layer(c.measure, ramp, 5, 5, 1);
    EXPECT_DOUBLE_EQ(std::exchange(layer[12], 0.0), c.expected);
    EXPECT_EQ(layer, std::vector<double>(25, 0.0)); // frame of width 2
  }
  // Radius 0: halves of radius 1, left 7 + 12, right 8 + 13.
  const std::vector<double> layer = Layer(IPG_HOLDER::AlphaNormDiffHoriGrain, ramp, 5, 5, 0);
  EXPECT_DOUBLE_EQ(layer[12], 2.0 / 40.0);
  EXPECT_EQ(layer[0], 0.0);
  EXPECT_NE(layer[6], 0.0);

  // The 3x3 window at radius 2 and the radius-2 halves of measure 12 at radius 1.
  EXPECT_EQ(Layer(IPG_HOLDER::AlphaMoyGrain, kMixed, 3, 3, 2), std::vector<double>(9, 0.0));
  EXPECT_EQ(Layer(IPG_HOLDER::AlphaNormDiffHoriGrain, kMixed, 3, 3, 1), std::vector<double>(9, 0.0));
  EXPECT_EQ(Layer(IPG_HOLDER::AlphaMaxGrain, kMixed, 3, 3, 1 << 30), std::vector<double>(9, 0.0));
}

std::unique_ptr<DCM_STRUCT> ImageOfReals(unsigned cols, unsigned rows, const std::vector<double>& values)
{
  return ImageOf(cols, rows, std::vector<int>(values.begin(), values.end()));
}

// Least-squares slope of log measure against log window width 2i + 1.
double Slope(const std::vector<double>& measures)
{
  const double n = static_cast<double>(measures.size());
  double sx = 0.0, sy = 0.0, sxy = 0.0, sxx = 0.0;
  for (std::size_t i = 0; i < measures.size(); ++i) {
    const double x = std::log(2.0 * i + 1.0), y = std::log(measures[i]);
    sx += x, sy += y, sxy += x * y, sxx += x * x;
  }
  return (n * sxy - sx * sy) / (n * sxx - sx * sx);
}

TEST(Holder, DefaultsRefusalsAndExponentsAsSlopesOfLogMeasureAgainstLogWidth)
{
  MessageCapture capture;
  IPG_HOLDER none(nullptr);
  EXPECT_EQ(none.GetTools(), 1900.0);
  none.SetMeasType(2);
  none.SetWindowSize(5);
  EXPECT_FALSE(none.Apply());
  EXPECT_EQ(capture.Captions[0], "Information");

  auto image = ImageOfReals(5, 5, Ramp());
  IPG_HOLDER op(image.get());
  op.SetMeasType(2);
  // A single abscissa (no slope), or a largest window wider than the image
  // (no exponent anywhere, however large the size): refused with a message.
  for (int size : {2, 7, 2147483647}) {
    op.SetWindowSize(size);
    EXPECT_FALSE(op.Apply()) << size;
    EXPECT_EQ(op.GetHolder(), nullptr);
  }
  op.SetMeasType(12); // half-window measures reach one pixel further: 5 needs 7 columns
  op.SetWindowSize(5);
  EXPECT_FALSE(op.Apply());
  op.SetMeasType(2);
  op.SetWindowSize(3);
  EXPECT_FALSE((op.SetTools(1901), op.Apply())); // silent
  EXPECT_TRUE((op.SetTools(1900), op.Apply()));
  EXPECT_NE(op.GetHolder(), nullptr);
  std::vector<std::string> expected(5, "Paramètre WindowSize hors limites : IPG_HOLDER::Apply()");
  expected[0] = "Pas d'image en entrée!";
  EXPECT_EQ(capture.Texts, expected);

  // Maximum on the ramp at the centre: 13, 19, 25 for widths 1, 3, 5.
  auto ramp = ImageOfReals(5, 5, Ramp());
  IPG_HOLDER maximum(ramp.get());
  maximum.SetMeasType(1);
  maximum.SetWindowSize(5);
  ASSERT_TRUE(maximum.Apply());
  std::vector<double> holder(maximum.GetHolder(), maximum.GetHolder() + 25);
  EXPECT_NEAR(std::exchange(holder[12], 0.0), Slope({13, 19, 25}), 1e-12);
  EXPECT_EQ(holder, std::vector<double>(25, 0.0)); // layer 2 is 0 nearer than 2 to the border

  // One bright pixel: the maximum stays 100 at the centre whatever the window.
  auto bright = TestImage(7, 7).Fill(1).At(3, 3, 100).Build();
  IPG_HOLDER max(bright.get());
  max.SetMeasType(1);
  max.SetWindowSize(5);
  ASSERT_TRUE(max.Apply());
  EXPECT_NEAR(max.GetHolder()[24], 0.0, 1e-12);
  EXPECT_NEAR(max.GetHolder()[23], Slope({1, 100, 100}), 1e-12);

  // A zero at radius 0 or an unknown measure: 0.
  auto holed = TestImage(7, 7).Fill(5).At(3, 3, 0).Build();
  IPG_HOLDER zero(holed.get());
  zero.SetMeasType(2);
  zero.SetWindowSize(5);
  ASSERT_TRUE(zero.Apply());
  EXPECT_EQ(zero.GetHolder()[24], 0.0);
  EXPECT_NE(zero.GetHolder()[23], 0.0);
  for (int measType : {0, 16}) {
    zero.SetMeasType(measType);
    ASSERT_TRUE(zero.Apply());
    EXPECT_EQ(std::vector<double>(zero.GetHolder(), zero.GetHolder() + 49), std::vector<double>(49, 0.0));
  }
}

// Deterministic pseudo-random pixels in [low, high].
std::vector<double> Noise(std::size_t n, int low, int high, unsigned seed)
{
  std::vector<double> v(n);
  for (double& x : v) {
    seed = seed * 1103515245u + 12345u;
    x = low + static_cast<int>((seed >> 8) % static_cast<unsigned>(high - low + 1));
  }
  return v;
}

bool Close(double direct, double fast, double relative)
{
  if (std::isnan(direct) || std::isnan(fast))
    return std::isnan(direct) && std::isnan(fast);
  return direct == fast || std::fabs(direct - fast) <= relative * std::max(1.0, std::fabs(direct));
}

TEST(HolderFastPath, LayersMatchTheDirectMeasuresOnIntegerData)
{
  using H = IPG_HOLDER;
  const Measure direct[] = {H::AlphaMaxGrain, H::AlphaMoyGrain, H::AlphaMinGrain, H::AlphaVarGrain, nullptr,
                            H::AlphaAsymGrain, H::AlphaContGrain, H::AlphaRhoGrain, nullptr, H::AlphaFrontMaxGrain,
                            H::AlphaFrontMinGrain, H::AlphaNormDiffHoriGrain, H::AlphaNormDiffVertGrain,
                            H::AlphaNormDiffMinGrain, H::AlphaNormDiffMaxGrain};
  const int cols = 19, rows = 14;
  for (const auto& [low, high] : {std::pair{0, 4095}, std::pair{-300, 300}}) {
    const std::vector<double> data = Noise(cols * rows, low, high, 7u + high);
    for (int measType = 1; measType <= 15; ++measType) {
      IPG_HOLDER_FAST_MEASURES fast(data.data(), cols, rows, measType, 2.0);
      ASSERT_EQ(fast.Supported(), measType != 5) << measType;
      if (measType == 5)
        continue;
      for (int i = 0; i <= 4; ++i) {
        std::vector<double> expected(data.size(), 0.0), actual(data.size(), 0.0);
        if (measType == 9)
          IPG_HOLDER::AlphaPowGrain(data.data(), expected.data(), cols, rows, 4, i, 1, 1, 1, 1, 2.0);
        else
          direct[measType - 1](data.data(), expected.data(), cols, rows, 4, i, 1, 1, 1, 1);
        fast.FillLayer(actual.data(), i);
        // Integer sums of this size are exact in doubles: identical, except
        // the logarithm sums of measure 8, added in another order.
        const double tolerance = measType == 8 ? 1e-12 : 0.0;
        for (std::size_t k = 0; k < data.size(); ++k)
          ASSERT_TRUE(Close(expected[k], actual[k], tolerance))
              << "measure " << measType << " radius " << i << " pixel " << k << ": " << expected[k] << " vs "
              << actual[k];
      }
    }
  }

  // Non-integer data take the direct measures.
  const std::vector<double> data = {0.5, 1, 2, 3};
  EXPECT_FALSE(IPG_HOLDER_FAST_MEASURES(data.data(), 2, 2, 2).Supported());
  EXPECT_TRUE(IPG_HOLDER_FAST_MEASURES(data.data(), 2, 2, 1).Supported());
  EXPECT_FALSE(IPG_HOLDER_FAST_MEASURES(nullptr, 2, 2, 1).Supported());
}

TEST(HolderFastPath, ExponentsMatchTheDirectComputation)
{
  auto image = ImageOfReals(23, 17, Noise(23 * 17, 0, 65535, 3u));
  for (int measType = 1; measType <= 15; ++measType) {
    IPG_HOLDER direct(image.get()), fast(image.get());
    for (IPG_HOLDER* op : {&direct, &fast}) {
      op->SetMeasType(measType);
      op->SetWindowSize(7);
    }
    direct.SetFastPath(false);
    ASSERT_TRUE(direct.Apply());
    ASSERT_TRUE(fast.Apply());
    for (int k = 0; k < 23 * 17; ++k)
      ASSERT_TRUE(Close(direct.GetHolder()[k], fast.GetHolder()[k], 1e-12))
          << "measure " << measType << " pixel " << k;
  }
}

} // namespace
