// `brindlet play --raw`: the filter runs into the platform's stream file
// writer, and what lands in the file is checked byte for byte against the
// input, worked out here from the file's own bytes.
#include "apps/brindlet/play_command.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <regex>
#include <sstream>

#include "apps/brindlet/query_command.h"
#include "control/settings_store.h"
#include "tests/support/process.h"
#include "tests/support/scoped_registry.h"
#include "tests/support/ts_reader.h"
#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;

constexpr std::size_t kPacket = 188;
constexpr std::uint16_t kPmtPid = 0x1000;
constexpr std::uint16_t kVideo = 0x100;
constexpr std::uint16_t kAudio = 0x101;
const std::filesystem::path kSample = std::filesystem::path(BRINDLET_SOURCE_DIR) / "samples/mpeg2-mp2-ac3.ts";

using tsw::PidOf;
using tsw::ReadAll;
using tsw::UnitStart;

struct PlayRun {
  int status = -1;
  std::string out;
  std::string err;
};

PlayOptions Options(const std::string& file, const std::string& raw) {
  PlayOptions options;
  options.file = file;
  options.raw = raw;
  return options;
}

PlayRun Play(const std::filesystem::path& in, const std::filesystem::path& out) {
  std::ostringstream stdoutText, stderrText;
  PlayRun run;
  run.status = RunPlay(Options(in.string(), out.string()), stdoutText, stderrText, false);
  run.out = stdoutText.str();
  run.err = stderrText.str();
  return run;
}

struct Summary {
  long long packets = -1;
  long long bytes = -1;
};

// "N packets, B bytes, S.SS s, P packets/s", the whole of stdout.
std::optional<Summary> ParseSummary(const std::string& text) {
  static const std::regex kLine(R"(^(\d+) packets, (\d+) bytes, \d+\.\d\d s, \d+ packets/s\n$)");
  std::smatch match;
  if (!std::regex_match(text, match, kLine)) return std::nullopt;
  return Summary{std::stoll(match[1]), std::stoll(match[2])};
}

// Sizes first, then the first packet that differs, so a failure says where.
::testing::AssertionResult SameBytes(const Bytes& actual, const Bytes& expected) {
  if (actual == expected) return ::testing::AssertionSuccess();
  const auto at = std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end()).first;
  return ::testing::AssertionFailure() << "output has " << actual.size() << " bytes, expected "
                                       << expected.size() << "; first difference in output packet "
                                       << (at - actual.begin()) / static_cast<long>(kPacket);
}

// ---- Synthetic streams --------------------------------------------------

void AddTables(tsw::TsFile& file) {
  file.AddSection(0, tsw::PatSection(1, 0, {{1, kPmtPid}}));
  file.AddSection(kPmtPid, tsw::PmtSection(1, 0, kVideo, {{0x02, kVideo, {}}, {0x03, kAudio, {}}}));
}

// A video PES of two packets: PES header with PTS, then either a sequence
// header with `aspect` or a bare picture start; gives the first packet's index.
std::size_t AddVideo(tsw::TsFile& file, std::uint64_t pts, std::optional<std::uint8_t> aspect) {
  const std::size_t at = file.PacketCount();
  Bytes pes = tsw::PesHeader(0xE0, pts);
  const Bytes body = aspect ? tsw::Mpeg2SequenceHeader(720, 576, *aspect, 3) : Bytes{0x00, 0x00, 0x01, 0x00};
  pes.insert(pes.end(), body.begin(), body.end());
  pes.resize(300, static_cast<std::uint8_t>(at));
  file.AddPes(kVideo, pes);
  return at;
}

void AddAudio(tsw::TsFile& file, std::uint64_t pts) {
  Bytes pes = tsw::PesHeader(0xC0, pts, 200);
  pes.resize(206, 0x5A);
  file.AddPes(kAudio, pes);
}

