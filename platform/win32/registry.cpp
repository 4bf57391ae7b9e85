#include "platform/win32/registry.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/win32/registry_files.h"
#include "platform/win32/registry_hive.h"

// The hive's tree and text form, and its files, are units of their own; this
// file holds the handles and the calls.
using namespace platform_internal::registry;

namespace {

// ---------------------------------------------------------------------------
// Handles. A handle is the address of a KeyRef owned by the table; handles
// given to us are looked up, never dereferenced.

struct KeyRef {
  Hive hive = Hive::kCurrentUser;
  KeyPath path;
  REGSAM access = KEY_ALL_ACCESS;
};

struct KeyTable {
  std::mutex lock;
  std::unordered_map<HKEY, std::unique_ptr<KeyRef>> keys;  // guarded by lock
};

// Never destroyed, so threads still running at exit find it.
KeyTable& Keys() {
  static auto* table = new KeyTable;
  return *table;
}

bool PredefinedHive(HKEY key, Hive* hive) {
  if (key == HKEY_CLASSES_ROOT) {
    *hive = Hive::kClassesRoot;
  } else if (key == HKEY_CURRENT_USER) {
    *hive = Hive::kCurrentUser;
  } else if (key == HKEY_LOCAL_MACHINE) {
    *hive = Hive::kLocalMachine;
  } else {
    return false;
  }
  return true;
}

bool Lookup(HKEY key, KeyRef* ref) {
  Hive hive;
  if (PredefinedHive(key, &hive)) {
    *ref = KeyRef{hive, {}, KEY_ALL_ACCESS};
    return true;
  }
  KeyTable& table = Keys();
  std::lock_guard<std::mutex> guard(table.lock);
  const auto it = table.keys.find(key);
  if (it == table.keys.end()) return false;
  *ref = *it->second;
  return true;
}

HKEY NewHandle(KeyRef ref) {
  auto object = std::make_unique<KeyRef>(std::move(ref));
  const HKEY handle = reinterpret_cast<HKEY>(object.get());
  KeyTable& table = Keys();
  std::lock_guard<std::mutex> guard(table.lock);
  table.keys.emplace(handle, std::move(object));
  return handle;
}

constexpr REGSAM kGenericRead = 0x80000000;
constexpr REGSAM kGenericWrite = 0x40000000;
constexpr REGSAM kGenericAll = 0x10000000;

REGSAM Granted(REGSAM desired) {
  REGSAM granted = desired & KEY_ALL_ACCESS;
  if ((desired & (MAXIMUM_ALLOWED | kGenericAll)) != 0) granted |= KEY_ALL_ACCESS;
  if ((desired & kGenericRead) != 0) granted |= KEY_READ;
  if ((desired & kGenericWrite) != 0) granted |= KEY_WRITE;
  return granted;
}

bool Allows(const KeyRef& key, REGSAM right) { return (key.access & right) == right; }

// Nothing throws across the interface.
template <typename Body>
LONG Guarded(Body&& body) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return ERROR_NOT_ENOUGH_MEMORY;
  } catch (...) {
    return ERROR_GEN_FAILURE;
  }
}

LONG CopyName(std::string_view name, LPSTR out, DWORD* size) {
  if (*size <= name.size()) return ERROR_MORE_DATA;
  std::memcpy(out, name.data(), name.size());
  out[name.size()] = '\0';
  *size = static_cast<DWORD>(name.size());
  return ERROR_SUCCESS;
}

LONG CopyData(const RegValue& value, DWORD* type, BYTE* data, DWORD* dataSize) {
  if (type != nullptr) *type = value.type;
  const auto size = static_cast<DWORD>(value.data.size());
  if (data == nullptr) {
    if (dataSize != nullptr) *dataSize = size;
    return ERROR_SUCCESS;
  }
  const bool fits = *dataSize >= size;
  if (fits && size > 0) std::memcpy(data, value.data.data(), size);
  *dataSize = size;
  return fits ? ERROR_SUCCESS : ERROR_MORE_DATA;
}

LONG OpenKey(HKEY key, LPCSTR subKey, REGSAM desired, PHKEY result) {
  if (result == nullptr) return ERROR_INVALID_PARAMETER;
  *result = nullptr;
  return Guarded([&]() -> LONG {
    KeyRef ref;
    if (!Lookup(key, &ref)) return ERROR_INVALID_HANDLE;
    if (!AppendSubKey(subKey != nullptr ? subKey : "", false, &ref.path)) return ERROR_BAD_PATHNAME;
    ref.access = Granted(desired);
    const LONG found = ReadHive(ref.hive, [&](const CKeyNode& root) -> LONG {
      return Resolve(&root, ref.path) != nullptr ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
    });
    if (found != ERROR_SUCCESS) return found;
    *result = NewHandle(std::move(ref));
    return ERROR_SUCCESS;
  });
}

}  // namespace

