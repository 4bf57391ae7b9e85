#include "analysis/pat_parser.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "analysis/pmt_parser.h"
#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;
using RowList = std::vector<std::pair<std::uint32_t, std::uint32_t>>;

struct PatFixture : ::testing::Test {
  int Offer(const Bytes& section) { return pat.OfferSection(tsw::InPacket(section), section.size()); }
  std::uint32_t PmtPid(std::uint32_t program) const {
    int index = -1;
    return table->FindIndex(program, &index) ? table->Entry(index).pmt_pid : 0xFFFFFFFF;
  }
  // (program, PMT PID) of every entry, in table order.
  RowList Rows() const {
    RowList rows;
    for (int i = 0; i < table->Count(); ++i) {
      rows.emplace_back(table->Entry(i).program_number, table->Entry(i).pmt_pid);
    }
    return rows;
  }

  std::unique_ptr<CProgramTable> table = std::make_unique<CProgramTable>();
  CPatParser pat{*table};
};

TEST_F(PatFixture, AcceptedSectionFillsTableInRowOrderAndLogsIt) {
  const Bytes section = tsw::PatSection(0x0ABC, 7, {{0, 0x10}, {5, 0x1FFE}, {3, 0x101}});
  ASSERT_EQ(Offer(section), 1);
  // Program 0, the network PID, is an entry like any other.
  ASSERT_EQ(Rows(), (RowList{{0, 0x10}, {5, 0x1FFE}, {3, 0x101}}));
  const PatRecord& record = table->Entry(2).pat;
  EXPECT_EQ(record.program_count, 3u);
  EXPECT_EQ(record.section_length, 21u);
  EXPECT_EQ(record.transport_stream_id, 0x0ABCu);
  EXPECT_EQ(record.version_number, 7u);
  EXPECT_EQ(pat.Log().transport_stream_id, 0x0ABCu);
  EXPECT_EQ(pat.Log().version, 7u);
  EXPECT_EQ(pat.Log().section_count, 1);
}

TEST_F(PatFixture, RefusedSectionsChangeNothingAndOneWholeRowIsEnough) {
  const Bytes good = tsw::PatSection(1, 0, {{1, 0x100}});
  Bytes notCurrent = good;
  notCurrent[5] &= 0xFE;
  tsw::Reseal(notCurrent);
  Bytes pmtTable = good;
  pmtTable[0] = 0x02;
  tsw::Reseal(pmtTable);
  Bytes badCrc = good;
  badCrc.back() ^= 0x01;
  // Three bytes of row: section_length 12, not 9 plus whole rows.
  const Bytes partialRow = tsw::Section(0x00, 1, 0, Bytes{0x00, 0x01, 0xE1});
  ASSERT_EQ(partialRow[2], 12);
  // Claims more than the packet holds: the rest is not there.
  Bytes tooLong = good;
  tsw::SetSectionLength(tooLong, 181);

  for (const Bytes& section : {notCurrent, pmtTable, badCrc, partialRow}) {
    EXPECT_EQ(Offer(section), 0);
  }
  EXPECT_EQ(pat.OfferSection(tsw::InPacket(tooLong), 184), 0);
  EXPECT_EQ(table->Count(), 0);
  EXPECT_EQ(pat.Log().section_count, 0);

  // One whole row more than the partial one is the shortest that counts.
  const Bytes oneRow = tsw::PatSection(1, 0, {{9, 0x109}});
  ASSERT_EQ(oneRow[2], 13);
  EXPECT_EQ(Offer(oneRow), 1);
  EXPECT_EQ(Rows(), (RowList{{9, 0x109}}));
  EXPECT_EQ(table->Entry(0).pat.program_count, 1u);
}

