// Message boxes through a process-wide handler, and platform windows that
// are message queues for PostMessageA.
#pragma once

#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "platform/win32/win_types.h"

inline constexpr UINT MB_OK = 0x00;
inline constexpr UINT MB_OKCANCEL = 0x01;
inline constexpr UINT MB_YESNOCANCEL = 0x03;
inline constexpr UINT MB_YESNO = 0x04;
inline constexpr UINT MB_TYPEMASK = 0x0F;
inline constexpr UINT MB_ICONERROR = 0x10;
inline constexpr UINT MB_ICONQUESTION = 0x20;
inline constexpr UINT MB_ICONWARNING = 0x30;
inline constexpr UINT MB_ICONINFORMATION = 0x40;

inline constexpr int IDOK = 1;
inline constexpr int IDCANCEL = 2;
inline constexpr int IDYES = 6;
inline constexpr int IDNO = 7;

// Receives every MessageBoxA call in the process and returns the button.
using MessageBoxHandler = std::function<int(const char* text, const char* caption, UINT type)>;

// Installs `handler` and returns the previous one; an empty handler restores
// the default, which prints "Caption: text" on one line to stderr and answers
// IDOK to MB_OK and MB_OKCANCEL, IDNO to MB_YESNO and MB_YESNOCANCEL, and
// IDCANCEL to anything else. The handler runs outside any lock, so it may
// itself show a message box or install another handler.
MessageBoxHandler SetMessageBoxHandler(MessageBoxHandler handler);

// Null text or caption are passed on as "". The owner is ignored.
int MessageBoxA(HWND owner, LPCSTR text, LPCSTR caption, UINT type);

// Test helper: records every message box while alive and answers each with a
// chosen button; restores the previous handler when destroyed. Recorders nest
// last in, first out, and one must outlive any message box still being shown.
class CMessageBoxRecorder {
 public:
  struct Call {
    std::string caption;
    std::string text;
    UINT type = 0;
  };

  explicit CMessageBoxRecorder(int answer = IDOK);
  ~CMessageBoxRecorder();
  CMessageBoxRecorder(const CMessageBoxRecorder&) = delete;
  CMessageBoxRecorder& operator=(const CMessageBoxRecorder&) = delete;

  void SetAnswer(int answer);
  std::vector<Call> Calls() const;
  std::size_t Count() const;
  void Clear();

 private:
  mutable std::mutex lock_;
  std::vector<Call> calls_;  // guarded by lock_
  int answer_;               // guarded by lock_
  MessageBoxHandler previous_;
};

inline constexpr UINT WM_USER = 0x0400;
inline constexpr UINT WM_APP = 0x8000;

struct MSG {
  HWND hwnd;
  UINT message;
  WPARAM wParam;
  LPARAM lParam;
};

// A new window: a message queue with a handle such as 0x00010010. Handles
// fit in 32 bits, because clients pass them through a 32-bit number, and are
// never reused, so a stale handle stays invalid. Returns nullptr only if the
// handle space is used up.
HWND CreatePlatformWindow();

// Drops the queue and wakes its waiters. FALSE with
// ERROR_INVALID_WINDOW_HANDLE for an unknown handle.
BOOL DestroyPlatformWindow(HWND window);

// Appends to the window's queue. FALSE with ERROR_INVALID_WINDOW_HANDLE for
// an unknown or destroyed window, and with ERROR_NOT_ENOUGH_QUOTA when the
// queue already holds the platform's limit of 10000 messages.
BOOL PostMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

// Takes the oldest message without waiting; FALSE if there is none.
BOOL PeekPlatformMessage(HWND window, MSG* out);

// Waits up to timeoutMs (INFINITE for no limit) for a message. FALSE on
// timeout, for an unknown window, or when the window is destroyed meanwhile.
BOOL WaitPlatformMessage(HWND window, MSG* out, DWORD timeoutMs);

bool IsWindow(HWND window);
