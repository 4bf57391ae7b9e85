// Windows build: the stream buffer engine's sink and recorder interfaces.
// mingw-w64's sbe.h is empty, so the two that the conversion uses are
// declared here with the platform's IIDs and method order.
#pragma once

#include "platform/graph/stream_buffer_summary.h"
#include "platform/graph/strmif.h"

inline constexpr IID IID_IStreamBufferSink = {0xAFD1F242, 0x7EFD, 0x45EE, {0xBA, 0x4E, 0x40, 0x7A, 0x25, 0xC9, 0xA7, 0x7A}};
inline constexpr IID IID_IStreamBufferRecordControl = {
    0xBA9B6C99, 0xF3C7, 0x4FF2, {0x92, 0xDB, 0xCF, 0xDD, 0x48, 0x51, 0xBF, 0x31}};

enum RECORDING_TYPE { RECORDING_TYPE_CONTENT = 0, RECORDING_TYPE_REFERENCE = 1 };

struct IStreamBufferSink : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE LockProfile(LPCWSTR bufferFile) = 0;
  virtual HRESULT STDMETHODCALLTYPE CreateRecorder(LPCWSTR fileName, DWORD recordType, IUnknown** recorder) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsProfileLocked() = 0;
};

struct IStreamBufferRecordControl : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Start(REFERENCE_TIME* start) = 0;
  virtual HRESULT STDMETHODCALLTYPE Stop(REFERENCE_TIME stop) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRecordingStatus(HRESULT* result, BOOL* started, BOOL* stopped) = 0;
};
