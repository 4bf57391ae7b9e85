// A sample allocator with a fixed number of fixed-size buffers. A request
// waits until a buffer is free, and fails at once when decommitted.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "host/cunknown.h"
#include "host/media_sample.h"
#include "platform/graph/strmif.h"

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
  // True when the reference of its own is to go now: decommitted, all back
  // (the parked slot emptied first).
  bool LetGoOfItselfLocked();
  void UnparkLocked();  // the parked sample, if any, goes to m_Free

  std::mutex m_Lock;
  std::condition_variable m_Returned;
  ALLOCATOR_PROPERTIES m_Properties{};  // guarded by m_Lock
  bool m_PropertiesSet = false;         // guarded by m_Lock
  // Written under m_Lock; read without it on the way in and out.
  std::atomic<bool> m_Committed{false};
  // Requests that wait for a buffer; changed under m_Lock.
  std::atomic<int> m_Waiting{0};
  bool m_HoldsItself = false;           // guarded by m_Lock; a reference of its own, from Commit
  std::vector<CMediaSample*> m_All;     // every buffer made; changes only while none is out
  std::vector<CMediaSample*> m_Free;    // guarded by m_Lock; those in the pool
  // The sample given back last, when it could wait here rather than in
  // m_Free. A pin that takes a sample, delivers it and takes the next, as a
  // source does once a packet, then passes no lock on the way: one atomic
  // exchange in, one out. A giver parks and then looks at m_Waiting and
  // m_Committed; a waiter counts itself and a decommit clears m_Committed
  // before they look here, so one of the two always sees the other.
  std::atomic<CMediaSample*> m_Parked{nullptr};
};
