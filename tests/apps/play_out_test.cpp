// `brindlet play --out`: the player's graph with the demultiplexer that the
// filter wires itself. What lands in each file is checked against ffmpeg's
// own copy of the stream, and the audio switch against both languages.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>

#include "apps/brindlet/play_command.h"
#include "apps/brindlet/query_command.h"  // exit codes
#include "control/settings_store.h"
#include "tests/support/process.h"
#include "tests/support/scoped_registry.h"
#include "tests/support/ts_reader.h"
#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;
namespace fs = std::filesystem;

struct PlayRun {
  int status = -1;
  std::string out;
  std::string err;
};

PlayRun PlayOut(const fs::path& in, const fs::path& dir, std::optional<long> audio = std::nullopt,
                std::optional<bool> answer = std::nullopt) {
  PlayOptions options;
  options.file = in.string();
  options.out = dir.string();
  options.audio = audio;
  options.answer = answer;
  std::ostringstream out, err;
  const int status = RunPlay(options, out, err, ProgressMode::Off);
  return {status, out.str(), err.str()};
}

// "PIN: FILE, N samples, B bytes" for `pin`; -1 if the summary lacks it.
long long BytesOf(const std::string& summary, const std::string& pin) {
  const std::regex line("(^|\n)" + pin + R"(: [^\n]*, (\d+) samples, (\d+) bytes\n)");
  std::smatch match;
  return std::regex_search(summary, match, line) ? std::stoll(match[3]) : -1;
}

bool EndsWith(const Bytes& whole, const Bytes& tail) {
  return tail.size() <= whole.size() && std::equal(tail.begin(), tail.end(), whole.end() - static_cast<std::ptrdiff_t>(tail.size()));
}

bool Contains(const Bytes& whole, const Bytes& part) {
  return std::search(whole.begin(), whole.end(), part.begin(), part.end()) != whole.end();
}

Bytes Slice(const Bytes& bytes, std::size_t from, std::size_t count) {
  return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(from),
               bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), from + count)));
}

// ffmpeg's copy of one stream in a raw container format.
Bytes Extract(const fs::path& in, const std::string& map, const std::string& format, const fs::path& to) {
  const auto result = tsw::Shell("ffmpeg -v error -y -i '" + in.string() + "' -map " + map + " -c copy -f " + format +
                                 " '" + to.string() + "' 2>&1");
  EXPECT_EQ(result.status, 0) << result.out;
  return tsw::ReadAll(to);
}

// "codec,frames" as ffprobe decodes the file.
std::string Probe(const fs::path& file) {
  return tsw::Shell("ffprobe -v error -count_frames -show_entries stream=codec_name,nb_read_frames -of csv=p=0 '" +
                    file.string() + "' 2>&1")
      .out;
}

bool Make(const std::string& arguments, const fs::path& to) {
  return tsw::Shell("ffmpeg -v error -y " + arguments + " -f mpegts '" + to.string() + "' 2>&1").status == 0;
}

class PlayOutFixture : public ::testing::Test {
 protected:
  tsw::ScopedRegistry m_Registry;
  tsw::TempDir m_Dir;
  fs::path m_Out = m_Dir.File("out");
};

class PlayOutTest : public PlayOutFixture {
 protected:
  void SetUp() override {
    if (!tsw::OnPath("ffmpeg") || !tsw::OnPath("ffprobe")) GTEST_SKIP() << "needs ffmpeg and ffprobe";
  }
  // What `pin` wrote to `file`: as much as the summary says, the tail of
  // ffmpeg's copy of the stream, and a stream ffprobe decodes as `codec`.
  void ExpectStream(const PlayRun& run, const fs::path& in, const char* pin, const char* file, const char* map,
                    const std::string& format, const std::string& codec) {
    SCOPED_TRACE(pin);
    const Bytes written = tsw::ReadAll(m_Out / file);
    const Bytes expected = Extract(in, map, format, m_Dir.File("ref." + format));
    ASSERT_FALSE(written.empty());
    EXPECT_EQ(BytesOf(run.out, pin), static_cast<long long>(written.size())) << run.out;
    EXPECT_TRUE(EndsWith(expected, written)) << written.size() << " of " << expected.size() << " bytes";
    EXPECT_EQ(Probe(m_Out / file).rfind(codec + ",", 0), 0u) << Probe(m_Out / file);
  }
};