struct GateCase {
  const char* name;
  // Builds the file and gives the packet that should be written first.
  std::function<std::size_t(tsw::TsFile&)> build;
};

const GateCase kGateCases[] = {
    {"HeaderBehindThePmt",
     [](tsw::TsFile& file) {
       AddTables(file);
       AddAudio(file, 9000);
       AddVideo(file, 9000, std::nullopt);  // analysed, but no header
       AddAudio(file, 12600);
       const std::size_t first = AddVideo(file, 12600, 3);
       for (int i = 0; i < 6; ++i) {
         AddAudio(file, 16200 + 3600u * i);
         AddVideo(file, 16200 + 3600u * i, std::nullopt);
       }
       AddTables(file);
       AddVideo(file, 40000, 2);  // aspect known already: not looked at
       AddAudio(file, 40000);
       return first;
     }},
    {"UnknownAspectKeepsTheSearchGoing",
     [](tsw::TsFile& file) {
       AddTables(file);
       AddVideo(file, 9000, 1);
       AddAudio(file, 9000);
       AddVideo(file, 12600, 1);
       const std::size_t first = AddVideo(file, 16200, 4);
       AddVideo(file, 19800, 3);
       AddAudio(file, 19800);
       return first;
     }},
    {"OnlyUnknownAspectsEndAtTheLastHeader",
     [](tsw::TsFile& file) {
       AddTables(file);
       AddVideo(file, 9000, 1);
       AddAudio(file, 9000);
       const std::size_t first = AddVideo(file, 12600, 1);
       AddAudio(file, 12600);
       AddVideo(file, 16200, std::nullopt);
       return first;
     }},
    {"HeaderAheadOfThePmtIsNotSeen",
     [](tsw::TsFile& file) {
       AddVideo(file, 9000, 3);  // no video PID known yet
       AddTables(file);
       AddAudio(file, 9000);
       AddVideo(file, 12600, std::nullopt);
       const std::size_t first = AddVideo(file, 16200, 3);
       AddAudio(file, 16200);
       return first;
     }},
    {"NoHeaderWritesEverything",
     [](tsw::TsFile& file) {
       AddTables(file);
       for (int i = 0; i < 4; ++i) {
         AddVideo(file, 9000 + 3600u * i, std::nullopt);
         AddAudio(file, 9000 + 3600u * i);
       }
       return std::size_t{0};
     }},
};

class PlayGate : public ::testing::TestWithParam<GateCase> {};

TEST_P(PlayGate, WritesTheInputFromThePacketTheGateLetsThroughFirst) {
  tsw::ScopedRegistry registry;
  ASSERT_TRUE(WriteSettingDword("PrefDemux", 0));
  tsw::TsFile file;
  const std::size_t first = GetParam().build(file);
  ASSERT_LT(first, file.PacketCount());
  tsw::TempDir dir;
  file.Write(dir.File("in.ts"));

  const PlayRun run = Play(dir.File("in.ts"), dir.File("out.ts"));
  ASSERT_EQ(run.status, kExitOk) << run.err;
  EXPECT_EQ(run.err, "");
  const Bytes expected(file.Data().begin() + static_cast<std::ptrdiff_t>(first * kPacket), file.Data().end());
  EXPECT_TRUE(SameBytes(ReadAll(dir.File("out.ts")), expected)) << "first packet should be " << first;
  const auto summary = ParseSummary(run.out);
  ASSERT_TRUE(summary) << run.out;
  EXPECT_EQ(summary->packets, static_cast<long long>(file.PacketCount() - first));
  EXPECT_EQ(summary->bytes, static_cast<long long>(expected.size()));
}

std::string GateCaseName(const ::testing::TestParamInfo<GateCase>& tested) { return tested.param.name; }

INSTANTIATE_TEST_SUITE_P(Synthetic, PlayGate, ::testing::ValuesIn(kGateCases), GateCaseName);

