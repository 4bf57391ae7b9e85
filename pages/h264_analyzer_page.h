// The H.264 Analyzer page: the logged sequence parameters with a remark on some.
#pragma once

#include "pages/stream_info_page.h"

class CH264AnalyzerPage : public CStreamInfoPage {
 public:
  static CUnknown* CreateInstance(IUnknown* outer, HRESULT* result);

  INT_PTR OnReceiveMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) override;

 private:
  explicit CH264AnalyzerPage(IUnknown* outer);
  void Open(HWND window);
};
