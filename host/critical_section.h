// The recursive critical section of the filter base library and its scoped
// lock. Every lock of the system is one of these.
#pragma once

#include <mutex>

class CCritSec {
 public:
  CCritSec() = default;
  CCritSec(const CCritSec&) = delete;
  CCritSec& operator=(const CCritSec&) = delete;

  void Lock() { m_Mutex.lock(); }
  void Unlock() { m_Mutex.unlock(); }
  bool TryLock() { return m_Mutex.try_lock(); }

 private:
  std::recursive_mutex m_Mutex;
};

class CAutoLock {
 public:
  explicit CAutoLock(CCritSec* lock) : m_Lock(lock) { m_Lock->Lock(); }
  ~CAutoLock() { m_Lock->Unlock(); }
  CAutoLock(const CAutoLock&) = delete;
  CAutoLock& operator=(const CAutoLock&) = delete;

 private:
  CCritSec* m_Lock;
};
