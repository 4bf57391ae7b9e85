// The Programs page: the services with their names, ids and stream counts.
#pragma once

#include "pages/stream_info_page.h"

class CProgramsPage : public CStreamInfoPage {
 public:
  static CUnknown* CreateInstance(IUnknown* outer, HRESULT* result);

  INT_PTR OnReceiveMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) override;

 private:
  explicit CProgramsPage(IUnknown* outer);
  void Open(HWND window);
};
