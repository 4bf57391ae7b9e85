// A media sample over a heap buffer of its own, for pins that deliver without
// an allocator (the demultiplexer's output pins) and for tests that push
// samples of any size.
#pragma once

#include <atomic>
#include <memory>

#include "platform/graph/strmif.h"

namespace platform_internal {

// Made with a reference count of 0; hold it in a ComPtr. The data length
// starts at the full size, and the bytes are not cleared: whoever fills the
// sample writes them. Not shared between threads while it is filled.
class CMemorySample final : public IMediaSample {
 public:
  explicit CMemorySample(LONG size);
  CMemorySample(const CMemorySample&) = delete;
  CMemorySample& operator=(const CMemorySample&) = delete;

  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
  STDMETHODIMP_(ULONG) AddRef() override { return ++m_RefCount; }
  STDMETHODIMP_(ULONG) Release() override;

  STDMETHODIMP GetPointer(BYTE** buffer) override;
  STDMETHODIMP_(LONG) GetSize() override;
  // A start without a stop gets a stop one unit behind it.
  STDMETHODIMP GetTime(REFERENCE_TIME* start, REFERENCE_TIME* end) override;
  STDMETHODIMP SetTime(REFERENCE_TIME* start, REFERENCE_TIME* end) override;
  STDMETHODIMP IsSyncPoint() override { return m_Sync ? S_OK : S_FALSE; }
  STDMETHODIMP SetSyncPoint(BOOL isSyncPoint) override;
  STDMETHODIMP IsPreroll() override { return m_Preroll ? S_OK : S_FALSE; }
  STDMETHODIMP SetPreroll(BOOL isPreroll) override;
  STDMETHODIMP_(LONG) GetActualDataLength() override { return m_Length; }
  STDMETHODIMP SetActualDataLength(LONG length) override;
  // Samples of this kind never change type on the way.
  STDMETHODIMP GetMediaType(AM_MEDIA_TYPE** type) override;
  STDMETHODIMP SetMediaType(AM_MEDIA_TYPE* type) override;
  STDMETHODIMP IsDiscontinuity() override { return m_Discontinuity ? S_OK : S_FALSE; }
  STDMETHODIMP SetDiscontinuity(BOOL isDiscontinuity) override;
  STDMETHODIMP GetMediaTime(LONGLONG* start, LONGLONG* end) override;
  STDMETHODIMP SetMediaTime(LONGLONG* start, LONGLONG* end) override;

 private:
  ~CMemorySample() = default;

  std::unique_ptr<BYTE[]> m_Data;  // null for a sample of no bytes
  LONG m_Size;
  LONG m_Length;
  bool m_TimeValid = false;
  REFERENCE_TIME m_Start = 0;
  REFERENCE_TIME m_Stop = 0;
  bool m_MediaTimeValid = false;
  LONGLONG m_MediaStart = 0;
  LONGLONG m_MediaStop = 0;
  bool m_Sync = false;
  bool m_Preroll = false;
  bool m_Discontinuity = false;
  std::atomic<ULONG> m_RefCount{0};
};

}  // namespace platform_internal
