// Hostile input to the DICOM reader: damaged, forged and mutated files must be
// refused with a reason, never crash, allocate without bound or hang.
#include "dcm/dcm_io.h"
#include "support/test_data.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

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

} // namespace

TEST(DcmReadHostile, ForgedImageAttributesAreRefusedBeforeDecoding)
{
  EXPECT_NE(ReadError(FileBuilder().Mono(4, 4).UShort(0x0002, 0).Bits(16, 16).Pixels(32)).find("samples per pixel"),
            std::string::npos);
  EXPECT_NE(ReadError(FileBuilder().Mono(4, 4).Bits(12, 12).Pixels(32)).find("12 bits allocated"), std::string::npos);
  EXPECT_NE(ReadError(FileBuilder().Mono(4, 4).Bits(1, 16).Pixels(32)).find("invalid Bits Stored 16"),
            std::string::npos);
  EXPECT_NE(ReadError(FileBuilder().Mono(0, 4).Bits(16, 16).Pixels(32)).find("without rows or columns"),
            std::string::npos);
  auto frames = FileBuilder().Mono(4, 4).Bits(16, 16).Text(0x0028, 0x0008, "IS", "2147483647").Pixels(32);
  EXPECT_NE(ReadError(frames).find("pixel data too short"), std::string::npos);
  auto planar = FileBuilder().UShort(0x0002, 3).Text(0x0028, 0x0004, "CS", "RGB").UShort(0x0006, 2);
  EXPECT_NE(ReadError(planar.UShort(0x0010, 4).UShort(0x0011, 4).Bits(8, 8).Pixels(48)).find("Planar Configuration"),
            std::string::npos);
  auto palette = FileBuilder().UShort(0x0002, 1).Text(0x0028, 0x0004, "CS", "PALETTE COLOR");
  EXPECT_NE(ReadError(palette.UShort(0x0010, 4).UShort(0x0011, 4).Bits(8, 8).Pixels(16)).find("lookup table"),
            std::string::npos);
}

TEST(DcmReadHostile, DeclaredLengthsAreCheckedAgainstTheBytes)
{
  EXPECT_NE(ReadError(FileBuilder().Mono(4, 4).Bits(16, 16).Pixels(32, 0x7ffffff0)).find("truncated pixel data"),
            std::string::npos);
  Bytes file = FileBuilder().Mono(4, 4).Bits(16, 16).Pixels(32);
  file[128 + 4 + 12 + 6] = 0xff; // the transfer syntax element claims more than the file holds
  file[128 + 4 + 12 + 7] = 0xff;
  EXPECT_FALSE(ReadError(file).empty());
}

TEST(DcmReadHostile, AValidFileReadsWithOrWithoutPreambleAndIgnoresABadRescale)
{
  Bytes file = FileBuilder().Mono(4, 2).Bits(16, 12).Text(0x0028, 0x1052, "DS", "NaN").Pixels(16);
  std::string error;
  auto image = Dcm_ReadBuffer(file.data(), file.size(), &error);
  ASSERT_NE(image, nullptr) << error;
  EXPECT_EQ(image->Data->GetValue(1, 0), (14 | 21 << 8) & 0xfff); // bytes 14, 21 masked to 12 bits
  EXPECT_EQ(image->GetHeader().RescaleIntercept, 0.0);
  const Bytes bare(file.begin() + 132, file.end());
  auto again = Dcm_ReadBuffer(bare.data(), bare.size(), &error);
  ASSERT_NE(again, nullptr) << error;
  EXPECT_EQ(again->Data->GetValue(3, 1), image->Data->GetValue(3, 1));
}

TEST(DcmReadHostile, SharedRegressionFilesAreRefusedWithAReason)
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
      EXPECT_NE(error.find(reason), std::string::npos) << error;
    }
  }
}

TEST(DcmReadHostile, ADecoderThatHangsIsStoppedAtTheTimeLimit)
{
  Isolation isolation(true);
  DCM_READ_LIMITS quick;
  quick.MaxSeconds = 1.0;
  const DCM_READ_LIMITS previous = Dcm_SetReadLimits(quick);
  std::string error;
  EXPECT_EQ(Dcm_ReadFile(std::string(IPG_TEST_SOURCE_DIR) + "/dcm/bad-dicom/jpegls-mutant-decoder-hang.dcm", &error),
            nullptr);
  EXPECT_NE(error.find("longer than 1 s"), std::string::npos) << error;
  Dcm_SetReadLimits(previous);
}

TEST(DcmReadHostile, ReadLimitRefusesLargeFrames)
{
  const Bytes file = FileBuilder().Mono(64, 64).Bits(16, 16).Pixels(64 * 64 * 2);
  DCM_READ_LIMITS small;
  small.MaxDecodedBytes = 64 * 64 * 4 - 1;
  const DCM_READ_LIMITS previous = Dcm_SetReadLimits(small);
  EXPECT_NE(ReadError(file).find("exceeds the read limit"), std::string::npos);
  Dcm_SetReadLimits(previous);
  EXPECT_NE(Dcm_ReadBuffer(file.data(), file.size(), nullptr), nullptr);
}

TEST(DcmReadHostile, SpecialFilesAreNamedForWhatTheyAre)
{
  std::string error;
  EXPECT_EQ(Dcm_ReadFile("/dev/zero", &error), nullptr);
  EXPECT_NE(error.find("character device"), std::string::npos) << error;
  const std::string fifo = testing::TempDir() + "/ipg_fifo.dcm";
  std::filesystem::remove(fifo);
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(Dcm_ReadFile(fifo, &error), nullptr); // must not block on the pipe
  EXPECT_NE(error.find("named pipe"), std::string::npos) << error;
  std::filesystem::remove(fifo);
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
