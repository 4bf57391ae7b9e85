// The drawing calls a control makes while it paints itself: fonts, text in
// a colour, a focus rectangle. Here a device context records what is drawn,
// so a program can read a control's last painting back (window_model.h) and
// a host can replay it on a real surface.
#pragma once

#include "platform/window/winuser.h"

struct HDC__;
using HDC = HDC__*;
struct HGDIOBJ__;
using HGDIOBJ = HGDIOBJ__*;
using HFONT = HGDIOBJ;
using HBITMAP = HGDIOBJ;
using HBRUSH = HGDIOBJ;

inline constexpr LONG FW_NORMAL = 400;
inline constexpr LONG FW_BOLD = 700;
inline constexpr int LF_FACESIZE = 32;

struct LOGFONTA {
  LONG lfHeight;
  LONG lfWidth;
  LONG lfEscapement;
  LONG lfOrientation;
  LONG lfWeight;
  BYTE lfItalic;
  BYTE lfUnderline;
  BYTE lfStrikeOut;
  BYTE lfCharSet;
  BYTE lfOutPrecision;
  BYTE lfClipPrecision;
  BYTE lfQuality;
  BYTE lfPitchAndFamily;
  CHAR lfFaceName[LF_FACESIZE];
};

struct PAINTSTRUCT {
  HDC hdc;
  BOOL fErase;
  RECT rcPaint;
  BOOL fRestore;
  BOOL fIncUpdate;
  BYTE rgbReserved[32];
};

inline constexpr int TRANSPARENT = 1;
inline constexpr int OPAQUE = 2;

inline constexpr UINT DT_LEFT = 0x0000;
inline constexpr UINT DT_CENTER = 0x0001;
inline constexpr UINT DT_RIGHT = 0x0002;
inline constexpr UINT DT_VCENTER = 0x0004;
inline constexpr UINT DT_SINGLELINE = 0x0020;
inline constexpr UINT DT_CALCRECT = 0x0400;
inline constexpr UINT DT_NOPREFIX = 0x0800;

HFONT CreateFontIndirectA(const LOGFONTA* font);
// The LOGFONTA of a font: copies min(size, sizeof(LOGFONTA)) bytes and
// returns that count, 0 for anything that isn't a font.
int GetObjectA(HGDIOBJ object, int size, LPVOID out);
BOOL DeleteObject(HGDIOBJ object);
HGDIOBJ SelectObject(HDC dc, HGDIOBJ object);
COLORREF SetTextColor(HDC dc, COLORREF colour);
int SetBkMode(HDC dc, int mode);
// Draws (or with DT_CALCRECT only measures, widening `rect` to the text's
// size) `count` characters of `text`, all of it when count is -1. Returns
// the height of the text.
int DrawTextA(HDC dc, LPCSTR text, int count, LPRECT rect, UINT format);
BOOL DrawFocusRect(HDC dc, const RECT* rect);
HDC BeginPaint(HWND window, PAINTSTRUCT* paint);
BOOL EndPaint(HWND window, const PAINTSTRUCT* paint);
HDC GetDC(HWND window);
int ReleaseDC(HWND window, HDC dc);
