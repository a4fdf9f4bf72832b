// SPDX-License-Identifier: Apache-2.0
// Reading DICOM files: hostile input (damaged, forged and mutated files are
// refused with a reason, never crash, allocate without bound or hang), real
// third-party files, and writing files and PNG previews.
#include "dcm/dcm_io.h"
#include "support/images.h"
#include "support/test_data.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;
using testing::ElementsAre;
using testing::HasSubstr;

// A small explicit VR little endian file: meta, the image-pixel attributes
// given, and pixel data of the given length.
class FileBuilder {
public:
  FileBuilder()
  {
    Out.assign(128, 0);
    Out.insert(Out.end(), {'D', 'I', 'C', 'M'});
    Text(0x0002, 0x0010, "UI", "1.2.840.10008.1.2.1");
  }
  FileBuilder& UShort(uint16_t e, uint16_t v)
  {
    Header(0x0028, e, "US", 2);
    Put16(v);
    return *this;
  }
  FileBuilder& Text(uint16_t g, uint16_t e, const char* vr, std::string v)
  {
    if (v.size() % 2)
      v.push_back(' ');
    Header(g, e, vr, static_cast<uint16_t>(v.size()));
    Out.insert(Out.end(), v.begin(), v.end());
    return *this;
  }
  FileBuilder& Mono(unsigned cols, unsigned rows)
  {
    UShort(0x0002, 1).Text(0x0028, 0x0004, "CS", "MONOCHROME2");
    return UShort(0x0010, static_cast<uint16_t>(rows)).UShort(0x0011, static_cast<uint16_t>(cols));
  }
  FileBuilder& Bits(uint16_t allocated, uint16_t stored)
  {
    return UShort(0x0100, allocated).UShort(0x0101, stored).UShort(0x0102, static_cast<uint16_t>(stored - 1));
  }
  Bytes Pixels(uint32_t length, uint32_t declared = 0)
  {
    Out.insert(Out.end(), {0xe0, 0x7f, 0x10, 0x00, 'O', 'W', 0, 0});
    Put32(declared ? declared : length);
    for (uint32_t i = 0; i < length; ++i)
      Out.push_back(static_cast<unsigned char>(i * 7));
    return Out;
  }

private:
  void Put16(uint16_t v) { Out.insert(Out.end(), {uint8_t(v), uint8_t(v >> 8)}); }
  void Put32(uint32_t v) { Put16(uint16_t(v)), Put16(uint16_t(v >> 16)); }
  void Header(uint16_t g, uint16_t e, const char* vr, uint16_t length)
  {
    Put16(g), Put16(e);
    Out.insert(Out.end(), {uint8_t(vr[0]), uint8_t(vr[1])});
    Put16(length);
  }
  Bytes Out;
};

std::string ReadError(const Bytes& file)
{
  std::string error;
  EXPECT_EQ(Dcm_ReadBuffer(file.data(), file.size(), &error), nullptr);
  EXPECT_FALSE(error.empty());
  return error;
}

Bytes FileBytes(const std::string& path)
{
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Isolated decoding on for the scope of a test.
struct Isolation {
  explicit Isolation(bool on) : Previous(Dcm_SetIsolatedDecoding(on)) {}
  ~Isolation() { Dcm_SetIsolatedDecoding(Previous); }
  bool Previous;
};

std::unique_ptr<DCM_STRUCT> Read(const std::string& name, unsigned frame = 0)
{
  std::string error;
  auto image = Dcm_ReadFile(TestDataPath(name), &error, frame);
  EXPECT_NE(image, nullptr) << name << ": " << error;
  return image;
}

std::string ReadError(const std::string& path)
{
  std::string error;
  auto image = Dcm_ReadFile(path, &error);
  EXPECT_EQ(image, nullptr) << path;
  return error;
}

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

} // namespace

