// SPDX-License-Identifier: Apache-2.0
#include "support/images.h"
#include "ipg/filtering/ipg_filter.h"
#include "ipg/filtering/ipg_morpho_processing.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

namespace {

using Grid = std::vector<std::vector<int>>; // rows of pixels

constexpr int kSet = 16777217;
constexpr short kExtremesOnly = 302; // output mode that leaves the pixels as computed

std::unique_ptr<DCM_STRUCT> MakeImage(const Grid& rows)
{
  return ImageOf(static_cast<unsigned>(rows[0].size()), static_cast<unsigned>(rows.size()),
                 [&](unsigned col, unsigned row) { return rows[row][col]; });
}

Grid Pixels(const DCM_STRUCT& image)
{
  Grid rows(image.GetNbOfRows(), std::vector<int>(image.GetNbOfCols()));
  for (unsigned row = 0; row < rows.size(); ++row)
    for (unsigned col = 0; col < rows[row].size(); ++col)
      rows[row][col] = image.Data->GetValue(col, row);
  return rows;
}

// A binary square of set pixels, columns and rows first..last, in a size x size image.
Grid Square(int size, int first, int last)
{
  Grid rows(size, std::vector<int>(size, 0));
  for (int row = first; row <= last; ++row)
    for (int col = first; col <= last; ++col)
      rows[row][col] = kSet;
  return rows;
}

struct MorphoRun {
  explicit MorphoRun(const Grid& input) : In(MakeImage(input)), Out(TestImage(input[0].size(), input.size()).Fill(-1).Build()), Op(In.get())
  {
    Op.SetImaOut(Out.get());
    Op.SetMode(kExtremesOnly);
  }
  std::unique_ptr<DCM_STRUCT> In;
  std::unique_ptr<DCM_STRUCT> Out;
  IPG_MORPHO_PROCESSING Op;
};

} // namespace

TEST(MorphoProcessing, FailuresShowTheirMessageAndReturnZero)
{
  auto in = TestImage(5, 5).Fill(7).Build(), out = TestImage(5, 5).Build();
  MessageCapture capture;
  IPG_MORPHO_PROCESSING op(in.get());
  for (int code : {1100, 1101, 1102, 1103, 1108, 1109, 1110})
    EXPECT_EQ((op.SetTools(code), op.Apply()), 0) << code;
  EXPECT_EQ(capture.Texts, std::vector<std::string>(7, "image de sortie non allouée"));

  op.SetImaOut(out.get());
  capture.Texts.clear();
  for (int code : {1104, 1105, 1106, 1107})
    EXPECT_EQ((op.SetTools(code), op.Apply()), 0) << code;
  EXPECT_EQ(capture.Texts, std::vector<std::string>(4, "Le filtre utilisateur n'est pas défini"));
  EXPECT_EQ(capture.Captions.back(), "Information");

  capture.Texts.clear();
  for (int code : {1099, 1111, 0})
    EXPECT_EQ((op.SetTools(code), op.Apply()), 0) << code;
  int even[] = {1, 1, 1, 1, 1, 1};
  op.SetUserFilter(even, 2, 3);
  op.SetTools(1104);
  EXPECT_EQ(op.Apply(), 0);
  EXPECT_EQ(op.Erode(nullptr), 0);
  EXPECT_TRUE(capture.Texts.empty()); // unknown codes and bad elements fail silently
}

// The default 3x3 element moves a binary edge by one pixel; kernel 203 (5x5 of
// ones) runs through the running extremes: a dot grows into the 5x5 square and
// the square erodes back into the dot.
TEST(MorphoProcessing, BinaryObjectsShrinkAndGrowByHalfTheElement)
{
  const struct {
    int Kernel, Code;
    Grid In, Out;
  } cases[] = {{0, 1101, Square(9, 2, 6), Square(9, 3, 5)}, {0, 1100, Square(9, 3, 5), Square(9, 2, 6)},
               {203, 1100, Square(9, 4, 4), Square(9, 2, 6)}, {203, 1101, Square(9, 2, 6), Square(9, 4, 4)}};
  for (const auto& test : cases) {
    MorphoRun run(test.In);
    run.Op.SetDefinedFilter(test.Kernel);
    EXPECT_EQ((run.Op.SetTools(test.Code), run.Op.Apply()), 1);
    EXPECT_EQ(Pixels(*run.Out), test.Out) << test.Kernel << " " << test.Code;
  }
}

