// SPDX-License-Identifier: Apache-2.0
#include "ipg/correction/ipg_gridcorrection.h"

#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

constexpr unsigned kSide = 256;
constexpr double kPitch = 16.0;
constexpr double kBarrel = -0.05;

BeadGridShape Shape() { return {.Cols = kSide, .Rows = kSide, .Pitch = kPitch, .K = kBarrel}; }

// The barrel grid with a stray spot half-way between four beads.
std::unique_ptr<DCM_STRUCT> GridWithStraySpot(BeadPosition& stray)
{
  const BeadGridShape shape = Shape();
  std::vector<BeadPosition> beads;
  for (const BeadPosition& p : LatticePositions(shape))
    beads.push_back(BarrelDistorted(shape, p.X, p.Y));
  stray = {127.5 + 2.5 * kPitch, 127.5 - 1.5 * kPitch};
  beads.push_back(stray);
  return BeadImage(shape, beads);
}

// Distance from (x, y) to the nearest point of the undistorted lattice.
double OffLattice(double x, double y)
{
  const double cx = (kSide - 1) / 2.0;
  const double i = std::round((x - cx) / kPitch), j = std::round((y - cx) / kPitch);
  return std::hypot(x - (cx + i * kPitch), y - (cx + j * kPitch));
}

TEST(IpgGridCorrection, BarrelGridIsRecoveredAndCorrectedToARegularLattice)
{
  BeadPosition stray{};
  auto grid = GridWithStraySpot(stray);
  for (int method : {0, 1, 2}) {
    SCOPED_TRACE(method);
    DCM_STRUCT corrected(*grid, false);
    IPG_GRIDCORRECTION correction(grid.get(), nullptr, &corrected);
    correction.SetPitch(kPitch);
    correction.SetDetectionMethod(method);
    correction.SetThreshold(400);
    correction.SetMode(302);
    ASSERT_TRUE(correction.Apply()); // 1702 by default

    EXPECT_LT(correction.GetResidualRms(), 0.2);
    EXPECT_EQ(correction.GetResult(), correction.GetResidualRms());
    EXPECT_GT(correction.GetNumberOfBeads(), 270); // of the 17 x 17 drawn
    for (const IPG_REAL_POINT& bead : correction.GetDetectedBeads())
      EXPECT_GT(std::hypot(bead.X - stray.X, bead.Y - stray.Y), 1.0) << "the stray spot is not a lattice bead";
    // The model is the distortion: ideal lattice points land where the beads were drawn.
    const IPG_REAL_POINT corner = correction.MapIdealToDetected(127.5 + 6 * kPitch, 127.5 + 6 * kPitch);
    const BeadPosition expected = BarrelDistorted(Shape(), 127.5 + 6 * kPitch, 127.5 + 6 * kPitch);
    EXPECT_NEAR(corner.X, expected.X, 0.2);
    EXPECT_NEAR(corner.Y, expected.Y, 0.2);

    // Beads found again on the corrected image sit on the regular lattice.
    IPG_GRIDCORRECTION check(&corrected);
    check.SetPitch(kPitch);
    check.SetDetectionMethod(method);
    check.SetThreshold(400);
    ASSERT_TRUE(check.DetectAndFit());
    EXPECT_GT(check.GetNumberOfBeads(), 200); // of the 15 x 15 lattice points on the image
    double worst = 0.0;
    for (const IPG_REAL_POINT& bead : check.GetDetectedBeads())
      worst = std::max(worst, OffLattice(bead.X, bead.Y));
    EXPECT_LT(worst, 0.3);
  }
}

TEST(IpgGridCorrection, CorrectsAnotherImageOfTheGridGeometryAndKeepsRoiAndMarks)
{
  auto grid = BeadGrid(Shape());
  IPG_GRIDCORRECTION correction(grid.get());
  correction.SetPitch(kPitch);
  ASSERT_TRUE(correction.DetectAndFit());

  // A uniform image stays uniform inside; outside the ROI and marks are copied.
  auto flat = TestImage(kSide, kSide).Fill(500).At(128, 128, 16777300).Build();
  auto roi = ImageOf(kSide, kSide, [](unsigned c, unsigned) { return c < 200 ? kRoiInside : 0; });
  DCM_STRUCT out(*flat, false);
  correction.SetImaIn(flat.get());
  correction.SetRoi(roi.get());
  correction.SetImaOut(&out);
  correction.SetMode(302);
  correction.SetTools(1701);
  ASSERT_TRUE(correction.Apply());
  EXPECT_EQ(out.Data->GetValue(10, 10), 500);
  EXPECT_EQ(out.Data->GetValue(128, 128), 16777300); // the centre does not move
  EXPECT_EQ(out.Data->GetValue(250, 3), 500);        // outside the ROI
  EXPECT_EQ(out.Data->GetMax(), 16777300);

  // A copy carries the model, not the base fields: it corrects the grid as the original does.
  IPG_GRIDCORRECTION copy(correction);
  EXPECT_EQ(copy.GetTools(), 0.0);
  ASSERT_TRUE(copy.HasModel());
  DCM_STRUCT fromOriginal(*grid, false), fromCopy(*grid, false);
  for (auto [op, target] : {std::pair{&correction, &fromOriginal}, std::pair{&copy, &fromCopy}}) {
    op->SetImaIn(grid.get());
    op->SetRoi(nullptr);
    op->SetImaOut(target);
    op->SetMode(302);
    ASSERT_TRUE(op->CorrectDistortion());
  }
  EXPECT_EQ(PixelsOf(fromCopy), PixelsOf(fromOriginal));
}

