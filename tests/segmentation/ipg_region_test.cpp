// SPDX-License-Identifier: Apache-2.0
#include "ipg/segmentation/ipg_region.h"

#include "dcm/dcm_struct.h"
#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

// Runs work on a thread with the given stack size and waits for it.
void RunWithStack(std::size_t bytes, std::function<void()> work)
{
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  ASSERT_EQ(pthread_attr_setstacksize(&attr, bytes), 0);
  pthread_t thread;
  auto body = [](void* arg) -> void* {
    (*static_cast<std::function<void()>*>(arg))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attr, body, &work), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attr);
}

// The recursive fill as first written, as a reference for the explicit stack.
struct RecursiveFill {
  std::vector<int> work;
  int cols = 0, rows = 0, minGL = 0, maxGL = 0, first = 0, step = 1;
  int depth = 0, count = 0;
  static constexpr int kDx[8] = {-1, -1, 0, 1, 1, 1, 0, -1};
  static constexpr int kDy[8] = {0, 1, 1, 1, 0, -1, -1, -1};

  void Visit(int x, int y)
  {
    if (++depth >= 32000)
      return;
    ++count;
    work[y * cols + x] = kRoiInside;
    for (int k = first; k < 8; k += step) {
      const int nx = x + kDx[k], ny = y + kDy[k];
      if (ny >= 0 && ny < rows && nx >= 0 && nx < cols && minGL <= work[ny * cols + nx] && work[ny * cols + nx] <= maxGL)
        Visit(nx, ny);
    }
    --depth;
  }
};

struct Grown {
  std::vector<std::string> mask;
  int count;
};

Grown GrowRecursively(const DCM_STRUCT& in, int x, int y, int minGL, int maxGL, int connectedness)
{
  const int* pixels = in.Data->GetIDataAddress();
  RecursiveFill fill{.work = std::vector<int>(pixels, pixels + in.Data->GetSize()), .cols = int(in.GetNbOfCols()),
                     .rows = int(in.GetNbOfRows()), .minGL = minGL, .maxGL = maxGL,
                     .first = connectedness == 402 ? 1 : 0, .step = connectedness == 403 ? 1 : 2};
  const int seedValue = in.Data->GetValue(x, y);
  if (minGL <= seedValue && seedValue <= maxGL)
    RunWithStack(std::size_t{1} << 30, [&] { fill.Visit(x, y); });
  return {TextFromMask(*ImageOf(fill.cols, fill.rows, fill.work)), fill.count};
}

Grown Grow(DCM_STRUCT& in, int x, int y, int minGL, int maxGL, int connectedness, DCM_STRUCT* roi = nullptr)
{
  DCM_STRUCT out(in.GetNbOfCols(), in.GetNbOfRows());
  IPG_REGION op(&in);
  op.SetImaOut(&out);
  op.SetRoi(roi);
  op.SetSeed(x, y);
  op.SetMinGL(minGL);
  op.SetMaxGL(maxGL);
  op.SetConnectedness(connectedness);
  op.SetTools(900);
  EXPECT_TRUE(op.Apply());
  return {TextFromMask(out), op.GetRegionCount()};
}

TEST(Region, FillsTheRangeAroundTheSeedSucceedsForItsCodesRefusesSeedsOffTheImage)
{
  auto in = MaskFromText({"......", ".XX...", ".XXX..", "....X.", "X....."}, 10, 50);
  in->Data->SetValue(2u, 2u, 12);
  DCM_STRUCT out(6, 5);
  IPG_REGION op(in.get());
  EXPECT_EQ(op.GetConnectedness(), 403);
  EXPECT_FLOAT_EQ(op.GetTolerance(), 20.0f);
  op.SetImaOut(&out);
  op.SetSeed(1, 1);
  op.SetMinGL(10);
  op.SetMaxGL(12);
  op.SetTools(900);
  ASSERT_TRUE(op.Apply());
  EXPECT_EQ(TextFromMask(out), (std::vector<std::string>{"......", ".XX...", ".XXX..", "....X.", "......"}));
  EXPECT_EQ(op.GetRegionCount(), 6);
  EXPECT_DOUBLE_EQ(op.GetRegionMean(), 62.0 / 6);
  EXPECT_NEAR(op.GetRegionVariance(), (5 * 100 + 144) / 6.0 - (62.0 / 6) * (62.0 / 6), 1e-9);
  EXPECT_EQ(op.GetRegionSumOfSquares(), 644);

  op.SetMinGL(11); // the seed value 10 is out of range: nothing grows
  ASSERT_TRUE(op.Apply());
  EXPECT_EQ(op.GetRegionCount(), 0);
  EXPECT_EQ(out.Data->GetValue(1u, 1u), 0);

  // Zeros of the ROI stop the fill.
  auto line = MaskFromText({"XXXXX"}, 10, 0);
  auto roi = MaskFromText({"XX.XX"}, 1, 0);
  EXPECT_EQ(Grow(*line, 0, 0, 10, 10, 403, roi.get()).mask, (std::vector<std::string>{"XX..."}));

  // Apply() reports success for its codes only and refuses seeds off the image.
  auto pair = MaskFromText({"XX"}, 5, 5);
  DCM_STRUCT pairOut(2, 1);
  IPG_REGION codes(pair.get());
  codes.SetImaOut(&pairOut);
  codes.SetConnectedness(404);
  EXPECT_FALSE((codes.SetTools(900), codes.Apply()));
  codes.SetConnectedness(401);
  EXPECT_FALSE((codes.SetTools(903), codes.Apply()));
  codes.SetTools(901); // uniform image: the widening has nothing to try
  EXPECT_FALSE(codes.VarianceControlRegionGrowing());
  EXPECT_TRUE(codes.Apply());
  EXPECT_TRUE((codes.SetTools(902), codes.Apply()));
  IPG_REGION none(nullptr);
  EXPECT_FALSE(none.Apply());
  EXPECT_FALSE(none.FillRangeInImage());

  auto plain = TestImage(12, 12).Fill(50).Build();
  for (int code : {900, 901, 902})
    for (const auto& [x, y] : {std::pair{2147483647, 2147483647}, std::pair{-2147483647 - 1, 0}, std::pair{12, 3}}) {
      SCOPED_TRACE(std::to_string(code) + " " + std::to_string(x) + "," + std::to_string(y));
      MessageCapture capture;
      DCM_STRUCT refusedOut(12, 12);
      IPG_REGION refused(plain.get());
      refused.SetImaOut(&refusedOut);
      refused.SetMinGL(0);
      refused.SetMaxGL(100);
      refused.SetSeed(x, y);
      refused.SetTools(code);
      EXPECT_FALSE(refused.Apply());
      EXPECT_EQ(capture.Texts, std::vector<std::string>{"Paramètre Seed hors limites : IPG_REGION::Apply()"});
      EXPECT_EQ(refused.GetRegionCount(), 0);
    }
}

