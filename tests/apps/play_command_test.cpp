// `brindlet play --raw`: the filter runs into the platform's stream file
// writer, and what lands in the file is checked byte for byte against the
// input, worked out here from the file's own bytes.
#include "apps/brindlet/play_command.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <optional>
#include <regex>
#include <sstream>

#include "apps/brindlet/query_command.h"
#include "control/settings_store.h"
#include "tests/support/scoped_registry.h"
#include "tests/support/ts_reader.h"
#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;

constexpr std::size_t kPacket = 188;
constexpr std::uint16_t kPmtPid = 0x1000;
constexpr std::uint16_t kVideo = 0x100;
constexpr std::uint16_t kAudio = 0x101;

using tsw::PidOf;
using tsw::ReadAll;
using tsw::UnitStart;

struct PlayRun {
  int status = -1;
  std::string out;
  std::string err;
};

// Sizes first, then the first packet that differs, so a failure says where.
::testing::AssertionResult SameBytes(const Bytes& actual, const Bytes& expected) {
  if (actual == expected) return ::testing::AssertionSuccess();
  const auto at = std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end()).first;
  return ::testing::AssertionFailure() << "output has " << actual.size() << " bytes, expected "
                                       << expected.size() << "; first difference in output packet "
                                       << (at - actual.begin()) / static_cast<long>(kPacket);
}

PlayRun Play(const std::filesystem::path& in, const std::filesystem::path& out) {
  PlayOptions options;
  options.file = in.string();
  options.raw = out.string();
  std::ostringstream stdoutText, stderrText;
  const int status = RunPlay(options, stdoutText, stderrText, ProgressMode::Off);
  return {status, stdoutText.str(), stderrText.str()};
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

  // The census makes kVideo, with the most packets, the video PID. The Census
  // and Tables passes each take every packet of this short file once, with no
  // sample: 184 off the countdown per call. The gate stays 0, as no header is
  // analysed in this mode.
  const auto scanned = static_cast<std::uint16_t>(0u - 2u * file.PacketCount() * 184u);
  const std::vector<Bytes> samples = ElementarySamples(file.Data(), kVideo, scanned);
  Bytes expected;
  for (const Bytes& sample : samples) expected.insert(expected.end(), sample.begin(), sample.end());
  ASSERT_TRUE(std::any_of(samples.begin(), samples.end(), [](const Bytes& s) { return s.empty(); }))
      << "the file should have a packet that sends nothing";

  const PlayRun run = Play(dir.File("in.ts"), dir.File("out.m2v"));
  ASSERT_EQ(run.status, kExitOk) << run.err;
  EXPECT_TRUE(SameBytes(ReadAll(dir.File("out.m2v")), expected));
  // The summary alone: "N packets, B bytes, S.SS s, P packets/s".
  const std::string summary = std::to_string(samples.size()) + " packets, " + std::to_string(expected.size()) +
                              R"( bytes, \d+\.\d\d s, \d+ packets/s\n)";
  EXPECT_TRUE(std::regex_match(run.out, std::regex(summary))) << run.out;
}

// ---- Failures ------------------------------------------------------------

