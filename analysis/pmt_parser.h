// The PMT reader: single-packet PMT sections, each (program, version) taken
// once, cut to the 180 bytes of section_length that a packet holds.
#pragma once

#include <cstdint>
#include <span>

#include "analysis/program_table.h"

inline constexpr int kMaxSeenPairs = 500;
// Sections of this total length or more are not held to their CRC.
inline constexpr std::size_t kCrcExemptTotalLength = 180;
inline constexpr std::uint32_t kMaxParsedSectionLength = 180;

// Parses the stream rows of a PMT section into `record`. Reads stay inside
// `section`. Exposed for the tests.
void ParsePmt(std::span<const std::uint8_t> section, PmtRecord& record);

class CPmtParser {
 public:
  explicit CPmtParser(CProgramTable& table) : m_Table(table) {}
  // 1 if accepted; 0 if refused or a (program, version) pair seen before.
  int OfferSection(std::span<const std::uint8_t> section, std::size_t totalLength);
  std::uint16_t LastProgramNumber() const;
  void SetIgnoreCrc(int flag) { m_IgnoreCrc = flag; }
  int SeenCount() const { return m_SeenCount; }

 private:
  bool Seen(std::uint32_t program, std::uint32_t version) const;

  CProgramTable& m_Table;
  int m_IgnoreCrc = 0;
  std::int32_t m_SeenCount = 0;
  struct Pair {
    std::uint32_t program_number;
    std::uint32_t version_number;
  } m_Seen[kMaxSeenPairs] = {};
};
