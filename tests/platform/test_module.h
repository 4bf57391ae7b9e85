// The interface and class ids of the test module, a tiny in-process server
// that the COM runtime tests load with dlopen.
#pragma once

#include "platform/com/guid.h"
#include "platform/com/unknwn.h"

inline constexpr CLSID CLSID_TestModuleObject =
    MakeGuid(0x15288F39, 0xE2BD, 0x4E89, 0x9D, 0x81, 0xB9, 0x80, 0x2B, 0xCE, 0xA1, 0x3C);
// A second class of the same module, reached through the registry only.
inline constexpr CLSID CLSID_TestModuleRegistered =
    MakeGuid(0x408C8159, 0xEEB6, 0x4948, 0x90, 0xF6, 0x74, 0x10, 0xED, 0x1B, 0xA3, 0x4F);
inline constexpr IID IID_ITestModuleObject =
    MakeGuid(0x4C587078, 0xB45E, 0x4AFE, 0xA9, 0xED, 0xE6, 0x9A, 0x75, 0x18, 0x32, 0xD9);

struct ITestModuleObject : public IUnknown {
  // How often DllMain saw DLL_PROCESS_ATTACH.
  STDMETHOD_(LONG, AttachCount)() PURE;
  // GetModuleFileNameA of the HINSTANCE that DllMain was given.
  STDMETHOD_(DWORD, ModulePath)(LPSTR buffer, DWORD size) PURE;

 protected:
  ~ITestModuleObject() = default;
};
