#include "platform/win32/messages.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <memory>
#include <new>
#include <unordered_map>
#include <utility>

#include "platform/win32/files.h"

namespace {

// ---- Message boxes ----

struct HandlerSlot {
  std::mutex lock;
  MessageBoxHandler handler;  // guarded by lock; empty means the default
};

// Never destroyed, so a message box shown from a static destructor still works.
HandlerSlot& Slot() {
  static HandlerSlot* slot = new HandlerSlot;
  return *slot;
}

int DefaultMessageBox(const char* text, const char* caption, UINT type) {
  if (caption[0] != '\0') {
    std::fprintf(stderr, "%s: %s\n", caption, text);
  } else {
    std::fprintf(stderr, "%s\n", text);
  }
  // Nobody is there to choose, so take the answer that changes nothing.
  switch (type & MB_TYPEMASK) {
    case MB_OK:
    case MB_OKCANCEL:
      return IDOK;
    case MB_YESNO:
    case MB_YESNOCANCEL:
      return IDNO;
    default:
      return IDCANCEL;
  }
}

// ---- Windows ----

// Handles step by 0x10 from here, as the platform's look, and stay below
// 2^32 so they survive a trip through a 32-bit number.
constexpr std::uintptr_t kFirstWindow = 0x00010010;
constexpr std::uintptr_t kWindowStep = 0x10;
constexpr std::uintptr_t kLastWindow = 0xFFFFFFF0;

// The platform's per-queue limit of posted messages.
constexpr std::size_t kMaxPostedMessages = 10000;

struct WindowQueue {
  std::mutex lock;
  std::condition_variable arrived;
  std::deque<MSG> messages;  // guarded by lock
  bool destroyed = false;    // guarded by lock
};

// Lock order: the table's lock is never held while taking a queue's lock.
struct WindowTable {
  std::mutex lock;
  std::unordered_map<std::uintptr_t, std::shared_ptr<WindowQueue>> windows;  // guarded by lock
  std::uintptr_t next = kFirstWindow;                                        // guarded by lock
};

WindowTable& Windows() {
  static WindowTable* table = new WindowTable;
  return *table;
}

std::uintptr_t HandleValue(HWND window) { return reinterpret_cast<std::uintptr_t>(window); }

std::shared_ptr<WindowQueue> LookupWindow(HWND window) {
  WindowTable& table = Windows();
  std::lock_guard<std::mutex> guard(table.lock);
  auto it = table.windows.find(HandleValue(window));
  return it == table.windows.end() ? nullptr : it->second;
}

BOOL Fail(DWORD error) {
  SetLastError(error);
  return FALSE;
}

// Caller holds queue.lock and has checked there is a message.
MSG TakeFront(WindowQueue& queue) {
  MSG message = queue.messages.front();
  queue.messages.pop_front();
  return message;
}

}  // namespace

MessageBoxHandler SetMessageBoxHandler(MessageBoxHandler handler) {
  HandlerSlot& slot = Slot();
  std::lock_guard<std::mutex> guard(slot.lock);
  std::swap(slot.handler, handler);
  return handler;
}

int MessageBoxA(HWND /*owner*/, LPCSTR text, LPCSTR caption, UINT type) {
  if (text == nullptr) text = "";
  if (caption == nullptr) caption = "";
  MessageBoxHandler handler;
  {
    HandlerSlot& slot = Slot();
    std::lock_guard<std::mutex> guard(slot.lock);
    handler = slot.handler;
  }
  return handler ? handler(text, caption, type) : DefaultMessageBox(text, caption, type);
}

CMessageBoxRecorder::CMessageBoxRecorder(int answer) : answer_(answer) {
  previous_ = SetMessageBoxHandler([this](const char* text, const char* caption, UINT type) {
    std::lock_guard<std::mutex> guard(lock_);
    calls_.push_back(Call{caption, text, type});
    return answer_;
  });
}

CMessageBoxRecorder::~CMessageBoxRecorder() { SetMessageBoxHandler(std::move(previous_)); }