LONG RegOpenKeyExA(HKEY key, LPCSTR subKey, DWORD /*options*/, REGSAM desired, PHKEY result) {
  return OpenKey(key, subKey, desired, result);
}

LONG RegOpenKeyA(HKEY key, LPCSTR subKey, PHKEY result) {
  return OpenKey(key, subKey, MAXIMUM_ALLOWED, result);
}

LONG RegCreateKeyExA(HKEY key, LPCSTR subKey, DWORD reserved, LPSTR /*keyClass*/, DWORD /*options*/,
                     REGSAM desired, void* /*security*/, PHKEY result, DWORD* disposition) {
  if (result == nullptr || reserved != 0) return ERROR_INVALID_PARAMETER;
  *result = nullptr;
  return Guarded([&]() -> LONG {
    KeyRef base;
    if (!Lookup(key, &base)) return ERROR_INVALID_HANDLE;
    KeyRef target = base;
    if (!AppendSubKey(subKey != nullptr ? subKey : "", false, &target.path)) {
      return ERROR_BAD_PATHNAME;
    }
    target.access = Granted(desired);
    const KeyPath below(target.path.begin() + static_cast<std::ptrdiff_t>(base.path.size()),
                        target.path.end());
    DWORD how = REG_OPENED_EXISTING_KEY;
    const LONG made = ChangeHive(base.hive, [&](CKeyNode* root, bool* changed) -> LONG {
      how = REG_OPENED_EXISTING_KEY;
      CKeyNode* parent = Resolve(root, base.path);
      if (parent == nullptr) return ERROR_KEY_DELETED;
      if (Resolve(parent, below) != nullptr) return ERROR_SUCCESS;
      if (!Allows(base, KEY_CREATE_SUB_KEY)) return ERROR_ACCESS_DENIED;
      EnsurePath(parent, below);
      how = REG_CREATED_NEW_KEY;
      *changed = true;
      return ERROR_SUCCESS;
    });
    if (made != ERROR_SUCCESS) return made;
    *result = NewHandle(std::move(target));
    if (disposition != nullptr) *disposition = how;
    return ERROR_SUCCESS;
  });
}

LONG RegCreateKeyA(HKEY key, LPCSTR subKey, PHKEY result) {
  return RegCreateKeyExA(key, subKey, 0, nullptr, REG_OPTION_NON_VOLATILE, MAXIMUM_ALLOWED, nullptr,
                         result, nullptr);
}

LONG RegCloseKey(HKEY key) {
  Hive hive;
  if (PredefinedHive(key, &hive)) return ERROR_SUCCESS;
  std::unique_ptr<KeyRef> closing;  // freed outside the lock
  KeyTable& table = Keys();
  std::lock_guard<std::mutex> guard(table.lock);
  const auto it = table.keys.find(key);
  if (it == table.keys.end()) return ERROR_INVALID_HANDLE;
  closing = std::move(it->second);
  table.keys.erase(it);
  return ERROR_SUCCESS;
}

LONG RegQueryValueExA(HKEY key, LPCSTR name, DWORD* reserved, DWORD* type, BYTE* data,
                      DWORD* dataSize) {
  return Guarded([&]() -> LONG {
    KeyRef ref;
    if (!Lookup(key, &ref)) return ERROR_INVALID_HANDLE;
    if (reserved != nullptr || (data != nullptr && dataSize == nullptr)) {
      return ERROR_INVALID_PARAMETER;
    }
    if (!Allows(ref, KEY_QUERY_VALUE)) return ERROR_ACCESS_DENIED;
    return ReadHive(ref.hive, [&](const CKeyNode& root) -> LONG {
      const CKeyNode* node = Resolve(&root, ref.path);
      const RegValue* value =
          node != nullptr ? FindValue(node, name != nullptr ? name : "") : nullptr;
      if (value == nullptr) return ERROR_FILE_NOT_FOUND;
      return CopyData(*value, type, data, dataSize);
    });
  });
}

