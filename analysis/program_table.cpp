#include "analysis/program_table.h"

#include <cstring>
#include <new>

void CopyText(char* field, std::size_t fieldSize, const char* text) {
  if (fieldSize == 0) return;
  const std::size_t n = strnlen(text, fieldSize - 1);
  std::memcpy(field, text, n);
  field[n] = '\0';
}

int CProgramTable::FindIndex(std::uint32_t programNumber, int* index) const {
  for (int i = 0; i < m_Count; ++i) {
    if (m_Entries[i]->program_number == programNumber) {
      if (index != nullptr) *index = i;
      return 1;
    }
  }
  return 0;
}

int CProgramTable::AddFromPat(const PatRecord& pat, int row) {
  if (row < 0 || row >= kMaxPatRows) return 0;
  const PatRecord::Row& r = pat.rows[row];
  int index = 0;
  if (FindIndex(r.program_number, &index)) {
    m_Entries[index]->pmt_pid = r.pmt_pid;
    m_Entries[index]->pat = pat;
    return 1;
  }
  if (m_Count + 1 > kMaxPrograms) return 0;
  std::unique_ptr<ProgramEntry> entry(new (std::nothrow) ProgramEntry());
  if (!entry) return 0;
  entry->program_number = r.program_number;
  entry->pmt_pid = r.pmt_pid;
  entry->pat = pat;
  m_Entries[m_Count++] = std::move(entry);
  return 1;
}

int CProgramTable::AttachPmt(const PmtRecord& pmt) {
  int index = 0;
  if (!FindIndex(pmt.program_number, &index)) return 0;
  ProgramEntry& entry = *m_Entries[index];
  const std::uint32_t count = pmt.stream_count < kMaxPmtRows ? pmt.stream_count : kMaxPmtRows;
  entry.stream_count = count;
  PmtRecord& stored = entry.pmt;
  stored.table_id = pmt.table_id;
  stored.section_syntax_indicator = pmt.section_syntax_indicator;
  stored.section_length = pmt.section_length;
  stored.version_number = pmt.version_number;
  stored.current_next_indicator = pmt.current_next_indicator;
  stored.section_number = pmt.section_number;
  stored.last_section_number = pmt.last_section_number;
  stored.program_number = pmt.program_number;
  stored.pcr_pid = pmt.pcr_pid;
  stored.program_info_length = pmt.program_info_length;
  stored.stream_count = count;
  for (std::uint32_t i = 0; i < count; ++i) {
    StreamEntry& to = stored.streams[i];
    const StreamEntry& from = pmt.streams[i];
    to.stream_type = from.stream_type;
    to.pid = from.pid;
    to.es_info_length = from.es_info_length;
    std::memset(to.language, 0, sizeof to.language);
    CopyText(to.language, sizeof to.language, from.language);
  }
  return 1;
}

void CProgramTable::SetServiceName(std::uint16_t programNumber, const char* text) {
  int index = 0;
  if (FindIndex(programNumber, &index)) CopyText(m_Entries[index]->name, kProgramNameSize, text);
}
