// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_polynomial_warp.h"

#include <gtest/gtest.h>

#include <random>

namespace {

IPG_POLYNOMIAL_WARP Frame(int order)
{
  IPG_POLYNOMIAL_WARP warp;
  warp.Order = order;
  warp.CentreX = 1023.5;
  warp.CentreY = 767.5;
  warp.Scale = 1024.0;
  return warp;
}

TEST(IpgPolynomialWarp, OrderFiveRecoveredExactlyDegenerateLayoutsRefused)
{
  // A known order-5 mapping over a 2048 x 1536 image, sampled at 40 points.
  IPG_POLYNOMIAL_WARP truth = Frame(5);
  std::mt19937 random(11);
  std::uniform_real_distribution<double> coefficient(-3.0, 3.0);
  for (int t = 0; t < Ipg_PolynomialTermCount(5); ++t) {
    truth.X.push_back(coefficient(random));
    truth.Y.push_back(coefficient(random));
  }
  truth.X[0] = 1000.0;
  truth.X[1] = 1020.0; // mostly the identity, as a distortion is
  truth.Y[2] = 1030.0;
  std::uniform_real_distribution<double> col(0.0, 2047.0), row(0.0, 1535.0);
  std::vector<IPG_POINT_PAIR> pairs;
  for (int i = 0; i < 40; ++i) {
    IPG_POINT_PAIR p{col(random), row(random)};
    Ipg_EvaluateWarp(truth, p.FromX, p.FromY, p.ToX, p.ToY);
    pairs.push_back(p);
  }
  IPG_POLYNOMIAL_WARP fitted = Frame(5);
  ASSERT_TRUE(Ipg_FitPolynomialWarp(pairs, fitted));
  for (int t = 0; t < Ipg_PolynomialTermCount(5); ++t) {
    EXPECT_NEAR(fitted.X[t], truth.X[t], 1e-7) << t;
    EXPECT_NEAR(fitted.Y[t], truth.Y[t], 1e-7) << t;
  }

  // 20 points for 21 terms; 40 points on one line leave the v terms free.
  pairs.resize(20);
  EXPECT_FALSE(Ipg_FitPolynomialWarp(pairs, fitted));
  EXPECT_TRUE(fitted.X.empty());
  std::vector<IPG_POINT_PAIR> line;
  for (int i = 0; i < 40; ++i)
    line.push_back({50.0 * i, 25.0 * i, 50.0 * i, 25.0 * i});
  EXPECT_FALSE(Ipg_FitPolynomialWarp(line, fitted));
}

} // namespace
