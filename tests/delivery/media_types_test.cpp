#include "delivery/media_types.h"

#include <gtest/gtest.h>

#include <cstring>

#include "platform/graph/media_formats.h"

namespace {

template <typename T>
T At(const std::uint8_t* block, std::size_t offset) {
  T value;
  std::memcpy(&value, block + offset, sizeof value);
  return value;
}

// The blocks are built through the platform's structures; reading each field
// back at its published offset checks their layouts too.
static_assert(sizeof(MPEG1WAVEFORMAT) == 40);
static_assert(SizeOfMpeg2VideoInfo(86) == 218);

class MediaTypesTest : public ::testing::Test {
 protected:
  void SetUp() override { ResetFormatBlocks(); }
  void TearDown() override { ResetFormatBlocks(); }
};

TEST_F(MediaTypesTest, BlocksBeforeAnyHeader) {
  const auto mpeg2 = Mpeg2VideoBlock();
  const auto h264 = H264VideoBlock();
  struct Field {
    std::size_t offset;
    std::int32_t mpeg2;
    std::int32_t h264;
  } fields[] = {{8, 720, 1920}, {12, 480, 1088}, {32, 4000000, 4000000}, {56, 4, 16}, {60, 3, 9},
                {72, 40, 40},   {76, 720, 1920}, {80, 480, 1088},      {96, 2000, 2000},
                {100, 53031, 53031}, {112, 0x6F498, 0x6F498}, {116, 86, 86}, {120, 2, 2}, {124, 2, 2}};
  for (const Field& f : fields) {
    EXPECT_EQ(At<std::int32_t>(mpeg2.data(), f.offset), f.mpeg2) << f.offset;
    EXPECT_EQ(At<std::int32_t>(h264.data(), f.offset), f.h264) << f.offset;
  }
  EXPECT_EQ(At<std::int64_t>(mpeg2.data(), 40), 333667);
  const std::uint8_t start[] = {0x00, 0x00, 0x01, 0xB3, 0x2D, 0x01, 0xE0, 0x24, 0x09, 0xC4, 0x23, 0x81};
  EXPECT_EQ(std::memcmp(mpeg2.data() + 132, start, sizeof start), 0);
  const std::uint8_t extension[] = {0x00, 0x00, 0x01, 0xB5, 0x14, 0x82, 0x00, 0x01, 0x00, 0x00};
  EXPECT_EQ(std::memcmp(mpeg2.data() + 132 + 76, extension, sizeof extension), 0);
  EXPECT_EQ(std::memcmp(h264.data() + 132, mpeg2.data() + 132, 86), 0);
}

TEST_F(MediaTypesTest, PatchesReachTheMpeg2BlockAndNotTheH264One) {
  CVideoBlockPatcher patcher;
  patcher.SetMpeg2Size(1280, 720);
  patcher.SetMpeg2Aspect(16, 9);
  const std::uint8_t header[12] = {0x00, 0x00, 0x01, 0xB3, 0x50, 0x02, 0xD0, 0x33, 1, 2, 3, 4};
  patcher.SetMpeg2SequenceStart(std::span<const std::uint8_t, 12>(header));
  const auto mpeg2 = Mpeg2VideoBlock();
  // Both sizes, the aspect's X, and the sequence header's length untouched.
  for (auto [offset, value] : {std::pair{8, 1280}, {12, 720}, {76, 1280}, {80, 720}, {56, 16}, {116, 86}}) {
    EXPECT_EQ(At<std::int32_t>(mpeg2.data(), static_cast<std::size_t>(offset)), value) << offset;
  }
  EXPECT_EQ(std::memcmp(mpeg2.data() + 132, header, 12), 0);
  EXPECT_EQ(mpeg2[132 + 12], 0x10) << "the matrix behind the first 12 bytes stays";
  EXPECT_EQ(At<std::int32_t>(H264VideoBlock().data(), 8), 1920);

  const CMediaType type = GetStreamMediaType(StreamMediaType::Mpeg2Video);
  ASSERT_EQ(type.Type().cbFormat, 218u);
  EXPECT_EQ(At<std::int32_t>(type.Type().pbFormat, 8), 1280) << "a type taken now carries the patch";
}

TEST_F(MediaTypesTest, TheFiveTypes) {
  struct Row {
    StreamMediaType which;
    GUID major;
    GUID sub;
    GUID format;
    ULONG size;
  } rows[] = {
      {StreamMediaType::Mpeg2Video, MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO, FORMAT_MPEG2Video, 218},
      {StreamMediaType::H264Video, MEDIATYPE_Video, MEDIASUBTYPE_AVC1, FORMAT_MPEG2Video, 218},
      {StreamMediaType::MpegAudio, MEDIATYPE_Audio, MEDIASUBTYPE_MPEG1AudioPayload, FORMAT_WaveFormatEx, 40},
      {StreamMediaType::Ac3Audio, MEDIATYPE_Audio, MEDIASUBTYPE_DOLBY_AC3, FORMAT_WaveFormatEx, 40},
      {StreamMediaType::AacAudio, MEDIATYPE_Audio, MEDIASUBTYPE_AAC_AUDIO, FORMAT_WaveFormatEx, 40},
  };
  for (const Row& r : rows) {
    const CMediaType type = GetStreamMediaType(r.which);
    EXPECT_EQ(type.Type().majortype, r.major);
    EXPECT_EQ(type.Type().subtype, r.sub);
    EXPECT_EQ(type.Type().formattype, r.format);
    EXPECT_EQ(type.Type().cbFormat, r.size);
    EXPECT_EQ(type.Type().bFixedSizeSamples, TRUE);
    EXPECT_EQ(type.Type().bTemporalCompression, FALSE);
    EXPECT_EQ(type.Type().pUnk, nullptr);
    if (r.size != 40) continue;
    // AC-3 and AAC carry the MPEG layer II fields of the one audio block:
    // (offset, value) of the 16-bit fields, then of the 32-bit ones.
    const std::uint8_t* block = type.Type().pbFormat;
    for (auto [offset, value] : {std::pair{0, 0x0050}, {2, 2}, {12, 768}, {14, 0}, {16, 22}, {18, 2}, {24, 1},
                                 {26, 1}, {28, 1}, {30, 0x001C}}) {
      EXPECT_EQ(At<std::uint16_t>(block, static_cast<std::size_t>(offset)), value) << offset;
    }
    for (auto [offset, value] : {std::pair{4, 48000u}, {8, 32000u}, {20, 256000u}, {32, 0u}, {36, 0u}}) {
      EXPECT_EQ(At<std::uint32_t>(block, static_cast<std::size_t>(offset)), value) << offset;
    }
  }
}

}  // namespace
