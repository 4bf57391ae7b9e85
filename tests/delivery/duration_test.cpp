#include <gtest/gtest.h>

#include "platform/win32/messages.h"
#include "tests/delivery/filter_probe.h"
#include "tests/support/ts_writer.h"

namespace {

constexpr std::uint16_t kVideo = 0x100;
constexpr std::uint64_t kPtsMask = 0x1FFFFFFFFull;

// Every 100th packet starts a video PES whose PTS is base + 90 ticks per
// packet index (one millisecond a packet), on the 33-bit clock; packets 1 and
// 2 hold a PAT and a PMT naming PID 0x100 as video, unless `tables` is off;
// the others are audio filler.
tsw::TsFile PtsFile(std::uint32_t packets, std::uint64_t base, bool tables = true) {
  tsw::TsFile file;
  for (std::uint32_t i = 0; i < packets; ++i) {
    if (tables && i == 1) {
      file.AddSection(0, tsw::PatSection(1, 0, {{1, 0x1000}}));
    } else if (tables && i == 2) {
      file.AddSection(0x1000, tsw::PmtSection(1, 0, kVideo, {{2, kVideo, {}}, {3, 0x101, {}}}));
    } else if (i % 100 == 0) {
      file.Add(tsw::MakePacket(kVideo, true, tsw::PesHeader(0xE0, (base + i * 90ull) & kPtsMask)));
    } else {
      file.Add(tsw::MakePacket(0x101, false, {}));
    }
  }
  return file;
}

REFERENCE_TIME Estimate(std::uint32_t packets) {
  return static_cast<REFERENCE_TIME>(packets * 188ull / 2401587) * 10000000;
}

struct DurationCase {
  const char* name;
  std::uint32_t packets;
  std::uint64_t base;
  bool detLength;
  REFERENCE_TIME expected;
  const char* mediaLen = nullptr;  // unchecked if none
  bool tables = true;
};

class DurationTest : public ::testing::TestWithParam<DurationCase> {};

TEST_P(DurationTest, ComesFromThePtsPassesOrTheEstimate) {
  const DurationCase& c = GetParam();
  FilterHolder filter;
  CTsSourceFilterProbe::SetDetLength(*filter, c.detLength ? 1 : 0);
  ASSERT_EQ(filter.Load(PtsFile(c.packets, c.base, c.tables)), S_OK);
  EXPECT_EQ(CTsSourceFilterProbe::Duration(*filter), c.expected);
  EXPECT_EQ(filter->OutputPin()->DurationForQueries(), c.expected) << "the pin follows";
  EXPECT_EQ(filter.Query(L"CURPACKET"), "0");
  EXPECT_TRUE(c.mediaLen == nullptr || filter.Query(L"MEDIALEN") == c.mediaLen) << filter.Query(L"MEDIALEN");
}

// The tail block of a file of P packets starts at (P - 20000) rounded down to
// a multiple of 20000, and the Tail pass sees its first 10000 packets only if
// the passes before it left CurrentPacket short of the end.
INSTANTIATE_TEST_SUITE_P(
    Files, DurationTest,
    ::testing::Values(
        // Passes stop at the end of a short file: the Tail pass sees nothing.
        DurationCase{"AtMostTenThousand", 5000, 900000, true, Estimate(5000)},
        DurationCase{"AtMostThirtyThousand", 25000, 900000, true, Estimate(25000)},
        // The tail block starts at packet 0: the last PTS seen is packet 4900's.
        DurationCase{"ThirtyToFortyThousand", 35000, 900000, true, 4900LL * 90 * 10000 / 90},
        // Tail block at 80000, seen up to 89999: last PTS at packet 89900.
        DurationCase{"ManyPackets", 100000, 900000, true, 89900LL * 90 * 10000 / 90, "00:01:29.900"},
        // The clock wraps near packet 50000; the correction adds 2^33 - 1.
        DurationCase{"WrapCorrection", 100000, kPtsMask - 90ull * 50000, true,
                     static_cast<REFERENCE_TIME>((89900ull * 90 - 1) * 10000 / 90)},
        DurationCase{"DetLengthOff", 100000, 900000, false, Estimate(100000)},
        // Without tables the census takes the filler PID, the largest, for
        // video: it has no PTS.
        DurationCase{"NoTables", 100000, 900000, true, Estimate(100000), "00:00:07.000", false}),
    [](const auto& testInfo) { return std::string(testInfo.param.name); });

}  // namespace
