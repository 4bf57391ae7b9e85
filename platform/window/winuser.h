// The window layer of the stand-in: dialogs made from a module's templates,
// their controls by id, window procedures and subclassing, timers, focus and
// the cursor, with the names, values and calling rules of the platform's
// user interface library. Windows live in a model that a program drives and
// reads back (window_model.h); a host can put real widgets on it.
//
// Windows belong to the thread that made them. Their messages are sent on
// that thread; timers and posted messages are delivered to them when that
// thread pumps its messages (PlatformPumpMessages).
#pragma once

#include "platform/com/objbase.h"
#include "platform/win32/files.h"
#include "platform/win32/messages.h"
#include "platform/win32/win_types.h"

using DLGPROC = INT_PTR(CALLBACK*)(HWND, UINT, WPARAM, LPARAM);
using WNDPROC = LRESULT(CALLBACK*)(HWND, UINT, WPARAM, LPARAM);
using TIMERPROC = void(CALLBACK*)(HWND, UINT, UINT_PTR, DWORD);

struct HCURSOR__;
using HCURSOR = HCURSOR__*;
struct HMENU__;
using HMENU = HMENU__*;

// ---- Messages ----
inline constexpr UINT WM_NULL = 0x0000;
inline constexpr UINT WM_CREATE = 0x0001;
inline constexpr UINT WM_DESTROY = 0x0002;
inline constexpr UINT WM_SETFOCUS = 0x0007;
inline constexpr UINT WM_KILLFOCUS = 0x0008;
inline constexpr UINT WM_ENABLE = 0x000A;
inline constexpr UINT WM_SETTEXT = 0x000C;
inline constexpr UINT WM_GETTEXT = 0x000D;
inline constexpr UINT WM_GETTEXTLENGTH = 0x000E;
inline constexpr UINT WM_PAINT = 0x000F;
inline constexpr UINT WM_SHOWWINDOW = 0x0018;
inline constexpr UINT WM_SETCURSOR = 0x0020;
inline constexpr UINT WM_SETFONT = 0x0030;
inline constexpr UINT WM_GETFONT = 0x0031;
inline constexpr UINT WM_NOTIFY = 0x004E;
inline constexpr UINT WM_NCDESTROY = 0x0082;
inline constexpr UINT WM_GETDLGCODE = 0x0087;
inline constexpr UINT WM_KEYDOWN = 0x0100;
inline constexpr UINT WM_KEYUP = 0x0101;
inline constexpr UINT WM_CHAR = 0x0102;
inline constexpr UINT WM_INITDIALOG = 0x0110;
inline constexpr UINT WM_COMMAND = 0x0111;
inline constexpr UINT WM_TIMER = 0x0113;
inline constexpr UINT WM_CTLCOLORSTATIC = 0x0138;
inline constexpr UINT WM_MOUSEMOVE = 0x0200;
inline constexpr UINT WM_LBUTTONDOWN = 0x0201;
inline constexpr UINT WM_LBUTTONUP = 0x0202;
inline constexpr UINT WM_MOUSELEAVE = 0x02A3;

// ---- Window styles ----
inline constexpr DWORD WS_OVERLAPPED = 0x00000000;
inline constexpr DWORD WS_POPUP = 0x80000000;
inline constexpr DWORD WS_CHILD = 0x40000000;
inline constexpr DWORD WS_VISIBLE = 0x10000000;
inline constexpr DWORD WS_DISABLED = 0x08000000;
inline constexpr DWORD WS_CAPTION = 0x00C00000;
inline constexpr DWORD WS_BORDER = 0x00800000;
inline constexpr DWORD WS_VSCROLL = 0x00200000;
inline constexpr DWORD WS_HSCROLL = 0x00100000;
inline constexpr DWORD WS_SYSMENU = 0x00080000;
inline constexpr DWORD WS_GROUP = 0x00020000;
inline constexpr DWORD WS_TABSTOP = 0x00010000;
inline constexpr DWORD WS_EX_CLIENTEDGE = 0x00000200;
inline constexpr DWORD WS_EX_STATICEDGE = 0x00020000;
inline constexpr DWORD WS_EX_TOPMOST = 0x00000008;

inline constexpr DWORD DS_3DLOOK = 0x0004;
inline constexpr DWORD DS_FIXEDSYS = 0x0008;
inline constexpr DWORD DS_SETFONT = 0x0040;
inline constexpr DWORD DS_CONTROL = 0x0400;
inline constexpr DWORD DS_SHELLFONT = DS_SETFONT | DS_FIXEDSYS;

