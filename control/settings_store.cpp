#include "control/settings_store.h"

#include <cstring>
#include <strings.h>
#include <vector>

#include "platform/win32/registry.h"

namespace {

// The key, opened with the create form; closed when it goes.
class CSettingsKey {
 public:
  CSettingsKey() {
    if (RegCreateKeyA(HKEY_CURRENT_USER, kSettingsKey, &m_Key) != ERROR_SUCCESS) m_Key = nullptr;
  }
  ~CSettingsKey() {
    if (m_Key != nullptr) RegCloseKey(m_Key);
  }
  CSettingsKey(const CSettingsKey&) = delete;
  CSettingsKey& operator=(const CSettingsKey&) = delete;
  HKEY Get() const { return m_Key; }

 private:
  HKEY m_Key = nullptr;
};

}  // namespace

const SettingDefinition* FindSetting(const std::string& name) {
  for (const SettingDefinition& definition : kSettingDefinitions) {
    if (strcasecmp(definition.name, name.c_str()) == 0) return &definition;
  }
  return nullptr;
}

bool ReadSettingDword(const char* name, DWORD* value) {
  if (name == nullptr || value == nullptr) return false;
  const CSettingsKey key;
  if (key.Get() == nullptr) return false;
  BYTE buffer[4];
  std::memcpy(buffer, value, sizeof buffer);
  DWORD size = sizeof buffer;
  if (RegQueryValueExA(key.Get(), name, nullptr, nullptr, buffer, &size) != ERROR_SUCCESS) return false;
  std::memcpy(value, buffer, sizeof buffer);
  return true;
}

std::optional<std::string> ReadSettingString(const char* name) {
  const CSettingsKey key;
  if (key.Get() == nullptr) return std::nullopt;
  DWORD size = 0;
  if (RegQueryValueExA(key.Get(), name, nullptr, nullptr, nullptr, &size) != ERROR_SUCCESS) return std::nullopt;
  std::vector<BYTE> buffer(size + 1, 0);
  if (RegQueryValueExA(key.Get(), name, nullptr, nullptr, buffer.data(), &size) != ERROR_SUCCESS) {
    return std::nullopt;
  }
  return std::string(reinterpret_cast<const char*>(buffer.data()), strnlen(reinterpret_cast<const char*>(buffer.data()), size));
}

bool WriteSettingDword(const char* name, DWORD value) {
  const CSettingsKey key;
  if (key.Get() == nullptr) return false;
  return RegSetValueExA(key.Get(), name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value) ==
         ERROR_SUCCESS;
}

bool WriteSettingString(const char* name, const std::string& text) {
  const CSettingsKey key;
  if (key.Get() == nullptr) return false;
  // The stored length counts the terminating zero.
  return RegSetValueExA(key.Get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                        static_cast<DWORD>(text.size() + 1)) == ERROR_SUCCESS;
}

bool ResetSettings() {
  const LONG result = RegDeleteKeyA(HKEY_CURRENT_USER, kSettingsKey);
  return result == ERROR_SUCCESS || result == static_cast<LONG>(ERROR_FILE_NOT_FOUND);
}

JoinSettings ReadJoinSettings(DWORD prefDemux) {
  JoinSettings s;
  s.prefDemux = prefDemux;
  const CSettingsKey key;
  if (key.Get() == nullptr) return s;
  // One length for all the queries, as the reader always had it: a value
  // stored shorter than 4 bytes shortens the buffer for those after it.
  DWORD size = 4;
  const auto query = [&](const char* name, DWORD* local) {
    // Never more than the 4 bytes of the local, whatever a longer value left.
    if (size > 4) size = 4;
    RegQueryValueExA(key.Get(), name, nullptr, nullptr, reinterpret_cast<BYTE*>(local), &size);
  };
  query("AC3", &s.ac3);
  query("Audio2", &s.audio2);
  query("AutoSelect", &s.autoSelect);
  query("AllowGraphEdit", &s.allowGraphEdit);
  query("PCRClock", &s.pcrClock);
  query("DetLength", &s.detLength);
  query("IgnoreCRC", &s.ignoreCrc);
  query("FastSeeking", &s.fastSeeking);
  query("PrefDemux", &s.prefDemux);
  return s;
}
