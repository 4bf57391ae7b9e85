#include "analysis/packet_engine.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "analysis/pes_fields.h"
#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;

constexpr std::uint16_t kVideo = 0x100;
constexpr std::uint16_t kAudio = 0x101;

// An in-memory stream behind the engine. A packet whose byte 5 is 0xB3 counts
// as a video header for the analysis.
class FakeHost final : public CPacketEngineHost {
 public:
  explicit FakeHost(std::vector<tsw::Packet> packets) : m_Packets(std::move(packets)) {}

  std::uint64_t GetStreamSize() override { return m_Packets.size() * kPacketSize; }
  HRESULT ReadPackets(std::span<std::uint8_t> buffer, std::uint32_t first, std::uint32_t count,
                      std::uint32_t* firstOut) override {
    ++reads;
    const std::uint32_t start = first / count * count;
    for (std::uint32_t i = 0; i < count && start + i < m_Packets.size(); ++i) {
      std::copy(m_Packets[start + i].begin(), m_Packets[start + i].end(),
                buffer.begin() + static_cast<std::ptrdiff_t>(i * kPacketSize));
    }
    if (firstOut != nullptr) *firstOut = start;
    return S_OK;
  }
  int ScanPhase() override { return phase; }
  std::uint32_t PrefDemux() override { return prefDemux; }
  std::uint16_t VideoPid() override { return videoPid; }
  bool VideoHeaderKnown() override { return headerKnown; }
  int AnalyseVideoHeader(PacketSpan target) override { ++analyses; return target[5] == 0xB3 ? 1 : 0; }
  void TablesStep(PacketSpan) override { ++tablesSteps; }
  void CensusAdd(std::uint16_t pid, std::uint8_t kind) override { census.push_back({pid, kind}); }
  void EndOfStream() override { ++endOfStream; }

  int phase = 0;
  std::uint32_t prefDemux = 1;
  std::uint16_t videoPid = kVideo;
  bool headerKnown = true;
  int reads = 0, analyses = 0, tablesSteps = 0, endOfStream = 0;
  std::vector<std::pair<std::uint16_t, std::uint8_t>> census;

 private:
  std::vector<tsw::Packet> m_Packets;
};

// Packet i carries its index in bytes 6 and 7 of a plain payload.
tsw::Packet Numbered(std::uint16_t pid, std::uint32_t i) {
  const Bytes payload = {0xAA, 0xAA, static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i)};
  return tsw::MakePacket(pid, false, payload);
}

std::uint32_t NumberOf(std::span<const std::uint8_t> packet) {
  return static_cast<std::uint32_t>(packet[6] << 8 | packet[7]);
}

tsw::Packet VideoPes(std::uint64_t pts) {
  return tsw::MakePacket(kVideo, true, tsw::PesHeader(0xE0, pts));
}

std::vector<tsw::Packet> Stream(std::uint32_t count) {
  std::vector<tsw::Packet> packets;
  for (std::uint32_t i = 0; i < count; ++i) packets.push_back(Numbered(i % 2 ? kAudio : kVideo, i));
  return packets;
}

class EngineTest : public ::testing::Test {
 protected:
  // `loaded`: the block already holds the first packets, as scans expect.
  void Init(std::vector<tsw::Packet> packets, bool loaded = false) {
    host = std::make_unique<FakeHost>(std::move(packets));
    engine = std::make_unique<CPacketEngine>(*host);
    block.assign(kBlockPackets * kPacketSize, 0);
    engine->PacketBlock = block;
    engine->BlockFirstPacket = 0xFFFFFFF0u;  // forces the first refill
    if (loaded) host->ReadPackets(block, 0, kBlockPackets, nullptr);
  }
  HRESULT Deliver(SampleProperties* props = nullptr, double rate = 1.0, REFERENCE_TIME stop = 0) {
    SampleProperties ignored;
    return engine->FillBuffer(sample, rate, stop, props != nullptr ? props : &ignored);
  }
  HRESULT Scan() { return engine->FillBuffer({}, 1.0, 0, nullptr); }

  std::unique_ptr<FakeHost> host;
  std::unique_ptr<CPacketEngine> engine;
  std::vector<std::uint8_t> block;
  std::array<std::uint8_t, kPacketSize> sample{};
};

