#include "host/base_pin.h"

#include <cwchar>
#include <new>

#include "host/allocator.h"
#include "host/base_filter.h"
#include "platform/com/com_memory.h"

namespace {

// Enumerates a pin's own media types by position.
class CEnumMediaTypes final : public CUnknown, public IEnumMediaTypes {
 public:
  CEnumMediaTypes(CBasePin* pin, int position) : CUnknown("Type enumerator", nullptr), m_Pin(pin), m_Position(position) {
    m_Pin->AddRef();
  }
  ~CEnumMediaTypes() override { m_Pin->Release(); }
  DECLARE_IUNKNOWN
  STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    if (riid == IID_IEnumMediaTypes) return GetInterface(static_cast<IEnumMediaTypes*>(this), ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
  }
  STDMETHODIMP Next(ULONG count, AM_MEDIA_TYPE** types, ULONG* fetched) override {
    if (types == nullptr) return E_POINTER;
    if (fetched == nullptr && count > 1) return E_INVALIDARG;
    ULONG got = 0;
    while (got < count) {
      CMediaType type;
      if (m_Pin->GetMediaType(m_Position, &type) != S_OK) break;
      auto* out = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
      if (out == nullptr) break;
      if (FAILED(type.CopyTo(out))) {
        CoTaskMemFree(out);
        break;
      }
      types[got++] = out;
      ++m_Position;
    }
    if (fetched != nullptr) *fetched = got;
    return got == count ? S_OK : S_FALSE;
  }
  STDMETHODIMP Skip(ULONG count) override {
    m_Position += static_cast<int>(count);
    return S_OK;
  }
  STDMETHODIMP Reset() override {
    m_Position = 0;
    return S_OK;
  }
  STDMETHODIMP Clone(IEnumMediaTypes** copy) override {
    if (copy == nullptr) return E_POINTER;
    auto* clone = new (std::nothrow) CEnumMediaTypes(m_Pin, m_Position);
    if (clone == nullptr) return E_OUTOFMEMORY;
    return clone->NonDelegatingQueryInterface(IID_IEnumMediaTypes, reinterpret_cast<void**>(copy));
  }

 private:
  CBasePin* m_Pin;
  int m_Position;
};

void FreeTypeArray(AM_MEDIA_TYPE* type) {
  if (type == nullptr) return;
  FreeMediaType(*type);
  CoTaskMemFree(type);
}

}  // namespace

// ---- CBasePin -----------------------------------------------------------

CBasePin::CBasePin(const char* objectName, CBaseFilter* filter, CCritSec* stateLock, HRESULT* result,
                   LPCWSTR pinName, PIN_DIRECTION direction)
    : CUnknown(objectName, nullptr),
      m_Filter(filter),
      m_StateLock(stateLock),
      m_PinName(pinName != nullptr ? pinName : L""),
      m_Direction(direction) {
  if (result != nullptr) *result = S_OK;
}

CBasePin::~CBasePin() {
  if (m_Connected != nullptr) m_Connected->Release();
}

STDMETHODIMP CBasePin::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IPin) return GetInterface(static_cast<IPin*>(this), ppv);
  if (riid == IID_IQualityControl) return GetInterface(static_cast<IQualityControl*>(this), ppv);
  return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

STDMETHODIMP_(ULONG) CBasePin::NonDelegatingAddRef() { return m_Filter->AddRef(); }

STDMETHODIMP_(ULONG) CBasePin::NonDelegatingRelease() { return m_Filter->Release(); }

STDMETHODIMP CBasePin::Connect(IPin* receivePin, const AM_MEDIA_TYPE* type) {
  if (receivePin == nullptr) return E_POINTER;
  CAutoLock lock(m_StateLock);
  if (m_Connected != nullptr) return VFW_E_ALREADY_CONNECTED;
  if (!m_Filter->IsStopped()) return VFW_E_NOT_STOPPED;
  return AgreeMediaType(receivePin, type);
}

