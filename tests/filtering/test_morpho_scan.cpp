#include "dcm/dcm_struct.h"
#include "ipg/filtering/ipg_morpho_scan.h"

#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <vector>

namespace {

// Grey levels with marks sprinkled in: set pixels (16777217, which take part)
// and other marks (16777218, 17000000, which do not).
void FillRandom(DCM_STRUCT& image, std::mt19937& random)
{
  std::uniform_int_distribution<int> grey(-50, 5000), pick(0, 19);
  for (unsigned row = 0; row < image.GetNbOfRows(); ++row)
    for (unsigned col = 0; col < image.GetNbOfCols(); ++col) {
      const int kind = pick(random);
      const int v = kind == 0 ? 16777217 : kind == 1 ? 16777218 : kind == 2 ? 17000000 : grey(random);
      image.Data->SetValue(col, row, v);
    }
}

void FillRoi(DCM_STRUCT& roi, std::mt19937& random)
{
  std::uniform_int_distribution<int> pick(0, 3);
  for (unsigned row = 0; row < roi.GetNbOfRows(); ++row)
    for (unsigned col = 0; col < roi.GetNbOfCols(); ++col)
      roi.Data->SetValue(col, row, pick(random) == 0 ? 0 : 16777217);
}

std::vector<int> Scan(const Ipg_MorphoField& field, int sx, int sy, Ipg_MorphoKind kind, int init, bool fast)
{
  std::vector<int> out(field.Values.size(), -7); // -7: not computed
  if (fast)
    Ipg_MorphoScanRectangle(field, sx, sy, kind, init, out.data());
  else
    Ipg_MorphoScanPlain(field, std::vector<unsigned char>(static_cast<std::size_t>(sx) * sy, 1), sx, sy, kind,
                        init, out.data());
  return out;
}

} // namespace

TEST(MorphoScan, RectangleFastPathGivesThePlainPixels)
{
  std::mt19937 random(8);
  const int sizes[][2] = {{1, 1}, {3, 3}, {5, 3}, {1, 7}, {9, 1}, {7, 11}, {15, 15}, {23, 5}, {25, 25}};
  for (const bool withRoi : {false, true}) {
    DCM_STRUCT image(23, 19);
    FillRandom(image, random);
    DCM_STRUCT roi(23, 19);
    FillRoi(roi, random);
    for (const auto kind : {Ipg_MorphoKind::Erosion, Ipg_MorphoKind::Dilation}) {
      const Ipg_MorphoField field = Ipg_MorphoPrepare(image, withRoi ? &roi : nullptr, kind);
      const int init = withRoi ? 16777216 : (kind == Ipg_MorphoKind::Erosion ? 17000000 : 0);
      for (const auto& size : sizes) {
        SCOPED_TRACE(testing::Message() << size[0] << "x" << size[1] << " roi " << withRoi);
        EXPECT_EQ(Scan(field, size[0], size[1], kind, init, true), Scan(field, size[0], size[1], kind, init, false));
      }
    }
  }
}

TEST(MorphoScan, PrepareKeepsGreyLevelsAndSetPixelsOnly)
{
  DCM_STRUCT image(4, 1);
  image.Data->SetValue(0u, 0u, -3);
  image.Data->SetValue(1u, 0u, 16777216);
  image.Data->SetValue(2u, 0u, 16777217);
  image.Data->SetValue(3u, 0u, 16777218);
  DCM_STRUCT roi(4, 1);
  roi.Data->SetValue(0u, 0u, 16777217);
  roi.Data->SetValue(1u, 0u, 1); // any other value is outside
  roi.Data->SetValue(2u, 0u, 16777217);
  roi.Data->SetValue(3u, 0u, 16777217);

  EXPECT_EQ(Ipg_MorphoPrepare(image, nullptr, Ipg_MorphoKind::Erosion).Values,
            (std::vector<int>{-3, 16777216, 16777217, INT_MAX}));
  EXPECT_EQ(Ipg_MorphoPrepare(image, &roi, Ipg_MorphoKind::Dilation).Values,
            (std::vector<int>{-3, INT_MIN, 16777217, INT_MIN}));
}

TEST(MorphoScan, PlainScanUsesOnlyTheElementPositionsAndLeavesTheMargin)
{
  // 5x3 image 1..15; the cross element (a 3x3 with corners off) at the centre row.
  DCM_STRUCT image(5, 3);
  for (unsigned row = 0; row < 3; ++row)
    for (unsigned col = 0; col < 5; ++col)
      image.Data->SetValue(col, row, static_cast<int>(row * 5 + col + 1));
  const Ipg_MorphoField field = Ipg_MorphoPrepare(image, nullptr, Ipg_MorphoKind::Dilation);
  const std::vector<unsigned char> cross = {0, 1, 0, 1, 1, 1, 0, 1, 0};
  std::vector<int> out(15, -1);
  Ipg_MorphoScanPlain(field, cross, 3, 3, Ipg_MorphoKind::Dilation, 0, out.data());
  // Maximum of the cross is the pixel below; the corners (e.g. 13 for column 1) do not count.
  EXPECT_EQ(out, (std::vector<int>{-1, -1, -1, -1, -1, -1, 12, 13, 14, -1, -1, -1, -1, -1, -1}));
}

TEST(MorphoScan, ElementLargerThanTheImageComputesNothing)
{
  DCM_STRUCT image(4, 4);
  const Ipg_MorphoField field = Ipg_MorphoPrepare(image, nullptr, Ipg_MorphoKind::Erosion);
  EXPECT_EQ(Scan(field, 5, 3, Ipg_MorphoKind::Erosion, 17000000, true), std::vector<int>(16, -7));
  EXPECT_EQ(Scan(field, 5, 3, Ipg_MorphoKind::Erosion, 17000000, false), std::vector<int>(16, -7));
}
