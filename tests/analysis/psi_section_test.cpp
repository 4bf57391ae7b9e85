#include "analysis/psi_section.h"

#include <gtest/gtest.h>

#include <limits>
#include <string_view>
#include <vector>

#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;

TEST(Crc32Mpeg2, KnownAnswerAndAgreesWithBitwiseReference) {
  constexpr std::string_view check = "123456789";
  const Bytes digits(check.begin(), check.end());
  EXPECT_EQ(Crc32Mpeg2(digits), 0x0376E6E7u);
  EXPECT_EQ(Crc32Mpeg2({}), 0xFFFFFFFFu);

  // Every byte value in every position of a short run, against the
  // bit-by-bit reference: a wrong table entry or index shows here.
  Bytes data;
  for (int i = 0; i < 600; ++i) {
    data.push_back(static_cast<std::uint8_t>(i * 7 + i / 256));
    EXPECT_EQ(Crc32Mpeg2(data), tsw::Crc32Mpeg2(data)) << "length " << data.size();
  }
}

TEST(CrcIsValid, AcceptsAWrittenPatAndRejectsAnySingleByteChange) {
  const Bytes pat = tsw::PatSection(0x0001, 3, {{0, 0x10}, {1, 0x100}, {2, 0x200}});
  ASSERT_TRUE(CrcIsValid(pat, pat.size()));
  for (std::size_t i = 0; i < pat.size(); ++i) {
    Bytes bad = pat;
    bad[i] ^= 0x01;
    EXPECT_FALSE(CrcIsValid(bad, bad.size())) << "byte " << i;
  }
}

TEST(CrcIsValid, LengthMustBeNonZeroAndWithinTheBytesAtHand) {
  Bytes pat = tsw::PatSection(0x0001, 0, {{1, 0x100}});
  const std::size_t total = pat.size();
  EXPECT_FALSE(CrcIsValid(pat, 0));
  EXPECT_FALSE(CrcIsValid(pat, total - 1));
  EXPECT_FALSE(CrcIsValid(pat, total + 1));
  // Bytes behind the claimed length do not take part.
  pat.insert(pat.end(), {0xFF, 0xFF, 0x00});
  EXPECT_TRUE(CrcIsValid(pat, total));
}

// Eight header bytes: table 2, syntax bit, program 0x1234, version 5, current.
Bytes Header(std::uint16_t sectionLength, std::uint8_t sectionNumber = 0, std::uint8_t lastSectionNumber = 0,
             bool syntax = true) {
  return {0x02,
          static_cast<std::uint8_t>((syntax ? 0xB0 : 0x30) | (sectionLength >> 8)),
          static_cast<std::uint8_t>(sectionLength & 0xFF),
          0x12,
          0x34,
          static_cast<std::uint8_t>(0xC0 | (5 << 1) | 1),
          sectionNumber,
          lastSectionNumber};
}

TEST(ReadSectionHeader, ReadsEachFieldAndMarksShortHeaders) {
  const SectionHeader h = ReadSectionHeader(Header(0x3FD, 2, 7));
  EXPECT_TRUE(h.complete);
  EXPECT_EQ(h.table_id, 2u);
  EXPECT_EQ(h.section_syntax_indicator, 1u);
  EXPECT_EQ(h.section_length, 0x3FDu);
  EXPECT_EQ(h.id_extension, 0x1234u);
  EXPECT_EQ(h.version_number, 5u);
  EXPECT_EQ(h.current_next_indicator, 1u);
  EXPECT_EQ(h.section_number, 2u);
  EXPECT_EQ(h.last_section_number, 7u);

  const Bytes cut = Header(100);
  EXPECT_FALSE(ReadSectionHeader(std::span(cut).first(7)).complete);
}

TEST(PassesCommonSectionTest, EachLimitAtItsValueAndOnePast) {
  struct Case {
    const char* name;
    Bytes header;
    bool passes;
  };
  const Bytes full = Header(100);
  const std::vector<Case> cases = {
      {"Longest", Header(kMaxSectionLength), true},
      {"OnePastLongest", Header(kMaxSectionLength + 1), false},
      {"TwelveBitMaximum", Header(0xFFF), false},
      {"Shortest", Header(kMinSectionLength), true},
      {"OneBelowShortest", Header(kMinSectionLength - 1), false},
      {"LastEqualsNumber", Header(100, 3, 3), true},
      {"LastBelowNumber", Header(100, 3, 2), false},
      {"NoSyntaxBit", Header(100, 0, 0, false), false},
      {"SevenBytes", Bytes(full.begin(), full.end() - 1), false}};
  for (const Case& c : cases) {
    EXPECT_EQ(PassesCommonSectionTest(ReadSectionHeader(c.header)), c.passes) << c.name;
  }
}

TEST(CSectionReader, ReadsBehindTheEndAsZeroAndNeverWraps) {
  const Bytes bytes = {0xE1, 0x23, 0xFA, 0xBC};
  const CSectionReader r(bytes);
  EXPECT_EQ(r.Pid(0), 0x0123);
  EXPECT_EQ(r.Length12(2), 0x0ABC);
  EXPECT_EQ(r.U16(3), 0xBC00);  // second byte missing
  EXPECT_EQ(r.U8(4), 0);
  EXPECT_TRUE(r.Has(4, 0));
  EXPECT_FALSE(r.Has(5, 0));
  EXPECT_FALSE(r.Has(2, 3));
  EXPECT_FALSE(r.Has(1, std::numeric_limits<std::size_t>::max()));
  EXPECT_EQ(r.U8(std::numeric_limits<std::size_t>::max()), 0);
}

}  // namespace
