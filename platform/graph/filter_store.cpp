#include "platform/graph/filter_store.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <utility>

#include "platform/win32/codepage.h"
#include "platform/win32/registry.h"

namespace platform_internal {
namespace {

HRESULT FromWin32(LONG error) { return HRESULT_FROM_WIN32(static_cast<DWORD>(error)); }

class CKey {
 public:
  CKey() = default;
  CKey(const CKey&) = delete;
  CKey& operator=(const CKey&) = delete;
  ~CKey() {
    if (m_Key != nullptr) RegCloseKey(m_Key);
  }
  HKEY Get() const { return m_Key; }
  PHKEY Put() { return &m_Key; }

 private:
  HKEY m_Key = nullptr;
};

std::string InstancesPath(REFCLSID category) {
  return "CLSID\\" + GuidToString(category) + "\\Instance";
}

std::string EntryPath(REFCLSID category, const std::wstring& instance) {
  return InstancesPath(category) + "\\" + WideToAnsi(instance);
}

bool ValidInstance(const std::wstring& instance) {
  return !instance.empty() && instance.find(L'\\') == std::wstring::npos;
}

LONG SetText(HKEY key, const char* name, const std::string& text) {
  return RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                        static_cast<DWORD>(text.size() + 1));
}

LONG SetBinary(HKEY key, const char* name, const std::vector<BYTE>& data) {
  return RegSetValueExA(key, name, 0, REG_BINARY, data.data(), static_cast<DWORD>(data.size()));
}

// The value's bytes if it has the type; the size may change between the two
// calls when another process writes, hence the loop.
bool QueryValue(HKEY key, const char* name, DWORD wantedType, std::vector<BYTE>* data) {
  for (int attempt = 0; attempt < 4; ++attempt) {
    DWORD type = 0;
    DWORD size = 0;
    if (RegQueryValueExA(key, name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS) return false;
    if (type != wantedType) return false;
    data->resize(size);
    const LONG result = RegQueryValueExA(key, name, nullptr, &type, data->data(), &size);
    if (result == ERROR_MORE_DATA) continue;
    if (result != ERROR_SUCCESS || type != wantedType) return false;
    data->resize(size);
    return true;
  }
  return false;
}

bool QueryText(HKEY key, const char* name, std::string* text) {
  std::vector<BYTE> data;
  if (!QueryValue(key, name, REG_SZ, &data)) return false;
  text->assign(data.begin(), std::find(data.begin(), data.end(), BYTE{0}));
  return true;
}

std::vector<std::string> SubKeys(const std::string& path) {
  std::vector<std::string> names;
  CKey key;
  if (RegOpenKeyExA(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_READ, key.Put()) != ERROR_SUCCESS) {
    return names;
  }
  DWORD longest = 0;
  if (RegQueryInfoKeyA(key.Get(), nullptr, nullptr, nullptr, nullptr, &longest, nullptr, nullptr,
                       nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
    return names;
  }
  std::string buffer(longest + 1, '\0');
  for (DWORD index = 0;;) {
    DWORD size = static_cast<DWORD>(buffer.size());
    const LONG result =
        RegEnumKeyExA(key.Get(), index, buffer.data(), &size, nullptr, nullptr, nullptr, nullptr);
    if (result == ERROR_MORE_DATA) {
      // Another process added a longer name meanwhile; make room and retry.
      buffer.resize(buffer.size() * 2);
      continue;
    }
    if (result != ERROR_SUCCESS) break;
    names.emplace_back(buffer.data(), size);
    ++index;
  }
  return names;
}

// The categories a search walks, in order, each once.
std::vector<CLSID> SearchedCategories(DWORD minimumMerit) {
  std::vector<CLSID> categories{CLSID_LegacyAmFilterCategory};
  const std::string listPath = InstancesPath(kFilterCategoryList);
  for (const std::string& name : SubKeys(listPath)) {
    CLSID category{};
    if (!GuidFromString(name.c_str(), &category)) continue;
    if (std::find(categories.begin(), categories.end(), category) != categories.end()) continue;
    CKey key;
    if (RegOpenKeyExA(HKEY_CLASSES_ROOT, (listPath + "\\" + name).c_str(), 0, KEY_READ,
                      key.Put()) != ERROR_SUCCESS) {
      continue;
    }
    // A category's merit keeps its filters out of searches that ask for more,
    // so that devices listed with a low merit are not tried by merit alone.
    std::vector<BYTE> merit;
    if (QueryValue(key.Get(), "Merit", REG_DWORD, &merit) && merit.size() == 4) {
      DWORD value = 0;
      std::memcpy(&value, merit.data(), sizeof value);
      if (value < minimumMerit) continue;
    }
    categories.push_back(category);
  }
  return categories;
}

}  // namespace

std::wstring InstanceNameOf(REFCLSID clsid) { return AnsiToWide(GuidToString(clsid)); }

HRESULT WriteFilterEntry(const FilterEntry& entry) {
  if (!ValidInstance(entry.instance)) return E_INVALIDARG;
  const std::string path = EntryPath(entry.category, entry.instance);
  LONG result = RegDeleteKeyA(HKEY_CLASSES_ROOT, path.c_str());
  if (result != ERROR_SUCCESS && result != ERROR_FILE_NOT_FOUND) return FromWin32(result);
  CKey key;
  result = RegCreateKeyExA(HKEY_CLASSES_ROOT, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                           KEY_WRITE, nullptr, key.Put(), nullptr);
  if (result != ERROR_SUCCESS) return FromWin32(result);
  result = SetText(key.Get(), "CLSID", GuidToString(entry.clsid));
  if (result == ERROR_SUCCESS) result = SetText(key.Get(), "FriendlyName", WideToAnsi(entry.name));
  if (result == ERROR_SUCCESS)
    result = SetBinary(key.Get(), "FilterData", EncodeFilterData(entry.data));
  if (result != ERROR_SUCCESS) {
    // Leave no entry behind that a search would have to pass over.
    RegDeleteKeyA(HKEY_CLASSES_ROOT, path.c_str());
    return FromWin32(result);
  }
  return S_OK;
}

HRESULT DeleteFilterEntry(REFCLSID category, const std::wstring& instance) {
  if (!ValidInstance(instance)) return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
  const LONG result = RegDeleteKeyA(HKEY_CLASSES_ROOT, EntryPath(category, instance).c_str());
  return result == ERROR_SUCCESS ? S_OK : FromWin32(result);
}

HRESULT ReadFilterEntry(REFCLSID category, const std::wstring& instance, FilterEntry* entry) {
  if (!ValidInstance(instance)) return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
  CKey key;
  const LONG result = RegOpenKeyExA(HKEY_CLASSES_ROOT, EntryPath(category, instance).c_str(), 0,
                                    KEY_READ, key.Put());
  if (result != ERROR_SUCCESS) return FromWin32(result);
  FilterEntry read;
  read.category = category;
  read.instance = instance;
  std::string text;
  if (!QueryText(key.Get(), "CLSID", &text) || !GuidFromString(text.c_str(), &read.clsid)) {
    return E_FAIL;
  }
  if (QueryText(key.Get(), "FriendlyName", &text)) read.name = AnsiToWide(text);
  std::vector<BYTE> blob;
  if (!QueryValue(key.Get(), "FilterData", REG_BINARY, &blob)) return E_FAIL;
  auto data = DecodeFilterData(blob);
  if (!data) return E_FAIL;
  read.data = std::move(*data);
  *entry = std::move(read);
  return S_OK;
}

HRESULT WriteFilterData(REFCLSID category, const std::wstring& instance, const FilterData& data) {
  if (!ValidInstance(instance)) return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
  CKey key;
  LONG result = RegOpenKeyExA(HKEY_CLASSES_ROOT, EntryPath(category, instance).c_str(), 0,
                              KEY_SET_VALUE, key.Put());
  if (result == ERROR_SUCCESS) result = SetBinary(key.Get(), "FilterData", EncodeFilterData(data));
  return result == ERROR_SUCCESS ? S_OK : FromWin32(result);
}

HRESULT WriteCategory(REFCLSID category, DWORD merit, const std::wstring& description) {
  const std::string path =
      InstancesPath(kFilterCategoryList) + "\\" + GuidToString(category);
  CKey key;
  LONG result = RegCreateKeyExA(HKEY_CLASSES_ROOT, path.c_str(), 0, nullptr,
                                REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr, key.Put(), nullptr);
  if (result == ERROR_SUCCESS) result = SetText(key.Get(), "CLSID", GuidToString(category));
  if (result == ERROR_SUCCESS) result = SetText(key.Get(), "FriendlyName", WideToAnsi(description));
  if (result == ERROR_SUCCESS) {
    result = RegSetValueExA(key.Get(), "Merit", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&merit),
                            sizeof merit);
  }
  return result == ERROR_SUCCESS ? S_OK : FromWin32(result);
}

std::vector<FilterEntry> FindFilters(const FilterSearch& search) {
  std::vector<FilterEntry> found;
  std::set<CLSID, GuidLess> seen;
  for (const CLSID& category : SearchedCategories(search.query.minimumMerit)) {
    for (const std::string& name : SubKeys(InstancesPath(category))) {
      FilterEntry entry;
      if (FAILED(ReadFilterEntry(category, AnsiToWide(name), &entry))) continue;
      if (!FilterDataMatches(entry.data, search)) continue;
      if (!seen.insert(entry.clsid).second) continue;
      found.push_back(std::move(entry));
    }
  }
  std::stable_sort(found.begin(), found.end(), [](const FilterEntry& a, const FilterEntry& b) {
    return a.data.merit > b.data.merit;
  });
  return found;
}

}  // namespace platform_internal
