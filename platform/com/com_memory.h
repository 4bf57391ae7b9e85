// Task memory: the allocator through which COM callers and callees hand each
// other buffers, with a hook that lets tests drive out-of-memory paths.
#pragma once

#include "platform/win32/win_types.h"

// Never fails for size 0 (returns a unique pointer, as the platform does);
// returns nullptr when memory runs out.
LPVOID CoTaskMemAlloc(SIZE_T cb);

// Null-safe.
void CoTaskMemFree(LPVOID pv);

// Test hook: the next `count` CoTaskMemAlloc calls in the process return
// nullptr. A count of 0 or less cancels any pending failures.
void PlatformFailNextAllocations(int count);
