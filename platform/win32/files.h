// Win32 file calls over POSIX, with 64-bit sizes, and the thread's last error.
#pragma once

#include <cstdint>

#include "platform/win32/win_types.h"

inline constexpr DWORD GENERIC_READ = 0x80000000;
inline constexpr DWORD GENERIC_WRITE = 0x40000000;
inline constexpr DWORD FILE_READ_DATA = 0x0001;
inline constexpr DWORD FILE_WRITE_DATA = 0x0002;

inline constexpr DWORD FILE_SHARE_READ = 1;
inline constexpr DWORD FILE_SHARE_WRITE = 2;
inline constexpr DWORD FILE_SHARE_DELETE = 4;

inline constexpr DWORD CREATE_NEW = 1;
inline constexpr DWORD CREATE_ALWAYS = 2;
inline constexpr DWORD OPEN_EXISTING = 3;
inline constexpr DWORD OPEN_ALWAYS = 4;
inline constexpr DWORD TRUNCATE_EXISTING = 5;

inline constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x01;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
inline constexpr DWORD FILE_ATTRIBUTE_REPARSE_POINT = 0x400;
inline constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFF;

inline constexpr DWORD FILE_BEGIN = 0;
inline constexpr DWORD FILE_CURRENT = 1;
inline constexpr DWORD FILE_END = 2;

inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1));
inline constexpr DWORD INVALID_SET_FILE_POINTER = 0xFFFFFFFF;
inline constexpr DWORD INVALID_FILE_SIZE = 0xFFFFFFFF;

// Per thread, as on the platform. Successful calls of SetFilePointer and
// GetFileSize clear it, because a low half of 0xFFFFFFFF is a valid answer
// that callers tell apart from failure by GetLastError() == ERROR_SUCCESS.
DWORD GetLastError();
void SetLastError(DWORD error);

// Sharing flags are accepted and not enforced: a file stays readable while
// another process writes it. Directories fail with ERROR_ACCESS_DENIED;
// a create whose folder is missing fails with ERROR_PATH_NOT_FOUND.
// CREATE_ALWAYS and OPEN_ALWAYS set ERROR_ALREADY_EXISTS when the file was
// there. Security attributes, attributes and the template are ignored.
HANDLE CreateFileA(LPCSTR name, DWORD access, DWORD share, void* security, DWORD disposition,
                   DWORD flagsAndAttributes, HANDLE templateFile);

// Reads until `toRead` bytes or end of file; at end of file returns TRUE with
// *read short or 0. Overlapped I/O is not supported (ERROR_INVALID_PARAMETER).
BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, DWORD* read, void* overlapped);

BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, DWORD* written, void* overlapped);

// With distanceHigh, the distance is the 64-bit high:low and the new
// position's high half is written back. Without it, the distance is the
// sign-extended low part and a new position beyond 32 bits fails with
// ERROR_INVALID_PARAMETER. Returns the low half of the new position.
DWORD SetFilePointer(HANDLE file, LONG distanceLow, LONG* distanceHigh, DWORD method);

// What stands at the name, the name itself when it is a link: a folder, a
// link, a read-only or a plain file; INVALID_FILE_ATTRIBUTES and the error
// when nothing does.
DWORD GetFileAttributesA(LPCSTR name);

// Removes a file (not a directory: ERROR_ACCESS_DENIED, as on the platform).
// The wide name goes to the file system in the ANSI code page.
BOOL DeleteFileW(LPCWSTR name);
BOOL DeleteFileA(LPCSTR name);

// Suspends the calling thread for at least `milliseconds`.
void Sleep(DWORD milliseconds);

// The operating system's id of the calling process.
DWORD GetCurrentProcessId();

// Asks the file system on every call, so growth by another writer shows.
DWORD GetFileSize(HANDLE file, DWORD* high);

// Only file handles exist in the stand-in so far.
BOOL CloseHandle(HANDLE handle);
