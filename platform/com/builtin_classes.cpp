#include "platform/com/builtin_classes.h"

#include "platform/graph/filter_mapper.h"
#include "platform/graph/filter_registry.h"
#include "platform/graph/graph_manager.h"
#include "platform/graph/reference_clock.h"
#include "platform/graph/strmif.h"

std::span<const PlatformClass> PlatformClasses() {
  static const PlatformClass kClasses[] = {
      {CLSID_FilterGraph, platform_internal::CreateFilterGraph},
      {CLSID_SystemClock, platform_internal::CreateSystemClock},
      {CLSID_FilterMapper2, platform_internal::CreateFilterMapper},
      {CLSID_FilterMapper, platform_internal::CreateFilterMapper},
  };
  return kClasses;
}
