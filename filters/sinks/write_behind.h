// Writing behind the caller: bytes are gathered into chunks of a megabyte,
// and a thread of its own writes them to the file, so that the thread that
// delivers samples does not wait for the disk at every sample. At most a few
// chunks wait; past that the caller waits for the writer.
//
// One producer at a time (Append, Finish) and any thread for Failure. The
// first failed write is kept and answered from then on; the bytes after it
// are dropped.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/win32/win_types.h"

class CWriteBehind {
 public:
  static constexpr std::size_t kChunkBytes = 1 << 20;
  static constexpr std::size_t kMaxWaitingChunks = 4;

  CWriteBehind() = default;
  ~CWriteBehind();
  CWriteBehind(const CWriteBehind&) = delete;
  CWriteBehind& operator=(const CWriteBehind&) = delete;

  // Starts the writer on `file`, which the caller keeps open until Stop.
  // E_OUTOFMEMORY when the thread cannot be made.
  HRESULT Start(HANDLE file);
  // Takes the bytes; the failure of an earlier write if there was one.
  HRESULT Append(const BYTE* data, std::size_t length);
  // Waits until every byte taken so far is in the file; the first failure.
  HRESULT Finish();
  // Finish, then the writer ends. Safe to call when not started.
  HRESULT Stop();
  HRESULT Failure();

 private:
  void Submit(std::unique_lock<std::mutex>& lock);
  void WriterLoop();

  std::mutex m_Lock;
  std::condition_variable m_Changed;
  HANDLE m_File = nullptr;                   // set before the thread starts
  std::vector<BYTE> m_Filling;               // the producer's; the chunk being filled
  std::deque<std::vector<BYTE>> m_Waiting;   // guarded by m_Lock
  std::vector<std::vector<BYTE>> m_Spare;    // guarded by m_Lock; written chunks to reuse
  bool m_Writing = false;                    // guarded by m_Lock; a chunk is out for writing
  bool m_Ending = false;                     // guarded by m_Lock
  HRESULT m_Failure = S_OK;                  // guarded by m_Lock
  std::thread m_Thread;                      // the producer's
};

