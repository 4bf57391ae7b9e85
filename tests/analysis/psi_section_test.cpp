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

TEST(CrcIsValid, RejectsAnySingleByteChangeAndLengthsOutsideTheBytesAtHand) {
  Bytes pat = tsw::PatSection(0x0001, 3, {{0, 0x10}, {1, 0x100}, {2, 0x200}});
  ASSERT_TRUE(CrcIsValid(pat, pat.size()));
  for (std::size_t i = 0; i < pat.size(); ++i) {
    Bytes bad = pat;
    bad[i] ^= 0x01;
    EXPECT_FALSE(CrcIsValid(bad, bad.size())) << "byte " << i;
  }
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
  return {0x02, static_cast<std::uint8_t>((syntax ? 0xB0 : 0x30) | (sectionLength >> 8)),
          static_cast<std::uint8_t>(sectionLength & 0xFF), 0x12, 0x34, 0xC0 | (5 << 1) | 1, sectionNumber,
          lastSectionNumber};
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

}  // namespace