TEST(MorphoProcessing, MarksAboveTheSetValueAreIgnored)
{
  // Centre 50 among 60s with one 16777218: the mark is neither the max nor the min.
  const Grid input = {{60, 60, 60}, {60, 50, 16777218}, {60, 60, 60}};
  MorphoRun dilate(input);
  dilate.Op.SetTools(1100);
  dilate.Op.Apply();
  EXPECT_EQ(dilate.Out->Data->GetValue(1u, 1u), 60);

  // The set value counts as the highest grey level; the other marks still do not.
  MorphoRun setPixel({{16777218, 16777218, 16777218}, {16777218, kSet, 16777218}, {16777218, 16777218, 16777218}});
  setPixel.Op.Apply();
  EXPECT_EQ(setPixel.Out->Data->GetValue(1u, 1u), kSet);

  // Only marks in the neighbourhood: the erosion keeps its start value.
  MorphoRun marked(Grid(3, std::vector<int>(3, 16777300)));
  marked.Op.Apply();
  EXPECT_EQ(marked.Out->Data->GetValue(1u, 1u), 17000000);
}

TEST(MorphoProcessing, BorderTypeDecidesTheUncomputedFrame)
{
  const Grid input(4, std::vector<int>(4, 100));
  for (int type : {0, 1, 2, 3}) {
    MorphoRun run(input);
    run.Op.SetImageBorderType(type);
    run.Op.Apply();
    const int f = type == 3 ? 17000000 : type == 2 ? -1 : 0;
    EXPECT_EQ(Pixels(*run.Out), (Grid{{f, f, f, f}, {f, 100, 100, f}, {f, 100, 100, f}, {f, f, f, f}})) << type;
  }
}

TEST(MorphoProcessing, RoiSelectsNeighboursAndStartsAtTheTopGreyLevel)
{
  const Grid input = {{1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, 12}};
  // ROI: the left two columns only.
  auto roi = MakeImage({{kSet, kSet, 0, 0}, {kSet, kSet, 0, 0}, {kSet, kSet, 0, 0}});

  MorphoRun erode(input);
  erode.Op.SetRoi(roi.get());
  erode.Op.Apply();
  EXPECT_EQ(erode.Out->Data->GetValue(1u, 1u), 1); // min of the ROI neighbours
  EXPECT_EQ(erode.Out->Data->GetValue(2u, 1u), 2); // its only ROI neighbours: column 1
  MorphoRun dilate(input);
  dilate.Op.SetRoi(roi.get());
  dilate.Op.SetTools(1100);
  dilate.Op.Apply();
  // Under a ROI a dilation starts at 16777216 and never yields less.
  EXPECT_EQ(dilate.Out->Data->GetValue(2u, 1u), 16777216);

  auto noRoi = TestImage(4, 3).Build();
  MorphoRun empty(input);
  empty.Op.SetRoi(noRoi.get());
  empty.Op.Apply();
  EXPECT_EQ(empty.Out->Data->GetValue(1u, 1u), 16777216);
}

TEST(MorphoProcessing, UserElementsTakePartWhereNonZero)
{
  Grid dot(5, std::vector<int>(5, 0));
  dot[2][2] = 9;
  int cross[] = {0, 1, 0, 1, 1, 1, 0, 1, 0};
  MorphoRun run(dot);
  run.Op.SetUserFilter(cross, 3, 3);
  run.Op.SetTools(1105);
  EXPECT_EQ(run.Op.Apply(), 1);
  EXPECT_EQ(Pixels(*run.Out),
            (Grid{{0, 0, 0, 0, 0}, {0, 0, 9, 0, 0}, {0, 9, 9, 9, 0}, {0, 0, 9, 0, 0}, {0, 0, 0, 0, 0}}));

  int row[] = {1, 1, 1};
  MorphoRun wide(dot);
  wide.Op.SetUserFilter(row, 3, 1);
  EXPECT_EQ((wide.Op.SetTools(1105), wide.Op.Apply()), 1);
  EXPECT_EQ(Pixels(*wide.Out), (Grid{{0, 0, 0, 0, 0}, {0, 0, 0, 0, 0}, {0, 9, 9, 9, 0}, {0, 0, 0, 0, 0}, {0, 0, 0, 0, 0}}));
}

TEST(MorphoProcessing, OpenRemovesBrightDotsCloseFillsDarkOnesAndTheInputComesBack)
{
  Grid bright(7, std::vector<int>(7, 10));
  bright[3][3] = 100;
  MorphoRun open(bright);
  open.Op.SetTools(1102);
  EXPECT_EQ(open.Op.Apply(), 1);
  EXPECT_EQ(open.Out->Data->GetValue(3u, 3u), 10);
  EXPECT_EQ(open.Op.GetImaIn(), open.In.get());

  Grid dark(7, std::vector<int>(7, 50));
  dark[3][3] = 5;
  MorphoRun close(dark);
  close.Op.SetTools(1103);
  EXPECT_EQ(close.Op.Apply(), 1);
  EXPECT_EQ(close.Out->Data->GetValue(3u, 3u), 50);
  // The dilated image's zero frame erodes into the ring next to it.
  EXPECT_EQ(close.Out->Data->GetValue(1u, 3u), 0);
  EXPECT_EQ(close.Op.GetImaIn(), close.In.get());
  EXPECT_EQ(Pixels(*close.In), dark);
}

