#include "analysis/track_selection.h"

#include <gtest/gtest.h>

#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "analysis/pat_parser.h"
#include "analysis/pmt_parser.h"
#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;

struct Tracks : ::testing::Test {
  // Lists the program in a PAT and gives it a PMT of `streams`.
  void Program(std::uint16_t number, std::uint8_t version, const std::vector<tsw::PmtStream>& streams) {
    const Bytes patSection = tsw::PatSection(1, 0, {{number, static_cast<std::uint16_t>(0x20 + number)}});
    ASSERT_EQ(pat.OfferSection(patSection, patSection.size()), 1);
    const Bytes pmtSection = tsw::PmtSection(number, version, 0x1FFF, streams);
    ASSERT_EQ(pmt.OfferSection(pmtSection, pmtSection.size()), 1);
  }
  void CountEach(std::initializer_list<std::uint16_t> pids) {
    for (std::uint16_t pid : pids) census.Add(pid, 0);
  }
  HRESULT Select(std::uint32_t program) { return SelectTracks(*table, census, program, selection); }
  std::vector<int> TrackPids() const {
    std::vector<int> pids;
    for (int i = 0; i < selection.trackCount; ++i) pids.push_back(selection.tracks[i].pid);
    return pids;
  }

  std::unique_ptr<CProgramTable> table = std::make_unique<CProgramTable>();
  CPatParser pat{*table};
  CPmtParser pmt{*table};
  CPidCensus census;
  TrackSelection selection;
};

TEST_F(Tracks, VideoAndAudioInPmtOrderWithLanguagesAndAnUnknownProgramChangesNothing) {
  Program(1, 0, {{0x04, 0x102, tsw::LanguageDescriptor("deu")}, {0x02, 0x100, {}},
                 {0x03, 0x101, tsw::LanguageDescriptor("eng")}});
  CountEach({0x100, 0x101, 0x102});
  for (std::uint32_t program : {1, 2}) {
    EXPECT_EQ(Select(program), program == 1 ? S_OK : E_FAIL);
    EXPECT_EQ(selection.ready, 1);
    EXPECT_EQ(selection.videoPid, 0x100);
    EXPECT_EQ(selection.videoStreamType, 2);
    ASSERT_EQ(TrackPids(), (std::vector<int>{0x102, 0x101}));
    EXPECT_EQ(selection.tracks[0].stream_type, 4);
    EXPECT_EQ(selection.tracks[0].kind, kKindMpegAudio);
    EXPECT_STREQ(selection.tracks[0].language, "deu");
    EXPECT_STREQ(selection.tracks[1].language, "eng");
  }
}

TEST_F(Tracks, StreamTypeAndCensusKindDecideTheTrack) {
  struct Case {
    std::uint8_t streamType;
    std::uint8_t censusKind;
    std::uint16_t trackKind;  // 0: no track
  };
  const std::vector<Case> cases = {
      {3, 0xC0, kKindMpegAudio}, {4, 0, kKindMpegAudio},       {6, kKindAc3, kKindAc3Audio},
      {6, 0xBD, 0},              {6, 0, 0},                    {128, 0, kKindAc3Audio},
      {129, 0xBD, kKindAc3Audio}, {248, 0, kKindAacAudio},     {0x0F, 0xC0, 0},
      {0, kKindAc3, 0},          {249, kKindAc3, 0}};
  std::uint16_t number = 1;
  for (const Case& c : cases) {
    const auto pid = static_cast<std::uint16_t>(0x200 + number);
    Program(number, 0, {{0x02, 0x100, {}}, {c.streamType, pid, {}}});
    CountEach({0x100});
    census.Add(pid, c.censusKind);
    selection = {};
    const std::string label = "type " + std::to_string(c.streamType) + " kind " + std::to_string(c.censusKind);
    EXPECT_EQ(Select(number++), c.trackKind != 0 ? S_OK : E_FAIL) << label;
    ASSERT_EQ(selection.trackCount, c.trackKind != 0 ? 1 : 0) << label;
    if (c.trackKind == 0) continue;
    EXPECT_EQ(selection.tracks[0].kind, c.trackKind) << label;
    EXPECT_EQ(selection.tracks[0].stream_type, c.streamType) << label;
    EXPECT_EQ(selection.tracks[0].pid, pid) << label;
  }
}

