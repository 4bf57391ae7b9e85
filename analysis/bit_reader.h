// The bit reader of the H.264 parameter walk: a 32-bit word refilled by hand
// at fixed places, over bytes that end at the packet's end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <string>

class CParameterLog;

class CBitReader {
 public:
  // `source` is what follows the first word; bytes behind its end read as 0.
  CBitReader(std::uint32_t firstWord, std::span<const std::uint8_t> source, CParameterLog* log)
      : m_BitWord(firstWord), m_Source(source), m_Log(log) {}

  // Unsigned Exp-Golomb. A word with no 1 bit left ends the read: the value
  // is 0 and the word counts as used up.
  std::uint32_t ReadUe(const char* name);
  // `count` bits, most significant first; bits behind the word read as 0.
  std::uint32_t ReadBits(int count, const char* name);
  // Moves the unread bits to the top and fills the bytes behind them.
  void RefillBits();

  std::uint32_t BitWord() const { return m_BitWord; }
  std::uint32_t BitCount() const { return m_BitCount; }
  std::size_t SourcePosition() const { return m_Position; }

 private:
  std::uint32_t TakeBit();

  std::uint32_t m_BitWord;
  std::uint32_t m_BitCount = 0;  // empty low bits of m_BitWord, 0 to 32
  std::span<const std::uint8_t> m_Source;
  std::size_t m_Position = 0;
  CParameterLog* m_Log;
};

inline constexpr int kLogRows = 20;
inline constexpr std::size_t kLogRowChars = 40;

// The pin's H.264 parameter log: 20 lines of at most 40 characters, never
// cleared, filled by the worker and read by queries on other threads.
class CParameterLog {
 public:
  // Adds "name: value" while there is room; the value is returned.
  std::uint32_t LogValue(std::uint32_t value, const char* name);
  int Count() const;
  // Line `index`, empty outside the lines filled.
  std::string Line(int index) const;

 private:
  mutable std::mutex m_Lock;
  char m_Rows[kLogRows][kLogRowChars + 1] = {};
  int m_Count = 0;
};
