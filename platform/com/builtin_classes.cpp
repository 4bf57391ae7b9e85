#include "platform/com/builtin_classes.h"

#include "platform/graph/graph_manager.h"
#include "platform/graph/reference_clock.h"
#include "platform/graph/strmif.h"

std::span<const PlatformClass> PlatformClasses() {
  static const PlatformClass kClasses[] = {
      {CLSID_FilterGraph, platform_internal::CreateFilterGraph},
      {CLSID_SystemClock, platform_internal::CreateSystemClock},
  };
  return kClasses;
}
