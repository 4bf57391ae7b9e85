// The graph manager's automation faces: IMediaControl for state changes and
// IMediaEvent for the event queue, on top of a bare IDispatch whose
// operations the stand-in does not implement.
#pragma once

#include "platform/graph/strmif.h"
#include "platform/com/unknwn.h"
#include "platform/win32/win_types.h"

using BSTR = WCHAR*;
using DISPID = LONG;
using LCID = DWORD;
using OAFilterState = LONG;
using OAEVENT = LONG_PTR;

struct ITypeInfo;
struct DISPPARAMS;
struct VARIANT;
struct EXCEPINFO;

inline constexpr IID IID_IDispatch =
    MakeGuid(0x00020400, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46);

struct IDispatch : public IUnknown {
  STDMETHOD(GetTypeInfoCount)(UINT* count) PURE;
  STDMETHOD(GetTypeInfo)(UINT index, LCID locale, ITypeInfo** info) PURE;
  STDMETHOD(GetIDsOfNames)(REFIID riid, WCHAR** names, UINT count, LCID locale, DISPID* ids) PURE;
  STDMETHOD(Invoke)(DISPID id, REFIID riid, LCID locale, WORD flags, DISPPARAMS* params,
                    VARIANT* result, EXCEPINFO* exception, UINT* argumentError) PURE;

 protected:
  ~IDispatch() = default;
};

struct IMediaControl : public IDispatch {
  STDMETHOD(Run)() PURE;
  STDMETHOD(Pause)() PURE;
  STDMETHOD(Stop)() PURE;
  STDMETHOD(GetState)(LONG timeoutMs, OAFilterState* state) PURE;
  STDMETHOD(RenderFile)(BSTR fileName) PURE;
  STDMETHOD(AddSourceFilter)(BSTR fileName, IDispatch** filterInfo) PURE;
  STDMETHOD(get_FilterCollection)(IDispatch** collection) PURE;
  STDMETHOD(get_RegFilterCollection)(IDispatch** collection) PURE;
  STDMETHOD(StopWhenReady)() PURE;

 protected:
  ~IMediaControl() = default;
};

struct IMediaEvent : public IDispatch {
  STDMETHOD(GetEventHandle)(OAEVENT* event) PURE;
  STDMETHOD(GetEvent)(LONG* eventCode, LONG_PTR* param1, LONG_PTR* param2, LONG timeoutMs) PURE;
  STDMETHOD(WaitForCompletion)(LONG timeoutMs, LONG* eventCode) PURE;
  STDMETHOD(CancelDefaultHandling)(LONG eventCode) PURE;
  STDMETHOD(RestoreDefaultHandling)(LONG eventCode) PURE;
  STDMETHOD(FreeEventParams)(LONG eventCode, LONG_PTR param1, LONG_PTR param2) PURE;

 protected:
  ~IMediaEvent() = default;
};
