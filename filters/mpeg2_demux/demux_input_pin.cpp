#include "filters/mpeg2_demux/demux_input_pin.h"

#include <mutex>

#include "filters/mpeg2_demux/mpeg2_demultiplexer.h"

CDemuxInputPin::CDemuxInputPin(CMpeg2Demultiplexer* filter, CCritSec* stateLock)
    : CBaseInputPin("demux input pin", filter, stateLock, nullptr, kDemuxInputPinName), m_Demux(filter) {}

// No type of its own: the upstream pin proposes the stream's type.
HRESULT CDemuxInputPin::CheckMediaType(const CMediaType* type) {
  const AM_MEDIA_TYPE& t = type->Type();
  return t.majortype == MEDIATYPE_Stream && t.subtype == MEDIASUBTYPE_MPEG2_TRANSPORT ? S_OK : S_FALSE;
}

STDMETHODIMP CDemuxInputPin::EndOfStream() {
  CMpeg2Demultiplexer& f = *m_Demux;
  std::lock_guard<std::mutex> stream(f.m_ReceiveLock);
  if (const HRESULT streaming = CheckStreaming(); streaming != S_OK) return streaming;
  std::shared_ptr<const CMpeg2Demultiplexer::RouteTable> routes;
  std::vector<CDemuxOutputPin*> outputs;
  {
    CAutoLock lock(m_StateLock);
    routes = f.m_PublishedRoutes;
    outputs = f.OutputsLocked();
  }
  // What the stream completed goes out: an unbounded PES ends here.
  f.m_ActiveRoutes = routes.get();
  for (CMpeg2Demultiplexer::Assembly& assembly : f.m_Assemblies) {
    if (assembly.assembler) assembly.assembler->Finish();
  }
  for (CDemuxOutputPin* pin : outputs) pin->SendQueuedPackets();
  f.m_ActiveRoutes = nullptr;
  f.m_Carry.clear();
  for (const ComPtr<IPin>& peer : f.ConnectedPeers()) peer->EndOfStream();
  return S_OK;
}

STDMETHODIMP CDemuxInputPin::BeginFlush() {
  CBaseInputPin::BeginFlush();
  // Unblocks a delivery waiting downstream, so the stream lock comes free.
  for (const ComPtr<IPin>& peer : m_Demux->ConnectedPeers()) peer->BeginFlush();
  return S_OK;
}

STDMETHODIMP CDemuxInputPin::EndFlush() {
  CMpeg2Demultiplexer& f = *m_Demux;
  std::lock_guard<std::mutex> stream(f.m_ReceiveLock);
  f.ResetStreamLocked();
  for (const ComPtr<IPin>& peer : f.ConnectedPeers()) peer->EndFlush();
  return CBaseInputPin::EndFlush();
}

STDMETHODIMP CDemuxInputPin::NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) {
  CMpeg2Demultiplexer& f = *m_Demux;
  std::lock_guard<std::mutex> stream(f.m_ReceiveLock);
  CBaseInputPin::NewSegment(start, stop, rate);
  f.m_SegmentStart = start;
  f.m_HaveFirstPts = false;
  {
    CAutoLock lock(m_StateLock);
    for (CDemuxOutputPin* pin : f.OutputsLocked()) pin->MarkDiscontinuity();
  }
  for (const ComPtr<IPin>& peer : f.ConnectedPeers()) peer->NewSegment(start, stop, rate);
  return S_OK;
}

STDMETHODIMP CDemuxInputPin::GetAllocator(IMemAllocator** allocator) {
  if (allocator == nullptr) return E_POINTER;
  *allocator = nullptr;
  return VFW_E_NO_ALLOCATOR;
}

STDMETHODIMP CDemuxInputPin::Receive(IMediaSample* sample) {
  if (sample == nullptr) return E_POINTER;
  CMpeg2Demultiplexer& f = *m_Demux;
  std::lock_guard<std::mutex> stream(f.m_ReceiveLock);
  if (const HRESULT gate = f.ReceiveGate(); gate != S_OK) return gate;
  const LONG length = sample->GetActualDataLength();
  if (length < 0 || length > sample->GetSize()) return VFW_E_BUFFER_OVERFLOW;
  BYTE* data = nullptr;
  if (length > 0) {
    const HRESULT hr = sample->GetPointer(&data);
    if (FAILED(hr)) return hr;
    if (data == nullptr) return E_POINTER;
  }
  // Bytes that do not follow on from the last sample: what was being put
  // together cannot be finished.
  if (sample->IsDiscontinuity() == S_OK) f.DropPartialPes();
  f.m_ActiveRoutes = f.m_SeenRoutes.get();
  f.ProcessBytes(std::span<const std::uint8_t>(data, static_cast<std::size_t>(length)));
  for (CDemuxOutputPin* pin : f.m_QueuedPins) pin->SendQueuedPackets();
  f.m_QueuedPins.clear();
  f.m_ActiveRoutes = nullptr;
  return S_OK;
}
