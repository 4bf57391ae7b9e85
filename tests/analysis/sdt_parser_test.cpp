#include "analysis/sdt_parser.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;

struct SdtFixture : ::testing::Test {
  void SetUp() override {
    const Bytes section = tsw::PatSection(1, 0, {{1, 0x101}, {2, 0x102}, {3, 0x103}});
    ASSERT_EQ(pat.OfferSection(section, section.size()), 1);
  }
  // An exact copy, so that a read past the section's end is a read past the
  // allocation.
  int Offer(const Bytes& section) {
    const Bytes exact(section.begin(), section.end());
    return sdt.OfferSection(exact, exact.size());
  }
  int OfferNames(std::uint8_t version, const std::vector<tsw::SdtService>& services) {
    return Offer(tsw::SdtSection(0x0123, version, services));
  }
  std::string Name(std::uint32_t program) const {
    int index = 0;
    return table->FindIndex(program, &index) ? table->Entry(index).name : "<none>";
  }

  std::unique_ptr<CProgramTable> table = std::make_unique<CProgramTable>();
  CPatParser pat{*table};
  CSdtParser sdt{*table};
};

TEST_F(SdtFixture, RefusedSectionsWriteNoNameAcceptedOnesNameTheProgramsOfTheirServiceIds) {
  const std::vector<tsw::SdtService> services = {{1, tsw::ServiceDescriptor("", "Other")}};
  const Bytes otherStream = tsw::SdtSection(1, 0, services, 0x46);
  Bytes notCurrent = tsw::SdtSection(1, 0, services);
  notCurrent[5] &= 0xFE;
  tsw::Reseal(notCurrent);
  Bytes badCrc = tsw::SdtSection(1, 0, services);
  badCrc[20] ^= 0x01;
  const Bytes lastBelowNumber = tsw::SdtSection(1, 0, services, 0x42, 2, 1);
  for (const Bytes& section : {otherStream, notCurrent, badCrc, lastBelowNumber}) {
    EXPECT_EQ(Offer(section), 0);
  }
  EXPECT_EQ(Name(1), "");
  EXPECT_EQ(sdt.Log().section_count, 0);

  ASSERT_EQ(OfferNames(4, {{2, tsw::ServiceDescriptor("Maker", "Two")},
                           {9, tsw::ServiceDescriptor("Maker", "Nine")},
                           {1, tsw::ServiceDescriptor("", "One")}}),
            1);
  EXPECT_EQ(Name(1), "One");
  EXPECT_EQ(Name(2), "Two");
  EXPECT_EQ(Name(3), "");
  EXPECT_EQ(table->Count(), 3);
  EXPECT_EQ(sdt.Log().transport_stream_id, 0x0123u);
  EXPECT_EQ(sdt.Log().version, 4u);
  EXPECT_EQ(sdt.Log().section_count, 1);
}

TEST_F(SdtFixture, NameBytesPassUnchangedButForEmphasisCodes) {
  struct Case {
    const char* name;
    std::string bytes;
    std::string expected;
  };
  const std::string latin = std::string("\x05\x8A") + "Caf\xE9";
  const std::vector<Case> cases = {
      {"Plain", "BBC One", "BBC One"},
      {"EmphasisDropped", "\x86News\x87 24", "News 24"},
      {"OnlyEmphasis", "\x86\x87\x87\x86", ""},
      {"TableSelectorAndControlsKept", latin, latin},
      {"CutTo31", std::string(40, 'a'), std::string(31, 'a')},
      {"EmphasisTakesNoPlace", "\x86" + std::string(31, 'b') + "\x87" + "c", std::string(31, 'b')},
      {"LongestThatFits", std::string(251, 'z'), std::string(31, 'z')}};
  std::uint8_t version = 0;
  for (const Case& c : cases) {
    table->SetServiceName(1, "stale");
    ASSERT_EQ(OfferNames(version++, {{1, tsw::ServiceDescriptor("P", c.bytes)}}), 1) << c.name;
    EXPECT_EQ(Name(1), c.expected) << c.name;
  }
}

TEST_F(SdtFixture, FirstServiceDescriptorOfARowWinsAndTheLastSectionOverall) {
  Bytes twice = tsw::ServiceDescriptor("", "First");
  const Bytes second = tsw::ServiceDescriptor("", "Second");
  twice.insert(twice.end(), second.begin(), second.end());
  ASSERT_EQ(OfferNames(0, {{1, twice}, {2, tsw::ServiceDescriptor("", "RowA")},
                           {2, tsw::ServiceDescriptor("", "RowB")}}),
            1);
  EXPECT_EQ(Name(1), "First");
  EXPECT_EQ(Name(2), "RowA");
  // Only a service descriptor writes, and an empty name clears. The same
  // version again still writes: repeats are not recognised.
  const Bytes linkage = {0x4A, 0x02, 0x00, 0x01};
  ASSERT_EQ(OfferNames(0, {{1, linkage}, {2, tsw::ServiceDescriptor("Maker", "")}}), 1);
  EXPECT_EQ(Name(1), "First");
  EXPECT_EQ(Name(2), "");
  ASSERT_EQ(OfferNames(0, {{1, second}}), 1);
  EXPECT_EQ(Name(1), "Second");
}

// Rows built by hand: service 1 named "Good" first, then `tail`.
Bytes SdtWithTail(const Bytes& tail) {
  Bytes body = {0x12, 0x34, 0xFF, 0x00, 0x01, 0xFC, 0x80, 9};
  const Bytes good = tsw::ServiceDescriptor("", "Good");
  body.insert(body.end(), good.begin(), good.end());
  body.insert(body.end(), tail.begin(), tail.end());
  return tsw::Section(0x42, 1, 0, body);
}

TEST_F(SdtFixture, LengthsThatClaimTooMuchAreBounded) {
  struct Case {
    const char* name;
    Bytes tail;
    std::string name2;
  };
  // Each tail is row 2: service_id, flags, loop length, descriptors.
  const std::vector<Case> cases = {
      {"LoopPastSection", {0x00, 0x02, 0xFC, 0x8F, 0xFF, 0x48, 0x04, 0x01, 0x00, 0x01, 'X'}, "<kept>"},
      {"DescriptorPastLoop",
       {0x00, 0x02, 0xFC, 0x80, 0x05, 0x48, 0xC8, 0x01, 0x00, 0x02, 'X', 'X'}, "<kept>"},
      {"ProviderPastDescriptor",
       {0x00, 0x02, 0xFC, 0x80, 0x0B, 0x48, 0x03, 0x01, 0xC8, 0x01, 0x80, 0x04, 'X', 'X', 'X', 'X'}, ""},
      {"NamePastDescriptor",
       {0x00, 0x02, 0xFC, 0x80, 0x0D, 0x48, 0x05, 0x01, 0x00, 0xFF, 'm', 'm', 0x80, 0x04, 'X', 'X', 'X', 'X'},
       "mm"},
      {"NamePastSection", {0x00, 0x02, 0xFC, 0x80, 0x07, 0x48, 0x05, 0x01, 0x00, 0xFF, 'm', 'm'}, "mm"},
      {"EmptyDescriptor", {0x00, 0x02, 0xFC, 0x80, 0x02, 0x48, 0x00}, ""}};
  for (const Case& c : cases) {
    table->SetServiceName(1, "stale");
    table->SetServiceName(2, "<kept>");
    EXPECT_EQ(Offer(SdtWithTail(c.tail)), 1) << c.name;
    EXPECT_EQ(Name(1), "Good") << c.name;
    EXPECT_EQ(Name(2), c.name2) << c.name;
  }
}

}  // namespace
