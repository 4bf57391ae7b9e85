#include "filters/mpeg2_demux/pes_reassembler.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <random>
#include <vector>

#include "tests/filters/pes_packets.h"

namespace {

using namespace pes_packets;

constexpr std::uint16_t kPid = 0x100;

struct Received {
  Bytes payload;
  std::optional<std::uint64_t> pts;
  std::optional<std::uint64_t> dts;
  bool discontinuity;
  std::uint8_t streamId;
};

class PesReassemblerTest : public ::testing::Test {
 protected:
  CPesReassembler assembler{[this](const PesPacket& pes) {
    got.push_back({Bytes(pes.payload.begin(), pes.payload.end()), pes.pts, pes.dts,
                   pes.discontinuity, pes.streamId});
  }};
  std::vector<Received> got;
  std::uint8_t cc = 0;

  // Each packet in a heap block of exactly 188 bytes, so that a read past
  // its end is caught under AddressSanitizer.
  void Push(const tsw::Packet& packet) {
    const auto block = std::make_unique<tsw::Packet>(packet);
    TsPacket parsed;
    ASSERT_TRUE(ParseTsPacket(*block, &parsed));
    assembler.Push(parsed);
  }
  void PushAll(const std::vector<tsw::Packet>& packets) {
    for (const tsw::Packet& packet : packets) Push(packet);
  }
  void Feed(const Bytes& pes, std::size_t firstChunk = 184) {
    PushAll(Packetize(kPid, pes, cc, firstChunk));
  }
};

TEST_F(PesReassemblerTest, PayloadsOfEverySizeComeBackWhole) {
  for (const bool bounded : {true, false}) {
    got.clear();
    const std::size_t sizes[] = {1, 169, 170, 171, 184, 185, 5000, 60000};
    std::uint64_t pts = 90000;
    for (const std::size_t size : sizes) {
      Feed(Pes(0xE0, Pattern(size, static_cast<std::uint8_t>(size)), pts, pts - 3003, bounded));
      pts += 3003;
    }
    assembler.Finish();
    ASSERT_EQ(got.size(), std::size(sizes)) << "bounded " << bounded;
    for (std::size_t i = 0; i < got.size(); ++i) {
      EXPECT_EQ(got[i].payload, Pattern(sizes[i], static_cast<std::uint8_t>(sizes[i])));
      EXPECT_EQ(got[i].pts, 90000 + 3003 * i);
      EXPECT_EQ(got[i].dts, 90000 + 3003 * i - 3003);
      EXPECT_EQ(got[i].streamId, 0xE0);
      EXPECT_FALSE(got[i].discontinuity);
    }
  }
}

TEST_F(PesReassemblerTest, BoundedGoesOutAtItsLengthUnboundedAtTheNextStart) {
  Feed(Pes(0xC0, Pattern(400, 1), 1000));
  EXPECT_EQ(got.size(), 1u);  // no need to wait for another start
  Feed(Pes(0xE0, Pattern(400, 2), 2000, std::nullopt, false));
  EXPECT_EQ(got.size(), 1u);  // its end is not known yet
  Feed(Pes(0xE0, Pattern(10, 3), 3000, std::nullopt, false));
  ASSERT_EQ(got.size(), 2u);
  EXPECT_EQ(got[1].payload, Pattern(400, 2));
  assembler.Finish();
  ASSERT_EQ(got.size(), 3u);
  EXPECT_EQ(got[2].payload, Pattern(10, 3));
}

TEST_F(PesReassemblerTest, AdaptationFieldsOfEveryKind) {
  const Bytes pes = Pes(0xE0, Pattern(300, 9), 4500);
  const Bytes head(pes.begin(), pes.begin() + 100);
  const Bytes tail(pes.begin() + 100, pes.end());
  // A packet with an adaptation field of `length` whose flags are `flags`;
  // 183 leaves no room for a payload (adaptation_field_control 2).
  const auto packet = [](bool start, std::uint8_t counter, const Bytes& payload, int length,
                         std::uint8_t flags = 0) {
    tsw::Packet p = tsw::MakePacket(kPid, start, payload, length, counter);
    if (length == 183) p[3] &= 0xEF;
    if (length > 0) p[5] = flags;
    return p;
  };
  // A field without payload keeps the counter; one of length 0 before a
  // payload; one with the discontinuity flag lets the counter jump without
  // a loss.
  Push(packet(true, 0, head, 183 - 100));
  Push(packet(false, 0, {}, 183));        // PCR-only packet, counter unchanged
  Push(packet(false, 1, {}, 183, 0x10));  // its counter is not looked at
  Push(packet(false, 1, Bytes(tail.begin(), tail.begin() + 183), 0));
  Push(packet(false, 9, Bytes(tail.begin() + 183, tail.end()),
              static_cast<int>(183 - (tail.size() - 183)), 0x80));
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].payload, Pattern(300, 9));
  EXPECT_EQ(assembler.Counters().continuityErrors, 0u);
}

TEST(TsPacketParse, RejectsFieldsThePacketCannotHold) {
  const struct {
    std::uint8_t control;
    std::uint8_t adaptationLength;
    bool readable;
    std::size_t payload;
  } cases[] = {
      {0x1, 0, true, 184},   {0x3, 0, true, 183},    {0x3, 182, true, 1},
      {0x3, 183, false, 0},  {0x2, 183, true, 0},    {0x2, 184, false, 0},
      {0x3, 255, false, 0},  {0x0, 0, false, 0},
  };
  for (const auto& c : cases) {
    std::array<std::uint8_t, kTsPacketSize> bytes{};
    bytes[0] = 0x47;
    bytes[3] = static_cast<std::uint8_t>(c.control << 4);
    bytes[4] = c.adaptationLength;
    TsPacket packet;
    ASSERT_EQ(ParseTsPacket(bytes, &packet), c.readable) << int(c.control) << " "
                                                         << int(c.adaptationLength);
    if (c.readable) {
      EXPECT_EQ(packet.payload.size(), c.payload);
    }
  }
  std::array<std::uint8_t, kTsPacketSize> noSync{};
  noSync[3] = 0x10;
  TsPacket packet;
  EXPECT_FALSE(ParseTsPacket(noSync, &packet));
}