TEST_F(PlayOutTest, Mpeg2AndMp2MatchFfmpegFromTheFirstSequenceHeader) {
  const fs::path in = m_Dir.File("x.ts");
  ASSERT_TRUE(Make("-f lavfi -i testsrc2=size=320x240:rate=25 -f lavfi -i sine -t 3 -c:v mpeg2video -c:a mp2", in));
  const PlayRun run = PlayOut(in, m_Out);
  ASSERT_EQ(run.status, kExitOk) << run.err;
  EXPECT_TRUE(std::regex_search(run.out, std::regex(R"(\n2 streams, \d+ samples, \d+ bytes, \d+\.\d\d s\n$)")))
      << run.out;

  ExpectStream(run, in, "Video", "video.m2v", "0:v:0", "mpeg2video", "mpeg2video");
  ExpectStream(run, in, "Audio", "audio.mp2", "0:a:0", "mp2", "mp2");
  // Delivery starts at a sequence header, so a decoder can start at once.
  const Bytes video = tsw::ReadAll(m_Out / "video.m2v");
  EXPECT_EQ(Slice(video, 0, 4), (Bytes{0x00, 0x00, 0x01, 0xB3}));
}

// ffmpeg's AAC (stream type 0x0F) is no audio track, so the census decides:
// it calls the PID MPEG audio, and the ADTS frames go out on the "Audio" pin
// under that type, unchanged.
TEST_F(PlayOutTest, H264WithAacFromTheCensus) {
  if (tsw::Shell("ffmpeg -hide_banner -encoders 2>/dev/null | grep -q libx264").status != 0) {
    GTEST_SKIP() << "ffmpeg has no libx264";
  }
  const fs::path in = m_Dir.File("h.ts");
  ASSERT_TRUE(Make("-f lavfi -i testsrc2=size=320x240:rate=25 -f lavfi -i sine -t 3 -c:v libx264 -preset fast -bf 2 "
                   "-x264-params aud=1 -c:a aac",
                   in));
  const PlayRun run = PlayOut(in, m_Out);
  ASSERT_EQ(run.status, kExitOk) << run.err;
  ExpectStream(run, in, "H.264", "h264.h264", "0:v:0", "h264", "h264");
  ExpectStream(run, in, "Audio", "audio.mp2", "0:a:0", "adts", "aac");  // ADTS under an MPEG audio type
  EXPECT_EQ(BytesOf(run.out, "AAC"), -1) << run.out;
}

// Two MP2 languages at different pitches, so their frames differ. CBR with
// padding makes the file long enough for the filter to allow a switch.
class PlayOutSwitchTest : public PlayOutTest {
 protected:
  void SetUp() override {
    PlayOutTest::SetUp();
    if (IsSkipped()) return;
    ASSERT_TRUE(Make("-f lavfi -i testsrc2=size=320x240:rate=25 -f lavfi -i sine=frequency=440 "
                     "-f lavfi -i sine=frequency=1000 -t 20 -map 0:v -map 1:a -map 2:a -c:v mpeg2video -b:v 2M "
                     "-c:a mp2 -metadata:s:a:0 language=eng -metadata:s:a:1 language=deu -muxrate 4000000",
                     m_In));
    ASSERT_GT(fs::file_size(m_In) / 188, 40000u) << "too short for a switch after packet 30000";
    m_Eng = Extract(m_In, "0:a:0", "mp2", m_Dir.File("eng.mp2"));
    m_Deu = Extract(m_In, "0:a:1", "mp2", m_Dir.File("deu.mp2"));
  }
  fs::path m_In = m_Dir.File("two.ts");
  Bytes m_Eng, m_Deu;
};

TEST_F(PlayOutSwitchTest, AudioMovesToTheSecondLanguageOnTheSamePin) {
  const PlayRun run = PlayOut(m_In, m_Out, 1);
  ASSERT_EQ(run.status, kExitOk) << run.err;
  EXPECT_TRUE(std::regex_search(run.out, std::regex(R"(\naudio track 1 \(Audio \(deu\) \(MPG\)\) enabled at \d+\.\d\d s\n)")))
      << run.out;
  const Bytes audio = tsw::ReadAll(m_Out / "audio.mp2");
  ASSERT_GT(audio.size(), 8192u);
  EXPECT_TRUE(Contains(m_Eng, Slice(audio, 0, 4096))) << "starts in English";
  EXPECT_TRUE(EndsWith(m_Deu, Slice(audio, audio.size() - 4096, 4096))) << "ends in German";
}

// ---- Synthetic files: one line and the status ------------------------------

struct SyntheticCase {
  const char* name;
  bool audioListed;
  bool videoPackets;
  bool audioPackets;
  int status;
  const char* line;     // what the one line on stderr says
  const char* wiring;   // what the summary says the filter mapped
};

class PlayOutSyntheticTest : public PlayOutFixture, public ::testing::WithParamInterface<SyntheticCase> {};

