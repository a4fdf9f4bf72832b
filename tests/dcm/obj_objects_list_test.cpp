// SPDX-License-Identifier: Apache-2.0
#include "dcm/obj_objects_list.h"
#include "support/images.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using Points = std::vector<std::pair<double, double>>;

Points PointsOf(const OBJ_OBJECT* object)
{
  Points out;
  for (const MTH_2D_DOUBLE& p : object->GetPoints())
    out.emplace_back(p.GetX(), p.GetY());
  return out;
}

// Traces mask into the list of a fresh image of the same size.
std::unique_ptr<DCM_STRUCT> Traced(const DCM_STRUCT& mask, short step = 1)
{
  auto image = std::make_unique<DCM_STRUCT>(mask.GetNbOfCols(), mask.GetNbOfRows());
  image->GetObjectsList()->GetFromBinaryImageWithOffset(const_cast<DCM_STRUCT*>(&mask), nullptr, step, 0, 0);
  return image;
}

TEST(ContourTracing, TracingOrderRingsDiagonalsGapsStepsOffsetsAndTemplates)
{
  auto mask = MaskFromText({".....", ".XXX.", ".XXX.", ".XXX.", "....."});
  auto image = Traced(*mask);
  OBJ_OBJECTS_LIST* list = image->GetObjectsList();
  ASSERT_EQ(list->GetNbObjects(), 1);
  EXPECT_EQ(PointsOf(list->GetObject(0)),
            (Points{{1, 1}, {2, 1}, {3, 1}, {3, 2}, {3, 3}, {2, 3}, {1, 3}, {1, 2}}));
  EXPECT_EQ(list->GetObject(0)->GetImage(), image.get());
  double x = 0, y = 0;
  list->GetObject(0)->GetObjectGravityCenter(&x, &y);
  EXPECT_DOUBLE_EQ(x, 2.0);
  EXPECT_DOUBLE_EQ(y, 2.0);

  // A one-pixel-wide arm is walked out and back, so its pixels appear twice.
  auto arm = Traced(*MaskFromText({"X..", "X..", "XXX"}));
  ASSERT_EQ(arm->GetObjectsList()->GetNbObjects(), 1);
  EXPECT_EQ(PointsOf(arm->GetObjectsList()->GetObject(0)),
            (Points{{0, 0}, {0, 1}, {1, 2}, {2, 2}, {1, 2}, {0, 2}, {0, 1}}));

  auto ring = Traced(*MaskFromText({"XXXX", "X..X", "X..X", "XXXX"}));
  ASSERT_EQ(ring->GetObjectsList()->GetNbObjects(), 1);
  EXPECT_EQ(ring->GetObjectsList()->GetObject(0)->GetNbPoints(), 12);
  std::unique_ptr<DCM_STRUCT> filled(ring->GetObjectsList()->GetBinaryImage("Object"));
  EXPECT_EQ(TextFromMask(*filled), (std::vector<std::string>{"XXXX", "XXXX", "XXXX", "XXXX"}));

  auto diagonal = MaskFromText({"XX..", "XX..", "..XX", "..XX"});
  auto one = Traced(*diagonal);
  ASSERT_EQ(one->GetObjectsList()->GetNbObjects(), 1);
  EXPECT_EQ(PointsOf(one->GetObjectsList()->GetObject(0)),
            (Points{{0, 0}, {1, 0}, {1, 1}, {2, 2}, {3, 2}, {3, 3}, {2, 3}, {2, 2}, {1, 1}, {0, 1}}));
  std::unique_ptr<DCM_STRUCT> back(one->GetObjectsList()->GetBinaryImage("Object"));
  EXPECT_EQ(TextFromMask(*back), TextFromMask(*diagonal));

  auto apart = MaskFromText({"X.X", "...", "X.."});
  auto three = Traced(*apart);
  ASSERT_EQ(three->GetObjectsList()->GetNbObjects(), 3);
  EXPECT_EQ(PointsOf(three->GetObjectsList()->GetObject(1)), (Points{{2, 0}}));

  auto onlySet = Traced(*ImageOf(3, 1, {1, 255, kRoiInside})); // only the set value counts
  ASSERT_EQ(onlySet->GetObjectsList()->GetNbObjects(), 1);
  EXPECT_EQ(PointsOf(onlySet->GetObjectsList()->GetObject(0)), (Points{{2, 0}}));

  // Step, offsets and a template shape the objects.
  auto block = MaskFromText({"XXX", "XXX", "XXX", "XX."});
  DCM_STRUCT traced(3, 4);
  OBJ_OBJECT model;
  model.SetName("liver");
  model.SetLineColor(1, 2, 3);
  model.AddPoint(9, 9); // a model's own points are not copied
  EXPECT_EQ(traced.GetObjectsList()->GetFromBinaryImageWithOffset(block.get(), &model, 3, 10, 20), 1);
  const OBJ_OBJECT* object = traced.GetObjectsList()->GetObject("liver");
  ASSERT_NE(object, nullptr);
  // Boundary: (0,0) (1,0) (2,0) (2,1) (2,2) (1,3) (0,3) (0,2) (0,1); every third.
  EXPECT_EQ(PointsOf(object), (Points{{10, 20}, {12, 21}, {10, 23}}));
  char r = 0, g = 0, b = 0;
  object->GetLineColor(&r, &g, &b);
  EXPECT_EQ(r, 1);
  EXPECT_EQ(b, 3);
  EXPECT_EQ(traced.GetObjectsList()->GetFromBinaryImageWithOffset(nullptr, &model, 3, 0, 0), 0);
}

