#include "analysis/video_header.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;

struct RecordingBlocks final : public CVideoFormatTarget {
  void SetMpeg2Size(std::uint16_t w, std::uint16_t h) override { mpeg2Size = {w, h}; }
  void SetMpeg2Aspect(std::uint16_t x, std::uint16_t y) override { mpeg2Aspect = {x, y}; }
  void SetMpeg2SequenceStart(std::span<const std::uint8_t, 12> bytes) override {
    sequenceStart.assign(bytes.begin(), bytes.end());
  }
  void SetH264Size(std::uint16_t w, std::uint16_t h) override { h264Size = {w, h}; }

  std::pair<int, int> mpeg2Size{-1, -1};
  std::pair<int, int> mpeg2Aspect{-1, -1};
  std::pair<int, int> h264Size{-1, -1};
  std::vector<std::uint8_t> sequenceStart;
};

// A video packet on the heap, exactly 188 bytes, so that a read past its end
// is caught by the address sanitizer.
struct HeapPacket {
  explicit HeapPacket(const tsw::Packet& p) : bytes(p.begin(), p.end()) {}
  PacketSpan Span() const { return PacketSpan(bytes.data(), kPacketSize); }
  std::vector<std::uint8_t> bytes;
};

HeapPacket VideoPacket(const Bytes& es, int adaptation = -1) {
  Bytes payload = tsw::PesHeader(0xE0, 900000);
  payload.insert(payload.end(), es.begin(), es.end());
  return HeapPacket(tsw::MakePacket(0x100, true, payload, adaptation));
}

Bytes SequenceHeader(std::uint16_t w, std::uint16_t h, std::uint8_t aspect, std::uint8_t rate,
                     bool fourByteCode = false) {
  Bytes es = tsw::Mpeg2SequenceHeader(w, h, aspect, rate);
  if (fourByteCode) es.insert(es.begin(), 0x00);
  return es;
}

// One analysis target: the format found, the parameter log and the blocks.
struct Probe {
  int Analyse(const HeapPacket& packet, std::uint16_t streamType = 2) {
    return AnalyseVideoHeader(packet.Span(), streamType, format, log, blocks);
  }
  VideoFormat format;
  CParameterLog log;
  RecordingBlocks blocks;
};

class VideoHeaderTest : public ::testing::Test, public Probe {};

TEST(Mpeg2Header, AspectAndRateCodesBehindThreeOrFourByteStartCode) {
  const struct {
    std::uint8_t aspectCode, rateCode;
    int aspectX, aspectY;
    double rate;
    bool fourByteCode;
  } cases[] = {
      {2, 1, 4, 3, 23.976, false}, {3, 2, 16, 9, 24.0, false}, {4, 3, 20, 9, 25.0, false},
      {2, 4, 4, 3, 29.97, false},  {2, 5, 4, 3, 30.0, false},  {2, 6, 4, 3, 50.0, false},
      {2, 7, 4, 3, 59.94, false},  {2, 8, 4, 3, 60.0, false},  {3, 3, 16, 9, 25.0, true},
  };
  for (const auto& c : cases) {
    Probe probe;
    const Bytes es = SequenceHeader(720, 576, c.aspectCode, c.rateCode, c.fourByteCode);
    ASSERT_EQ(probe.Analyse(VideoPacket(es)), 1) << int(c.rateCode);
    EXPECT_EQ(probe.format.aspectX, c.aspectX);
    EXPECT_EQ(probe.format.aspectY, c.aspectY);
    EXPECT_EQ(probe.blocks.mpeg2Aspect, std::make_pair(c.aspectX, c.aspectY));
    EXPECT_DOUBLE_EQ(probe.format.frameRate, c.rate);
    EXPECT_EQ(probe.format.width, 720);
    EXPECT_EQ(probe.format.height, 576);
    EXPECT_EQ(probe.blocks.sequenceStart, Bytes(es.end() - 12, es.end())) << "the 12 bytes from the start code";
  }
  // Aspect code 1 keeps the analysis running but stores the rate; rate code
  // 0 leaves it.
  Probe probe;
  EXPECT_EQ(probe.Analyse(VideoPacket(SequenceHeader(1280, 720, 1, 4))), 1);
  EXPECT_EQ(probe.format.aspectX, 0);
  EXPECT_DOUBLE_EQ(probe.format.frameRate, 29.97);
  EXPECT_EQ(probe.blocks.mpeg2Aspect.first, -1) << "the block's aspect stays";
  EXPECT_EQ(probe.blocks.mpeg2Size, std::make_pair(1280, 720));
  EXPECT_EQ(probe.Analyse(VideoPacket(SequenceHeader(720, 576, 0, 0))), 1);
  EXPECT_DOUBLE_EQ(probe.format.frameRate, 29.97);
}

