#include "host/hyperlink.h"

#include <cstring>

#include "platform/win32/registry.h"
#include "platform/window/commctrl.h"
#include "platform/window/shellapi.h"

namespace {

constexpr COLORREF kDefaultLinkColour = RGB(0, 0, 255);
constexpr COLORREF kDefaultVisitedColour = RGB(128, 0, 128);
constexpr const char kBrowserSettingsKey[] = "Software\\Microsoft\\Internet Explorer\\Settings";
constexpr const char kCommandTip[] = "Help";
// A label's text and a colour value are short; longer ones are cut.
constexpr int kMaxText = 256;
constexpr UINT_PTR kToolId = 1;

// "r,g,b" in decimal, each 0 to 255, blanks allowed around the numbers;
// anything else doesn't parse.
bool ParseColour(const char* text, COLORREF* colour) {
  int parts[3] = {};
  const char* p = text;
  for (int i = 0; i < 3; ++i) {
    while (*p == ' ') ++p;
    int digits = 0;
    int value = 0;
    while (*p >= '0' && *p <= '9' && digits < 4) {
      value = value * 10 + (*p - '0');
      ++p;
      ++digits;
    }
    if (digits == 0 || value > 255) return false;
    parts[i] = value;
    while (*p == ' ') ++p;
    if (i < 2) {
      if (*p != ',') return false;
      ++p;
    }
  }
  if (*p != 0) return false;
  *colour = RGB(static_cast<BYTE>(parts[0]), static_cast<BYTE>(parts[1]), static_cast<BYTE>(parts[2]));
  return true;
}

// The user's browser colour `name`, if it is set and parses.
void ReadBrowserColour(HKEY key, const char* name, COLORREF* colour) {
  char text[kMaxText] = {};
  DWORD type = 0;
  DWORD size = sizeof text - 1;
  if (RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE*>(text), &size) != ERROR_SUCCESS) return;
  if (type != REG_SZ) return;
  text[size < sizeof text ? size : sizeof text - 1] = 0;
  ParseColour(text, colour);
}

// DrawTextA's alignment for the label's static style; the text stays on
// one line, as the short labels made into links are.
UINT TextFormat(HWND window) {
  const auto type = static_cast<DWORD>(GetWindowLongPtrA(window, GWL_STYLE)) & SS_TYPEMASK;
  UINT format = DT_SINGLELINE | DT_NOPREFIX;
  if (type == SS_CENTER) format |= DT_CENTER;
  if (type == SS_RIGHT) format |= DT_RIGHT;
  return format;
}

POINT PointOf(LPARAM lParam) {
  return POINT{static_cast<short>(LOWORD(static_cast<ULONG_PTR>(lParam))),
               static_cast<short>(HIWORD(static_cast<ULONG_PTR>(lParam)))};
}

}  // namespace

CHyperlink::CHyperlink() : m_LinkColour(kDefaultLinkColour), m_VisitedColour(kDefaultVisitedColour) {}

CHyperlink::~CHyperlink() {
  // Only while our procedure is still the label's: a label that is gone
  // answers 0, and one subclassed again after us is left to its new owner.
  if (m_hwnd != nullptr &&
      GetWindowLongPtrA(m_hwnd, GWLP_WNDPROC) == reinterpret_cast<LONG_PTR>(&CHyperlink::WindowProc)) {
    SetWindowLongPtrA(m_hwnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(m_OldProc));
    SetWindowLongPtrA(m_hwnd, GWLP_USERDATA, 0);
  }
  if (m_Font != nullptr) DeleteObject(m_Font);
  if (m_Tooltip != nullptr) DestroyWindow(m_Tooltip);
}

