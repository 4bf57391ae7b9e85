// The tool on odd and damaged input, as a new user meets it: the exit
// status, the whole of stderr, and what is left on disk, for both forms of
// `play`. Runs the built tool, so that a FIFO, a device and a full disk are
// met by the real process.
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "apps/brindlet/query_command.h"  // exit codes
#include "control/settings_store.h"
#include "tests/support/process.h"
#include "tests/support/scoped_registry.h"
#include "tests/support/ts_reader.h"
#include "tests/support/ts_writer.h"

namespace {

namespace fs = std::filesystem;

const fs::path kSample = fs::path(BRINDLET_SOURCE_DIR) / "samples/mpeg2-mp2-ac3.ts";
constexpr std::uint64_t kNoLimit = ~std::uint64_t{0};

void WriteBytes(const fs::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string SampleHead(std::size_t bytes) {
  const tsw::Bytes sample = tsw::ReadAll(kSample);
  return std::string(sample.begin(), sample.begin() + static_cast<std::ptrdiff_t>(std::min(bytes, sample.size())));
}

// Inputs made on the fly, in `dir`; the name the case runs on.
fs::path MakeInput(const std::string& kind, const fs::path& dir) {
  const fs::path path = dir / (kind + ".ts");
  if (kind == "empty") WriteBytes(path, "");
  if (kind == "one-byte") WriteBytes(path, "G");
  if (kind == "187-bytes") WriteBytes(path, SampleHead(187));
  if (kind == "text") WriteBytes(path, std::string(20000, 'x'));
  if (kind == "truncated") WriteBytes(path, SampleHead(1000077));  // cut inside a packet
  if (kind == "random") {
    std::mt19937 bits(18);  // the engine's sequence is fixed by the standard
    std::string bytes(100000, '\0');
    for (char& c : bytes) c = static_cast<char>(bits() & 0xFF);
    WriteBytes(path, bytes);
  }
  if (kind == "fifo") {
    EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
  }
  if (kind == "sample") return kSample;
  if (kind == "dev-zero") return "/dev/zero";
  return path;
}

// "name" for a folder, "name 123" for a file with its size, below `dir`.
std::vector<std::string> Left(const fs::path& dir) {
  std::vector<std::string> left;
  for (const auto& entry : fs::recursive_directory_iterator(dir)) {
    const std::string name = entry.path().lexically_relative(dir).string();
    left.push_back(entry.is_directory() ? name : name + " " + std::to_string(entry.file_size()));
  }
  std::sort(left.begin(), left.end());
  return left;
}

struct EdgeCase {
  const char* name;
  const char* input;
  bool raw;  // --raw out.ts, else --out out
  std::uint64_t fileLimit;
  int status;
  std::string err;                // the whole of stderr, as a regular expression
  std::vector<std::string> left;  // what is left in the working folder; "*" for any size
};

// Named in test lists by its case, not by its bytes.
void PrintTo(const EdgeCase& c, std::ostream* os) { *os << c.name; }

class PlayEdgesTest : public ::testing::TestWithParam<EdgeCase> {};

TEST_P(PlayEdgesTest, StatusLineAndWhatIsLeft) {
  const EdgeCase& c = GetParam();
  tsw::ScopedRegistry registry;  // the tool inherits it
  ASSERT_TRUE(WriteSettingDword("PrefDemux", 0));
  tsw::TempDir inputs, work;
  const fs::path in = MakeInput(c.input, inputs.Path());
  const std::string command = "cd '" + work.Path().string() + "' && timeout 60 " + BRINDLET_CLI + " play '" +
                              in.string() + "' " + (c.raw ? "--raw out.ts" : "--out out") + " 2>'" +
                              inputs.File("stderr").string() + "' >/dev/null";
  const tsw::CommandResult run = tsw::ShellWithFileLimit(command, c.fileLimit);
  std::ifstream errFile(inputs.File("stderr"));
  const std::string err((std::istreambuf_iterator<char>(errFile)), std::istreambuf_iterator<char>());

  EXPECT_EQ(run.status, c.status) << err;
  EXPECT_TRUE(std::regex_match(err, std::regex(c.err))) << err;
  std::vector<std::string> left = Left(work.Path());
  ASSERT_EQ(left.size(), c.left.size()) << ::testing::PrintToString(left);
  for (std::size_t i = 0; i < left.size(); ++i) {
    const std::string& want = c.left[i];
    if (want.ends_with(" *")) {
      EXPECT_EQ(left[i].rfind(want.substr(0, want.size() - 1), 0), 0u) << left[i];
      EXPECT_FALSE(left[i].ends_with(" 0")) << "never an empty file: " << left[i];
    } else {
      EXPECT_EQ(left[i], want);
    }
  }
}

const std::string kNotTs = R"( \(the filter said: Input stream does not appear to be a transport stream\))";
const std::string kNothingRaw = R"(brindlet: nothing was delivered: the filter's pin sent no packets)";
const std::string kNothingOut =
    R"(brindlet: nothing was delivered: the filter wired the demultiplexer, but no payload reached Video \([^)]+\); )"
    R"(Audio \(PID 0x0000 \(the PAT\)\))";
const std::string kRemovedRaw = R"(; removed out\.ts\n)";
const std::string kRemovedOut = R"(; removed out/video\.m2v, out/audio\.mp2 and out\n)";
// Files on their own writer threads, so how far each got differs by run.
const std::string kFullEarly = R"(brindlet: playback aborted: disk full \(0x80070070\); removed out/video\.m2v, )"
                               R"(out/ac3\.ac3 and out \(\d+ bytes, [1-4]?\d% of the input\)\n)";
const std::string kFullLate = R"(brindlet: playback aborted: disk full \(0x80070070\); kept the partial )"
                              R"(out/video\.m2v and out/ac3\.ac3 \(\d+ bytes, [5-9]\d% of the input\)\n)";

// One rule for both forms: a run that delivered nothing fails with one line
// and leaves nothing; a full disk keeps a late partial result and says so.
INSTANTIATE_TEST_SUITE_P(
    Inputs, PlayEdgesTest,
    ::testing::Values(
        EdgeCase{"EmptyRaw", "empty", true, kNoLimit, kExitFailure, (kNothingRaw + kNotTs + kRemovedRaw), {}},
        EdgeCase{"EmptyOut", "empty", false, kNoLimit, kExitFailure, (kNothingOut + kNotTs + kRemovedOut), {}},
        EdgeCase{"OneByteRaw", "one-byte", true, kNoLimit, kExitFailure, (kNothingRaw + kRemovedRaw), {}},
        EdgeCase{"OneByteOut", "one-byte", false, kNoLimit, kExitFailure, (kNothingOut + kRemovedOut), {}},
        EdgeCase{"ShortOfAPacketRaw", "187-bytes", true, kNoLimit, kExitFailure, (kNothingRaw + kRemovedRaw), {}},
        EdgeCase{"ShortOfAPacketOut", "187-bytes", false, kNoLimit, kExitFailure, (kNothingOut + kRemovedOut), {}},
        EdgeCase{"FifoRaw", "fifo", true, kNoLimit, kExitFailure,
                 R"(brindlet: cannot open \S+/fifo\.ts: a FIFO, not a file\n)", {}},
        EdgeCase{"DevZeroOut", "dev-zero", false, kNoLimit, kExitFailure,
                 R"(brindlet: cannot open /dev/zero: a character device, not a file\n)", {}},
        // The pin passes the bytes on as packets, and the filter has said
        // what it thinks of them; the demultiplexer finds no payload.
        EdgeCase{"TextRaw", "text", true, kNoLimit, kExitOk,
                 "Brindlet: Input stream does not appear to be a transport stream\n", {"out.ts *"}},
        EdgeCase{"TextOut", "text", false, kNoLimit, kExitFailure, R"(brindlet: nothing was delivered: .*; removed .*\n)",
                 {}},
        EdgeCase{"RandomOut", "random", false, kNoLimit, kExitFailure,
                 R"(brindlet: nothing was delivered: .*; removed .*\n)", {}},
        EdgeCase{"TruncatedCaptureOut", "truncated", false, kNoLimit, kExitOk, "", {"out", "out/ac3.ac3 *", "out/video.m2v *"}},
        EdgeCase{"DiskFullEarlyOut", "sample", false, 1 << 20, kExitFailure, kFullEarly, {}},
        EdgeCase{"DiskFullLateOut", "sample", false, 6000 * 1024, kExitFailure, kFullLate,
                 {"out", "out/ac3.ac3 *", "out/video.m2v *"}},
        EdgeCase{"DiskFullLateRaw", "sample", true, 6000 * 1024, kExitFailure,
                 R"(brindlet: playback aborted: disk full \(0x80070070\); kept the partial out\.ts \(6144000 bytes, 68% of the input\)\n)",
                 {"out.ts 6144000"}}),
    [](const auto& param) { return std::string(param.param.name); });

// A 900 GiB file, sparse: the sample at its start and at its end, zeros
// between. The filter counts its 5140253412 packets in 32 bits.
TEST(PlayEdges, BeyondTheFiltersPacketCount) {
  tsw::TempDir dir;
  const fs::path big = dir.File("big.ts");
  const tsw::Bytes sample = tsw::ReadAll(kSample);
  constexpr std::uint64_t kSize = std::uint64_t{900} << 30;
  constexpr std::uint64_t kPackets = kSize / 188;
  {
    std::ofstream file(big, std::ios::binary);
    file.write(reinterpret_cast<const char*>(sample.data()), static_cast<std::streamsize>(sample.size()));
    file.seekp(static_cast<std::streamoff>(kPackets * 188 - sample.size()));
    file.write(reinterpret_cast<const char*>(sample.data()), static_cast<std::streamsize>(sample.size()));
  }
  std::error_code error;
  fs::resize_file(big, kSize, error);
  if (error) GTEST_SKIP() << "no sparse file of 900 GiB here: " << error.message();
  const std::string tool = std::string(BRINDLET_CLI) + " ";

  const tsw::CommandResult json = tsw::Shell(tool + "info --json '" + big.string() + "' 2>/dev/null");
  ASSERT_EQ(json.status, 0);
  for (const std::string& line : {std::string("\"file_bytes\": ") + std::to_string(kSize) + ",",
                                  "\"file_packets\": " + std::to_string(kPackets) + ",",
                                  "\"filter_packets\": " + std::to_string(kPackets % (std::uint64_t{1} << 32)) + ",",
                                  std::string("\"filter_packets_wrapped\": true,")}) {
    EXPECT_NE(json.out.find(line), std::string::npos) << line << "\n" << json.out;
  }
  const tsw::CommandResult text = tsw::Shell(tool + "info '" + big.string() + "' 2>/dev/null");
  EXPECT_NE(text.out.find("Size              5140253412 packets of 188 bytes; the filter's 32-bit count reads "
                          "845286116\n"),
            std::string::npos)
      << text.out;

  // Near the end the filter lands 2^32 packets early; a stop next to the
  // start keeps the zeros it then plays short.
  tsw::ScopedRegistry registry;
  ASSERT_TRUE(WriteSettingDword("PrefDemux", 0));
  const tsw::CommandResult play =
      tsw::Shell(tool + "play '" + big.string() + "' --raw '" + dir.File("out.ts").string() + "' --start 402000 --stop 402001 2>&1");
  EXPECT_EQ(play.status, 0) << play.out;
  EXPECT_NE(play.out.find("brindlet: note: --start 402000 lands at packet 840342422 (16% of the file), not 5135309718: "
                          "the filter counts packets in 32 bits\n"),
            std::string::npos)
      << play.out;
}

}  // namespace
