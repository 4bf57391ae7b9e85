// The platform's own COM classes, which CoCreateInstance registers in the
// process on its first call.
#pragma once

#include <span>

#include "platform/com/guid.h"
#include "platform/com/unknwn.h"

// Creates a new object and hands out `riid` on it; an outer unknown gives
// CLASS_E_NOAGGREGATION, as none of these classes can be aggregated.
using PlatformCreateFunction = HRESULT (*)(IUnknown* outer, REFIID riid, void** ppv);

struct PlatformClass {
  CLSID clsid;
  PlatformCreateFunction create;
};

std::span<const PlatformClass> PlatformClasses();
