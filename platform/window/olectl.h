// The property page protocol of OLE: a page (IPropertyPage) lives in a site
// (IPropertyPageSite) that a property frame gives it; OleCreatePropertyFrame
// shows the pages of some objects as one modal sheet.
#pragma once

#include "platform/com/objbase.h"
#include "platform/graph/strmif.h"
#include "platform/window/winuser.h"

inline constexpr IID IID_IPropertyPage =
    MakeGuid(0xB196B28D, 0xBAB4, 0x101A, 0xB6, 0x9C, 0x00, 0xAA, 0x00, 0x34, 0x1D, 0x07);
inline constexpr IID IID_IPropertyPageSite =
    MakeGuid(0xB196B28C, 0xBAB4, 0x101A, 0xB6, 0x9C, 0x00, 0xAA, 0x00, 0x34, 0x1D, 0x07);

inline constexpr DWORD PROPPAGESTATUS_DIRTY = 0x1;
inline constexpr DWORD PROPPAGESTATUS_VALIDATE = 0x2;
inline constexpr DWORD PROPPAGESTATUS_CLEAN = 0x4;

struct PROPPAGEINFO {
  ULONG cb;
  LPOLESTR pszTitle;  // task memory, the frame's to free, as the strings below
  SIZE size;          // pixels
  LPOLESTR pszDocString;
  LPOLESTR pszHelpFile;
  DWORD dwHelpContext;
};

struct IPropertyPageSite : public IUnknown {
  STDMETHOD(OnStatusChange)(DWORD flags) PURE;
  STDMETHOD(GetLocaleID)(LCID* locale) PURE;
  STDMETHOD(GetPageContainer)(IUnknown** container) PURE;
  STDMETHOD(TranslateAccelerator)(MSG* message) PURE;

 protected:
  ~IPropertyPageSite() = default;
};

struct IPropertyPage : public IUnknown {
  STDMETHOD(SetPageSite)(IPropertyPageSite* site) PURE;
  STDMETHOD(Activate)(HWND parent, LPCRECT rect, BOOL modal) PURE;
  STDMETHOD(Deactivate)() PURE;
  STDMETHOD(GetPageInfo)(PROPPAGEINFO* info) PURE;
  STDMETHOD(SetObjects)(ULONG count, IUnknown** objects) PURE;
  STDMETHOD(Show)(UINT command) PURE;
  STDMETHOD(Move)(LPCRECT rect) PURE;
  STDMETHOD(IsPageDirty)() PURE;
  STDMETHOD(Apply)() PURE;
  STDMETHOD(Help)(LPCOLESTR helpDir) PURE;
  STDMETHOD(TranslateAccelerator)(MSG* message) PURE;

 protected:
  ~IPropertyPage() = default;
};

// Creates each page by its class id, gives it a site and the objects, and
// shows them as one sheet owned by `owner` until the user closes it (see
// window_model.h for who plays the user here). S_OK when the sheet was shown
// and closed; the result of a page's creation when none could be made.
STDAPI OleCreatePropertyFrame(HWND owner, UINT x, UINT y, LPCOLESTR caption, ULONG objectCount, IUnknown** objects,
                              ULONG pageCount, const CLSID* pages, LCID locale, DWORD reserved, LPVOID reserved2);
