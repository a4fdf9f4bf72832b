// SPDX-License-Identifier: Apache-2.0
#include "ipg/segmentation/ipg_deformable_surface.h"

#include "dcm/dcm_phantom.h"
#include "ipg/filtering/ipg_filter_processing.h"
#include "support/images.h"
#include "support/message_capture.h"
#include "support/progress_capture.h"

#include <gtest/gtest.h>

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
  EXPECT_NEAR(snake.GetResult(), n, 0.1 * n);
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
