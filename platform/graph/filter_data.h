// A filter's merit and pins as the registry's "FilterData" value holds them,
// with the encoder, the bounded decoder and the test a search applies to one
// record. Pure functions over bytes, so they can be tested and fuzzed alone.
//
// The layout, all numbers little-endian DWORDs, offsets counted from the
// blob's first byte:
//
//   header      version (2), merit, pin count, name table offset (0: none)
//   per pin     "0pi3", flags (REG_PINFLAG_B_*), instances, type count,
//               medium count, category offset (0: none)
//     per type    "0ty3", 0, major type offset, minor type offset
//     per medium  offset of a medium record
//   name table  "0nm3", pin count, per pin the offset of its name (0: none)
//   pool        GUIDs (16 bytes each, stored once however often they are
//               named), medium records (GUID, dw1, dw2), names (UTF-16LE,
//               zero-terminated)
//
// Only the older interface's pin calls need pin names, so they sit in a
// table that the header points to; a reader that knows nothing of it reads
// the pins as before. The decoder checks every count and offset against the
// blob's length and refuses the blob whole at the first that does not fit.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/graph/filter_mapper.h"
#include "platform/graph/filter_registry.h"

namespace platform_internal {

inline constexpr DWORD kFilterDataVersion = 2;
inline constexpr std::size_t kFilterDataHeaderSize = 16;
inline constexpr std::size_t kFilterDataPinSize = 24;
inline constexpr std::size_t kFilterDataTypeSize = 16;
inline constexpr std::size_t kFilterDataMediumSize = 24;  // in the pool

struct FilterDataPin {
  std::wstring name;  // empty: not named (version 2 records name no pins)
  DWORD flags = 0;
  UINT instances = 0;
  std::vector<RegisteredPinType> types;
  std::vector<REGPINMEDIUM> mediums;
  std::optional<CLSID> category;
};

struct FilterData {
  DWORD merit = 0;
  std::vector<FilterDataPin> pins;
};

// Field by field: what a trip through the blob keeps.
bool operator==(const FilterDataPin& a, const FilterDataPin& b);
bool operator==(const FilterData& a, const FilterData& b);

std::vector<BYTE> EncodeFilterData(const FilterData& data);

// Nothing for a blob that is cut short, has a bad tag, version or offset, or
// a name table that does not fit the pins.
std::optional<FilterData> DecodeFilterData(std::span<const BYTE> blob);

// A REGFILTER2 of version 1 or 2 as a record: version 1 pins keep their
// names and have their BOOLs turned into REG_PINFLAG_B_* flags; a null type
// pointer stands for GUID_NULL. E_INVALIDARG for another version, E_POINTER
// for a count without its array. The connects-to fields of version 1 are
// not kept: nothing here reads them.
HRESULT FilterDataFromRegFilter2(const REGFILTER2& reg, FilterData* out);

// A query and the pin mediums and categories that IFilterMapper2 can ask
// for beside it.
struct FilterSearch {
  FilterQuery query;
  std::optional<REGPINMEDIUM> inputMedium;
  std::optional<CLSID> inputCategory;
  std::optional<REGPINMEDIUM> outputMedium;
  std::optional<CLSID> outputCategory;
};

// The merit is at least the minimum, and for each direction that is needed
// or constrained one pin of that direction meets every constraint at once.
bool FilterDataMatches(const FilterData& data, const FilterSearch& search);

}  // namespace platform_internal
