// SPDX-License-Identifier: Apache-2.0
#include "ipg/filtering/ipg_generic_processing.h"
#include "ipg/framework/ipg_threads.h"

#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int kSet = 16777217;
constexpr int kOtsuSet = 16777216;
using V = std::vector<int>;

// One row of pixels through an operator whose Mode 302 keeps the written values.
struct Row {
  explicit Row(const V& pixels, const V& roi = {})
      : In(ImageOf(static_cast<unsigned>(pixels.size()), 1, pixels)),
        Out(std::make_unique<DCM_STRUCT>(static_cast<unsigned>(pixels.size()), 1u))
  {
    if (!roi.empty())
      Roi = ImageOf(static_cast<unsigned>(roi.size()), 1, roi);
    Op = std::make_unique<IPG_GENERIC_PROCESSING>(In.get(), Roi.get());
    Op->SetImaOut(Out.get());
    Op->SetMode(302);
  }
  std::unique_ptr<DCM_STRUCT> In, Out, Roi;
  std::unique_ptr<IPG_GENERIC_PROCESSING> Op;
};

} // namespace

TEST(IpgGenericProcessing, SingleThresholdBinarisation)
{
  Row t({99, 100, 101, 16777218});
  t.Op->SetSeuilMin(100);
  EXPECT_NE(t.Op->Apply(), 0);
  EXPECT_EQ(PixelsOf(*t.Out), (V{0, kSet, kSet, 16777218}));
  EXPECT_NE(t.Op->MakeBinary(100, short{-1}), 0);
  EXPECT_EQ(PixelsOf(*t.Out), (V{kSet, kSet, 0, 16777218}));

  Row roi({99, 101}, {kSet, 1});
  EXPECT_NE(roi.Op->MakeBinary(100, short{1}), 0);
  EXPECT_EQ(PixelsOf(*roi.Out), (V{0, 101})) << "outside the ROI the input is copied";
}

TEST(IpgGenericProcessing, BandBinarisation)
{
  Row t({9, 10, 20, 21, 16777218}, {kSet, kSet, kSet, kSet, kSet});
  t.Op->SetTools(401);
  t.Op->SetSeuilMin(10);
  t.Op->SetSeuilMax(20);
  EXPECT_NE(t.Op->Apply(), 0);
  EXPECT_EQ(PixelsOf(*t.Out), (V{0, kSet, kSet, 0, 16777218}));
  EXPECT_NE(t.Op->MakeBinary(10, 20, short{0}), 0);
  EXPECT_EQ(PixelsOf(*t.Out), (V{kSet, 0, 0, kSet, 16777218}));
}

TEST(IpgGenericProcessing, DoubleThresholdClipsTheBand)
{
  Row t({5, 15, 25, kSet});
  t.Op->SetTools(403);
  t.Op->SetSeuilMin(10);
  t.Op->SetSeuilMax(20);
  EXPECT_NE(t.Op->Apply(), 0);
  EXPECT_EQ(PixelsOf(*t.Out), (V{10, 15, 20, kSet}));
  EXPECT_NE(t.Op->DoubleThreshold(10, 20, short{-1}), 0);
  EXPECT_EQ(PixelsOf(*t.Out), (V{0, 15, 0, kSet}));
  EXPECT_EQ(t.Out->Data->GetDynMax(), static_cast<unsigned>(kSet + 1));
  EXPECT_NE(t.Op->DoubleThreshold(10, 20, short{0}), 0);
  EXPECT_EQ(PixelsOf(*t.Out), (V{kSet, 15, kSet, kSet}));

  Row roi({5, 25}, {0, kSet});
  EXPECT_NE(roi.Op->DoubleThreshold(10, 20, short{1}), 0);
  EXPECT_EQ(PixelsOf(*roi.Out), (V{5, 20}));
}