BOOL CHyperlink::ConvertStaticToHyperlink(HWND dialog, int id) {
  if (m_hwnd != nullptr) return FALSE;
  HWND label = GetDlgItem(dialog, id);
  if (label == nullptr) return FALSE;

  // The label must tell us of clicks and take the focus for the keys.
  const LONG_PTR style = GetWindowLongPtrA(label, GWL_STYLE);
  SetWindowLongPtrA(label, GWL_STYLE, style | static_cast<LONG_PTR>(SS_NOTIFY | WS_TABSTOP));

  auto* parentFont = reinterpret_cast<HFONT>(SendMessageA(dialog, WM_GETFONT, 0, 0));
  LOGFONTA font{};
  if (parentFont != nullptr && GetObjectA(parentFont, sizeof font, &font) != 0) {
    font.lfUnderline = TRUE;
    m_Font = CreateFontIndirectA(&font);
  }

  m_LinkColour = kDefaultLinkColour;
  m_VisitedColour = kDefaultVisitedColour;
  HKEY key = nullptr;
  if (RegOpenKeyExA(HKEY_CURRENT_USER, kBrowserSettingsKey, 0, KEY_READ, &key) == ERROR_SUCCESS) {
    ReadBrowserColour(key, "Anchor Color", &m_LinkColour);
    ReadBrowserColour(key, "Anchor Color Visited", &m_VisitedColour);
    RegCloseKey(key);
  }

  m_hwnd = label;
  SetWindowLongPtrA(label, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
  m_OldProc = reinterpret_cast<WNDPROC>(
      SetWindowLongPtrA(label, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&CHyperlink::WindowProc)));

  m_Tooltip = CreateWindowExA(0, TOOLTIPS_CLASSA, nullptr, WS_POPUP | TTS_ALWAYSTIP | TTS_NOPREFIX, 0, 0, 0, 0, dialog,
                              nullptr, nullptr, nullptr);
  if (m_Tooltip != nullptr) {
    TOOLINFOA tool{};
    tool.cbSize = sizeof tool;
    tool.uFlags = TTF_SUBCLASS;
    tool.hwnd = label;
    tool.uId = kToolId;
    tool.rect = TextRect();
    tool.lpszText = const_cast<LPSTR>(kCommandTip);
    SendMessageA(m_Tooltip, TTM_ADDTOOLA, 0, reinterpret_cast<LPARAM>(&tool));
  }
  UpdateTooltip();
  InvalidateRect(label, nullptr, TRUE);
  return TRUE;
}

void CHyperlink::SetURL(const char* url) {
  m_URL = url != nullptr ? url : "";
  UpdateTooltip();
}

LRESULT CALLBACK CHyperlink::WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  auto* self = reinterpret_cast<CHyperlink*>(GetWindowLongPtrA(window, GWLP_USERDATA));
  if (self == nullptr || self->m_hwnd != window) return DefWindowProcA(window, message, wParam, lParam);
  return self->OnMessage(message, wParam, lParam);
}

LRESULT CHyperlink::OnMessage(UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case WM_PAINT:
      Paint();
      return 0;

    case WM_SETCURSOR: {
      POINT point{};
      GetCursorPos(&point);
      ScreenToClient(m_hwnd, &point);
      const RECT text = TextRect();
      SetCursor(LoadCursorA(nullptr, PtInRect(&text, point) ? IDC_HAND : IDC_ARROW));
      return TRUE;
    }

    case WM_MOUSEMOVE: {
      const RECT text = TextRect();
      m_Hover = PtInRect(&text, PointOf(lParam)) != FALSE;
      return 0;
    }

    case WM_LBUTTONDOWN: {
      const RECT text = TextRect();
      m_Pressed = PtInRect(&text, PointOf(lParam)) != FALSE;
      return 0;
    }

    case WM_LBUTTONUP: {
      const RECT text = TextRect();
      const bool pressed = m_Pressed;
      m_Pressed = false;
      if (pressed && PtInRect(&text, PointOf(lParam))) Follow();
      return 0;
    }

    case WM_KEYDOWN:
      if (wParam == VK_RETURN || wParam == VK_SPACE) {
        Follow();
        return 0;
      }
      break;

    case WM_GETDLGCODE: {
      // Return and Space are ours while we have the focus; the dialog keeps
      // every other key (Tab, the arrows, Escape).
      const LRESULT base = CallWindowProcA(m_OldProc, m_hwnd, message, wParam, lParam);
      const auto* key = reinterpret_cast<const MSG*>(lParam);
      if (key == nullptr) return base;
      if (key->message == WM_KEYDOWN && (key->wParam == VK_RETURN || key->wParam == VK_SPACE)) {
        return base | DLGC_WANTMESSAGE;
      }
      return base;
    }

    case WM_SETFOCUS:
    case WM_KILLFOCUS:
    case WM_ENABLE:
      InvalidateRect(m_hwnd, nullptr, TRUE);
      break;

    case WM_SETTEXT: {
      const LRESULT result = CallWindowProcA(m_OldProc, m_hwnd, message, wParam, lParam);
      UpdateTooltip();
      InvalidateRect(m_hwnd, nullptr, TRUE);
      return result;
    }

    case WM_NCDESTROY: {
      // The label goes before we do: give it its procedure back now.
      HWND window = m_hwnd;
      WNDPROC old = m_OldProc;
      SetWindowLongPtrA(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(old));
      SetWindowLongPtrA(window, GWLP_USERDATA, 0);
      m_hwnd = nullptr;
      return CallWindowProcA(old, window, message, wParam, lParam);
    }

    default:
      break;
  }
  return CallWindowProcA(m_OldProc, m_hwnd, message, wParam, lParam);
}

