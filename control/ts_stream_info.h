// ITsStreamInfo: the filter's private interface. Numeric getters over the
// PAT, the program table and the PMT stream lists, and one text query that
// covers everything else.
#pragma once

#include "platform/com/guid.h"
#include "platform/com/unknwn.h"
#include "platform/win32/win_types.h"

inline constexpr IID IID_ITsStreamInfo =
    {0xE0F3EC1F, 0x837F, 0x403A, {0xA2, 0x5E, 0x20, 0xE3, 0x8A, 0xCD, 0xDA, 0x36}};

struct ITsStreamInfo : public IUnknown {
  STDMETHOD(GetTransportStreamId)(WORD* id) PURE;
  STDMETHOD(GetPatVersion)(BYTE* version) PURE;
  STDMETHOD(GetProgramCount)(DWORD* count) PURE;
  STDMETHOD(GetProgramNumber)(LONG index, WORD* number) PURE;
  STDMETHOD(GetPmtPidByIndex)(LONG index, WORD* pid) PURE;
  STDMETHOD(GetPmtPid)(WORD programNumber, WORD* pid) PURE;
  STDMETHOD(GetPmtVersion)(WORD programNumber, BYTE* version) PURE;
  STDMETHOD(GetStreamCount)(WORD programNumber, WORD* count) PURE;
  STDMETHOD(GetStreamType)(WORD programNumber, DWORD streamIndex, BYTE* type) PURE;
  STDMETHOD(GetStreamPid)(WORD programNumber, DWORD streamIndex, WORD* pid) PURE;
  STDMETHOD(QueryText)(LPCWSTR keyword, LPWSTR* text) PURE;

 protected:
  ~ITsStreamInfo() = default;
};
