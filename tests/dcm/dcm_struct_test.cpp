// SPDX-License-Identifier: Apache-2.0
#include "dcm/dcm_struct.h"
#include "support/images.h"

#include <gtest/gtest.h>

TEST(DcmStruct, ParentGivesItsHeaderButNotItsSize)
{
  DCM_STRUCT parent(8, 8, nullptr);
  DCM_HEADER h = parent.GetHeader();
  h.BitsStored = 12;
  h.PhotometricInterpretation = 0;
  h.PixelSpacing[0] = 0.5;
  parent.SetHeader(h);
  DCM_STRUCT child(3, 2, &parent);
  EXPECT_EQ(child.GetHeader().BitsStored, 12);
  EXPECT_EQ(child.GetHeader().PhotometricInterpretation, 0);
  EXPECT_DOUBLE_EQ(child.GetHeader().PixelSpacing[0], 0.5);
  EXPECT_EQ(child.GetHeader().Columns, 3);
  EXPECT_EQ(child.GetHeader().Rows, 2);
}

TEST(DcmStruct, CopyingConstructorCopiesPixelsOnlyWhenAskedAndResizes)
{
  auto src = ImageOf(5, 4, [](unsigned c, unsigned r) { return static_cast<int>(100 * r + c); });
  src->Data->SetPrecision(100);
  DCM_HEADER h = src->GetHeader();
  h.BitsStored = 10;
  src->SetHeader(h);

  DCM_STRUCT full(*src, true);
  EXPECT_EQ(full.GetHeader().BitsStored, 10);
  EXPECT_EQ(full.Data->GetPrecision(), 100);
  EXPECT_EQ(full.Data->GetValue(4, 3), 304);
  EXPECT_EQ(full.Data->GetMax(), 304);
  full.Data->SetValue(0u, 0u, 7);
  EXPECT_EQ(src->Data->GetValue(0, 0), 0) << "the copy owns its pixels";

  DCM_STRUCT empty(*src, false);
  EXPECT_EQ(empty.GetHeader().BitsStored, 10);
  EXPECT_EQ(empty.Data->GetPrecision(), 100);
  EXPECT_EQ(empty.Data->GetValue(4, 3), 0);
  EXPECT_EQ(empty.Data->GetMax(), 0);

  // A resizing copy keeps the overlap.
  DCM_STRUCT smaller(*src, true, 2, 3);
  EXPECT_EQ(smaller.GetNbOfCols(), 2u);
  EXPECT_EQ(smaller.GetNbOfRows(), 3u);
  EXPECT_EQ(smaller.GetHeader().Columns, 2);
  EXPECT_EQ(smaller.Data->GetValue(1, 2), 201);

  DCM_STRUCT larger(*src, true, 7, -1);
  EXPECT_EQ(larger.GetNbOfCols(), 7u);
  EXPECT_EQ(larger.GetNbOfRows(), 4u);
  EXPECT_EQ(larger.Data->GetValue(4, 3), 304);
  EXPECT_EQ(larger.Data->GetValue(6, 3), 0);
}

TEST(DcmStruct, RefusesSidesAbove65535AndMapsPixelsToPatientSpace)
{
  EXPECT_THROW(DCM_STRUCT(65536, 1, nullptr), DCM_SIZE_ERROR);
  EXPECT_THROW(DCM_STRUCT(1, 70000, nullptr), DCM_SIZE_ERROR);
  DCM_STRUCT src(2, 2, nullptr);
  EXPECT_THROW(DCM_STRUCT(src, false, 65536, 2), DCM_SIZE_ERROR);
  EXPECT_NO_THROW(DCM_STRUCT(65535, 1, nullptr));

  DCM_STRUCT image(10, 10, nullptr);
  DCM_HEADER h = image.GetHeader();
  h.PixelSpacing[0] = 2.0; // between rows
  h.PixelSpacing[1] = 0.5; // between columns
  image.SetHeader(h);
  MTH_3D_DOUBLE origin(10.0, 20.0, 30.0);
  MTH_3D_VECT_DOUBLE rowDir(0.0, 1.0, 0.0), colDir(0.0, 0.0, -1.0);
  image.SetImagePosition(&origin);
  image.SetRowDirection(&rowDir);
  image.SetColumnDirection(&colDir);
  MTH_3D_DOUBLE p;
  image.Get3DCoord(4, 3, &p);
  EXPECT_DOUBLE_EQ(p.GetX(), 10.0);
  EXPECT_DOUBLE_EQ(p.GetY(), 22.0);
  EXPECT_DOUBLE_EQ(p.GetZ(), 24.0);
  EXPECT_DOUBLE_EQ(image.GetRowDirection().GetY(), 1.0);
  EXPECT_DOUBLE_EQ(image.GetColumnDirection().GetZ(), -1.0);
}

