// SPDX-License-Identifier: Apache-2.0
#include "ipg/segmentation/ipg_deformable_surface.h"

#include "dcm/dcm_phantom.h"
#include "ipg/filtering/ipg_filter_processing.h"
#include "support/images.h"
#include "support/message_capture.h"
#include "support/progress_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

// 2 |A and B| / (|A| + |B|) of two masks, each given by its inside test.
double Dice(const DCM_STRUCT& a, const std::function<bool(unsigned, unsigned)>& inB)
{
  double both = 0.0, sizes = 0.0;
  for (unsigned r = 0; r < a.GetNbOfRows(); ++r)
    for (unsigned c = 0; c < a.GetNbOfCols(); ++c) {
      const bool inA = a.Data->GetValue(c, r) == kRoiInside;
      both += inA && inB(c, r);
      sizes += inA + inB(c, r);
    }
  return 2.0 * both / sizes;
}

std::unique_ptr<DCM_STRUCT> Median(DCM_STRUCT& in, int side)
{
  auto out = std::make_unique<DCM_STRUCT>(in, false);
  IPG_FILTER_PROCESSING filter(&in);
  filter.SetImaOut(out.get());
  std::vector<int> window(static_cast<std::size_t>(side * side), 1);
  filter.SetUserFilter(window.data(), side, side);
  EXPECT_TRUE(filter.MedianFilter());
  return out;
}

// Xu & Prince's test object: a bright square with a deep slot open at the top.
constexpr unsigned kUSide = 64;
bool InSlot(unsigned c, unsigned r) { return c >= 24 && c < 40 && r >= 12 && r < 36; }
bool InsideU(unsigned c, unsigned r) { return c >= 12 && c < 52 && r >= 12 && r < 52 && !InSlot(c, r); }

// The fraction of the slot's pixels that the snake's mask leaves out.
double SlotEntered(const DCM_STRUCT& mask)
{
  double left = 0.0, slot = 0.0;
  for (unsigned r = 0; r < kUSide; ++r)
    for (unsigned c = 0; c < kUSide; ++c)
      if (InSlot(c, r)) {
        slot += 1.0;
        left += mask.Data->GetValue(c, r) != kRoiInside;
      }
  return left / slot;
}

} // namespace

TEST(DeformableSurface, GvfSnakeFromACircleSegmentsTheDespeckledCyst)
{
  DCM_PHANTOM phantom = Dcm_MakePhantom({});
  double cx = 0.0, cy = 0.0, n = 0.0;
  for (unsigned r = 0; r < 256; ++r)
    for (unsigned c = 0; c < 256; ++c)
      if (phantom.Mask->Data->GetValue(c, r) == kDcmPhantomCyst) {
        cx += c;
        cy += r;
        n += 1.0;
      }
  auto despeckled = Median(*phantom.Image, 7);
  DCM_STRUCT out(*despeckled, false);
  IPG_DEFORMABLE_SURFACE snake(despeckled.get(), nullptr, &out);
  snake.SetCentre(cx / n, cy / n);
  snake.SetRadius(50.0);
  ASSERT_TRUE(snake.Apply());

  EXPECT_GE(Dice(out, [&](unsigned c, unsigned r) { return phantom.Mask->Data->GetValue(c, r) == kDcmPhantomCyst; }),
            0.9);
  // The contour is written back beside the mask, and the area agrees with it.
  const OBJ_OBJECTS_LIST* objects = despeckled->GetObjectsList();
  ASSERT_EQ(objects->GetNbObjects(), 1);
  EXPECT_EQ(objects->GetObject(0)->GetName(), "Snake");
  EXPECT_EQ(objects->GetObject(0)->GetNbPoints(), 100);
  const std::vector<int> mask = PixelsOf(out);
  const double inside = static_cast<double>(std::count(mask.begin(), mask.end(), kRoiInside));
  EXPECT_NEAR(snake.GetResult(), inside, 0.02 * inside);
}

TEST(DeformableSurface, GvfEntersAConcavityThatTheEdgeGradientMisses)
{
  auto u = ImageOf(kUSide, kUSide, [](unsigned c, unsigned r) { return InsideU(c, r) ? 200 : 20; });
  auto run = [&](int gvfIterations) {
    auto out = std::make_unique<DCM_STRUCT>(*u, false);
    IPG_DEFORMABLE_SURFACE snake(u.get(), nullptr, out.get());
    snake.SetCentre(31.5, 31.5);
    snake.SetRadius(30.0);
    snake.SetGvfIterations(gvfIterations);
    EXPECT_TRUE(snake.Apply());
    return out;
  };
  const auto gvf = run(200), gradient = run(0);
  EXPECT_GE(SlotEntered(*gvf), 0.8);
  EXPECT_LE(SlotEntered(*gradient), 0.3);
  EXPECT_GE(Dice(*gvf, InsideU), 0.9);
}

