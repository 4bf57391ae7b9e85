#include "platform/sink_filter_base.h"

#include <chrono>
#include <cwchar>
#include <utility>
#include <vector>

#include "platform/graph/graph_plumbing.h"

namespace platform_internal {

namespace {

constexpr wchar_t kPinName[] = L"In";

}  // namespace

// ---- The pin ----

STDMETHODIMP CSinkInputPin::QueryInterface(REFIID riid, void** ppv) {
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

STDMETHODIMP_(ULONG) CSinkInputPin::AddRef() { return m_Filter->AddRef(); }
STDMETHODIMP_(ULONG) CSinkInputPin::Release() { return m_Filter->Release(); }

// An input pin waits for the output pin to drive the connection.
STDMETHODIMP CSinkInputPin::Connect(IPin* receivePin, const AM_MEDIA_TYPE*) {
  return receivePin == nullptr ? E_POINTER : VFW_E_INVALID_DIRECTION;
}

STDMETHODIMP CSinkInputPin::ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* type) {
  if (connector == nullptr || type == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> guard(m_Filter->m_Lock);
  if (m_Filter->m_Peer) return VFW_E_ALREADY_CONNECTED;
  if (m_Filter->m_State != State_Stopped) return VFW_E_NOT_STOPPED;
  if (!IsOutputPin(connector)) return VFW_E_INVALID_DIRECTION;
  if (!m_Filter->AcceptsLocked(*type)) return VFW_E_TYPE_NOT_ACCEPTED;
  const HRESULT hr = CopyMediaTypeTo(*type, &m_Filter->m_ConnectionType);
  if (FAILED(hr)) return hr;
  m_Filter->m_Peer = connector;
  return S_OK;
}

STDMETHODIMP CSinkInputPin::Disconnect() {
  return DisconnectInput(m_Filter->m_Lock, m_Filter->m_State, m_Filter->m_Peer, m_Filter->m_ConnectionType);
}

STDMETHODIMP CSinkInputPin::ConnectedTo(IPin** pin) {
  return ConnectedPeer(m_Filter->m_Lock, m_Filter->m_Peer, pin);
}

STDMETHODIMP CSinkInputPin::ConnectionMediaType(AM_MEDIA_TYPE* type) {
  return ConnectedType(m_Filter->m_Lock, m_Filter->m_Peer, m_Filter->m_ConnectionType, type);
}

STDMETHODIMP CSinkInputPin::QueryPinInfo(PIN_INFO* info) {
  return InputPinInfo(static_cast<IBaseFilter*>(m_Filter), kPinName, info);
}

STDMETHODIMP CSinkInputPin::QueryDirection(PIN_DIRECTION* direction) {
  return InputDirection(direction);
}

STDMETHODIMP CSinkInputPin::QueryId(LPWSTR* id) {
  if (id == nullptr) return E_POINTER;
  return CopyWideString(kPinName, id);
}

STDMETHODIMP CSinkInputPin::QueryAccept(const AM_MEDIA_TYPE* type) {
  if (type == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> guard(m_Filter->m_Lock);
  return m_Filter->AcceptsLocked(*type) ? S_OK : S_FALSE;
}

STDMETHODIMP CSinkInputPin::EnumMediaTypes(IEnumMediaTypes** types) {
  return CreateEmptyMediaTypeEnum(types);
}

STDMETHODIMP CSinkInputPin::QueryInternalConnections(IPin**, ULONG*) { return E_NOTIMPL; }

STDMETHODIMP CSinkInputPin::EndOfStream() {
  std::lock_guard<std::mutex> guard(m_Filter->m_Lock);
  if (m_Filter->m_State == State_Stopped) return VFW_E_WRONG_STATE;
  if (m_Filter->m_Flushing) return S_FALSE;
  ++m_Filter->m_EndOfStreams;
  if (FAILED(m_Filter->m_WriteFailure)) return m_Filter->m_WriteFailure;
  if (const HRESULT hr = m_Filter->OnEndOfStream(); FAILED(hr)) {
    m_Filter->WriteFailedLocked(hr);
    return hr;
  }
  // One completion per stream: a second end of stream before a flush or a
  // stop must not count twice in the graph.
  if (!m_Filter->m_CompletionSent) {
    m_Filter->m_CompletionSent = true;
    m_Filter->NotifyLocked(EC_COMPLETE, S_OK,
                           reinterpret_cast<LONG_PTR>(static_cast<IBaseFilter*>(m_Filter)));
  }
  return S_OK;
}

STDMETHODIMP CSinkInputPin::BeginFlush() {
  {
    std::lock_guard<std::mutex> guard(m_Filter->m_Lock);
    m_Filter->m_Flushing = true;
  }
  m_Filter->m_Wake.notify_all();
  return S_OK;
}

STDMETHODIMP CSinkInputPin::EndFlush() {
  std::lock_guard<std::mutex> guard(m_Filter->m_Lock);
  m_Filter->m_Flushing = false;
  m_Filter->m_CompletionSent = false;  // the stream starts again behind a flush
  return S_OK;
}

STDMETHODIMP CSinkInputPin::NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) {
  std::lock_guard<std::mutex> guard(m_Filter->m_Lock);
  m_Filter->m_SegmentStart = start;
  m_Filter->m_SegmentStop = stop;
  m_Filter->m_SegmentRate = rate;
  ++m_Filter->m_NewSegments;
  return S_OK;
}

// Without an allocator here, the upstream pin uses its own.
STDMETHODIMP CSinkInputPin::GetAllocator(IMemAllocator** allocator) {
  if (allocator == nullptr) return E_POINTER;
  *allocator = nullptr;
  return VFW_E_NO_ALLOCATOR;
}

STDMETHODIMP CSinkInputPin::NotifyAllocator(IMemAllocator* allocator, BOOL) {
  return allocator == nullptr ? E_POINTER : S_OK;
}

STDMETHODIMP CSinkInputPin::GetAllocatorRequirements(ALLOCATOR_PROPERTIES*) { return E_NOTIMPL; }

STDMETHODIMP CSinkInputPin::Receive(IMediaSample* sample) {
  if (sample == nullptr) return E_POINTER;
  CSinkFilter& f = *m_Filter;
  std::unique_lock<std::mutex> lock(f.m_Lock);
  if (f.m_State == State_Stopped) return VFW_E_WRONG_STATE;
  if (f.m_Flushing) return S_FALSE;
  if (FAILED(f.m_WriteFailure)) return f.m_WriteFailure;
  if (!f.m_Peer) return VFW_E_NOT_CONNECTED;

  if (const DWORD delay = f.m_DelayMicroseconds; delay > 0) {
    f.m_Wake.wait_for(lock, std::chrono::microseconds(delay),
                      [&f] { return f.m_State == State_Stopped || f.m_Flushing; });
    if (f.m_State == State_Stopped) return VFW_E_WRONG_STATE;
    if (f.m_Flushing) return S_FALSE;
  }

  const LONG length = sample->GetActualDataLength();
  if (length < 0 || length > sample->GetSize()) return VFW_E_BUFFER_OVERFLOW;
  BYTE* data = nullptr;
  if (length > 0) {
    const HRESULT hr = sample->GetPointer(&data);
    if (FAILED(hr)) return hr;
    if (data == nullptr) return E_POINTER;
  }
  const HRESULT written = f.OnWrite(data, length);
  if (FAILED(written)) {
    f.WriteFailedLocked(written);
    return written;
  }
  ++f.m_Samples;
  f.m_Bytes += length;
  if (sample->IsDiscontinuity() == S_OK) ++f.m_Discontinuities;
  return S_OK;
}

STDMETHODIMP CSinkInputPin::ReceiveMultiple(IMediaSample** samples, LONG count, LONG* processed) {
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

STDMETHODIMP CSinkInputPin::ReceiveCanBlock() { return S_FALSE; }

// ---- The filter ----

CSinkFilter::CSinkFilter(REFCLSID clsid) : m_Clsid(clsid) {}

CSinkFilter::~CSinkFilter() { ClearMediaType(&m_ConnectionType); }

STDMETHODIMP CSinkFilter::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IUnknown || riid == IID_IPersist || riid == IID_IMediaFilter ||
      riid == IID_IBaseFilter) {
    *ppv = static_cast<IBaseFilter*>(this);
  } else if (riid == IID_IAMFilterMiscFlags) {
    *ppv = static_cast<IAMFilterMiscFlags*>(this);
  } else if (riid == IID_IStreamSinkControl) {
    *ppv = static_cast<IStreamSinkControl*>(this);
  } else {
    return QueryMoreInterfaces(riid, ppv);
  }
  AddRef();
  return S_OK;
}

HRESULT CSinkFilter::QueryMoreInterfaces(REFIID, void** ppv) {
  *ppv = nullptr;
  return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) CSinkFilter::Release() {
  const ULONG count = --m_RefCount;
  if (count == 0) delete this;
  return count;
}

STDMETHODIMP CSinkFilter::GetClassID(CLSID* clsid) {
  if (clsid == nullptr) return E_POINTER;
  *clsid = m_Clsid;
  return S_OK;
}

HRESULT CSinkFilter::StartLocked() {
  const HRESULT hr = OnStartStreaming();
  if (FAILED(hr)) return hr;
  m_Samples = 0;
  m_Bytes = 0;
  m_EndOfStreams = 0;
  m_Discontinuities = 0;
  m_NewSegments = 0;
  m_CompletionSent = false;
  m_WriteFailure = S_OK;
  m_State = State_Paused;
  return S_OK;
}

STDMETHODIMP CSinkFilter::Stop() {
  {
    std::lock_guard<std::mutex> guard(m_Lock);
    if (m_State != State_Stopped) {
      m_State = State_Stopped;
      OnStopStreaming();
    }
  }
  m_Wake.notify_all();
  return S_OK;
}

STDMETHODIMP CSinkFilter::Pause() {
  std::lock_guard<std::mutex> guard(m_Lock);
  if (m_State == State_Stopped) return StartLocked();
  m_State = State_Paused;
  return S_OK;
}

STDMETHODIMP CSinkFilter::Run(REFERENCE_TIME) {
  std::lock_guard<std::mutex> guard(m_Lock);
  if (m_State == State_Stopped) {
    const HRESULT hr = StartLocked();
    if (FAILED(hr)) return hr;
  }
  m_State = State_Running;
  return S_OK;
}

STDMETHODIMP CSinkFilter::GetState(DWORD, FILTER_STATE* state) {
  if (state == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> guard(m_Lock);
  *state = m_State;
  return S_OK;
}

STDMETHODIMP CSinkFilter::SetSyncSource(IReferenceClock* clock) {
  std::lock_guard<std::mutex> guard(m_Lock);
  m_Clock = clock;
  return S_OK;
}

STDMETHODIMP CSinkFilter::GetSyncSource(IReferenceClock** clock) {
  if (clock == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> guard(m_Lock);
  *clock = ComPtr<IReferenceClock>(m_Clock).Detach();
  return S_OK;
}

STDMETHODIMP CSinkFilter::EnumPins(IEnumPins** pins) {
  if (pins == nullptr) return E_POINTER;
  std::vector<ComPtr<IPin>> list{ComPtr<IPin>(static_cast<IPin*>(&m_Pin))};
  auto* created = new CEnumSnapshot<IEnumPins, IPin>(IID_IEnumPins, std::move(list));
  created->AddRef();
  *pins = created;
  return S_OK;
}

STDMETHODIMP CSinkFilter::FindPin(LPCWSTR id, IPin** pin) {
  if (id == nullptr || pin == nullptr) return E_POINTER;
  if (std::wcscmp(id, kPinName) != 0) {
    *pin = nullptr;
    return VFW_E_NOT_FOUND;
  }
  *pin = static_cast<IPin*>(&m_Pin);
  (*pin)->AddRef();
  return S_OK;
}

STDMETHODIMP CSinkFilter::QueryFilterInfo(FILTER_INFO* info) {
  if (info == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> guard(m_Lock);
  std::wcsncpy(info->achName, m_Name.c_str(), MAX_FILTER_NAME - 1);
  info->achName[MAX_FILTER_NAME - 1] = L'\0';
  info->pGraph = m_Graph;
  if (m_Graph != nullptr) m_Graph->AddRef();
  return S_OK;
}

STDMETHODIMP CSinkFilter::JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) {
  std::lock_guard<std::mutex> guard(m_Lock);
  m_Graph = graph;
  m_Name = name != nullptr ? name : L"";
  m_EventSink = nullptr;
  if (graph != nullptr) {
    // Kept without a reference, as the graph holds this filter and leaves
    // through JoinFilterGraph(null) before it goes.
    void* sink = nullptr;
    if (SUCCEEDED(graph->QueryInterface(IID_IMediaEventSink, &sink)) && sink != nullptr) {
      m_EventSink = static_cast<IMediaEventSink*>(sink);
      m_EventSink->Release();
    }
  }
  return S_OK;
}

STDMETHODIMP CSinkFilter::QueryVendorInfo(LPWSTR* vendorInfo) {
  if (vendorInfo != nullptr) *vendorInfo = nullptr;
  return E_NOTIMPL;
}

STDMETHODIMP CSinkFilter::SetAcceptAnyType(BOOL acceptAny) {
  std::lock_guard<std::mutex> guard(m_Lock);
  m_AcceptAny = acceptAny != FALSE;
  return S_OK;
}

STDMETHODIMP CSinkFilter::GetCounts(LONGLONG* samples, LONGLONG* bytes, LONG* endOfStreams,
                                    LONG* discontinuities, LONG* newSegments) {
  if (samples != nullptr) *samples = m_Samples;
  if (bytes != nullptr) *bytes = m_Bytes;
  if (endOfStreams != nullptr) *endOfStreams = m_EndOfStreams;
  if (discontinuities != nullptr) *discontinuities = m_Discontinuities;
  if (newSegments != nullptr) *newSegments = m_NewSegments;
  return S_OK;
}

STDMETHODIMP CSinkFilter::GetLastNewSegment(REFERENCE_TIME* start, REFERENCE_TIME* stop,
                                            double* rate) {
  std::lock_guard<std::mutex> guard(m_Lock);
  const bool any = m_NewSegments > 0;
  if (start != nullptr) *start = any ? m_SegmentStart : 0;
  if (stop != nullptr) *stop = any ? m_SegmentStop : 0;
  if (rate != nullptr) *rate = any ? m_SegmentRate : 0.0;
  return any ? S_OK : S_FALSE;
}

STDMETHODIMP CSinkFilter::SetSampleDelay(DWORD microseconds) {
  m_DelayMicroseconds = microseconds;
  return S_OK;
}

void CSinkFilter::NotifyLocked(LONG code, LONG_PTR param1, LONG_PTR param2) {
  if (m_EventSink != nullptr) m_EventSink->Notify(code, param1, param2);
}

void CSinkFilter::WriteFailedLocked(HRESULT failure) {
  m_WriteFailure = failure;
  NotifyLocked(EC_ERRORABORT, failure, 0);
}

bool CSinkFilter::AcceptsLocked(const AM_MEDIA_TYPE& type) const {
  return m_AcceptAny || type.majortype == MEDIATYPE_Stream;
}

}  // namespace platform_internal
