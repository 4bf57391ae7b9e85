// The SDT reader: service names of the actual transport stream, written into
// the program whose number is the service_id.
#pragma once

#include <cstdint>
#include <span>

#include "analysis/pat_parser.h"
#include "analysis/program_table.h"

inline constexpr int kMaxSdtServices = 252;
inline constexpr std::size_t kServiceNameSize = 32;

struct SdtService {
  std::uint32_t service_id;
  char name[kServiceNameSize];  // zero-terminated, cut to 31 characters
};

struct SdtRecord {
  std::uint32_t table_id;
  std::uint32_t section_syntax_indicator;
  std::uint32_t section_length;
  std::uint32_t version_number;
  std::uint32_t current_next_indicator;
  std::uint32_t section_number;
  std::uint32_t last_section_number;
  std::uint32_t transport_stream_id;
  std::uint32_t service_count;
  SdtService services[kMaxSdtServices];
};

// Reads the service rows of an SDT section of `totalLength` bytes. Every read
// stays inside the section; a descriptor that claims more ends the walk.
void ParseSdt(std::span<const std::uint8_t> section, std::size_t totalLength, SdtRecord& record);

class CSdtParser {
 public:
  explicit CSdtParser(CProgramTable& table) : m_Table(table) {}
  int OfferSection(std::span<const std::uint8_t> section, std::size_t totalLength);
  const SectionLog& Log() const { return m_Log; }

 private:
  CProgramTable& m_Table;
  SectionLog m_Log;
};
