// SPDX-License-Identifier: Apache-2.0
#include "ipg/segmentation/ipg_roi.h"

#include "dcm/dcm_struct.h"
#include "ipg/framework/ipg_threads.h"
#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

constexpr int O = kRoiInside;
using Grid = std::vector<std::vector<int>>;

// 5 x 4 input whose pixel (c, r) holds 10 * r + c + 1.
std::unique_ptr<DCM_STRUCT> Ramp()
{
  return ImageOf(5, 4, [](unsigned c, unsigned r) { return static_cast<int>(10 * r + c + 1); });
}

Grid Pixels(const DCM_STRUCT& image)
{
  Grid out(image.GetNbOfRows());
  for (unsigned r = 0; r < image.GetNbOfRows(); ++r)
    for (unsigned c = 0; c < image.GetNbOfCols(); ++c)
      out[r].push_back(image.Data->GetValue(c, r));
  return out;
}

void SetBox(IPG_ROI& op, int x0, int y0, int x1, int y1)
{
  MTH_2D_INTEGER tl(x0, y0), lr(x1, y1);
  op.SetTLCorner(&tl);
  op.SetLRCorner(&lr);
}

TEST(Roi, DefaultsCopyTheInputInsideTheBox)
{
  auto in = Ramp();
  DCM_STRUCT out(5, 4);
  IPG_ROI op(in.get(), nullptr, &out);
  EXPECT_EQ(op.GetTools(), 1000);
  EXPECT_EQ(op.GetOutValueColor(), kRoiInside);
  EXPECT_EQ(op.GetInValueColor(), -1);
  SetBox(op, 1, 1, 3, 2);
  ASSERT_TRUE(op.Apply());
  EXPECT_EQ(Pixels(out), (Grid{{O, O, O, O, O}, {O, 12, 13, 14, O}, {O, 22, 23, 24, O}, {O, O, O, O, O}}));
  EXPECT_EQ(out.Data->GetMin(), 12);
  EXPECT_EQ(out.Data->GetMax(), kRoiInside);
  EXPECT_EQ(out.Data->GetDynMax(), static_cast<unsigned>(kRoiInside - 12 + 1));
  EXPECT_EQ(out.Data->GetRoiCol(), 1u);
  EXPECT_EQ(out.Data->GetRoiRow(), 1u);

  op.SetInValueColor(0); // zero is a colour; corners are inclusive
  op.SetOutValueColor(9);
  SetBox(op, 2, 1, 2, 1);
  ASSERT_TRUE(op.MakeRoi());
  EXPECT_EQ(Pixels(out), (Grid{{9, 9, 9, 9, 9}, {9, 9, 0, 9, 9}, {9, 9, 9, 9, 9}, {9, 9, 9, 9, 9}}));
  SetBox(op, -3, 2, 70000, 65535); // clipped to the image
  ASSERT_TRUE(op.MakeRoi());
  EXPECT_EQ(Pixels(out), (Grid{{9, 9, 9, 9, 9}, {9, 9, 9, 9, 9}, {0, 0, 0, 0, 0}, {0, 0, 0, 0, 0}}));
}

TEST(Roi, ResizeCropsAndMovesTheHeaderAndDropsWhatDoesNotFit)
{
  auto in = Ramp();
  DCM_HEADER header = in->GetHeader();
  header.ImagePosition[0] = 100.0;
  header.PixelSpacing[0] = 2.0; // rows
  header.PixelSpacing[1] = 0.5; // columns
  in->SetHeader(header);
  DCM_STRUCT out(2, 3);
  IPG_ROI op(in.get(), nullptr, &out);
  op.SetResize(true);
  SetBox(op, 3, 1, 4, 3);
  ASSERT_TRUE(op.MakeRoi());
  EXPECT_EQ(Pixels(out), (Grid{{14, 15}, {24, 25}, {34, 35}}));
  const MTH_3D_DOUBLE position = out.GetImagePosition();
  EXPECT_DOUBLE_EQ(position.GetX(), 100.0 + 3 * 0.5);
  EXPECT_DOUBLE_EQ(position.GetY(), 1 * 2.0);
  EXPECT_EQ(out.GetHeader().Columns, 2);
  EXPECT_EQ(out.GetHeader().Rows, 3);
  EXPECT_DOUBLE_EQ(out.GetHeader().PixelSpacing[1], 0.5);

  DCM_STRUCT small(2, 2);
  op.SetImaOut(&small);
  op.SetInValueColor(1);
  SetBox(op, 1, 1, 4, 3);
  ASSERT_TRUE(op.MakeRoi());
  EXPECT_EQ(Pixels(small), (Grid{{1, 1}, {1, 1}}));
}

