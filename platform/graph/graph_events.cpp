#include "platform/graph/graph_events.h"

#include <algorithm>
#include <chrono>

namespace platform_internal {

namespace {

bool EndsPlayback(LONG code) {
  return code == EC_COMPLETE || code == EC_ERRORABORT || code == EC_USERABORT;
}

}  // namespace

template <class Ready>
bool CGraphEventQueue::WaitLocked(std::unique_lock<std::mutex>& lock, LONG timeoutMs, Ready ready) {
  if (timeoutMs < 0) {
    m_Changed.wait(lock, ready);
    return true;
  }
  return m_Changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), ready);
}

void CGraphEventQueue::DropCompletesLocked() {
  std::erase_if(m_Events, [](const Event& e) { return e.code == EC_COMPLETE; });
}

void CGraphEventQueue::Notify(LONG code, LONG_PTR param1, LONG_PTR param2) {
  {
    std::lock_guard<std::mutex> guard(m_Lock);
    if (code == EC_COMPLETE && m_DefaultCompletion) {
      if (!m_Streaming) return;
      if (FAILED(static_cast<HRESULT>(param1)) && SUCCEEDED(m_CompletionResult)) {
        m_CompletionResult = static_cast<HRESULT>(param1);
      }
      // Equality, not at-least: a renderer that reports twice must not give
      // the graph a second completion.
      if (++m_Completes != m_Renderers) return;
      m_Events.push_back({EC_COMPLETE, m_CompletionResult, 0});
    } else {
      m_Events.push_back({code, param1, param2});
    }
  }
  m_Changed.notify_all();
}

void CGraphEventQueue::BeginStreaming(int renderers) {
  std::lock_guard<std::mutex> guard(m_Lock);
  m_Streaming = true;
  m_Renderers = renderers;
  m_Completes = 0;
  m_CompletionResult = S_OK;
  DropCompletesLocked();
}

void CGraphEventQueue::EndStreaming() {
  {
    std::lock_guard<std::mutex> guard(m_Lock);
    m_Streaming = false;
    m_Completes = 0;
    ++m_Stops;
    DropCompletesLocked();
  }
  m_Changed.notify_all();
}

HRESULT CGraphEventQueue::GetEvent(LONG* code, LONG_PTR* param1, LONG_PTR* param2, LONG timeoutMs) {
  if (code == nullptr || param1 == nullptr || param2 == nullptr) return E_POINTER;
  *code = 0;
  *param1 = 0;
  *param2 = 0;
  std::unique_lock<std::mutex> lock(m_Lock);
  if (!WaitLocked(lock, timeoutMs, [this] { return !m_Events.empty(); })) return E_ABORT;
  const Event event = m_Events.front();
  m_Events.pop_front();
  *code = event.code;
  *param1 = event.param1;
  *param2 = event.param2;
  return S_OK;
}

HRESULT CGraphEventQueue::WaitForCompletion(LONG timeoutMs, LONG* code) {
  if (code == nullptr) return E_POINTER;
  *code = 0;
  std::unique_lock<std::mutex> lock(m_Lock);
  if (!m_Streaming) return VFW_E_WRONG_STATE;
  const std::uint64_t stops = m_Stops;
  auto ending = m_Events.end();
  const bool ready = WaitLocked(lock, timeoutMs, [&] {
    ending = std::find_if(m_Events.begin(), m_Events.end(),
                          [](const Event& e) { return EndsPlayback(e.code); });
    return ending != m_Events.end() || m_Stops != stops;
  });
  if (!ready) return E_ABORT;
  if (ending == m_Events.end()) return VFW_E_WRONG_STATE;
  *code = ending->code;
  m_Events.erase(ending);
  return S_OK;
}

HRESULT CGraphEventQueue::CancelDefaultHandling(LONG code) {
  if (code != EC_COMPLETE) return E_INVALIDARG;
  std::lock_guard<std::mutex> guard(m_Lock);
  m_DefaultCompletion = false;
  return S_OK;
}

HRESULT CGraphEventQueue::RestoreDefaultHandling(LONG code) {
  if (code != EC_COMPLETE) return E_INVALIDARG;
  std::lock_guard<std::mutex> guard(m_Lock);
  m_DefaultCompletion = true;
  return S_OK;
}

}  // namespace platform_internal