TEST_F(Tracks, LastCountedVideoRowWinsWithItsTypeAndReadyNeedsACountedAudioRow) {
  const struct {
    std::vector<tsw::PmtStream> streams;
    HRESULT hr;
    std::uint16_t pid, type;
  } cases[] = {
      {{{0x01, 0x101, {}}, {0x03, 0x180, {}}}, S_OK, 0x101, 2},
      {{{0x1B, 0x101, {}}, {0x03, 0x180, {}}}, S_OK, 0x101, 27},
      {{{0x02, 0x101, {}}, {0x1B, 0x102, {}}, {0x03, 0x180, {}}}, S_OK, 0x102, 27},
      {{{0x1B, 0x101, {}}, {0x01, 0x102, {}}, {0x03, 0x180, {}}}, S_OK, 0x102, 2},
      {{{0x1B, 0x101, {}}, {0x02, 0x1FF, {}}, {0x03, 0x180, {}}}, S_OK, 0x101, 27},  // no census row
      {{{0x02, 0x101, {}}, {0x03, 0x1FE, {}}}, E_FAIL, 0x101, 2},                    // no census row
      // Audio ahead of video: ready once the video row is met.
      {{{0x03, 0x180, {}}, {0x1B, 0x102, {}}}, S_OK, 0x102, 27},
  };
  CountEach({0x101, 0x102, 0x180});
  std::uint16_t number = 1;
  for (const auto& c : cases) {
    Program(number, 0, c.streams);
    selection = {};
    EXPECT_EQ(Select(number), c.hr) << number;
    EXPECT_EQ(selection.ready, c.hr == S_OK ? 1 : 0) << number;
    EXPECT_EQ(selection.trackCount, c.hr == S_OK ? 1 : 0) << number;
    EXPECT_EQ(selection.videoPid, c.pid) << number;
    EXPECT_EQ(selection.videoStreamType, c.type) << number;
    ++number;
  }
}

TEST_F(Tracks, TheLastProgramRunDecides) {
  Program(1, 0, {{0x02, 0x110, {}}, {0x03, 0x111, {}}});
  Program(2, 0, {{0x02, 0x120, {}}, {0x81, 0x121, {}}});
  Program(3, 0, {{0x03, 0x131, {}}, {0x04, 0x132, {}}});  // audio only
  Program(4, 0, {});                                      // no streams
  Program(5, 0, {{0x03, 0x151, {}}});                     // no census rows
  Program(6, 0, {{0x05, 0x160, {}}});                     // a stream that is no track
  Program(7, 0, {{0x1B, 0x170, {}}});                     // video only
  CountEach({0x110, 0x111, 0x120, 0x121, 0x131, 0x132, 0x160, 0x170});

  EXPECT_EQ(Select(1), S_OK);
  EXPECT_EQ(Select(2), S_OK);
  EXPECT_EQ(selection.videoPid, 0x120);
  EXPECT_EQ(TrackPids(), std::vector<int>{0x121});

  // The other program's video stays.
  EXPECT_EQ(Select(3), S_OK);
  EXPECT_EQ(selection.videoPid, 0x120);
  EXPECT_EQ(TrackPids(), (std::vector<int>{0x131, 0x132}));

  // Nothing counted: the list empties, the ready flag stays.
  EXPECT_EQ(Select(4), S_OK);
  EXPECT_EQ(selection.trackCount, 0);
  EXPECT_EQ(Select(5), S_OK);
  EXPECT_EQ(selection.ready, 1);

  // A counted stream of another type re-evaluates it.
  EXPECT_EQ(Select(6), E_FAIL);
  EXPECT_EQ(selection.ready, 0);
  EXPECT_EQ(Select(4), E_FAIL);

  EXPECT_EQ(Select(7), E_FAIL);
  EXPECT_EQ(selection.videoPid, 0x170);
  EXPECT_EQ(selection.videoStreamType, 27);
  EXPECT_EQ(selection.trackCount, 0);

  // A new version of program 2 with another audio stream replaces its list.
  Program(2, 1, {{0x02, 0x120, {}}, {0x03, 0x111, {}}});
  EXPECT_EQ(Select(2), S_OK);
  ASSERT_EQ(TrackPids(), std::vector<int>{0x111});
  EXPECT_EQ(selection.tracks[0].kind, kKindMpegAudio);
}

