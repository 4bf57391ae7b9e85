// Basic types, calling convention macros and result codes of the platform,
// with the names and values of the Windows SDK so a Windows build can swap
// this header for the real ones.
#pragma once

#include <cstddef>
#include <cstdint>

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using UINT = unsigned int;
using INT = int;
using BOOL = int;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using HRESULT = std::int32_t;
using WCHAR = wchar_t;
using CHAR = char;
using LPSTR = char*;
using LPCSTR = const char*;
using LPWSTR = wchar_t*;
using LPCWSTR = const wchar_t*;
using LPVOID = void*;
using LPCVOID = const void*;
using HANDLE = void*;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using LRESULT = std::intptr_t;
using SIZE_T = std::size_t;
using ULONG_PTR = std::uintptr_t;
using REFERENCE_TIME = std::int64_t;
using INT_PTR = std::intptr_t;
using UINT_PTR = std::uintptr_t;
using LONG_PTR = std::intptr_t;
using DWORD_PTR = std::uintptr_t;
using COLORREF = DWORD;
using OLECHAR = WCHAR;
using LPOLESTR = OLECHAR*;
using LPCOLESTR = const OLECHAR*;
using LCID = DWORD;

struct HWND__;
using HWND = HWND__*;

struct RECT {
  LONG left;
  LONG top;
  LONG right;
  LONG bottom;
};
using LPRECT = RECT*;
using LPCRECT = const RECT*;

struct POINT {
  LONG x;
  LONG y;
};

struct SIZE {
  LONG cx;
  LONG cy;
};

#define CALLBACK

// A resource named by number rather than by text, and the test for one.
#define MAKEINTRESOURCEA(id) (reinterpret_cast<LPSTR>(static_cast<ULONG_PTR>(static_cast<WORD>(id))))
#define IS_INTRESOURCE(p) ((reinterpret_cast<ULONG_PTR>(p) >> 16) == 0)

constexpr WORD LOWORD(ULONG_PTR value) { return static_cast<WORD>(value & 0xFFFF); }
constexpr WORD HIWORD(ULONG_PTR value) { return static_cast<WORD>((value >> 16) & 0xFFFF); }
constexpr WPARAM MAKEWPARAM(WORD low, WORD high) { return static_cast<WPARAM>(static_cast<DWORD>(low) | (static_cast<DWORD>(high) << 16)); }
constexpr LPARAM MAKELPARAM(WORD low, WORD high) { return static_cast<LPARAM>(static_cast<DWORD>(low) | (static_cast<DWORD>(high) << 16)); }
constexpr COLORREF RGB(BYTE red, BYTE green, BYTE blue) { return static_cast<COLORREF>(red | (green << 8) | (blue << 16)); }
constexpr BYTE GetRValue(COLORREF colour) { return static_cast<BYTE>(colour & 0xFF); }
constexpr BYTE GetGValue(COLORREF colour) { return static_cast<BYTE>((colour >> 8) & 0xFF); }
constexpr BYTE GetBValue(COLORREF colour) { return static_cast<BYTE>((colour >> 16) & 0xFF); }

// 100-nanosecond intervals since 1601, split in halves as on the platform.
struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

inline constexpr BOOL TRUE = 1;
inline constexpr BOOL FALSE = 0;
inline constexpr DWORD MAX_PATH = 260;
inline constexpr DWORD INFINITE = 0xFFFFFFFF;

// x86-64 has one calling convention; the macro keeps the declarations in the
// platform's form.
#define STDMETHODCALLTYPE
#define STDMETHOD(method) virtual HRESULT STDMETHODCALLTYPE method
#define STDMETHOD_(type, method) virtual type STDMETHODCALLTYPE method
#define STDMETHODIMP HRESULT STDMETHODCALLTYPE
#define STDMETHODIMP_(type) type STDMETHODCALLTYPE
#define PURE = 0

constexpr bool SUCCEEDED(HRESULT hr) { return hr >= 0; }
constexpr bool FAILED(HRESULT hr) { return hr < 0; }

constexpr HRESULT MakeHResult(std::uint32_t bits) { return static_cast<HRESULT>(bits); }

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_NOTIMPL = MakeHResult(0x80004001u);
inline constexpr HRESULT E_NOINTERFACE = MakeHResult(0x80004002u);
inline constexpr HRESULT E_POINTER = MakeHResult(0x80004003u);
inline constexpr HRESULT E_ABORT = MakeHResult(0x80004004u);
inline constexpr HRESULT E_FAIL = MakeHResult(0x80004005u);
inline constexpr HRESULT E_UNEXPECTED = MakeHResult(0x8000FFFFu);
inline constexpr HRESULT E_ACCESSDENIED = MakeHResult(0x80070005u);
inline constexpr HRESULT E_HANDLE = MakeHResult(0x80070006u);
inline constexpr HRESULT E_OUTOFMEMORY = MakeHResult(0x8007000Eu);
inline constexpr HRESULT E_INVALIDARG = MakeHResult(0x80070057u);
inline constexpr HRESULT CLASS_E_NOAGGREGATION = MakeHResult(0x80040110u);
inline constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = MakeHResult(0x80040111u);
inline constexpr HRESULT REGDB_E_CLASSNOTREG = MakeHResult(0x80040154u);
inline constexpr HRESULT CO_E_CLASSSTRING = MakeHResult(0x800401F3u);

// Win32 error codes that the stand-in reports through GetLastError.
inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr DWORD ERROR_TOO_MANY_OPEN_FILES = 4;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_SHARING_VIOLATION = 32;
inline constexpr DWORD ERROR_HANDLE_EOF = 38;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_RESOURCE_NAME_NOT_FOUND = 1814;
inline constexpr DWORD ERROR_NEGATIVE_SEEK = 131;
inline constexpr DWORD ERROR_FILENAME_EXCED_RANGE = 206;
inline constexpr DWORD ERROR_NO_UNICODE_TRANSLATION = 1113;
inline constexpr DWORD ERROR_INVALID_WINDOW_HANDLE = 1400;
inline constexpr DWORD ERROR_GEN_FAILURE = 31;
inline constexpr DWORD ERROR_FILE_EXISTS = 80;
inline constexpr DWORD ERROR_DISK_FULL = 112;
inline constexpr DWORD ERROR_ALREADY_EXISTS = 183;
inline constexpr DWORD ERROR_NOT_ENOUGH_QUOTA = 1816;
inline constexpr DWORD ERROR_BAD_PATHNAME = 161;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
inline constexpr DWORD ERROR_NOACCESS = 998;
inline constexpr DWORD ERROR_BADDB = 1009;
inline constexpr DWORD ERROR_KEY_DELETED = 1018;

// A Win32 error as an HRESULT: positive codes go into the FACILITY_WIN32
// space by their low 16 bits, anything else passes unchanged.
constexpr HRESULT HRESULT_FROM_WIN32(DWORD error) {
  return static_cast<LONG>(error) <= 0 ? static_cast<HRESULT>(error)
                                       : MakeHResult((error & 0x0000FFFFu) | 0x80070000u);
}
