#include "host/media_sample.h"

CMediaSample::CMediaSample(LONG size, IMemAllocator* allocator)
    : m_Allocator(allocator),
      m_Size(size < 0 ? 0 : size),
      m_Buffer(new BYTE[static_cast<size_t>(size < 0 ? 0 : size)]()),
      m_ActualLength(m_Size) {}

STDMETHODIMP CMediaSample::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IUnknown || riid == IID_IMediaSample) {
    *ppv = static_cast<IMediaSample*>(this);
    AddRef();
    return S_OK;
  }
  *ppv = nullptr;
  return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) CMediaSample::AddRef() { return ++m_RefCount; }

STDMETHODIMP_(ULONG) CMediaSample::Release() {
  const ULONG left = --m_RefCount;
  if (left == 0) {
    // The allocator may delete this sample before the call returns: nothing
    // of the object is touched afterwards.
    IMemAllocator* allocator = m_Allocator;
    if (allocator != nullptr) {
      allocator->ReleaseBuffer(this);
    } else {
      delete this;
    }
  }
  return left;
}

STDMETHODIMP CMediaSample::GetPointer(BYTE** buffer) {
  if (buffer == nullptr) return E_POINTER;
  *buffer = m_Buffer.get();
  return S_OK;
}

STDMETHODIMP CMediaSample::GetTime(REFERENCE_TIME* start, REFERENCE_TIME* end) {
  if (start == nullptr || end == nullptr) return E_POINTER;
  if (!m_TimeValid) return VFW_E_SAMPLE_TIME_NOT_SET;
  *start = m_Start;
  *end = m_End;
  return S_OK;
}

STDMETHODIMP CMediaSample::SetTime(REFERENCE_TIME* start, REFERENCE_TIME* end) {
  if (start == nullptr) {
    m_TimeValid = false;
    return S_OK;
  }
  m_Start = *start;
  m_End = end != nullptr ? *end : *start;
  m_TimeValid = true;
  return S_OK;
}

STDMETHODIMP CMediaSample::SetSyncPoint(BOOL isSyncPoint) {
  m_SyncPoint = isSyncPoint != FALSE;
  return S_OK;
}

STDMETHODIMP CMediaSample::SetPreroll(BOOL isPreroll) {
  m_Preroll = isPreroll != FALSE;
  return S_OK;
}

STDMETHODIMP CMediaSample::SetActualDataLength(LONG length) {
  if (length < 0 || length > m_Size) return VFW_E_BUFFER_OVERFLOW;
  m_ActualLength = length;
  return S_OK;
}

STDMETHODIMP CMediaSample::GetMediaType(AM_MEDIA_TYPE** type) {
  if (type == nullptr) return E_POINTER;
  *type = nullptr;
  return S_FALSE;  // the type never changes mid-stream here
}

STDMETHODIMP CMediaSample::SetMediaType(AM_MEDIA_TYPE*) { return E_NOTIMPL; }

STDMETHODIMP CMediaSample::SetDiscontinuity(BOOL isDiscontinuity) {
  m_Discontinuity = isDiscontinuity != FALSE;
  return S_OK;
}

STDMETHODIMP CMediaSample::GetMediaTime(LONGLONG* start, LONGLONG* end) {
  if (start == nullptr || end == nullptr) return E_POINTER;
  if (!m_MediaTimeValid) return VFW_E_MEDIA_TIME_NOT_SET;
  *start = m_MediaStart;
  *end = m_MediaEnd;
  return S_OK;
}

STDMETHODIMP CMediaSample::SetMediaTime(LONGLONG* start, LONGLONG* end) {
  if (start == nullptr || end == nullptr) {
    m_MediaTimeValid = false;
    return S_OK;
  }
  m_MediaStart = *start;
  m_MediaEnd = *end;
  m_MediaTimeValid = true;
  return S_OK;
}

void CMediaSample::ResetProperties() {
  m_TimeValid = false;
  m_MediaTimeValid = false;
  m_SyncPoint = false;
  m_Preroll = false;
  m_Discontinuity = false;
  m_ActualLength = m_Size;
}
