// The base of a property page: the IPropertyPage protocol over a dialog
// template of the module, with the hooks a page overrides. The page's
// dialog messages reach OnReceiveMessage; Apply runs OnApplyChanges only
// while the page is dirty.
#pragma once

#include "host/cunknown.h"
#include "platform/window/olectl.h"
#include "platform/window/winuser.h"

// The module whose templates and strings the pages use; the module's
// DllMain sets it. Null (the program) in programs that link pages directly.
extern HINSTANCE g_hInst;

class CBasePropertyPage : public CUnknown, public IPropertyPage {
 public:
  CBasePropertyPage(const char* name, IUnknown* outer, int dialogId, int titleId);
  ~CBasePropertyPage() override;

  DECLARE_IUNKNOWN
  STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;
  STDMETHODIMP_(ULONG) NonDelegatingRelease() override;

  // Hooks, all no-ops returning S_OK (OnReceiveMessage: not handled, 0).
  virtual HRESULT OnConnect(IUnknown* object);
  virtual HRESULT OnDisconnect();
  virtual HRESULT OnActivate();
  virtual HRESULT OnDeactivate();
  virtual HRESULT OnApplyChanges();
  virtual INT_PTR OnReceiveMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

  // IPropertyPage
  STDMETHODIMP SetPageSite(IPropertyPageSite* site) override;
  STDMETHODIMP Activate(HWND parent, LPCRECT rect, BOOL modal) override;
  STDMETHODIMP Deactivate() override;
  STDMETHODIMP GetPageInfo(PROPPAGEINFO* info) override;
  STDMETHODIMP SetObjects(ULONG count, IUnknown** objects) override;
  STDMETHODIMP Show(UINT command) override;
  STDMETHODIMP Move(LPCRECT rect) override;
  STDMETHODIMP IsPageDirty() override { return m_bDirty ? S_OK : S_FALSE; }
  STDMETHODIMP Apply() override;
  STDMETHODIMP Help(LPCOLESTR) override { return E_NOTIMPL; }
  STDMETHODIMP TranslateAccelerator(MSG*) override { return E_NOTIMPL; }

 protected:
  HWND m_hwnd = nullptr;          // the page's dialog while active
  HWND m_Dlg = nullptr;           // the same, as the dialog procedure saw it
  IPropertyPageSite* m_pPageSite = nullptr;
  bool m_bDirty = false;
  bool m_bObjectSet = false;

 private:
  static INT_PTR CALLBACK DialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

  const int m_DialogId;
  const int m_TitleId;
};
