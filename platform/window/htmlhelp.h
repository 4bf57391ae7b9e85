// The help library's declarations. A program that must run without the
// library loads it itself and takes HtmlHelpA as its export of ordinal 14.
#pragma once

#include "platform/window/winuser.h"

inline constexpr UINT HH_DISPLAY_TOPIC = 0x0000;

extern "C" HWND WINAPI HtmlHelpA(HWND caller, LPCSTR file, UINT command, DWORD_PTR data);
