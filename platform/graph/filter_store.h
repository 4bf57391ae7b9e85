// Where the filter mapper keeps its entries: the keys and values under
// HKEY_CLASSES_ROOT\CLSID\{category}\Instance, read and written whole, and
// the search over every category the mapper knows. Registry errors come back
// as HRESULT_FROM_WIN32 of the registry's code.
#pragma once

#include <string>
#include <vector>

#include "platform/graph/filter_data.h"

namespace platform_internal {

// The category under which CreateCategory lists the others.
inline constexpr CLSID kFilterCategoryList =
    MakeGuid(0xDA4E3DA0, 0xD07D, 0x11D0, 0xBD, 0x50, 0x00, 0xA0, 0xC9, 0x11, 0xCE, 0x86);

struct FilterEntry {
  CLSID category{};
  std::wstring instance;
  CLSID clsid{};
  std::wstring name;
  FilterData data;
};

// The class id's braced text, the instance name an entry gets by default.
std::wstring InstanceNameOf(REFCLSID clsid);

// Writes the entry's key with its three values, after deleting whatever was
// there. E_INVALIDARG for an empty instance name or one with a backslash,
// which the registry would take for a path.
HRESULT WriteFilterEntry(const FilterEntry& entry);

// HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) when there is no such entry.
HRESULT DeleteFilterEntry(REFCLSID category, const std::wstring& instance);

// As Delete for a missing entry; E_FAIL when its class id or FilterData
// cannot be read.
HRESULT ReadFilterEntry(REFCLSID category, const std::wstring& instance, FilterEntry* entry);

// Replaces the "FilterData" value of an existing entry alone.
HRESULT WriteFilterData(REFCLSID category, const std::wstring& instance, const FilterData& data);

// The category's entry under kFilterCategoryList.
HRESULT WriteCategory(REFCLSID category, DWORD merit, const std::wstring& description);

// The matching entries, highest merit first and otherwise in the order
// found: the legacy category first, then the created categories in the
// registry's order, leaving out those whose own merit is below the query's
// minimum. A class found again in a later category is left out; entries
// that cannot be read are passed over.
std::vector<FilterEntry> FindFilters(const FilterSearch& search);

}  // namespace platform_internal
