#include "platform/memory_sample.h"

namespace platform_internal {

// The demultiplexer makes one of these per PES payload; clearing a buffer
// that is about to be filled would cost as much as the copy itself.
CMemorySample::CMemorySample(LONG size)
    : m_Data(size > 0 ? new BYTE[static_cast<std::size_t>(size)] : nullptr),
      m_Size(size > 0 ? size : 0),
      m_Length(m_Size) {}

STDMETHODIMP CMemorySample::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid != IID_IUnknown && riid != IID_IMediaSample) {
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  *ppv = static_cast<IMediaSample*>(this);
  AddRef();
  return S_OK;
}

STDMETHODIMP_(ULONG) CMemorySample::Release() {
  const ULONG count = --m_RefCount;
  if (count == 0) delete this;
  return count;
}

STDMETHODIMP CMemorySample::GetPointer(BYTE** buffer) {
  if (buffer == nullptr) return E_POINTER;
  *buffer = m_Data.get();
  return S_OK;
}

STDMETHODIMP_(LONG) CMemorySample::GetSize() { return m_Size; }

STDMETHODIMP CMemorySample::GetTime(REFERENCE_TIME* start, REFERENCE_TIME* end) {
  if (start == nullptr || end == nullptr) return E_POINTER;
  if (!m_TimeValid) return VFW_E_SAMPLE_TIME_NOT_SET;
  *start = m_Start;
  *end = m_Stop;
  return S_OK;
}

STDMETHODIMP CMemorySample::SetTime(REFERENCE_TIME* start, REFERENCE_TIME* end) {
  m_TimeValid = start != nullptr;
  if (start != nullptr) {
    m_Start = *start;
    m_Stop = end != nullptr ? *end : *start + 1;
  }
  return S_OK;
}

STDMETHODIMP CMemorySample::SetSyncPoint(BOOL isSyncPoint) {
  m_Sync = isSyncPoint != FALSE;
  return S_OK;
}

STDMETHODIMP CMemorySample::SetPreroll(BOOL isPreroll) {
  m_Preroll = isPreroll != FALSE;
  return S_OK;
}

STDMETHODIMP CMemorySample::SetActualDataLength(LONG length) {
  if (length < 0 || length > GetSize()) return VFW_E_BUFFER_OVERFLOW;
  m_Length = length;
  return S_OK;
}

STDMETHODIMP CMemorySample::GetMediaType(AM_MEDIA_TYPE** type) {
  if (type == nullptr) return E_POINTER;
  *type = nullptr;
  return S_FALSE;
}

STDMETHODIMP CMemorySample::SetMediaType(AM_MEDIA_TYPE*) { return E_NOTIMPL; }

STDMETHODIMP CMemorySample::SetDiscontinuity(BOOL isDiscontinuity) {
  m_Discontinuity = isDiscontinuity != FALSE;
  return S_OK;
}

STDMETHODIMP CMemorySample::GetMediaTime(LONGLONG* start, LONGLONG* end) {
  if (start == nullptr || end == nullptr) return E_POINTER;
  if (!m_MediaTimeValid) return VFW_E_MEDIA_TIME_NOT_SET;
  *start = m_MediaStart;
  *end = m_MediaStop;
  return S_OK;
}

STDMETHODIMP CMemorySample::SetMediaTime(LONGLONG* start, LONGLONG* end) {
  m_MediaTimeValid = start != nullptr && end != nullptr;
  if (m_MediaTimeValid) {
    m_MediaStart = *start;
    m_MediaStop = *end;
  }
  return S_OK;
}

}  // namespace platform_internal