HRESULT CBasePin::AgreeMediaType(IPin* receivePin, const AM_MEDIA_TYPE* type) {
  // A full type given by the caller is the only one tried.
  if (type != nullptr && type->majortype != GUID_NULL && type->subtype != GUID_NULL) {
    return AttemptConnection(receivePin, CMediaType(*type));
  }
  HRESULT last = VFW_E_NO_ACCEPTABLE_TYPES;
  // The peer's types first, then our own.
  IEnumMediaTypes* types = nullptr;
  if (SUCCEEDED(receivePin->EnumMediaTypes(&types)) && types != nullptr) {
    AM_MEDIA_TYPE* candidate = nullptr;
    ULONG fetched = 0;
    while (types->Next(1, &candidate, &fetched) == S_OK && fetched == 1) {
      const CMediaType offered(*candidate);
      FreeTypeArray(candidate);
      if (type != nullptr && type->majortype != GUID_NULL && offered.Type().majortype != type->majortype) continue;
      last = AttemptConnection(receivePin, offered);
      if (SUCCEEDED(last)) {
        types->Release();
        return S_OK;
      }
    }
    types->Release();
  }
  for (int i = 0;; ++i) {
    CMediaType own;
    if (GetMediaType(i, &own) != S_OK) break;
    last = AttemptConnection(receivePin, own);
    if (SUCCEEDED(last)) return S_OK;
  }
  return last;
}

HRESULT CBasePin::AttemptConnection(IPin* receivePin, const CMediaType& type) {
  HRESULT hr = CheckConnect(receivePin);
  if (FAILED(hr)) {
    BreakConnect();
    return hr;
  }
  hr = CheckMediaType(&type);
  if (hr != S_OK) {
    BreakConnect();
    return SUCCEEDED(hr) ? VFW_E_TYPE_NOT_ACCEPTED : hr;
  }
  m_Connected = receivePin;
  m_Connected->AddRef();
  hr = SetMediaType(&type);
  if (SUCCEEDED(hr)) hr = receivePin->ReceiveConnection(static_cast<IPin*>(this), &type.Type());
  if (SUCCEEDED(hr)) {
    hr = CompleteConnect(receivePin);
    if (SUCCEEDED(hr)) return S_OK;
    receivePin->Disconnect();
  }
  BreakConnect();
  m_Connected->Release();
  m_Connected = nullptr;
  return hr;
}

STDMETHODIMP CBasePin::ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* type) {
  if (connector == nullptr || type == nullptr) return E_POINTER;
  CAutoLock lock(m_StateLock);
  if (m_Connected != nullptr) return VFW_E_ALREADY_CONNECTED;
  if (!m_Filter->IsStopped()) return VFW_E_NOT_STOPPED;
  HRESULT hr = CheckConnect(connector);
  if (SUCCEEDED(hr)) {
    const CMediaType offered(*type);
    hr = CheckMediaType(&offered);
    if (hr == S_OK) {
      m_Connected = connector;
      m_Connected->AddRef();
      hr = SetMediaType(&offered);
      if (SUCCEEDED(hr)) hr = CompleteConnect(connector);
      if (SUCCEEDED(hr)) return S_OK;
      m_Connected->Release();
      m_Connected = nullptr;
    } else if (SUCCEEDED(hr)) {
      hr = VFW_E_TYPE_NOT_ACCEPTED;
    }
  }
  BreakConnect();
  return hr;
}

STDMETHODIMP CBasePin::Disconnect() {
  CAutoLock lock(m_StateLock);
  if (!m_Filter->IsStopped()) return VFW_E_NOT_STOPPED;
  return DisconnectInternal();
}

HRESULT CBasePin::DisconnectInternal() {
  if (m_Connected == nullptr) return S_FALSE;
  const HRESULT hr = BreakConnect();
  if (FAILED(hr)) return hr;
  m_Connected->Release();
  m_Connected = nullptr;
  return S_OK;
}

STDMETHODIMP CBasePin::ConnectedTo(IPin** pin) {
  if (pin == nullptr) return E_POINTER;
  CAutoLock lock(m_StateLock);
  *pin = m_Connected;
  if (m_Connected == nullptr) return VFW_E_NOT_CONNECTED;
  m_Connected->AddRef();
  return S_OK;
}

STDMETHODIMP CBasePin::ConnectionMediaType(AM_MEDIA_TYPE* type) {
  if (type == nullptr) return E_POINTER;
  CAutoLock lock(m_StateLock);
  if (m_Connected == nullptr) {
    *type = AM_MEDIA_TYPE{};
    return VFW_E_NOT_CONNECTED;
  }
  return m_MediaType.CopyTo(type);
}

