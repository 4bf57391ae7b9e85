#include "analysis/pmt_parser.h"

#include <algorithm>
#include <cstring>

#include "analysis/psi_section.h"

namespace {
constexpr std::uint8_t kLanguageDescriptorTag = 10;
}

void ParsePmt(std::span<const std::uint8_t> section, PmtRecord& record) {
  const SectionHeader h = ReadSectionHeader(section);
  const CSectionReader r(section);
  CopyHeaderFields(h, record);
  record.section_length = std::min(h.section_length, kMaxParsedSectionLength);
  record.program_number = h.id_extension;
  record.pcr_pid = r.Pid(8);
  record.program_info_length = r.Length12(10);
  record.stream_count = 0;

  // Rows end where CRC_32 begins in an uncut section; no byte past the bytes
  // at hand is read, whatever a row or descriptor claims.
  const std::size_t end = record.section_length - 1;
  std::size_t row = 12 + record.program_info_length;
  while (row < end && row < r.Size() && record.stream_count < kMaxPmtRows) {
    StreamEntry& s = record.streams[record.stream_count++];
    s.stream_type = r.U8(row);
    s.pid = r.Pid(row + 1);
    s.es_info_length = r.Length12(row + 3);
    std::memset(s.language, 0, sizeof s.language);

    const std::size_t descriptorsEnd = std::min(row + 5 + s.es_info_length, r.Size());
    std::size_t d = row + 5;
    while (d + 2 <= descriptorsEnd) {
      const std::uint8_t tag = r.U8(d);
      const std::size_t length = r.U8(d + 1);
      if (tag == kLanguageDescriptorTag && length > 1) {
        // The payload less its last byte (audio_type), cut to the field and
        // to the bytes at hand; a later descriptor lies over an earlier one.
        const std::size_t wanted = std::min(length - 1, sizeof s.language - 1);
        const std::size_t have = d + 2 < r.Size() ? r.Size() - (d + 2) : 0;
        const std::size_t n = std::min(wanted, have);
        for (std::size_t i = 0; i < n; ++i) s.language[i] = static_cast<char>(r.U8(d + 2 + i));
      }
      d += 2 + length;
    }
    row += 5 + s.es_info_length;
  }
}

bool CPmtParser::Seen(std::uint32_t program, std::uint32_t version) const {
  for (int i = 0; i < m_SeenCount; ++i) {
    if (m_Seen[i].program_number == program && m_Seen[i].version_number == version) return true;
  }
  return false;
}

int CPmtParser::OfferSection(std::span<const std::uint8_t> section, std::size_t totalLength) {
  const SectionHeader h = ReadSectionHeader(section);
  if (h.current_next_indicator == 0) return 0;
  if (Seen(h.id_extension, h.version_number)) return 0;
  if (!PassesCommonSectionTest(h)) return 0;
  const CSectionReader r(section);
  if (h.section_length < r.Length12(10) + 13u) return 0;
  if (h.table_id != 2) return 0;
  if (m_IgnoreCrc == 0 && totalLength < kCrcExemptTotalLength && !CrcIsValid(section, totalLength)) {
    return 0;
  }
  // A full list refuses new pairs: a sound stream never has 500 of them.
  if (m_SeenCount >= kMaxSeenPairs) return 0;

  auto record = std::make_unique<PmtRecord>();
  ParsePmt(section, *record);
  m_Seen[m_SeenCount++] = {h.id_extension, h.version_number};
  m_Table.AttachPmt(*record);
  return 1;
}

std::uint16_t CPmtParser::LastProgramNumber() const {
  return m_SeenCount > 0 ? static_cast<std::uint16_t>(m_Seen[m_SeenCount - 1].program_number) : 0;
}
