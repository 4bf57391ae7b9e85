// Video formats found in files that ffmpeg makes, checked against what the
// analysis rules predict and against ffprobe's coded size.
#include <gtest/gtest.h>

#include <sstream>

#include "delivery/media_types.h"
#include "platform/win32/messages.h"
#include "tests/delivery/filter_probe.h"
#include "tests/support/process.h"
#include "tests/support/ts_writer.h"

namespace {

struct VideoCase {
  const char* name;
  const char* encode;  // ffmpeg arguments between the inputs and the output
  const char* size;
  const char* rate;
  const char* aspect;
  int log;  // H.264 parameter lines, 0 for MPEG-2
};

// "W x H" from ffprobe's picture size, the height rounded up to whole
// macroblocks when `macroblocks` is set: the coded size of an H.264 stream.
std::string ProbedSize(const std::filesystem::path& file, bool macroblocks) {
  const auto probe = tsw::Shell("ffprobe -v error -select_streams v:0 -show_entries stream=width,height -of csv=p=0 '" +
                                file.string() + "'");
  std::istringstream in(probe.out);
  int width = 0, height = 0;
  char comma = 0;
  in >> width >> comma >> height;
  if (macroblocks) height = (height + 15) / 16 * 16;
  return std::to_string(width) + " x " + std::to_string(height);
}

class VideoFilesTest : public ::testing::TestWithParam<VideoCase> {};

TEST_P(VideoFilesTest, SizeRateAndAspectFollowTheRules) {
  if (!tsw::OnPath("ffmpeg") || !tsw::OnPath("ffprobe")) GTEST_SKIP() << "ffmpeg is not installed";
  const VideoCase& c = GetParam();
  tsw::TempDir dir;
  const auto file = dir.File("video.ts");
  const std::string command =
      std::string("ffmpeg -v error -y -threads 2 -f lavfi -i testsrc2=size=") +
      (c.log ? "1920x1080" : "720x576") + ":rate=25 -f lavfi -i sine=frequency=440:sample_rate=48000 -t 2 " +
      c.encode + " -c:a mp2 -f mpegts '" + file.string() + "'";
  const auto made = tsw::Shell(command + " 2>&1");
  if (made.status != 0 && made.out.find("Unknown encoder") != std::string::npos) {
    GTEST_SKIP() << "encoder missing: " << made.out;
  }
  ASSERT_EQ(made.status, 0) << made.out;

  ResetFormatBlocks();
  CMessageBoxRecorder messages;
  FilterHolder filter;
  ASSERT_EQ(filter.Load(file), S_OK);
  EXPECT_EQ(filter.Query(L"VIDEOSIZE"), c.size);
  EXPECT_EQ(filter.Query(L"FRAMERATE"), c.rate);
  EXPECT_EQ(filter.Query(L"ASPECTRATIO"), c.aspect);
  EXPECT_EQ(filter.Query(L"H264.NUMPARAMS"), std::to_string(c.log));
  if (c.log > 0) {
    EXPECT_EQ(filter.Query(L"H264.GETPARAM(0)"), "profile_idc: 100");
    EXPECT_EQ(filter.Query(L"H264.GETPARAM(9)"), "pic_order_cnt_type: 0");
  }
  EXPECT_EQ(ProbedSize(file, c.log > 0), c.size) << "ffprobe's size";
}

INSTANTIATE_TEST_SUITE_P(
    Ffmpeg, VideoFilesTest,
    ::testing::Values(
        VideoCase{"Mpeg2", "-c:v mpeg2video -aspect 16:9 -g 12 -b:v 2M", "720 x 576", "25.00", "16:9", 0},
        // B-frames make x264 write pic_order_cnt_type 0, which the fixed
        // walk reads correctly; the coded height is 1088.
        VideoCase{"H264", "-c:v libx264 -preset fast -bf 2 -x264-params aud=1 -pix_fmt yuv420p",
                  "1920 x 1088", "25.00", "16:9", 20}),
    [](const auto& testInfo) { return std::string(testInfo.param.name); });

}  // namespace