// The sample's first video PES whose payload opens with a sequence header,
// found with the standard's own field rules; none if not in the first 10000
// packets, where the scan would count it on a later trip.
std::optional<std::size_t> FirstSequenceHeaderPacket(const Bytes& data, std::uint16_t videoPid) {
  const auto found = tsw::SequenceHeaderPackets(data, videoPid, 10000);
  if (found.empty()) return std::nullopt;
  return found.front();
}

TEST(PlayRaw, BundledSampleFromItsFirstSequenceHeaderToTheEnd) {
  tsw::ScopedRegistry registry;
  ASSERT_TRUE(WriteSettingDword("PrefDemux", 0));
  const Bytes input = ReadAll(kSample);
  ASSERT_FALSE(input.empty());
  const auto first = FirstSequenceHeaderPacket(input, kVideo);
  ASSERT_TRUE(first) << "the sample should open a video PES with a sequence header early on";
  // The header only counts once the scan knows the video PID from the PMT.
  std::size_t pmt = 0;
  while (pmt < *first && PidOf(input.data() + pmt * kPacket) != kPmtPid) ++pmt;
  ASSERT_LT(pmt, *first);

  tsw::TempDir dir;
  const PlayRun run = Play(kSample, dir.File("out.ts"));
  ASSERT_EQ(run.status, kExitOk) << run.err;
  const Bytes expected(input.begin() + static_cast<std::ptrdiff_t>(*first * kPacket),
                       input.begin() + static_cast<std::ptrdiff_t>(input.size() / kPacket * kPacket));
  EXPECT_TRUE(SameBytes(ReadAll(dir.File("out.ts")), expected)) << "first packet should be " << *first;
  const auto summary = ParseSummary(run.out);
  ASSERT_TRUE(summary) << run.out;
  EXPECT_EQ(summary->packets, static_cast<long long>(expected.size() / kPacket));

  if (tsw::OnPath("ffprobe")) {
    const tsw::CommandResult probe = tsw::Shell(
        "ffprobe -v error -show_entries stream=codec_name -of csv=p=0 " + dir.File("out.ts").string());
    EXPECT_EQ(probe.status, 0);
    for (const char* codec : {"mpeg2video", "mp2", "ac3"}) {
      EXPECT_NE(probe.out.find(codec), std::string::npos) << codec << " in\n" << probe.out;
    }
  }
}

// ---- Elementary output (PrefDemux 3) -------------------------------------

// What the pin sends in the elementary mode, from the rule: only the video
// PID, skip = 4, or for a unit start 0 and, at a PES start, the PES payload's
// offset with the countdown set to PES_packet_length; the countdown moves by
// skip - 188 (16 bits), and min(countdown, 188 - skip) bytes go out.
// `countdown` is where the scan calls left it.
std::vector<Bytes> ElementarySamples(const Bytes& data, std::uint16_t videoPid, std::uint16_t countdown) {
  std::vector<Bytes> samples;
  for (std::size_t i = 0; i + kPacket <= data.size(); i += kPacket) {
    const std::uint8_t* p = data.data() + i;
    if (PidOf(p) != videoPid) continue;
    std::size_t skip = 4;
    if (UnitStart(p)) {
      skip = 0;
      const std::size_t pes = p[4] == 0 ? 4 : p[4] + 5u;  // byte 4 alone decides
      if (pes + 9 <= kPacket && p[pes] == 0 && p[pes + 1] == 0 && p[pes + 2] == 1) {
        countdown = static_cast<std::uint16_t>(p[pes + 4] << 8 | p[pes + 5]);
        skip = (p[pes + 6] & 0xC0) == 0x80 ? pes + 9 + p[pes + 8] : pes + 6;
      }
    }
    countdown = static_cast<std::uint16_t>(countdown + skip - kPacket);
    const std::size_t n = skip < kPacket ? std::min<std::size_t>(countdown, kPacket - skip) : 0;
    samples.emplace_back(p + skip, p + skip + n);
  }
  return samples;
}

