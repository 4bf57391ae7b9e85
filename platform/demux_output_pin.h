// An output pin of the platform's MPEG-2 demultiplexer: made on request
// with a name and a media type, it drives the connection to a downstream
// input pin and delivers the PIDs mapped to it through IMPEG2PIDMap.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/graph/mpeg2_demux.h"
#include "platform/graph/strmif.h"

namespace platform_internal {

class CMpeg2Demultiplexer;

// Samples go out through the downstream pin's allocator when it offers one,
// else through CMemorySample objects of this pin's own. Either way a sample
// holds at most this much, so a larger PES goes out in several.
inline constexpr LONG kDemuxSampleSize = 256 * 1024;
inline constexpr LONG kDemuxAllocatorBuffers = 4;

// Reference counts go to the filter, which owns the pin: a deleted pin
// stays alive, disconnected, until the filter goes, so a caller's pointer
// never dangles.
//
// Locks: the connection (m_Peer, m_Input, m_Allocator, m_ConnectionType) and
// m_Type are guarded by the filter's m_Lock, and the connection changes only
// while the filter is stopped; the streaming thread reads it without a lock
// inside a Receive or EndOfStream that found the filter active under m_Lock
// (Stop waits for such a call to end before it returns). The streaming
// fields are guarded by the filter's m_ReceiveLock.
class CDemuxOutputPin final : public IPin, public IMPEG2PIDMap {
 public:
  // Takes ownership of `type` (a copy made by CopyMediaTypeTo).
  CDemuxOutputPin(CMpeg2Demultiplexer* filter, std::wstring name, const AM_MEDIA_TYPE& type);
  ~CDemuxOutputPin();
  CDemuxOutputPin(const CDemuxOutputPin&) = delete;
  CDemuxOutputPin& operator=(const CDemuxOutputPin&) = delete;

  const std::wstring& Name() const { return m_Name; }

  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
  STDMETHODIMP_(ULONG) AddRef() override;
  STDMETHODIMP_(ULONG) Release() override;

  STDMETHODIMP Connect(IPin* receivePin, const AM_MEDIA_TYPE* type) override;
  STDMETHODIMP ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* type) override;
  STDMETHODIMP Disconnect() override;
  STDMETHODIMP ConnectedTo(IPin** pin) override;
  STDMETHODIMP ConnectionMediaType(AM_MEDIA_TYPE* type) override;
  STDMETHODIMP QueryPinInfo(PIN_INFO* info) override;
  STDMETHODIMP QueryDirection(PIN_DIRECTION* direction) override;
  STDMETHODIMP QueryId(LPWSTR* id) override;
  STDMETHODIMP QueryAccept(const AM_MEDIA_TYPE* type) override;
  STDMETHODIMP EnumMediaTypes(IEnumMediaTypes** types) override;
  STDMETHODIMP QueryInternalConnections(IPin** pins, ULONG* count) override;
  STDMETHODIMP EndOfStream() override;
  STDMETHODIMP BeginFlush() override;
  STDMETHODIMP EndFlush() override;
  STDMETHODIMP NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) override;

  STDMETHODIMP MapPID(ULONG count, ULONG* pids, MEDIA_SAMPLE_CONTENT content) override;
  STDMETHODIMP UnmapPID(ULONG count, ULONG* pids) override;
  STDMETHODIMP EnumPIDMap(IEnumPIDMap** map) override;

  // ---- For the filter, under its m_Lock ----
  // A new type; a connected pin keeps its connection only if the peer takes it.
  HRESULT SetTypeLocked(const AM_MEDIA_TYPE& type);
  ComPtr<IPin> PeerLocked() const { return m_Peer; }
  // At the pause out of stopped and at the stop.
  HRESULT CommitLocked();
  void DecommitLocked();

  // ---- Streaming, under the filter's m_ReceiveLock ----
  // Sends `data` in one sample or more; the first carries the time and the
  // flags. Nothing goes out on an unconnected pin or after downstream failed.
  void Deliver(std::span<const std::uint8_t> data, const REFERENCE_TIME* start, bool syncPoint,
               bool discontinuity);
  void QueuePacket(std::span<const std::uint8_t> packet);
  void SendQueuedPackets();
  // The next sample out is a discontinuity; a failure from downstream is forgotten.
  void Restart();
  void MarkDiscontinuity() { m_DiscontinuityPending = true; }

 private:
  HRESULT SendChunks(std::span<const std::uint8_t> data, std::size_t unit,
                     const REFERENCE_TIME* start, bool syncPoint, bool discontinuity);
  ComPtr<IMemAllocator> DecideAllocator(IMemInputPin* input);

  CMpeg2Demultiplexer* const m_Filter;
  const std::wstring m_Name;

  AM_MEDIA_TYPE m_Type{};             // guarded by the filter's m_Lock; owns its block
  ComPtr<IPin> m_Peer;                // see above
  ComPtr<IMemInputPin> m_Input;       // see above
  ComPtr<IMemAllocator> m_Allocator;  // see above; null: own samples
  AM_MEDIA_TYPE m_ConnectionType{};   // guarded by the filter's m_Lock; owns its block

  bool m_DiscontinuityPending = true;  // guarded by m_ReceiveLock
  HRESULT m_DeliveryResult = S_OK;     // guarded by m_ReceiveLock
  std::vector<std::uint8_t> m_Queue;   // guarded by m_ReceiveLock; raw packets
};

}  // namespace platform_internal