STDMETHODIMP CBasePin::QueryPinInfo(PIN_INFO* info) {
  if (info == nullptr) return E_POINTER;
  info->pFilter = m_Filter;
  m_Filter->AddRef();
  info->dir = m_Direction;
  std::swprintf(info->achName, sizeof info->achName / sizeof info->achName[0], L"%ls", m_PinName.c_str());
  return S_OK;
}

STDMETHODIMP CBasePin::QueryDirection(PIN_DIRECTION* direction) {
  if (direction == nullptr) return E_POINTER;
  *direction = m_Direction;
  return S_OK;
}

STDMETHODIMP CBasePin::QueryId(LPWSTR* id) {
  if (id == nullptr) return E_POINTER;
  const std::size_t bytes = (m_PinName.size() + 1) * sizeof(WCHAR);
  *id = static_cast<LPWSTR>(CoTaskMemAlloc(bytes));
  if (*id == nullptr) return E_OUTOFMEMORY;
  std::wmemcpy(*id, m_PinName.c_str(), m_PinName.size() + 1);
  return S_OK;
}

STDMETHODIMP CBasePin::QueryAccept(const AM_MEDIA_TYPE* type) {
  if (type == nullptr) return E_POINTER;
  const CMediaType offered(*type);
  return CheckMediaType(&offered) == S_OK ? S_OK : S_FALSE;
}

STDMETHODIMP CBasePin::EnumMediaTypes(IEnumMediaTypes** types) {
  if (types == nullptr) return E_POINTER;
  auto* enumerator = new (std::nothrow) CEnumMediaTypes(this, 0);
  if (enumerator == nullptr) {
    *types = nullptr;
    return E_OUTOFMEMORY;
  }
  return enumerator->NonDelegatingQueryInterface(IID_IEnumMediaTypes, reinterpret_cast<void**>(types));
}

STDMETHODIMP CBasePin::QueryInternalConnections(IPin**, ULONG*) { return E_NOTIMPL; }

STDMETHODIMP CBasePin::NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) {
  m_SegmentStart = start;
  m_SegmentStop = stop;
  m_SegmentRate = rate;
  return S_OK;
}

STDMETHODIMP CBasePin::Notify(IBaseFilter*, Quality) { return E_NOTIMPL; }

STDMETHODIMP CBasePin::SetSink(IQualityControl* sink) {
  m_QualitySink = sink;
  return S_OK;
}

HRESULT CBasePin::CheckConnect(IPin* peer) {
  PIN_DIRECTION direction = PINDIR_INPUT;
  const HRESULT hr = peer->QueryDirection(&direction);
  if (FAILED(hr)) return hr;
  return direction == m_Direction ? VFW_E_INVALID_DIRECTION : S_OK;
}

HRESULT CBasePin::SetMediaType(const CMediaType* type) {
  m_MediaType = *type;
  return S_OK;
}

HRESULT CBasePin::CompleteConnect(IPin*) { return S_OK; }

HRESULT CBasePin::BreakConnect() { return S_OK; }

HRESULT CBasePin::GetMediaType(int position, CMediaType*) {
  return position < 0 ? E_INVALIDARG : VFW_S_NO_MORE_ITEMS;
}

// ---- CBaseOutputPin -----------------------------------------------------

CBaseOutputPin::CBaseOutputPin(const char* objectName, CBaseFilter* filter, CCritSec* stateLock,
                               HRESULT* result, LPCWSTR pinName)
    : CBasePin(objectName, filter, stateLock, result, pinName, PINDIR_OUTPUT) {}

CBaseOutputPin::~CBaseOutputPin() {
  if (m_Allocator != nullptr) m_Allocator->Release();
  if (m_InputPin != nullptr) m_InputPin->Release();
}

HRESULT CBaseOutputPin::CheckConnect(IPin* peer) {
  HRESULT hr = CBasePin::CheckConnect(peer);
  if (FAILED(hr)) return hr;
  IMemInputPin* input = nullptr;
  hr = peer->QueryInterface(IID_IMemInputPin, reinterpret_cast<void**>(&input));
  if (FAILED(hr)) return hr;
  if (m_InputPin != nullptr) m_InputPin->Release();
  m_InputPin = input;
  return S_OK;
}

