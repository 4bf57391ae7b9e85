// The resource compiler's reading side: the script's tokens, and a reader
// with one token of lookahead and the grammar pieces the statements share.
#pragma once

#include <cctype>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "rc_style_names.h"

namespace rc_script {

struct Token {
  enum Kind { kWord, kNumber, kString, kPunct, kError, kEnd } kind;
  std::string text;
  int line;
};

class Lexer {
 public:
  explicit Lexer(std::string source) : m_Source(std::move(source)) {}

  Token Next() {
    SkipSpaceAndComments();
    if (m_Pos >= m_Source.size()) return {Token::kEnd, "", m_Line};
    const char c = m_Source[m_Pos];
    if (c == '"') return String();
    if (std::isdigit(static_cast<unsigned char>(c))) return Run(Token::kNumber);
    if (std::isalpha(static_cast<unsigned char>(c)) || c == '_') return Run(Token::kWord);
    ++m_Pos;
    return {Token::kPunct, std::string(1, c), m_Line};
  }

 private:
  void SkipSpaceAndComments() {
    while (m_Pos < m_Source.size()) {
      const char c = m_Source[m_Pos];
      if (c == '\n') {
        ++m_Line;
        ++m_Pos;
        m_LineStart = true;
      } else if (std::isspace(static_cast<unsigned char>(c))) {
        ++m_Pos;
      } else if (c == '#' && m_LineStart) {
        SkipTo("\n");
      } else if (m_Source.compare(m_Pos, 2, "//") == 0) {
        SkipTo("\n");
      } else if (m_Source.compare(m_Pos, 2, "/*") == 0) {
        SkipTo("*/");
        m_Pos = m_Pos + 2 > m_Source.size() ? m_Source.size() : m_Pos + 2;
      } else {
        m_LineStart = false;
        return;
      }
    }
  }

  void SkipTo(const char* end) {
    const std::size_t found = m_Source.find(end, m_Pos);
    const std::size_t stop = found == std::string::npos ? m_Source.size() : found;
    for (std::size_t i = m_Pos; i < stop; ++i) m_Line += m_Source[i] == '\n';
    m_Pos = stop;
  }

  Token Run(Token::Kind kind) {
    const std::size_t start = m_Pos;
    while (m_Pos < m_Source.size() &&
           (std::isalnum(static_cast<unsigned char>(m_Source[m_Pos])) || m_Source[m_Pos] == '_')) {
      ++m_Pos;
    }
    return {kind, m_Source.substr(start, m_Pos - start), m_Line};
  }

  Token String() {
    const int line = m_Line;
    std::string text;
    ++m_Pos;
    while (m_Pos < m_Source.size()) {
      const char c = m_Source[m_Pos++];
      if (c == '"') {
        if (m_Pos < m_Source.size() && m_Source[m_Pos] == '"') {
          text += '"';
          ++m_Pos;
          continue;
        }
        return {Token::kString, text, line};
      }
      if (c == '\n') break;
      if (c == '\\' && m_Pos < m_Source.size()) {
        const char e = m_Source[m_Pos++];
        text += e == 'n' ? '\n' : e == 't' ? '\t' : e;
        continue;
      }
      text += c;
    }
    return {Token::kError, "unterminated string", line};
  }

  std::string m_Source;
  std::size_t m_Pos = 0;
  int m_Line = 1;
  bool m_LineStart = true;
};

// A fault in the script, reported as "file:line: why".
struct ScriptError {
  int line;
  std::string why;
};

inline bool IsBegin(const Token& t) {
  return (t.kind == Token::kWord && t.text == "BEGIN") || (t.kind == Token::kPunct && t.text == "{");
}
inline bool IsEnd(const Token& t) {
  return (t.kind == Token::kWord && t.text == "END") || (t.kind == Token::kPunct && t.text == "}");
}

// The 16-bit loader's options that may follow a resource's type; they mean
// nothing on a 32-bit platform.
inline bool IsMemoryOption(const Token& t) {
  static const char* const kOptions[] = {"DISCARDABLE", "MOVEABLE", "FIXED", "PURE", "IMPURE", "PRELOAD", "LOADONCALL"};
  if (t.kind != Token::kWord) return false;
  for (const char* option : kOptions) {
    if (t.text == option) return true;
  }
  return false;
}

inline std::optional<unsigned long> Number(const std::string& text, unsigned long max) {
  try {
    std::size_t used = 0;
    std::string digits = text;
    while (!digits.empty() && (digits.back() == 'L' || digits.back() == 'l')) digits.pop_back();
    const unsigned long value = std::stoul(digits, &used, 0);
    if (used != digits.size() || value > max) return std::nullopt;
    return value;
  } catch (...) {
    return std::nullopt;
  }
}

inline std::string Upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

// The lexer with one token of lookahead, and the small grammar pieces that
// the statements share.
class CScriptReader {
 public:
  explicit CScriptReader(std::string source) : m_Lexer(std::move(source)) {}

