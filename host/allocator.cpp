#include "host/allocator.h"

#include <algorithm>
#include <new>

CMemAllocator* CMemAllocator::Create() { return new (std::nothrow) CMemAllocator(); }

CMemAllocator::CMemAllocator() : CUnknown("Memory allocator", nullptr) {}

CMemAllocator::~CMemAllocator() {
  for (CMediaSample* sample : m_All) delete sample;
}

STDMETHODIMP CMemAllocator::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IMemAllocator) return GetInterface(static_cast<IMemAllocator*>(this), ppv);
  return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

STDMETHODIMP CMemAllocator::SetProperties(ALLOCATOR_PROPERTIES* request, ALLOCATOR_PROPERTIES* actual) {
  if (request == nullptr || actual == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> lock(m_Lock);
  if (m_Committed) return VFW_E_ALREADY_COMMITTED;
  UnparkLocked();
  if (m_Free.size() != m_All.size()) return VFW_E_BUFFERS_OUTSTANDING;
  if (request->cBuffers <= 0 || request->cbBuffer <= 0 || request->cbAlign <= 0 || request->cbPrefix < 0) {
    return E_INVALIDARG;
  }
  // New sizes take effect at the next commit: buffers of the old size go.
  for (CMediaSample* sample : m_All) delete sample;
  m_All.clear();
  m_Free.clear();
  m_Properties = *request;
  m_Properties.cbAlign = 1;
  m_Properties.cbPrefix = 0;
  m_PropertiesSet = true;
  *actual = m_Properties;
  return S_OK;
}

STDMETHODIMP CMemAllocator::GetProperties(ALLOCATOR_PROPERTIES* properties) {
  if (properties == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> lock(m_Lock);
  *properties = m_Properties;
  return S_OK;
}

STDMETHODIMP CMemAllocator::Commit() {
  std::lock_guard<std::mutex> lock(m_Lock);
  if (!m_PropertiesSet) return VFW_E_SIZENOTSET;
  if (m_All.empty()) {
    for (LONG i = 0; i < m_Properties.cBuffers; ++i) {
      auto* sample = new (std::nothrow) CMediaSample(m_Properties.cbBuffer, this);
      if (sample == nullptr) return E_OUTOFMEMORY;
      m_All.push_back(sample);
      m_Free.push_back(sample);
    }
  }
  m_Committed = true;
  // The allocator holds itself while committed and until the last sample
  // out has come back, so a sample never outlives it.
  if (!m_HoldsItself) {
    m_HoldsItself = true;
    AddRef();
  }
  return S_OK;
}

STDMETHODIMP CMemAllocator::Decommit() {
  bool letGo = false;
  {
    std::lock_guard<std::mutex> lock(m_Lock);
    m_Committed = false;
    // Wakes every request that waits for a buffer: they fail now.
    m_Returned.notify_all();
    UnparkLocked();
    letGo = LetGoOfItselfLocked();
  }
  if (letGo) Release();
  return S_OK;
}

void CMemAllocator::UnparkLocked() {
  if (CMediaSample* parked = m_Parked.exchange(nullptr)) m_Free.push_back(parked);
}

bool CMemAllocator::LetGoOfItselfLocked() {
  if (!m_HoldsItself || m_Committed || m_Free.size() != m_All.size()) return false;
  m_HoldsItself = false;
  return true;
}

STDMETHODIMP CMemAllocator::GetBuffer(IMediaSample** sample, REFERENCE_TIME*, REFERENCE_TIME*, DWORD) {
  if (sample == nullptr) return E_POINTER;
  *sample = nullptr;
  CMediaSample* taken = m_Committed ? m_Parked.exchange(nullptr) : nullptr;
  if (taken == nullptr) {
    std::unique_lock<std::mutex> lock(m_Lock);
    while (taken == nullptr) {
      if (!m_Committed) return VFW_E_NOT_COMMITTED;
      if (!m_Free.empty()) {
        taken = m_Free.back();
        m_Free.pop_back();
        break;
      }
      // Counted before the parked slot is looked at, so that a sample parked
      // meanwhile is either seen here or its giver sees the count and wakes us.
      ++m_Waiting;
      taken = m_Parked.exchange(nullptr);
      if (taken == nullptr) m_Returned.wait(lock);
      --m_Waiting;
    }
  }
  taken->ResetProperties();
  taken->TakeFirstReference();
  *sample = taken;
  return S_OK;
}

STDMETHODIMP CMemAllocator::ReleaseBuffer(IMediaSample* sample) {
  if (sample == nullptr) return E_POINTER;
  auto* ours = static_cast<CMediaSample*>(sample);
  // m_All changes only while no sample is out, and this one is.
  if (std::find(m_All.begin(), m_All.end(), ours) == m_All.end()) return E_INVALIDARG;
  bool parked = false;
  if (m_Committed) {
    CMediaSample* empty = nullptr;
    parked = m_Parked.compare_exchange_strong(empty, ours);
    if (parked && m_Waiting == 0 && m_Committed) return S_OK;
    // A request waits, or a decommit came between: settled under the lock.
    // A parked sample may have been taken again already; it is not ours to
    // put back any more.
  }
  bool letGo = false;
  {
    std::lock_guard<std::mutex> lock(m_Lock);
    if (!parked) m_Free.push_back(ours);
    UnparkLocked();  // where a waiter and a decommit look
    if (m_Waiting > 0) m_Returned.notify_all();
    letGo = LetGoOfItselfLocked();
  }
  if (letGo) Release();  // may delete the allocator and this sample
  return S_OK;
}

int CMemAllocator::Outstanding() {
  std::lock_guard<std::mutex> lock(m_Lock);
  UnparkLocked();
  return static_cast<int>(m_All.size() - m_Free.size());
}