TEST_P(PlayOutSyntheticTest, ReportsWhatTheWiringDid) {
  const SyntheticCase& c = GetParam();
  // Video PID 0x100, its PES opening with a sequence header; audio 0x101.
  std::vector<tsw::PmtStream> streams{{0x02, 0x100, {}}};
  if (c.audioListed) streams.push_back({0x03, 0x101, {}});
  const Bytes sequence = tsw::Mpeg2SequenceHeader(720, 576, 2, 3);
  tsw::TsFile file;
  for (unsigned i = 0; i < 40; ++i) {
    if (i % 10 == 0) {
      file.AddSection(0, tsw::PatSection(1, 0, {{1, 0x1000}}));
      file.AddSection(0x1000, tsw::PmtSection(1, 0, 0x100, streams));
    }
    Bytes video = tsw::PesHeader(0xE0, 9000 + 3600u * i);
    video.insert(video.end(), sequence.begin(), sequence.end());
    video.resize(400, 0x11);
    Bytes audio = tsw::PesHeader(0xC0, 9000 + 3600u * i, 200);
    audio.resize(206, 0x5A);
    if (c.videoPackets) file.AddPes(0x100, video);
    if (c.audioPackets) file.AddPes(0x101, audio);
  }
  const fs::path in = m_Dir.File("in.ts");
  file.Write(in);

  const PlayRun run = PlayOut(in, m_Out);
  EXPECT_EQ(run.status, c.status) << run.out << run.err;
  EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
  EXPECT_NE(run.err.find(c.line), std::string::npos) << run.err;
  EXPECT_NE(run.out.find(c.wiring), std::string::npos) << run.out;
}

// Without a usable audio track the census leaves the filter an empty track,
// PID 0, and a PID listed but never sent leaves the census the other one,
// whatever it carries.
INSTANTIATE_TEST_SUITE_P(
    Files, PlayOutSyntheticTest,
    ::testing::Values(
        SyntheticCase{"NoAudio", false, true, false, kExitOk, "note: nothing reached Audio (PID 0x0000 (the PAT))",
                      "video.m2v, PID 0x0100, 40 samples"},
        SyntheticCase{"VideoPidWithoutPackets", true, false, true, kExitOk,
                      "note: nothing reached Audio (PID 0x0000 (the PAT))", "video.m2v, PID 0x0101, 40 samples"},
        SyntheticCase{"NoPayloadAtAll", true, false, false, kExitFailure,
                      "nothing was delivered: the filter wired the demultiplexer, but no payload reached Video (PID "
                      "0x0000 (the PAT)); Audio (PID 0x1000); removed ",
                      ""}),
    [](const auto& param) { return std::string(param.param.name); });

// The bundled sample: tracks MPEG (eng) and AC-3 (deu); with the setting AC3
// on, the AC-3 track plays on the pin "AC3".
struct SampleSwitchCase {
  const char* name;
  long track;
  std::optional<bool> answer;
  int status;
  const char* err;    // a piece of stderr, "" for none at all
  DWORD ac3After;     // the setting once the run is over
};

class PlayOutSampleTest : public PlayOutFixture, public ::testing::WithParamInterface<SampleSwitchCase> {};

TEST_P(PlayOutSampleTest, AudioSwitch) {
  const SampleSwitchCase& c = GetParam();
  const fs::path sample = fs::path(BRINDLET_SOURCE_DIR) / "samples/mpeg2-mp2-ac3.ts";
  const PlayRun run = PlayOut(sample, m_Out, c.track, c.answer);
  EXPECT_EQ(run.status, c.status) << run.err;
  EXPECT_TRUE(*c.err == '\0' ? run.err.empty() : run.err.find(c.err) != std::string::npos) << run.err;
  DWORD ac3 = 1;  // the default while nothing is stored
  ReadSettingDword("AC3", &ac3);
  EXPECT_EQ(ac3, c.ac3After);
  // Even after Yes, the running graph keeps its pins.
  EXPECT_TRUE(c.track >= 2 || BytesOf(run.out, "AC3") > 0) << run.out;
}

constexpr const char* kBox =
    "Media Type Change: The Brindlet filter is currently in AC3 audio mode. Would you like to select MPEG mode? "
    "Note: Restart";

INSTANTIATE_TEST_SUITE_P(
    Sample, PlayOutSampleTest,
    ::testing::Values(SampleSwitchCase{"SameKind", 1, std::nullopt, kExitOk, "", 1},
                      SampleSwitchCase{"OtherKindNo", 0, false, kExitFailure, kBox, 1},
                      SampleSwitchCase{"OtherKindUnansweredIsNo", 0, std::nullopt, kExitFailure, "the answer was No", 1},
                      SampleSwitchCase{"OtherKindYes", 0, true, kExitFailure, "takes the other kind the next time", 0},
                      SampleSwitchCase{"NoSuchTrack", 2, std::nullopt, kExitFailure, "the file has 2 audio track(s)", 1}),
    [](const auto& param) { return std::string(param.param.name); });

}  // namespace
