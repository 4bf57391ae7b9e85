#include "analysis/pid_census.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;

tsw::Packet PesPacket(std::uint8_t streamId, std::uint16_t pesLength, const Bytes& es,
                      int adaptation = -1, bool unitStart = true) {
  Bytes payload = tsw::PesHeader(streamId, 0, pesLength);
  payload.insert(payload.end(), es.begin(), es.end());
  return tsw::MakePacket(0x100, unitStart, payload, adaptation);
}

TEST(CensusKind, ByPesStart) {
  // Header length 250 sends the payload far past the packet: only the
  // stream_id counts.
  const Bytes pastTheEnd = {0x00, 0x00, 0x01, 0xC0, 0x01, 0x00, 0x80, 0x00, 250};
  const struct {
    const char* name;
    tsw::Packet packet;
    std::uint8_t kind;
  } cases[] = {
      {"NoUnitStart", PesPacket(0xE0, 0, {0, 0, 1, 0xB3}, -1, false), 0},
      {"VideoStreamId", PesPacket(0xE0, 0, {0, 0, 1, 0xB3}), 0xE0},
      {"AudioStreamId", PesPacket(0xC0, 500, {0xFF, 0xFD}), 0xC0},
      {"Ac3SyncWord", PesPacket(0xC0, 500, {0x0B, 0x77}), kKindAc3},
      {"PrivateShort", PesPacket(0xBD, 1799, {0x80, 0x01}), 0xBD},
      {"PrivateLong", PesPacket(0xBD, 1800, {0x80, 0x01}), kKindAc3},
      {"H264Delimiter", PesPacket(0xE0, 0, {0, 0, 0, 1, 9, 0xF0}), kKindH264},
      {"DelimiterBehindAdaptation", PesPacket(0xE0, 0, {0, 0, 0, 1, 9, 0xF0}, 20), kKindH264},
      {"ThreeByteStartCodeIsNoDelimiter", PesPacket(0xE0, 0, {0, 0, 1, 9, 0xF0}), 0xE0},
      {"NotAPesStart", tsw::MakePacket(0x100, true, Bytes{0x00, 0xB0, 0x0D}), 0},
      {"PayloadBehindThePacketEndIsNotRead", tsw::MakePacket(0x100, true, pastTheEnd), 0xC0},
  };
  for (const auto& c : cases) EXPECT_EQ(CensusKind(c.packet), c.kind) << c.name;
}

TEST(CPidCensus, FirstNonZeroKindStaysAndOnlyAc3ReplacesIt) {
  const struct {
    std::vector<std::uint8_t> kinds;
    std::uint8_t expected;
  } cases[] = {
      {{0, 0xE0}, 0xE0},           {{0xE0, kKindH264}, 0xE0},     {{kKindH264, kKindAc3}, kKindAc3},
      {{kKindAc3, kKindH264}, kKindAc3}, {{0xBD, 0}, 0xBD},       {{0, 0, 0}, 0},
  };
  for (const auto& c : cases) {
    CPidCensus census;
    for (std::uint8_t kind : c.kinds) census.Add(0x44, kind);
    ASSERT_EQ(census.Count(), 1);
    EXPECT_EQ(census.Row(0).kind, c.expected);
    EXPECT_EQ(census.Row(0).count, c.kinds.size());
  }
}

TEST(CPidCensus, ThousandRowsThenNewPidsAreLostButOldOnesStillCount) {
  auto census = std::make_unique<CPidCensus>();
  for (std::uint16_t pid = 0; pid < kMaxCensusRows; ++pid) census->Add(pid, 0);
  EXPECT_EQ(census->Count(), kMaxCensusRows);
  census->Add(kMaxCensusRows, 0);
  EXPECT_EQ(census->Count(), kMaxCensusRows);
  EXPECT_EQ(census->Find(kMaxCensusRows), nullptr);
  census->Add(999, 0xE0);
  EXPECT_EQ(census->Find(999)->count, 2u);
  EXPECT_EQ(census->TotalPackets(), kMaxCensusRows + 1u);
}

TEST(CPidCensus, SortsLargestCountFirstAsUnsigned) {
  CPidCensus census;
  census.Sort();  // an empty census too
  EXPECT_EQ(census.Count(), 0);
  census.Add(1, 0);
  for (int i = 0; i < 3; ++i) census.Add(2, 0);
  for (int i = 0; i < 2; ++i) census.Add(3, 0);
  census.Sort();
  EXPECT_EQ(census.Row(0).pid, 2);
  EXPECT_EQ(census.Row(1).pid, 3);
  EXPECT_EQ(census.Row(2).pid, 1);

  const PidStat big{1, 0x80000000u, 0};
  const PidStat small{2, 1, 0};
  EXPECT_LT(CompareCensusRows(&big, &small), 0);
  EXPECT_GT(CompareCensusRows(&small, &big), 0);
  EXPECT_EQ(CompareCensusRows(&small, &small), 0);
}

}  // namespace
