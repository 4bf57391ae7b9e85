// What our stream buffer sink tells of the last recording it made, for tools
// that report on it. Not an interface of the platform's engine, so the
// Windows build takes it from here as well.
#pragma once

#include "platform/com/guid.h"
#include "platform/com/unknwn.h"
#include "platform/graph/strmif.h"

inline constexpr IID IID_IStreamBufferRecordingSummary =
    {0x3E5B0C7A, 0x61D2, 0x4F0B, {0xA9, 0x14, 0x7D, 0x2C, 0x55, 0x80, 0xB3, 0x1E}};

struct IStreamBufferRecordingSummary : public IUnknown {
  // The streams of the last recorder's file, in the order of the sink's pins;
  // S_FALSE with 0 before any recorder started.
  STDMETHOD(GetStreamCount)(DWORD* count) PURE;
  // Any out pointer may be null. `first` and `last` are the earliest and the
  // latest start time written for the stream, in 100 ns units.
  STDMETHOD(GetStream)(DWORD index, GUID* majorType, GUID* subtype, LONGLONG* packets, LONGLONG* bytes,
                       REFERENCE_TIME* first, REFERENCE_TIME* last) PURE;

 protected:
  ~IStreamBufferRecordingSummary() = default;
};
