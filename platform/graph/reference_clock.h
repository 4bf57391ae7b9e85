// The system reference clock (CLSID_SystemClock): a monotonic time in 100 ns
// units, which a graph uses when no filter offers a clock of its own.
#pragma once

#include "platform/com/guid.h"
#include "platform/com/unknwn.h"

namespace platform_internal {

// The class's creation function for the platform's class table.
HRESULT CreateSystemClock(IUnknown* outer, REFIID riid, void** ppv);

}  // namespace platform_internal
