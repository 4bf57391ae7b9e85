// The PID Info page: the PID census as a table with a reading of each PID, and two summaries.
#pragma once

#include "pages/stream_info_page.h"

class CPidInfoPage : public CStreamInfoPage {
 public:
  static CUnknown* CreateInstance(IUnknown* outer, HRESULT* result);

  INT_PTR OnReceiveMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) override;

 private:
  explicit CPidInfoPage(IUnknown* outer);
  void Open(HWND window);
};
