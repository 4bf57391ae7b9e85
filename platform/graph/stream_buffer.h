// The stream buffer engine's sink and recorder, as a program sees them: the
// sink is a filter (made with CoCreateInstance from the module
// StreamBuffer.ax) whose input pins take what a demultiplexer's output pins
// give, and a recorder made by the sink writes what the pins take to a file
// from its Start to its Stop.
#pragma once

#include "platform/com/guid.h"
#include "platform/com/unknwn.h"
#include "platform/graph/stream_buffer_summary.h"
#include "platform/graph/strmif.h"

inline constexpr CLSID CLSID_StreamBufferSink =
    MakeGuid(0x2DB47AE5, 0xCF39, 0x43C2, 0xB4, 0xD6, 0x0C, 0xD8, 0xD9, 0x09, 0x46, 0xF4);
inline constexpr IID IID_IStreamBufferSink =
    MakeGuid(0xAFD1F242, 0x7EFD, 0x45EE, 0xBA, 0x4E, 0x40, 0x7A, 0x25, 0xC9, 0xA7, 0x7A);
inline constexpr IID IID_IStreamBufferRecordControl =
    MakeGuid(0xBA9B6C99, 0xF3C7, 0x4FF2, 0x92, 0xDB, 0xCF, 0xDD, 0x48, 0x51, 0xBF, 0x31);

inline constexpr DWORD RECORDING_TYPE_CONTENT = 0;
inline constexpr DWORD RECORDING_TYPE_REFERENCE = 1;

struct IStreamBufferSink : public IUnknown {
  // Fixes the streams the sink records; null: no buffer file of the caller's.
  STDMETHOD(LockProfile)(LPCWSTR bufferFile) PURE;
  // A recorder that writes to exactly `fileName`; fails while a file of that
  // name exists.
  STDMETHOD(CreateRecorder)(LPCWSTR fileName, DWORD recordType, IUnknown** recorder) PURE;
  // S_OK once the profile is locked, S_FALSE before.
  STDMETHOD(IsProfileLocked)() PURE;

 protected:
  ~IStreamBufferSink() = default;
};

struct IStreamBufferRecordControl : public IUnknown {
  STDMETHOD(Start)(REFERENCE_TIME* start) PURE;
  STDMETHOD(Stop)(REFERENCE_TIME stop) PURE;
  // The first failure of the recording (S_OK while there is none), and
  // whether it has started and stopped. Any pointer may be null.
  STDMETHOD(GetRecordingStatus)(HRESULT* result, BOOL* started, BOOL* stopped) PURE;

 protected:
  ~IStreamBufferRecordControl() = default;
};
