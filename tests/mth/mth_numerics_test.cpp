#include "mth/mth_funct.h"
#include "mth/mth_laplacian.h"
#include "mth/mth_matrix.h"
#include "mth/mth_random.h"
#include "mth/mth_regression.h"
#include "mth/mth_sort.h"
#include "mth/mth_xy_plot.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

namespace {

MTH_MATRIX FromRows(int rows, int cols, std::initializer_list<double> values)
{
  MTH_MATRIX m(rows, cols);
  int k = 0;
  for (double v : values) {
    m.Set(k / cols, k % cols, v);
    ++k;
  }
  return m;
}

void ExpectMatrixNear(const MTH_MATRIX& a, const MTH_MATRIX& b, double tolerance)
{
  ASSERT_EQ(a.GetNbRows(), b.GetNbRows());
  ASSERT_EQ(a.GetNbCols(), b.GetNbCols());
  for (int i = 0; i < a.GetNbRows(); ++i)
    for (int j = 0; j < a.GetNbCols(); ++j)
      EXPECT_NEAR(a.Get(i, j), b.Get(i, j), tolerance) << "at (" << i << ", " << j << ")";
}

} // namespace

TEST(MthSort, SortsAndCarriesTheIndex)
{
  int values[] = {5, -2, 9, 0, 5};
  Mth_Sort(values, 5);
  EXPECT_EQ(std::vector<int>(values, values + 5), (std::vector<int>{-2, 0, 5, 5, 9}));

  double reals[] = {3.5, 1.0, 2.0, 1.0};
  int index[] = {0, 1, 2, 3};
  Mth_SortVector(reals, index, 4);
  EXPECT_EQ(std::vector<double>(reals, reals + 4), (std::vector<double>{1.0, 1.0, 2.0, 3.5}));
  EXPECT_EQ(std::vector<int>(index, index + 4), (std::vector<int>{1, 3, 2, 0})) << "stable for ties";
}

TEST(MthSort, MedianOfOddAndEvenCounts)
{
  const MTH_MATRIX odd = FromRows(1, 5, {7, 1, 3, 9, 5});
  EXPECT_DOUBLE_EQ(Mth_Median(&odd), 5.0);
  const MTH_MATRIX even = FromRows(2, 2, {4, 1, 10, 2});
  EXPECT_DOUBLE_EQ(Mth_Median(&even), 3.0);
  EXPECT_DOUBLE_EQ(Mth_Median(nullptr), 0.0);
}

TEST(MthRegression, SlopeOfKnownLines)
{
  EXPECT_DOUBLE_EQ(Mth_Pente({0, 1, 2, 3}, {1, 3, 5, 7}), 2.0);
  EXPECT_NEAR(Mth_Pente({1, 2, 3, 4}, {2, 1, 4, 3}), 0.6, 1e-15);
  EXPECT_DOUBLE_EQ(Mth_Pente({2, 2, 2}, {1, 2, 3}), 0.0);
  EXPECT_DOUBLE_EQ(Mth_Pente({1}, {1}), 0.0);

  MTH_XY_PLOT plot;
  for (int k = 0; k < 5; ++k)
    plot.AddPoint(static_cast<float>(k), static_cast<float>(3 - 0.5 * k));
  EXPECT_NEAR(plot.GetLinearRegression(), -0.5, 1e-7);
  EXPECT_NEAR(plot.GetIntercept(), 3.0, 1e-6);
  EXPECT_NEAR(plot.GetCorrelation(), -1.0, 1e-7);
}

TEST(MthXyPlot, ChiSquareBetweenTwoBinnedSets)
{
  MTH_XY_PLOT a, b;
  const float ya[] = {4, 0, 6, 2};
  const float yb[] = {2, 0, 6, 6};
  for (int k = 0; k < 4; ++k) {
    a.AddPoint(static_cast<float>(k), ya[k]);
    b.AddPoint(static_cast<float>(k), yb[k]);
  }
  // (4-2)^2/6 + 0 (empty bin skipped) + 0 + (2-6)^2/8
  EXPECT_NEAR(a.GetChi2(&b), 4.0 / 6.0 + 2.0, 1e-12);
  EXPECT_DOUBLE_EQ(a.GetChi2(&a), 0.0);
}

TEST(MthMatrix, ProductInverseAndTranspose)
{
  const MTH_MATRIX a = FromRows(3, 3, {4, 7, 2, 3, 6, 1, 2, 5, 3});
  const MTH_MATRIX inv = a.Inverse();
  ASSERT_FALSE(inv.IsEmpty());
  MTH_MATRIX identity(3, 3);
  for (int i = 0; i < 3; ++i)
    identity.Set(i, i, 1.0);
  ExpectMatrixNear(a * inv, identity, 1e-12);
  EXPECT_TRUE(FromRows(2, 2, {1, 2, 2, 4}).Inverse().IsEmpty()) << "singular";
  EXPECT_TRUE(FromRows(2, 3, {1, 2, 3, 4, 5, 6}).Inverse().IsEmpty()) << "not square";

  const MTH_MATRIX b = FromRows(2, 3, {1, 2, 3, 4, 5, 6});
  ExpectMatrixNear(b.Transpose(), FromRows(3, 2, {1, 4, 2, 5, 3, 6}), 0.0);
  ExpectMatrixNear(b * b.Transpose(), FromRows(2, 2, {14, 32, 32, 77}), 0.0);
  ExpectMatrixNear(b + b, FromRows(2, 3, {2, 4, 6, 8, 10, 12}), 0.0);
  EXPECT_TRUE((b * b).IsEmpty());
  EXPECT_EQ(b.Get(5, 5), 0.0);
}

