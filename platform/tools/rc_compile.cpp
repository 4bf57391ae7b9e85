// The stand-in's resource compiler: reads a module's resource script and
// writes a C++ source that defines the module's PlatformResources table
// (platform/win32/resources.h). It takes the string tables; other resources
// (the version block, dialogs) are passed over by their BEGIN/END nesting.
//
//   rc_compile SCRIPT.rc OUT.cpp
//
// The script is the one a Windows build compiles: // and /* */ comments,
// preprocessor lines (skipped), STRINGTABLE [options] BEGIN|{ id "text" ...
// END|}, ids in decimal or 0x hex, "" for a quote inside text and the C
// escapes \n \t \\ \".
#include <cctype>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace {

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

bool IsBegin(const Token& t) { return (t.kind == Token::kWord && t.text == "BEGIN") || t.text == "{"; }
bool IsEnd(const Token& t) { return (t.kind == Token::kWord && t.text == "END") || t.text == "}"; }

std::optional<unsigned long> Number(const std::string& text) {
  try {
    std::size_t used = 0;
    std::string digits = text;
    while (!digits.empty() && (digits.back() == 'L' || digits.back() == 'l')) digits.pop_back();
    const unsigned long value = std::stoul(digits, &used, 0);
    if (used != digits.size() || value > 0xFFFF) return std::nullopt;
    return value;
  } catch (...) {
    return std::nullopt;
  }
}

std::string CQuote(const std::string& text) {
  std::string out = "\"";
  for (const unsigned char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20 || c == 0x7F) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\%03o", c);
      out += escape;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out + "\"";
}

int Fail(const std::string& script, int line, const std::string& why) {
  std::cerr << script << ":" << line << ": " << why << "\n";
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: rc_compile SCRIPT.rc OUT.cpp\n";
    return 2;
  }
  const std::string script = argv[1];
  std::ifstream in(script, std::ios::binary);
  if (!in) {
    std::cerr << script << ": cannot be read\n";
    return 1;
  }
  std::ostringstream source;
  source << in.rdbuf();
  Lexer lexer(source.str());

  std::map<unsigned long, std::string> strings;
  int depth = 0;  // inside another resource's BEGIN/END
  for (Token t = lexer.Next(); t.kind != Token::kEnd; t = lexer.Next()) {
    if (t.kind == Token::kError) return Fail(script, t.line, t.text);
    if (IsBegin(t)) {
      ++depth;
      continue;
    }
    if (IsEnd(t)) {
      if (--depth < 0) return Fail(script, t.line, "END without BEGIN");
      continue;
    }
    if (depth != 0 || t.kind != Token::kWord || t.text != "STRINGTABLE") continue;
    // Options such as LANGUAGE or DISCARDABLE come before the block.
    Token open = lexer.Next();
    while (open.kind != Token::kEnd && !IsBegin(open)) open = lexer.Next();
    if (open.kind == Token::kEnd) return Fail(script, t.line, "STRINGTABLE without BEGIN");
    for (Token id = lexer.Next(); !IsEnd(id); id = lexer.Next()) {
      if (id.kind == Token::kEnd) return Fail(script, t.line, "STRINGTABLE without END");
      const std::optional<unsigned long> number = id.kind == Token::kNumber ? Number(id.text) : std::nullopt;
      if (!number) return Fail(script, id.line, "a string id must be a number of 16 bits, not '" + id.text + "'");
      Token text = lexer.Next();
      if (text.text == ",") text = lexer.Next();
      if (text.kind == Token::kError) return Fail(script, text.line, text.text);
      if (text.kind != Token::kString) return Fail(script, text.line, "string " + id.text + " has no text");
      if (!strings.emplace(*number, text.text).second) return Fail(script, id.line, "string " + id.text + " twice");
    }
  }
  if (depth != 0) return Fail(script, 0, "BEGIN without END");

  std::ostringstream out;
  out << "// Made by rc_compile from " << script << "; edit the script, not this.\n"
      << "#include \"platform/win32/resources.h\"\n\nnamespace {\n"
      << "const PlatformStringResource kStrings[] = {\n";
  for (const auto& [id, text] : strings) out << "    {" << id << ", " << CQuote(text) << "},\n";
  if (strings.empty()) out << "    {0, nullptr},\n";
  out << "};\n}  // namespace\n\n"
      << "extern \"C\" __attribute__((visibility(\"default\"))) const PlatformModuleResources PlatformResources = {\n"
      << "    kStrings, " << strings.size() << ", nullptr, 0, nullptr, 0};\n";
  std::ofstream file(argv[2], std::ios::binary | std::ios::trunc);
  file << out.str();
  if (!file.flush()) {
    std::cerr << argv[2] << ": cannot be written\n";
    return 1;
  }
  return 0;
}
