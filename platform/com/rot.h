// The process-wide Running Object Table and item monikers, through which
// outside tools find live graphs and filters by name.
#pragma once

#include <string>
#include <vector>

#include "platform/graph/strmif.h"
#include "platform/com/unknwn.h"
#include "platform/win32/win_types.h"

struct IStream;
struct IBindCtx;
struct IEnumMoniker;
union ULARGE_INTEGER;

inline constexpr IID IID_IPersistStream =
    MakeGuid(0x00000109, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46);
inline constexpr IID IID_IMoniker =
    MakeGuid(0x0000000F, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46);
inline constexpr IID IID_IEnumMoniker =
    MakeGuid(0x00000102, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46);
inline constexpr IID IID_IRunningObjectTable =
    MakeGuid(0x00000010, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46);
inline constexpr CLSID CLSID_ItemMoniker =
    MakeGuid(0x00000304, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46);

inline constexpr HRESULT MK_S_MONIKERALREADYREGISTERED = MakeHResult(0x000401E7u);
inline constexpr HRESULT MK_E_UNAVAILABLE = MakeHResult(0x800401E3u);

inline constexpr DWORD ROTFLAGS_REGISTRATIONKEEPSALIVE = 0x1;
inline constexpr DWORD ROTFLAGS_ALLOWANYCLIENT = 0x2;

inline constexpr DWORD MKSYS_NONE = 0;
inline constexpr DWORD MKSYS_ITEMMONIKER = 4;

struct IPersistStream : public IPersist {
  STDMETHOD(IsDirty)() PURE;
  STDMETHOD(Load)(IStream* stream) PURE;
  STDMETHOD(Save)(IStream* stream, BOOL clearDirty) PURE;
  STDMETHOD(GetSizeMax)(ULARGE_INTEGER* size) PURE;

 protected:
  ~IPersistStream() = default;
};

struct IMoniker : public IPersistStream {
  STDMETHOD(BindToObject)(IBindCtx* bindContext, IMoniker* toLeft, REFIID riid, void** result) PURE;
  STDMETHOD(BindToStorage)(IBindCtx* bindContext, IMoniker* toLeft, REFIID riid,
                           void** result) PURE;
  STDMETHOD(Reduce)(IBindCtx* bindContext, DWORD howFar, IMoniker** toLeft,
                    IMoniker** reduced) PURE;
  STDMETHOD(ComposeWith)(IMoniker* right, BOOL onlyIfNotGeneric, IMoniker** composite) PURE;
  STDMETHOD(Enum)(BOOL forward, IEnumMoniker** monikers) PURE;
  STDMETHOD(IsEqual)(IMoniker* other) PURE;
  STDMETHOD(Hash)(DWORD* hash) PURE;
  STDMETHOD(IsRunning)(IBindCtx* bindContext, IMoniker* toLeft, IMoniker* newlyRunning) PURE;
  STDMETHOD(GetTimeOfLastChange)(IBindCtx* bindContext, IMoniker* toLeft, FILETIME* time) PURE;
  STDMETHOD(Inverse)(IMoniker** inverse) PURE;
  STDMETHOD(CommonPrefixWith)(IMoniker* other, IMoniker** prefix) PURE;
  STDMETHOD(RelativePathTo)(IMoniker* other, IMoniker** relativePath) PURE;
  STDMETHOD(GetDisplayName)(IBindCtx* bindContext, IMoniker* toLeft, LPOLESTR* displayName) PURE;
  STDMETHOD(ParseDisplayName)(IBindCtx* bindContext, IMoniker* toLeft, LPOLESTR displayName,
                              ULONG* eaten, IMoniker** result) PURE;
  STDMETHOD(IsSystemMoniker)(DWORD* kind) PURE;

 protected:
  ~IMoniker() = default;
};

// Next hands out referenced monikers and gives S_FALSE when fewer than asked
// were left; `fetched` may be null only when one is asked for.
struct IEnumMoniker : public IUnknown {
  STDMETHOD(Next)(ULONG count, IMoniker** monikers, ULONG* fetched) PURE;
  STDMETHOD(Skip)(ULONG count) PURE;
  STDMETHOD(Reset)() PURE;
  STDMETHOD(Clone)(IEnumMoniker** clone) PURE;

 protected:
  ~IEnumMoniker() = default;
};

struct IRunningObjectTable : public IUnknown {
  STDMETHOD(Register)(DWORD flags, IUnknown* object, IMoniker* name, DWORD* cookie) PURE;
  STDMETHOD(Revoke)(DWORD cookie) PURE;
  STDMETHOD(IsRunning)(IMoniker* name) PURE;
  STDMETHOD(GetObject)(IMoniker* name, IUnknown** object) PURE;
  STDMETHOD(NoteChangeTime)(DWORD cookie, FILETIME* time) PURE;
  STDMETHOD(GetTimeOfLastChange)(IMoniker* name, FILETIME* time) PURE;
  STDMETHOD(EnumRunning)(IEnumMoniker** monikers) PURE;

 protected:
  ~IRunningObjectTable() = default;
};

// The one table of the process; `reserved` is not looked at. The table
// holds a reference to each registered object and its moniker until Revoke,
// whatever the flags. A moniker equal to one registered already is
// registered too, with its own cookie, and gives
// MK_S_MONIKERALREADYREGISTERED, as on the platform. Cookies are never 0.
// Revoke of an unknown cookie gives E_INVALIDARG. IsRunning and GetObject
// work; change times and EnumRunning are E_NOTIMPL.
HRESULT GetRunningObjectTable(DWORD reserved, IRunningObjectTable** table);

// Display name: delimiter + item. Two item monikers are equal when their
// delimiters and items match without regard to case, as the platform's
// compare them; Hash agrees with that. A null delimiter is empty; a null
// item gives E_INVALIDARG. Operations beyond naming and comparing are
// E_NOTIMPL.
HRESULT CreateItemMoniker(LPCOLESTR delimiter, LPCOLESTR item, IMoniker** moniker);

// The display names of the registered objects, in the order of registration.
std::vector<std::wstring> PlatformRunningObjectNames();

// Test hook: while false, GetRunningObjectTable fails with E_UNEXPECTED and
// gives no table, as when the table's service cannot be reached.
void PlatformSetRunningObjectTableAvailable(bool available);

namespace platform_internal {

// An enumerator over a fixed list of monikers; clones share the list and
// start where the original stands.
HRESULT CreateMonikerEnumerator(std::vector<ComPtr<IMoniker>> monikers, IEnumMoniker** result);

}  // namespace platform_internal