// Static controls.
inline constexpr DWORD SS_LEFT = 0x0000;
inline constexpr DWORD SS_CENTER = 0x0001;
inline constexpr DWORD SS_RIGHT = 0x0002;
inline constexpr DWORD SS_BITMAP = 0x000E;
inline constexpr DWORD SS_LEFTNOWORDWRAP = 0x000C;
inline constexpr DWORD SS_TYPEMASK = 0x001F;
inline constexpr DWORD SS_NOTIFY = 0x0100;
inline constexpr DWORD SS_CENTERIMAGE = 0x0200;
inline constexpr DWORD SS_REALSIZEIMAGE = 0x0800;
inline constexpr DWORD SS_SUNKEN = 0x1000;
// Buttons.
inline constexpr DWORD BS_PUSHBUTTON = 0x0000;
inline constexpr DWORD BS_CHECKBOX = 0x0002;
inline constexpr DWORD BS_AUTOCHECKBOX = 0x0003;
inline constexpr DWORD BS_GROUPBOX = 0x0007;
inline constexpr DWORD BS_TYPEMASK = 0x000F;
// List boxes.
inline constexpr DWORD LBS_NOTIFY = 0x0001;
inline constexpr DWORD LBS_SORT = 0x0002;
inline constexpr DWORD LBS_NOINTEGRALHEIGHT = 0x0100;
// Combo boxes.
inline constexpr DWORD CBS_DROPDOWN = 0x0002;
inline constexpr DWORD CBS_DROPDOWNLIST = 0x0003;
// Edits.
inline constexpr DWORD ES_LEFT = 0x0000;
inline constexpr DWORD ES_LOWERCASE = 0x0010;
inline constexpr DWORD ES_AUTOHSCROLL = 0x0080;

// ---- Control messages and notifications ----
inline constexpr UINT BM_GETCHECK = 0x00F0;
inline constexpr UINT BM_SETCHECK = 0x00F1;
inline constexpr UINT BST_UNCHECKED = 0;
inline constexpr UINT BST_CHECKED = 1;
inline constexpr WORD BN_CLICKED = 0;
inline constexpr WORD STN_CLICKED = 0;

inline constexpr UINT EM_LIMITTEXT = 0x00C5;
inline constexpr UINT EM_SETLIMITTEXT = EM_LIMITTEXT;
inline constexpr WORD EN_CHANGE = 0x0300;

inline constexpr UINT LB_ADDSTRING = 0x0180;
inline constexpr UINT LB_INSERTSTRING = 0x0181;
inline constexpr UINT LB_DELETESTRING = 0x0182;
inline constexpr UINT LB_RESETCONTENT = 0x0184;
inline constexpr UINT LB_SETCURSEL = 0x0186;
inline constexpr UINT LB_GETCURSEL = 0x0188;
inline constexpr UINT LB_GETTEXT = 0x0189;
inline constexpr UINT LB_GETTEXTLEN = 0x018A;
inline constexpr UINT LB_GETCOUNT = 0x018B;
inline constexpr UINT LB_GETITEMDATA = 0x0199;
inline constexpr UINT LB_SETITEMDATA = 0x019A;
inline constexpr LRESULT LB_ERR = -1;
inline constexpr WORD LBN_SELCHANGE = 1;

inline constexpr UINT CB_ADDSTRING = 0x0143;
inline constexpr UINT CB_DELETESTRING = 0x0144;
inline constexpr UINT CB_GETCOUNT = 0x0146;
inline constexpr UINT CB_GETCURSEL = 0x0147;
inline constexpr UINT CB_GETLBTEXT = 0x0148;
inline constexpr UINT CB_GETLBTEXTLEN = 0x0149;
inline constexpr UINT CB_INSERTSTRING = 0x014A;
inline constexpr UINT CB_RESETCONTENT = 0x014B;
inline constexpr UINT CB_SETCURSEL = 0x014E;
inline constexpr UINT CB_GETITEMDATA = 0x0150;
inline constexpr UINT CB_SETITEMDATA = 0x0151;
inline constexpr LRESULT CB_ERR = -1;
inline constexpr WORD CBN_SELCHANGE = 1;

// WM_GETDLGCODE answers.
inline constexpr LRESULT DLGC_WANTARROWS = 0x0001;
inline constexpr LRESULT DLGC_WANTTAB = 0x0002;
inline constexpr LRESULT DLGC_WANTALLKEYS = 0x0004;
inline constexpr LRESULT DLGC_WANTMESSAGE = 0x0004;
inline constexpr LRESULT DLGC_WANTCHARS = 0x0080;
inline constexpr LRESULT DLGC_BUTTON = 0x2000;
inline constexpr LRESULT DLGC_STATIC = 0x0100;

inline constexpr WPARAM VK_RETURN = 0x0D;
inline constexpr WPARAM VK_SPACE = 0x20;

// ---- Window data ----
inline constexpr int GWLP_WNDPROC = -4;
inline constexpr int GWLP_HINSTANCE = -6;
inline constexpr int GWLP_ID = -12;
inline constexpr int GWL_STYLE = -16;
inline constexpr int GWL_EXSTYLE = -20;
inline constexpr int GWLP_USERDATA = -21;
// A dialog's extra words: its message result, its procedure, and one for
// its user, as on 64-bit systems.
inline constexpr int DWLP_MSGRESULT = 0;
inline constexpr int DWLP_DLGPROC = DWLP_MSGRESULT + static_cast<int>(sizeof(LRESULT));
inline constexpr int DWLP_USER = DWLP_DLGPROC + static_cast<int>(sizeof(DLGPROC));