TEST_F(PatFixture, SectionLengthFiveMakesNoEntries) {
  // The header's own CRC fills bytes 4 to 7; search the free bytes for one
  // that leaves current_next set and last_section_number >= section_number.
  Bytes section;
  for (int free = 0; free < 0x800 && section.empty(); ++free) {
    Bytes candidate = {0x00, static_cast<std::uint8_t>(0x80 | ((free >> 4) & 0x70)), 0x05,
                       static_cast<std::uint8_t>(free & 0xFF), 0, 0, 0, 0};
    tsw::Reseal(candidate);
    if ((candidate[5] & 1) != 0 && candidate[7] >= candidate[6]) section = candidate;
  }
  ASSERT_FALSE(section.empty());
  Offer(section);
  EXPECT_EQ(table->Count(), 0);
}

TEST_F(PatFixture, RepeatedProgramUpdatesPmtPidAndKeepsNameAndStreams) {
  ASSERT_EQ(Offer(tsw::PatSection(1, 0, {{1, 0x100}, {2, 0x200}})), 1);
  CPmtParser pmt(*table);
  const Bytes pmtSection = tsw::PmtSection(1, 0, 0x101, {{0x02, 0x101, {}}, {0x03, 0x102, {}}});
  ASSERT_EQ(pmt.OfferSection(pmtSection, pmtSection.size()), 1);
  table->SetServiceName(1, "News");

  ASSERT_EQ(Offer(tsw::PatSection(1, 1, {{1, 0x1F0}, {1, 0x1F1}})), 1);
  EXPECT_EQ(Rows(), (RowList{{1, 0x1F1}, {2, 0x200}}));
  const ProgramEntry& entry = table->Entry(0);
  EXPECT_EQ(entry.pat.version_number, 1u);
  EXPECT_STREQ(entry.name, "News");
  EXPECT_EQ(entry.stream_count, 2u);
  EXPECT_EQ(entry.pmt.streams[1].pid, 0x102u);
}

TEST_F(PatFixture, SixHundredProgramsAcrossSectionsKeepTheFirstFiveHundred) {
  // 40 rows fill a packet's section; fifteen sections list 600 programs.
  for (std::uint16_t s = 0; s < 15; ++s) {
    Bytes body;
    for (std::uint16_t i = 0; i < 40; ++i) {
      const std::uint16_t program = static_cast<std::uint16_t>(1 + s * 40 + i);
      body.insert(body.end(), {static_cast<std::uint8_t>(program >> 8), static_cast<std::uint8_t>(program),
                               0xE1, static_cast<std::uint8_t>(program)});
    }
    EXPECT_EQ(Offer(tsw::Section(0x00, 1, 0, body)), 1) << "section " << s;
  }
  EXPECT_EQ(table->Count(), kMaxPrograms);
  EXPECT_EQ(table->Entry(kMaxPrograms - 1).program_number, 500u);
  EXPECT_EQ(PmtPid(501), 0xFFFFFFFF);
  // A full table still updates the programs it holds.
  EXPECT_EQ(Offer(tsw::PatSection(1, 2, {{7, 0x777}, {9999, 0x999}})), 1);
  EXPECT_EQ(PmtPid(7), 0x777u);
  EXPECT_EQ(table->Count(), kMaxPrograms);
}

TEST_F(PatFixture, SectionNumbersStopAtTheirRowsWhileTheCountGoesOn) {
  constexpr int kOffers = kMaxSectionNumbers + 4;
  for (int i = 0; i < kOffers; ++i) {
    const auto number = static_cast<std::uint8_t>(i % 199);
    ASSERT_EQ(Offer(tsw::Section(0x00, 1, 0, Bytes{0x00, 0x01, 0xE1, 0x00}, number, 200)), 1);
  }
  EXPECT_EQ(pat.Log().section_count, kOffers);
  EXPECT_EQ(pat.Log().numbers_used, kMaxSectionNumbers);
  // The last row holds the 1001st number, not a later one.
  EXPECT_EQ(pat.Log().section_numbers[kMaxSectionNumbers - 1], (kMaxSectionNumbers - 1) % 199u);
  EXPECT_EQ(table->Count(), 1);
}

}  // namespace
