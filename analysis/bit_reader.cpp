#include "analysis/bit_reader.h"

#include <cstdio>

std::uint32_t CParameterLog::LogValue(std::uint32_t value, const char* name) {
  std::lock_guard<std::mutex> lock(m_Lock);
  if (m_Count < kLogRows) {
    std::snprintf(m_Rows[m_Count], sizeof m_Rows[m_Count], "%s: %d", name, static_cast<int>(value));
    ++m_Count;
  }
  return value;
}

int CParameterLog::Count() const {
  std::lock_guard<std::mutex> lock(m_Lock);
  return m_Count;
}

std::string CParameterLog::Line(int index) const {
  std::lock_guard<std::mutex> lock(m_Lock);
  if (index < 0 || index >= kLogRows) return {};
  return m_Rows[index];
}

std::uint32_t CBitReader::TakeBit() {
  if (m_BitCount >= 32) return 0;
  const std::uint32_t bit = m_BitWord >> 31;
  m_BitWord <<= 1;
  ++m_BitCount;
  return bit;
}

std::uint32_t CBitReader::ReadUe(const char* name) {
  // The empty bits are zeros, so a word of 0 has no 1 bit left to end the
  // prefix: the read stops there instead of spinning.
  if (m_BitWord == 0) {
    m_BitCount = 32;
    return m_Log != nullptr ? m_Log->LogValue(0, name) : 0;
  }
  int zeros = 0;
  while (TakeBit() == 0) ++zeros;
  std::uint32_t suffix = 0;
  for (int i = 0; i < zeros; ++i) suffix = (suffix << 1) | TakeBit();
  const std::uint32_t value =
      (zeros >= 32 ? 0u : (1u << zeros)) + suffix - 1u;  // 2^n + s - 1 in 32 bits
  return m_Log != nullptr ? m_Log->LogValue(value, name) : value;
}

std::uint32_t CBitReader::ReadBits(int count, const char* name) {
  std::uint32_t value = 0;
  for (int i = 0; i < count; ++i) value = (value << 1) | TakeBit();
  return m_Log != nullptr ? m_Log->LogValue(value, name) : value;
}

void CBitReader::RefillBits() {
  const std::uint32_t whole = m_BitCount / 8;
  const std::uint32_t rest = m_BitCount % 8;
  m_BitWord = m_BitCount >= 32 ? 0 : m_BitWord >> m_BitCount;
  for (std::uint32_t i = 0; i < whole; ++i) {
    const std::uint8_t byte = m_Position < m_Source.size() ? m_Source[m_Position] : 0;
    m_BitWord = (m_BitWord << 8) | byte;
    ++m_Position;
  }
  m_BitWord <<= rest;
  m_BitCount = rest;
}
