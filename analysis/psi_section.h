// PSI sections: the CRC-32 of MPEG-2 sections, the common header test, and a
// bounded view of the header fields.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

inline constexpr std::uint16_t kMaxSectionLength = 1021;
inline constexpr std::uint16_t kMinSectionLength = 5;
// Bytes of section that fit behind the packet header and a pointer_field.
inline constexpr std::size_t kSectionBytesInPacket = 183;
inline constexpr std::size_t kSectionOffsetInPacket = 5;

// True if the CRC_32 of the section's first `totalLength` bytes, CRC
// included, leaves the register at 0. A length of 0, or one longer than the
// bytes at hand, is invalid.
bool CrcIsValid(std::span<const std::uint8_t> section, std::size_t totalLength);
// The register after a run over `data`, preset to all ones.
std::uint32_t Crc32Mpeg2(std::span<const std::uint8_t> data);

// The eight header bytes; zero where the bytes at hand end early.
struct SectionHeader {
  std::uint32_t table_id = 0;
  std::uint32_t section_syntax_indicator = 0;
  std::uint32_t section_length = 0;
  std::uint32_t id_extension = 0;  // transport_stream_id or program_number
  std::uint32_t version_number = 0;
  std::uint32_t current_next_indicator = 0;
  std::uint32_t section_number = 0;
  std::uint32_t last_section_number = 0;
  bool complete = false;  // all eight bytes were there
};

SectionHeader ReadSectionHeader(std::span<const std::uint8_t> section);

// section_length 5 to 1021, last_section_number not below section_number,
// syntax indicator set. Headers cut short fail.
bool PassesCommonSectionTest(const SectionHeader& header);

// The seven header fields that every parsed record keeps.
template <class Record>
void CopyHeaderFields(const SectionHeader& h, Record& record) {
  record.table_id = h.table_id;
  record.section_syntax_indicator = h.section_syntax_indicator;
  record.section_length = h.section_length;
  record.version_number = h.version_number;
  record.current_next_indicator = h.current_next_indicator;
  record.section_number = h.section_number;
  record.last_section_number = h.last_section_number;
}

// Big-endian reads that answer 0 behind the end of the bytes at hand.
class CSectionReader {
 public:
  explicit CSectionReader(std::span<const std::uint8_t> bytes) : m_Bytes(bytes) {}
  bool Has(std::size_t offset, std::size_t count = 1) const {
    return offset <= m_Bytes.size() && count <= m_Bytes.size() - offset;
  }
  std::uint8_t U8(std::size_t offset) const { return Has(offset) ? m_Bytes[offset] : 0; }
  std::uint16_t U16(std::size_t offset) const {
    return static_cast<std::uint16_t>(U8(offset) << 8 | U8(offset + 1));
  }
  // 13-bit PID and 12-bit length fields.
  std::uint16_t Pid(std::size_t offset) const { return U16(offset) & 0x1FFF; }
  std::uint16_t Length12(std::size_t offset) const { return U16(offset) & 0x0FFF; }
  std::size_t Size() const { return m_Bytes.size(); }

 private:
  std::span<const std::uint8_t> m_Bytes;
};