TEST(MorphoProcessing, DefaultModeRescalesTheResult)
{
  MorphoRun run({{0, 0, 0}, {0, 100, 0}, {0, 0, 0}});
  run.Op.SetMode(301);
  run.Op.SetTools(1100);
  EXPECT_EQ(run.Op.Apply(), 1);
  EXPECT_EQ(Pixels(*run.Out), (Grid{{0, 0, 0}, {0, 65536, 0}, {0, 0, 0}})); // 16 bits stored
}

TEST(MorphoProcessing, ThinningFunctionLowersPixelsThatMatchTheMask)
{
  // Mask 0 0 0 / 2 2 2 / 1 1 1: background above, foreground below. Only the top
  // middle pixel of the block has a full foreground row under it.
  const Grid block = {{0, 0, 0, 0, 0}, {0, 9, 9, 9, 0}, {0, 9, 9, 9, 0}, {0, 9, 9, 9, 0}, {0, 0, 0, 0, 0}};
  int mask[] = {0, 0, 0, 2, 2, 2, 1, 1, 1};
  IPG_FILTER topEdge(mask, 3, 3);
  auto in = MakeImage(block);
  IPG_MORPHO_PROCESSING op(in.get());
  std::unique_ptr<DCM_STRUCT> thinned(op.ThinningFunction(in.get(), &topEdge));
  ASSERT_NE(thinned, nullptr);
  Grid expected = block;
  expected[1][2] = 0;
  EXPECT_EQ(Pixels(*thinned), expected);

  auto roi = TestImage(5, 5).Fill(kSet).At(2, 1, 0).Build();
  op.SetRoi(roi.get());
  std::unique_ptr<DCM_STRUCT> outsideRoi(op.ThinningFunction(in.get(), &topEdge));
  EXPECT_EQ(Pixels(*outsideRoi), block);

  EXPECT_EQ(op.ThinningFunction(nullptr, &topEdge), nullptr);
  EXPECT_EQ(op.Thinning(nullptr), nullptr);
}

TEST(MorphoProcessing, ThinningPassOfABarComputedByHand)
{
  // Eight turns of the two masks on a 5 x 3 bar: the top-edge mask clears the top
  // middle, the next ones nibble one pixel each from the inside of the bar.
  const auto bar = Pixels(*MaskFromText({".......", ".XXXXX.", ".XXXXX.", ".XXXXX.", "......."}, 9));
  const auto expected = Pixels(*MaskFromText({".......", ".X...X.", ".XX..X.", "..XXXX.", "......."}, 9));
  MorphoRun run(bar);
  EXPECT_EQ((run.Op.SetTools(1109), run.Op.Apply()), 1);
  EXPECT_EQ(Pixels(*run.Out), expected);
  EXPECT_EQ(Pixels(*std::unique_ptr<DCM_STRUCT>(run.Op.Thinning(run.In.get()))), expected);
}

TEST(MorphoProcessing, SkeletonStopsAfterTheFirstPassChangingAtMostFivePercent)
{
  // A 6 x 8 block in an 8 x 10 image: the passes change 30 %, 2.5 %, then 1.25 %
  // of the pixels, so the skeleton is two passes, not the fixed point.
  MorphoRun run(Pixels(*TestImage(8, 10).Rect(1, 1, 6, 8, 50).Build()));
  EXPECT_EQ((run.Op.SetTools(1108), run.Op.Apply()), 1);

  std::unique_ptr<DCM_STRUCT> once(run.Op.Thinning(run.In.get()));
  std::unique_ptr<DCM_STRUCT> twice(run.Op.Thinning(once.get()));
  std::unique_ptr<DCM_STRUCT> thrice(run.Op.Thinning(twice.get()));
  EXPECT_EQ(Pixels(*run.Out), Pixels(*twice));
  EXPECT_NE(Pixels(*twice), Pixels(*thrice));
}

