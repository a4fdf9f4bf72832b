// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_snake_kernels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

TEST(SnakeKernels, MatrixSolveUndoesTheCyclicPentadiagonalProduct)
{
  const double alpha = 0.3, beta = 0.7, gamma = 0.5;
  for (int n : {5, 6, 7, 64}) {
    std::vector<double> x(static_cast<std::size_t>(n)), b(x.size());
    for (int i = 0; i < n; ++i)
      x[static_cast<std::size_t>(i)] = std::sin(1.7 * i) + 0.1 * i;
    auto at = [&](int i) { return x[static_cast<std::size_t>((i % n + n) % n)]; };
    for (int i = 0; i < n; ++i) // beta, -(alpha + 4 beta), 2 alpha + 6 beta + gamma, wrapping
      b[static_cast<std::size_t>(i)] = beta * (at(i - 2) + at(i + 2)) - (alpha + 4 * beta) * (at(i - 1) + at(i + 1)) +
                                       (2 * alpha + 6 * beta + gamma) * at(i);
    IPG_SNAKE_MATRIX matrix;
    ASSERT_TRUE(matrix.Factorise(n, alpha, beta, gamma)) << n;
    matrix.Solve(b);
    for (int i = 0; i < n; ++i)
      EXPECT_NEAR(b[static_cast<std::size_t>(i)], at(i), 1e-12) << n << " " << i;
  }
  IPG_SNAKE_MATRIX matrix;
  EXPECT_FALSE(matrix.Factorise(4, alpha, beta, gamma));
}

TEST(SnakeKernels, ResamplingSpreadsPointsEvenlyAlongTheClosedPolygon)
{
  const IPG_CONTOUR square{{0, 4, 4, 0}, {0, 0, 4, 4}};
  const IPG_CONTOUR eight = Ipg_ResampleContour(square, 8);
  const std::vector<double> x{0, 2, 4, 4, 4, 2, 0, 0}, y{0, 0, 0, 2, 4, 4, 4, 2};
  EXPECT_EQ(eight.X, x);
  EXPECT_EQ(eight.Y, y);
  EXPECT_DOUBLE_EQ(Ipg_ContourArea(eight), 16.0);
}
