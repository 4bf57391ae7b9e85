// The filter mapper: the platform's list of registered filters, kept in the
// registry, with the two interfaces a module's registration calls
// (IFilterMapper2 and the older IFilterMapper) and the search by media type
// that the graph manager's intelligent connect uses.
//
// Where a filter lives: HKEY_CLASSES_ROOT\CLSID\{category}\Instance\<instance>
// with the values "CLSID" (the filter's class id as text), "FriendlyName" and
// "FilterData" (REG_BINARY, the merit and pins in the platform's binary form).
// The category is CLSID_LegacyAmFilterCategory unless one is given, and the
// instance name is the class id's text unless one is given.
//
// Choices where the platform leaves room:
//   - RegisterFilter hands back the new entry's moniker when `moniker` points
//     to null; a moniker passed in names where to write (our own
//     "@device:sw:{category}\<instance>" form only, else E_INVALIDARG) and
//     stays the caller's. An instance name with a backslash is E_INVALIDARG.
//   - Searches walk the legacy category, then the categories made with
//     CreateCategory in the registry's order, leaving out a category whose
//     merit is below the minimum asked for. A class entered twice is found
//     once, where it is met first; entries that cannot be read are passed
//     over. Equal merits keep the order the entries were met in.
//   - A filter's moniker binds (BindToObject) to a new object of its class;
//     BindToStorage is E_NOTIMPL, as the stand-in has no property bags.
//   - The older interface keeps its entries where IFilterMapper2 puts them by
//     default, with the pin names in the FilterData so that its pin calls
//     find them again (by name, without regard to case). A pin or filter it
//     cannot find gives HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND); the
//     connects-to fields are not kept; RegisterFilterInstance and
//     UnregisterFilterInstance are E_NOTIMPL. GUID_NULL in its search
//     matches any type, and GUID_NULL for both halves asks for none.
#pragma once

#include "platform/com/guid.h"
#include "platform/com/rot.h"
#include "platform/com/unknwn.h"
#include "platform/graph/strmif.h"

inline constexpr CLSID CLSID_FilterMapper2 =
    MakeGuid(0xCDA42200, 0xBD88, 0x11D0, 0xBD, 0x4E, 0x00, 0xA0, 0xC9, 0x11, 0xCE, 0x86);