TEST(MorphoProcessing, MidGreyAveragesTheDiagonalNeighboursOnly)
{
  int data[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, -23};
  auto in = TestImage(1, 1).Build();
  IPG_MORPHO_PROCESSING op(in.get());
  std::unique_ptr<int[]> mid(op.MidGreyOfImage(data, 3, 4));
  ASSERT_NE(mid, nullptr);
  // Corners one neighbour, edges two, inside four; (2,1) is floor(-7 / 4) = -2.
  EXPECT_EQ(std::vector<int>(mid.get(), mid.get() + 12), (std::vector<int>{6, 6, 7, 7, 6, 6, -2, 7, 6, 6, 7, 7}));
  EXPECT_EQ(op.MidGreyOfImage(nullptr, 3, 4), nullptr);
  EXPECT_EQ(op.MidGreyOfImage(data, 0, 4), nullptr);
}

TEST(MorphoProcessing, ApplyFunctionTypes)
{
  auto in = TestImage(1, 1).Build();
  IPG_MORPHO_PROCESSING op(in.get());
  EXPECT_DOUBLE_EQ(op.ApplyFunction(2.0, 3, 2, 4), 4.0);
  EXPECT_DOUBLE_EQ(op.ApplyFunction(4.0, 3, 2, 1), 2.0); // real exponent 1/2
  EXPECT_DOUBLE_EQ(op.ApplyFunction(0.5, 0, 2, 0), 1.0 - std::exp(-1.0));
  EXPECT_DOUBLE_EQ(op.ApplyFunction(1.0, 1, 2, 0), std::log(3.0));
  EXPECT_DOUBLE_EQ(op.ApplyFunction(0.25, 2, 2, 0), std::tanh(0.5));
  EXPECT_EQ(op.ApplyFunction(2.0, 7, 2, 4), 0.0);
  EXPECT_EQ(op.ApplyFunction(2.0, 3, 0, 4), 0.0);
}

TEST(MorphoProcessing, EnhancementKeepsFlatImagesAndRaisesFaintEdges)
{
  for (int type : {0, 1, 2, 3}) {
    MorphoRun flat(Grid(6, std::vector<int>(6, 100)));
    flat.Op.SetTools(1110);
    flat.Op.SetTypeFunction(type);
    flat.Op.SetParamFct1(3);
    EXPECT_EQ(flat.Op.Apply(), 1);
    EXPECT_EQ(Pixels(*flat.Out), Grid(6, std::vector<int>(6, 100))) << "type " << type;
  }

  // Columns 0-9 at 100, 10-19 at 110; a 5 x 5 window and the square-root contrast.
  const Grid edge = Pixels(*TestImage(20, 9).Fill(100).Rect(10, 0, 10, 9, 110).Build());
  MorphoRun run(edge);
  run.Op.SetTools(1110);
  run.Op.SetWindowSize(5);
  run.Op.SetTypeFunction(3);
  run.Op.SetParamFct1(2);
  run.Op.SetParamFct2(1);
  EXPECT_EQ(run.Op.Apply(), 1);
  const int dark = run.Out->Data->GetValue(9u, 4u), bright = run.Out->Data->GetValue(10u, 4u);
  EXPECT_LT(dark, 100);
  EXPECT_GT(bright, 110);
  EXPECT_GT(bright - dark, 3 * 10);
  // Beyond the window's reach the image is flat and stays as it was.
  EXPECT_EQ(run.Out->Data->GetValue(5u, 4u), 100);
  EXPECT_EQ(run.Out->Data->GetValue(14u, 0u), 110);

  // The identity function gives the input back: the grey-level mapping inverts the contrast.
  MorphoRun same(edge);
  same.Op.SetTools(1110);
  same.Op.SetParamFct1(1);
  same.Op.SetParamFct2(1);
  same.Op.Apply();
  EXPECT_EQ(Pixels(*same.Out), edge);
}

// A host may pass the input as the output: with the margin left as found,
// every pixel still sees the input.
TEST(MorphoProcessing, InPlaceErosionSeesTheInput)
{
  Grid grid(40, std::vector<int>(40));
  for (int r = 0; r < 40; ++r)
    for (int c = 0; c < 40; ++c)
      grid[r][c] = (r * 37 + c * 11) % 101;
  MorphoRun apart(grid);
  apart.Op.SetImageBorderType(2);
  ASSERT_EQ(apart.Op.Erode(std::make_unique<IPG_FILTER>(200).get()), 1);
  MorphoRun inPlace(grid);
  inPlace.Op.SetImaOut(inPlace.In.get());
  inPlace.Op.SetImageBorderType(2);
  ASSERT_EQ(inPlace.Op.Erode(std::make_unique<IPG_FILTER>(200).get()), 1);
  const Grid a = Pixels(*apart.Out), b = Pixels(*inPlace.In);
  for (int r = 1; r < 39; ++r)
    for (int c = 1; c < 39; ++c)
      ASSERT_EQ(b[r][c], a[r][c]) << c << "," << r;
}
