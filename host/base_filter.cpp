#include "host/base_filter.h"

#include <cwchar>
#include <new>

#include "host/base_pin.h"
#include "platform/com/com_memory.h"

namespace {

// Enumerates the pins of a filter as they stand when it is made.
class CEnumPins final : public CUnknown, public IEnumPins {
 public:
  CEnumPins(CBaseFilter* filter, int position) : CUnknown("Pin enumerator", nullptr), m_Filter(filter), m_Position(position) {
    m_Filter->AddRef();
  }
  ~CEnumPins() override { m_Filter->Release(); }
  DECLARE_IUNKNOWN
  STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    if (riid == IID_IEnumPins) return GetInterface(static_cast<IEnumPins*>(this), ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
  }
  STDMETHODIMP Next(ULONG count, IPin** pins, ULONG* fetched) override {
    if (pins == nullptr) return E_POINTER;
    if (fetched == nullptr && count > 1) return E_INVALIDARG;
    ULONG got = 0;
    CAutoLock lock(m_Filter->StateLock());
    while (got < count && m_Position < m_Filter->GetPinCount()) {
      CBasePin* pin = m_Filter->GetPin(m_Position++);
      pins[got] = pin;
      pin->AddRef();
      ++got;
    }
    if (fetched != nullptr) *fetched = got;
    return got == count ? S_OK : S_FALSE;
  }
  STDMETHODIMP Skip(ULONG count) override {
    CAutoLock lock(m_Filter->StateLock());
    const int left = m_Filter->GetPinCount() - m_Position;
    if (static_cast<int>(count) > left) {
      m_Position = m_Filter->GetPinCount();
      return S_FALSE;
    }
    m_Position += static_cast<int>(count);
    return S_OK;
  }
  STDMETHODIMP Reset() override {
    m_Position = 0;
    return S_OK;
  }
  STDMETHODIMP Clone(IEnumPins** copy) override {
    if (copy == nullptr) return E_POINTER;
    auto* clone = new (std::nothrow) CEnumPins(m_Filter, m_Position);
    if (clone == nullptr) return E_OUTOFMEMORY;
    return clone->NonDelegatingQueryInterface(IID_IEnumPins, reinterpret_cast<void**>(copy));
  }

 private:
  CBaseFilter* m_Filter;
  int m_Position;
};

}  // namespace

CBaseFilter::CBaseFilter(const char* name, IUnknown* outer, CCritSec* stateLock, REFCLSID clsid)
    : CUnknown(name, outer), m_StateLock(stateLock), m_Clsid(clsid) {}

CBaseFilter::~CBaseFilter() {
  if (m_Clock != nullptr) m_Clock->Release();
}

STDMETHODIMP CBaseFilter::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IBaseFilter) return GetInterface(static_cast<IBaseFilter*>(this), ppv);
  if (riid == IID_IMediaFilter) return GetInterface(static_cast<IMediaFilter*>(this), ppv);
  if (riid == IID_IPersist) return GetInterface(static_cast<IPersist*>(this), ppv);
  if (riid == IID_IAMovieSetup) return GetInterface(static_cast<IAMovieSetup*>(this), ppv);
  return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

STDMETHODIMP CBaseFilter::GetClassID(CLSID* clsid) {
  if (clsid == nullptr) return E_POINTER;
  *clsid = m_Clsid;
  return S_OK;
}

STDMETHODIMP CBaseFilter::Stop() {
  CAutoLock lock(m_StateLock);
  HRESULT result = S_OK;
  if (m_State != State_Stopped) {
    for (int i = 0; i < GetPinCount(); ++i) {
      CBasePin* pin = GetPin(i);
      if (!pin->IsConnected()) continue;
      const HRESULT hr = pin->Inactive();
      if (FAILED(hr) && SUCCEEDED(result)) result = hr;
    }
  }
  m_State = State_Stopped;
  return result;
}

STDMETHODIMP CBaseFilter::Pause() {
  CAutoLock lock(m_StateLock);
  if (m_State == State_Stopped) {
    for (int i = 0; i < GetPinCount(); ++i) {
      CBasePin* pin = GetPin(i);
      if (!pin->IsConnected()) continue;
      const HRESULT hr = pin->Active();
      if (FAILED(hr)) return hr;
    }
  }
  m_State = State_Paused;
  return S_OK;
}

