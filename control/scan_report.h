// ITsScanReport: what the scan found that ITsStreamInfo does not tell, for
// the project's own tools (the command line, scripts). Our own interface; the
// filter answers it after its contract interfaces.
#pragma once

#include "platform/com/guid.h"
#include "platform/com/unknwn.h"
#include "platform/win32/win_types.h"

inline constexpr IID IID_ITsScanReport =
    {0x5B2E7C41, 0x9D3A, 0x4F61, {0xB8, 0x0C, 0x2E, 0x71, 0x94, 0xA6, 0x3D, 0x58}};

struct ITsScanReport : public IUnknown {
  STDMETHOD(GetVideo)(WORD* pid, WORD* streamType) PURE;
  STDMETHOD(GetAudioTrackCount)(WORD* count, WORD* selected) PURE;
  // `language` receives up to `size` - 1 bytes and a terminator.
  STDMETHOD(GetAudioTrack)(WORD index, WORD* pid, WORD* kind, WORD* streamType, LPSTR language,
                           DWORD size) PURE;
  STDMETHOD(GetStreamLanguage)(WORD programNumber, DWORD streamIndex, LPSTR language, DWORD size) PURE;
  STDMETHOD(GetScanFlags)(DWORD* ready, DWORD* noPmt, WORD* selectedProgram) PURE;
  STDMETHOD(GetDuration)(LONGLONG* duration) PURE;

 protected:
  ~ITsScanReport() = default;
};
