// An output pin of the MPEG-2 demultiplexer: made on request with a name and
// a media type, it drives the connection to a downstream input pin and
// delivers the PIDs mapped to it through IMPEG2PIDMap.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/base_pin.h"
#include "platform/graph/mpeg2_demux.h"
#include "platform/graph/strmif.h"

class CMpeg2Demultiplexer;

// Samples come from the downstream pin's allocator when it offers one, else
// from one of this pin's own, asked for this many buffers of this size
// either way; so a larger PES goes out in several samples.
inline constexpr LONG kDemuxSampleSize = 256 * 1024;
inline constexpr LONG kDemuxAllocatorBuffers = 4;

// Reference counts go to the filter, which owns the pin: a deleted pin
// stays alive, disconnected, until the filter goes, so a caller's pointer
// never dangles.
//
// Locks: the connection (the base's peer, input pin, allocator and type) and
// m_Type are guarded by the state lock, and the connection changes only
// while the filter is stopped; the streaming thread reads it without a lock
// inside a Receive or EndOfStream that found the filter active (Stop waits
// for such a call to end before it returns). The streaming fields are
// guarded by the filter's receive lock.
class CDemuxOutputPin final : public CBaseOutputPin, public IMPEG2PIDMap {
 public:
  CDemuxOutputPin(CMpeg2Demultiplexer* filter, CCritSec* stateLock, const std::wstring& name,
                  const CMediaType& type);

  DECLARE_IUNKNOWN
  STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

  // The pin proposes its own type; a type from the caller must agree with it.
  STDMETHODIMP Connect(IPin* receivePin, const AM_MEDIA_TYPE* type) override;
  // A call that only an input pin takes.
  STDMETHODIMP EndOfStream() override { return E_UNEXPECTED; }

  HRESULT CheckMediaType(const CMediaType* type) override;
  HRESULT GetMediaType(int position, CMediaType* type) override;
  HRESULT DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* properties) override;

  STDMETHODIMP MapPID(ULONG count, ULONG* pids, MEDIA_SAMPLE_CONTENT content) override;
  STDMETHODIMP UnmapPID(ULONG count, ULONG* pids) override;
  STDMETHODIMP EnumPIDMap(IEnumPIDMap** map) override;

  // ---- For the filter, under the state lock ----
  // A new type; a connected pin keeps its connection only if the peer takes it.
  HRESULT SetTypeLocked(const AM_MEDIA_TYPE& type);

  // ---- Streaming, under the filter's receive lock ----
  // Sends `data` in one sample or more; the first carries the time and the
  // flags. Nothing goes out on an unconnected pin or after downstream failed.
  void DeliverPayload(std::span<const std::uint8_t> data, const REFERENCE_TIME* start, bool syncPoint,
                      bool discontinuity);
  void QueuePacket(std::span<const std::uint8_t> packet);
  void SendQueuedPackets();
  // The next sample out is a discontinuity; a failure from downstream is forgotten.
  void Restart();
  void MarkDiscontinuity() { m_DiscontinuityPending = true; }

 private:
  HRESULT SendChunks(std::span<const std::uint8_t> data, std::size_t unit, const REFERENCE_TIME* start,
                     bool syncPoint, bool discontinuity);

  CMpeg2Demultiplexer* const m_Demux;
  CMediaType m_Type;  // state lock

  bool m_DiscontinuityPending = true;  // receive lock
  HRESULT m_DeliveryResult = S_OK;     // receive lock
  std::vector<std::uint8_t> m_Queue;   // receive lock; raw packets
};
