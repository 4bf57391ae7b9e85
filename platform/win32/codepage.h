// Conversions between wide strings (UTF-32 wchar_t here) and the ANSI code
// page, which is UTF-8 in the stand-in. Bad input is replaced, never refused.
#pragma once

#include <string>
#include <string_view>

#include "platform/win32/win_types.h"

inline constexpr UINT CP_ACP = 0;
inline constexpr UINT CP_UTF8 = 65001;
inline constexpr DWORD MB_PRECOMPOSED = 1;

// Always CP_UTF8: the stand-in's ANSI code page is UTF-8.
UINT GetACP();

// The platform's contract: a source length of -1 means zero-terminated, and
// the terminator is converted and counted; a destination size of 0 asks for
// the size needed; too small a destination gives 0 and
// ERROR_INSUFFICIENT_BUFFER without writing; a null source, a zero or
// negative (other than -1) length, an unknown code page or overlapping
// buffers give 0 and ERROR_INVALID_PARAMETER.
//
// CP_ACP and CP_UTF8 both mean UTF-8. Flags are ignored: each maximal invalid
// UTF-8 subpart becomes U+FFFD, and so do surrogates and values above
// 0x10FFFF in wide strings. As on the platform, CP_UTF8 refuses a default
// character or usedDefault (ERROR_INVALID_PARAMETER); for CP_ACP
// *usedDefault tells whether anything was replaced.
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR src, int srcChars, LPSTR dst,
                        int dstBytes, LPCSTR defaultChar, BOOL* usedDefault);
int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR src, int srcBytes, LPWSTR dst,
                        int dstChars);

// The same conversions for our own code, without length bookkeeping.
std::string WideToAnsi(std::wstring_view text);
std::wstring AnsiToWide(std::string_view text);