TEST(BinaryImage, FillsPolygonsWithTheirEdgesUnknownNamesGiveAnEmptyMask)
{
  DCM_STRUCT image(4, 3);
  std::unique_ptr<DCM_STRUCT> none(image.GetObjectsList()->GetBinaryImage("absent"));
  ASSERT_NE(none, nullptr);
  EXPECT_EQ(none->GetNbOfCols(), 4u);
  EXPECT_EQ(none->Data->GetMax(), 0);
  OBJ_OBJECTS_LIST loose;
  EXPECT_EQ(loose.GetBinaryImage("Object"), nullptr);

  // Polygons are filled with their edges.
  DCM_STRUCT canvas(7, 7);
  auto* triangle = new OBJ_OBJECT(&canvas);
  triangle->SetName("t");
  triangle->AddPoint(0, 0);
  triangle->AddPoint(6, 0);
  triangle->AddPoint(0, 6);
  canvas.GetObjectsList()->Add(triangle);
  std::unique_ptr<DCM_STRUCT> mask(canvas.GetObjectsList()->GetBinaryImage("t"));
  EXPECT_EQ(TextFromMask(*mask), (std::vector<std::string>{"XXXXXXX", "XXXXXX.", "XXXXX..", "XXXX...", "XXX....",
                                                   "XX.....", "X......"}));
  EXPECT_EQ(mask->Data->GetMax(), kRoiInside);
}

// Background pixels that no 4-connected path joins to the border are holes of
// the 8-connected foreground; the outer contours enclose them.
std::vector<std::string> WithHolesFilled(const std::vector<std::string>& rows)
{
  const int h = static_cast<int>(rows.size()), w = static_cast<int>(rows[0].size());
  std::vector<std::string> out(static_cast<std::size_t>(h), std::string(static_cast<std::size_t>(w), 'X'));
  std::vector<std::pair<int, int>> todo;
  for (int r = 0; r < h; ++r)
    for (int c = 0; c < w; ++c)
      if ((r == 0 || c == 0 || r == h - 1 || c == w - 1) && rows[r][c] != 'X' && out[r][c] == 'X') {
        out[r][c] = '.';
        todo.push_back({c, r});
      }
  while (!todo.empty()) {
    auto [c, r] = todo.back();
    todo.pop_back();
    const int dc[] = {1, -1, 0, 0}, dr[] = {0, 0, 1, -1};
    for (int k = 0; k < 4; ++k) {
      const int nc = c + dc[k], nr = r + dr[k];
      if (nc >= 0 && nr >= 0 && nc < w && nr < h && rows[nr][nc] != 'X' && out[nr][nc] == 'X') {
        out[nr][nc] = '.';
        todo.push_back({nc, nr});
      }
    }
  }
  return out;
}

TEST(BinaryImage, MaskToContoursToMaskRoundTrip)
{
  std::mt19937 random(2024);
  for (int trial = 0; trial < 40; ++trial) {
    const int w = 5 + static_cast<int>(random() % 30), h = 5 + static_cast<int>(random() % 30);
    std::bernoulli_distribution set(0.3 + 0.01 * trial);
    std::vector<std::string> rows(static_cast<std::size_t>(h));
    for (auto& row : rows)
      for (int c = 0; c < w; ++c)
        row += set(random) ? 'X' : '.';
    auto image = Traced(*MaskFromText(rows));
    std::unique_ptr<DCM_STRUCT> back(image->GetObjectsList()->GetBinaryImage("Object"));
    ASSERT_EQ(TextFromMask(*back), WithHolesFilled(rows)) << "trial " << trial;
  }
}

} // namespace
