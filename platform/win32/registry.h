// The registry: hives of keys and typed values that persist as text files,
// with the platform's calls, names and result codes.
//
// Where it lives: one file per hive, HKEY_CURRENT_USER.reg and so on, in
// $BRINDLET_REGISTRY_DIR, else ${XDG_CONFIG_HOME:-$HOME/.config}/brindlet/registry.
// The variables are read on every call, and every call reads the hive from
// disk, so what another process wrote shows at once. Reads never create
// anything; the first write creates the directory.
//
// Writes take an exclusive flock on ".lock" in the directory, read the hive
// afresh, apply their one change, and replace the file whole (temporary file,
// fsync, rename). Two processes writing at once therefore lose nothing, and a
// reader, which takes no lock, always sees one complete file.
//
// A hive file that cannot be parsed is renamed to NAME.reg.corrupt-<UTC time>,
// reported once in one line on stderr, and the hive counts as empty. If it
// cannot be renamed, the hive reads empty and writes fail with ERROR_BADDB
// rather than overwrite it.
//
// The file format, line by line (UTF-8, the ANSI code page here):
//
//   BRINDLET REGISTRY 1                     first line, always
//   ; comment                               also '#'; blank lines are skipped
//   [Software\Caldrovia\Brindlet]           a key, path from the hive's root
//   "ScanPackets"=dword:0000000a            REG_DWORD (1 to 8 hex digits)
//   "Language"="deu"                        REG_SZ
//   "Path"=expand:"%TEMP%\\x"               REG_EXPAND_SZ
//   "Key"=hex:01,a0,ff                      REG_BINARY
//   "Odd"=hex(0):                           any other type, or a DWORD not of
//                                           4 bytes: hex(type in hex):bytes
//   @="text"                                the key's default value
//   END                                     last line; its absence means the
//                                           file was cut short
//
// Values belong to the [key] above them; "[]" holds values of the hive's root.
// In quoted text \\ \" \n \r \t and \xHH are escapes; other bytes stand as
// they are. Keys are written sorted, each with its ancestors; values in the
// order they were created. Key names cannot hold control characters.
//
// Key and value names compare without regard to ASCII case and keep the case
// they were created with. Enumeration gives subkeys in that case-blind order
// and values in creation order, as the platform does.
#pragma once

#include "platform/win32/win_types.h"

struct HKEY__;
using HKEY = HKEY__*;
using PHKEY = HKEY*;
using REGSAM = DWORD;

// Sign-extended from 32 bits, as the platform's headers define them.
inline const HKEY HKEY_CLASSES_ROOT =
    reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000000u)));
inline const HKEY HKEY_CURRENT_USER =
    reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000001u)));
inline const HKEY HKEY_LOCAL_MACHINE =
    reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000002u)));

inline constexpr DWORD REG_NONE = 0;
inline constexpr DWORD REG_SZ = 1;
inline constexpr DWORD REG_EXPAND_SZ = 2;
inline constexpr DWORD REG_BINARY = 3;
inline constexpr DWORD REG_DWORD = 4;

inline constexpr REGSAM KEY_QUERY_VALUE = 0x0001;
inline constexpr REGSAM KEY_SET_VALUE = 0x0002;
inline constexpr REGSAM KEY_CREATE_SUB_KEY = 0x0004;
inline constexpr REGSAM KEY_ENUMERATE_SUB_KEYS = 0x0008;
inline constexpr REGSAM KEY_NOTIFY = 0x0010;
inline constexpr REGSAM KEY_CREATE_LINK = 0x0020;
inline constexpr REGSAM KEY_WOW64_64KEY = 0x0100;
inline constexpr REGSAM KEY_WOW64_32KEY = 0x0200;
inline constexpr REGSAM KEY_READ = 0x20019;
inline constexpr REGSAM KEY_WRITE = 0x20006;
inline constexpr REGSAM KEY_EXECUTE = 0x20019;
inline constexpr REGSAM KEY_ALL_ACCESS = 0xF003F;
inline constexpr REGSAM MAXIMUM_ALLOWED = 0x02000000;

inline constexpr DWORD REG_OPTION_NON_VOLATILE = 0;
inline constexpr DWORD REG_OPTION_VOLATILE = 1;

inline constexpr DWORD REG_CREATED_NEW_KEY = 1;
inline constexpr DWORD REG_OPENED_EXISTING_KEY = 2;

// The platform's limit on how deep keys nest below a hive's root.
inline constexpr DWORD kRegMaxKeyDepth = 512;

