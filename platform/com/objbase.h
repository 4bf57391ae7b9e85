// The COM runtime of the stand-in: class factories, CoCreateInstance with
// in-process servers loaded by dlopen, and the module calls a server needs.
//
// CoCreateInstance looks for a class in this order:
//   1. class objects registered in the process (PlatformRegisterClassObject);
//      the platform's own classes (graph manager, system clock, sinks) are
//      registered there on the first call, unless the process put its own
//      factory under their CLSID first;
//   2. modules registered for the process only (PlatformRegisterInprocServer),
//      as registration-free activation does;
//   3. the default value of HKEY_CLASSES_ROOT\CLSID\{...}\InprocServer32.
// A module is loaded once (dlopen RTLD_NOW|RTLD_LOCAL; two paths to one file
// are one module), its exported C function DllMain, if any, is called once
// with DLL_PROCESS_ATTACH, and then DllGetClassObject gives the factory.
// Modules stay loaded until the process ends: objects of a module may be
// held anywhere in the process, and unloading C++ code with static
// destructors or thread-locals is not worth the risk for a stand-in.
#pragma once

#include <string>

#include "platform/com/guid.h"
#include "platform/com/unknwn.h"
#include "platform/win32/win_types.h"

#ifndef WINAPI
#define WINAPI
#endif
#define STDAPICALLTYPE
#define STDAPI extern "C" HRESULT STDAPICALLTYPE
#define STDAPI_(type) extern "C" type STDAPICALLTYPE

// A loaded module, identified by its base address as on the platform.
struct HINSTANCE__;
using HINSTANCE = HINSTANCE__*;
using HMODULE = HINSTANCE;

inline constexpr DWORD DLL_PROCESS_DETACH = 0;
inline constexpr DWORD DLL_PROCESS_ATTACH = 1;

inline constexpr DWORD CLSCTX_INPROC_SERVER = 0x1;
inline constexpr DWORD CLSCTX_INPROC_HANDLER = 0x2;
inline constexpr DWORD CLSCTX_LOCAL_SERVER = 0x4;
inline constexpr DWORD CLSCTX_REMOTE_SERVER = 0x10;
inline constexpr DWORD CLSCTX_INPROC = CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER;
inline constexpr DWORD CLSCTX_ALL =
    CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER;

inline constexpr DWORD COINIT_MULTITHREADED = 0x0;
inline constexpr DWORD COINIT_APARTMENTTHREADED = 0x2;

inline constexpr DWORD ERROR_MOD_NOT_FOUND = 126;
inline constexpr DWORD ERROR_PROC_NOT_FOUND = 127;
inline constexpr DWORD ERROR_DLL_INIT_FAILED = 1114;

inline constexpr IID IID_IClassFactory =
    MakeGuid(0x00000001, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46);

struct IClassFactory : public IUnknown {
  STDMETHOD(CreateInstance)(IUnknown* outer, REFIID riid, void** ppv) PURE;
  STDMETHOD(LockServer)(BOOL lock) PURE;

 protected:
  ~IClassFactory() = default;
};

// What a module exports, with C linkage.
using LPFNGETCLASSOBJECT = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, LPVOID*);
using LPFNCANUNLOADNOW = HRESULT(STDAPICALLTYPE*)();
using LPFNDLLMAIN = BOOL(WINAPI*)(HINSTANCE, DWORD, LPVOID);

// Counted per thread: S_OK for the first call on a thread, S_FALSE after.
// There are no apartments here, so nothing depends on these calls; they
// exist so that code written for the platform runs unchanged.
HRESULT CoInitialize(LPVOID reserved);
HRESULT CoInitializeEx(LPVOID reserved, DWORD coInit);
void CoUninitialize();

// *ppv is null on failure. A class that no source knows gives
// REGDB_E_CLASSNOTREG, as does a context without CLSCTX_INPROC_SERVER. A
// module that cannot be loaded gives HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND),
// one without DllGetClassObject HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND), one
// whose DllMain answers FALSE HRESULT_FROM_WIN32(ERROR_DLL_INIT_FAILED) (and
// is tried again next time); PlatformLastLoadError then tells why. Otherwise
// the result of DllGetClassObject or of the factory's CreateInstance.
HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD clsContext, REFIID riid,
                         void** ppv);

// The class object itself, found as CoCreateInstance finds it; there are no
// remote servers, so the server information is ignored.
HRESULT CoGetClassObject(REFCLSID clsid, DWORD clsContext, void* serverInfo, REFIID riid,
                         void** ppv);

// Asks every loaded module's DllCanUnloadNow, and unloads none of them (see
// above).
void CoFreeUnusedLibraries();

// Puts `factory` (with a reference) in front of every other source for
// `clsid`, replacing an earlier one; a null factory takes the entry away
// (and brings back the platform's own class, if it was one).
HRESULT PlatformRegisterClassObject(REFCLSID clsid, IClassFactory* factory);

// Maps `clsid` to a module for this process only; a null or empty path takes
// the entry away. Nothing is loaded until the class is created.
HRESULT PlatformRegisterInprocServer(REFCLSID clsid, const char* modulePath);

// Why the last failed module load on this thread failed (the dlerror text),
// empty if none did.
std::string PlatformLastLoadError();

// The path of a module, or of the program for a null module. Returns the
// length copied; a buffer too small gets the truncated path with its zero,
// returns `size` and sets ERROR_INSUFFICIENT_BUFFER. An unknown module gives
// 0 and ERROR_MOD_NOT_FOUND.
DWORD GetModuleFileNameA(HINSTANCE module, LPSTR fileName, DWORD size);

// The module that holds `address` (code or data), or null. Lets code that
// is linked into a program, rather than loaded, find its own HINSTANCE.
HINSTANCE PlatformModuleFromAddress(const void* address);

// Thread notifications do not exist here; answers TRUE.
BOOL DisableThreadLibraryCalls(HMODULE module);

// The loader's calls for a program that loads a module itself, as the
// platform's registration tool does. LoadLibraryA loads as CoCreateInstance
// does (DllMain once, then the module stays); null and SetLastError on
// failure, with PlatformLastLoadError telling why. FreeLibrary succeeds and
// keeps the module loaded. GetProcAddress finds an exported C function of a
// module that LoadLibraryA gave, or null with ERROR_PROC_NOT_FOUND.
using FARPROC = void (*)();
// A bare name (no folder) is found in the system folder, which here is the
// folder of the platform library, before the loader's own search.
HMODULE LoadLibraryA(LPCSTR fileName);
// Exports by ordinal (MAKEINTRESOURCEA(n) as the name): a module lists them
// in a table it exports as PlatformOrdinals, ending with a null name.
struct PlatformOrdinalExport {
  WORD ordinal;
  const char* name;
};
FARPROC GetProcAddress(HMODULE module, LPCSTR procName);
BOOL FreeLibrary(HMODULE module);