TEST(IpgGenericProcessing, ResampleAveragesBlocks)
{
  auto in = ImageOf(5, 5, [](unsigned c, unsigned r) { return int(5 * r + c); });
  DCM_HEADER header = in->GetHeader();
  header.PixelSpacing[0] = 0.5;
  header.PixelSpacing[1] = 0.25;
  in->SetHeader(header);
  DCM_STRUCT out(5, 5);
  IPG_GENERIC_PROCESSING source(in.get(), 2);
  IPG_GENERIC_PROCESSING op(source); // the factor travels with a copy, the images do not
  op.SetImaIn(in.get());
  op.SetImaOut(&out);
  op.SetMode(302);
  EXPECT_NE(op.Resample(), 0);
  ASSERT_TRUE(out.GetNbOfCols() == 2u && out.GetNbOfRows() == 2u);
  // Block (0,0): 0 1 5 6 -> 3; (1,0): 2 3 7 8 -> 5; (0,1): 10 11 15 16 -> 13; (1,1): 12 13 17 18 -> 15
  EXPECT_EQ(PixelsOf(out), (V{3, 5, 13, 15}));
  EXPECT_EQ(out.GetHeader().Rows, 2);
  EXPECT_EQ(out.GetHeader().Columns, 2);
  EXPECT_DOUBLE_EQ(out.GetHeader().PixelSpacing[0], 1.0);
  EXPECT_DOUBLE_EQ(out.GetHeader().PixelSpacing[1], 0.5);

  Row negative({-3, -4});
  negative.Op = std::make_unique<IPG_GENERIC_PROCESSING>(negative.In.get(), 2);
  negative.Op->SetImaOut(negative.Out.get());
  negative.Op->SetMode(302);
  EXPECT_NE(negative.Op->Resample(), 0);
  EXPECT_EQ(negative.Out->GetNbOfCols(), 1u);
  EXPECT_EQ(negative.Out->GetNbOfRows(), 0u);
}

// Block means of a large image in bands: each is its block's sum over n^2,
// truncated, at any thread count.
TEST(IpgGenericProcessing, ResampleInBandsGivesEachBlockItsMean)
{
  std::mt19937 random(3);
  auto in = ImageOf(700, 400, [&](unsigned, unsigned) { return static_cast<int>(random() % 20000) - 5000; });
  for (const int threads : {1, 2, 7}) {
    Ipg_SetNumThreads(threads);
    DCM_STRUCT out(700, 400);
    IPG_GENERIC_PROCESSING op(in.get(), 3);
    op.SetImaOut(&out);
    op.SetMode(302);
    ASSERT_NE(op.Resample(), 0);
    ASSERT_EQ(out.GetNbOfCols(), 233u);
    for (unsigned j = 0; j < 133; j += 7)
      for (unsigned i = 0; i < 233; i += 5) {
        long long sum = 0;
        for (unsigned r = 3 * j; r < 3 * j + 3; ++r)
          for (unsigned c = 3 * i; c < 3 * i + 3; ++c)
            sum += in->Data->GetValue(c, r);
        ASSERT_EQ(out.Data->GetValue(i, j), static_cast<int>(sum / 9)) << i << "," << j << " threads " << threads;
      }
  }
  Ipg_SetNumThreads(0);
}

TEST(IpgGenericProcessing, Messages)
{
  MessageCapture capture;
  auto in = ImageOf(2, 2, {1, 2, 3, 4});
  IPG_GENERIC_PROCESSING op(in.get(), 0);
  for (int code : {400, 401, 402, 403, 404}) // Otsu fails silently
    EXPECT_EQ((op.SetTools(code), op.Apply()), 0) << code;
  DCM_STRUCT out(2, 2);
  op.SetImaOut(&out);
  EXPECT_EQ((op.SetTools(402), op.Apply()), 0);
  EXPECT_EQ((op.SetTools(405), op.Apply()), 0);
  std::vector<std::string> expected(4, "image de sortie non allouée");
  expected.push_back("la résolution doit être strictement supérieure à 0!");
  EXPECT_EQ(capture.Texts, expected);
  EXPECT_EQ(capture.Captions[4], "Information");
}

