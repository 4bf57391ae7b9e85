// A sample allocator with a fixed number of fixed-size buffers. A request
// waits until a buffer is free, and fails at once when decommitted.
#pragma once

#include <condition_variable>
#include <mutex>
#include <vector>

#include "host/cunknown.h"
#include "host/media_sample.h"
#include "platform/strmif.h"

inline constexpr HRESULT VFW_E_ALREADY_COMMITTED = MakeHResult(0x8004020Fu);
inline constexpr HRESULT VFW_E_BUFFERS_OUTSTANDING = MakeHResult(0x80040210u);

class CMemAllocator : public CUnknown, public IMemAllocator {
 public:
  static CMemAllocator* Create();  // with no reference; the caller AddRefs
  ~CMemAllocator() override;

  DECLARE_IUNKNOWN
  STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

  STDMETHODIMP SetProperties(ALLOCATOR_PROPERTIES* request, ALLOCATOR_PROPERTIES* actual) override;
  STDMETHODIMP GetProperties(ALLOCATOR_PROPERTIES* properties) override;
  STDMETHODIMP Commit() override;
  STDMETHODIMP Decommit() override;
  STDMETHODIMP GetBuffer(IMediaSample** sample, REFERENCE_TIME* start, REFERENCE_TIME* end,
                         DWORD flags) override;
  STDMETHODIMP ReleaseBuffer(IMediaSample* sample) override;

  // Samples handed out and not yet back.
  int Outstanding();

 private:
  CMemAllocator();
  // True when the reference of its own is to go now: decommitted, all back.
  bool LetGoOfItselfLocked();

  std::mutex m_Lock;
  std::condition_variable m_Returned;
  ALLOCATOR_PROPERTIES m_Properties{};
  bool m_PropertiesSet = false;
  bool m_Committed = false;
  int m_Waiting = 0;                  // requests that wait for a buffer
  bool m_HoldsItself = false;         // a reference of its own, from Commit
  std::vector<CMediaSample*> m_All;   // every buffer made
  std::vector<CMediaSample*> m_Free;  // those in the pool
};
