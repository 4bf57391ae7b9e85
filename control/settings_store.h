// Access to the per-user settings key. Until the registry arrives every value
// reads as absent, so each reader goes on with its default.
#pragma once

#include "platform/win_types.h"

// Reads one 32-bit value of the settings key into `value`; false and
// `value` untouched when the value or the key is missing.
bool ReadSettingDword(const char* name, DWORD* value);