inline constexpr CLSID CLSID_FilterMapper =
    MakeGuid(0xE436EBB2, 0x524F, 0x11CE, 0x9F, 0x53, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
inline constexpr CLSID CLSID_LegacyAmFilterCategory =
    MakeGuid(0x083863F1, 0x70DE, 0x11D0, 0xBD, 0x40, 0x00, 0xA0, 0xC9, 0x11, 0xCE, 0x86);
inline constexpr IID IID_IFilterMapper2 =
    MakeGuid(0xB79BB0B0, 0x33C1, 0x11D1, 0xAB, 0xE1, 0x00, 0xA0, 0xC9, 0x05, 0xF3, 0x75);
inline constexpr IID IID_IFilterMapper =
    MakeGuid(0x56A868A3, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
inline constexpr IID IID_IEnumRegFilters =
    MakeGuid(0x56A868A4, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);

inline constexpr DWORD MERIT_PREFERRED = 0x800000;
inline constexpr DWORD MERIT_NORMAL = 0x600000;
inline constexpr DWORD MERIT_UNLIKELY = 0x400000;
inline constexpr DWORD MERIT_DO_NOT_USE = 0x200000;
inline constexpr DWORD MERIT_SW_COMPRESSOR = 0x100000;
inline constexpr DWORD MERIT_HW_COMPRESSOR = 0x100050;

struct REGPINTYPES {
  const CLSID* clsMajorType;
  const CLSID* clsMinorType;
};

// A pin of a version 1 filter record.
struct REGFILTERPINS {
  LPWSTR strName;
  BOOL bRendered;
  BOOL bOutput;
  BOOL bZero;
  BOOL bMany;
  const CLSID* clsConnectsToFilter;
  LPWSTR strConnectsToPin;
  UINT nMediaTypes;
  const REGPINTYPES* lpMediaType;
};

struct REGPINMEDIUM {
  CLSID clsMedium;
  DWORD dw1;
  DWORD dw2;
};

inline constexpr DWORD REG_PINFLAG_B_ZERO = 0x1;
inline constexpr DWORD REG_PINFLAG_B_RENDERER = 0x2;
inline constexpr DWORD REG_PINFLAG_B_MANY = 0x4;
inline constexpr DWORD REG_PINFLAG_B_OUTPUT = 0x8;

// A pin of a version 2 filter record.
struct REGFILTERPINS2 {
  DWORD dwFlags;
  UINT cInstances;
  UINT nMediaTypes;
  const REGPINTYPES* lpMediaType;
  UINT nMediums;
  const REGPINMEDIUM* lpMedium;
  const CLSID* clsPinCategory;
};

// dwVersion 1 uses cPins/rgPins, version 2 cPins2/rgPins2. The members are
// anonymous structs, as the platform declares them; __extension__ tells a
// pedantic GCC that this is meant, and clang needs its warnings put aside.
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wnested-anon-types"
#pragma clang diagnostic ignored "-Wgnu-anonymous-struct"
#endif
struct REGFILTER2 {
  DWORD dwVersion;
  DWORD dwMerit;
  union {
    __extension__ struct {
      ULONG cPins;
      const REGFILTERPINS* rgPins;
    };
    __extension__ struct {
      ULONG cPins2;
      const REGFILTERPINS2* rgPins2;
    };
  };
};
#if defined(__clang__)
#pragma clang diagnostic pop
#endif

// What the older interface's enumerator gives; Name is the filter's friendly
// name and is freed with the record (one CoTaskMemFree of the REGFILTER*).
struct REGFILTER {
  CLSID Clsid;
  LPWSTR Name;
};

struct IEnumRegFilters : public IUnknown {
  STDMETHOD(Next)(ULONG count, REGFILTER** filters, ULONG* fetched) PURE;
  STDMETHOD(Skip)(ULONG count) PURE;
  STDMETHOD(Reset)() PURE;
  STDMETHOD(Clone)(IEnumRegFilters** clone) PURE;

 protected:
  ~IEnumRegFilters() = default;
};

struct IFilterMapper2 : public IUnknown {
  STDMETHOD(CreateCategory)(REFCLSID category, DWORD categoryMerit, LPCWSTR description) PURE;
  // HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) when no such filter is registered.
  STDMETHOD(UnregisterFilter)(const CLSID* category, LPCOLESTR instance, REFCLSID filter) PURE;
  // Replaces an entry of the same category and instance.
  STDMETHOD(RegisterFilter)(REFCLSID filter, LPCWSTR name, IMoniker** moniker,
                            const CLSID* category, LPCOLESTR instance,
                            const REGFILTER2* data) PURE;
  // Monikers of the matching filters, highest merit first; a filter's moniker
  // binds (BindToObject) to a new object of its class. `types` holds pairs of
  // major and minor type; GUID_NULL on either side matches anything unless
  // `exactMatch`. Filters of a merit below `merit` are left out.
  STDMETHOD(EnumMatchingFilters)(IEnumMoniker** filters, DWORD flags, BOOL exactMatch,
                                 DWORD merit, BOOL inputNeeded, DWORD inputTypeCount,
                                 const GUID* inputTypes, const REGPINMEDIUM* inputMedium,
                                 const CLSID* inputPinCategory, BOOL render,
                                 BOOL outputNeeded, DWORD outputTypeCount,
                                 const GUID* outputTypes, const REGPINMEDIUM* outputMedium,
                                 const CLSID* outputPinCategory) PURE;

 protected:
  ~IFilterMapper2() = default;
};

// The older interface enters a filter in steps: the filter with its merit,
// then each pin, then each pin's media types.
struct IFilterMapper : public IUnknown {
  STDMETHOD(RegisterFilter)(CLSID filter, LPCWSTR name, DWORD merit) PURE;
  STDMETHOD(RegisterFilterInstance)(CLSID filter, LPCWSTR name, CLSID* instance) PURE;
  STDMETHOD(RegisterPin)(CLSID filter, LPCWSTR name, BOOL rendered, BOOL output, BOOL zero,
                         BOOL many, CLSID connectsToFilter, LPCWSTR connectsToPin) PURE;
  STDMETHOD(RegisterPinType)(CLSID filter, LPCWSTR pin, CLSID majorType, CLSID subType) PURE;
  STDMETHOD(UnregisterFilter)(CLSID filter) PURE;
  STDMETHOD(UnregisterFilterInstance)(CLSID instance) PURE;
  STDMETHOD(UnregisterPin)(CLSID filter, LPCWSTR name) PURE;
  STDMETHOD(EnumMatchingFilters)(IEnumRegFilters** filters, DWORD merit, BOOL inputNeeded,
                                 CLSID inputMajor, CLSID inputSub, BOOL render,
                                 BOOL outputNeeded, CLSID outputMajor, CLSID outputSub) PURE;

 protected:
  ~IFilterMapper() = default;
};
