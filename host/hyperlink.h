// The window support library's hyperlink: takes over a static label of a
// dialog and makes it a link. In command mode following it sends the parent
// WM_COMMAND with the label's id and code 0; in link mode it opens a URL
// with ShellExecuteA and turns to the visited colour when that worked.
// Drawn underlined in the parent's font, in the link, visited or disabled
// colour; the user's browser settings may give the two link colours. Only
// the text's rectangle is the link: the hand cursor and the tooltip are
// over it, a click is a press and release inside it, and Return or Space
// follow it while it has the focus.
#pragma once

#include <string>

#include "platform/window/wingdi.h"
#include "platform/window/winuser.h"

class CHyperlink {
 public:
  CHyperlink();
  ~CHyperlink();  // gives the label its own procedure back if it still exists
  CHyperlink(const CHyperlink&) = delete;
  CHyperlink& operator=(const CHyperlink&) = delete;

  // Takes over control `id` of `dialog`. Command mode until SetURL.
  BOOL ConvertStaticToHyperlink(HWND dialog, int id);
  // Link mode: following opens `url`, which the tooltip shows.
  void SetURL(const char* url);
  BOOL IsVisited() const { return m_Visited; }
  COLORREF LinkColour() const { return m_LinkColour; }
  COLORREF VisitedColour() const { return m_VisitedColour; }

 private:
  static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
  LRESULT OnMessage(UINT message, WPARAM wParam, LPARAM lParam);
  void Follow();
  RECT TextRect();
  void Paint();
  void UpdateTooltip();

  HWND m_hwnd = nullptr;
  HWND m_Tooltip = nullptr;
  WNDPROC m_OldProc = nullptr;
  HFONT m_Font = nullptr;
  std::string m_URL;  // empty: command mode
  COLORREF m_LinkColour;
  COLORREF m_VisitedColour;
  bool m_Visited = false;
  bool m_Pressed = false;
  bool m_Hover = false;
};
