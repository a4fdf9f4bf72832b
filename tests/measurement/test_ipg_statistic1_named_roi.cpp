#include "ipg/measurement/ipg_statistic1.h"

#include "dcm/dcm_struct.h"
#include "dcm/obj_objects_list.h"

#include <gtest/gtest.h>

namespace {

TEST(Statistic1NamedRoi, MeasuresInsideTheNamedContourAndOwnsTheMask)
{
  DCM_STRUCT image(6, 6);
  for (unsigned r = 0; r < 6; ++r)
    for (unsigned c = 0; c < 6; ++c)
      image.Data->SetValue(c, r, static_cast<int>(c < 3 && r < 3 ? 10 : 70));
  auto* square = new OBJ_OBJECT(&image);
  square->SetName("liver");
  square->AddPoint(0, 0);
  square->AddPoint(2, 0);
  square->AddPoint(2, 2);
  square->AddPoint(0, 2);
  image.GetObjectsList()->Add(square);

  IPG_STATISTIC1 stat(&image, std::string("liver"));
  EXPECT_TRUE(stat.GetOwnsRoi());
  ASSERT_NE(stat.GetRoi(), nullptr);
  EXPECT_EQ(stat.GetTools(), 0);
  ASSERT_TRUE(stat.Apply());
  EXPECT_DOUBLE_EQ(stat.GetResult(), 10.0);

  IPG_STATISTIC1 absent(&image, std::string("spleen")); // an empty mask selects nothing
  ASSERT_TRUE(absent.Apply());
  EXPECT_DOUBLE_EQ(absent.GetResult(), -1.0);
  IPG_STATISTIC1 none(nullptr, std::string("liver"));
  EXPECT_EQ(none.GetRoi(), nullptr);
}

} // namespace
