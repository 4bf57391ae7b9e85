// GUIDs in the platform's layout, with the braced text form used by the
// registry and by class identifiers on command lines.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "platform/win32/win_types.h"

struct GUID {
  DWORD Data1;
  WORD Data2;
  WORD Data3;
  BYTE Data4[8];
};

using IID = GUID;
using CLSID = GUID;
using REFGUID = const GUID&;
using REFIID = const IID&;
using REFCLSID = const CLSID&;

constexpr bool operator==(const GUID& a, const GUID& b) {
  if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
  for (std::size_t i = 0; i < 8; ++i) {
    if (a.Data4[i] != b.Data4[i]) return false;
  }
  return true;
}

constexpr bool operator!=(const GUID& a, const GUID& b) { return !(a == b); }

inline bool IsEqualGUID(REFGUID a, REFGUID b) { return a == b; }
inline bool IsEqualIID(REFIID a, REFIID b) { return a == b; }
inline bool IsEqualCLSID(REFCLSID a, REFCLSID b) { return a == b; }

// Arguments in the order the braced text form reads, so a constant can be
// checked against its string at a glance.
constexpr GUID MakeGuid(DWORD d1, WORD d2, WORD d3, BYTE b0, BYTE b1, BYTE b2, BYTE b3, BYTE b4,
                        BYTE b5, BYTE b6, BYTE b7) {
  return GUID{d1, d2, d3, {b0, b1, b2, b3, b4, b5, b6, b7}};
}

inline constexpr GUID GUID_NULL{};

// Accepts exactly "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}", hex digits in
// either case. On any other input returns false and leaves *out untouched.
bool GuidFromString(const char* text, GUID* out);

// Upper-case braced form, as the registry writes it.
std::string GuidToString(REFGUID guid);

// The platform's wide-string pair. StringFromGUID2 returns the characters
// written including the terminator (39), or 0 when the buffer is too small.
int StringFromGUID2(REFGUID guid, LPWSTR buffer, int cchMax);

// E_INVALIDARG for a null out pointer; a null or empty string gives GUID_NULL
// and S_OK as on the platform; anything malformed gives CO_E_CLASSSTRING with
// *clsid set to GUID_NULL.
HRESULT CLSIDFromString(LPCWSTR text, CLSID* clsid);

// Strict weak order for std::map keys: field by field, as the bytes compare.
struct GuidLess {
  bool operator()(const GUID& a, const GUID& b) const;
};

template <>
struct std::hash<GUID> {
  std::size_t operator()(const GUID& g) const noexcept;
};
