// A small JSON writer for the tool's reports.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// `text` as a JSON string literal with its quotes: control characters,
// quotes and backslashes escaped, invalid UTF-8 replaced by U+FFFD.
std::string JsonQuote(std::string_view text);

// Writes one JSON document, two blanks an indent. An inline container, and
// everything in it, stays on one line.
class CJsonWriter {
 public:
  explicit CJsonWriter(std::ostream& out) : m_Out(out) {}

  CJsonWriter& Key(std::string_view key) {
    BeforeValue();
    m_Out << JsonQuote(key) << ": ";
    m_AfterKey = true;
    return *this;
  }
  void BeginObject(bool inlined = false) { Open('{', inlined); }
  void EndObject() { Close('}'); }
  void BeginArray(bool inlined = false) { Open('[', inlined); }
  void EndArray() { Close(']'); }
  void String(std::string_view text) {
    BeforeValue();
    m_Out << JsonQuote(text);
  }
  void Number(std::int64_t value) {
    BeforeValue();
    m_Out << value;
  }
  template <class T>
  void NumberOrNull(const std::optional<T>& value) {
    if (value) {
      Number(*value);
    } else {
      Null();
    }
  }
  void Bool(bool value) {
    BeforeValue();
    m_Out << (value ? "true" : "false");
  }
  void Null() {
    BeforeValue();
    m_Out << "null";
  }

 private:
  struct Level {
    bool inlined;
    bool empty;
  };

  void BeforeValue() {
    if (std::exchange(m_AfterKey, false) || m_Levels.empty()) return;
    Level& level = m_Levels.back();
    if (!level.empty) m_Out << (level.inlined ? ", " : ",");
    if (!level.inlined) NewLine(m_Levels.size());
    level.empty = false;
  }
  void Open(char bracket, bool inlined) {
    BeforeValue();
    m_Out << bracket;
    m_Levels.push_back({inlined || (!m_Levels.empty() && m_Levels.back().inlined), true});
  }
  void Close(char bracket) {
    const Level level = m_Levels.back();
    m_Levels.pop_back();
    if (!level.empty && !level.inlined) NewLine(m_Levels.size());
    m_Out << bracket;
  }
  void NewLine(std::size_t depth) { m_Out << "\n" << std::string(2 * depth, ' '); }

  std::ostream& m_Out;
  std::vector<Level> m_Levels;
  bool m_AfterKey = false;
};
