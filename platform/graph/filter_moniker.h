// The moniker of a registered filter, as the filter mapper's searches and
// registrations hand it out.
//
// Display name "@device:sw:{category}\<instance>"; BindToObject creates a new
// object of the filter's class (CoCreateInstance, in-process). Two monikers
// are equal when their display names are, without regard to case. There is
// no property bag in the stand-in, so BindToStorage is E_NOTIMPL; the
// filter's name and data are read through the mapper instead. Operations
// beyond binding, naming and comparing are E_NOTIMPL.
#pragma once

#include <string>

#include "platform/com/guid.h"
#include "platform/com/rot.h"

inline constexpr CLSID CLSID_CDeviceMoniker =
    MakeGuid(0x4315D437, 0x5B8C, 0x11D0, 0xBD, 0x3B, 0x00, 0xA0, 0xC9, 0x11, 0xCE, 0x86);

namespace platform_internal {

HRESULT CreateFilterMoniker(REFCLSID category, const std::wstring& instance, REFCLSID filter,
                            IMoniker** moniker);

}  // namespace platform_internal
