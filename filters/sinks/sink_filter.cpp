#include "filters/sinks/sink_filter.h"

#include <chrono>

namespace {

constexpr wchar_t kPinName[] = L"In";

}  // namespace

// ---- The pin ----

CSinkInputPin::CSinkInputPin(CSinkFilter* filter, CCritSec* stateLock, HRESULT* result)
    : CBaseInputPin("sink input pin", filter, stateLock, result, kPinName), m_Sink(filter) {}

HRESULT CSinkInputPin::CheckMediaType(const CMediaType* type) {
  return m_Sink->AcceptsLocked(type->Type()) ? S_OK : S_FALSE;
}

STDMETHODIMP CSinkInputPin::EndOfStream() {
  CSinkFilter& f = *m_Sink;
  std::lock_guard<std::mutex> guard(f.m_ReceiveLock);
  const HRESULT streaming = CheckStreaming();
  if (streaming != S_OK) return streaming;
  ++f.m_EndOfStreams;
  if (FAILED(f.m_WriteFailure)) return f.m_WriteFailure;
  if (const HRESULT hr = f.OnEndOfStream(); FAILED(hr)) {
    f.WriteFailedLocked(hr);
    return hr;
  }
  // One completion per stream: a second end of stream before a flush or a
  // stop must not count twice in the graph.
  if (!f.m_CompletionSent) {
    f.m_CompletionSent = true;
    f.NotifyEvent(EC_COMPLETE, S_OK, reinterpret_cast<LONG_PTR>(static_cast<IBaseFilter*>(&f)));
  }
  return S_OK;
}

STDMETHODIMP CSinkInputPin::BeginFlush() {
  CBaseInputPin::BeginFlush();
  // Taken once, so that a delay that has looked at the flag waits already
  // and hears the wake.
  { std::lock_guard<std::mutex> guard(m_Sink->m_ReceiveLock); }
  m_Sink->m_Wake.notify_all();
  return S_OK;
}

STDMETHODIMP CSinkInputPin::EndFlush() {
  std::lock_guard<std::mutex> guard(m_Sink->m_ReceiveLock);
  CBaseInputPin::EndFlush();
  m_Sink->m_CompletionSent = false;  // the stream starts again behind a flush
  return S_OK;
}

STDMETHODIMP CSinkInputPin::NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) {
  std::lock_guard<std::mutex> guard(m_Sink->m_ReceiveLock);
  CBaseInputPin::NewSegment(start, stop, rate);
  m_Sink->m_SegmentStart = start;
  m_Sink->m_SegmentStop = stop;
  m_Sink->m_SegmentRate = rate;
  ++m_Sink->m_NewSegments;
  return S_OK;
}

STDMETHODIMP CSinkInputPin::GetAllocator(IMemAllocator** allocator) {
  if (allocator == nullptr) return E_POINTER;
  *allocator = nullptr;
  return VFW_E_NO_ALLOCATOR;
}

STDMETHODIMP CSinkInputPin::Receive(IMediaSample* sample) {
  if (sample == nullptr) return E_POINTER;
  CSinkFilter& f = *m_Sink;
  std::unique_lock<std::mutex> lock(f.m_ReceiveLock);
  HRESULT hr = CheckStreaming();
  if (hr != S_OK) return hr;
  if (FAILED(f.m_WriteFailure)) return f.m_WriteFailure;

  if (const DWORD delay = f.m_DelayMicroseconds; delay > 0) {
    f.m_Wake.wait_for(lock, std::chrono::microseconds(delay), [this] { return CheckStreaming() != S_OK; });
    hr = CheckStreaming();
    if (hr != S_OK) return hr;
  }

  const LONG length = sample->GetActualDataLength();
  if (length < 0 || length > sample->GetSize()) return VFW_E_BUFFER_OVERFLOW;
  BYTE* data = nullptr;
  if (length > 0) {
    hr = sample->GetPointer(&data);
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

// ---- The filter ----

CSinkFilter::CSinkFilter(const char* name, REFCLSID clsid)
    : CBaseFilter(name, nullptr, &m_StateLockStorage, clsid), m_Pin(this, &m_StateLockStorage, nullptr) {}

CSinkFilter::~CSinkFilter() = default;

STDMETHODIMP CSinkFilter::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IAMFilterMiscFlags) return GetInterface(static_cast<IAMFilterMiscFlags*>(this), ppv);
  if (riid == IID_IStreamSinkControl) return GetInterface(static_cast<IStreamSinkControl*>(this), ppv);
  return CBaseFilter::NonDelegatingQueryInterface(riid, ppv);
}

STDMETHODIMP CSinkFilter::Stop() {
  CAutoLock lock(&m_StateLockStorage);
  const bool wasStreaming = m_State != State_Stopped;
  const HRESULT hr = CBaseFilter::Stop();
  if (wasStreaming) {
    std::lock_guard<std::mutex> guard(m_ReceiveLock);
    OnStopStreaming();
  }
  m_Wake.notify_all();
  return hr;
}

STDMETHODIMP CSinkFilter::Pause() {
  CAutoLock lock(&m_StateLockStorage);
  if (m_State == State_Stopped) {
    std::lock_guard<std::mutex> guard(m_ReceiveLock);
    const HRESULT hr = OnStartStreaming();
    if (FAILED(hr)) return hr;
    m_Samples = 0;
    m_Bytes = 0;
    m_EndOfStreams = 0;
    m_Discontinuities = 0;
    m_NewSegments = 0;
    m_CompletionSent = false;
    m_WriteFailure = S_OK;
  }
  return CBaseFilter::Pause();
}

STDMETHODIMP CSinkFilter::SetAcceptAnyType(BOOL acceptAny) {
  CAutoLock lock(&m_StateLockStorage);
  m_AcceptAny = acceptAny != FALSE;
  return S_OK;
}

STDMETHODIMP CSinkFilter::GetCounts(LONGLONG* samples, LONGLONG* bytes, LONG* endOfStreams, LONG* discontinuities,
                                    LONG* newSegments) {
  if (samples != nullptr) *samples = m_Samples;
  if (bytes != nullptr) *bytes = m_Bytes;
  if (endOfStreams != nullptr) *endOfStreams = m_EndOfStreams;
  if (discontinuities != nullptr) *discontinuities = m_Discontinuities;
  if (newSegments != nullptr) *newSegments = m_NewSegments;
  return S_OK;
}

STDMETHODIMP CSinkFilter::GetLastNewSegment(REFERENCE_TIME* start, REFERENCE_TIME* stop, double* rate) {
  std::lock_guard<std::mutex> guard(m_ReceiveLock);
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

bool CSinkFilter::AcceptsLocked(const AM_MEDIA_TYPE& type) const {
  return m_AcceptAny || type.majortype == MEDIATYPE_Stream || type.majortype == MEDIATYPE_Video ||
         type.majortype == MEDIATYPE_Audio;
}

void CSinkFilter::WriteFailedLocked(HRESULT failure) {
  m_WriteFailure = failure;
  NotifyEvent(EC_ERRORABORT, failure, 0);
}
