#include "host/base_input_pin.h"

#include "host/allocator.h"
#include "host/base_filter.h"

CBaseInputPin::CBaseInputPin(const char* objectName, CBaseFilter* filter, CCritSec* stateLock, HRESULT* result,
                             LPCWSTR pinName)
    : CBasePin(objectName, filter, stateLock, result, pinName, PINDIR_INPUT) {}

CBaseInputPin::~CBaseInputPin() {
  if (m_Allocator != nullptr) m_Allocator->Release();
}

STDMETHODIMP CBaseInputPin::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IMemInputPin) return GetInterface(static_cast<IMemInputPin*>(this), ppv);
  return CBasePin::NonDelegatingQueryInterface(riid, ppv);
}

STDMETHODIMP CBaseInputPin::GetAllocator(IMemAllocator** allocator) {
  if (allocator == nullptr) return E_POINTER;
  CAutoLock lock(m_StateLock);
  if (m_Allocator == nullptr) {
    CMemAllocator* own = CMemAllocator::Create();
    if (own == nullptr) {
      *allocator = nullptr;
      return E_OUTOFMEMORY;
    }
    own->NonDelegatingQueryInterface(IID_IMemAllocator, reinterpret_cast<void**>(&m_Allocator));
  }
  *allocator = m_Allocator;
  m_Allocator->AddRef();
  return S_OK;
}

STDMETHODIMP CBaseInputPin::NotifyAllocator(IMemAllocator* allocator, BOOL readOnly) {
  if (allocator == nullptr) return E_POINTER;
  CAutoLock lock(m_StateLock);
  allocator->AddRef();
  if (m_Allocator != nullptr) m_Allocator->Release();
  m_Allocator = allocator;
  m_ReadOnly = readOnly != FALSE;
  return S_OK;
}

STDMETHODIMP CBaseInputPin::GetAllocatorRequirements(ALLOCATOR_PROPERTIES*) { return E_NOTIMPL; }

STDMETHODIMP CBaseInputPin::Receive(IMediaSample* sample) {
  if (sample == nullptr) return E_POINTER;
  return CheckStreaming();
}

STDMETHODIMP CBaseInputPin::ReceiveMultiple(IMediaSample** samples, LONG count, LONG* processed) {
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

STDMETHODIMP CBaseInputPin::Connect(IPin* receivePin, const AM_MEDIA_TYPE*) {
  return receivePin == nullptr ? E_POINTER : VFW_E_INVALID_DIRECTION;
}

STDMETHODIMP CBaseInputPin::BeginFlush() {
  m_Flushing.store(true, std::memory_order_release);
  return S_OK;
}

STDMETHODIMP CBaseInputPin::EndFlush() {
  m_Flushing.store(false, std::memory_order_release);
  m_RuntimeError.store(false, std::memory_order_release);
  return S_OK;
}

HRESULT CBaseInputPin::CheckConnect(IPin* peer) {
  const HRESULT hr = CBasePin::CheckConnect(peer);
  if (FAILED(hr)) return hr;
  PIN_DIRECTION direction = PINDIR_INPUT;
  peer->QueryDirection(&direction);
  return direction == PINDIR_OUTPUT ? S_OK : VFW_E_INVALID_DIRECTION;
}

HRESULT CBaseInputPin::BreakConnect() {
  if (m_Allocator != nullptr) {
    // A commit left by the upstream pin ends with the connection.
    m_Allocator->Decommit();
    m_Allocator->Release();
    m_Allocator = nullptr;
  }
  m_ReadOnly = false;
  return S_OK;
}

HRESULT CBaseInputPin::Active() {
  m_RuntimeError.store(false, std::memory_order_release);
  m_Streaming.store(true, std::memory_order_release);
  return S_OK;
}

HRESULT CBaseInputPin::Inactive() {
  m_Streaming.store(false, std::memory_order_release);
  m_Flushing.store(false, std::memory_order_release);
  m_RuntimeError.store(false, std::memory_order_release);
  // The upstream pin decommits the allocator it uses; ours is decommitted
  // here as well, so that a sample asked of it now fails at once.
  if (m_Allocator != nullptr) m_Allocator->Decommit();
  return S_OK;
}

HRESULT CBaseInputPin::CheckStreaming() const {
  if (!m_Streaming.load(std::memory_order_acquire)) return VFW_E_WRONG_STATE;
  if (m_Flushing.load(std::memory_order_acquire)) return S_FALSE;
  if (m_RuntimeError.load(std::memory_order_acquire)) return VFW_E_RUNTIME_ERROR;
  return S_OK;
}