TEST(IpgGridCorrection, BadInputGivesItsMessageAndFalse)
{
  MessageCapture messages;
  auto grid = BeadGrid(Shape());
  auto flat = TestImage(64, 64).Fill(100).Build();
  auto tiny = TestImage(1, 1).Build();
  auto threeByThree = BeadGrid({.Cols = 48, .Rows = 48, .Pitch = 16.0});
  DCM_STRUCT out(*grid, false);
  DCM_STRUCT smallOut(*flat, false);
  const std::string range = "hors limites : IPG_GRIDCORRECTION::Apply()";
  struct Case {
    DCM_STRUCT* in;
    DCM_STRUCT* out;
    int tools;
    void (*configure)(IPG_GRIDCORRECTION&);
    std::string message;
  };
  const Case cases[] = {
      {nullptr, &out, 1702, nullptr, "Pas d'image d'entrée!"},
      {grid.get(), nullptr, 1702, nullptr, "image de sortie non allouée"},
      {grid.get(), &smallOut, 1702, nullptr, "Les images n'ont pas les mêmes dimensions : IPG_GRIDCORRECTION::Apply()"},
      {tiny.get(), nullptr, 1700, nullptr, "Image trop petite : IPG_GRIDCORRECTION::DetectAndFit()"},
      {grid.get(), nullptr, 1700, [](IPG_GRIDCORRECTION& g) { g.SetPitch(0.0); }, "Paramètre Pitch " + range},
      {grid.get(), nullptr, 1700, [](IPG_GRIDCORRECTION& g) { g.SetPitch(-16.0); }, "Paramètre Pitch " + range},
      {grid.get(), nullptr, 1700, [](IPG_GRIDCORRECTION& g) { g.SetPitch(std::numeric_limits<double>::quiet_NaN()); }, "Paramètre Pitch " + range},
      {grid.get(), nullptr, 1700, [](IPG_GRIDCORRECTION& g) { g.SetModelOrder(1); }, "Paramètre ModelOrder " + range},
      {grid.get(), nullptr, 1700, [](IPG_GRIDCORRECTION& g) { g.SetModelOrder(6); }, "Paramètre ModelOrder " + range},
      {flat.get(), nullptr, 1700, nullptr, "Aucune bille détectée : IPG_GRIDCORRECTION::DetectAndFit()"},
      // 3 x 3 beads: 9 points for the 10 terms of order 3.
      {threeByThree.get(), nullptr, 1700, nullptr,
       "Trop peu de billes pour l'ordre du modèle : IPG_GRIDCORRECTION::DetectAndFit()"},
      {grid.get(), &out, 1701, nullptr, "Aucun modèle de distorsion calculé : IPG_GRIDCORRECTION::CorrectDistortion()"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.message);
    messages.Texts.clear();
    IPG_GRIDCORRECTION correction(c.in, nullptr, c.out);
    if (c.configure)
      c.configure(correction);
    correction.SetTools(c.tools);
    EXPECT_FALSE(correction.Apply());
    EXPECT_EQ(messages.Texts, std::vector<std::string>{c.message});
    EXPECT_FALSE(correction.HasModel());
  }

  // The nine beads do fit order 2; the model then refuses an image of another size.
  IPG_GRIDCORRECTION small(threeByThree.get());
  small.SetModelOrder(2);
  ASSERT_TRUE(small.DetectAndFit());
  EXPECT_EQ(small.GetNumberOfBeads(), 9);
  messages.Texts.clear();
  small.SetImaIn(grid.get());
  small.SetImaOut(&out);
  EXPECT_FALSE(small.CorrectDistortion());
  EXPECT_EQ(messages.Texts,
            std::vector<std::string>{"Les images n'ont pas les mêmes dimensions : IPG_GRIDCORRECTION::CorrectDistortion()"});
}

} // namespace
