#include "apps/brindlet/json_writer.h"

#include <cstdio>

#include "platform/win32/codepage.h"

std::string JsonQuote(std::string_view text) {
  std::string out = "\"";
  // The platform's conversion turns every invalid UTF-8 subpart into U+FFFD.
  for (const wchar_t c : AnsiToWide(text)) {
    switch (c) {
      case L'"': out += "\\\""; break;
      case L'\\': out += "\\\\"; break;
      case L'\b': out += "\\b"; break;
      case L'\f': out += "\\f"; break;
      case L'\n': out += "\\n"; break;
      case L'\r': out += "\\r"; break;
      case L'\t': out += "\\t"; break;
      default:
        if (c < 0x20 || c == 0x7F) {
          char escape[8];
          std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
          out += escape;
        } else {
          out += WideToAnsi(std::wstring_view(&c, 1));
        }
    }
  }
  return out + "\"";
}
