#include "analysis/pmt_parser.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "analysis/pat_parser.h"
#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;

Bytes Cat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// A private descriptor of `size` bytes in all, tag and length included.
Bytes Padding(std::size_t size) {
  Bytes descriptor(size, 0x5A);
  descriptor[0] = 0x80;
  descriptor[1] = static_cast<std::uint8_t>(size - 2);
  return descriptor;
}

struct PmtFixture : ::testing::Test {
  void SetUp() override {
    const Bytes section = tsw::PatSection(1, 0, {{1, 0x100}, {2, 0x200}});
    ASSERT_EQ(pat.OfferSection(section, section.size()), 1);
  }
  int Offer(const Bytes& section, std::size_t total = 0) {
    return pmt.OfferSection(tsw::InPacket(section), total != 0 ? total : section.size());
  }
  const ProgramEntry& Program(std::uint32_t number) const {
    int index = 0;
    EXPECT_TRUE(table->FindIndex(number, &index));
    return table->Entry(index);
  }

  std::unique_ptr<CProgramTable> table = std::make_unique<CProgramTable>();
  CPatParser pat{*table};
  CPmtParser pmt{*table};
};

TEST_F(PmtFixture, AcceptedSectionFillsTheProgramsStreamListAndOthersOnlyCountAsSeen) {
  EXPECT_EQ(pmt.LastProgramNumber(), 0);
  const Bytes section =
      tsw::PmtSection(1, 4, 0x1FF, {{0x02, 0x101, {}}, {0x04, 0x102, tsw::LanguageDescriptor("eng", 3)}});
  ASSERT_EQ(Offer(section), 1);
  const ProgramEntry& entry = Program(1);
  EXPECT_EQ(entry.stream_count, 2u);
  EXPECT_EQ(entry.pmt.pcr_pid, 0x1FFu);
  EXPECT_EQ(entry.pmt.version_number, 4u);
  EXPECT_EQ(entry.pmt.streams[0].stream_type, 2u);
  EXPECT_EQ(entry.pmt.streams[0].pid, 0x101u);
  EXPECT_EQ(entry.pmt.streams[1].es_info_length, 6u);
  EXPECT_STREQ(entry.pmt.streams[1].language, "eng");
  EXPECT_EQ(pmt.LastProgramNumber(), 1);

  // A program outside the PAT is seen but changes no entry.
  const Bytes outside = tsw::PmtSection(77, 0, 0x301, {{0x02, 0x301, {}}});
  EXPECT_EQ(Offer(outside), 1);
  EXPECT_EQ(pmt.LastProgramNumber(), 77);
  EXPECT_EQ(Offer(outside), 0);
  EXPECT_EQ(table->Count(), 2);
  EXPECT_EQ(Program(1).stream_count, 2u);
  EXPECT_EQ(Program(2).stream_count, 0u);
}

TEST_F(PmtFixture, RefusedSectionsLeaveNoTraceInSeenAndRepeatsAreDroppedUnchecked) {
  const Bytes good =
      tsw::PmtSection(2, 3, 0x201, {{0x03, 0x201, tsw::LanguageDescriptor("eng")}, {0x03, 0x202, {}}});
  Bytes notCurrent = good;
  notCurrent[5] &= 0xFE;
  tsw::Reseal(notCurrent);
  Bytes badCrc = good;
  badCrc.back() ^= 0x80;
  Bytes otherTable = good;
  otherTable[0] = 0x03;
  tsw::Reseal(otherTable);
  Bytes noSyntax = good;
  noSyntax[1] &= 0x7F;
  tsw::Reseal(noSyntax);
  // program_info_length one past what section_length allows.
  Bytes infoTooLong = good;
  infoTooLong[11] = static_cast<std::uint8_t>(good[2] - 12);
  tsw::Reseal(infoTooLong);
  for (const Bytes& section : {notCurrent, badCrc, otherTable, noSyntax, infoTooLong}) {
    EXPECT_EQ(Offer(section), 0);
  }
  EXPECT_EQ(pmt.SeenCount(), 0);
  EXPECT_EQ(Program(2).stream_count, 0u);
  ASSERT_EQ(Offer(good), 1);

  // The same program and version again is dropped, whatever it holds.
  Bytes renumbered = tsw::PmtSection(2, 3, 0x201, {{0x02, 0x2BB, {}}});
  renumbered[6] = 1;
  renumbered[7] = 1;
  tsw::Reseal(renumbered);
  EXPECT_EQ(Offer(good), 0);
  EXPECT_EQ(Offer(renumbered), 0);
  EXPECT_EQ(Program(2).stream_count, 2u);
  EXPECT_EQ(Program(2).pmt.streams[0].pid, 0x201u);

  // A new version replaces the whole list.
  ASSERT_EQ(Offer(tsw::PmtSection(2, 4, 0x201, {{0x1B, 0x211, {}}})), 1);
  EXPECT_EQ(Program(2).stream_count, 1u);
  EXPECT_EQ(Program(2).pmt.streams[0].pid, 0x211u);
  EXPECT_STREQ(Program(2).pmt.streams[0].language, "");
  EXPECT_EQ(Program(2).pmt.version_number, 4u);
  EXPECT_EQ(pmt.SeenCount(), 2);
}