Bytes Pattern(std::size_t size, std::uint8_t seed) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(seed + i);
  return bytes;
}

Bytes Join(Bytes head, const Bytes& tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

// Video packets of every shape the rule tells apart, among audio, tables
// and a second video PID that only the PMT names.
tsw::TsFile ElementaryFile() {
  tsw::TsFile file;
  const auto video = [&](bool start, const Bytes& payload, int adaptation = -1) {
    file.Add(tsw::MakePacket(kVideo, start, payload, adaptation));
  };
  const auto audio = [&] { file.Add(tsw::MakePacket(kAudio, false, Pattern(184, 0xA0))); };
  // If the tables were read in this mode, the PMT's video would be played.
  file.AddSection(0, tsw::PatSection(1, 0, {{1, kPmtPid}}));
  file.AddSection(kPmtPid, tsw::PmtSection(1, 0, 0x200, {{0x02, 0x200, {}}, {0x03, kAudio, {}}}));
  file.Add(tsw::MakePacket(0x200, true, Join(tsw::PesHeader(0xE0, 9000), Pattern(100, 0x20))));

  video(false, Pattern(184, 0x01));                                   // countdown left by the scan
  video(true, Join(tsw::PesHeader(0xE0, 9000, 500), Pattern(170, 0x10)));  // 170 of 330
  audio();
  video(false, Pattern(184, 0x30));                                   // 146 left
  video(false, Pattern(184, 0x40));                                   // countdown wraps: all 184
  video(true, Join(tsw::PesHeader(0xE0, 12600, 0), Pattern(159, 0x50)), 10);  // PES behind a field
  video(false, Pattern(164, 0x60), 19);                               // field bytes go out too
  audio();
  video(true, Join(Bytes{0x00, 0xAA, 0xBB}, Pattern(181, 0x70)));     // unit start, no PES
  video(true, tsw::PesHeader(0xE0, 0, 1000, 5), 170);                 // payload behind the packet
  video(false, Pattern(184, 0x80));
  video(true, Join(tsw::PesHeader(0xE0, 0, 200), Pattern(175, 0x90)));  // no PTS, 25 bytes
  video(true, Join(tsw::PesHeader(0xE0, 16200, 100), Pattern(170, 0xB0)));  // short PES wraps
  file.Add(tsw::MakePacket(0x200, false, Pattern(184, 0x21)));
  audio();
  return file;
}

TEST(PlayElementary, WritesTheVideoPayloadByTheCountdownRule) {
  tsw::ScopedRegistry registry;
  ASSERT_TRUE(WriteSettingDword("PrefDemux", 3));
  const tsw::TsFile file = ElementaryFile();
  tsw::TempDir dir;
  file.Write(dir.File("in.ts"));

  // The census decides the video PID: the one with the most packets.
  std::map<std::uint16_t, int> counts;
  for (std::size_t i = 0; i < file.PacketCount(); ++i) ++counts[PidOf(file.Data().data() + i * kPacket)];
  const auto video = std::max_element(counts.begin(), counts.end(),
                                      [](const auto& a, const auto& b) { return a.second < b.second; });
  ASSERT_EQ(video->first, kVideo);
  // The Census and Tables passes each take every packet of this short file
  // once, with no sample: 184 off the countdown per call. The gate stays 0,
  // as no header is analysed in this mode.
  const auto scanned = static_cast<std::uint16_t>(0u - 2u * file.PacketCount() * 184u);
  const std::vector<Bytes> samples = ElementarySamples(file.Data(), kVideo, scanned);
  Bytes expected;
  for (const Bytes& sample : samples) expected.insert(expected.end(), sample.begin(), sample.end());
  ASSERT_TRUE(std::any_of(samples.begin(), samples.end(), [](const Bytes& s) { return s.empty(); }))
      << "the file should have a packet that sends nothing";

  const PlayRun run = Play(dir.File("in.ts"), dir.File("out.m2v"));
  ASSERT_EQ(run.status, kExitOk) << run.err;
  EXPECT_TRUE(SameBytes(ReadAll(dir.File("out.m2v")), expected));
  const auto summary = ParseSummary(run.out);
  ASSERT_TRUE(summary) << run.out;
  EXPECT_EQ(summary->packets, static_cast<long long>(samples.size()));
  EXPECT_EQ(summary->bytes, static_cast<long long>(expected.size()));
}

// ---- Failures and usage ---------------------------------------------------

tsw::TsFile SmallFile() {
  tsw::TsFile file;
  AddTables(file);
  AddVideo(file, 9000, 3);
  AddAudio(file, 9000);
  return file;
}

TEST(PlayRaw, DefaultSettingRefusesAPlainWriterWithAHint) {
  tsw::ScopedRegistry registry;  // nothing stored: PrefDemux 1
  tsw::TempDir dir;
  SmallFile().Write(dir.File("in.ts"));
  const PlayRun run = Play(dir.File("in.ts"), dir.File("out.ts"));
  EXPECT_EQ(run.status, kExitFailure);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
  EXPECT_EQ(run.err.rfind("brindlet: ", 0), 0u) << run.err;
  for (const char* words : {"PrefDemux 1", "MPEG-2 demultiplexer", "brindlet settings set PrefDemux 0"}) {
    EXPECT_NE(run.err.find(words), std::string::npos) << words << " in " << run.err;
  }
  EXPECT_FALSE(std::filesystem::exists(dir.File("out.ts"))) << "the writer never started";
}

TEST(PlayRaw, FailuresAreOneLineAndStatusOne) {
  tsw::ScopedRegistry registry;
  ASSERT_TRUE(WriteSettingDword("PrefDemux", 0));
  tsw::TempDir dir;
  SmallFile().Write(dir.File("in.ts"));
  struct Case {
    std::filesystem::path in, out;
    std::string line;
  };
  std::vector<Case> cases = {
      {dir.File("missing.ts"), dir.File("out.ts"),
       "brindlet: cannot open " + dir.File("missing.ts").string() + ": no such file\n"},
      {dir.File("in.ts"), dir.File("no/such/dir/out.ts"),
       "brindlet: cannot start playing into " + dir.File("no/such/dir/out.ts").string() + ": "},
  };
  if (std::filesystem::exists("/dev/full")) {
    cases.push_back({dir.File("in.ts"), "/dev/full", "brindlet: playback aborted: disk full"});
  }
  for (const Case& c : cases) {
    const PlayRun run = Play(c.in, c.out);
    EXPECT_EQ(run.status, kExitFailure) << c.out;
    EXPECT_EQ(run.out, "") << c.out;
    EXPECT_EQ(run.err.rfind(c.line, 0), 0u) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
  }
}

// The tool itself, with its own registry folder and the bundled sample.
TEST(BrindletTool, PlaysTheBundledSampleIntoARawFile) {
  tsw::TempDir registry;
  tsw::TempDir dir;
  const std::string env = "BRINDLET_REGISTRY_DIR=" + registry.Path().string() + " ";
  ASSERT_EQ(tsw::Shell(env + BRINDLET_CLI + " settings set PrefDemux 0 >/dev/null 2>&1").status, 0);
  const auto out = dir.File("out.ts");
  const tsw::CommandResult run =
      tsw::Shell(env + BRINDLET_CLI + " play " + kSample.string() + " --raw " + out.string() + " 2>&1");
  EXPECT_EQ(run.status, kExitOk) << run.out;
  EXPECT_TRUE(ParseSummary(run.out)) << "the summary alone, and no progress off a terminal: " << run.out;
  ASSERT_TRUE(std::filesystem::exists(out));
  const auto size = std::filesystem::file_size(out);
  EXPECT_GT(size, 0u);
  EXPECT_EQ(size % kPacket, 0u);
}

}  // namespace