TEST_F(EngineTest, DeliversEveryPacketInOrderThenEndsTheStreamOnEachCall) {
  Init(Stream(25000));
  for (std::uint32_t i = 0; i < 25000; ++i) {
    ASSERT_EQ(Deliver(), S_OK);
    ASSERT_EQ(NumberOf(sample), i & 0xFFFF);
  }
  EXPECT_EQ(host->reads, 3) << "one read per block of 10000";
  EXPECT_EQ(Deliver(), S_FALSE);
  EXPECT_EQ(Deliver(), S_FALSE);
  EXPECT_EQ(host->endOfStream, 2);
  EXPECT_EQ(engine->CurrentPacket, 25000u);
}

TEST_F(EngineTest, ScanPhasesPickTheirStepsAndAddressTheBlockModuloTenThousand) {
  for (int phase : {0, 1, 2}) {
    Init(Stream(25000), true);
    engine->CurrentPacket = 12345;
    host->phase = phase;
    ASSERT_EQ(Scan(), S_OK);
    EXPECT_EQ(host->reads, 1) << "scans never refill";
    EXPECT_EQ(host->tablesSteps, phase == 2 ? 1 : 0) << phase;
    ASSERT_EQ(host->census.size(), phase == 1 ? 1u : 0u) << phase;
    if (phase == 1) {
      EXPECT_EQ(host->census[0].first, kAudio) << "packet 2345 of the block, an odd one";
    }
  }
}

TEST_F(EngineTest, SampleTimesMoveOnlyAtVideoPtsInWholeMilliseconds) {
  Init({VideoPes(900000), Numbered(kAudio, 1), VideoPes(900000 + 4545), Numbered(kAudio, 3), VideoPes(0),
        tsw::MakePacket(0, true, tsw::PesHeader(0xE0, 1234))});
  SampleProperties p;
  ASSERT_EQ(Deliver(&p, 1.0, 777), S_OK);
  EXPECT_TRUE(p.syncPoint);
  EXPECT_EQ(p.start, 0);
  EXPECT_EQ(p.stop, 777);
  ASSERT_EQ(Deliver(&p, 1.0, 777), S_OK);
  EXPECT_FALSE(p.syncPoint);
  EXPECT_EQ(p.start, 0);
  ASSERT_EQ(Deliver(&p, 1.0, 777), S_OK);
  EXPECT_TRUE(p.syncPoint);
  EXPECT_EQ(p.start, 50 * 10000) << "4545 ticks are 50.5 ms, kept as 50";
  ASSERT_EQ(Deliver(&p, 2.0, 777), S_OK);
  EXPECT_EQ(p.start, 25 * 10000) << "a rate divides both times";
  EXPECT_EQ(p.stop, 388);
  // A PTS of 0 changes nothing, and without a video PID yet PID 0 is not
  // taken for it.
  ASSERT_EQ(Deliver(&p), S_OK);
  EXPECT_FALSE(p.syncPoint);
  host->videoPid = 0;
  ASSERT_EQ(Deliver(&p), S_OK);
  EXPECT_FALSE(p.syncPoint);
  EXPECT_EQ(engine->FirstPts, 900000u);
  EXPECT_EQ(engine->LastPts, 904545u);
}

TEST_F(EngineTest, TablesPhaseKeepsSmallestPtsOtherPhasesTheFirst) {
  const std::vector<tsw::Packet> packets = {VideoPes(5000), VideoPes(3000), VideoPes(4000)};
  for (int phase : {0, 2}) {
    Init(packets, true);
    host->phase = phase;
    for (int i = 0; i < 3; ++i) Scan();
    EXPECT_EQ(engine->FirstPts, phase == 2 ? 3000u : 5000u) << phase;
    EXPECT_EQ(engine->LastPts, 4000u);
    EXPECT_EQ(engine->PtsDelta, phase == 2 ? 1000u : static_cast<std::uint64_t>(4000 - 5000ll));
  }
}

TEST_F(EngineTest, AnalysisRunsOnVideoStartsUntilHeaderKnownAndMovesTheGate) {
  tsw::Packet header = VideoPes(1000);
  header[5] = 0xB3;  // what the fake analysis recognises
  Init({Numbered(kVideo, 0), VideoPes(900), header, Numbered(kAudio, 3)}, true);
  host->headerKnown = false;
  for (int i = 0; i < 4; ++i) Scan();
  EXPECT_EQ(host->analyses, 2) << "only PES starts on the video PID";
  EXPECT_EQ(engine->DeliveryGate, 3u) << "right behind the header";
  EXPECT_EQ(engine->GateBase, 3u);
}

