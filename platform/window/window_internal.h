// The window layer's own records: one per window, kept in a process-wide
// table by handle. Shared by the units of platform/window only.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/win32/resources.h"
#include "platform/window/commctrl.h"
#include "platform/window/window_model.h"
#include "platform/window/wingdi.h"

namespace platform_window {

struct TimerEntry {
  UINT elapse = 0;
  std::chrono::steady_clock::time_point due;
};

struct ToolEntry {
  HWND window = nullptr;
  UINT_PTR id = 0;
  UINT flags = 0;
  RECT rect{};
  std::string text;
};

struct WindowRecord {
  HWND handle = nullptr;
  HWND parent = nullptr;
  std::thread::id thread;
  std::string className;
  PlatformControlKind kind = PlatformControlKind::kWindow;
  DWORD style = 0;
  DWORD exStyle = 0;
  int id = 0;
  RECT dialogRect{};  // dialog units, template controls and dialogs only
  RECT rect{};        // pixels in the parent's client area
  std::string text;
  WNDPROC proc = nullptr;
  DLGPROC dialogProc = nullptr;
  LONG_PTR userData = 0;
  LONG_PTR dialogResult = 0;
  LONG_PTR dialogUser = 0;
  HFONT font = nullptr;
  const PlatformDialogResource* dialogTemplate = nullptr;
  std::vector<HWND> children;
  bool subclassed = false;
  // Controls.
  UINT check = BST_UNCHECKED;
  std::vector<std::string> items;
  std::vector<LPARAM> itemData;
  int selected = -1;
  std::vector<PlatformListColumn> columns;
  std::vector<std::vector<std::string>> rows;
  int textLimit = 0;
  UINT bitmapId = 0;
  int bitmapWidth = 0;
  int bitmapHeight = 0;
  const PlatformBitmapResource* bitmap = nullptr;
  std::vector<ToolEntry> tools;  // a tooltip window's tools
  std::map<UINT_PTR, TimerEntry> timers;
  std::vector<PlatformPaintOp> paint;  // what the last WM_PAINT drew
};

// The table's lock is held only while records are read or changed, never
// while a window procedure runs: procedures call back into the layer.
std::recursive_mutex& TableLock();
// Null for a handle that isn't (or no longer is) a window of the layer.
std::shared_ptr<WindowRecord> Find(HWND window);
// Every live record, in the order they were made.
std::vector<std::shared_ptr<WindowRecord>> AllWindows();
// A new record with a fresh handle, child of `parent`; null when no handle
// is left.
std::shared_ptr<WindowRecord> NewWindow(HWND parent, const std::string& className);
void ForgetWindow(HWND window);

// The built-in class's procedure for a class name.
WNDPROC ClassProcedure(PlatformControlKind kind);
PlatformControlKind KindOf(const std::string& className, DWORD style);
// Sends WM_COMMAND with (id, code) from `control` to its parent.
void NotifyParent(HWND control, WORD code);

// Where the model's mouse puts the cursor, in screen pixels.
void SetCursorPosition(POINT point);

int BaseUnitX();
int BaseUnitY();
SIZE MeasureText(const std::string& text, const LOGFONTA& font);
// The LOGFONTA of a font handle, the dialog font when the handle is null.
LOGFONTA FontOf(HFONT font);
HFONT DialogFont(const char* face, WORD points);

}  // namespace platform_window
