// The filter mapper's records as the platform's own code reads them: the
// graph manager's intelligent connect asks for candidates here rather than
// through monikers.
#pragma once

#include <string>
#include <vector>

#include "platform/com/guid.h"
#include "platform/com/unknwn.h"
#include "platform/win32/win_types.h"

namespace platform_internal {

struct RegisteredPinType {
  GUID major;
  GUID minor;
};

struct RegisteredPin {
  DWORD flags = 0;  // REG_PINFLAG_B_*
  std::vector<RegisteredPinType> types;
};

struct RegisteredFilter {
  CLSID clsid{};
  std::wstring name;
  DWORD merit = 0;
  std::vector<RegisteredPin> pins;
};

struct FilterQuery {
  DWORD minimumMerit = 0;  // filters of a lower merit are left out
  bool exactMatch = false;  // GUID_NULL matches only GUID_NULL
  bool inputNeeded = false;
  std::vector<RegisteredPinType> inputTypes;  // any one of them on an input pin
  bool render = false;                        // an input pin marked rendered
  bool outputNeeded = false;
  std::vector<RegisteredPinType> outputTypes;  // any one of them on an output pin
};

// The registered filters that match, highest merit first; filters of equal
// merit in the order the registry lists them. A record that cannot be read
// is passed over.
std::vector<RegisteredFilter> MatchingFilters(const FilterQuery& query);

// The filter mapper's creation function for the platform's class table,
// under CLSID_FilterMapper2 and CLSID_FilterMapper alike.
HRESULT CreateFilterMapper(IUnknown* outer, REFIID riid, void** ppv);

}  // namespace platform_internal