TEST(DcmReadHostile, ForgedAttributesAreRefusedBeforeDecodingAValidFileReads)
{
  EXPECT_THAT(ReadError(FileBuilder().Mono(4, 4).UShort(0x0002, 0).Bits(16, 16).Pixels(32)),
              HasSubstr("samples per pixel"));
  EXPECT_THAT(ReadError(FileBuilder().Mono(4, 4).Bits(12, 12).Pixels(32)), HasSubstr("12 bits allocated"));
  EXPECT_THAT(ReadError(FileBuilder().Mono(4, 4).Bits(1, 16).Pixels(32)), HasSubstr("invalid Bits Stored 16"));
  EXPECT_THAT(ReadError(FileBuilder().Mono(0, 4).Bits(16, 16).Pixels(32)), HasSubstr("without rows or columns"));
  auto frames = FileBuilder().Mono(4, 4).Bits(16, 16).Text(0x0028, 0x0008, "IS", "2147483647").Pixels(32);
  EXPECT_THAT(ReadError(frames), HasSubstr("pixel data too short"));
  auto planar = FileBuilder().UShort(0x0002, 3).Text(0x0028, 0x0004, "CS", "RGB").UShort(0x0006, 2);
  EXPECT_THAT(ReadError(planar.UShort(0x0010, 4).UShort(0x0011, 4).Bits(8, 8).Pixels(48)),
              HasSubstr("Planar Configuration"));
  auto palette = FileBuilder().UShort(0x0002, 1).Text(0x0028, 0x0004, "CS", "PALETTE COLOR");
  EXPECT_THAT(ReadError(palette.UShort(0x0010, 4).UShort(0x0011, 4).Bits(8, 8).Pixels(16)), HasSubstr("lookup table"));
  // Declared lengths are checked against the bytes.
  EXPECT_THAT(ReadError(FileBuilder().Mono(4, 4).Bits(16, 16).Pixels(32, 0x7ffffff0)),
              HasSubstr("truncated pixel data"));
  Bytes file = FileBuilder().Mono(4, 4).Bits(16, 16).Pixels(32);
  file[128 + 4 + 12 + 6] = 0xff; // the transfer syntax element claims more than the file holds
  file[128 + 4 + 12 + 7] = 0xff;
  EXPECT_FALSE(ReadError(file).empty());

  // A valid file reads with or without its preamble and ignores a bad rescale.
  Bytes valid = FileBuilder().Mono(4, 2).Bits(16, 12).Text(0x0028, 0x1052, "DS", "NaN").Pixels(16);
  std::string error;
  auto image = Dcm_ReadBuffer(valid.data(), valid.size(), &error);
  ASSERT_NE(image, nullptr) << error;
  EXPECT_EQ(image->Data->GetValue(1, 0), (14 | 21 << 8) & 0xfff); // bytes 14, 21 masked to 12 bits
  EXPECT_EQ(image->GetHeader().RescaleIntercept, 0.0);
  const Bytes bare(valid.begin() + 132, valid.end());
  auto again = Dcm_ReadBuffer(bare.data(), bare.size(), &error);
  ASSERT_NE(again, nullptr) << error;
  EXPECT_EQ(again->Data->GetValue(3, 1), image->Data->GetValue(3, 1));
}

TEST(DcmReadHostile, SharedRegressionFilesAreRefusedAPaletteFileReadsInAndOutOfProcess)
{
  const std::string dir = std::string(IPG_TEST_SOURCE_DIR) + "/dcm/bad-dicom/";
  const std::pair<const char*, const char*> expected[] = {
      {"ct-bitsalloc1-assert-scalartype.dcm", "invalid Bits Stored"},
      {"j2k-insert32-3.7GB-16s.dcm", ""},
      {"j2k-rows1-heap-overflow.dcm", "the codec declares 256 x 1024 pixels"},
      {"preamble-DICM-only-132B-assert.dcm", "without a data set"},
      {"rle-65535x65535-bad_alloc.dcm", "exceeds the read limit"}};
  for (bool isolated : {false, true}) {
    Isolation isolation(isolated);
    for (const auto& [name, reason] : expected) {
      SCOPED_TRACE(name);
      std::string error;
      EXPECT_EQ(Dcm_ReadFile(dir + name, &error), nullptr);
      EXPECT_THAT(error, HasSubstr(reason));
    }
    // A palette colour file reads as luminance.
    std::string error;
    auto image = Dcm_ReadFile(std::string(IPG_TEST_SOURCE_DIR) + "/dcm/data/palette_8bit_16x16.dcm", &error);
    ASSERT_NE(image, nullptr) << error;
    EXPECT_TRUE(image->Data->GetRGB());
    EXPECT_EQ(image->Data->GetMin(), 87);
    EXPECT_EQ(image->Data->GetMax(), 168);
  }
}