TEST(IpgGenericProcessing, OtsuSeparatesTwoPopulations)
{
  // Two populations around 0..20 and 180..200: the cut falls between them.
  auto in = ImageOf(4, 4, {0, 0, 200, 200, 0, 20, 180, 200, 0, 20, 180, 200, 0, 0, 200, 200});
  DCM_STRUCT out(4, 4);
  IPG_GENERIC_PROCESSING op(in.get());
  op.SetImaOut(&out);
  op.SetMode(302);
  op.SetTools(404);
  EXPECT_NE(op.Apply(), 0);
  EXPECT_EQ(PixelsOf(out), (V{0, 0, kOtsuSet, kOtsuSet, 0, 0, kOtsuSet, kOtsuSet, 0, 0, kOtsuSet, kOtsuSet, 0, 0,
                              kOtsuSet, kOtsuSet}));
}

TEST(IpgGenericProcessing, OtsuDividesALargeInputInPlace)
{
  auto in = ImageOf(2, 2, {4095, 0, 4095, 160});
  auto roi = ImageOf(2, 2, {kSet, kSet, kSet, 0});
  DCM_STRUCT out(2, 2);
  IPG_GENERIC_PROCESSING op(in.get(), roi.get());
  op.SetImaOut(&out);
  op.SetMode(302);
  EXPECT_NE(op.BinarizeByOtsu(), 0);
  EXPECT_EQ(PixelsOf(*in), (V{255, 0, 255, 10})) << "divided by 4095 / 256 + 1 = 16";
  EXPECT_EQ(in->Data->GetMin(), 0);
  EXPECT_EQ(in->Data->GetMax(), 255);
  EXPECT_EQ(PixelsOf(out), (V{kOtsuSet, 0, kOtsuSet, 0}));
}

TEST(IpgGenericProcessing, OtsuCutsAtTheBinIndexAsAGreyLevel)
{
  // Constant image: every score is 0, so the cut is 0 and every positive pixel is set.
  Row flat({5, 5, 5, 5});
  EXPECT_NE(flat.Op->BinarizeByOtsu(), 0);
  EXPECT_EQ(PixelsOf(*flat.Out), V(4, kOtsuSet));
  // Levels 100 and 110: the best cut is bin 0, compared with the pixels as grey level 0.
  Row two({100, 110, 110, 100});
  EXPECT_NE(two.Op->BinarizeByOtsu(), 0);
  EXPECT_EQ(PixelsOf(*two.Out), V(4, kOtsuSet));
}

TEST(IpgGenericProcessing, OtsuSquareIndexingOnOtherShapes)
{
  // 4 x 2: positions row * 2 + col; pixels 2 and 3 are visited twice, 6 and 7 never.
  auto wide = ImageOf(4, 2, V(8, 1000));
  DCM_STRUCT wideOut(4, 2);
  IPG_GENERIC_PROCESSING op(wide.get());
  op.SetImaOut(&wideOut);
  op.SetMode(302);
  EXPECT_NE(op.BinarizeByOtsu(), 0);
  EXPECT_EQ(PixelsOf(*wide), (V{250, 250, 62, 62, 250, 250, 1000, 1000}));
  EXPECT_EQ(wide->Data->GetMin(), 62); // the extremes of what the walk left
  EXPECT_EQ(wide->Data->GetMax(), 1000);
  // 2 x 4: positions row * 4 + col; those past the end are skipped.
  auto tall = ImageOf(2, 4, V(8, 1000));
  DCM_STRUCT tallOut(2, 4);
  op.SetImaIn(tall.get());
  op.SetImaOut(&tallOut);
  EXPECT_NE(op.BinarizeByOtsu(), 0);
  EXPECT_EQ(PixelsOf(*tall), (V{250, 250, 1000, 1000, 250, 250, 1000, 1000}));
}