void CMessageBoxRecorder::SetAnswer(int answer) {
  std::lock_guard<std::mutex> guard(lock_);
  answer_ = answer;
}

std::vector<CMessageBoxRecorder::Call> CMessageBoxRecorder::Calls() const {
  std::lock_guard<std::mutex> guard(lock_);
  return calls_;
}

std::size_t CMessageBoxRecorder::Count() const {
  std::lock_guard<std::mutex> guard(lock_);
  return calls_.size();
}

void CMessageBoxRecorder::Clear() {
  std::lock_guard<std::mutex> guard(lock_);
  calls_.clear();
}

HWND CreatePlatformWindow() {
  try {
    auto queue = std::make_shared<WindowQueue>();
    WindowTable& table = Windows();
    std::lock_guard<std::mutex> guard(table.lock);
    if (table.next > kLastWindow) {
      SetLastError(ERROR_NOT_ENOUGH_MEMORY);
      return nullptr;
    }
    const std::uintptr_t value = table.next;
    table.windows.emplace(value, std::move(queue));
    table.next += kWindowStep;
    return reinterpret_cast<HWND>(value);
  } catch (const std::bad_alloc&) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
}

BOOL DestroyPlatformWindow(HWND window) {
  std::shared_ptr<WindowQueue> queue;
  {
    WindowTable& table = Windows();
    std::lock_guard<std::mutex> guard(table.lock);
    auto it = table.windows.find(HandleValue(window));
    if (it == table.windows.end()) return Fail(ERROR_INVALID_WINDOW_HANDLE);
    queue = std::move(it->second);
    table.windows.erase(it);
  }
  // A poster or waiter that found the queue before the erase sees this flag.
  {
    std::lock_guard<std::mutex> guard(queue->lock);
    queue->destroyed = true;
    queue->messages.clear();
  }
  queue->arrived.notify_all();
  return TRUE;
}

BOOL PostMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  const std::shared_ptr<WindowQueue> queue = LookupWindow(window);
  if (!queue) return Fail(ERROR_INVALID_WINDOW_HANDLE);
  {
    std::lock_guard<std::mutex> guard(queue->lock);
    if (queue->destroyed) return Fail(ERROR_INVALID_WINDOW_HANDLE);
    if (queue->messages.size() >= kMaxPostedMessages) return Fail(ERROR_NOT_ENOUGH_QUOTA);
    try {
      queue->messages.push_back(MSG{window, message, wParam, lParam});
    } catch (const std::bad_alloc&) {
      return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
  }
  queue->arrived.notify_one();
  return TRUE;
}

BOOL PeekPlatformMessage(HWND window, MSG* out) {
  if (out == nullptr) return Fail(ERROR_INVALID_PARAMETER);
  const std::shared_ptr<WindowQueue> queue = LookupWindow(window);
  if (!queue) return Fail(ERROR_INVALID_WINDOW_HANDLE);
  std::lock_guard<std::mutex> guard(queue->lock);
  if (queue->messages.empty()) return FALSE;
  *out = TakeFront(*queue);
  return TRUE;
}

BOOL WaitPlatformMessage(HWND window, MSG* out, DWORD timeoutMs) {
  if (out == nullptr) return Fail(ERROR_INVALID_PARAMETER);
  const std::shared_ptr<WindowQueue> queue = LookupWindow(window);
  if (!queue) return Fail(ERROR_INVALID_WINDOW_HANDLE);
  std::unique_lock<std::mutex> guard(queue->lock);
  auto ready = [&queue] { return !queue->messages.empty() || queue->destroyed; };
  if (timeoutMs == INFINITE) {
    queue->arrived.wait(guard, ready);
  } else if (!queue->arrived.wait_for(guard, std::chrono::milliseconds(timeoutMs), ready)) {
    return FALSE;
  }
  if (queue->messages.empty()) return Fail(ERROR_INVALID_WINDOW_HANDLE);  // destroyed
  *out = TakeFront(*queue);
  return TRUE;
}

bool IsWindow(HWND window) { return LookupWindow(window) != nullptr; }