TEST(DcmReadHostile, ReadLimitsStopAHangingDecoderAndRefuseLargeFrames)
{
  Isolation isolation(true);
  DCM_READ_LIMITS quick;
  quick.MaxSeconds = 1.0;
  const DCM_READ_LIMITS previous = Dcm_SetReadLimits(quick);
  std::string error;
  EXPECT_EQ(Dcm_ReadFile(std::string(IPG_TEST_SOURCE_DIR) + "/dcm/bad-dicom/jpegls-mutant-decoder-hang.dcm", &error),
            nullptr);
  EXPECT_THAT(error, HasSubstr("longer than 1 s"));
  Dcm_SetReadLimits(previous);

  // The size limit refuses large frames.
  const Bytes file = FileBuilder().Mono(64, 64).Bits(16, 16).Pixels(64 * 64 * 2);
  DCM_READ_LIMITS small;
  small.MaxDecodedBytes = 64 * 64 * 4 - 1;
  Dcm_SetReadLimits(small);
  EXPECT_THAT(ReadError(file), HasSubstr("exceeds the read limit"));
  Dcm_SetReadLimits(previous);
  EXPECT_NE(Dcm_ReadBuffer(file.data(), file.size(), nullptr), nullptr);
}

// Random mutants of real files through the isolation wall: each one reads or
// is refused with a reason, and the test process lives on.
TEST(DcmReadHostile, MutantsOfRealFilesNeverTakeTheCallerDown)
{
  IPG_REQUIRE_TEST_DATA();
  Isolation isolation(true);
  std::mt19937 random(20261123);
  for (const char* name : {"MR_small_RLE.dcm", "MR_small_jp2klossless.dcm", "JPEG-lossy.dcm", "rtdose.dcm",
                           "MR_small_bigendian.dcm", "SC_rgb_rle_2frame.dcm"}) {
    const Bytes original = FileBytes(TestDataPath(name));
    ASSERT_FALSE(original.empty()) << name;
    for (int n = 0; n < 40; ++n) {
      Bytes mutant = original;
      for (int k = 0, edits = 1 + int(random() % 8); k < edits; ++k)
        mutant[random() % mutant.size()] = static_cast<unsigned char>(random());
      std::string error;
      auto image = Dcm_ReadBuffer(mutant.data(), mutant.size(), &error, random() % 2);
      EXPECT_TRUE(image != nullptr || !error.empty()) << name << " mutant " << n;
    }
  }
}

// Reading real third-party DICOM files (pydicom's test files).

TEST(DcmReadFile, MrSmallHeaderAndEveryEncodingOfItsPixels)
{
  IPG_REQUIRE_TEST_DATA();
  auto reference = Read("MR_small.dcm");
  ASSERT_TRUE(reference && reference->GetNbOfCols() == 64u && reference->GetNbOfRows() == 64u);
  const DCM_HEADER h = reference->GetHeader();
  EXPECT_EQ(h.PixelRepresentation, 1);
  EXPECT_EQ(h.PhotometricInterpretation, 1);
  EXPECT_DOUBLE_EQ(h.PixelSpacing[0], 0.3125);
  EXPECT_DOUBLE_EQ(h.PixelSpacing[1], 0.3125);
  EXPECT_NEAR(h.ImagePosition[0], -83.9063, 1e-3);
  EXPECT_EQ(h.TransferSyntax, "1.2.840.10008.1.2.1");
  EXPECT_EQ(h.Modality, "MR");
  EXPECT_EQ(Dcm_TransferSyntaxName(h.TransferSyntax), "Explicit VR Little Endian");
  EXPECT_FALSE(reference->Data->GetRGB());
  EXPECT_EQ(reference->Data->GetPrecision(), 1);
  const std::vector<int> expected = PixelsOf(*reference);
  for (const char* name : {"MR_small_bigendian.dcm", "MR_small_implicit.dcm", "MR_small_expb.dcm",
                           "MR_small_RLE.dcm", "MR_small_jpeg_ls_lossless.dcm", "MR_small_jp2klossless.dcm",
                           "MR_small_padded.dcm"}) {
    SCOPED_TRACE(name);
    auto image = Read(name);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(PixelsOf(*image), expected);
    EXPECT_EQ(image->Data->GetMin(), reference->Data->GetMin());
    EXPECT_EQ(image->Data->GetMax(), reference->Data->GetMax());
    EXPECT_EQ(image->GetHeader().BitsStored, 16);
  }
}

