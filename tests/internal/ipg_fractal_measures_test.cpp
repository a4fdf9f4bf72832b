// SPDX-License-Identifier: Apache-2.0
#include "ipg/measurement/ipg_statistic1.h"

#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

double Measure(DCM_STRUCT* image, int tools, int boxSize = 64, DCM_STRUCT* roi = nullptr)
{
  IPG_STATISTIC1 stat(image, roi);
  stat.SetTools(tools);
  stat.SetBoxSize(boxSize);
  EXPECT_TRUE(stat.Apply());
  return stat.GetResult();
}

TEST(FractalBoxCounting, KnownSets)
{
  auto square = ImageOf(256, 256, [](unsigned, unsigned) { return 1; });
  EXPECT_NEAR(Measure(square.get(), 7), 2.0, 1e-9);
  auto line = ImageOf(256, 256, [](unsigned, unsigned row) { return row == 100 ? 5 : 0; });
  EXPECT_NEAR(Measure(line.get(), 7), 1.0, 1e-9);
  auto carpet = SierpinskiCarpet(5);
  EXPECT_NEAR(Measure(carpet.get(), 7, 81), std::log(8.0) / std::log(3.0), 0.02);
}

TEST(FractalBoxCounting, PairsAndFit)
{
  auto line = ImageOf(64, 64, [](unsigned, unsigned row) { return row == 3 ? 1 : 0; });
  IPG_STATISTIC1 stat(line.get());
  stat.SetBoxSize(8);
  ASSERT_TRUE(stat.FractalDimensionByBoxMethod());
  EXPECT_EQ(stat.GetBoxSizes(), (std::vector<double>{1, 2, 4, 8}));
  EXPECT_EQ(stat.GetBoxCounts(), (std::vector<double>{64, 32, 16, 8}));
  EXPECT_NEAR(stat.GetFitR2(), 1.0, 1e-12);
}

TEST(FractalBoxCounting, RandomDotsRiseWithDensity)
{
  double previous = 0.0;
  for (double density : {0.01, 0.05, 0.2, 0.6}) {
    auto dots = RandomDots(256, density, 7);
    const double d = Measure(dots.get(), 7);
    EXPECT_GT(d, previous);
    EXPECT_LT(d, 2.0);
    previous = d;
  }
}

TEST(FractalBoxCounting, PaddingAndRoi)
{
  // 97 is prime: the 97 x 97 filled square is padded to 128 with unmeasured pixels.
  auto prime = ImageOf(97, 97, [](unsigned, unsigned) { return 1; });
  IPG_STATISTIC1 stat(prime.get());
  stat.SetBoxSize(32);
  ASSERT_TRUE(stat.FractalDimensionByBoxMethod());
  EXPECT_EQ(stat.GetBoxSizes(), (std::vector<double>{1, 2, 4, 8, 16, 32}));
  EXPECT_EQ(stat.GetBoxCounts(), (std::vector<double>{97 * 97, 49 * 49, 25 * 25, 13 * 13, 7 * 7, 4 * 4}));
  // A ROI that keeps one row of a filled image leaves a line; marks are skipped.
  auto marked = ImageOf(128, 128, [](unsigned col, unsigned) { return col == 5 ? 16777218 : 3; });
  auto roi = ImageOf(128, 128, [](unsigned, unsigned row) { return row == 9 ? 16777217 : 1; });
  EXPECT_NEAR(Measure(marked.get(), 7, 64, roi.get()), 1.0, 0.02);
}

TEST(FractalDbc, ConstantAndFbmSurfaces)
{
  auto flat = ImageOf(128, 128, [](unsigned, unsigned) { return 700; });
  EXPECT_NEAR(Measure(flat.get(), 8), 2.0, 1e-9);
  // Box sides 2 to M / 2. Rougher surfaces measure higher and near 3 - H; the
  // roughest stays further below, as the range of a few pixels misses the
  // surface's variation between them.
  double previous = 3.0;
  for (double h : {0.3, 0.5, 0.8}) {
    auto surface = FbmSurface(256, h, 11);
    const double d = Measure(surface.get(), 8, 128);
    EXPECT_LT(d, previous) << "H = " << h;
    EXPECT_NEAR(d, 3.0 - h, h < 0.4 ? 0.25 : 0.15) << "H = " << h;
    previous = d;
  }
}

