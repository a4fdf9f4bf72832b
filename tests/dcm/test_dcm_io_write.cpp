// Writing DICOM files and PNG previews, and reading them back.
#include "dcm/dcm_io.h"
#include "support/test_data.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <vector>

namespace {

std::string Temp(const std::string& name)
{
  return testing::TempDir() + "/ipg_io_" + name;
}

std::unique_ptr<DCM_STRUCT> RoundTrip(const DCM_STRUCT& image, const std::string& name)
{
  std::string error;
  EXPECT_TRUE(Dcm_WriteFile(image, Temp(name), &error)) << error;
  auto back = Dcm_ReadFile(Temp(name), &error);
  EXPECT_NE(back, nullptr) << error;
  return back;
}

std::vector<int> Pixels(const DCM_STRUCT& image)
{
  const int* p = image.Data->GetIDataAddress();
  return std::vector<int>(p, p + image.Data->GetSize());
}

std::vector<unsigned char> FileBytes(const std::string& path)
{
  std::ifstream in(path, std::ios::binary);
  return std::vector<unsigned char>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

} // namespace

TEST(DcmWriteFile, RoundTripKeepsPixelsGeometryAndPrecision)
{
  DCM_STRUCT image(7, 5, nullptr);
  for (unsigned r = 0; r < 5; ++r)
    for (unsigned c = 0; c < 7; ++c)
      image.Data->SetValue(c, r, static_cast<int>(c * 100 + r) - 300);
  image.Data->SetPrecision(10);
  DCM_HEADER h = image.GetHeader();
  h.BitsStored = 12;
  h.PixelRepresentation = 1;
  h.PhotometricInterpretation = 0;
  h.PixelSpacing[0] = 0.25;
  h.PixelSpacing[1] = 0.5;
  h.ImagePosition[0] = -12.5;
  h.ImagePosition[2] = 3.0;
  h.RowDirection[0] = 0.0;
  h.RowDirection[1] = 1.0;
  h.ColumnDirection[0] = 0.0;
  h.ColumnDirection[1] = 0.0;
  h.ColumnDirection[2] = -1.0;
  h.Modality = "US";
  image.SetHeader(h);

  auto back = RoundTrip(image, "roundtrip.dcm");
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(Pixels(*back), Pixels(image));
  EXPECT_EQ(back->Data->GetMin(), -300);
  EXPECT_EQ(back->Data->GetMax(), 304);
  EXPECT_EQ(back->Data->GetPrecision(), 10);
  const DCM_HEADER g = back->GetHeader();
  EXPECT_EQ(g.BitsStored, 12);
  EXPECT_EQ(g.PhotometricInterpretation, 0);
  EXPECT_DOUBLE_EQ(g.PixelSpacing[0], 0.25);
  EXPECT_DOUBLE_EQ(g.PixelSpacing[1], 0.5);
  EXPECT_DOUBLE_EQ(g.ImagePosition[0], -12.5);
  EXPECT_DOUBLE_EQ(g.ImagePosition[2], 3.0);
  EXPECT_DOUBLE_EQ(g.RowDirection[1], 1.0);
  EXPECT_DOUBLE_EQ(g.ColumnDirection[2], -1.0);
  EXPECT_EQ(g.Modality, "US");
  EXPECT_FALSE(g.SOPInstanceUID.empty());
  EXPECT_FALSE(g.StudyInstanceUID.empty());
  EXPECT_EQ(g.SOPClassUID, "1.2.840.10008.5.1.4.1.1.7");
}

TEST(DcmWriteFile, ValuesBeyondTheStoredBitsWidenTheFile)
{
  // Mode 301 output tops at 2^BitsStored, and ROI marks are above 2^24.
  DCM_STRUCT image(3, 1, nullptr);
  image.Data->SetValue(0u, 0u, 0);
  image.Data->SetValue(1u, 0u, 65536);
  image.Data->SetValue(2u, 0u, 16777217);
  auto back = RoundTrip(image, "wide.dcm");
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(Pixels(*back), Pixels(image));
  EXPECT_EQ(back->GetHeader().BitsStored, 25);
  EXPECT_EQ(back->GetHeader().BitsAllocated, 32);
}

TEST(DcmWriteFile, EachWriteHasItsOwnInstanceUid)
{
  DCM_STRUCT image(2, 2, nullptr);
  auto a = RoundTrip(image, "uid_a.dcm");
  auto b = RoundTrip(image, "uid_b.dcm");
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  EXPECT_NE(a->GetHeader().SOPInstanceUID, b->GetHeader().SOPInstanceUID);
}

TEST(DcmWriteFile, RealFileRoundTrip)
{
  IPG_REQUIRE_TEST_DATA();
  std::string error;
  auto ct = Dcm_ReadFile(TestDataPath("CT_small.dcm"), &error);
  ASSERT_NE(ct, nullptr) << error;
  auto back = RoundTrip(*ct, "ct.dcm");
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(Pixels(*back), Pixels(*ct));
  EXPECT_EQ(back->GetHeader().StudyInstanceUID, ct->GetHeader().StudyInstanceUID);
  EXPECT_DOUBLE_EQ(back->GetHeader().RescaleIntercept, -1024.0);
  EXPECT_DOUBLE_EQ(back->GetHeader().PixelSpacing[0], ct->GetHeader().PixelSpacing[0]);
}

TEST(DcmWriteFile, RefusesWhatItCannotWrite)
{
  DCM_STRUCT image(2, 2, nullptr);
  DCM_HEADER h = image.GetHeader();
  h.PhotometricInterpretation = 2;
  image.SetHeader(h);
  std::string error;
  EXPECT_FALSE(Dcm_WriteFile(image, Temp("colour.dcm"), &error));
  EXPECT_NE(error.find("photometric code 2"), std::string::npos) << error;
  DCM_STRUCT grey(2, 2, nullptr);
  EXPECT_FALSE(Dcm_WriteFile(grey, "/nonexistent-dir/x.dcm", &error));
  EXPECT_FALSE(error.empty());
}

TEST(DcmWritePng, WindowsFromTheExtremesOrTheGivenWindow)
{
  DCM_STRUCT image(3, 1, nullptr);
  image.Data->SetValue(0u, 0u, 100);
  image.Data->SetValue(1u, 0u, 150);
  image.Data->SetValue(2u, 0u, 200);
  image.Data->SetMin();
  std::string error;
  ASSERT_TRUE(Dcm_WritePng(image, Temp("a.png"), &error)) << error;
  const std::vector<unsigned char> png = FileBytes(Temp("a.png"));
  ASSERT_GT(png.size(), 33u);
  EXPECT_EQ(png[1], 'P');
  EXPECT_EQ(png[16 + 8], 8); // bit depth in IHDR
  EXPECT_EQ(png[16 + 9], 0); // grey
  const DCM_WINDOW window{150.0, 100.0};
  ASSERT_TRUE(Dcm_WritePng(image, Temp("b.png"), &error, &window, 16)) << error;
  EXPECT_EQ(FileBytes(Temp("b.png"))[16 + 8], 16);
  EXPECT_FALSE(Dcm_WritePng(image, Temp("c.png"), &error, nullptr, 12));
  EXPECT_NE(error.find("8 or 16"), std::string::npos);
}
