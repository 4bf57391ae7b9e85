#include "registration/file_types.h"

#include <cstring>

#include "control/brindlet_ids.h"
#include "host/text_convert.h"
#include "platform/win32/registry.h"

namespace {

HINSTANCE g_Module = nullptr;

constexpr char kExtensionsKey[] = "Media Type\\Extensions\\";
constexpr char kSourceFilter[] = "Source Filter";
constexpr char kSourceFilterOther[] = "Source Filter.other";
constexpr char kMlsExtensions[] = "SOFTWARE\\Microsoft\\MediaPlayer\\MLS\\Extensions";
constexpr char kPlayerExtensions[] = "SOFTWARE\\Microsoft\\MediaPlayer\\Player\\Extensions";
constexpr char kDescriptionId[] = "106";
constexpr DWORD kMaxValueBytes = 256;
constexpr std::size_t kMaxListChars = 255;
constexpr char kSeparators[] = "; \t";

void WriteText(HKEY key, const char* name, const std::string& text) {
  RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                 static_cast<DWORD>(text.size() + 1));
}

// A REG_SZ value of at most 256 bytes; false when it is absent or longer.
bool ReadText(HKEY key, const char* name, std::string* text) {
  char buffer[kMaxValueBytes];
  DWORD size = sizeof buffer;
  DWORD type = REG_NONE;
  if (RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE*>(buffer), &size) != ERROR_SUCCESS) {
    return false;
  }
  // The stored bytes need not end in a zero.
  *text = std::string(buffer, strnlen(buffer, size));
  return true;
}

// Writes a value under a key of the media player's that is only ever opened.
void WritePlayerValue(const char* keyPath, const char* name, const std::string& text) {
  HKEY key = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyPath, 0, KEY_SET_VALUE, &key) != ERROR_SUCCESS) return;
  WriteText(key, name, text);
  RegCloseKey(key);
}

void WriteMaskList(const char* maskList) {
  HKEY extensions = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, kPlayerExtensions, 0, KEY_READ, &extensions) != ERROR_SUCCESS) return;
  HKEY types = nullptr;
  if (RegOpenKeyExA(extensions, "Types", 0, KEY_SET_VALUE, &types) == ERROR_SUCCESS) {
    WriteText(types, kDescriptionId, maskList);
    RegCloseKey(types);
  }
  HKEY descriptions = nullptr;
  if (RegOpenKeyExA(extensions, "MUIDescriptions", 0, KEY_SET_VALUE, &descriptions) == ERROR_SUCCESS) {
    char path[MAX_PATH];
    const DWORD length = GetModuleFileNameA(BrindletModule(), path, MAX_PATH);
    if (length != 0 && length < MAX_PATH) {
      WriteText(descriptions, kDescriptionId, "@" + std::string(path, length) + ",-106");
    }
    RegCloseKey(descriptions);
  }
  RegCloseKey(extensions);
}

void MakeExtension(const char* extension, const char* maskList) {
  const std::string clsid = GuidText(CLSID_BrindletSource);
  HKEY key = nullptr;
  if (RegCreateKeyExA(HKEY_CLASSES_ROOT, (std::string(kExtensionsKey) + extension).c_str(), 0, nullptr,
                      REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr, &key, nullptr) == ERROR_SUCCESS) {
    // Only another filter's entry is kept aside, so registering again never
    // replaces that record with this filter's own class id.
    std::string previous;
    if (ReadText(key, kSourceFilter, &previous) && previous != clsid) WriteText(key, kSourceFilterOther, previous);
    WriteText(key, kSourceFilter, clsid);
    RegCloseKey(key);
  }
  HKEY typeKey = nullptr;
  if (RegCreateKeyExA(HKEY_CLASSES_ROOT, extension, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr,
                      &typeKey, nullptr) == ERROR_SUCCESS) {
    WriteText(typeKey, "PerceivedType", "video");
    RegCloseKey(typeKey);
  }
  if (extension[0] != '\0') WritePlayerValue(kMlsExtensions, extension + 1, "video");
  if (maskList != nullptr) WriteMaskList(maskList);
}

void RemoveExtension(const char* extension) {
  const std::string path = std::string(kExtensionsKey) + extension;
  HKEY key = nullptr;
  if (RegCreateKeyExA(HKEY_CLASSES_ROOT, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                      nullptr, &key, nullptr) != ERROR_SUCCESS) {
    return;
  }
  std::string other;
  if (ReadText(key, kSourceFilterOther, &other)) {
    WriteText(key, kSourceFilter, other);
  } else {
    RegDeleteKeyA(HKEY_CLASSES_ROOT, path.c_str());
    RegDeleteKeyA(HKEY_CLASSES_ROOT, extension);
  }
  RegCloseKey(key);
}

}  // namespace

void SetBrindletModule(HINSTANCE module) { g_Module = module; }
HINSTANCE BrindletModule() { return g_Module; }

void RegisterExtension(const char* extension, const char* maskList, bool add) {
  if (extension == nullptr) return;
  if (add) {
    MakeExtension(extension, maskList);
  } else {
    RemoveExtension(extension);
  }
}

std::vector<std::string> ExtensionWords(const char* list) {
  std::vector<std::string> words;
  if (list == nullptr) return words;
  const std::string copy(list, strnlen(list, kMaxListChars));
  std::size_t i = 0;
  while (i < copy.size()) {
    const std::size_t start = copy.find_first_not_of(kSeparators, i);
    if (start == std::string::npos) break;
    std::size_t end = copy.find_first_of(kSeparators, start);
    if (end == std::string::npos) end = copy.size();
    if (end - start >= 3 && copy[start] == '.') words.push_back(copy.substr(start, end - start));
    i = end;
  }
  return words;
}

void ApplyExtensionList(const char* list, bool add) {
  const std::vector<std::string> words = ExtensionWords(list);
  if (words.empty()) return;
  std::string maskList;
  for (const std::string& word : words) {
    RegisterExtension(word.c_str(), nullptr, add);
    maskList += "*" + word + ";";
  }
  RegisterExtension(words.back().c_str(), maskList.c_str(), add);
}