STDMETHODIMP CBaseFilter::Run(REFERENCE_TIME start) {
  CAutoLock lock(m_StateLock);
  m_Start = start;
  if (m_State == State_Stopped) {
    const HRESULT hr = Pause();
    if (FAILED(hr)) return hr;
  }
  if (m_State != State_Running) {
    for (int i = 0; i < GetPinCount(); ++i) {
      CBasePin* pin = GetPin(i);
      if (!pin->IsConnected()) continue;
      const HRESULT hr = pin->Run(start);
      if (FAILED(hr)) return hr;
    }
  }
  m_State = State_Running;
  return S_OK;
}

STDMETHODIMP CBaseFilter::GetState(DWORD, FILTER_STATE* state) {
  if (state == nullptr) return E_POINTER;
  CAutoLock lock(m_StateLock);
  *state = m_State;
  return S_OK;
}

STDMETHODIMP CBaseFilter::SetSyncSource(IReferenceClock* clock) {
  CAutoLock lock(m_StateLock);
  if (clock != nullptr) clock->AddRef();
  if (m_Clock != nullptr) m_Clock->Release();
  m_Clock = clock;
  return S_OK;
}

STDMETHODIMP CBaseFilter::GetSyncSource(IReferenceClock** clock) {
  if (clock == nullptr) return E_POINTER;
  CAutoLock lock(m_StateLock);
  *clock = m_Clock;
  if (m_Clock != nullptr) m_Clock->AddRef();
  return S_OK;
}

STDMETHODIMP CBaseFilter::EnumPins(IEnumPins** pins) {
  if (pins == nullptr) return E_POINTER;
  auto* enumerator = new (std::nothrow) CEnumPins(this, 0);
  if (enumerator == nullptr) {
    *pins = nullptr;
    return E_OUTOFMEMORY;
  }
  return enumerator->NonDelegatingQueryInterface(IID_IEnumPins, reinterpret_cast<void**>(pins));
}

STDMETHODIMP CBaseFilter::FindPin(LPCWSTR id, IPin** pin) {
  if (id == nullptr || pin == nullptr) return E_POINTER;
  CAutoLock lock(m_StateLock);
  for (int i = 0; i < GetPinCount(); ++i) {
    CBasePin* candidate = GetPin(i);
    if (candidate->Name() == id) {
      *pin = candidate;
      candidate->AddRef();
      return S_OK;
    }
  }
  *pin = nullptr;
  return VFW_E_NOT_FOUND;
}

STDMETHODIMP CBaseFilter::QueryFilterInfo(FILTER_INFO* info) {
  if (info == nullptr) return E_POINTER;
  std::swprintf(info->achName, sizeof info->achName / sizeof info->achName[0], L"%ls", m_Name.c_str());
  info->pGraph = m_Graph;
  if (m_Graph != nullptr) m_Graph->AddRef();
  return S_OK;
}

STDMETHODIMP CBaseFilter::JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) {
  CAutoLock lock(m_StateLock);
  m_Graph = graph;
  m_EventSink = nullptr;
  if (graph != nullptr) {
    // Held without a reference, as the graph holds us.
    IMediaEventSink* sink = nullptr;
    if (SUCCEEDED(graph->QueryInterface(IID_IMediaEventSink, reinterpret_cast<void**>(&sink)))) {
      m_EventSink = sink;
      sink->Release();
    }
  }
  m_Name = name != nullptr ? name : L"";
  return S_OK;
}

STDMETHODIMP CBaseFilter::QueryVendorInfo(LPWSTR*) { return E_NOTIMPL; }

HRESULT CBaseFilter::NotifyEvent(LONG code, LONG_PTR param1, LONG_PTR param2) {
  IMediaEventSink* sink = m_EventSink;
  return sink != nullptr ? sink->Notify(code, param1, param2) : E_NOTIMPL;
}

bool CBaseFilter::IsActive() {
  CAutoLock lock(m_StateLock);
  return m_State != State_Stopped;
}

bool CBaseFilter::IsStopped() {
  CAutoLock lock(m_StateLock);
  return m_State == State_Stopped;
}

FILTER_STATE CBaseFilter::State() {
  CAutoLock lock(m_StateLock);
  return m_State;
}
