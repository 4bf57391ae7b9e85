// A worker thread driven by commands: the sender blocks until the worker
// replies, and the worker can look for a command between two pieces of work
// without waiting. A command stays pending until it is replied to. A sender
// that meets no worker, or whose worker ends before replying, gets E_FAIL
// instead of waiting for ever.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/win32/win_types.h"

class CAMThread {
 public:
  CAMThread() = default;
  virtual ~CAMThread();
  CAMThread(const CAMThread&) = delete;
  CAMThread& operator=(const CAMThread&) = delete;

  // Starts the thread; false if one exists already or it cannot be made.
  // Create and Close belong to one thread at a time (the host's).
  bool Create();
  // A thread was made and not yet closed; any thread may ask.
  bool ThreadExists() const { return m_Exists.load(std::memory_order_acquire); }
  // Waits for the thread to end and forgets it.
  void Close();

  // Sender side: one command at a time; blocks until the reply, or gives
  // E_FAIL when the worker has ended or ends first.
  DWORD CallWorker(DWORD command);

  // Worker side.
  DWORD GetRequest();                 // waits for a command
  bool CheckRequest(DWORD* command);  // looks without waiting
  void Reply(DWORD result);

 protected:
  virtual DWORD ThreadProc() = 0;

 private:
  std::mutex m_SenderLock;  // one sender at a time
  std::mutex m_Lock;        // guards the fields below
  std::condition_variable m_Changed;
  // A command waits for its reply. Written under m_Lock; the worker looks at
  // it without the lock between two samples, and takes the lock only when
  // a command is there.
  std::atomic<bool> m_Pending{false};
  bool m_Replied = false;
  bool m_Running = false;  // the thread's function has not returned
  DWORD m_Command = 0;
  DWORD m_Result = 0;
  std::atomic<bool> m_Exists{false};
  std::thread m_Thread;  // touched only by Create, Close and the destructor
};