TEST_F(PmtFixture, CrcIsOnlyHeldAgainstSectionsShorterThan180) {
  struct Case {
    std::size_t total;
    bool ignoreCrc;
    bool badCrc;
    int accepted;
  };
  const std::vector<Case> cases = {
      {179, false, false, 1}, {179, false, true, 0}, {179, true, true, 1},
      {180, false, true, 1},  {180, true, true, 1}};
  std::uint8_t version = 0;
  for (const Case& c : cases) {
    // One row whose descriptors bring the section to the total wanted.
    Bytes section = tsw::PmtSection(1, version++, 0x101, {{0x02, 0x101, Padding(c.total - 21)}});
    ASSERT_EQ(section.size(), c.total);
    if (c.badCrc) section.back() ^= 0x01;
    pmt.SetIgnoreCrc(c.ignoreCrc ? 1 : 0);
    EXPECT_EQ(Offer(section), c.accepted) << c.total << " ignore " << c.ignoreCrc << " bad " << c.badCrc;
  }
}

TEST_F(PmtFixture, LongSectionIsCutTo180AndRowsFrom179OnDoNotExist) {
  // The first row's descriptors put the second row at offset 178 or 179.
  for (std::size_t secondRow : {178u, 179u}) {
    std::vector<tsw::PmtStream> streams = {{0x02, 0x101, Padding(secondRow - 17)}};
    for (std::uint16_t pid = 0x102; pid < 0x108; ++pid) streams.push_back({0x03, pid, {}});
    Bytes section = tsw::PmtSection(1, static_cast<std::uint8_t>(secondRow), 0x101, streams);
    tsw::SetSectionLength(section, 200);
    ASSERT_EQ(Offer(section, 203), 1);

    const ProgramEntry& entry = Program(1);
    EXPECT_EQ(entry.pmt.section_length, 180u);
    ASSERT_EQ(entry.stream_count, secondRow == 178 ? 2u : 1u) << secondRow;
    if (secondRow == 178) {
      EXPECT_EQ(entry.pmt.streams[1].pid, 0x102u);
    }
  }
}

TEST(ParsePmt, LanguageIsTheDescriptorPayloadLessItsLastByte) {
  struct Case {
    const char* name;
    Bytes descriptors;
    std::string language;
  };
  const Bytes lengthZero = {0x0A, 0x00};
  const Bytes lengthOne = {0x0A, 0x01, 'x'};
  const std::vector<Case> cases = {
      {"None", {}, ""},
      {"LengthZero", lengthZero, ""},
      {"LengthOne", lengthOne, ""},
      {"Usual", tsw::LanguageDescriptor("eng", 1), "eng"},
      {"ShorterLaidOverLonger", Cat({tsw::LanguageDescriptor("deu"), tsw::LanguageDescriptor("fr")}), "fru"},
      {"LengthOneLeavesEarlierText", Cat({tsw::LanguageDescriptor("eng"), lengthOne}), "eng"},
      {"WalkGoesOnPastLengthZero", Cat({lengthZero, tsw::LanguageDescriptor("ita")}), "ita"},
      {"OtherTagsSkipped", Cat({Bytes{0x0B, 0x02, 'a', 'b'}, tsw::LanguageDescriptor("spa")}), "spa"},
      {"LongCutTo31", tsw::LanguageDescriptor(std::string(40, 'q')), std::string(31, 'q')}};
  for (const Case& c : cases) {
    const Bytes section = tsw::PmtSection(1, 0, 0x101, {{0x03, 0x102, c.descriptors}, {0x03, 0x103, {}}});
    auto record = std::make_unique<PmtRecord>();
    ParsePmt(section, *record);
    ASSERT_EQ(record->stream_count, 2u) << c.name;
    EXPECT_EQ(record->streams[0].language, c.language) << c.name;
    EXPECT_STREQ(record->streams[1].language, "") << c.name;
  }
}

TEST(ParsePmt, DescriptorsThatClaimMoreThanThePacketAreBounded) {
  // Only the packet's 183 bytes are at hand; the row and its language
  // descriptor both claim far more.
  Bytes body = {0xE1, 0x01, 0xF0, 0x00, 0x03, 0xE1, 0x02, 0xFF, 0xFF, 0x0A, 0xFF};
  for (int i = 0; body.size() < 175; ++i) body.push_back(static_cast<std::uint8_t>('a' + i % 26));
  const Bytes section = tsw::Section(0x02, 1, 0, body);
  const Bytes packet(section.begin(), section.begin() + 183);
  auto record = std::make_unique<PmtRecord>();
  ParsePmt(packet, *record);
  EXPECT_EQ(record->section_length, 180u);
  ASSERT_EQ(record->stream_count, 1u);
  EXPECT_EQ(record->streams[0].es_info_length, 0xFFFu);
  EXPECT_EQ(std::string(record->streams[0].language), "abcdefghijklmnopqrstuvwxyzabcde");
}

TEST(CPmtParser, SeenHoldsFiveHundredPairsThenRefusesNewOnes) {
  auto table = std::make_unique<CProgramTable>();
  CPmtParser pmt(*table);
  const auto offer = [&](std::uint16_t program, std::uint8_t version) {
    const Bytes section = tsw::PmtSection(program, version, 0x100, {{0x02, 0x100, {}}});
    return pmt.OfferSection(section, section.size());
  };
  for (int i = 0; i < kMaxSeenPairs; ++i) {
    ASSERT_EQ(offer(static_cast<std::uint16_t>(1 + i / 2), static_cast<std::uint8_t>(i % 2)), 1) << i;
  }
  EXPECT_EQ(pmt.SeenCount(), kMaxSeenPairs);
  EXPECT_EQ(pmt.LastProgramNumber(), 250);
  EXPECT_EQ(offer(251, 0), 0);
  EXPECT_EQ(offer(1, 2), 0);
  EXPECT_EQ(offer(1, 0), 0);
  EXPECT_EQ(pmt.SeenCount(), kMaxSeenPairs);
  EXPECT_EQ(pmt.LastProgramNumber(), 250);
}

}  // namespace