LONG RegSetValueExA(HKEY key, LPCSTR name, DWORD /*reserved*/, DWORD type, const BYTE* data,
                    DWORD dataSize) {
  return Guarded([&]() -> LONG {
    KeyRef ref;
    if (!Lookup(key, &ref)) return ERROR_INVALID_HANDLE;
    if (data == nullptr && dataSize > 0) return ERROR_NOACCESS;
    if (!Allows(ref, KEY_SET_VALUE)) return ERROR_ACCESS_DENIED;
    RegValue value;
    value.name = name != nullptr ? name : "";
    value.type = type;
    if (IsText(type)) {
      const char* text = reinterpret_cast<const char*>(data);
      value.data = TextData(dataSize > 0 ? std::string_view(text, strnlen(text, dataSize)) : "");
    } else if (dataSize > 0) {
      value.data.assign(data, data + dataSize);
    }
    return ChangeHive(ref.hive, [&](CKeyNode* root, bool* changed) -> LONG {
      CKeyNode* node = Resolve(root, ref.path);
      if (node == nullptr) return ERROR_KEY_DELETED;
      *changed = StoreValue(node, value);
      return ERROR_SUCCESS;
    });
  });
}

LONG RegDeleteValueA(HKEY key, LPCSTR name) {
  return Guarded([&]() -> LONG {
    KeyRef ref;
    if (!Lookup(key, &ref)) return ERROR_INVALID_HANDLE;
    if (!Allows(ref, KEY_SET_VALUE)) return ERROR_ACCESS_DENIED;
    const std::string_view wanted = name != nullptr ? name : "";
    return ChangeHive(ref.hive, [&](CKeyNode* root, bool* changed) -> LONG {
      CKeyNode* node = Resolve(root, ref.path);
      if (node == nullptr) return ERROR_KEY_DELETED;
      const auto it =
          std::find_if(node->values.begin(), node->values.end(),
                       [&](const RegValue& value) { return SameName(value.name, wanted); });
      if (it == node->values.end()) return ERROR_FILE_NOT_FOUND;
      node->values.erase(it);
      *changed = true;
      return ERROR_SUCCESS;
    });
  });
}

LONG RegDeleteKeyA(HKEY key, LPCSTR subKey) {
  return Guarded([&]() -> LONG {
    KeyRef ref;
    if (!Lookup(key, &ref)) return ERROR_INVALID_HANDLE;
    if (subKey == nullptr) return ERROR_INVALID_PARAMETER;
    if (!AppendSubKey(subKey, false, &ref.path)) return ERROR_BAD_PATHNAME;
    if (ref.path.empty()) return ERROR_ACCESS_DENIED;
    const std::string leaf = ref.path.back();
    ref.path.pop_back();
    return ChangeHive(ref.hive, [&](CKeyNode* root, bool* changed) -> LONG {
      CKeyNode* parent = Resolve(root, ref.path);
      if (parent == nullptr) return ERROR_FILE_NOT_FOUND;
      const auto it = parent->subkeys.find(leaf);
      if (it == parent->subkeys.end()) return ERROR_FILE_NOT_FOUND;
      parent->subkeys.erase(it);
      *changed = true;
      return ERROR_SUCCESS;
    });
  });
}

LONG RegEnumKeyExA(HKEY key, DWORD index, LPSTR name, DWORD* nameSize, DWORD* reserved,
                   LPSTR keyClass, DWORD* classSize, FILETIME* lastWriteTime) {
  return Guarded([&]() -> LONG {
    KeyRef ref;
    if (!Lookup(key, &ref)) return ERROR_INVALID_HANDLE;
    if (name == nullptr || nameSize == nullptr || reserved != nullptr ||
        (keyClass != nullptr && classSize == nullptr)) {
      return ERROR_INVALID_PARAMETER;
    }
    if (!Allows(ref, KEY_ENUMERATE_SUB_KEYS)) return ERROR_ACCESS_DENIED;
    return ReadHive(ref.hive, [&](const CKeyNode& root) -> LONG {
      const CKeyNode* node = Resolve(&root, ref.path);
      if (node == nullptr || index >= node->subkeys.size()) return ERROR_NO_MORE_ITEMS;
      const LONG copied = CopyName(std::next(node->subkeys.begin(), index)->first, name, nameSize);
      if (copied != ERROR_SUCCESS) return copied;
      if (keyClass != nullptr) {
        if (*classSize > 0) keyClass[0] = '\0';
        *classSize = 0;
      }
      if (lastWriteTime != nullptr) *lastWriteTime = FILETIME{0, 0};
      return ERROR_SUCCESS;
    });
  });
}