TEST_F(EngineTest, SeekPassesOverPacketsUntilAHeaderOrTheSearchWindowEnds) {
  struct Case {
    const char* name;
    std::uint32_t count, headerAt, seekTo;  // headerAt 0: no header
    HRESULT hr;
    std::uint32_t first;
  };
  const Case cases[] = {{"NoHeaderUpToGateBasePlus5000", 20000, 0, 1000, S_OK, 4999},
                        {"FirstHeaderWhateverItsPid", 20000, 1500, 1000, S_OK, 1500},
                        {"BeyondTheWindowAtOnce", 20000, 0, 7000, S_OK, 7000},
                        {"EndReachedWhilePassingOver", 3000, 0, 100, S_FALSE, 0}};
  for (const Case& c : cases) {
    std::vector<tsw::Packet> packets = Stream(c.count);
    if (c.headerAt != 0) packets[c.headerAt][5] = 0xB3;
    Init(packets);
    engine->SeekToPacket(c.seekTo);
    SampleProperties p;
    ASSERT_EQ(Deliver(&p), c.hr) << c.name;
    EXPECT_EQ(host->endOfStream, c.hr == S_FALSE ? 1 : 0) << c.name;
    if (c.hr != S_OK) continue;
    EXPECT_EQ(NumberOf(sample), c.first) << c.name;
    EXPECT_TRUE(p.discontinuity) << c.name;
    EXPECT_EQ(engine->GateBase, 0u) << c.name;
    ASSERT_EQ(Deliver(&p), S_OK) << c.name;
    EXPECT_EQ(NumberOf(sample), c.first + 1) << c.name;
    EXPECT_FALSE(p.discontinuity) << c.name;
  }
}

TEST_F(EngineTest, SampleShorterThanAPacketOrNoBlockFails) {
  Init(Stream(10));
  std::array<std::uint8_t, 100> small{};
  EXPECT_EQ(engine->FillBuffer(small, 1.0, 0, nullptr), E_FAIL);
  engine->PacketBlock = {};
  EXPECT_EQ(Deliver(), E_FAIL);
}

TEST_F(EngineTest, ElementaryOutputCopiesOnlyVideoPayload) {
  Bytes es(300);
  for (std::size_t i = 0; i < es.size(); ++i) es[i] = static_cast<std::uint8_t>(i);
  Bytes pes = tsw::PesHeader(0xE0, 0, static_cast<std::uint16_t>(3 + es.size()));
  pes.insert(pes.end(), es.begin(), es.end());
  const std::span<const std::uint8_t> all(pes);
  Init({Numbered(kAudio, 0), tsw::MakePacket(kVideo, true, all.first(184)),
        tsw::MakePacket(kVideo, false, all.subspan(184))});
  host->prefDemux = 3;
  SampleProperties p;
  // The countdown is the PES length plus the offset of the data less one
  // packet, taken before the copy: 303 + 13 - 188 = 128 bytes of the 175.
  ASSERT_EQ(Deliver(&p), S_OK);  // the audio packet is passed over
  ASSERT_EQ(p.actualLength, 128);
  EXPECT_TRUE(std::equal(sample.begin(), sample.begin() + 128, es.begin()));
  // Then 128 + 4 - 188 wraps, and the whole payload goes out.
  ASSERT_EQ(Deliver(&p), S_OK);
  ASSERT_EQ(p.actualLength, 184);
  EXPECT_TRUE(std::equal(sample.begin(), sample.begin() + 125, es.begin() + 175));
  EXPECT_EQ(sample[125], 0xFF);

  // A PES header that ends past the packet leaves nothing to copy.
  Init({tsw::MakePacket(kVideo, true, Bytes{0x00, 0x00, 0x01, 0xE0, 0x00, 0x00, 0x80, 0x00, 250})});
  host->prefDemux = 3;
  ASSERT_EQ(Deliver(&p), S_OK);
  EXPECT_EQ(p.actualLength, 0);
}

TEST(ClampToInt64, HoldsTheEnds) {
  EXPECT_EQ(ClampToInt64(12.9), 12);
  EXPECT_EQ(ClampToInt64(-12.9), -12);
  EXPECT_EQ(ClampToInt64(1e300), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(ClampToInt64(-1e300), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(ClampToInt64(std::numeric_limits<double>::quiet_NaN()), 0);
  EXPECT_EQ(ClampToInt64(std::numeric_limits<double>::infinity()),
            std::numeric_limits<std::int64_t>::max());
}

}  // namespace