void CHyperlink::Follow() {
  HWND parent = GetParent(m_hwnd);
  if (m_URL.empty()) {
    SendMessageA(parent, WM_COMMAND, MAKEWPARAM(static_cast<WORD>(GetDlgCtrlID(m_hwnd)), 0),
                 reinterpret_cast<LPARAM>(m_hwnd));
    return;
  }
  const HINSTANCE result = ShellExecuteA(parent, "open", m_URL.c_str(), nullptr, nullptr, SW_SHOWNORMAL);
  // Values of 32 and below are the shell's errors; the link then stays as it was.
  if (reinterpret_cast<INT_PTR>(result) > 32) {
    m_Visited = true;
    InvalidateRect(m_hwnd, nullptr, TRUE);
  }
}

RECT CHyperlink::TextRect() {
  RECT client{};
  GetClientRect(m_hwnd, &client);
  char text[kMaxText] = {};
  GetWindowTextA(m_hwnd, text, kMaxText);
  HDC dc = GetDC(m_hwnd);
  if (dc == nullptr) return client;
  HGDIOBJ old = m_Font != nullptr ? SelectObject(dc, m_Font) : nullptr;
  RECT measured = client;
  const UINT format = TextFormat(m_hwnd);
  DrawTextA(dc, text, -1, &measured, format | DT_CALCRECT);
  if (old != nullptr) SelectObject(dc, old);
  ReleaseDC(m_hwnd, dc);

  // DT_CALCRECT keeps the left edge; place the text as the label aligns it.
  const LONG width = measured.right - measured.left;
  if ((format & DT_CENTER) != 0) {
    measured.left = client.left + (client.right - client.left - width) / 2;
  } else if ((format & DT_RIGHT) != 0) {
    measured.left = client.right - width;
  }
  measured.right = measured.left + width;
  // Only what lies inside the label can be pointed at.
  RECT inside{};
  inside.left = measured.left > client.left ? measured.left : client.left;
  inside.top = measured.top > client.top ? measured.top : client.top;
  inside.right = measured.right < client.right ? measured.right : client.right;
  inside.bottom = measured.bottom < client.bottom ? measured.bottom : client.bottom;
  if (inside.right < inside.left) inside.right = inside.left;
  if (inside.bottom < inside.top) inside.bottom = inside.top;
  return inside;
}

void CHyperlink::Paint() {
  PAINTSTRUCT paint{};
  HDC dc = BeginPaint(m_hwnd, &paint);
  if (dc == nullptr) return;
  HGDIOBJ old = m_Font != nullptr ? SelectObject(dc, m_Font) : nullptr;
  SetBkMode(dc, TRANSPARENT);
  COLORREF colour = m_Visited ? m_VisitedColour : m_LinkColour;
  if (!IsWindowEnabled(m_hwnd)) colour = GetSysColor(COLOR_GRAYTEXT);
  SetTextColor(dc, colour);

  char text[kMaxText] = {};
  GetWindowTextA(m_hwnd, text, kMaxText);
  RECT client{};
  GetClientRect(m_hwnd, &client);
  DrawTextA(dc, text, -1, &client, TextFormat(m_hwnd));
  if (GetFocus() == m_hwnd) {
    const RECT focus = TextRect();
    DrawFocusRect(dc, &focus);
  }
  if (old != nullptr) SelectObject(dc, old);
  EndPaint(m_hwnd, &paint);
}

void CHyperlink::UpdateTooltip() {
  if (m_Tooltip == nullptr || m_hwnd == nullptr) return;
  TOOLINFOA tool{};
  tool.cbSize = sizeof tool;
  tool.hwnd = m_hwnd;
  tool.uId = kToolId;
  tool.rect = TextRect();
  SendMessageA(m_Tooltip, TTM_NEWTOOLRECTA, 0, reinterpret_cast<LPARAM>(&tool));
  tool.lpszText = const_cast<LPSTR>(m_URL.empty() ? kCommandTip : m_URL.c_str());
  SendMessageA(m_Tooltip, TTM_UPDATETIPTEXTA, 0, reinterpret_cast<LPARAM>(&tool));
}
