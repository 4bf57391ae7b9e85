// The demultiplexer's input pin, declared beside its filter.
#include "platform/mpeg2_demultiplexer.h"

#include <cwchar>
#include <utility>

#include "platform/graph/graph_plumbing.h"

namespace platform_internal {

namespace {

bool IsTransportStream(const AM_MEDIA_TYPE& type) {
  return type.majortype == MEDIATYPE_Stream && type.subtype == MEDIASUBTYPE_MPEG2_TRANSPORT;
}

}  // namespace

STDMETHODIMP CDemuxInputPin::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IUnknown || riid == IID_IPin) {
    *ppv = static_cast<IPin*>(this);
  } else if (riid == IID_IMemInputPin) {
    *ppv = static_cast<IMemInputPin*>(this);
  } else {
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  AddRef();
  return S_OK;
}

STDMETHODIMP_(ULONG) CDemuxInputPin::AddRef() { return m_Filter->AddRef(); }
STDMETHODIMP_(ULONG) CDemuxInputPin::Release() { return m_Filter->Release(); }

// An input pin waits for the output pin to drive the connection.
STDMETHODIMP CDemuxInputPin::Connect(IPin* receivePin, const AM_MEDIA_TYPE*) {
  return receivePin == nullptr ? E_POINTER : VFW_E_INVALID_DIRECTION;
}

STDMETHODIMP CDemuxInputPin::ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* type) {
  if (connector == nullptr || type == nullptr) return E_POINTER;
  if (!IsOutputPin(connector)) return VFW_E_INVALID_DIRECTION;
  CMpeg2Demultiplexer& f = *m_Filter;
  std::lock_guard<std::mutex> guard(f.m_Lock);
  if (f.m_InputPeer) return VFW_E_ALREADY_CONNECTED;
  if (f.m_State != State_Stopped) return VFW_E_NOT_STOPPED;
  if (!IsTransportStream(*type)) return VFW_E_TYPE_NOT_ACCEPTED;
  const HRESULT hr = CopyMediaTypeTo(*type, &f.m_InputType);
  if (FAILED(hr)) return hr;
  f.m_InputPeer = connector;
  return S_OK;
}

STDMETHODIMP CDemuxInputPin::Disconnect() {
  return DisconnectInput(m_Filter->m_Lock, m_Filter->m_State, m_Filter->m_InputPeer, m_Filter->m_InputType);
}

STDMETHODIMP CDemuxInputPin::ConnectedTo(IPin** pin) {
  return ConnectedPeer(m_Filter->m_Lock, m_Filter->m_InputPeer, pin);
}

STDMETHODIMP CDemuxInputPin::ConnectionMediaType(AM_MEDIA_TYPE* type) {
  return ConnectedType(m_Filter->m_Lock, m_Filter->m_InputPeer, m_Filter->m_InputType, type);
}

STDMETHODIMP CDemuxInputPin::QueryPinInfo(PIN_INFO* info) {
  return InputPinInfo(static_cast<IBaseFilter*>(m_Filter), kDemuxInputPinName, info);
}

STDMETHODIMP CDemuxInputPin::QueryDirection(PIN_DIRECTION* direction) {
  return InputDirection(direction);
}

STDMETHODIMP CDemuxInputPin::QueryId(LPWSTR* id) {
  if (id == nullptr) return E_POINTER;
  return CopyWideString(kDemuxInputPinName, id);
}

STDMETHODIMP CDemuxInputPin::QueryAccept(const AM_MEDIA_TYPE* type) {
  if (type == nullptr) return E_POINTER;
  return IsTransportStream(*type) ? S_OK : S_FALSE;
}

// No type of its own: the upstream pin proposes the stream's type.
STDMETHODIMP CDemuxInputPin::EnumMediaTypes(IEnumMediaTypes** types) {
  return CreateEmptyMediaTypeEnum(types);
}

STDMETHODIMP CDemuxInputPin::QueryInternalConnections(IPin**, ULONG*) { return E_NOTIMPL; }