TEST_F(PesReassemblerTest, ContinuityJumpDropsThePesAndMarksTheNext) {
  auto first = Packetize(kPid, Pes(0xE0, Pattern(1000, 1), 100), cc);
  first.erase(first.begin() + 2);  // a packet lost in the middle
  PushAll(first);
  Feed(Pes(0xE0, Pattern(50, 2), 200));
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].payload, Pattern(50, 2));
  EXPECT_TRUE(got[0].discontinuity);
  EXPECT_EQ(assembler.Counters().continuityErrors, 1u);
  Feed(Pes(0xE0, Pattern(50, 3), 300));
  ASSERT_EQ(got.size(), 2u);
  EXPECT_FALSE(got[1].discontinuity);
}

TEST_F(PesReassemblerTest, HeaderSplitAcrossPacketsAtEveryPoint) {
  const Bytes pes = Pes(0xE0, Pattern(500, 5), 0x1FFFFFFFF, 0x123456789);
  for (std::size_t split = 1; split <= 19; ++split) {
    got.clear();
    Feed(pes, split);
    ASSERT_EQ(got.size(), 1u) << "split " << split;
    EXPECT_EQ(got[0].payload, Pattern(500, 5));
    EXPECT_EQ(got[0].pts, 0x1FFFFFFFFu);
    EXPECT_EQ(got[0].dts, 0x123456789u);
  }
}

TEST_F(PesReassemblerTest, BadHeadersAreDroppedAndTheNextPesStands) {
  const Bytes good = Pes(0xC0, Pattern(100, 6), 900);
  auto edited = [&](std::size_t at, std::uint8_t value) {
    Bytes pes = good;
    pes[at] = value;
    return pes;
  };
  const Bytes cases[] = {
      edited(2, 0x02),  // no start code
      edited(6, 0x40),  // '10' bits wrong
      edited(7, 0x40),  // PTS_DTS_flags 01
      edited(8, 0x02),  // too short for the PTS it announces
      edited(5, 0x04),  // PES_packet_length shorter than its own header
  };
  for (const Bytes& bad : cases) {
    got.clear();
    Feed(bad);
    Feed(good);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].payload, Pattern(100, 6));
  }
  EXPECT_EQ(assembler.Counters().badHeaders, std::size(cases));
}

TEST_F(PesReassemblerTest, BoundedPesCutShortIsDroppedAsIsOneOpenAtTheEnd) {
  const std::uint8_t first = cc;
  auto packets = Packetize(kPid, Pes(0xC0, Pattern(1000, 8), 100), cc);
  packets.resize(3);
  cc = static_cast<std::uint8_t>(first + 3);  // no packet lost: the next start cuts it
  PushAll(packets);
  Feed(Pes(0xC0, Pattern(10, 9), 200));
  ASSERT_EQ(got.size(), 1u);
  EXPECT_TRUE(got[0].discontinuity);
  auto open = Packetize(kPid, Pes(0xC0, Pattern(1000, 8), 300), cc);
  open.resize(2);
  PushAll(open);
  assembler.Finish();
  EXPECT_EQ(got.size(), 1u);
  EXPECT_EQ(assembler.Counters().truncated, 2u);
  EXPECT_EQ(assembler.Counters().continuityErrors, 0u);
}

// Random packets whose fields claim anything: reads stay inside each
// 188-byte block (AddressSanitizer checks) and nothing delivered is longer
// than what came in.
TEST_F(PesReassemblerTest, JunkNeverReadsPastThePacket) {
  std::mt19937 random(1234);
  std::size_t fed = 0;
  for (int i = 0; i < 20000; ++i) {
    const auto packet = std::make_unique<tsw::Packet>();
    for (auto& byte : *packet) byte = static_cast<std::uint8_t>(random());
    (*packet)[0] = 0x47;
    if (i % 3 == 0) {
      // A plausible PES start with random lengths behind it.
      (*packet)[1] |= 0x40;
      (*packet)[3] = static_cast<std::uint8_t>(0x10 | (i & 0x0F));
      (*packet)[4] = 0x00;
      (*packet)[5] = 0x00;
      (*packet)[6] = 0x01;
    }
    TsPacket parsed;
    if (!ParseTsPacket(*packet, &parsed)) continue;
    fed += parsed.payload.size();
    assembler.Push(parsed);
  }
  assembler.Finish();
  std::size_t out = 0;
  for (const Received& r : got) out += r.payload.size();
  EXPECT_LE(out, fed);
}

TEST(PesTimeStamp, ReadsAll33BitsAndChecksMarkers) {
  for (const std::uint64_t value : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{0x100000000},
                                    std::uint64_t{0x1FFFFFFFF}, std::uint64_t{0x0AAAAAAAA}}) {
    const auto bytes = tsw::EncodePts(value);
    EXPECT_EQ(ReadTimeStamp(bytes), value);
    for (const std::size_t marker : {0, 2, 4}) {
      auto broken = bytes;
      broken[marker] &= 0xFE;
      EXPECT_FALSE(ReadTimeStamp(broken).has_value());
    }
  }
}

}  // namespace