HRESULT CBaseOutputPin::CompleteConnect(IPin*) { return DecideAllocator(m_InputPin, &m_Allocator); }

HRESULT CBaseOutputPin::BreakConnect() {
  if (m_Allocator != nullptr) {
    const HRESULT hr = m_Allocator->Decommit();
    if (FAILED(hr)) return hr;
    m_Allocator->Release();
    m_Allocator = nullptr;
  }
  if (m_InputPin != nullptr) {
    m_InputPin->Release();
    m_InputPin = nullptr;
  }
  return S_OK;
}

HRESULT CBaseOutputPin::DecideAllocator(IMemInputPin* peer, IMemAllocator** allocator) {
  if (peer == nullptr || allocator == nullptr) return E_POINTER;
  if (*allocator != nullptr) {
    (*allocator)->Release();
    *allocator = nullptr;
  }
  ALLOCATOR_PROPERTIES properties{};
  peer->GetAllocatorRequirements(&properties);
  if (properties.cbAlign == 0) properties.cbAlign = 1;

  HRESULT hr = peer->GetAllocator(allocator);
  if (SUCCEEDED(hr)) {
    hr = DecideBufferSize(*allocator, &properties);
    if (SUCCEEDED(hr)) hr = peer->NotifyAllocator(*allocator, FALSE);
    if (SUCCEEDED(hr)) return S_OK;
  }
  if (*allocator != nullptr) {
    (*allocator)->Release();
    *allocator = nullptr;
  }
  hr = InitAllocator(allocator);
  if (SUCCEEDED(hr)) {
    hr = DecideBufferSize(*allocator, &properties);
    if (SUCCEEDED(hr)) hr = peer->NotifyAllocator(*allocator, FALSE);
    if (SUCCEEDED(hr)) return S_OK;
  }
  if (*allocator != nullptr) {
    (*allocator)->Release();
    *allocator = nullptr;
  }
  return hr;
}

HRESULT CBaseOutputPin::InitAllocator(IMemAllocator** allocator) {
  CMemAllocator* own = CMemAllocator::Create();
  if (own == nullptr) return E_OUTOFMEMORY;
  return own->NonDelegatingQueryInterface(IID_IMemAllocator, reinterpret_cast<void**>(allocator));
}

HRESULT CBaseOutputPin::Active() {
  if (m_Allocator == nullptr) return VFW_E_NO_ALLOCATOR;
  return m_Allocator->Commit();
}

HRESULT CBaseOutputPin::Inactive() {
  if (m_Allocator == nullptr) return VFW_E_NO_ALLOCATOR;
  return m_Allocator->Decommit();
}

HRESULT CBaseOutputPin::GetDeliveryBuffer(IMediaSample** sample, REFERENCE_TIME* start, REFERENCE_TIME* stop,
                                          DWORD flags) {
  if (m_Allocator == nullptr) return E_NOINTERFACE;
  return m_Allocator->GetBuffer(sample, start, stop, flags);
}

HRESULT CBaseOutputPin::Deliver(IMediaSample* sample) {
  if (m_InputPin == nullptr) return VFW_E_NOT_CONNECTED;
  return m_InputPin->Receive(sample);
}

HRESULT CBaseOutputPin::DeliverEndOfStream() {
  if (m_Connected == nullptr) return VFW_E_NOT_CONNECTED;
  return m_Connected->EndOfStream();
}

HRESULT CBaseOutputPin::DeliverBeginFlush() {
  if (m_Connected == nullptr) return VFW_E_NOT_CONNECTED;
  return m_Connected->BeginFlush();
}

HRESULT CBaseOutputPin::DeliverEndFlush() {
  if (m_Connected == nullptr) return VFW_E_NOT_CONNECTED;
  return m_Connected->EndFlush();
}

HRESULT CBaseOutputPin::DeliverNewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) {
  if (m_Connected == nullptr) return VFW_E_NOT_CONNECTED;
  return m_Connected->NewSegment(start, stop, rate);
}
