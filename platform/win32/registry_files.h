// The registry's hive files: where they live, how a reader takes a hive as
// it is on disk, and how a writer changes one under the folder's lock and
// replaces it whole (see registry.h).
#pragma once

#include <functional>

#include "platform/win32/registry_hive.h"

namespace platform_internal::registry {

// Runs `look` on the hive as it is on disk now.
LONG ReadHive(Hive hive, const std::function<LONG(const CKeyNode&)>& look);

// Applies `change` to the hive, which sets *changed when it changed
// something, and writes the hive back if it did.
LONG ChangeHive(Hive hive, const std::function<LONG(CKeyNode*, bool*)>& change);

}  // namespace platform_internal::registry
