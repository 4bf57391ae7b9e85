// The Program Info page: PAT, programs, video, audio and the PTS; it edits the settings and the file extensions.
#pragma once

#include "pages/stream_info_page.h"

class CProgramInfoPage : public CStreamInfoPage {
 public:
  static CUnknown* CreateInstance(IUnknown* outer, HRESULT* result);

  // Keeps the PAT's two numbers and the program count; they are read once
  // per connection, and timer 1 alone looks at the count again.
  HRESULT OnConnect(IUnknown* object) override;
  HRESULT OnApplyChanges() override;
  INT_PTR OnReceiveMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) override;

 private:
  explicit CProgramInfoPage(IUnknown* outer);
  void Open(HWND window);
  void ReadSettings();
  void ShowProgram(WORD number);
  void ShowAudio(int index, bool enable);
  INT_PTR OnCommand(HWND window, WPARAM wParam, LPARAM lParam);
  INT_PTR OnTimer(HWND window, WPARAM wParam, LPARAM lParam);
  INT_PTR MarkDirty(HWND window, WPARAM wParam, LPARAM lParam);

  WORD m_TransportStreamId = 0;
  BYTE m_PatVersion = 0;
  LONG m_ProgramCount = 0;
  bool m_Opening = false;  // controls are being filled: their notifications are not the user's
  char m_RegisteredExtensions[256] = {};  // the list last handed to the system
};
