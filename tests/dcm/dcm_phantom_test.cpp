// SPDX-License-Identifier: Apache-2.0
// The synthetic ultrasound phantom: regions, speckle statistics, reproducibility.
#include "dcm/dcm_phantom.h"
#include "support/images.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

struct RegionStats {
  double mean = 0.0, contrast = 0.0; // contrast: standard deviation over mean
  std::size_t count = 0;
};

RegionStats Stats(const DCM_PHANTOM& p, int label)
{
  double sum = 0.0, sum2 = 0.0;
  RegionStats s;
  const int* v = p.Image->Data->GetIDataAddress();
  const int* m = p.Mask->Data->GetIDataAddress();
  for (std::size_t i = 0; i < p.Image->Data->GetSize(); ++i)
    if (m[i] == label) {
      sum += v[i];
      sum2 += static_cast<double>(v[i]) * v[i];
      ++s.count;
    }
  s.mean = sum / s.count;
  s.contrast = std::sqrt(sum2 / s.count - s.mean * s.mean) / s.mean;
  return s;
}

DCM_PHANTOM Make(unsigned looks, bool linear, std::uint64_t seed = 7)
{
  return Dcm_MakePhantom({.Size = 128, .Seed = seed, .Looks = looks, .Linear = linear});
}

} // namespace

TEST(DcmPhantom, LinearIntensityFollowsTheEchogenicitySpeckleContrastOneOverRootLooks)
{
  const DCM_PHANTOM p = Make(4, true);
  ASSERT_NE(p.Image, nullptr);
  EXPECT_EQ(p.Image->GetHeader().BitsStored, 16);
  EXPECT_EQ(p.Image->GetHeader().Modality, "US");
  for (int label : {kDcmPhantomTissue, kDcmPhantomLayer, kDcmPhantomInclusion}) {
    SCOPED_TRACE(label);
    const RegionStats s = Stats(p, label);
    ASSERT_GT(s.count, 500u);
    // Neighbouring pixels are correlated by the point-spread function, so the
    // sample mean is looser than for independent pixels.
    EXPECT_NEAR(s.mean / (1000.0 * Dcm_PhantomEchogenicity(label)), 1.0, 0.12);
  }
  EXPECT_LT(Stats(p, kDcmPhantomCyst).mean, 0.05 * Stats(p, kDcmPhantomTissue).mean);

  // Fully developed speckle: intensity of L looks is gamma with contrast 1/sqrt(L).
  EXPECT_NEAR(Stats(Make(1, true), kDcmPhantomTissue).contrast, 1.0, 0.12);
  EXPECT_NEAR(Stats(Make(4, true), kDcmPhantomTissue).contrast, 0.5, 0.07);
}

TEST(DcmPhantom, LogCompressedEightBitOrderedSameSeedSamePixelsBadOptionsRefused)
{
  const DCM_PHANTOM p = Make(2, false);
  EXPECT_EQ(p.Image->GetHeader().BitsStored, 8);
  EXPECT_GE(p.Image->Data->GetMin(), 0);
  EXPECT_LE(p.Image->Data->GetMax(), 255);
  EXPECT_LT(Stats(p, kDcmPhantomCyst).mean, Stats(p, kDcmPhantomLayer).mean);
  EXPECT_LT(Stats(p, kDcmPhantomLayer).mean, Stats(p, kDcmPhantomTissue).mean);
  EXPECT_LT(Stats(p, kDcmPhantomTissue).mean, Stats(p, kDcmPhantomInclusion).mean);

  const DCM_PHANTOM a = Make(1, false, 3), b = Make(1, false, 3), c = Make(1, false, 4);
  EXPECT_EQ(PixelsOf(*a.Image), PixelsOf(*b.Image));
  EXPECT_NE(PixelsOf(*a.Image), PixelsOf(*c.Image));

  EXPECT_EQ(Dcm_MakePhantom({.Size = 8}).Image, nullptr);
  EXPECT_EQ(Dcm_MakePhantom({.Size = 64, .Looks = 0}).Image, nullptr);
}

