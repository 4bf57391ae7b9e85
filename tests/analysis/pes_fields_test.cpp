#include "analysis/pes_fields.h"

#include <gtest/gtest.h>

#include "tests/support/ts_writer.h"

namespace {

// A unit start with nothing but stuffing behind the header.
tsw::Packet Blank() { return tsw::MakePacket(0x100, true, {}); }

void Put(tsw::Packet& p, std::size_t at, std::initializer_list<std::uint8_t> bytes) {
  for (std::uint8_t b : bytes) p[at++] = b;
}

TEST(PesFields, StartCodeIsFoundOnlyWhereByteFourPoints) {
  struct Case {
    const char* name;
    std::uint8_t byte4;
    std::size_t startCodeAt;
    bool expectStart;
    std::size_t expectPayload;
  };
  const Case cases[] = {{"StartRightBehindHeader", 0, 4, true, 4},
                        {"BehindAdaptationFieldOfSeven", 7, 12, true, 12},
                        // A zero-length adaptation field is taken for the
                        // payload's first byte, so the start code one byte
                        // later goes unseen.
                        {"ZeroLengthAdaptationField", 0, 5, false, 4},
                        {"HeaderWouldEndPastPacket", 178, 183, false, 183},
                        {"LengthPointsPastPacket", 200, 300, false, 205}};
  for (const Case& c : cases) {
    tsw::Packet p = Blank();
    p[4] = c.byte4;
    if (c.startCodeAt + 3 <= p.size()) Put(p, c.startCodeAt, {0x00, 0x00, 0x01});
    const std::size_t payload = GetPayload(p);
    EXPECT_EQ(payload, c.expectPayload) << c.name;
    EXPECT_EQ(IsPesStart(p, payload), c.expectStart) << c.name;
  }
}

TEST(PesFields, LengthIsBigEndianAndPayloadFollowsHeaderLengthOnlyForOptionalHeader) {
  tsw::Packet p = Blank();
  p[4] = 0;
  Put(p, 4, {0x00, 0x00, 0x01, 0xE0, 0x07, 0x08, 0x80, 0x80, 0x05});
  EXPECT_EQ(GetPesLength(p, 4), 1800);
  EXPECT_EQ(GetPesPayload(p, 4), 4u + 9 + 5);
  p[10] = 0x0F;  // no '10' bits, as in a padding stream
  EXPECT_EQ(GetPesPayload(p, 4), 4u + 6);
  p[10] = 0x80;
  p[12] = 0xFF;  // header length beyond the packet
  EXPECT_GE(GetPesPayload(p, 4), kPacketSize);
}

// A PES header at `at` with a PTS behind the nine fixed bytes.
tsw::Packet WithPts(std::uint64_t pts, std::uint8_t headerLength = 5, std::size_t at = 4) {
  tsw::Packet p = Blank();
  p[4] = static_cast<std::uint8_t>(at == 4 ? 0 : at - 5);
  Put(p, at, {0x00, 0x00, 0x01, 0xE0, 0x00, 0x00, 0x80, 0x80, headerLength});
  const auto bytes = tsw::EncodePts(pts);
  for (std::size_t i = 0; i < bytes.size() && at + 9 + i < p.size(); ++i) p[at + 9 + i] = bytes[i];
  return p;
}

TEST(ReadPts, EachFieldLandsOnItsBitsWhateverTheMarkersAndFlags) {
  for (std::uint64_t pts : {1ull, 0x80ull, 0x8000ull, 0x40000000ull, 0x100000000ull, 0x123456789ull}) {
    EXPECT_EQ(ReadPts(WithPts(pts)), pts) << pts;
  }
  tsw::Packet p = WithPts(0x1FFFFFFFFull);
  EXPECT_EQ(ReadPts(p), 0x1FFFFFFFFull);
  p[13] &= 0xFE;  // clear the marker bits
  p[15] &= 0xFE;
  p[17] &= 0xFE;
  EXPECT_EQ(ReadPts(p), 0x1FFFFFFFFull);
  p[13] |= 0xF0;  // the prefix bits are not looked at either
  EXPECT_EQ(ReadPts(p), 0x1FFFFFFFFull);
  p[11] = 0x00;  // PTS_DTS_flags say none: a header length is enough
  EXPECT_EQ(ReadPts(p), 0x1FFFFFFFFull);
}

TEST(ReadPts, NoPtsCases) {
  EXPECT_EQ(ReadPts(WithPts(90000, 0)), 0u) << "header length 0";
  tsw::Packet p = WithPts(90000);
  p[5] = 0x02;
  EXPECT_EQ(ReadPts(p), 0u) << "no start code";

  // Behind an adaptation field the byte at the payload must be 0.
  tsw::Packet behind = WithPts(4500, 5, 12);
  EXPECT_EQ(ReadPts(behind), 4500u);
  behind[12] = 0x01;
  EXPECT_EQ(ReadPts(behind), 0u);

  // A header whose PTS bytes would lie behind the packet is no PES start.
  EXPECT_EQ(ReadPts(WithPts(4500, 5, 175)), 0u);
}

}  // namespace
