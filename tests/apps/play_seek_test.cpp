// Seeking from the command line on a real MPEG-2 file: the first packet
// written after --start follows the delivery gate's rules, worked out here
// from the file alone.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>

#include "apps/brindlet/play_command.h"
#include "apps/brindlet/query_command.h"
#include "control/settings_store.h"
#include "tests/support/process.h"
#include "tests/support/scoped_registry.h"
#include "tests/support/ts_reader.h"

namespace {

using tsw::Bytes;

constexpr std::uint16_t kVideo = 0x100;
constexpr std::size_t kPacket = 188;
const std::filesystem::path kSample = std::filesystem::path(BRINDLET_SOURCE_DIR) / "samples/mpeg2-mp2-ac3.ts";

// MEDIALEN as whole milliseconds.
std::int64_t DurationMs(const std::filesystem::path& file) {
  std::ostringstream out, err;
  EXPECT_EQ(RunQuery({file.string(), {"MEDIALEN"}}, out, err), kExitOk);
  int h = 0, m = 0, s = 0, ms = 0;
  EXPECT_EQ(std::sscanf(out.str().c_str(), "%d:%d:%d.%d", &h, &m, &s, &ms), 4);
  return ((h * 60LL + m) * 60 + s) * 1000 + ms;
}

class PlaySeekTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(WriteSettingDword("PrefDemux", 0));
    m_Input = tsw::ReadAll(kSample);
    ASSERT_FALSE(m_Input.empty());
    m_Packets = m_Input.size() / kPacket;
    m_Headers = tsw::SequenceHeaderPackets(m_Input, kVideo, m_Packets);
    ASSERT_FALSE(m_Headers.empty());
    m_DurationMs = DurationMs(kSample);
    ASSERT_GT(m_DurationMs, 0);
  }

  // The packet a time maps to: whole milliseconds, by proportion of the file.
  std::size_t PacketFor(double seconds) const {
    const auto ms = static_cast<std::int64_t>(seconds * 1000);
    return static_cast<std::size_t>(static_cast<std::uint64_t>(ms) * m_Packets / static_cast<std::uint64_t>(m_DurationMs));
  }

  // After a seek to packet t the engine passes over packets until one holds
  // a sequence header, or until the gate reaches its base + 5000. The scan
  // left the base right behind the first header it met, on its first trip.
  std::size_t FirstAfterSeek(std::size_t t) const {
    const std::size_t base = m_Headers.front() + 1;
    for (std::size_t c = t;; ++c) {
      if (std::binary_search(m_Headers.begin(), m_Headers.end(), c)) return c;
      if (c + 1 >= base + 5000) return c;
    }
  }

  int Play(PlayOptions options, std::string* err = nullptr, const std::filesystem::path& file = kSample) {
    options.file = file.string();
    options.raw = m_Out.string();
    std::ostringstream out, errors;
    const int status = RunPlay(options, out, errors, ProgressMode::Off);
    if (err != nullptr) *err = errors.str();
    return status;
  }

  void ExpectOutputFrom(std::size_t first, std::size_t end) {
    const Bytes written = tsw::ReadAll(m_Out);
    ASSERT_EQ(written.size(), (end - first) * kPacket) << "first " << first << ", end " << end;
    EXPECT_TRUE(std::equal(written.begin(), written.end(), m_Input.begin() + static_cast<std::ptrdiff_t>(first * kPacket)));
  }

  tsw::ScopedRegistry m_Registry;
  tsw::TempDir m_Dir;
  std::filesystem::path m_Out = m_Dir.File("out.ts");
  Bytes m_Input;
  std::size_t m_Packets = 0;
  std::vector<std::size_t> m_Headers;
  std::int64_t m_DurationMs = 0;
};

