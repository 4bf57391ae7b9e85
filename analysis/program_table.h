// The programs of the file: what the PAT lists, each with the stream list of
// its last accepted PMT and the name the SDT gives it.
#pragma once

#include <cstdint>
#include <memory>

inline constexpr int kMaxPrograms = 500;
inline constexpr int kMaxPatRows = 252;
inline constexpr int kMaxPmtRows = 202;
inline constexpr std::size_t kLanguageSize = 32;
inline constexpr std::size_t kProgramNameSize = 36;

struct StreamEntry {
  std::uint32_t stream_type;
  std::uint32_t pid;
  std::uint32_t es_info_length;
  char language[kLanguageSize];  // zero-terminated; the ISO 639 descriptor less its last byte
};

struct PatRecord {
  std::uint32_t table_id;
  std::uint32_t section_syntax_indicator;
  std::uint32_t section_length;
  std::uint32_t version_number;
  std::uint32_t current_next_indicator;
  std::uint32_t section_number;
  std::uint32_t last_section_number;
  std::uint32_t transport_stream_id;
  std::uint32_t program_count;
  struct Row {
    std::uint32_t program_number;
    std::uint32_t pmt_pid;
  } rows[kMaxPatRows];
};

struct PmtRecord {
  std::uint32_t table_id;
  std::uint32_t section_syntax_indicator;
  std::uint32_t section_length;  // held to 180 at most
  std::uint32_t version_number;
  std::uint32_t current_next_indicator;
  std::uint32_t section_number;
  std::uint32_t last_section_number;
  std::uint32_t program_number;
  std::uint32_t pcr_pid;
  std::uint32_t program_info_length;
  std::uint32_t stream_count;
  StreamEntry streams[kMaxPmtRows];
};

struct ProgramEntry {
  std::uint32_t program_number;
  std::uint32_t pmt_pid;
  std::uint32_t stream_count;
  char name[kProgramNameSize];
  PatRecord pat;
  PmtRecord pmt;
};

class CProgramTable {
 public:
  // Stores or updates the program of PAT row `row`. 1 if stored.
  int AddFromPat(const PatRecord& pat, int row);
  // Replaces the stream list of the record's program. 1 if it is held.
  int AttachPmt(const PmtRecord& pmt);
  // 1 and the slot of the first entry with this number, else 0.
  int FindIndex(std::uint32_t programNumber, int* index) const;
  // Names the first entry with this number; the text is cut to the field.
  void SetServiceName(std::uint16_t programNumber, const char* text);

  int Count() const { return m_Count; }
  const ProgramEntry& Entry(int index) const { return *m_Entries[index]; }

 private:
  std::unique_ptr<ProgramEntry> m_Entries[kMaxPrograms];
  int m_Count = 0;
};

// Copies a zero-terminated text into a fixed field, cut to fit.
void CopyText(char* field, std::size_t fieldSize, const char* text);
