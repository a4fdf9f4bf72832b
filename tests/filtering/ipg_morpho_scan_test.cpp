#include "ipg/filtering/ipg_morpho_scan.h"
#include "support/images.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

// Grey levels with marks sprinkled in: set pixels (16777217, which take part)
// and other marks (16777218, 17000000, which do not).
std::unique_ptr<DCM_STRUCT> RandomImage(std::mt19937& random)
{
  std::uniform_int_distribution<int> grey(-50, 5000), pick(0, 19);
  return ImageOf(23, 19, [&](unsigned, unsigned) {
    const int kind = pick(random);
    return kind == 0 ? 16777217 : kind == 1 ? 16777218 : kind == 2 ? 17000000 : grey(random);
  });
}

// About a quarter of the pixels outside.
std::unique_ptr<DCM_STRUCT> RandomRoi(std::mt19937& random)
{
  std::uniform_int_distribution<int> pick(0, 3);
  return ImageOf(23, 19, [&](unsigned, unsigned) { return pick(random) == 0 ? 0 : 16777217; });
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
    auto image = RandomImage(random), roi = RandomRoi(random);
    for (const auto kind : {Ipg_MorphoKind::Erosion, Ipg_MorphoKind::Dilation}) {
      const Ipg_MorphoField field = Ipg_MorphoPrepare(*image, withRoi ? roi.get() : nullptr, kind);
      const int init = withRoi ? 16777216 : (kind == Ipg_MorphoKind::Erosion ? 17000000 : 0);
      for (const auto& size : sizes) {
        SCOPED_TRACE(testing::Message() << size[0] << "x" << size[1] << " roi " << withRoi);
        EXPECT_EQ(Scan(field, size[0], size[1], kind, init, true), Scan(field, size[0], size[1], kind, init, false));
      }
    }
  }
}