TEST(Roi, MessagesForBadCodesTypesAndOutput)
{
  MessageCapture capture;
  auto in = Ramp();
  DCM_STRUCT out(5, 4);
  IPG_ROI op(in.get());
  EXPECT_FALSE(op.MakeRoi());
  op.SetImaOut(&out);
  EXPECT_FALSE((op.SetTools(999), op.Apply()));
  op.SetTools(1000);
  op.SetInValueColor(3);
  SetBox(op, 0, 0, 4, 3);
  op.SetROIType(1);
  EXPECT_TRUE(op.Apply());
  EXPECT_EQ(out.Data->GetMax(), kRoiInside);
  EXPECT_EQ(out.Data->GetMin(), kRoiInside);
  op.SetROIType(7);
  EXPECT_TRUE(op.Apply());
  EXPECT_EQ(capture.Texts, (std::vector<std::string>{"image de sortie non allouée",
                                                      "Aucun outil de traitement d'image correspondant",
                                                      "Non géré actuellement : IPG_ROI, ipg_roi",
                                                      "Erreur : aucun type de ROI correspondant"}));
  EXPECT_EQ(capture.Captions, std::vector<std::string>(4, "Information"));

  op.SetResize(true);
  IPG_ROI copy(op);
  EXPECT_FALSE(copy.GetResize());
  EXPECT_EQ(copy.GetROIType(), 0);
  EXPECT_EQ(copy.GetTools(), 1000);
  EXPECT_NE(copy.GetTLCorner(), op.GetTLCorner());
}

} // namespace

// The banded walk against the per-pixel reading, for every type (a circle is
// written from the box's corner even without Resize; a mask selects its
// non-zero pixels), with and without Resize, a box reaching past the input,
// precisions 10 in and 4 out, at 1, 2 and 7 threads (several bands).
TEST(Roi, EveryTypeMatchesThePixelByPixelReading)
{
  constexpr unsigned kCols = 700, kRows = 400;
  std::mt19937 random(12);
  auto in = ImageOf(kCols, kRows, [&](unsigned, unsigned) { return static_cast<int>(random() % 9000) - 2000; });
  in->Data->SetPrecision(10);
  auto mask = ImageOf(kCols, kRows, [&](unsigned, unsigned) { return static_cast<int>(random() % 3); });
  const int x0 = -20, y0 = 30, x1 = 650, y1 = 420, cx = 300, cy = 200, radius = 170;
  for (const short type : {IPG_ROI::kRectangle, IPG_ROI::kCircle, IPG_ROI::kMask})
    for (const bool resize : {false, true})
      for (const int inColour : {-1, 77}) {
        std::vector<int> expected(static_cast<std::size_t>(kCols) * kRows, 5);
        for (int row = std::max(y0, 0); row <= std::min<int>(y1, kRows - 1); ++row)
          for (int col = std::max(x0, 0); col <= std::min<int>(x1, kCols - 1); ++col) {
            bool inside = type == IPG_ROI::kMask ? mask->Data->GetValue(col, row) != 0 : true;
            if (type == IPG_ROI::kCircle)
              inside = (col - cx) * (col - cx) + (row - cy) * (row - cy) <= radius * radius;
            const bool shifted = resize || type == IPG_ROI::kCircle;
            const int oc = shifted ? col - x0 : col, orow = shifted ? row - y0 : row;
            if (oc < 0 || orow < 0 || oc >= int(kCols) || orow >= int(kRows))
              continue;
            const int level = static_cast<int>(in->Data->GetValueReal(col, row) * 4); // exact: tenths times 4
            expected[static_cast<std::size_t>(orow) * kCols + oc] = !inside ? 5 : inColour >= 0 ? inColour : level;
          }
        for (const int threads : {1, 2, 7}) {
          Ipg_SetNumThreads(threads);
          DCM_STRUCT out(kCols, kRows);
          out.Data->SetPrecision(4);
          IPG_ROI op(in.get(), type == IPG_ROI::kMask ? mask.get() : nullptr, &out);
          SetBox(op, x0, y0, x1, y1);
          MTH_2D_INTEGER centre(cx, cy);
          op.SetCentre(&centre);
          op.SetRadius(radius);
          op.SetROIType(type);
          op.SetResize(resize);
          op.SetOutValueColor(5);
          op.SetInValueColor(inColour);
          ASSERT_TRUE(op.Apply());
          const int* p = out.Data->GetIDataAddress();
          for (std::size_t k = 0; k < expected.size(); ++k)
            ASSERT_EQ(p[k], expected[k]) << "pixel " << k << " type " << type << " resize " << resize << " colour "
                                         << inColour << " threads " << threads;
        }
      }
  Ipg_SetNumThreads(0);
}