TEST(Region, TakenPixelsAreAcceptedAgainAboveTheMarkAndLargeFillsNeedLittleStack)
{
  auto in = TestImage(4, 4).Fill(3).Build();
  EXPECT_EQ(GrowRecursively(*in, 1, 1, 0, kRoiInside, 403).count, 31999); // refilled until the depth limit
  EXPECT_EQ(Grow(*in, 1, 1, 0, kRoiInside, 403).count, 31999);

  auto large = TestImage(600, 600).Fill(7).Build();
  const int onMainThread = Grow(*large, 300, 300, 7, 7, 403).count;
  int onSmallStack = -1;
  RunWithStack(256 * 1024, [&] { onSmallStack = Grow(*large, 300, 300, 7, 7, 403).count; });
  EXPECT_EQ(onSmallStack, onMainThread);
  EXPECT_GT(onSmallStack, 32000);
}

TEST(Region, ExplicitStackMatchesTheRecursiveFill)
{
  std::mt19937 random(99);
  for (int trial = 0; trial < 12; ++trial) {
    const unsigned cols = 150 + random() % 120, rows = 150 + random() % 120;
    std::bernoulli_distribution dark(trial < 3 ? 0.0 : 0.15 + 0.03 * trial);
    auto image = ImageOf(cols, rows, [&](unsigned, unsigned) { return dark(random) ? 1 : int(10 + random() % 3); });
    const int connectedness = 401 + trial % 3;
    const int x = static_cast<int>(random() % cols), y = static_cast<int>(random() % rows);
    const Grown expected = GrowRecursively(*image, x, y, 10, 12, connectedness);
    const Grown grown = Grow(*image, x, y, 10, 12, connectedness);
    ASSERT_EQ(grown.count, expected.count) << "trial " << trial;
    ASSERT_EQ(grown.mask, expected.mask) << "trial " << trial;
  }
}

TEST(Region, VarianceControlStopsBeforeTheRingCustomFillMovesTheSeed)
{
  // A 5 x 5 core of 100 inside a ring of 200 on a background of 0.
  auto in = TestImage(9, 9).Rect(1, 1, 7, 7, 200).Rect(2, 2, 5, 5, 100).Build();
  DCM_STRUCT out(9, 9);
  IPG_REGION op(in.get());
  op.SetImaOut(&out);
  op.SetSeed(4, 4);
  ASSERT_TRUE(op.VarianceControlRegionGrowing());
  // Tolerance: 20 sigma of the positive pixels (mean 7300/49, mean square 1210000/49).
  const double mean = 7300.0 / 49;
  EXPECT_NEAR(op.GetTolerance(), 20.0 * std::sqrt(1210000.0 / 49 - mean * mean), 1e-2);
  EXPECT_EQ(op.GetMinGL(), 100);
  EXPECT_EQ(op.GetMaxGL(), 199);
  EXPECT_EQ(op.GetRegionCount(), 25);
  EXPECT_EQ(out.Data->GetValue(1u, 1u), 0);
  EXPECT_EQ(out.Data->GetValue(2u, 2u), kRoiInside);

  auto spot = TestImage(30, 30).Fill(100).At(15, 15, 300).Rect(25, 0, 1, 30, 1000).Build();
  DCM_STRUCT customOut(30, 30);
  IPG_REGION custom(spot.get());
  custom.SetImaOut(&customOut);
  custom.SetSeed(15, 15);
  ASSERT_TRUE(custom.CustomFillByVariance(2.5f));
  EXPECT_EQ(custom.GetXSeed(), 9); // the leftmost in-range column of the scan
  EXPECT_EQ(custom.GetSeedValue(), 101);
  EXPECT_EQ(custom.GetRegionCount(), 25 * 30 - 1);
  EXPECT_EQ(customOut.Data->GetValue(25u, 3u), 0);

  // Near the edge only the image is read.
  auto edge = ImageOf(12, 12, [](unsigned c, unsigned r) { return int(50 + (c + r) % 3); });
  DCM_STRUCT edgeOut(12, 12);
  IPG_REGION nearEdge(edge.get());
  nearEdge.SetImaOut(&edgeOut);
  nearEdge.SetSeed(0, 0);
  nearEdge.SetTools(902);
  ASSERT_TRUE(nearEdge.Apply());
  // The 14 x 14 block clipped to rows and columns 0..6: 49 pixels of 50..52.
  EXPECT_GT(nearEdge.GetRegionCount(), 0);
  nearEdge.SetSeed(-20, 40); // far outside: no statistics, nothing grows
  EXPECT_FALSE(nearEdge.CustomFillByVariance(2.5f));
}

} // namespace