TEST(DcmReadFile, SignedFilesKeepTheirValuesAndSpacingAndWriteBack)
{
  IPG_REQUIRE_TEST_DATA();
  auto ct = Read("CT_small.dcm"), j2k = Read("693_J2KI.dcm");
  ASSERT_TRUE(ct && j2k);
  const DCM_HEADER h = ct->GetHeader();
  EXPECT_EQ(ct->GetNbOfCols(), 128u);
  EXPECT_EQ(h.PixelRepresentation, 1);
  EXPECT_NEAR(h.PixelSpacing[0], 0.661468, 1e-6);
  EXPECT_NEAR(h.PixelSpacing[1], 0.661468, 1e-6);
  EXPECT_DOUBLE_EQ(h.RescaleIntercept, -1024.0);
  EXPECT_EQ(ct->Data->GetMin(), 128);
  EXPECT_EQ(ct->Data->GetMax(), 2191);
  EXPECT_EQ(j2k->Data->GetMin(), -2971);
  EXPECT_EQ(j2k->Data->GetMax(), 2836);

  auto back = RoundTrip(*ct, "ct.dcm"); // a real header survives writing
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(PixelsOf(*back), PixelsOf(*ct));
  EXPECT_EQ(back->GetHeader().StudyInstanceUID, h.StudyInstanceUID);
  EXPECT_DOUBLE_EQ(back->GetHeader().RescaleIntercept, -1024.0);
  EXPECT_DOUBLE_EQ(back->GetHeader().PixelSpacing[0], h.PixelSpacing[0]);
}

// The SC_rgb files hold horizontal stripes: red (255,0,0) at row 5, (255,128,128)
// at row 15, green (0,255,0) at row 25; BT.601 luminance 76, 166 and 150.
TEST(DcmReadFile, ColourFilesReadAsFlaggedLuminanceMultiFrameFilesGiveAnyFrame)
{
  IPG_REQUIRE_TEST_DATA();
  for (const char* name : {"SC_rgb_rle.dcm", "SC_rgb_jpeg_gdcm.dcm", "SC_rgb_gdcm_KY.dcm",
                           "SC_ybr_full_422_uncompressed.dcm", "SC_rgb_dcmtk_+eb+cy+s2.dcm"}) {
    SCOPED_TRACE(name);
    auto image = Read(name);
    ASSERT_NE(image, nullptr);
    EXPECT_TRUE(image->Data->GetRGB());
    EXPECT_EQ(image->GetHeader().PhotometricInterpretation, 1);
    EXPECT_NEAR(image->Data->GetValue(50, 5), 76, 1);
    EXPECT_NEAR(image->Data->GetValue(50, 15), 166, 1);
    EXPECT_NEAR(image->Data->GetValue(50, 25), 150, 1);
  }

  IPG_REQUIRE_TEST_DATA();
  auto first = Read("rtdose.dcm", 0), last = Read("rtdose.dcm", 14);
  ASSERT_TRUE(first && last);
  EXPECT_EQ(first->GetHeader().NumberOfFrames, 15);
  EXPECT_EQ(last->GetHeader().Frame, 14);
  EXPECT_NE(PixelsOf(*first), PixelsOf(*last));
  // The same frame through three encodings.
  for (const char* name : {"rtdose_rle.dcm", "rtdose_expb.dcm"}) {
    SCOPED_TRACE(name);
    auto other = Read(name, 14);
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(PixelsOf(*other), PixelsOf(*last));
  }
  std::string error;
  EXPECT_EQ(Dcm_ReadFile(TestDataPath("rtdose.dcm"), &error, 15), nullptr);
  EXPECT_THAT(error, HasSubstr("frame 15 out of range"));

  auto second = Read("SC_rgb_rle_2frame.dcm", 1);
  EXPECT_TRUE(second && second->GetHeader().NumberOfFrames == 2);
}

