#include "platform/win32/registry_hive.h"

#include <cstdio>
#include <cstring>

namespace platform_internal::registry {

namespace {

// ---------------------------------------------------------------------------
// The text format (see the header).

constexpr std::string_view kHeader = "BRINDLET REGISTRY 1";
constexpr std::string_view kEnd = "END";
constexpr char kHexDigits[] = "0123456789abcdef";

void AppendQuoted(std::string* out, std::string_view text) {
  *out += '"';
  for (const char c : text) {
    const auto u = static_cast<unsigned char>(c);
    switch (c) {
      case '\\':
        *out += "\\\\";
        break;
      case '"':
        *out += "\\\"";
        break;
      case '\n':
        *out += "\\n";
        break;
      case '\r':
        *out += "\\r";
        break;
      case '\t':
        *out += "\\t";
        break;
      default:
        if (u < 0x20 || u == 0x7F) {
          *out += "\\x";
          *out += kHexDigits[u >> 4];
          *out += kHexDigits[u & 0x0F];
        } else {
          *out += c;
        }
    }
  }
  *out += '"';
}

void AppendHexBytes(std::string* out, const std::vector<BYTE>& data) {
  for (std::size_t i = 0; i < data.size(); ++i) {
    if (i > 0) *out += ',';
    *out += kHexDigits[data[i] >> 4];
    *out += kHexDigits[data[i] & 0x0F];
  }
}

void AppendValue(std::string* out, const RegValue& value) {
  if (value.name.empty()) {
    *out += '@';
  } else {
    AppendQuoted(out, value.name);
  }
  *out += '=';
  char number[32];
  if (value.type == REG_SZ) {
    AppendQuoted(out, TextOf(value));
  } else if (value.type == REG_EXPAND_SZ) {
    *out += "expand:";
    AppendQuoted(out, TextOf(value));
  } else if (value.type == REG_DWORD && value.data.size() == 4) {
    const DWORD number32 = value.data[0] | (DWORD{value.data[1]} << 8) |
                           (DWORD{value.data[2]} << 16) | (DWORD{value.data[3]} << 24);
    std::snprintf(number, sizeof number, "dword:%08x", number32);
    *out += number;
  } else {
    if (value.type == REG_BINARY) {
      *out += "hex:";
    } else {
      std::snprintf(number, sizeof number, "hex(%x):", value.type);
      *out += number;
    }
    AppendHexBytes(out, value.data);
  }
  *out += '\n';
}

void AppendKey(std::string* out, std::string* path, const CKeyNode& node) {
  *out += "\n[" + *path + "]\n";
  for (const RegValue& value : node.values) AppendValue(out, value);
  for (const auto& [name, child] : node.subkeys) {
    const std::size_t mark = path->size();
    if (!path->empty()) *path += '\\';
    *path += name;
    AppendKey(out, path, *child);
    path->resize(mark);
  }
}


std::string_view TrimBlanks(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool ParseHexNumber(std::string_view digits, DWORD* number) {
  if (digits.empty() || digits.size() > 8) return false;
  DWORD result = 0;
  for (const char c : digits) {
    const int digit = HexValue(c);
    if (digit < 0) return false;
    result = (result << 4) | static_cast<DWORD>(digit);
  }
  *number = result;
  return true;
}

bool ParseHexBytes(std::string_view text, std::vector<BYTE>* out) {
  text = TrimBlanks(text);
  while (!text.empty()) {
    if (text.size() < 2 || HexValue(text[0]) < 0 || HexValue(text[1]) < 0) return false;
    out->push_back(static_cast<BYTE>(HexValue(text[0]) * 16 + HexValue(text[1])));
    text = TrimBlanks(text.substr(2));
    if (text.empty()) break;
    if (text.front() != ',') return false;
    text = TrimBlanks(text.substr(1));
    if (text.empty()) return false;
  }
  return true;
}

// Reads a quoted text at the start of *text and moves past it.
bool ParseQuoted(std::string_view* text, std::string* out, const char** reason) {
  std::string_view rest = *text;
  if (rest.empty() || rest.front() != '"') {
    *reason = "expected a quoted text";
    return false;
  }
  rest.remove_prefix(1);
  while (!rest.empty() && rest.front() != '"') {
    char c = rest.front();
    rest.remove_prefix(1);
    if (c == '\\') {
      if (rest.empty()) break;
      const char escape = rest.front();
      rest.remove_prefix(1);
      switch (escape) {
        case '\\':
        case '"':
          c = escape;
          break;
        case 'n':
          c = '\n';
          break;
        case 'r':
          c = '\r';
          break;
        case 't':
          c = '\t';
          break;
        case 'x': {
          DWORD code = 0;
          if (rest.size() < 2 || !ParseHexNumber(rest.substr(0, 2), &code)) {
            *reason = "\\x needs two hex digits";
            return false;
          }
          rest.remove_prefix(2);
          c = static_cast<char>(code);
          break;
        }
        default:
          *reason = "unknown escape in text";
          return false;
      }
      if (c == '\0') {
        *reason = "zero byte in text";
        return false;
      }
    }
    *out += c;
  }
  if (rest.empty()) {
    *reason = "text without closing quote";
    return false;
  }
  rest.remove_prefix(1);
  *text = rest;
  return true;
}

bool TakePrefix(std::string_view* text, std::string_view prefix) {
  if (text->size() < prefix.size() || !SameName(text->substr(0, prefix.size()), prefix)) {
    return false;
  }
  text->remove_prefix(prefix.size());
  return true;
}

// The part after '=' of a value line.
bool ParseData(std::string_view text, RegValue* value, const char** reason) {
  *reason = "bad value data";
  if (!text.empty() && text.front() == '"') {
    value->type = REG_SZ;
  } else if (TakePrefix(&text, "expand:")) {
    value->type = REG_EXPAND_SZ;
  } else if (TakePrefix(&text, "dword:")) {
    DWORD number = 0;
    if (!ParseHexNumber(TrimBlanks(text), &number)) return false;
    value->type = REG_DWORD;
    value->data = {static_cast<BYTE>(number), static_cast<BYTE>(number >> 8),
                   static_cast<BYTE>(number >> 16), static_cast<BYTE>(number >> 24)};
    return true;
  } else if (TakePrefix(&text, "hex:")) {
    value->type = REG_BINARY;
    return ParseHexBytes(text, &value->data);
  } else if (TakePrefix(&text, "hex(")) {
    const std::size_t close = text.find("):");
    if (close == std::string_view::npos || !ParseHexNumber(text.substr(0, close), &value->type)) {
      return false;
    }
    return ParseHexBytes(text.substr(close + 2), &value->data);
  } else {
    *reason = "unknown value type";
    return false;
  }
  std::string content;
  if (!ParseQuoted(&text, &content, reason)) return false;
  if (!TrimBlanks(text).empty()) {
    *reason = "text after the closing quote";
    return false;
  }
  value->data = TextData(content);
  return true;
}

}  // namespace

std::string FormatHive(const CKeyNode& root, Hive hive) {
  std::string out(kHeader);
  out += "\n; ";
  out += HiveName(hive);
  out +=
      ". Keys in [brackets] with their values below them; END closes the file.\n"
      "; Rewritten whole on every change: edit it only while no program writes.\n";
  if (!root.values.empty()) {
    out += "\n[]\n";
    for (const RegValue& value : root.values) AppendValue(&out, value);
  }
  std::string path;
  for (const auto& [name, child] : root.subkeys) {
    path = name;
    AppendKey(&out, &path, *child);
  }
  out += "\nEND\n";
  return out;
}

bool ParseHive(std::string_view text, CKeyNode* root, ParseFailure* failure) {
  std::size_t lineNumber = 0;
  bool ended = false;
  CKeyNode* current = nullptr;
  const auto fail = [&](const char* reason) {
    failure->line = lineNumber;
    failure->reason = reason;
    return false;
  };
  std::size_t pos = 0;
  while (pos < text.size()) {
    std::size_t eol = text.find('\n', pos);
    if (eol == std::string_view::npos) eol = text.size();
    std::string_view line = text.substr(pos, eol - pos);
    pos = eol + 1;
    ++lineNumber;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);  // edited on Windows
    if (lineNumber == 1) {
      if (line != kHeader) return fail("not a registry hive");
      continue;
    }
    line = TrimBlanks(line);
    if (line.empty() || line.front() == ';' || line.front() == '#') continue;
    if (ended) return fail("text after END");
    if (line == kEnd) {
      ended = true;
    } else if (line.front() == '[') {
      KeyPath path;
      if (line.size() < 2 || line.back() != ']') return fail("key line without closing ]");
      if (!AppendSubKey(line.substr(1, line.size() - 2), true, &path)) return fail("bad key path");
      current = EnsurePath(root, path);
    } else if (line.front() == '"' || line.front() == '@') {
      if (current == nullptr) return fail("value before any [key] line");
      RegValue value;
      const char* reason = "";
      if (line.front() == '@') {
        line.remove_prefix(1);
      } else if (!ParseQuoted(&line, &value.name, &reason)) {
        return fail(reason);
      }
      line = TrimBlanks(line);
      if (line.empty() || line.front() != '=') return fail("value name without =");
      if (!ParseData(TrimBlanks(line.substr(1)), &value, &reason)) return fail(reason);
      StoreValue(current, std::move(value));
    } else {
      return fail("unexpected text");
    }
  }
  if (lineNumber == 0) {
    failure->line = 1;
    failure->reason = "empty file";
    return false;
  }
  return ended || fail("no END line, the file is cut short");
}

}  // namespace platform_internal::registry
