// `brindlet convert`: the recording beside the source, read back with
// ffprobe and ffmpeg, and what a user sees when the folder cannot be written,
// the disk fills or the recording's name is taken.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "apps/brindlet/convert_command.h"
#include "apps/brindlet/play_command.h"
#include "apps/brindlet/query_command.h"  // exit codes
#include "tests/support/process.h"
#include "tests/support/scoped_registry.h"
#include "tests/support/ts_reader.h"
#include "tests/support/ts_writer.h"

namespace {

namespace fs = std::filesystem;

const fs::path kSample = fs::path(BRINDLET_SOURCE_DIR) / "samples" / "mpeg2-mp2-ac3.ts";

struct ConvertRun {
  int status = -1;
  std::string out;
  std::string err;
};

ConvertRun Convert(const fs::path& in, std::optional<bool> answer = std::nullopt) {
  ConvertOptions options;
  options.file = in.string();
  options.answer = answer;
  std::ostringstream out, err;
  const int status = RunConvert(options, out, err, ProgressMode::Off);
  return {status, out.str(), err.str()};
}

// The tool itself, for runs under another user or a file size limit.
tsw::CommandResult Cli(const std::string& prefix, const std::string& arguments) {
  return tsw::Shell(prefix + std::string(BRINDLET_CLI) + " " + arguments + " 2>&1");
}

// codec name -> duration in seconds of each stream ffprobe finds, by kind
// ("video" or "audio") and codec.
std::map<std::string, double> StreamDurations(const fs::path& file) {
  const tsw::CommandResult probe = tsw::Shell(
      "ffprobe -v error -show_entries stream=codec_type,codec_name,duration -of csv=p=0 '" + file.string() + "'");
  std::map<std::string, double> durations;
  std::istringstream lines(probe.out);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string codec, type, duration;
    std::getline(fields, codec, ',');
    std::getline(fields, type, ',');
    std::getline(fields, duration, ',');
    if (duration.empty() || duration == "N/A") continue;
    durations[type + ":" + codec] = std::stod(duration);
  }
  return durations;
}

tsw::Bytes CopyOut(const fs::path& in, const std::string& format, const fs::path& to) {
  const tsw::CommandResult run = tsw::Shell("ffmpeg -v error -y -i '" + in.string() + "' -map 0:v:0 -c copy -f " +
                                            format + " '" + to.string() + "' 2>&1");
  EXPECT_EQ(run.status, 0) << run.out;
  return tsw::ReadAll(to);
}

class ConvertTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!tsw::OnPath("ffmpeg") || !tsw::OnPath("ffprobe")) GTEST_SKIP() << "needs ffmpeg and ffprobe";
  }
  tsw::ScopedRegistry m_Registry;
  tsw::TempDir m_Dir;
};

TEST_F(ConvertTest, RecordsVideoAndTheChosenAudioBesideTheSource) {
  const bool x264 = tsw::Shell("ffmpeg -hide_banner -encoders 2>/dev/null | grep -q libx264").status == 0;
  const fs::path h264 = m_Dir.File("made.ts");
  if (x264) {
    // As the H.264 + AC-3 file of scripts/make-samples, shorter.
    ASSERT_EQ(tsw::Shell("ffmpeg -v error -y -f lavfi -i testsrc2=size=640x360:rate=25 -f lavfi -i sine -t 4 "
                         "-c:v libx264 -threads 1 -preset fast -profile:v high -pix_fmt yuv420p -x264-params aud=1 "
                         "-c:a ac3 -b:a 192k -f mpegts '" +
                         h264.string() + "'")
                  .status,
              0);
  }
  const struct {
    const char* name;
    fs::path source;
    const char* video;   // ffprobe's codec name, and ffmpeg's raw format of it
    const char* format;
    const char* written;  // what play --out names the video file
  } cases[] = {
      {"MPEG-2 with MPEG audio and AC-3", kSample, "mpeg2video", "mpeg2video", "video.m2v"},
      {"H.264 with AC-3", h264, "h264", "h264", "h264.h264"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.source == h264 && !x264) continue;
    const fs::path dir = m_Dir.File(c.video);
    fs::create_directories(dir);
    const fs::path show = dir / "show.ts";
    fs::copy_file(c.source, show);

    const ConvertRun run = Convert(show);
    ASSERT_EQ(run.status, kExitOk) << run.err;
    const fs::path recording = dir / "show";
    EXPECT_EQ(run.out.rfind("Recording: " + recording.string() + "\n", 0), 0u) << run.out;
    EXPECT_NE(run.err.find("Brindlet: Conversion done.\n"), std::string::npos) << run.err;
    ASSERT_TRUE(fs::exists(recording));

    // The video and the chosen audio (AC-3, as the settings have it), each
    // as long as in the source.
    const auto recorded = StreamDurations(recording);
    const auto original = StreamDurations(show);
    ASSERT_EQ(recorded.size(), 2u) << run.out;
    for (const std::string& stream : {std::string("video:") + c.video, std::string("audio:ac3")}) {
      ASSERT_TRUE(recorded.count(stream)) << stream;
      ASSERT_TRUE(original.count(stream)) << stream;
      EXPECT_NEAR(recorded.at(stream), original.at(stream), 0.1) << stream;
    }

    // The video copied out of the recording is what play --out writes.
    PlayOptions play;
    play.file = show.string();
    play.out = (dir / "out").string();
    std::ostringstream playOut, playErr;
    ASSERT_EQ(RunPlay(play, playOut, playErr, ProgressMode::Off), kExitOk) << playErr.str();
    const tsw::Bytes copied = CopyOut(recording, c.format, dir / "copied");
    const tsw::Bytes written = tsw::ReadAll(dir / "out" / c.written);
    ASSERT_FALSE(written.empty());
    EXPECT_TRUE(copied == written) << copied.size() << " against " << written.size() << " bytes";
  }
}

