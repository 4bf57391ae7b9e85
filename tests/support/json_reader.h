// A strict little JSON reader for tests, so they see what a script sees.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <optional>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/win32/codepage.h"

struct Json {
  enum Kind { kNull, kBool, kNumber, kString, kArray, kObject } kind = kNull;
  bool boolean = false;
  double number = 0;
  std::string text;
  std::vector<Json> items;
  std::map<std::string, Json> members;

  const Json& operator[](const std::string& key) const {
    static const Json missing;
    const auto it = members.find(key);
    EXPECT_NE(it, members.end()) << "no key " << key;
    return it == members.end() ? missing : it->second;
  }
  const Json& operator[](std::size_t i) const { return items.at(i); }
  long long Int() const { return static_cast<long long>(number); }
  bool Has(const std::string& key) const { return members.count(key) != 0; }
};

// Nothing for anything but exactly one JSON document in valid UTF-8.
class JsonReader {
 public:
  static std::optional<Json> Read(std::string_view text) {
    if (WideToAnsi(AnsiToWide(text)) != text) return std::nullopt;
    JsonReader reader{text};
    Json value;
    if (!reader.Value(value) || (reader.Take(""), reader.m_At != text.size())) return std::nullopt;
    return value;
  }

 private:
  explicit JsonReader(std::string_view text) : m_Text(text) {}

  // Skips blanks, then takes `word` if it comes next.
  bool Take(std::string_view word) {
    m_At = std::min(m_Text.find_first_not_of(" \t\r\n", m_At), m_Text.size());
    if (m_Text.substr(m_At, word.size()) != word) return false;
    m_At += word.size();
    return true;
  }
  // Takes what `pattern` matches right here.
  bool Match(const std::regex& pattern, std::cmatch& match) {
    if (!std::regex_search(m_Text.data() + m_At, m_Text.data() + m_Text.size(), match, pattern,
                           std::regex_constants::match_continuous)) {
      return false;
    }
    m_At += static_cast<std::size_t>(match.length());
    return true;
  }
  bool Value(Json& v) {
    if (Take("{")) {
      v.kind = Json::kObject;
      if (Take("}")) return true;
      do {
        std::string key;
        Json member;
        if (!Take("\"") || !String(key) || !Take(":") || !Value(member) ||
            !v.members.emplace(key, std::move(member)).second) {
          return false;
        }
      } while (Take(","));
      return Take("}");
    }
    if (Take("[")) {
      v.kind = Json::kArray;
      if (Take("]")) return true;
      do {
        if (!Value(v.items.emplace_back())) return false;
      } while (Take(","));
      return Take("]");
    }
    if (Take("\"")) return v.kind = Json::kString, String(v.text);
    if (Take("true")) return v.kind = Json::kBool, v.boolean = true, true;
    if (Take("false")) return v.kind = Json::kBool, true;
    if (Take("null")) return true;
    // The number grammar: strtod alone would take hex, "inf" or a leading '+'.
    static const std::regex kNumber(R"(-?(0|[1-9][0-9]*)(\.[0-9]+)?([eE][+-]?[0-9]+)?)");
    std::cmatch number;
    if (!Match(kNumber, number)) return false;
    return v.kind = Json::kNumber, v.number = std::strtod(number.str().c_str(), nullptr), true;
  }
  // Behind the opening quote. No test writes characters beyond the BMP, so
  // any surrogate escape is a fault of the writer.
  bool String(std::string& out) {
    static const std::regex kString(R"re(((?:[^"\\\x00-\x1f]|\\["\\/bfnrt]|\\u[0-9a-fA-F]{4})*)")re");
    std::cmatch match;
    if (!Match(kString, match)) return false;
    const std::string body = match[1];
    for (std::size_t i = 0; i < body.size(); ++i) {
      if (body[i] != '\\') {
        out += body[i];
      } else if (body[++i] != 'u') {
        out += "\"\\/\b\f\n\r\t"[std::string_view("\"\\/bfnrt").find(body[i])];
      } else {
        const unsigned long code = std::stoul(body.substr(i + 1, 4), nullptr, 16);
        if (code >= 0xD800 && code < 0xE000) return false;
        out += WideToAnsi(std::wstring(1, static_cast<wchar_t>(code)));
        i += 4;
      }
    }
    return true;
  }

  std::string_view m_Text;
  std::size_t m_At = 0;
};