LONG RegEnumValueA(HKEY key, DWORD index, LPSTR name, DWORD* nameSize, DWORD* reserved, DWORD* type,
                   BYTE* data, DWORD* dataSize) {
  return Guarded([&]() -> LONG {
    KeyRef ref;
    if (!Lookup(key, &ref)) return ERROR_INVALID_HANDLE;
    if (name == nullptr || nameSize == nullptr || reserved != nullptr ||
        (data != nullptr && dataSize == nullptr)) {
      return ERROR_INVALID_PARAMETER;
    }
    if (!Allows(ref, KEY_QUERY_VALUE)) return ERROR_ACCESS_DENIED;
    return ReadHive(ref.hive, [&](const CKeyNode& root) -> LONG {
      const CKeyNode* node = Resolve(&root, ref.path);
      if (node == nullptr || index >= node->values.size()) return ERROR_NO_MORE_ITEMS;
      const RegValue& value = node->values[index];
      const LONG copied = CopyName(value.name, name, nameSize);
      if (copied != ERROR_SUCCESS) return copied;
      return CopyData(value, type, data, dataSize);
    });
  });
}

LONG RegQueryInfoKeyA(HKEY key, LPSTR keyClass, DWORD* classSize, DWORD* reserved, DWORD* subKeys,
                      DWORD* maxSubKeyLength, DWORD* maxClassLength, DWORD* values,
                      DWORD* maxValueNameLength, DWORD* maxValueLength,
                      DWORD* securityDescriptorSize, FILETIME* lastWriteTime) {
  return Guarded([&]() -> LONG {
    KeyRef ref;
    if (!Lookup(key, &ref)) return ERROR_INVALID_HANDLE;
    if (reserved != nullptr || (keyClass != nullptr && classSize == nullptr)) {
      return ERROR_INVALID_PARAMETER;
    }
    if (!Allows(ref, KEY_QUERY_VALUE)) return ERROR_ACCESS_DENIED;
    return ReadHive(ref.hive, [&](const CKeyNode& root) -> LONG {
      const CKeyNode* node = Resolve(&root, ref.path);
      if (node == nullptr) return ERROR_FILE_NOT_FOUND;
      std::size_t longestKey = 0;
      std::size_t longestName = 0;
      std::size_t largest = 0;
      for (const auto& entry : node->subkeys) longestKey = std::max(longestKey, entry.first.size());
      for (const RegValue& value : node->values) {
        longestName = std::max(longestName, value.name.size());
        largest = std::max(largest, value.data.size());
      }
      const auto put = [](DWORD* out, std::size_t number) {
        if (out != nullptr) *out = static_cast<DWORD>(number);
      };
      if (keyClass != nullptr && *classSize > 0) keyClass[0] = '\0';
      put(classSize, 0);
      put(subKeys, node->subkeys.size());
      put(maxSubKeyLength, longestKey);
      put(maxClassLength, 0);
      put(values, node->values.size());
      put(maxValueNameLength, longestName);
      put(maxValueLength, largest);
      put(securityDescriptorSize, 0);
      if (lastWriteTime != nullptr) *lastWriteTime = FILETIME{0, 0};
      return ERROR_SUCCESS;
    });
  });
}

LONG RegQueryValueA(HKEY key, LPCSTR subKey, LPSTR data, LONG* dataSize) {
  if (data != nullptr && dataSize == nullptr) return ERROR_INVALID_PARAMETER;
  HKEY sub = nullptr;
  LONG result = RegOpenKeyExA(key, subKey, 0, KEY_QUERY_VALUE, &sub);
  if (result != ERROR_SUCCESS) return result;
  DWORD size = dataSize != nullptr && *dataSize > 0 ? static_cast<DWORD>(*dataSize) : 0;
  result = RegQueryValueExA(sub, nullptr, nullptr, nullptr, reinterpret_cast<BYTE*>(data),
                            dataSize != nullptr ? &size : nullptr);
  RegCloseKey(sub);
  if (result == ERROR_FILE_NOT_FOUND) {  // no default value: an empty text
    const bool fits = data == nullptr || size >= 1;
    if (data != nullptr && fits) data[0] = '\0';
    size = 1;
    result = fits ? ERROR_SUCCESS : ERROR_MORE_DATA;
  }
  if (dataSize != nullptr && (result == ERROR_SUCCESS || result == ERROR_MORE_DATA)) {
    *dataSize = static_cast<LONG>(size);
  }
  return result;
}

LONG RegSetValueA(HKEY key, LPCSTR subKey, DWORD type, LPCSTR data, DWORD /*dataSize*/) {
  if (type != REG_SZ || data == nullptr) return ERROR_INVALID_PARAMETER;
  HKEY sub = nullptr;
  LONG result = RegCreateKeyExA(key, subKey, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_SET_VALUE,
                                nullptr, &sub, nullptr);
  if (result != ERROR_SUCCESS) return result;
  result = RegSetValueExA(sub, nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(data),
                          static_cast<DWORD>(std::strlen(data) + 1));
  RegCloseKey(sub);
  return result;
}
