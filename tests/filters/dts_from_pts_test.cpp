// The recorder's pure parts: decode times from presentation times, the
// gathering of samples into packets, and random access points.
#include "filters/stream_buffer/dts_from_pts.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "filters/stream_buffer/random_access.h"
#include "filters/stream_buffer/recording_stream.h"

namespace {

using Times = std::vector<std::int64_t>;

std::vector<PacketStamps> PushAll(int delay, std::int64_t duration, const Times& pts) {
  CDtsFromPts dts(delay, duration, 3600);
  std::vector<PacketStamps> out;
  for (const std::int64_t p : pts) dts.Push(p, out);
  dts.Flush(out);
  return out;
}

// What the muxer insists on: DTS rising strictly and never above the PTS.
void ExpectMuxable(const std::vector<PacketStamps>& stamps, const char* what) {
  for (std::size_t i = 0; i < stamps.size(); ++i) {
    EXPECT_LE(stamps[i].dts, stamps[i].pts) << what << " packet " << i;
    EXPECT_TRUE(i == 0 || stamps[i].dts > stamps[i - 1].dts) << what << " packet " << i;
  }
}

TEST(DtsFromPts, TakesTheSmallestPtsOfTheWindowAndStepsBackAtTheStart) {
  const struct {
    const char* name;
    int delay;
    std::int64_t duration;  // 0: from the first PTS values
    Times pts;              // decode order
    Times dts;
  } cases[] = {
      {"IPPP", 2, 0, {0, 10, 20, 30, 40}, {-20, -10, 0, 10, 20}},
      {"IBBP", 2, 0, {0, 30, 10, 20, 60, 40, 50}, {-20, -10, 0, 10, 20, 30, 40}},
      // b1 and b3 refer to B2: the first three show a gap of two frames.
      {"B-pyramid", 2, 0, {0, 40, 20, 10, 30, 80, 60, 50, 70}, {-40, -20, 0, 10, 20, 30, 40, 50, 60}},
      // A recording that starts at an open GOP: its leading B-frames are
      // shown before the I-frame.
      {"open GOP", 2, 0, {30, 10, 20, 60, 40, 50}, {-10, 0, 10, 20, 30, 40}},
      {"duration from the type", 2, 5, {0, 30, 10, 20}, {-10, -5, 0, 10}},
      {"audio", 0, 0, {0, 24, 48, 72}, {0, 24, 48, 72}},
      {"one picture: the default duration", 2, 0, {100}, {100 - 2 * 3600}},
      {"two pictures", 2, 0, {0, 10}, {-20, -10}},
  };
  for (const auto& c : cases) {
    const std::vector<PacketStamps> stamps = PushAll(c.delay, c.duration, c.pts);
    ASSERT_EQ(stamps.size(), c.pts.size()) << c.name;
    for (std::size_t i = 0; i < stamps.size(); ++i) {
      EXPECT_EQ(stamps[i].pts, c.pts[i]) << c.name << " packet " << i;
      EXPECT_EQ(stamps[i].dts, c.dts[i]) << c.name << " packet " << i;
    }
    ExpectMuxable(stamps, c.name);
  }
}

// Times the reorder delay cannot explain still give stamps the muxer takes:
// the DTS rises by a tick and the PTS is raised to it.
TEST(DtsFromPts, TimesOutsideTheDelayStillRiseStrictly) {
  const struct {
    const char* name;
    int delay;
    Times pts;
  } cases[] = {
      {"reorder deeper than the delay", 0, {0, 20, 10, 30}},
      {"repeated time", 0, {0, 0, 0}},
      {"jump back", 2, {1000, 1010, 1020, 1030, 5, 15, 25}},
  };
  for (const auto& c : cases) {
    const std::vector<PacketStamps> stamps = PushAll(c.delay, 0, c.pts);
    ASSERT_EQ(stamps.size(), c.pts.size()) << c.name;
    ExpectMuxable(stamps, c.name);
    for (std::size_t i = 0; i < stamps.size(); ++i) EXPECT_GE(stamps[i].pts, c.pts[i]) << c.name;
  }
}

std::vector<std::uint8_t> Bytes(const std::string& text) { return {text.begin(), text.end()}; }

TEST(RecorderPackets, TimedSamplesStartPacketsAndNoByteIsLost) {
  CRecordingStream stream(ElementaryKind::MpegAudio, 0, 3600);
  std::vector<RecordedPacket> out;
  stream.Take(Bytes("ab"), std::nullopt, out);  // before any time: leads the first packet
  stream.Take(Bytes("cd"), 100, out);
  stream.Take(Bytes("ef"), std::nullopt, out);
  EXPECT_TRUE(out.empty()) << "a packet is whole only when the next one starts";
  stream.Take(Bytes("gh"), 200, out);
  stream.Finish(out);
  stream.Take(Bytes("ij"), std::nullopt, out);  // no time follows: goes out last
  stream.Finish(out);
  ASSERT_EQ(out.size(), 3u);
  const struct {
    const char* bytes;
    std::int64_t pts;
  } expected[] = {{"abcdef", 100}, {"gh", 200}, {"ij", 201}};
  for (std::size_t i = 0; i < out.size(); ++i) {
    EXPECT_EQ(out[i].bytes, Bytes(expected[i].bytes)) << i;
    EXPECT_EQ(out[i].pts, expected[i].pts) << i;
    EXPECT_EQ(out[i].dts, expected[i].pts) << i;
    EXPECT_TRUE(out[i].key) << "audio: every packet";
  }
}

TEST(RecorderRandomAccess, FindsTheStartsPlayersNeed) {
  const struct {
    const char* name;
    ElementaryKind kind;
    std::vector<std::uint8_t> bytes;
    bool key;
  } cases[] = {
      {"sequence header", ElementaryKind::Mpeg2Video, {0, 0, 1, 0xB3, 0x2D, 0x01}, true},
      {"GOP header", ElementaryKind::Mpeg2Video, {0xAA, 0, 0, 1, 0xB8, 0}, true},
      {"I picture", ElementaryKind::Mpeg2Video, {0, 0, 1, 0x00, 0x00, 0x0F, 0xFF}, true},
      {"P picture first", ElementaryKind::Mpeg2Video, {0, 0, 1, 0x00, 0x00, 0x17, 0xFF, 0, 0, 1, 0xB3}, false},
      {"picture cut short", ElementaryKind::Mpeg2Video, {0, 0, 1, 0x00, 0x00}, false},
      {"no start code", ElementaryKind::Mpeg2Video, {0, 0, 2, 0xB3, 0, 0}, false},
      {"IDR", ElementaryKind::H264Video, {0, 0, 0, 1, 0x09, 0x10, 0, 0, 1, 0x65}, true},
      {"parameter sets", ElementaryKind::H264Video, {0, 0, 0, 1, 0x67, 0x42, 0, 0, 1, 0x68}, true},
      {"other slice first", ElementaryKind::H264Video, {0, 0, 1, 0x09, 0x30, 0, 0, 1, 0x41, 0, 0, 1, 0x67}, false},
      {"audio", ElementaryKind::Ac3Audio, {0x0B, 0x77}, true},
  };
  for (const auto& c : cases) EXPECT_EQ(IsRandomAccess(c.kind, c.bytes), c.key) << c.name;
}

}  // namespace
