// SPDX-License-Identifier: Apache-2.0
#include "ipg/segmentation/ipg_deformable_surface_cost_fct.h"

#include "ipg/segmentation/ipg_deformable_surface.h"
#include "support/images.h"
#include "support/message_capture.h"
#include "support/progress_capture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>

namespace {

// A bright ellipse, centre (60.3, 66.7), semi-axes 38 and 20, its long axis
// 0.6 rad from the columns toward the rows.
constexpr double kCx = 60.3, kCy = 66.7, kA = 38.0, kB = 20.0, kAngle = 0.6;
bool InsideEllipse(unsigned c, unsigned r)
{
  const double dx = c - kCx, dy = r - kCy;
  const double u = dx * std::cos(kAngle) + dy * std::sin(kAngle), v = -dx * std::sin(kAngle) + dy * std::cos(kAngle);
  return u * u / (kA * kA) + v * v / (kB * kB) <= 1.0;
}

std::unique_ptr<DCM_STRUCT> EllipseImage()
{
  return ImageOf(128, 128, [](unsigned c, unsigned r) { return InsideEllipse(c, r) ? 200 : 40; });
}

} // namespace

TEST(DeformableSurfaceCostFct, AnnealingRecoversAnEllipseThatTheSnakeThenRefines)
{
  auto in = EllipseImage();
  DCM_STRUCT out(*in, false);
  // From the default start: the circle of radius 32 in the middle.
  IPG_DEFORMABLE_SURFACE_COST_FCT fit(in.get(), nullptr, &out);
  ASSERT_TRUE(fit.Apply());
  const std::vector<double>& e = fit.GetEllipse();
  ASSERT_EQ(e.size(), 5u);
  EXPECT_NEAR(e[0], kCx, 1.0);
  EXPECT_NEAR(e[1], kCy, 1.0);
  EXPECT_NEAR(e[2], kA, 1.5);
  EXPECT_NEAR(e[3], kB, 1.5);
  EXPECT_NEAR(e[4], kAngle, 0.05);
  EXPECT_LT(fit.GetResult(), -0.9); // nearly the whole outline crosses the edge
  EXPECT_EQ(out.Data->GetValue(60, 66), kRoiInside);
  EXPECT_EQ(out.Data->GetValue(5, 5), 0);

  // The snake starts from the fitted contour left in the list.
  ASSERT_EQ(in->GetObjectsList()->GetNbObjects(), 1);
  EXPECT_EQ(in->GetObjectsList()->GetObject(0)->GetName(), "Ellipse");
  IPG_DEFORMABLE_SURFACE snake(in.get(), nullptr, &out);
  snake.SetContourIndex(0);
  ASSERT_TRUE(snake.Apply());
  EXPECT_EQ(in->GetObjectsList()->GetNbObjects(), 2);
  double both = 0.0, sizes = 0.0;
  for (unsigned r = 0; r < 128; ++r)
    for (unsigned c = 0; c < 128; ++c) {
      const bool inMask = out.Data->GetValue(c, r) == kRoiInside;
      both += inMask && InsideEllipse(c, r);
      sizes += inMask + InsideEllipse(c, r);
    }
  EXPECT_GE(2.0 * both / sizes, 0.95);
}

TEST(DeformableSurfaceCostFct, BadInputGivesItsMessageAndFalse)
{
  const std::string apply = "IPG_DEFORMABLE_SURFACE_COST_FCT::Apply()";
  const std::string where = "IPG_DEFORMABLE_SURFACE_COST_FCT::FitEllipseByAnnealing()";
  auto in = EllipseImage();
  auto one = ImageOf(1, 1, {7});
  DCM_STRUCT out(*in, false), small(*one, false);
  struct Case {
    DCM_STRUCT* in;
    DCM_STRUCT* out;
    void (*set)(IPG_DEFORMABLE_SURFACE_COST_FCT&);
    std::string message;
  };
  const Case cases[] = {
      {nullptr, &out, [](IPG_DEFORMABLE_SURFACE_COST_FCT&) {}, "Pas d'image d'entrée!"},
      {in.get(), nullptr, [](IPG_DEFORMABLE_SURFACE_COST_FCT&) {}, "image de sortie non allouée"},
      {in.get(), &small, [](IPG_DEFORMABLE_SURFACE_COST_FCT&) {},
       "Les images n'ont pas les mêmes dimensions : " + apply},
      {one.get(), &small, [](IPG_DEFORMABLE_SURFACE_COST_FCT&) {}, "Image trop petite : " + where},
      {in.get(), &out, [](IPG_DEFORMABLE_SURFACE_COST_FCT& op) { op.SetNbPoints(7); },
       "Pas assez de points dans le contour : " + where},
      {in.get(), &out, [](IPG_DEFORMABLE_SURFACE_COST_FCT& op) { op.SetSemiAxes(10.0, 0.0); },
       "Rayon négatif ou nul : " + where},
      {in.get(), &out, [](IPG_DEFORMABLE_SURFACE_COST_FCT& op) { op.SetStages(-1); },
       "Paramètre Stages hors limites : " + apply},
      {in.get(), &out, [](IPG_DEFORMABLE_SURFACE_COST_FCT& op) { op.SetTemperature(std::nan("")); },
       "Paramètre Temperature hors limites : " + apply},
  };
  for (const Case& c : cases) {
    IPG_DEFORMABLE_SURFACE_COST_FCT fit(c.in, nullptr, c.out);
    c.set(fit);
    MessageCapture messages;
    EXPECT_FALSE(fit.Apply()) << c.message;
    EXPECT_EQ(messages.Texts, std::vector<std::string>{c.message});
  }
  EXPECT_EQ(in->GetObjectsList()->GetNbObjects(), 0);
}

TEST(DeformableSurfaceCostFct, ReportsEachRoundAndStopsWhenCancelled)
{
  auto in = EllipseImage();
  DCM_STRUCT out(*in, false);
  IPG_DEFORMABLE_SURFACE_COST_FCT fit(in.get(), nullptr, &out);
  {
    ProgressCapture progress;
    ASSERT_TRUE(fit.Apply());
    EXPECT_EQ(progress.Steps, 3);
  }
  ProgressCapture progress;
  progress.CancelAfter = 1;
  MessageCapture messages;
  EXPECT_FALSE(fit.Apply());
  EXPECT_EQ(messages.Texts, std::vector<std::string>{"Opération annulée par l'utilisateur"});
  EXPECT_EQ(progress.Events.back(), "close");
  EXPECT_EQ(in->GetObjectsList()->GetNbObjects(), 1); // only the first run's ellipse
}
