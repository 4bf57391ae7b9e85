#include "control/settings_store.h"

#include <mutex>
#include <optional>

namespace {

std::mutex g_Lock;
std::optional<std::map<std::string, DWORD>> g_Override;  // guarded by g_Lock

}  // namespace

bool ReadSettingDword(const char* name, DWORD* value) {
  if (name == nullptr || value == nullptr) return false;
  std::lock_guard<std::mutex> lock(g_Lock);
  if (!g_Override) return false;
  const auto it = g_Override->find(name);
  if (it == g_Override->end()) return false;
  *value = it->second;
  return true;
}

CSettingsOverride::CSettingsOverride(std::initializer_list<std::pair<const char*, DWORD>> values) {
  std::lock_guard<std::mutex> lock(g_Lock);
  m_HadPrevious = g_Override.has_value();
  if (m_HadPrevious) m_Previous = *g_Override;
  std::map<std::string, DWORD> next;
  for (const auto& [name, value] : values) next[name] = value;
  g_Override = std::move(next);
}

CSettingsOverride::~CSettingsOverride() {
  std::lock_guard<std::mutex> lock(g_Lock);
  if (m_HadPrevious) {
    g_Override = m_Previous;
  } else {
    g_Override.reset();
  }
}