TEST(DeformableSurface, BadInputGivesItsMessageAndFalse)
{
  const std::string apply = "IPG_DEFORMABLE_SURFACE::Apply()";
  const std::string where = "IPG_DEFORMABLE_SURFACE::GradientVectorFlowSnake()";
  auto in = ImageOf(32, 32, [](unsigned c, unsigned r) { return c > 10 && c < 20 && r > 10 && r < 20 ? 100 : 0; });
  auto one = ImageOf(1, 1, {7});
  DCM_STRUCT out(*in, false), small(*one, false);
  auto withList = [&](std::initializer_list<MTH_2D_DOUBLE> points) {
    auto image = ImageOf(32, 32, PixelsOf(*in));
    auto* object = new OBJ_OBJECT(image.get());
    for (const MTH_2D_DOUBLE& p : points)
      object->AddPoint(p.GetX(), p.GetY());
    image->GetObjectsList()->Add(object);
    return image;
  };
  auto twoPoints = withList({{5.0, 5.0}, {20.0, 9.0}});
  struct Case {
    DCM_STRUCT* in;
    DCM_STRUCT* out;
    void (*set)(IPG_DEFORMABLE_SURFACE&);
    std::string message;
  };
  const Case cases[] = {
      {nullptr, &out, [](IPG_DEFORMABLE_SURFACE&) {}, "Pas d'image d'entrée!"},
      {in.get(), nullptr, [](IPG_DEFORMABLE_SURFACE&) {}, "image de sortie non allouée"},
      {in.get(), &small, [](IPG_DEFORMABLE_SURFACE&) {}, "Les images n'ont pas les mêmes dimensions : " + apply},
      {one.get(), &small, [](IPG_DEFORMABLE_SURFACE&) {}, "Image trop petite : " + where},
      {in.get(), &out, [](IPG_DEFORMABLE_SURFACE& op) { op.SetIterations(-1); },
       "Nombre d'itérations négatif ou nul : " + where},
      {in.get(), &out, [](IPG_DEFORMABLE_SURFACE& op) { op.SetGvfIterations(-1); },
       "Paramètre GvfIterations hors limites : " + apply},
      {in.get(), &out, [](IPG_DEFORMABLE_SURFACE& op) { op.SetGamma(0.0); }, "Paramètre Gamma hors limites : " + apply},
      {in.get(), &out, [](IPG_DEFORMABLE_SURFACE& op) { op.SetNbPoints(7); },
       "Pas assez de points dans le contour : " + where},
      {in.get(), &out, [](IPG_DEFORMABLE_SURFACE& op) { op.SetContourIndex(0); },
       "Contour initial absent de la liste d'objets : " + where},
      {twoPoints.get(), &out, [](IPG_DEFORMABLE_SURFACE& op) { op.SetContourIndex(0); },
       "Pas assez de points dans le contour : " + where},
      {in.get(), &out, [](IPG_DEFORMABLE_SURFACE& op) { op.SetRadius(0.0); }, "Rayon négatif ou nul : " + where},
      {in.get(), &out, [](IPG_DEFORMABLE_SURFACE& op) { op.SetCentre(5.0, 16.0); },
       "Le cercle initial sort de l'image : " + where},
  };
  for (const Case& c : cases) {
    IPG_DEFORMABLE_SURFACE snake(c.in, nullptr, c.out);
    c.set(snake);
    MessageCapture messages;
    EXPECT_FALSE(snake.Apply()) << c.message;
    EXPECT_EQ(messages.Texts, std::vector<std::string>{c.message});
  }
  EXPECT_EQ(twoPoints->GetObjectsList()->GetNbObjects(), 1);
}

TEST(DeformableSurface, ReportsEachIterationAndStopsWhenCancelled)
{
  auto in = ImageOf(32, 32, [](unsigned c, unsigned r) { return c > 10 && c < 20 && r > 10 && r < 20 ? 100 : 0; });
  DCM_STRUCT out(*in, false);
  IPG_DEFORMABLE_SURFACE snake(in.get(), nullptr, &out);
  snake.SetGvfIterations(20);
  snake.SetIterations(30);
  {
    ProgressCapture progress;
    ASSERT_TRUE(snake.Apply());
    EXPECT_EQ(progress.Events.front(), "open Contour actif (GVF) 50");
    EXPECT_EQ(progress.Steps, 50);
  }
  ProgressCapture progress;
  progress.CancelAfter = 25; // during the snake's steps
  MessageCapture messages;
  EXPECT_FALSE(snake.Apply());
  EXPECT_EQ(messages.Texts, std::vector<std::string>{"Opération annulée par l'utilisateur"});
  EXPECT_EQ(progress.Events.back(), "close");
  EXPECT_EQ(in->GetObjectsList()->GetNbObjects(), 1);
}