// Each failure is one line on stderr and status 1, with nothing written.
TEST(PlayRaw, FailuresAreOneLineAndStatusOne) {
  tsw::TempDir dir;
  const std::filesystem::path in = dir.File("in.ts"), out = dir.File("out.ts");
  tsw::TsFile file;  // tables, then a video PES opening with a sequence header
  file.AddSection(0, tsw::PatSection(1, 0, {{1, kPmtPid}}));
  file.AddSection(kPmtPid, tsw::PmtSection(1, 0, kVideo, {{0x02, kVideo, {}}, {0x03, kAudio, {}}}));
  Bytes pes = Join(tsw::PesHeader(0xE0, 9000), tsw::Mpeg2SequenceHeader(720, 576, 3, 3));
  pes.resize(300, 0x11);
  file.AddPes(kVideo, pes);
  file.Write(in);
  struct Case {
    std::optional<DWORD> prefDemux;  // none: nothing stored, so 1
    std::filesystem::path in, out;
    std::vector<std::string> pieces;  // the first opens the line
  };
  std::vector<Case> cases = {
      {std::nullopt, in, out,
       {"brindlet: ", "PrefDemux 1", "MPEG-2 demultiplexer", "brindlet settings set PrefDemux 0"}},
      {0, dir.File("missing.ts"), out,
       {"brindlet: cannot open " + dir.File("missing.ts").string() + ": no such file\n"}},
      {0, in, dir.File("no/such/dir/out.ts"),
       {"brindlet: cannot start playing into " + dir.File("no/such/dir/out.ts").string() + ": "}},
  };
  if (std::filesystem::exists("/dev/full")) cases.push_back({0, in, "/dev/full", {"brindlet: playback aborted: disk full"}});
  for (const Case& c : cases) {
    tsw::ScopedRegistry registry;
    if (c.prefDemux) {
      ASSERT_TRUE(WriteSettingDword("PrefDemux", *c.prefDemux));
    }
    const PlayRun run = Play(c.in, c.out);
    EXPECT_EQ(run.status, kExitFailure) << c.out;
    EXPECT_EQ(run.out, "") << c.out;
    EXPECT_EQ(run.err.rfind(c.pieces[0], 0), 0u) << run.err;
    for (const std::string& piece : c.pieces) EXPECT_NE(run.err.find(piece), std::string::npos) << piece;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    EXPECT_TRUE(c.out == "/dev/full" || !std::filesystem::exists(c.out)) << "the writer never started";
  }
}

// ---- The status line ------------------------------------------------------

// Both forms, as a player's status bar: the position, the filter's own
// "VIDEOPTS" and "MEDIALEN" asked while it plays, and what was written; off
// a terminal one line per update, at most ten a second, and none without
// asking; on a terminal one line redrawn and cleared at the end.
TEST(PlayStatusLine, CarriesTheFiltersAnswersAtMostTenTimesASecond) {
  const std::filesystem::path sample = std::filesystem::path(BRINDLET_SOURCE_DIR) / "samples/mpeg2-mp2-ac3.ts";
  const std::regex line(R"(position \d+\.\d\d s \| VIDEOPTS \d\d:\d\d:\d\d\.\d{3} \| MEDIALEN 00:00:22\.560 \| )"
                        R"(\d+ (samples|packets), \d+ bytes written)");
  tsw::ScopedRegistry registry;
  ASSERT_TRUE(WriteSettingDword("PrefDemux", 0));
  tsw::TempDir dir;
  for (const bool raw : {false, true}) {
    for (const ProgressMode mode : {ProgressMode::Lines, ProgressMode::Terminal, ProgressMode::Off}) {
      SCOPED_TRACE(std::string(raw ? "raw " : "out ") + std::to_string(static_cast<int>(mode)));
      PlayOptions options;
      options.file = sample.string();
      (raw ? options.raw : options.out) = dir.File(raw ? "out.ts" : "out").string();
      std::ostringstream out, err;
      const auto began = std::chrono::steady_clock::now();
      ASSERT_EQ(RunPlay(options, out, err, mode), kExitOk) << err.str();
      const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
      const std::string text = err.str();
      if (mode == ProgressMode::Off) {
        EXPECT_EQ(text, "");
        continue;
      }
      std::vector<std::string> lines;
      if (mode == ProgressMode::Lines) {
        std::istringstream in(text);
        for (std::string l; std::getline(in, l);) lines.push_back(l);
        EXPECT_EQ(text.back(), '\n');
      } else {
        EXPECT_EQ(text.find('\n'), std::string::npos) << "redrawn in place";
        EXPECT_TRUE(text.ends_with("\r\x1b[K")) << "and taken off at the end";
        for (std::size_t at = text.find('\r'); at != std::string::npos;) {
          const std::size_t next = text.find('\r', at + 1);
          std::string l = text.substr(at + 1, next == std::string::npos ? std::string::npos : next - at - 1);
          if (l.ends_with("\x1b[K")) l.resize(l.size() - 3);
          if (!l.empty()) lines.push_back(l);
          at = next;
        }
      }
      ASSERT_FALSE(lines.empty()) << "the line stands as the graph starts";
      EXPECT_LE(static_cast<double>(lines.size()), seconds * 10 + 1);
      for (const std::string& l : lines) EXPECT_TRUE(std::regex_match(l, line)) << l;
    }
  }
}

}  // namespace
