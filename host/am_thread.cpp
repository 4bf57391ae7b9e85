#include "host/am_thread.h"

CAMThread::~CAMThread() {
  // A derived worker must have ended its thread before its own destructor
  // ran; this only guards against a thread left behind.
  if (m_Thread.joinable()) m_Thread.join();
}

bool CAMThread::Create() {
  if (m_Thread.joinable()) return false;
  {
    std::lock_guard<std::mutex> lock(m_Lock);
    m_Running = true;
  }
  try {
    m_Thread = std::thread([this] {
      ThreadProc();
      // A sender still waiting, or one that comes later, learns that no one
      // will reply.
      std::lock_guard<std::mutex> lock(m_Lock);
      m_Running = false;
      m_Pending = false;
      m_Changed.notify_all();
    });
  } catch (const std::system_error&) {
    std::lock_guard<std::mutex> lock(m_Lock);
    m_Running = false;
    return false;
  }
  m_Exists.store(true, std::memory_order_release);
  return true;
}

void CAMThread::Close() {
  if (m_Thread.joinable()) m_Thread.join();
  m_Exists.store(false, std::memory_order_release);
}

DWORD CAMThread::CallWorker(DWORD command) {
  std::lock_guard<std::mutex> sender(m_SenderLock);
  std::unique_lock<std::mutex> lock(m_Lock);
  if (!m_Running) return static_cast<DWORD>(E_FAIL);
  m_Command = command;
  m_Replied = false;
  m_Pending = true;
  m_Changed.notify_all();
  m_Changed.wait(lock, [this] { return m_Replied || !m_Running; });
  return m_Replied ? m_Result : static_cast<DWORD>(E_FAIL);
}

DWORD CAMThread::GetRequest() {
  std::unique_lock<std::mutex> lock(m_Lock);
  m_Changed.wait(lock, [this] { return m_Pending.load(); });
  return m_Command;
}

bool CAMThread::CheckRequest(DWORD* command) {
  if (!m_Pending.load(std::memory_order_acquire)) return false;
  std::lock_guard<std::mutex> lock(m_Lock);
  if (!m_Pending) return false;
  if (command != nullptr) *command = m_Command;
  return true;
}

void CAMThread::Reply(DWORD result) {
  std::lock_guard<std::mutex> lock(m_Lock);
  m_Pending = false;
  m_Result = result;
  m_Replied = true;
  m_Changed.notify_all();
}
