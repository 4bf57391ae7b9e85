// The root interface of every COM object, with its IID; includes the RAII
// holder for interface pointers.
#pragma once

#include "platform/com/guid.h"
#include "platform/win32/win_types.h"

inline constexpr IID IID_IUnknown =
    MakeGuid(0x00000000, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46);

struct IUnknown {
  virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) = 0;
  virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
  virtual ULONG STDMETHODCALLTYPE Release() = 0;

 protected:
  // Objects go away through Release, never through delete on an interface.
  ~IUnknown() = default;
};

#include "platform/com/com_ptr.h"
