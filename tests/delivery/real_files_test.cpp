// Loads real transport streams: the bundled sample, and the public test
// streams in the shared samples folder when it is there.
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/win32/messages.h"
#include "tests/delivery/filter_probe.h"

namespace {

namespace fs = std::filesystem;

TEST(RealFiles, BundledSampleAnswersSensibly) {
  const fs::path sample = fs::path(BRINDLET_SOURCE_DIR) / "samples" / "mpeg2-mp2-ac3.ts";
  ASSERT_TRUE(fs::exists(sample));
  CMessageBoxRecorder messages;
  FilterHolder filter;
  ASSERT_EQ(filter.Load(sample), S_OK);
  EXPECT_EQ(filter.Query(L"MAXPACKET"), std::to_string(fs::file_size(sample) / 188));
  // Six PIDs (PAT, PMT, SDT, video, two audio); how the census counts is
  // the load tests' matter, what it makes of real streams this one's.
  EXPECT_EQ(filter.Query(L"NUMPIDS"), "6");
  EXPECT_EQ(filter.Query(L"GETTYPE(0)"), "224") << "video has the largest share";
  const CPidCensus& census = CTsSourceFilterProbe::Census(*filter);
  ASSERT_NE(census.Find(0x102), nullptr);
  EXPECT_EQ(census.Find(0x102)->kind, kKindAc3);
  ASSERT_NE(census.Find(0x101), nullptr);
  EXPECT_EQ(census.Find(0x101)->kind, 0xC0);
  EXPECT_EQ(messages.Count(), 0u);
}

TEST(RealFiles, SharedSamplesLoadWithTheirPacketCounts) {
  const fs::path folder = BRINDLET_SHARED_SAMPLES;
  if (!fs::is_directory(folder)) GTEST_SKIP() << "no shared samples";
  int loaded = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() != ".ts") continue;
    CMessageBoxRecorder messages;
    FilterHolder filter;
    ASSERT_EQ(filter.Load(entry.path()), S_OK) << entry.path();
    EXPECT_EQ(filter.Query(L"MAXPACKET"), std::to_string(entry.file_size() / 188)) << entry.path();
    EXPECT_NE(filter.Query(L"NUMPIDS"), "0") << entry.path();
    EXPECT_EQ(messages.Count(), 0u) << entry.path();
    ++loaded;
  }
  EXPECT_GT(loaded, 0);
}

}  // namespace