  Token Next() {
    Token t = m_Peeked ? std::move(*m_Peeked) : m_Lexer.Next();
    m_Peeked.reset();
    if (t.kind == Token::kError) throw ScriptError{t.line, t.text};
    return t;
  }

  const Token& Peek() {
    if (!m_Peeked) m_Peeked = m_Lexer.Next();
    if (m_Peeked->kind == Token::kError) throw ScriptError{m_Peeked->line, m_Peeked->text};
    return *m_Peeked;
  }

  bool Accept(const char* text) {
    const Token& t = Peek();
    if (t.kind == Token::kString || t.text != text) return false;
    Next();
    return true;
  }

  // `what` names the statement, so that a statement cut short says so.
  void Expect(const char* text, const std::string& what) {
    const Token t = Next();
    if (t.kind == Token::kString || t.text != text) throw Unexpected(t, what, std::string("'") + text + "'");
  }

  long long Integer(const std::string& what, long long min, long long max) {
    Token t = Next();
    const bool negative = t.kind == Token::kPunct && t.text == "-";
    if (negative) t = Next();
    const std::optional<unsigned long> value = t.kind == Token::kNumber ? Number(t.text, 0xFFFFFFFFul) : std::nullopt;
    if (!value) throw Unexpected(t, what, "a number");
    const long long result = negative ? -static_cast<long long>(*value) : static_cast<long long>(*value);
    if (result < min || result > max) throw ScriptError{t.line, what + ": " + std::to_string(result) + " out of range"};
    return result;
  }

  // A control's id: 16 bits, with -1 (IDC_STATIC) for none.
  unsigned ControlId(const std::string& what) {
    const Token& t = Peek();
    if (t.kind == Token::kWord && t.text == "IDC_STATIC") {
      Next();
      return 0xFFFF;
    }
    const long long id = Integer(what, -1, 0xFFFF);
    return id < 0 ? 0xFFFFu : static_cast<unsigned>(id);
  }

  std::string Text(const std::string& what) {
    const Token t = Next();
    if (t.kind != Token::kString) throw Unexpected(t, what, "a text in quotes");
    return t.text;
  }

  // Names and numbers joined by '|'; a NOT term takes its bits away.
  std::uint32_t Style(std::uint32_t start, const std::string& what) {
    std::uint32_t style = start;
    do {
      const bool clear = Accept("NOT");
      const std::uint32_t bits = StyleTerm(what);
      style = clear ? style & ~bits : style | bits;
    } while (Accept("|"));
    return style;
  }

  ScriptError Unexpected(const Token& t, const std::string& what, const std::string& wanted) const {
    if (t.kind == Token::kEnd || IsEnd(t) || IsBegin(t)) return {t.line, what + " cut short: " + wanted + " expected"};
    return {t.line, what + ": " + wanted + " expected, not '" + t.text + "'"};
  }

 private:
  std::uint32_t StyleTerm(const std::string& what) {
    if (Accept("(")) {
      const std::uint32_t bits = Style(0, what);
      Expect(")", what);
      return bits;
    }
    const Token t = Next();
    if (t.kind == Token::kNumber) {
      const std::optional<unsigned long> value = Number(t.text, 0xFFFFFFFFul);
      if (!value) throw ScriptError{t.line, "'" + t.text + "' is not a number of 32 bits"};
      return static_cast<std::uint32_t>(*value);
    }
    if (t.kind != Token::kWord || IsBegin(t) || IsEnd(t)) throw Unexpected(t, what, "a style");
    for (const RcStyleName& name : kRcStyleNames) {
      if (t.text == name.name) return name.value;
    }
    throw ScriptError{t.line, "unknown name '" + t.text + "'"};
  }

  Lexer m_Lexer;
  std::optional<Token> m_Peeked;
};

constexpr std::uint32_t kWsChild = 0x40000000;
constexpr std::uint32_t kWsVisible = 0x10000000;
constexpr std::uint32_t kWsTabStop = 0x00010000;
constexpr std::uint32_t kWsGroup = 0x00020000;
constexpr std::uint32_t kWsBorder = 0x00800000;
constexpr std::uint32_t kWsPopup = 0x80000000;
constexpr std::uint32_t kWsSysMenu = 0x00080000;
constexpr std::uint32_t kWsCaption = 0x00C00000;
constexpr std::uint32_t kDsSetFont = 0x0040;


}  // namespace rc_script
