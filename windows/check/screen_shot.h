// Screenshots for the Wine checks: what the screen shows of a window's
// client area, saved as a PNG file.
#pragma once

#include <windows.h>

#include <string>

// False when the window has no area or the file cannot be written.
bool CaptureWindow(HWND window, const std::wstring& path);