inline constexpr int SW_HIDE = 0;
inline constexpr int SW_SHOWNORMAL = 1;
inline constexpr int SW_SHOW = 5;

inline constexpr int COLOR_WINDOW = 5;
inline constexpr int COLOR_WINDOWTEXT = 8;
inline constexpr int COLOR_BTNFACE = 15;
inline constexpr int COLOR_GRAYTEXT = 17;
inline constexpr int COLOR_HOTLIGHT = 26;

#define IDC_ARROW MAKEINTRESOURCEA(32512)
#define IDC_HAND MAKEINTRESOURCEA(32649)

// ---- Dialogs ----
// Makes the dialog `templateName` of `module` (null: the program) as a
// child of `parent` when its style says WS_CHILD. Sends WM_SETFONT and then
// WM_INITDIALOG with `initParam` to `dialogProc`; the dialog is visible when
// its template says WS_VISIBLE. Null with ERROR_RESOURCE_NAME_NOT_FOUND when
// the module has no such template.
HWND CreateDialogParamA(HINSTANCE module, LPCSTR templateName, HWND parent, DLGPROC dialogProc, LPARAM initParam);
// Sends WM_DESTROY to the window and then to its children, and
// WM_NCDESTROY to the children and then to the window, and forgets them
// with their timers.
BOOL DestroyWindow(HWND window);
HWND GetDlgItem(HWND dialog, int id);
int GetDlgCtrlID(HWND control);
HWND GetParent(HWND window);
BOOL SetDlgItemTextA(HWND dialog, int id, LPCSTR text);
UINT GetDlgItemTextA(HWND dialog, int id, LPSTR buffer, int size);
BOOL SetWindowTextA(HWND window, LPCSTR text);
int GetWindowTextA(HWND window, LPSTR buffer, int size);
int GetWindowTextLengthA(HWND window);
BOOL CheckDlgButton(HWND dialog, int id, UINT check);
UINT IsDlgButtonChecked(HWND dialog, int id);
LRESULT SendMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
LRESULT SendDlgItemMessageA(HWND dialog, int id, UINT message, WPARAM wParam, LPARAM lParam);
// Converts a rectangle in dialog units of the dialog's font into pixels.
BOOL MapDialogRect(HWND dialog, LPRECT rect);

// ---- Windows in general ----
// The tooltip window class of the common controls; any other class name
// gives a plain window (DefWindowProcA), such as a frame for pages.
HWND CreateWindowExA(DWORD exStyle, LPCSTR className, LPCSTR windowName, DWORD style, int x, int y, int width,
                     int height, HWND parent, HMENU menu, HINSTANCE module, LPVOID param);
LONG_PTR SetWindowLongPtrA(HWND window, int index, LONG_PTR value);
LONG_PTR GetWindowLongPtrA(HWND window, int index);
LRESULT CallWindowProcA(WNDPROC proc, HWND window, UINT message, WPARAM wParam, LPARAM lParam);
LRESULT DefWindowProcA(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
BOOL ShowWindow(HWND window, int command);
BOOL IsWindowVisible(HWND window);
BOOL EnableWindow(HWND window, BOOL enable);
BOOL IsWindowEnabled(HWND window);
BOOL GetClientRect(HWND window, LPRECT rect);
// Pixels relative to the parent's client area, the desktop's for its
// children; there is no screen beyond that here.
BOOL GetWindowRect(HWND window, LPRECT rect);
BOOL MoveWindow(HWND window, int x, int y, int width, int height, BOOL repaint);
// The cursor's position on the screen, which is the desktop's client area:
// a window lies at the sum of its and its parents' positions.
BOOL GetCursorPos(POINT* point);
BOOL ScreenToClient(HWND window, POINT* point);
BOOL ClientToScreen(HWND window, POINT* point);
// The parent of top-level windows, such as a dialog made only to be measured.
HWND GetDesktopWindow();
BOOL InvalidateRect(HWND window, const RECT* rect, BOOL erase);
HWND SetFocus(HWND window);
HWND GetFocus();
HCURSOR LoadCursorA(HINSTANCE module, LPCSTR name);
HCURSOR SetCursor(HCURSOR cursor);
DWORD GetSysColor(int index);
BOOL PtInRect(const RECT* rect, POINT point);

// ---- Timers ----
// Starts or restarts timer `id` of `window`: WM_TIMER with wParam `id`
// reaches the window every `elapse` ms while its thread pumps. Returns `id`,
// or 0 for a window that isn't there. The procedure form is not offered.
UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT elapse, TIMERPROC proc);
BOOL KillTimer(HWND window, UINT_PTR id);

inline constexpr DWORD ERROR_CANNOT_FIND_WND_CLASS = 1407;
inline constexpr DWORD ERROR_INVALID_DLG_ITEM = 1421;