TEST(Mpeg2Header, WhereTheElementaryDataIsLookedFor) {
  const Bytes header = SequenceHeader(352, 288, 2, 3);
  // Without the '10' bits the data is taken to start at byte 6 of the PES.
  Bytes noFlags = {0x00, 0x00, 0x01, 0xE0, 0x00, 0x00};
  noFlags.insert(noFlags.end(), header.begin(), header.end());
  const Bytes lengthPastEnd = {0x00, 0x00, 0x01, 0xE0, 0x00, 0x00, 0x80, 0x80, 0xF0};
  struct Case {
    const char* name;
    HeapPacket packet;
    int hit;
  };
  std::vector<Case> cases = {
      // A zero-length adaptation field is taken for the payload's first byte.
      {"ZeroLengthAdaptationField", VideoPacket(header, 0), 0},
      {"BehindAdaptationField", VideoPacket(header, 10), 1},
      {"NoOptionalHeader", HeapPacket(tsw::MakePacket(0x100, true, noFlags)), 1},
      {"NoPesStart", HeapPacket(tsw::MakePacket(0x100, true, header)), 0},
      {"HeaderLengthPastTheEnd", HeapPacket(tsw::MakePacket(0x100, true, lengthPastEnd)), 0}};
  // The PES header starts so late that the sequence header cannot fit.
  for (int adaptation : {160, 170, 175, 180, 182, 183}) {
    cases.push_back({"LongAdaptationField", VideoPacket(header, adaptation), 0});
  }
  for (const Case& c : cases) {
    Probe probe;
    EXPECT_EQ(probe.Analyse(c.packet), c.hit) << c.name;
    EXPECT_EQ(probe.format.width, c.hit != 0 ? 352 : 0) << c.name;
  }
}

// An access unit delimiter, then a parameter set whose profile, constraint
// and level bytes stand at q + 11 to q + 13, then the coded fields.
Bytes H264Es(std::uint8_t profile, const Bytes& fields, const Bytes& before = {}) {
  Bytes es = before;
  const Bytes head = {0x00, 0x00, 0x00, 0x01, 0x09, 0x10, 0x00, 0x00, 0x00, 0x01, 0x67, profile, 0x00, 0x28};
  es.insert(es.end(), head.begin(), head.end());
  es.insert(es.end(), fields.begin(), fields.end());
  return es;
}

struct SpsFields {
  std::uint32_t widthMbsMinus1;
  std::uint32_t heightMapUnitsMinus1;
  bool frameMbsOnly;
  bool high = false;
  std::uint32_t chroma = 1;
  bool everyFlag = false;  // all flags set, with VUI and aspect info
};

Bytes EncodeSps(std::uint8_t profile, const SpsFields& f) {
  tsw::BitWriter w;
  w.Ue(0);  // seq_parameter_set_id
  if (f.high) {
    w.Ue(f.chroma);
    if (f.chroma == 3) w.Bits(f.everyFlag, 1);
    w.Ue(0);
    w.Ue(0);
    if (profile == 145) w.Bits(f.everyFlag, 1);
    w.Bits(f.everyFlag, 1);
    w.Bits(0, 1);  // no scaling matrix: the walk would not read one
  }
  w.Ue(0);  // log2_max_frame_num_minus4
  w.Ue(0);  // pic_order_cnt_type
  w.Ue(2);  // log2_max_pic_order_cnt_lsb_minus4
  w.Ue(4);  // num_ref_frames
  w.Bits(0, 1);
  w.Ue(f.widthMbsMinus1);
  w.Ue(f.heightMapUnitsMinus1);
  w.Bits(f.frameMbsOnly, 1);
  if (!f.frameMbsOnly) w.Bits(f.everyFlag, 1);
  w.Bits(1, 1);
  w.Bits(0, 1);  // frame_cropping_flag
  w.Bits(f.everyFlag, 1);
  if (f.everyFlag) {
    w.Bits(1, 1);
    w.Bits(1, 8);
  }
  return w.Finish();
}

