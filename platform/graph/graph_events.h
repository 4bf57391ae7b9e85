// The graph manager's event queue: what filters report through
// IMediaEventSink, the one EC_COMPLETE for the whole graph, and the waits of
// IMediaEvent.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>

#include "platform/graph/strmif.h"

namespace platform_internal {

// Has a lock of its own that is never held while calling out, so a worker
// thread can report while the host thread holds the graph's lock and waits
// for that worker in Stop.
class CGraphEventQueue {
 public:
  // From any thread. EC_COMPLETE from the renderers is counted, and the
  // queue gets one EC_COMPLETE (first failing result, or S_OK; 0) when all
  // of them have sent theirs since streaming began; outside streaming they
  // are dropped. With default handling cancelled they are queued as sent.
  // Every other code is queued at once.
  void Notify(LONG code, LONG_PTR param1, LONG_PTR param2);

  // The graph leaves the stopped state with `renderers` renderers to hear
  // from; stale EC_COMPLETE events go.
  void BeginStreaming(int renderers);

  // The graph stops: queued EC_COMPLETE events and the count go, and
  // waiters in WaitForCompletion return VFW_E_WRONG_STATE.
  void EndStreaming();

  // A negative timeout (INFINITE) waits for good. E_ABORT on timeout.
  HRESULT GetEvent(LONG* code, LONG_PTR* param1, LONG_PTR* param2, LONG timeoutMs);

  // Waits for EC_COMPLETE, EC_ERRORABORT or EC_USERABORT and takes that one
  // event from the queue: S_OK and its code. E_ABORT and code 0 on timeout;
  // VFW_E_WRONG_STATE and code 0 when the graph is stopped or stops.
  HRESULT WaitForCompletion(LONG timeoutMs, LONG* code);

  // Only EC_COMPLETE has default handling here; other codes give
  // E_INVALIDARG.
  HRESULT CancelDefaultHandling(LONG code);
  HRESULT RestoreDefaultHandling(LONG code);

 private:
  struct Event {
    LONG code;
    LONG_PTR param1;
    LONG_PTR param2;
  };

  template <class Ready>
  bool WaitLocked(std::unique_lock<std::mutex>& lock, LONG timeoutMs, Ready ready);
  void DropCompletesLocked();

  std::mutex m_Lock;
  std::condition_variable m_Changed;  // the queue or the streaming state changed
  std::deque<Event> m_Events;         // guarded by m_Lock
  bool m_Streaming = false;           // guarded by m_Lock
  int m_Renderers = 0;                // guarded by m_Lock
  int m_Completes = 0;                // guarded by m_Lock
  HRESULT m_CompletionResult = S_OK;  // guarded by m_Lock
  bool m_DefaultCompletion = true;    // guarded by m_Lock
  std::uint64_t m_Stops = 0;          // guarded by m_Lock
};

}  // namespace platform_internal