STDMETHODIMP CDemuxInputPin::EndOfStream() {
  CMpeg2Demultiplexer& f = *m_Filter;
  std::lock_guard<std::mutex> stream(f.m_ReceiveLock);
  std::shared_ptr<const CMpeg2Demultiplexer::RouteTable> routes;
  std::vector<CDemuxOutputPin*> outputs;
  {
    std::lock_guard<std::mutex> guard(f.m_Lock);
    if (f.m_State == State_Stopped) return VFW_E_WRONG_STATE;
    if (f.m_Flushing) return S_FALSE;
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
  CMpeg2Demultiplexer& f = *m_Filter;
  {
    std::lock_guard<std::mutex> guard(f.m_Lock);
    f.m_Flushing = true;
    f.NoteStreamChangeLocked();
  }
  // Unblocks a delivery waiting downstream, so the stream lock comes free.
  for (const ComPtr<IPin>& peer : f.ConnectedPeers()) peer->BeginFlush();
  return S_OK;
}

STDMETHODIMP CDemuxInputPin::EndFlush() {
  CMpeg2Demultiplexer& f = *m_Filter;
  std::lock_guard<std::mutex> stream(f.m_ReceiveLock);
  f.ResetStreamLocked();
  for (const ComPtr<IPin>& peer : f.ConnectedPeers()) peer->EndFlush();
  std::lock_guard<std::mutex> guard(f.m_Lock);
  f.m_Flushing = false;
  f.NoteStreamChangeLocked();
  return S_OK;
}

STDMETHODIMP CDemuxInputPin::NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) {
  CMpeg2Demultiplexer& f = *m_Filter;
  std::lock_guard<std::mutex> stream(f.m_ReceiveLock);
  f.m_SegmentStart = start;
  f.m_HaveFirstPts = false;
  {
    std::lock_guard<std::mutex> guard(f.m_Lock);
    for (CDemuxOutputPin* pin : f.OutputsLocked()) pin->MarkDiscontinuity();
  }
  for (const ComPtr<IPin>& peer : f.ConnectedPeers()) peer->NewSegment(start, stop, rate);
  return S_OK;
}

// Without an allocator here, the upstream pin uses its own.
STDMETHODIMP CDemuxInputPin::GetAllocator(IMemAllocator** allocator) {
  if (allocator == nullptr) return E_POINTER;
  *allocator = nullptr;
  return VFW_E_NO_ALLOCATOR;
}

STDMETHODIMP CDemuxInputPin::NotifyAllocator(IMemAllocator* allocator, BOOL) {
  return allocator == nullptr ? E_POINTER : S_OK;
}

STDMETHODIMP CDemuxInputPin::GetAllocatorRequirements(ALLOCATOR_PROPERTIES*) {
  return E_NOTIMPL;
}

STDMETHODIMP CDemuxInputPin::Receive(IMediaSample* sample) {
  if (sample == nullptr) return E_POINTER;
  CMpeg2Demultiplexer& f = *m_Filter;
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
  if (sample->IsDiscontinuity() == S_OK) {
    f.m_Carry.clear();
    for (CMpeg2Demultiplexer::Assembly& assembly : f.m_Assemblies) {
      if (assembly.assembler) assembly.assembler->Reset();
    }
  }
  f.m_ActiveRoutes = f.m_SeenRoutes.get();
  f.ProcessBytes(std::span<const std::uint8_t>(data, static_cast<std::size_t>(length)));
  for (CDemuxOutputPin* pin : f.m_QueuedPins) pin->SendQueuedPackets();
  f.m_QueuedPins.clear();
  f.m_ActiveRoutes = nullptr;
  return S_OK;
}

STDMETHODIMP CDemuxInputPin::ReceiveMultiple(IMediaSample** samples, LONG count, LONG* processed) {
  if (samples == nullptr || processed == nullptr) return E_POINTER;
  *processed = 0;
  HRESULT hr = S_OK;
  while (*processed < count) {
    hr = Receive(samples[*processed]);
    if (hr != S_OK) break;
    ++*processed;
  }
  return hr;
}

// Delivery downstream runs inside Receive, and may wait there.
STDMETHODIMP CDemuxInputPin::ReceiveCanBlock() { return S_OK; }

}  // namespace platform_internal