TEST(DcmReadFile, DamagedOrForeignFilesGiveClearErrorsOddEncodingsDecode)
{
  IPG_REQUIRE_TEST_DATA();
  EXPECT_THAT(ReadError(TestDataPath("MR_truncated.dcm")), HasSubstr("truncated pixel data"));
  EXPECT_THAT(ReadError(TestDataPath("no_meta.dcm")), HasSubstr("not a DICOM file"));
  EXPECT_THAT(ReadError(TestDataPath("badVR.dcm")), HasSubstr("invalid Number of Frames '1A'"));
  EXPECT_THAT(ReadError(TestDataPath("rtplan.dcm")), HasSubstr("without an image (RT Plan Storage)"));
  // Its whole data set is one private sequence of unknown VR.
  EXPECT_THAT(ReadError(TestDataPath("UN_sequence.dcm")), HasSubstr("without an image"));
  EXPECT_THAT(ReadError(TestDataPath("JPEG2000-embedded-sequence-delimiter.dcm")), HasSubstr("the codec declares"));

  IPG_REQUIRE_TEST_DATA();
  auto deflated = Read("image_dfl.dcm"), extended = Read("JPGExtended.dcm");
  ASSERT_TRUE(deflated && extended);
  EXPECT_EQ(deflated->GetNbOfCols(), 512u);
  EXPECT_EQ(deflated->GetHeader().BitsStored, 8);
  EXPECT_EQ(extended->GetHeader().BitsStored, 12);
  EXPECT_GT(extended->Data->GetMax(), 0);

  // Multi-frame classes without Number of Frames read as one frame.
  IPG_REQUIRE_TEST_DATA();
  auto dose = Read("rtdose.dcm"), single = Read("rtdose_1frame.dcm"), liver = Read("liver_1frame.dcm");
  ASSERT_TRUE(dose && single && liver);
  EXPECT_EQ(PixelsOf(*single), PixelsOf(*dose));
  EXPECT_EQ(single->GetHeader().NumberOfFrames, 1);
  EXPECT_EQ(liver->GetNbOfCols(), 512u);
  EXPECT_EQ(liver->Data->GetMax(), 1);
}

TEST(DcmReadFile, MissingEmptyNonDicomAndSpecialFiles)
{
  const std::string dir = testing::TempDir();
  std::ofstream(dir + "/ipg_empty.dcm").close();
  std::ofstream(dir + "/ipg_text.dcm") << "this is plain text, not a DICOM file\n";
  EXPECT_THAT(ReadError(dir + "/ipg_empty.dcm"), HasSubstr("empty file"));
  EXPECT_THAT(ReadError(dir + "/ipg_text.dcm"), HasSubstr("not a DICOM file"));
  EXPECT_THAT(ReadError(dir + "/ipg_no_such_file.dcm"), HasSubstr("No such file"));
  EXPECT_THAT(ReadError(dir), HasSubstr("is a directory"));
  EXPECT_EQ(Dcm_ReadFile(dir + "/ipg_text.dcm", nullptr), nullptr); // no error text asked for

  // Special files are named for what they are.
  std::string error;
  EXPECT_EQ(Dcm_ReadFile("/dev/zero", &error), nullptr);
  EXPECT_THAT(error, HasSubstr("character device"));
  const std::string fifo = testing::TempDir() + "/ipg_fifo.dcm";
  std::filesystem::remove(fifo);
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(Dcm_ReadFile(fifo, &error), nullptr); // must not block on the pipe
  EXPECT_THAT(error, HasSubstr("named pipe"));
  std::filesystem::remove(fifo);
}

// OpenJPEG leaks its decoder state when it gives up on a damaged JPEG 2000
// stream (the embedded-delimiter file above); the leak is theirs, not ours.
extern "C" const char* __lsan_default_suppressions()
{
  return "leak:libopenjp2.so\n";
}

// Writing DICOM files and PNG previews, and reading them back.

