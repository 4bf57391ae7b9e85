// The PAT reader: accepts single-packet PAT sections and feeds the program
// table. The SDT reader shares its record of accepted sections.
#pragma once

#include <cstdint>
#include <span>

#include "analysis/program_table.h"

inline constexpr int kMaxSectionNumbers = 1001;

// What a reader remembers of the sections it accepted.
struct SectionLog {
  std::uint32_t transport_stream_id = 0;
  std::uint32_t version = 0;
  std::int32_t section_count = 0;
  std::uint32_t section_numbers[kMaxSectionNumbers] = {};
  int numbers_used = 0;  // rows of section_numbers in use; the count goes on past them

  void Accept(std::uint32_t tsid, std::uint32_t versionNumber, std::uint32_t sectionNumber);
};

class CPatParser {
 public:
  explicit CPatParser(CProgramTable& table) : m_Table(table) {}
  // `section` holds the bytes at hand, `totalLength` what the section claims.
  int OfferSection(std::span<const std::uint8_t> section, std::size_t totalLength);
  const SectionLog& Log() const { return m_Log; }

 private:
  CProgramTable& m_Table;
  SectionLog m_Log;
};