TEST_F(VideoHeaderTest, H264SizesFromTheWalk) {
  struct Case {
    std::uint8_t profile;
    SpsFields fields;
    int width;
    int height;
  } cases[] = {
      {77, {119, 33, false}, 1920, 1088},
      {100, {119, 33, false, true}, 1920, 1088},
      {66, {79, 44, true}, 1280, 720},
      {100, {79, 44, true, true}, 1280, 720},
  };
  for (const Case& c : cases) {
    Probe probe;
    ASSERT_EQ(probe.Analyse(VideoPacket(H264Es(c.profile, EncodeSps(c.profile, c.fields))), 27), 1);
    EXPECT_EQ(probe.format.width, c.width) << int(c.profile);
    EXPECT_EQ(probe.format.height, c.height) << int(c.profile);
    EXPECT_EQ(probe.blocks.h264Size, std::make_pair(c.width, c.height));
    EXPECT_EQ(probe.format.h264Profile, c.profile);
    EXPECT_EQ(probe.format.h264Level, 0x28);
    EXPECT_DOUBLE_EQ(probe.format.frameRate, 25.0);
    EXPECT_EQ(probe.format.aspectX, 16);
    EXPECT_EQ(probe.format.aspectY, 9);
    EXPECT_EQ(probe.log.Line(0), "profile_idc: " + std::to_string(c.profile));
    EXPECT_EQ(probe.log.Line(1), "level_idc: 40");
    EXPECT_EQ(probe.log.Line(3), c.fields.high ? "chroma_format_idc: 1" : "log2_max_frame_num_minus4: 0");
  }
}

TEST_F(VideoHeaderTest, ProfileOneFortyFiveFillsTheLogAndDropsTheRest) {
  const SpsFields every{119, 33, false, true, 3, true};
  ASSERT_EQ(Analyse(VideoPacket(H264Es(145, EncodeSps(145, every))), 27), 1);
  // profile, level and 22 walk lines: 24, of which 20 are kept.
  EXPECT_EQ(log.Count(), 20);
  EXPECT_EQ(log.Line(4), "residual_colour_transform_flag: 1");
  EXPECT_EQ(log.Line(7), "mode_extension_flag: 1");
  EXPECT_EQ(log.Line(17), "frame_mbs_only_flag: 0");
  EXPECT_EQ(log.Line(19), "direct_8x8_inference_flag: 1");
  EXPECT_EQ(log.Line(20), "");
  EXPECT_EQ(format.width, 1920) << "the walk goes on after the log is full";
  EXPECT_EQ(format.height, 1088);
}

TEST(H264Header, WhichDelimitersOpenTheBranch) {
  const Bytes sps = EncodeSps(66, {79, 44, true});
  Probe probe;
  // Behind other bytes a delimiter counts only in a stream of type 27.
  const auto packet = VideoPacket(H264Es(66, sps, {0xAA, 0xBB, 0xCC, 0x01}));
  EXPECT_EQ(probe.Analyse(packet, 2), 0);
  EXPECT_EQ(probe.format.h264Profile, 0);
  // Other delimiters and three-byte start codes are not taken.
  Bytes other = H264Es(66, sps);
  other[5] = 0x30;  // primary_pic_type 1
  EXPECT_EQ(probe.Analyse(VideoPacket(other), 27), 0);
  EXPECT_EQ(probe.Analyse(VideoPacket({0x00, 0x00, 0x01, 0x09, 0x10}), 2), 0);
  EXPECT_EQ(probe.Analyse(packet, 27), 1);
  EXPECT_EQ(probe.format.width, 1280);

  // At the payload's start it takes the H.264 branch in a type 2 stream too,
  // and no sequence header is looked for after that.
  Probe typeTwo;
  ASSERT_EQ(typeTwo.Analyse(VideoPacket(H264Es(77, EncodeSps(77, {79, 44, true}))), 2), 1);
  EXPECT_EQ(typeTwo.format.h264Profile, 77);
  EXPECT_EQ(typeTwo.Analyse(VideoPacket(SequenceHeader(720, 576, 2, 3))), 0);
  EXPECT_EQ(typeTwo.format.width, 1280);
}

TEST_F(VideoHeaderTest, ZeroParameterSetEndsEveryReadWithoutSpinning) {
  ASSERT_EQ(Analyse(VideoPacket(H264Es(100, Bytes(120, 0x00))), 27), 1);
  EXPECT_EQ(format.width, 16) << "(0 + 1) x 16";
  EXPECT_LE(log.Count(), 20);
}

}  // namespace
