// ShellExecuteA: opening a document or an address with the program the user
// chose for it (window_model.h says where the stand-in sends it).
#pragma once

#include "platform/window/winuser.h"

// Values of 32 or less are errors.
inline constexpr int SE_ERR_FNF = 2;
inline constexpr int SE_ERR_ACCESSDENIED = 5;
inline constexpr int SE_ERR_NOASSOC = 31;

HINSTANCE ShellExecuteA(HWND owner, LPCSTR verb, LPCSTR file, LPCSTR parameters, LPCSTR directory, int show);
