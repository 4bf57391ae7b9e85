#include "analysis/psi_section.h"

#include <array>

namespace {

constexpr std::array<std::uint32_t, 256> MakeCrcTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t crc = i << 24;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 0x80000000u) != 0 ? (crc << 1) ^ 0x04C11DB7u : crc << 1;
    table[i] = crc;
  }
  return table;
}

constexpr std::array<std::uint32_t, 256> kCrcTable = MakeCrcTable();

}  // namespace

std::uint32_t Crc32Mpeg2(std::span<const std::uint8_t> data) {
  std::uint32_t crc = 0xFFFFFFFFu;
  for (std::uint8_t byte : data) crc = (crc << 8) ^ kCrcTable[((crc >> 24) ^ byte) & 0xFF];
  return crc;
}

bool CrcIsValid(std::span<const std::uint8_t> section, std::size_t totalLength) {
  if (totalLength == 0 || totalLength > section.size()) return false;
  return Crc32Mpeg2(section.first(totalLength)) == 0;
}

SectionHeader ReadSectionHeader(std::span<const std::uint8_t> section) {
  const CSectionReader r(section);
  SectionHeader h;
  h.complete = r.Has(0, 8);
  h.table_id = r.U8(0);
  h.section_syntax_indicator = r.U8(1) >> 7;
  h.section_length = r.Length12(1);
  h.id_extension = r.U16(3);
  h.version_number = (r.U8(5) >> 1) & 0x1F;
  h.current_next_indicator = r.U8(5) & 1;
  h.section_number = r.U8(6);
  h.last_section_number = r.U8(7);
  return h;
}

bool PassesCommonSectionTest(const SectionHeader& h) {
  return h.complete && h.section_length <= kMaxSectionLength &&
         h.section_length >= kMinSectionLength && h.last_section_number >= h.section_number &&
         h.section_syntax_indicator != 0;
}
