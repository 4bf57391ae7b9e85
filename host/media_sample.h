// A media sample over a fixed buffer that it owns. Standalone it deletes
// itself at its last release; an allocator can take it back instead.
#pragma once

#include <atomic>
#include <memory>

#include "platform/graph/strmif.h"

class CMediaSample : public IMediaSample {
 public:
  // With an allocator, the last release hands the sample back to it instead
  // of deleting it. The allocator is not referenced: it outlives its samples.
  explicit CMediaSample(LONG size, IMemAllocator* allocator = nullptr);
  virtual ~CMediaSample() = default;
  CMediaSample(const CMediaSample&) = delete;
  CMediaSample& operator=(const CMediaSample&) = delete;

  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
  STDMETHODIMP_(ULONG) AddRef() override;
  STDMETHODIMP_(ULONG) Release() override;

  STDMETHODIMP GetPointer(BYTE** buffer) override;
  STDMETHODIMP_(LONG) GetSize() override { return m_Size; }
  STDMETHODIMP GetTime(REFERENCE_TIME* start, REFERENCE_TIME* end) override;
  STDMETHODIMP SetTime(REFERENCE_TIME* start, REFERENCE_TIME* end) override;
  STDMETHODIMP IsSyncPoint() override { return m_SyncPoint ? S_OK : S_FALSE; }
  STDMETHODIMP SetSyncPoint(BOOL isSyncPoint) override;
  STDMETHODIMP IsPreroll() override { return m_Preroll ? S_OK : S_FALSE; }
  STDMETHODIMP SetPreroll(BOOL isPreroll) override;
  STDMETHODIMP_(LONG) GetActualDataLength() override { return m_ActualLength; }
  STDMETHODIMP SetActualDataLength(LONG length) override;
  STDMETHODIMP GetMediaType(AM_MEDIA_TYPE** type) override;
  STDMETHODIMP SetMediaType(AM_MEDIA_TYPE* type) override;
  STDMETHODIMP IsDiscontinuity() override { return m_Discontinuity ? S_OK : S_FALSE; }
  STDMETHODIMP SetDiscontinuity(BOOL isDiscontinuity) override;
  STDMETHODIMP GetMediaTime(LONGLONG* start, LONGLONG* end) override;
  STDMETHODIMP SetMediaTime(LONGLONG* start, LONGLONG* end) override;

  // Clears times and flags before the sample is handed out again; the length
  // goes back to the whole buffer.
  void ResetProperties();
  // A sample in the pool has no references; the allocator's lock hands it
  // from the thread that gave it back to the one that takes it.
  void TakeFirstReference() { m_RefCount.store(1, std::memory_order_relaxed); }
  bool HasTime() const { return m_TimeValid; }

 private:
  std::atomic<ULONG> m_RefCount{0};
  IMemAllocator* m_Allocator;
  LONG m_Size;
  std::unique_ptr<BYTE[]> m_Buffer;
  LONG m_ActualLength;
  REFERENCE_TIME m_Start = 0;
  REFERENCE_TIME m_End = 0;
  bool m_TimeValid = false;
  LONGLONG m_MediaStart = 0;
  LONGLONG m_MediaEnd = 0;
  bool m_MediaTimeValid = false;
  bool m_SyncPoint = false;
  bool m_Preroll = false;
  bool m_Discontinuity = false;
};
