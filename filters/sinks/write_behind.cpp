#include "filters/sinks/write_behind.h"

#include <algorithm>
#include <cstring>
#include <system_error>

#include "platform/win32/files.h"

namespace {

HRESULT WriteWhole(HANDLE file, const std::vector<BYTE>& chunk) {
  DWORD written = 0;
  if (!WriteFile(file, chunk.data(), static_cast<DWORD>(chunk.size()), &written, nullptr)) {
    const DWORD error = GetLastError();
    return error != ERROR_SUCCESS ? HRESULT_FROM_WIN32(error) : E_FAIL;
  }
  // A short write that reports no error is a full device.
  return written == chunk.size() ? S_OK : HRESULT_FROM_WIN32(ERROR_DISK_FULL);
}

}  // namespace

CWriteBehind::~CWriteBehind() { Stop(); }

HRESULT CWriteBehind::Start(HANDLE file) {
  Stop();
  std::lock_guard<std::mutex> guard(m_Lock);
  m_File = file;
  m_Failure = S_OK;
  m_Ending = false;
  m_Filling.clear();
  try {
    m_Thread = std::thread([this] { WriterLoop(); });
  } catch (const std::system_error&) {
    return E_OUTOFMEMORY;
  }
  return S_OK;
}

HRESULT CWriteBehind::Append(const BYTE* data, std::size_t length) {
  while (length > 0) {
    if (m_Filling.capacity() < kChunkBytes) m_Filling.reserve(kChunkBytes);
    const std::size_t take = std::min(length, kChunkBytes - m_Filling.size());
    m_Filling.insert(m_Filling.end(), data, data + take);
    data += take;
    length -= take;
    if (m_Filling.size() == kChunkBytes) {
      std::unique_lock<std::mutex> lock(m_Lock);
      Submit(lock);
    }
  }
  std::lock_guard<std::mutex> guard(m_Lock);
  return m_Failure;
}

// Hands the chunk being filled to the writer, waiting while too many wait.
void CWriteBehind::Submit(std::unique_lock<std::mutex>& lock) {
  m_Changed.wait(lock, [this] { return m_Waiting.size() < kMaxWaitingChunks || FAILED(m_Failure); });
  if (FAILED(m_Failure) || !m_Thread.joinable()) {
    m_Filling.clear();
    return;
  }
  m_Waiting.push_back(std::move(m_Filling));
  m_Filling = std::vector<BYTE>();
  if (!m_Spare.empty()) {
    m_Filling = std::move(m_Spare.back());
    m_Spare.pop_back();
  }
  m_Changed.notify_all();
}

HRESULT CWriteBehind::Finish() {
  std::unique_lock<std::mutex> lock(m_Lock);
  if (!m_Filling.empty()) Submit(lock);
  m_Changed.wait(lock, [this] { return (m_Waiting.empty() && !m_Writing) || !m_Thread.joinable(); });
  return m_Failure;
}

HRESULT CWriteBehind::Stop() {
  if (!m_Thread.joinable()) return Failure();
  const HRESULT result = Finish();
  {
    std::lock_guard<std::mutex> guard(m_Lock);
    m_Ending = true;
  }
  m_Changed.notify_all();
  m_Thread.join();
  std::lock_guard<std::mutex> guard(m_Lock);
  m_Spare.clear();
  m_Filling = std::vector<BYTE>();
  return result;
}

HRESULT CWriteBehind::Failure() {
  std::lock_guard<std::mutex> guard(m_Lock);
  return m_Failure;
}

void CWriteBehind::WriterLoop() {
  std::unique_lock<std::mutex> lock(m_Lock);
  for (;;) {
    m_Changed.wait(lock, [this] { return !m_Waiting.empty() || m_Ending; });
    if (m_Waiting.empty()) return;  // ending, and all is written
    std::vector<BYTE> chunk = std::move(m_Waiting.front());
    m_Waiting.pop_front();
    m_Writing = true;
    HRESULT hr = m_Failure;
    if (SUCCEEDED(hr)) {
      lock.unlock();
      hr = WriteWhole(m_File, chunk);
      lock.lock();
    }
    if (FAILED(hr) && SUCCEEDED(m_Failure)) {
      m_Failure = hr;
      m_Waiting.clear();  // nothing behind a failed write goes to the file
    }
    chunk.clear();
    if (m_Spare.size() < kMaxWaitingChunks) m_Spare.push_back(std::move(chunk));
    m_Writing = false;
    m_Changed.notify_all();
  }
}