TEST(MultiFractal, BinomialCascadeAndUniform)
{
  const double p = 0.35;
  auto cascade = BinomialCascade(8, p);
  IPG_STATISTIC1 stat(cascade.get());
  stat.SetQMin(-3.0);
  stat.SetQMax(3.0);
  stat.SetQStep(0.5);
  ASSERT_TRUE(stat.MultiFractalDimension());
  ASSERT_EQ(stat.GetQValues().size(), 13u);
  for (std::size_t k = 0; k < stat.GetQValues().size(); ++k) {
    const double q = stat.GetQValues()[k];
    const double expected = std::fabs(q - 1.0) < 1e-9
                                ? -2.0 * (p * std::log2(p) + (1 - p) * std::log2(1 - p))
                                : 2.0 * std::log2(std::pow(p, q) + std::pow(1 - p, q)) / (1.0 - q);
    EXPECT_NEAR(stat.GetDq()[k], expected, 0.05) << "q = " << q;
  }
  EXPECT_NEAR(stat.GetResult(), 2.0, 1e-9);
  // f(alpha) peaks at the support's dimension, reached at q = 0.
  EXPECT_NEAR(stat.GetFAlpha()[6], 2.0, 1e-6);

  auto uniform = ImageOf(128, 128, [](unsigned, unsigned) { return 40; });
  IPG_STATISTIC1 flat(uniform.get());
  ASSERT_TRUE(flat.MultiFractalDimension());
  ASSERT_EQ(flat.GetDq().size(), 11u);
  for (double d : flat.GetDq())
    EXPECT_NEAR(d, 2.0, 1e-9);
}

TEST(HolderSpectral, ConstantImageHasOneExponent)
{
  auto flat = ImageOf(64, 64, [](unsigned, unsigned) { return 90; });
  IPG_STATISTIC1 stat(flat.get());
  stat.SetTools(14);
  ASSERT_TRUE(stat.Apply());
  ASSERT_EQ(stat.GetHolderAlpha().size(), 1u);
  EXPECT_NEAR(stat.GetResult(), 0.0, 1e-9);
  EXPECT_NEAR(stat.GetHolderFAlpha()[0], 2.0, 0.05); // the computed pixels fill a square
}

TEST(FractalMeasures, BadInputShowsMessageAndFails)
{
  auto image = ImageOf(64, 64, [](unsigned col, unsigned) { return col % 2; });
  auto tiny = ImageOf(1, 1, [](unsigned, unsigned) { return 1; });
  auto emptyRoi = ImageOf(64, 64, [](unsigned, unsigned) { return 0; });
  auto check = [](DCM_STRUCT* in, DCM_STRUCT* roi, int tools, auto configure) {
    MessageCapture messages;
    IPG_STATISTIC1 stat(in, roi);
    stat.SetTools(tools);
    configure(stat);
    EXPECT_FALSE(stat.Apply()) << "code " << tools;
    EXPECT_EQ(messages.Texts.size(), 1u) << "code " << tools;
  };
  auto none = [](IPG_STATISTIC1&) {};
  for (int tools : {7, 8, 14, 15}) {
    check(image.get(), emptyRoi.get(), tools, none);
    check(tiny.get(), nullptr, tools, none);
    check(image.get(), nullptr, tools, [](IPG_STATISTIC1& s) { s.SetBoxSize(0); });
    check(image.get(), nullptr, tools, [](IPG_STATISTIC1& s) { s.SetBoxSize(65); });
    check(nullptr, nullptr, tools, none);
  }
  check(image.get(), nullptr, 15, [](IPG_STATISTIC1& s) { s.SetQMin(2.0); s.SetQMax(1.0); });
  check(image.get(), nullptr, 15, [](IPG_STATISTIC1& s) { s.SetQStep(0.0); });
  check(image.get(), nullptr, 14, [](IPG_STATISTIC1& s) { s.SetHolderWindowSize(1); });
  auto black = ImageOf(64, 64, [](unsigned, unsigned) { return 0; });
  check(black.get(), nullptr, 7, none);
}

} // namespace
