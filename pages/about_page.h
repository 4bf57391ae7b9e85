// The About page: the filter's name and a link to its project page.
#pragma once

#include <memory>

#include "host/hyperlink.h"
#include "host/property_page.h"

class CAboutPage : public CBasePropertyPage {
 public:
  static CUnknown* CreateInstance(IUnknown* outer, HRESULT* result);

  INT_PTR OnReceiveMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) override;

 private:
  explicit CAboutPage(IUnknown* outer);

  std::unique_ptr<CHyperlink> m_Link;  // while the dialog is open
};