// Subkey paths are relative: a leading backslash gives ERROR_BAD_PATHNAME, as
// do control characters and paths deeper than kRegMaxKeyDepth; a trailing or
// doubled backslash is taken as one. A null or empty subkey names `key`
// itself, and open and create then give a new handle to it (to be closed).
//
// A handle names a path, not a key object: if another process or handle
// deletes the key, reads through the handle find nothing (ERROR_FILE_NOT_FOUND,
// or ERROR_NO_MORE_ITEMS when enumerating), writes fail with
// ERROR_KEY_DELETED, and a key created again at that path is seen anew.
//
// Access rights are honoured: a value read needs KEY_QUERY_VALUE, a value
// write KEY_SET_VALUE, listing subkeys KEY_ENUMERATE_SUB_KEYS, and making a
// new subkey KEY_CREATE_SUB_KEY on the handle it is made under; otherwise
// ERROR_ACCESS_DENIED. The predefined hive handles and the handles of
// RegOpenKeyA and RegCreateKeyA have every right. *result is null on failure.
LONG RegOpenKeyExA(HKEY key, LPCSTR subKey, DWORD options, REGSAM desired, PHKEY result);
LONG RegOpenKeyA(HKEY key, LPCSTR subKey, PHKEY result);

// Creates the key and any missing ancestors. Class, options (volatile keys
// persist like the others) and security are ignored; `disposition`, when
// given, receives REG_CREATED_NEW_KEY or REG_OPENED_EXISTING_KEY.
LONG RegCreateKeyExA(HKEY key, LPCSTR subKey, DWORD reserved, LPSTR keyClass, DWORD options,
                     REGSAM desired, void* security, PHKEY result, DWORD* disposition);
LONG RegCreateKeyA(HKEY key, LPCSTR subKey, PHKEY result);

// Closing a predefined hive handle does nothing and succeeds.
LONG RegCloseKey(HKEY key);

// A null or empty name is the default value. With `data` null, *dataSize
// receives the size alone; when it is too small, ERROR_MORE_DATA and the size
// needed. *type is set whenever the value exists. `data` without `dataSize`,
// or a non-null `reserved`, is ERROR_INVALID_PARAMETER.
LONG RegQueryValueExA(HKEY key, LPCSTR name, DWORD* reserved, DWORD* type, BYTE* data,
                      DWORD* dataSize);

// Any type is stored. REG_SZ and REG_EXPAND_SZ are kept as text: the bytes up
// to the first zero within `dataSize`, and a query gives them back with one
// terminating zero, counted in the size. Null `data` with a size is
// ERROR_NOACCESS, as the platform answers for a buffer it cannot read.
LONG RegSetValueExA(HKEY key, LPCSTR name, DWORD reserved, DWORD type, const BYTE* data,
                    DWORD dataSize);

LONG RegDeleteValueA(HKEY key, LPCSTR name);

// Deletes the key with all its subkeys, the older platform behaviour that the
// system's unregistration relies on. An empty subkey deletes `key` itself;
// a hive's root cannot be deleted (ERROR_ACCESS_DENIED). No access right is
// needed on `key`.
LONG RegDeleteKeyA(HKEY key, LPCSTR subKey);

// `nameSize` is in characters: on entry the buffer's size with room for the
// zero, on success the name's length without it. A buffer too small gives
// ERROR_MORE_DATA and leaves *nameSize as it was, as on the platform; size
// buffers with RegQueryInfoKeyA. Keys have no class (empty) and their last
// write time reads as zero.
LONG RegEnumKeyExA(HKEY key, DWORD index, LPSTR name, DWORD* nameSize, DWORD* reserved,
                   LPSTR keyClass, DWORD* classSize, FILETIME* lastWriteTime);

// Names as RegEnumKeyExA; the default value's name is empty. Data as
// RegQueryValueExA: when only the data buffer is too small, the name and type
// are still given, with ERROR_MORE_DATA and the size needed.
LONG RegEnumValueA(HKEY key, DWORD index, LPSTR name, DWORD* nameSize, DWORD* reserved, DWORD* type,
                   BYTE* data, DWORD* dataSize);

// Counts and longest lengths (names in characters without the zero, data in
// bytes) of the key's subkeys and values; any out parameter may be null.
// The security descriptor size and the last write time read as zero.
LONG RegQueryInfoKeyA(HKEY key, LPSTR keyClass, DWORD* classSize, DWORD* reserved, DWORD* subKeys,
                      DWORD* maxSubKeyLength, DWORD* maxClassLength, DWORD* values,
                      DWORD* maxValueNameLength, DWORD* maxValueLength,
                      DWORD* securityDescriptorSize, FILETIME* lastWriteTime);

// The default value of a subkey (or of `key` with a null or empty subkey) as
// text. A key without a default value reads as an empty string, as the
// platform's older call does; a missing key is ERROR_FILE_NOT_FOUND.
LONG RegQueryValueA(HKEY key, LPCSTR subKey, LPSTR data, LONG* dataSize);

// Creates the subkey if needed and sets its default value to the text `data`;
// only REG_SZ is taken, and `dataSize` is ignored, as on the platform.
LONG RegSetValueA(HKEY key, LPCSTR subKey, DWORD type, LPCSTR data, DWORD dataSize);
