#include "analysis/pat_parser.h"

#include "analysis/psi_section.h"

void SectionLog::Accept(std::uint32_t tsid, std::uint32_t versionNumber, std::uint32_t sectionNumber) {
  transport_stream_id = tsid;
  version = versionNumber;
  if (numbers_used < kMaxSectionNumbers) section_numbers[numbers_used++] = sectionNumber;
  ++section_count;
}

int CPatParser::OfferSection(std::span<const std::uint8_t> section, std::size_t totalLength) {
  const SectionHeader h = ReadSectionHeader(section);
  if (h.current_next_indicator == 0) return 0;
  if (!PassesCommonSectionTest(h)) return 0;
  // Signed: a section_length of 5 leaves -4 bytes of rows, a multiple of 4
  // that holds no row.
  const int rowBytes = static_cast<int>(h.section_length) - 9;
  if (rowBytes % 4 != 0) return 0;
  if (h.table_id != 0) return 0;
  // The rest of a section longer than the bytes at hand is not there, so its
  // CRC cannot be right.
  if (!CrcIsValid(section, totalLength)) return 0;

  auto pat = std::make_unique<PatRecord>();
  CopyHeaderFields(h, *pat);
  pat->transport_stream_id = h.id_extension;
  const CSectionReader r(section);
  const int rows = rowBytes > 0 ? rowBytes / 4 : 0;
  pat->program_count = static_cast<std::uint32_t>(rows < kMaxPatRows ? rows : kMaxPatRows);
  for (std::uint32_t i = 0; i < pat->program_count; ++i) {
    pat->rows[i].program_number = r.U16(8 + 4 * i);
    pat->rows[i].pmt_pid = r.Pid(10 + 4 * i);
  }

  m_Log.Accept(h.id_extension, h.version_number, h.section_number);
  for (std::uint32_t i = 0; i < pat->program_count; ++i) m_Table.AddFromPat(*pat, static_cast<int>(i));
  return 1;
}