TEST_F(Tracks, FortyAudioRowsGiveTheRowsOfThePacketAndTenTracks) {
  const Bytes patSection = tsw::PatSection(1, 0, {{1, 0x20}});
  ASSERT_EQ(pat.OfferSection(patSection, patSection.size()), 1);
  std::vector<tsw::PmtStream> streams = {{0x02, 0x100, {}}};
  for (std::uint16_t i = 0; i < 40; ++i) streams.push_back({0x03, static_cast<std::uint16_t>(0x200 + i), {}});
  const Bytes section = tsw::PmtSection(1, 0, 0x100, streams);
  // Only the packet's 183 bytes are at hand; the section claims 221.
  ASSERT_EQ(pmt.OfferSection(tsw::InPacket(section), section.size()), 1);
  for (const tsw::PmtStream& stream : streams) CountEach({stream.pid});

  ASSERT_EQ(table->Entry(0).stream_count, 34u);
  EXPECT_EQ(table->Entry(0).pmt.streams[33].pid, 0x220u);
  EXPECT_EQ(Select(1), S_OK);
  std::vector<int> first(kMaxAudioTracks);
  std::iota(first.begin(), first.end(), 0x200);
  EXPECT_EQ(TrackPids(), first);
}

struct FallbackCase {
  const char* name;
  std::vector<PidStat> rows;
  bool preferAc3;
  struct {
    std::uint16_t videoPid, videoType, audioPid, audioKind;
  } want;
};

TEST(CensusFallback, TakesTheLargestRowsPassingOverAnIdleNullPid) {
  constexpr std::uint16_t kMpeg = kKindMpegAudio;
  const std::vector<FallbackCase> cases = {
      {"NoPes", {{kNullPid, 90, 0}, {0x100, 50, 0}, {0x101, 30, 0}}, false, {0x100, 0, 0x101, kMpeg}},
      {"NullWithPes", {{kNullPid, 90, 0xE0}, {0x100, 50, 0xC0}}, false, {kNullPid, 0xE0, 0x100, kMpeg}},
      {"NullSecond", {{0x100, 90, 27}, {kNullPid, 50, 0}, {0x101, 30, 0xC0}}, false,
       {0x100, 27, 0x101, kMpeg}},
      {"Ac3Off", {{0x100, 90, 0xE0}, {0x101, 50, 0}, {0x102, 30, kKindAc3}}, false,
       {0x100, 0xE0, 0x101, kMpeg}},
      {"Ac3On", {{0x100, 90, 0xE0}, {0x101, 50, 0}, {0x102, 30, kKindAc3}}, true, {0x100, 0xE0, 0x102, 2}},
      {"Ac3OnLargest", {{0x100, 90, kKindAc3}, {0x101, 50, 27}}, true, {0x100, kKindAc3, 0x100, 2}},
      {"Aac", {{0x100, 90, 27}, {0x101, 50, kKindAac}}, true, {0x100, 27, 0x101, kKindAacAudio}},
      {"Empty", {}, true, {0, 0, 0, kMpeg}},
      {"OneRow", {{0x100, 9, 0xE0}}, false, {0x100, 0xE0, 0, kMpeg}},
      {"OnlyIdleNull", {{kNullPid, 9, 0}}, false, {0, 0, 0, kMpeg}}};
  for (const FallbackCase& c : cases) {
    auto census = std::make_unique<CPidCensus>();
    for (const PidStat& row : c.rows) {
      for (std::uint32_t i = 0; i < row.count; ++i) census->Add(row.pid, row.kind);
    }
    census->Sort();
    TrackSelection selection;
    CensusFallback(*census, c.preferAc3, selection);
    EXPECT_EQ(selection.videoPid, c.want.videoPid) << c.name;
    EXPECT_EQ(selection.videoStreamType, c.want.videoType) << c.name;
    ASSERT_EQ(selection.trackCount, 1) << c.name;
    const AudioTrack& track = selection.tracks[0];
    EXPECT_EQ(track.pid, c.want.audioPid) << c.name;
    EXPECT_EQ(track.kind, c.want.audioKind) << c.name;
    const PidStat* row = census->Find(c.want.audioPid);
    EXPECT_EQ(track.stream_type, row != nullptr ? row->kind : 0) << c.name;
    EXPECT_STREQ(track.language, "eng") << c.name;
    EXPECT_EQ(selection.ready, 1) << c.name;
    EXPECT_EQ(selection.noPmt, 1) << c.name;
  }
}

}  // namespace