// Within the search window the output goes on to the next sequence header;
// beyond it the packet goes out at once. A stop cuts the stream at its packet.
TEST_F(PlaySeekTest, StartAndStopCutTheFileAtTheirPackets) {
  struct Case {
    double start;
    std::optional<double> stop;
    bool searched;
  };
  for (const Case& c : {Case{1.0, {}, true}, Case{10.0, {}, false}, Case{1.0, 2.0, true}}) {
    SCOPED_TRACE(c.start);
    const std::size_t t = PacketFor(c.start);
    ASSERT_EQ(t < m_Headers.front() + 1 + 5000, c.searched) << "the case is on the wrong side of the window";
    const std::size_t first = FirstAfterSeek(t);
    EXPECT_EQ(first > t, c.searched) << "a header lies a little behind the jump";
    PlayOptions options;
    options.start = c.start;
    options.stop = c.stop;
    ASSERT_EQ(Play(options), kExitOk);
    ExpectOutputFrom(first, c.stop ? PacketFor(*c.stop) : m_Packets);
  }
  if (tsw::OnPath("ffprobe")) {
    const auto probe = tsw::Shell("ffprobe -v error -show_entries stream=codec_name -of csv=p=0 '" + m_Out.string() + "'");
    EXPECT_NE(probe.out.find("mpeg2video"), std::string::npos) << probe.out;
  }
}

TEST_F(PlaySeekTest, SeekDuringPlayReplaysAStretchAndRateBelowOneIsNoted) {
  // The tool looks at the position every millisecond while delivery runs
  // unpaced: the sample played ten times over leaves it time to see 5 s
  // go by even on a busy machine.
  constexpr int kLoops = 10;
  const std::filesystem::path looped = m_Dir.File("looped.ts");
  {
    std::ofstream out(looped, std::ios::binary);
    for (int i = 0; i < kLoops; ++i) out.write(reinterpret_cast<const char*>(m_Input.data()), static_cast<std::streamsize>(m_Input.size()));
  }
  PlayOptions options;
  options.seekAt = {{5.0, 1.0}};
  options.rate = 0.5;
  std::string err;
  ASSERT_EQ(Play(options, &err, looped), kExitOk);
  EXPECT_NE(err.find("refuses a rate of 0.5"), std::string::npos) << err;
  EXPECT_EQ(err.find("ended before"), std::string::npos) << "the seek happened: " << err;
  const auto written = std::filesystem::file_size(m_Out) / kPacket;
  EXPECT_GT(written, kLoops * m_Packets - m_Headers.front()) << "a stretch was played twice";
}

// The tool itself, in the fixture's registry folder, with PrefDemux set
// through its settings command: the whole sample from the first sequence
// header the scan met, and the summary alone off a terminal.
TEST_F(PlaySeekTest, TheToolPlaysTheSampleFromItsFirstSequenceHeader) {
  ASSERT_TRUE(WriteSettingDword("PrefDemux", 1));
  const std::string cli = BRINDLET_CLI;
  ASSERT_EQ(tsw::Shell(cli + " settings set PrefDemux 0 >/dev/null 2>&1").status, 0);
  const tsw::CommandResult run = tsw::Shell(cli + " play " + kSample.string() + " --raw " + m_Out.string() + " 2>&1");
  ASSERT_EQ(run.status, kExitOk) << run.out;
  ExpectOutputFrom(m_Headers.front(), m_Packets);
  const std::size_t packets = m_Packets - m_Headers.front();
  const std::string summary =
      std::to_string(packets) + " packets, " + std::to_string(packets * kPacket) + R"( bytes, [^\n]+ packets/s\n)";
  EXPECT_TRUE(std::regex_match(run.out, std::regex(summary))) << run.out;
}

TEST(PlaySeekOptions, SeekAtTakesTwoTimes) {
  std::pair<double, double> seek;
  EXPECT_TRUE(ParseSeekAt("5:1.5", &seek));
  EXPECT_DOUBLE_EQ(seek.first, 5.0);
  EXPECT_DOUBLE_EQ(seek.second, 1.5);
  for (const char* bad : {"5", ":1", "5:", "a:b", "-1:2", "1:2x"}) EXPECT_FALSE(ParseSeekAt(bad, &seek)) << bad;
}

}  // namespace
