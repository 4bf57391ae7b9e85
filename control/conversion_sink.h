// ITsConversionSink: how an application hands the filter a stream buffer
// sink before the first Pause, which makes playing the file a conversion.
// Our own interface, beside ITsScanReport.
#pragma once

#include "platform/com/guid.h"
#include "platform/com/unknwn.h"

inline constexpr IID IID_ITsConversionSink =
    {0x7C0D5E12, 0x4B8A, 0x4E3F, {0x9A, 0x61, 0x0F, 0x2B, 0x8C, 0x47, 0xD3, 0x95}};

struct ITsConversionSink : public IUnknown {
  // The filter keeps a reference to `sink` until it is destroyed; a sink is
  // taken once (VFW_E_WRONG_STATE after), and need not answer
  // IStreamBufferSink (the filter then plays as if it held none).
  STDMETHOD(SetSinkFilter)(IUnknown* sink) PURE;

 protected:
  ~ITsConversionSink() = default;
};