TEST(DcmWriteFile, RoundTripKeepsPixelsGeometryAndPrecisionAndWidensForLargeValues)
{
  auto built = ImageOf(7, 5, [](unsigned c, unsigned r) { return static_cast<int>(c * 100 + r) - 300; });
  DCM_STRUCT& image = *built;
  image.Data->SetPrecision(10);
  DCM_HEADER h = image.GetHeader();
  h.BitsStored = 12;
  h.PixelRepresentation = 1;
  h.PhotometricInterpretation = 0;
  std::ranges::copy(std::array{0.25, 0.5}, h.PixelSpacing);
  std::ranges::copy(std::array{-12.5, 0.0, 3.0}, h.ImagePosition);
  std::ranges::copy(std::array{0.0, 1.0, 0.0}, h.RowDirection);
  std::ranges::copy(std::array{0.0, 0.0, -1.0}, h.ColumnDirection);
  h.Modality = "US";
  image.SetHeader(h);

  auto back = RoundTrip(image, "roundtrip.dcm");
  auto again = RoundTrip(image, "roundtrip_again.dcm");
  ASSERT_TRUE(back && again);
  EXPECT_EQ(PixelsOf(*back), PixelsOf(image));
  EXPECT_EQ(back->Data->GetMin(), -300);
  EXPECT_EQ(back->Data->GetMax(), 304);
  EXPECT_EQ(back->Data->GetPrecision(), 10);
  const DCM_HEADER g = back->GetHeader();
  EXPECT_EQ(g.BitsStored, 12);
  EXPECT_EQ(g.PhotometricInterpretation, 0);
  EXPECT_THAT(g.PixelSpacing, ElementsAre(0.25, 0.5));
  EXPECT_THAT(g.ImagePosition, ElementsAre(-12.5, 0.0, 3.0));
  EXPECT_THAT(g.RowDirection, ElementsAre(0.0, 1.0, 0.0));
  EXPECT_THAT(g.ColumnDirection, ElementsAre(0.0, 0.0, -1.0));
  EXPECT_EQ(g.Modality, "US");
  EXPECT_FALSE(g.SOPInstanceUID.empty());
  EXPECT_FALSE(g.StudyInstanceUID.empty());
  EXPECT_EQ(g.SOPClassUID, "1.2.840.10008.5.1.4.1.1.7");
  EXPECT_NE(again->GetHeader().SOPInstanceUID, g.SOPInstanceUID); // each write has its own

  // Values beyond the stored bits widen the file: mode 301 output tops at
  // 2^BitsStored, and ROI marks are above 2^24.
  auto wide = ImageOf(3, 1, {0, 65536, 16777217});
  auto wideBack = RoundTrip(*wide, "wide.dcm");
  ASSERT_NE(wideBack, nullptr);
  EXPECT_EQ(PixelsOf(*wideBack), PixelsOf(*wide));
  EXPECT_EQ(wideBack->GetHeader().BitsStored, 25);
  EXPECT_EQ(wideBack->GetHeader().BitsAllocated, 32);
}

TEST(DcmWriteFile, RefusesWhatItCannotWriteAndWindowsPngPreviews)
{
  DCM_STRUCT image(2, 2, nullptr);
  DCM_HEADER h = image.GetHeader();
  h.PhotometricInterpretation = 2;
  image.SetHeader(h);
  std::string error;
  EXPECT_FALSE(Dcm_WriteFile(image, Temp("colour.dcm"), &error));
  EXPECT_THAT(error, HasSubstr("photometric code 2"));
  DCM_STRUCT grey(2, 2, nullptr);
  EXPECT_FALSE(Dcm_WriteFile(grey, "/nonexistent-dir/x.dcm", &error));
  EXPECT_FALSE(error.empty());

  // PNG previews window from the extremes or the given window.
  auto ramp = ImageOf(3, 1, {100, 150, 200});
  ASSERT_TRUE(Dcm_WritePng(*ramp, Temp("a.png"), &error)) << error;
  const std::vector<unsigned char> png = FileBytes(Temp("a.png"));
  ASSERT_GT(png.size(), 33u);
  EXPECT_EQ(png[1], 'P');
  EXPECT_EQ(png[16 + 8], 8); // bit depth in IHDR
  EXPECT_EQ(png[16 + 9], 0); // grey
  const DCM_WINDOW window{150.0, 100.0};
  ASSERT_TRUE(Dcm_WritePng(*ramp, Temp("b.png"), &error, &window, 16)) << error;
  EXPECT_EQ(FileBytes(Temp("b.png"))[16 + 8], 16);
  EXPECT_FALSE(Dcm_WritePng(*ramp, Temp("c.png"), &error, nullptr, 12));
  EXPECT_THAT(error, HasSubstr("8 or 16"));
}

