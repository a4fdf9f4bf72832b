// SPDX-License-Identifier: Apache-2.0
#include "ipg/segmentation/ipg_convert_binary_to_object.h"

#include "dcm/obj_objects_list.h"
#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

namespace {

TEST(ConvertBinaryToObject, KeepsTheLargestComponentsAsContoursAtLeastOne)
{
  auto mask = MaskFromText({"XXX...X",
                            "XXX....",
                            "XXX.XX.",
                            "....XX."});
  DCM_STRUCT out(7, 4);
  IPG_CONVERT_BINARY_TO_OBJECT op(mask.get(), nullptr);
  EXPECT_EQ(op.GetNumberOfContour(), 10);
  EXPECT_EQ(op.GetStep(), 5);
  EXPECT_TRUE(op.GetSesCheck());
  EXPECT_FALSE(op.GetRtCheck());
  op.SetImaOut(&out);
  op.SetNumberOfContour(2);
  op.SetStep(1);
  op.GetTemplate()->SetName("lesion");
  ASSERT_TRUE(op.Apply());
  OBJ_OBJECTS_LIST* list = out.GetObjectsList();
  ASSERT_EQ(list->GetNbObjects(), 2);
  EXPECT_EQ(list->GetObject(0)->GetNbPoints(), 8); // the 3 x 3 square
  EXPECT_EQ(list->GetObject(1)->GetNbPoints(), 4); // the 2 x 2 square
  EXPECT_EQ(list->GetObject(0)->GetName(), "lesion");
  EXPECT_EQ(out.Data->GetMax(), 0); // pixels untouched
  std::unique_ptr<DCM_STRUCT> back(list->GetBinaryImage("lesion"));
  EXPECT_EQ(TextFromMask(*back), (std::vector<std::string>{"XXX....", "XXX....", "XXX.XX.", "....XX."}));

  // A count below 1 keeps one; an empty mask gives nothing.
  auto pair = MaskFromText({"X.XX"});
  DCM_STRUCT pairOut(4, 1);
  IPG_CONVERT_BINARY_TO_OBJECT one(pair.get(), nullptr);
  one.SetImaOut(&pairOut);
  one.SetNumberOfContour(0);
  ASSERT_TRUE(one.Apply());
  ASSERT_EQ(pairOut.GetObjectsList()->GetNbObjects(), 1);
  EXPECT_EQ(pairOut.GetObjectsList()->GetObject(0)->GetPoint(0).GetX(), 2.0);

  auto empty = MaskFromText({"...."});
  DCM_STRUCT none(4, 1);
  IPG_CONVERT_BINARY_TO_OBJECT emptyOp(empty.get(), nullptr);
  emptyOp.SetImaOut(&none);
  EXPECT_TRUE(emptyOp.Apply());
  EXPECT_EQ(none.GetObjectsList()->GetNbObjects(), 0);
}

TEST(ConvertBinaryToObject, FailsOnTheLabelLimitAndWithoutImages)
{
  MessageCapture capture;
  std::string row;
  for (int i = 0; i < 2001; ++i)
    row += "X.";
  auto mask = MaskFromText({row});
  DCM_STRUCT out(mask->GetNbOfCols(), 1);
  IPG_CONVERT_BINARY_TO_OBJECT op(mask.get(), nullptr);
  op.SetImaOut(&out);
  EXPECT_FALSE(op.Apply());
  EXPECT_EQ(out.GetObjectsList()->GetNbObjects(), 0);
  EXPECT_EQ(capture.Texts, (std::vector<std::string>{"Nombre d'étiquettes max dépassés"}));

  IPG_CONVERT_BINARY_TO_OBJECT bare;
  EXPECT_FALSE(bare.Apply());
  bare.SetImaIn(mask.get());
  EXPECT_FALSE(bare.Apply());
  EXPECT_EQ(capture.Texts.size(), 1u);

  op.SetStep(3);
  op.GetTemplate()->SetName("copy");
  IPG_CONVERT_BINARY_TO_OBJECT copy(op);
  EXPECT_EQ(copy.GetStep(), 3);
  EXPECT_EQ(copy.GetTemplate()->GetName(), "copy");
  EXPECT_NE(copy.GetTemplate(), op.GetTemplate());
  EXPECT_EQ(copy.GetImaIn(), nullptr);
}

} // namespace