TEST_F(ConvertTest, ATakenNameIsKeptUnlessTheUserSaysYes) {
  const fs::path show = m_Dir.File("show.ts");
  fs::copy_file(kSample, show);
  std::ofstream(m_Dir.File("show")) << "mine";

  const ConvertRun kept = Convert(show, false);
  EXPECT_EQ(kept.status, kExitFailure);
  EXPECT_NE(kept.err.find(m_Dir.File("show").string() + " is left as it is; --yes replaces it"), std::string::npos)
      << kept.err;
  EXPECT_EQ(tsw::ReadAll(m_Dir.File("show")).size(), 4u);

  const ConvertRun replaced = Convert(show, true);
  EXPECT_EQ(replaced.status, kExitOk) << replaced.err;
  EXPECT_GT(fs::file_size(m_Dir.File("show")), 1000000u);
}

TEST_F(ConvertTest, AFolderThatCannotBeWrittenMakesNoRecording) {
  const fs::path dir = m_Dir.File("locked");
  fs::create_directories(dir);
  const fs::path show = dir / "show.ts";
  fs::copy_file(kSample, show);
  const tsw::Bytes before = tsw::ReadAll(show);
  fs::permissions(m_Dir.Path(), fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec);
  fs::permissions(dir, fs::perms::owner_read | fs::perms::owner_exec | fs::perms::group_read |
                           fs::perms::group_exec | fs::perms::others_read | fs::perms::others_exec);
  fs::permissions(show, fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
  // Root writes through a read-only folder, so the tool runs as nobody then.
  const std::string asUser = geteuid() == 0 ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : "";

  const tsw::CommandResult run = Cli(asUser, "convert " + show.string());
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.out.find("brindlet: no recording was made at " + (dir / "show").string() + ": the folder " +
                         dir.string() + " cannot be written"),
            std::string::npos)
      << run.out;
  EXPECT_FALSE(fs::exists(dir / "show"));
  EXPECT_TRUE(tsw::ReadAll(show) == before);
  fs::permissions(dir, fs::perms::owner_all);
}

TEST_F(ConvertTest, ADiskThatFillsEndsTheRunAndLeavesAReadablePartialRecording) {
  const fs::path show = m_Dir.File("show.ts");
  fs::copy_file(kSample, show);
  // A file size limit of 2 MB (4000 blocks of 512 bytes) stands for the disk.
  const tsw::CommandResult run = Cli("ulimit -f 4000; ", "convert " + show.string());
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.out.find("brindlet: the recording failed"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("disk full"), std::string::npos) << run.out;
  const fs::path recording = m_Dir.File("show");
  ASSERT_TRUE(fs::exists(recording));
  EXPECT_LE(fs::file_size(recording), 4096000u);  // 1024-byte blocks in some shells
  EXPECT_GT(fs::file_size(recording), 100000u);
  const tsw::CommandResult probe =
      tsw::Shell("ffprobe -v error -show_entries stream=codec_name -of csv=p=0 '" + recording.string() + "'");
  EXPECT_EQ(probe.status, 0);
  EXPECT_NE(probe.out.find("mpeg2video"), std::string::npos) << probe.out;
}

}  // namespace
