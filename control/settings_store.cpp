#include "control/settings_store.h"

bool ReadSettingDword(const char*, DWORD*) { return false; }
