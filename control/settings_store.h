// The per-user settings: one registry key, nine numbers and two strings, with
// the defaults that a missing value or key stands for. Every reader and writer
// opens the key with the create form, so reading leaves an empty key behind.
#pragma once

#include <optional>
#include <string>

#include "platform/win32/win_types.h"

inline constexpr char kSettingsKey[] = "Software\\Caldrovia\\Brindlet";

struct SettingDefinition {
  const char* name;
  bool isText;
  DWORD defaultNumber;
  const char* defaultText;
};

// In the order of the table that the pages and the join read them in.
inline constexpr SettingDefinition kSettingDefinitions[] = {
    {"AC3", false, 1, nullptr},          {"Audio2", false, 0, nullptr},
    {"AutoSelect", false, 1, nullptr},   {"AllowGraphEdit", false, 0, nullptr},
    {"PCRClock", false, 0, nullptr},     {"DetLength", false, 1, nullptr},
    {"IgnoreCRC", false, 0, nullptr},    {"FastSeeking", false, 1, nullptr},
    {"PrefDemux", false, 1, nullptr},    {"Extensions", true, 0, ".ts;.tp;"},
    {"RegisteredExtensions", true, 0, ""},
};

// The definition of a value by its name, compared without regard to case.
const SettingDefinition* FindSetting(const std::string& name);

// One 32-bit value, read with a buffer of 4 bytes whatever its stored type.
// False, and `value` untouched, when the key or the value cannot be had.
bool ReadSettingDword(const char* name, DWORD* value);
std::optional<std::string> ReadSettingString(const char* name);
bool WriteSettingDword(const char* name, DWORD value);
bool WriteSettingString(const char* name, const std::string& text);
// Deletes the key, so every setting returns to its default.
bool ResetSettings();

// What joining a graph reads. The flags are as stored, not yet reduced.
struct JoinSettings {
  DWORD ac3 = 1;
  DWORD audio2 = 0;
  DWORD autoSelect = 1;
  DWORD allowGraphEdit = 0;
  DWORD pcrClock = 0;
  DWORD detLength = 1;
  DWORD ignoreCrc = 0;
  DWORD fastSeeking = 1;
  DWORD prefDemux = 0;  // as it stood in the filter, unless the key held one
};

// One opening of the key, the nine numbers queried in table order into
// locals preset to the defaults, with one length shared by all the queries.
// `prefDemux` is what the filter holds; a stored value replaces it.
JoinSettings ReadJoinSettings(DWORD prefDemux);

// Any stored value other than 0 counts as 1.
inline int AsFlag(DWORD value) { return value != 0 ? 1 : 0; }
