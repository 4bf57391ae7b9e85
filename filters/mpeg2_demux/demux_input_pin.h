// The demultiplexer's input pin "MPEG-2 Stream": takes a transport stream
// (MEDIATYPE_Stream, MEDIASUBTYPE_MPEG2_TRANSPORT) in samples of any size
// and hands the bytes to its filter, on the upstream's thread.
#pragma once

#include "host/base_input_pin.h"

class CMpeg2Demultiplexer;

inline constexpr wchar_t kDemuxInputPinName[] = L"MPEG-2 Stream";

// Lives inside its filter; the stream calls take the filter's receive lock
// (see CMpeg2Demultiplexer for the lock order).
class CDemuxInputPin final : public CBaseInputPin {
 public:
  CDemuxInputPin(CMpeg2Demultiplexer* filter, CCritSec* stateLock);

  HRESULT CheckMediaType(const CMediaType* type) override;

  STDMETHODIMP EndOfStream() override;
  STDMETHODIMP BeginFlush() override;
  STDMETHODIMP EndFlush() override;
  STDMETHODIMP NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) override;

  // No allocator here: the upstream pin uses its own.
  STDMETHODIMP GetAllocator(IMemAllocator** allocator) override;
  STDMETHODIMP Receive(IMediaSample* sample) override;

 private:
  CMpeg2Demultiplexer* const m_Demux;
};
