// The registry's hives as the stand-in holds them: a tree of keys and typed
// values built afresh from a hive file on every call, and the text form of
// that file (described in registry.h), written and read back.
#pragma once

#include <algorithm>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/win32/registry.h"

namespace platform_internal::registry {

// ---------------------------------------------------------------------------
// Keys and values in memory. Every call builds the tree from the hive file
// and drops it afterwards; nothing is cached between calls.

enum class Hive { kClassesRoot, kCurrentUser, kLocalMachine };

inline const char* HiveName(Hive hive) {
  switch (hive) {
    case Hive::kClassesRoot:
      return "HKEY_CLASSES_ROOT";
    case Hive::kCurrentUser:
      return "HKEY_CURRENT_USER";
    case Hive::kLocalMachine:
      break;
  }
  return "HKEY_LOCAL_MACHINE";
}

// The platform folds case by upper-casing, which decides where '_' sorts
// among letters; only ASCII is folded here.
inline unsigned char UpperCase(char c) {
  const auto u = static_cast<unsigned char>(c);
  return (u >= 'a' && u <= 'z') ? static_cast<unsigned char>(u - ('a' - 'A')) : u;
}

struct NoCaseLess {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                        [](char x, char y) { return UpperCase(x) < UpperCase(y); });
  }
};

inline bool SameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return UpperCase(x) == UpperCase(y);
         });
}

inline bool IsText(DWORD type) { return type == REG_SZ || type == REG_EXPAND_SZ; }

struct RegValue {
  std::string name;  // empty for the default value
  DWORD type = REG_NONE;
  std::vector<BYTE> data;  // text types end in exactly one zero
};

struct CKeyNode {
  std::vector<RegValue> values;                                          // creation order
  std::map<std::string, std::unique_ptr<CKeyNode>, NoCaseLess> subkeys;  // names as created
};

using KeyPath = std::vector<std::string>;

template <typename Node>
Node* Resolve(Node* node, const KeyPath& path) {
  for (const std::string& name : path) {
    const auto it = node->subkeys.find(name);
    if (it == node->subkeys.end()) return nullptr;
    node = it->second.get();
  }
  return node;
}

inline CKeyNode* EnsurePath(CKeyNode* node, const KeyPath& path) {
  for (const std::string& name : path) {
    auto it = node->subkeys.find(name);
    if (it == node->subkeys.end()) {
      it = node->subkeys.emplace(name, std::make_unique<CKeyNode>()).first;
    }
    node = it->second.get();
  }
  return node;
}

template <typename Node>
auto FindValue(Node* node, std::string_view name) -> decltype(&node->values[0]) {
  for (auto& value : node->values) {
    if (SameName(value.name, name)) return &value;
  }
  return nullptr;
}

// Replaces the data of a value of that name, keeping its place and the case
// of its name, or appends it. False when it was there unchanged.
inline bool StoreValue(CKeyNode* node, RegValue value) {
  RegValue* existing = FindValue(node, value.name);
  if (existing == nullptr) {
    node->values.push_back(std::move(value));
    return true;
  }
  if (existing->type == value.type && existing->data == value.data) return false;
  existing->type = value.type;
  existing->data = std::move(value.data);
  return true;
}

inline std::vector<BYTE> TextData(std::string_view text) {
  std::vector<BYTE> data(text.begin(), text.end());
  data.push_back(0);
  return data;
}

inline std::string_view TextOf(const RegValue& value) {
  return {reinterpret_cast<const char*>(value.data.data()), value.data.size() - 1};
}

inline bool IsKeyName(std::string_view name) {
  return !name.empty() && std::none_of(name.begin(), name.end(), [](char c) {
    const auto u = static_cast<unsigned char>(c);
    return u < 0x20 || u == 0x7F;
  });
}

// Appends the components of a relative path, as the header describes.
inline bool AppendSubKey(std::string_view text, bool fromFile, KeyPath* path) {
  if (!text.empty() && text.front() == '\\') return false;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\\', start);
    if (end == std::string_view::npos) end = text.size();
    const std::string_view name = text.substr(start, end - start);
    if (name.empty()) {
      if (fromFile) return false;  // we never write those; the file is damaged
    } else {
      if (!IsKeyName(name)) return false;
      path->emplace_back(name);
    }
    start = end + 1;
  }
  if (fromFile && !text.empty() && text.back() == '\\') return false;
  return path->size() <= kRegMaxKeyDepth;
}

// ---------------------------------------------------------------------------
// The text form.

// The whole file of one hive.
std::string FormatHive(const CKeyNode& root, Hive hive);

struct ParseFailure {
  std::size_t line = 0;
  const char* reason = "";
};

// Fills `root` from a hive file; false, with the line and the reason, for a
// file that cannot be read as a whole.
bool ParseHive(std::string_view text, CKeyNode* root, ParseFailure* failure);

}  // namespace platform_internal::registry
