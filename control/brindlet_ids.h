// The class ids of the module's objects, for the filter and for its clients.
#pragma once

#include "platform/com/guid.h"

inline constexpr CLSID CLSID_BrindletSource =
    MakeGuid(0x8F923A8B, 0xF96C, 0x420C, 0x84, 0x58, 0x0D, 0x64, 0x06, 0xE8, 0x2E, 0x4C);
