// SPDX-License-Identifier: Apache-2.0
#include "mth/mth_matrix.h"

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
