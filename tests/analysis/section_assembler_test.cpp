#include "analysis/section_assembler.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "analysis/psi_section.h"
#include "analysis/sdt_parser.h"
#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;

constexpr int kAppended = -1;

// An SDT naming program 1 "Long", padded with private descriptors to
// exactly `total` bytes.
Bytes SdtOfTotalLength(std::size_t total, std::uint8_t tableId = 0x42) {
  Bytes descriptors = tsw::ServiceDescriptor("", "Long");
  std::size_t pad = total - 29;
  while (pad > 0) {
    const std::size_t chunk = pad <= 257 ? pad : (pad - 257 >= 2 ? 257 : 255);
    descriptors.push_back(0x80);
    descriptors.push_back(static_cast<std::uint8_t>(chunk - 2));
    descriptors.insert(descriptors.end(), chunk - 2, 0x5A);
    pad -= chunk;
  }
  Bytes section = tsw::SdtSection(7, 0, {{1, descriptors}}, tableId);
  EXPECT_EQ(section.size(), total);
  return section;
}

// PID 17's calling order, one packet at a time.
struct SdtPath : ::testing::Test {
  void SetUp() override {
    const Bytes pat = tsw::PatSection(1, 0, {{1, 0x101}});
    ASSERT_EQ(CPatParser(*table).OfferSection(pat, pat.size()), 1);
  }
  int Feed(const tsw::Packet& packet) {
    if (assembler.WantsPacket(packet) != 0) {
      assembler.AppendPacket(packet);
      return kAppended;
    }
    const std::span<const std::uint8_t> section = assembler.FinishSection(packet);
    finished.assign(section.begin(), section.end());
    const int accepted = sdt.OfferSection(section, ReadSectionHeader(section).section_length + 3);
    assembler.ReleaseSection();
    return accepted;
  }
  std::vector<int> FeedAll(const std::vector<tsw::Packet>& packets) {
    std::vector<int> results;
    for (const tsw::Packet& packet : packets) results.push_back(Feed(packet));
    return results;
  }
  std::string Name() const { return table->Entry(0).name; }

  std::unique_ptr<CProgramTable> table = std::make_unique<CProgramTable>();
  CSdtParser sdt{*table};
  CSectionAssembler assembler;
  Bytes finished;
};

TEST_F(SdtPath, SectionsLongerThan188AreGatheredPacketByPacket) {
  struct Case {
    std::size_t total;
    std::vector<int> results;
  };
  const std::vector<Case> cases = {
      {191, {0, 0}},                     // section_length 188: read from one packet, fails
      {192, {kAppended, 1}},             // section_length 189
      {367, {kAppended, 1}},             // 184 left after the first packet
      {368, {kAppended, kAppended, 1}},  // 185 left
      {400, {kAppended, kAppended, 1}},  // 183 + 184 + 33
      {1024, {kAppended, kAppended, kAppended, kAppended, kAppended, 1}},  // section_length 1021
  };
  for (const Case& c : cases) {
    table->SetServiceName(1, "stale");
    const Bytes section = SdtOfTotalLength(c.total);
    EXPECT_EQ(FeedAll(tsw::SectionPackets(kSdtPid, section)), c.results) << c.total;
    EXPECT_FALSE(assembler.Gathering()) << c.total;
    if (c.results.back() == 1) {
      EXPECT_EQ(finished, section) << c.total;
      EXPECT_EQ(Name(), "Long") << c.total;
    } else {
      EXPECT_EQ(Name(), "stale") << c.total;
    }
  }
}

TEST_F(SdtPath, HeadersThatFailTheSectionTestAreNotGathered) {
  struct Case {
    const char* name;
    void (*edit)(Bytes&);
    int wanted;
  };
  const std::vector<Case> cases = {
      {"Length1021", [](Bytes& s) { tsw::SetSectionLength(s, 1021); }, 1},
      {"Length1022", [](Bytes& s) { tsw::SetSectionLength(s, 1022); }, 0},
      {"LastBelowNumber", [](Bytes& s) { s[6] = 1; }, 0}};
  for (const Case& c : cases) {
    Bytes section = SdtOfTotalLength(400);
    c.edit(section);
    EXPECT_EQ(assembler.WantsPacket(tsw::SectionPackets(kSdtPid, section)[0]), c.wanted) << c.name;
    EXPECT_EQ(assembler.Gathering(), c.wanted == 1) << c.name;
    assembler.ReleaseSection();
  }
}

TEST_F(SdtPath, OtherStreamTableIsGatheredThenRefused) {
  const Bytes section = SdtOfTotalLength(400, 0x46);
  EXPECT_EQ(FeedAll(tsw::SectionPackets(kSdtPid, section)), (std::vector<int>{kAppended, kAppended, 0}));
  EXPECT_EQ(finished, section);
  EXPECT_EQ(Name(), "");
}

TEST_F(SdtPath, LostPacketShowsAsAWrongCrcAndTheNextRepeatIsRead) {
  const std::vector<tsw::Packet> packets = tsw::SectionPackets(kSdtPid, SdtOfTotalLength(400));
  const Bytes shortSdt = tsw::SdtSection(7, 1, {{1, tsw::ServiceDescriptor("", "Short")}});
  const tsw::Packet shortPacket = tsw::SectionPackets(kSdtPid, shortSdt)[0];
  // Without the middle packet the last one still needs more, so the short
  // section's packet is taken as the end of the long one.
  EXPECT_EQ(FeedAll({packets[0], packets[2], shortPacket, shortPacket}),
            (std::vector<int>{kAppended, kAppended, 0, 1}));
  EXPECT_EQ(Name(), "Short");
}

}  // namespace
