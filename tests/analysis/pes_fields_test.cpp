#include "analysis/pes_fields.h"

#include <gtest/gtest.h>

#include "tests/support/ts_writer.h"

namespace {

tsw::Packet Blank() {
  tsw::Packet p;
  p.fill(0xFF);
  p[0] = 0x47;
  p[1] = 0x41;
  p[2] = 0x00;
  p[3] = 0x10;
  return p;
}

void Put(tsw::Packet& p, std::size_t at, std::initializer_list<std::uint8_t> bytes) {
  for (std::uint8_t b : bytes) p[at++] = b;
}

struct PesStartCase {
  const char* name;
  std::uint8_t byte4;
  std::size_t startCodeAt;
  bool expectStart;
  std::size_t expectPayload;
};

class PesStartTest : public ::testing::TestWithParam<PesStartCase> {};

TEST_P(PesStartTest, FindsStartCodeOnlyWhereByteFourPoints) {
  const PesStartCase& c = GetParam();
  tsw::Packet p = Blank();
  p[4] = c.byte4;
  if (c.startCodeAt + 3 <= p.size()) Put(p, c.startCodeAt, {0x00, 0x00, 0x01});
  const std::size_t payload = GetPayload(p);
  EXPECT_EQ(payload, c.expectPayload);
  EXPECT_EQ(IsPesStart(p, payload), c.expectStart);
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, PesStartTest,
    ::testing::Values(
        PesStartCase{"StartRightBehindHeader", 0, 4, true, 4},
        PesStartCase{"BehindAdaptationFieldOfSeven", 7, 12, true, 12},
        // A zero-length adaptation field is taken for the payload's first
        // byte, so the start code one byte later goes unseen.
        PesStartCase{"ZeroLengthAdaptationField", 0, 5, false, 4},
        PesStartCase{"HeaderWouldEndPastPacket", 178, 183, false, 183},
        PesStartCase{"LengthPointsPastPacket", 200, 300, false, 205}),
    [](const auto& testInfo) { return std::string(testInfo.param.name); });

TEST(PesFields, PesPayloadFollowsHeaderLengthOnlyForOptionalHeader) {
  tsw::Packet p = Blank();
  p[4] = 0;
  Put(p, 4, {0x00, 0x00, 0x01, 0xE0, 0x00, 0x00, 0x80, 0x80, 0x05});
  EXPECT_EQ(GetPesPayload(p, 4), 4u + 9 + 5);
  p[10] = 0x0F;  // no '10' bits, as in a padding stream
  EXPECT_EQ(GetPesPayload(p, 4), 4u + 6);
  p[10] = 0x80;
  p[12] = 0xFF;  // header length beyond the packet
  EXPECT_GE(GetPesPayload(p, 4), kPacketSize);
}

TEST(PesFields, PesLengthIsBigEndian) {
  tsw::Packet p = Blank();
  Put(p, 4, {0x00, 0x00, 0x01, 0xBD, 0x07, 0x08});
  EXPECT_EQ(GetPesLength(p, 4), 1800);
}

tsw::Packet WithPts(std::uint64_t pts, std::uint8_t headerLength = 5) {
  tsw::Packet p = Blank();
  p[4] = 0;
  Put(p, 4, {0x00, 0x00, 0x01, 0xE0, 0x00, 0x00, 0x80, 0x80, headerLength});
  const auto bytes = tsw::EncodePts(pts);
  for (std::size_t i = 0; i < bytes.size(); ++i) p[13 + i] = bytes[i];
  return p;
}

TEST(ReadPts, AllThirtyThreeBitsWhateverTheMarkers) {
  tsw::Packet p = WithPts(0x1FFFFFFFFull);
  EXPECT_EQ(ReadPts(p), 0x1FFFFFFFFull);
  p[13] &= 0xFE;  // clear the marker bits
  p[15] &= 0xFE;
  p[17] &= 0xFE;
  EXPECT_EQ(ReadPts(p), 0x1FFFFFFFFull);
  p[13] |= 0xF0;  // the prefix bits are not looked at either
  EXPECT_EQ(ReadPts(p), 0x1FFFFFFFFull);
}

TEST(ReadPts, EachFieldLandsOnItsBits) {
  for (std::uint64_t pts : {1ull, 0x80ull, 0x8000ull, 0x40000000ull, 0x100000000ull, 0x123456789ull}) {
    EXPECT_EQ(ReadPts(WithPts(pts)), pts) << pts;
  }
}

TEST(ReadPts, NoPtsCases) {
  EXPECT_EQ(ReadPts(WithPts(90000, 0)), 0u) << "header length 0";
  tsw::Packet p = WithPts(90000);
  p[5] = 0x02;
  EXPECT_EQ(ReadPts(p), 0u) << "no start code";

  // Behind an adaptation field the byte at the payload must be 0.
  tsw::Packet behind = Blank();
  behind[4] = 7;
  Put(behind, 12, {0x00, 0x00, 0x01, 0xE0, 0x00, 0x00, 0x80, 0x80, 0x05});
  const auto bytes = tsw::EncodePts(4500);
  for (std::size_t i = 0; i < bytes.size(); ++i) behind[21 + i] = bytes[i];
  EXPECT_EQ(ReadPts(behind), 4500u);
  behind[12] = 0x01;
  EXPECT_EQ(ReadPts(behind), 0u);

  // A header whose PTS bytes would lie behind the packet is no PES start.
  tsw::Packet late = Blank();
  late[4] = 170;
  Put(late, 175, {0x00, 0x00, 0x01, 0xE0, 0x00, 0x00, 0x80, 0x80, 0x05});
  EXPECT_EQ(ReadPts(late), 0u);
}

TEST(ReadPts, HeaderLengthWithoutPtsFlagsStillReadsBytesNineToThirteen) {
  tsw::Packet p = WithPts(12345);
  p[11] = 0x00;  // PTS_DTS_flags say none
  EXPECT_EQ(ReadPts(p), 12345u);
}

}  // namespace
