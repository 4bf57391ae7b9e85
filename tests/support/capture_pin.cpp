#include "tests/support/capture_pin.h"

#include <chrono>
#include <thread>

namespace tsw {

STDMETHODIMP EventRecorder::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IUnknown || riid == IID_IFilterGraph) {
    *ppv = static_cast<IFilterGraph*>(this);
    return S_OK;
  }
  if (riid == IID_IMediaEventSink) {
    *ppv = static_cast<IMediaEventSink*>(this);
    return S_OK;
  }
  *ppv = nullptr;
  return E_NOINTERFACE;
}

STDMETHODIMP EventRecorder::Notify(LONG code, LONG_PTR param1, LONG_PTR) {
  std::lock_guard<std::mutex> lock(m_Lock);
  m_Events.push_back({code, param1});
  return S_OK;
}

std::vector<EventRecorder::Event> EventRecorder::Events() {
  std::lock_guard<std::mutex> lock(m_Lock);
  return m_Events;
}

CapturePin::CapturePin() = default;

CapturePin::~CapturePin() {
  ReleaseHeldSamples();
  if (m_Connected != nullptr) m_Connected->Release();
}

STDMETHODIMP CapturePin::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IUnknown || riid == IID_IPin) {
    *ppv = static_cast<IPin*>(this);
  } else if (riid == IID_IMemInputPin) {
    *ppv = static_cast<IMemInputPin*>(this);
  } else if (riid == IID_IBaseFilter) {
    *ppv = static_cast<IBaseFilter*>(this);
  } else {
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  AddRef();
  return S_OK;
}

STDMETHODIMP CapturePin::ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE*) {
  std::lock_guard<std::mutex> lock(m_Lock);
  if (m_Connected != nullptr) return VFW_E_ALREADY_CONNECTED;
  m_Connected = connector;
  connector->AddRef();
  return S_OK;
}

STDMETHODIMP CapturePin::Disconnect() {
  std::lock_guard<std::mutex> lock(m_Lock);
  if (m_Connected == nullptr) return S_FALSE;
  m_Connected->Release();
  m_Connected = nullptr;
  return S_OK;
}

bool CapturePin::Connected() {
  std::lock_guard<std::mutex> lock(m_Lock);
  return m_Connected != nullptr;
}

STDMETHODIMP CapturePin::ConnectedTo(IPin** pin) {
  if (pin == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> lock(m_Lock);
  *pin = m_Connected;
  if (m_Connected == nullptr) return VFW_E_NOT_CONNECTED;
  m_Connected->AddRef();
  return S_OK;
}

STDMETHODIMP CapturePin::ConnectionMediaType(AM_MEDIA_TYPE*) { return E_NOTIMPL; }

STDMETHODIMP CapturePin::QueryPinInfo(PIN_INFO* info) {
  if (info == nullptr) return E_POINTER;
  info->pFilter = static_cast<IBaseFilter*>(this);
  AddRef();
  info->dir = PINDIR_INPUT;
  info->achName[0] = L'\0';
  return S_OK;
}

STDMETHODIMP CapturePin::QueryDirection(PIN_DIRECTION* direction) {
  if (direction == nullptr) return E_POINTER;
  *direction = PINDIR_INPUT;
  return S_OK;
}

STDMETHODIMP CapturePin::EndOfStream() {
  // Signalled under the lock, so that a waiter that wakes cannot end the
  // test, and the pin, while the signal is still being given.
  std::lock_guard<std::mutex> lock(m_Lock);
  ++m_EndOfStreams;
  m_Changed.notify_all();
  return S_OK;
}

STDMETHODIMP CapturePin::BeginFlush() {
  m_Flushing = true;
  ++m_Flushes;
  ReleaseHeldSamples();
  return S_OK;
}

STDMETHODIMP CapturePin::EndFlush() {
  m_Flushing = false;
  return S_OK;
}

STDMETHODIMP CapturePin::NewSegment(REFERENCE_TIME start, REFERENCE_TIME, double) {
  ++m_NewSegments;
  m_SegmentStart = start;
  return S_OK;
}

STDMETHODIMP CapturePin::Receive(IMediaSample* sample) {
  if (m_Flushing) return S_FALSE;
  if (m_DelayUs > 0) std::this_thread::sleep_for(std::chrono::microseconds(m_DelayUs.load()));
  Sample got{};
  BYTE* data = nullptr;
  sample->GetPointer(&data);
  got.bytes.assign(data, data + sample->GetActualDataLength());
  if (FAILED(sample->GetTime(&got.start, &got.stop))) got.start = got.stop = -1;
  got.sync = sample->IsSyncPoint() == S_OK;
  got.discontinuity = sample->IsDiscontinuity() == S_OK;
  {
    std::lock_guard<std::mutex> lock(m_Lock);
    m_Samples.push_back(std::move(got));
    if (m_Hold) {
      sample->AddRef();
      m_Held.push_back(sample);
    }
    m_Changed.notify_all();
  }
  return m_ReceiveResult;
}

void CapturePin::ReleaseHeldSamples() {
  std::vector<IMediaSample*> held;
  {
    std::lock_guard<std::mutex> lock(m_Lock);
    held.swap(m_Held);
  }
  for (IMediaSample* sample : held) sample->Release();
}

std::vector<CapturePin::Sample> CapturePin::Samples() {
  std::lock_guard<std::mutex> lock(m_Lock);
  return m_Samples;
}

std::size_t CapturePin::SampleCount() {
  std::lock_guard<std::mutex> lock(m_Lock);
  return m_Samples.size();
}

bool CapturePin::WaitFor(std::size_t count, int ms) {
  std::unique_lock<std::mutex> lock(m_Lock);
  return m_Changed.wait_for(lock, std::chrono::milliseconds(ms),
                            [&] { return m_Samples.size() >= count || m_EndOfStreams > 0; });
}

bool CapturePin::WaitForEndOfStream(int ms, int count) {
  std::unique_lock<std::mutex> lock(m_Lock);
  return m_Changed.wait_for(lock, std::chrono::milliseconds(ms), [&] { return m_EndOfStreams >= count; });
}

}  // namespace tsw