TEST(MthMatrix, QrFactorsIntoOrthogonalTimesUpperTriangular)
{
  const MTH_MATRIX a = FromRows(4, 3, {12, -51, 4, 6, 167, -68, -4, 24, -41, 1, 1, 1});
  MTH_MATRIX* q = nullptr;
  MTH_MATRIX r;
  ASSERT_TRUE(a.QR(&q, &r));
  std::unique_ptr<MTH_MATRIX> owned(q);
  ExpectMatrixNear(*q * r, a, 1e-10);
  MTH_MATRIX identity(4, 4);
  for (int i = 0; i < 4; ++i)
    identity.Set(i, i, 1.0);
  ExpectMatrixNear(q->Transpose() * *q, identity, 1e-12);
  for (int i = 1; i < 4; ++i)
    for (int j = 0; j < std::min(i, 3); ++j)
      EXPECT_EQ(r.Get(i, j), 0.0);
  EXPECT_FALSE(FromRows(2, 3, {1, 2, 3, 4, 5, 6}).QR(&q, &r)) << "fewer rows than columns";
}

TEST(MthMatrix, ConvolutionPaddingAndRegions)
{
  const MTH_MATRIX m = FromRows(2, 3, {1, 2, 3, 4, 5, 6});
  const MTH_MATRIX leftTap = FromRows(1, 3, {1, 0, 0}); // flipped by convolution: reads the right neighbour
  ExpectMatrixNear(m.Convolution2D(&leftTap, 0), FromRows(2, 3, {2, 3, 0, 5, 6, 0}), 0.0);
  ExpectMatrixNear(m.Convolution2D(&leftTap, 1), FromRows(2, 3, {2, 3, 3, 5, 6, 6}), 0.0);

  MTH_MATRIX grown = m;
  grown.AddRowBySymetry(1);
  ExpectMatrixNear(grown, FromRows(4, 3, {1, 2, 3, 1, 2, 3, 4, 5, 6, 4, 5, 6}), 0.0);
  grown = m;
  grown.AddColBySymetry(2);
  ExpectMatrixNear(grown, FromRows(2, 7, {2, 1, 1, 2, 3, 3, 2, 5, 4, 4, 5, 6, 6, 5}), 0.0);

  ExpectMatrixNear(m.RegionOfMatrix(0, 1, 5, 2), FromRows(2, 2, {2, 3, 5, 6}), 0.0);
  EXPECT_TRUE(m.RegionOfMatrix(3, 0, 4, 1).IsEmpty());
}

TEST(MthLaplacian, FourAndEightNeighbourhoods)
{
  MTH_MATRIX m(3, 3);
  m.Set(1, 1, 1.0);
  MTH_MATRIX out;
  ASSERT_TRUE(Mth_ComputeLaplacien(&m, &out, 4));
  EXPECT_DOUBLE_EQ(out.Get(1, 1), -4.0);
  EXPECT_DOUBLE_EQ(out.Get(0, 1), 1.0);
  EXPECT_DOUBLE_EQ(out.Get(0, 0), 0.0);
  ASSERT_TRUE(Mth_ComputeLaplacien(&m, &out, 8));
  EXPECT_DOUBLE_EQ(out.Get(1, 1), -8.0);
  EXPECT_DOUBLE_EQ(out.Get(0, 0), 1.0);
  EXPECT_FALSE(Mth_ComputeLaplacien(nullptr, &out, 4));
}

TEST(MthRandom, SeededGeneratorsRepeatAndStayInRange)
{
  Mth_InitRandom1(42);
  const double first = Mth_Random1(1);
  Mth_InitRandom1(42);
  EXPECT_DOUBLE_EQ(Mth_Random1(1), first);

  Mth_InitRandom3(7);
  double sum = 0.0;
  for (int k = 0; k < 10000; ++k) {
    const double v = Mth_Random3(10);
    ASSERT_GE(v, 0.0);
    ASSERT_LT(v, 10.0);
    sum += v;
  }
  EXPECT_NEAR(sum / 10000, 5.0, 0.2);
}

TEST(MthFunct, AnnealingFindsTheMinimumOfAParabola)
{
  MTH_FUNCT f([](const double* x, short) { return (x[0] - 3.0) * (x[0] - 3.0) + (x[1] + 1.0) * (x[1] + 1.0); });
  SIMULATED_ANNEALING_PARAM param;
  double x[2] = {0.0, 0.0};
  double step[2] = {0.5, 0.5};
  const double best = f.ComputeOptimumSimmulatedAnnealing(&param, x, 2, step, 11);
  EXPECT_LT(best, 1e-2);
  EXPECT_NEAR(x[0], 3.0, 0.1);
  EXPECT_NEAR(x[1], -1.0, 0.1);
}
