// Access to the per-user settings key. Until the registry arrives every value
// reads as absent, so each reader goes on with its default, unless a test
// has set values in place of the stored ones.
#pragma once

#include <initializer_list>
#include <map>
#include <string>
#include <utility>

#include "platform/win_types.h"

// Reads one 32-bit value of the settings key into `value`; false and
// `value` untouched when the value or the key is missing.
bool ReadSettingDword(const char* name, DWORD* value);

// While one lives, these values are what the settings key holds.
class CSettingsOverride {
 public:
  CSettingsOverride(std::initializer_list<std::pair<const char*, DWORD>> values);
  ~CSettingsOverride();
  CSettingsOverride(const CSettingsOverride&) = delete;
  CSettingsOverride& operator=(const CSettingsOverride&) = delete;

 private:
  std::map<std::string, DWORD> m_Previous;
  bool m_HadPrevious;
};
