// The common controls the pages use: the list view in report mode and the
// tooltip, with the platform's message numbers and structures.
#pragma once

#include "platform/window/winuser.h"

#define WC_LISTVIEWA "SysListView32"
#define TOOLTIPS_CLASSA "tooltips_class32"

inline constexpr DWORD LVS_REPORT = 0x0001;
inline constexpr DWORD LVS_SINGLESEL = 0x0004;
inline constexpr DWORD LVS_SHOWSELALWAYS = 0x0008;
inline constexpr DWORD LVS_NOSORTHEADER = 0x8000;

inline constexpr UINT LVM_FIRST = 0x1000;
inline constexpr UINT LVM_GETITEMCOUNT = LVM_FIRST + 4;
inline constexpr UINT LVM_SETITEMA = LVM_FIRST + 6;
inline constexpr UINT LVM_INSERTITEMA = LVM_FIRST + 7;
inline constexpr UINT LVM_DELETEALLITEMS = LVM_FIRST + 9;
inline constexpr UINT LVM_GETNEXTITEM = LVM_FIRST + 12;
inline constexpr UINT LVM_GETCOLUMNA = LVM_FIRST + 25;
inline constexpr UINT LVM_INSERTCOLUMNA = LVM_FIRST + 27;
inline constexpr UINT LVM_SETITEMSTATE = LVM_FIRST + 43;
inline constexpr UINT LVM_GETITEMTEXTA = LVM_FIRST + 45;
inline constexpr UINT LVM_SETITEMTEXTA = LVM_FIRST + 46;

inline constexpr UINT LVCF_FMT = 0x0001;
inline constexpr UINT LVCF_WIDTH = 0x0002;
inline constexpr UINT LVCF_TEXT = 0x0004;
inline constexpr UINT LVCF_SUBITEM = 0x0008;
inline constexpr int LVCFMT_LEFT = 0x0000;

inline constexpr UINT LVIF_TEXT = 0x0001;
inline constexpr UINT LVIF_STATE = 0x0008;
inline constexpr UINT LVIS_FOCUSED = 0x0001;
inline constexpr UINT LVIS_SELECTED = 0x0002;
inline constexpr LPARAM LVNI_SELECTED = 0x0002;

struct LVCOLUMNA {
  UINT mask;
  int fmt;
  int cx;
  LPSTR pszText;
  int cchTextMax;
  int iSubItem;
  int iImage;
  int iOrder;
};

struct LVITEMA {
  UINT mask;
  int iItem;
  int iSubItem;
  UINT state;
  UINT stateMask;
  LPSTR pszText;
  int cchTextMax;
  int iImage;
  LPARAM lParam;
  int iIndent;
};

inline constexpr UINT TTM_ACTIVATE = WM_USER + 1;
inline constexpr UINT TTM_ADDTOOLA = WM_USER + 4;
inline constexpr UINT TTM_DELTOOLA = WM_USER + 5;
inline constexpr UINT TTM_NEWTOOLRECTA = WM_USER + 6;
inline constexpr UINT TTM_UPDATETIPTEXTA = WM_USER + 12;

inline constexpr UINT TTF_IDISHWND = 0x0001;
inline constexpr UINT TTF_SUBCLASS = 0x0010;
inline constexpr DWORD TTS_ALWAYSTIP = 0x01;
inline constexpr DWORD TTS_NOPREFIX = 0x02;

struct TOOLINFOA {
  UINT cbSize;
  UINT uFlags;
  HWND hwnd;
  UINT_PTR uId;
  RECT rect;
  HINSTANCE hinst;
  LPSTR lpszText;
  LPARAM lParam;
  void* lpReserved;
};

inline constexpr DWORD ICC_LISTVIEW_CLASSES = 0x0001;
inline constexpr DWORD ICC_BAR_CLASSES = 0x0004;
inline constexpr DWORD ICC_TAB_CLASSES = 0x0008;

struct INITCOMMONCONTROLSEX {
  DWORD dwSize;
  DWORD dwICC;
};

BOOL InitCommonControlsEx(const INITCOMMONCONTROLSEX* init);
