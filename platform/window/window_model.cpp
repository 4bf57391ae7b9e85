// The model side of the window layer: reading windows back, timers and the
// message pump, and the user's actions played into controls.
#include <algorithm>
#include <atomic>
#include <cctype>

#include "platform/window/window_internal.h"

using namespace platform_window;

namespace {

std::atomic<UINT> g_Cursor{32512};

bool IsAutoCheckBox(DWORD style) { return (style & BS_TYPEMASK) == BS_AUTOCHECKBOX; }

}  // namespace

bool PlatformGetWindowState(HWND window, PlatformWindowState* state) {
  const auto record = Find(window);
  if (record == nullptr || state == nullptr) return false;
  PlatformWindowState out;
  {
    std::lock_guard<std::recursive_mutex> guard(TableLock());
    out.window = record->handle;
    out.parent = record->parent;
    out.id = record->id;
    out.className = record->className;
    out.kind = record->kind;
    out.style = record->style;
    out.exStyle = record->exStyle;
    out.visible = (record->style & WS_VISIBLE) != 0;
    out.enabled = (record->style & WS_DISABLED) == 0;
    out.subclassed = record->subclassed;
    out.dialogRect = record->dialogRect;
    out.text = record->text;
    out.check = record->check;
    out.items = record->items;
    out.itemData = record->itemData;
    out.selected = record->selected;
    out.columns = record->columns;
    out.rows = record->rows;
    out.bitmapId = record->bitmapId;
    out.bitmapWidth = record->bitmapWidth;
    out.bitmapHeight = record->bitmapHeight;
    out.bitmap = record->bitmap;
    out.textLimit = record->textLimit;
  }
  out.focused = GetFocus() == window;
  // A tooltip tool that names this window.
  for (const auto& other : AllWindows()) {
    if (other->kind != PlatformControlKind::kTooltip) continue;
    std::lock_guard<std::recursive_mutex> guard(TableLock());
    for (const ToolEntry& tool : other->tools) {
      const bool byHandle = (tool.flags & TTF_IDISHWND) != 0 && reinterpret_cast<HWND>(tool.id) == window;
      if (tool.window == window || byHandle) {
        out.tooltip = tool.text;
        out.tooltipRect = tool.rect;
      }
    }
  }
  *state = std::move(out);
  return true;
}

std::vector<HWND> PlatformChildWindows(HWND parent) {
  const auto record = Find(parent);
  if (record == nullptr) return {};
  std::lock_guard<std::recursive_mutex> guard(TableLock());
  return record->children;
}

const PlatformDialogResource* PlatformDialogTemplate(HWND dialog) {
  const auto record = Find(dialog);
  if (record == nullptr) return nullptr;
  std::lock_guard<std::recursive_mutex> guard(TableLock());
  return record->dialogTemplate;
}

UINT PlatformCurrentCursorId() { return g_Cursor.load(); }

HCURSOR LoadCursorA(HINSTANCE, LPCSTR name) {
  // The system's cursors only, named by number: the handle is the number.
  if (!IS_INTRESOURCE(name)) return nullptr;
  return reinterpret_cast<HCURSOR>(const_cast<char*>(name));
}

HCURSOR SetCursor(HCURSOR cursor) {
  const UINT previous = g_Cursor.exchange(static_cast<UINT>(reinterpret_cast<ULONG_PTR>(cursor)));
  return reinterpret_cast<HCURSOR>(static_cast<ULONG_PTR>(previous));
}

DWORD GetSysColor(int index) {
  switch (index) {
    case COLOR_WINDOW: return RGB(255, 255, 255);
    case COLOR_WINDOWTEXT: return RGB(0, 0, 0);
    case COLOR_BTNFACE: return RGB(240, 240, 240);
    case COLOR_GRAYTEXT: return RGB(109, 109, 109);
    case COLOR_HOTLIGHT: return RGB(0, 102, 204);
    default: return RGB(0, 0, 0);
  }
}

BOOL InitCommonControlsEx(const INITCOMMONCONTROLSEX* init) { return init != nullptr ? TRUE : FALSE; }

// ---- Timers and the pump ----

UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT elapse, TIMERPROC) {
  const auto record = Find(window);
  if (record == nullptr) {
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return 0;
  }
  // The platform's least period.
  const UINT period = std::max<UINT>(elapse, 10);
  std::lock_guard<std::recursive_mutex> guard(TableLock());
  record->timers[id] = {period, std::chrono::steady_clock::now() + std::chrono::milliseconds(period)};
  return id != 0 ? id : 1;
}

BOOL KillTimer(HWND window, UINT_PTR id) {
  const auto record = Find(window);
  if (record == nullptr) return FALSE;
  std::lock_guard<std::recursive_mutex> guard(TableLock());
  return record->timers.erase(id) != 0 ? TRUE : FALSE;
}

std::vector<PlatformTimerState> PlatformWindowTimers(HWND window) {
  const auto record = Find(window);
  if (record == nullptr) return {};
  std::lock_guard<std::recursive_mutex> guard(TableLock());
  std::vector<PlatformTimerState> timers;
  for (const auto& [id, timer] : record->timers) timers.push_back({id, timer.elapse});
  return timers;
}

int PlatformPumpMessages(DWORD milliseconds) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
  const std::thread::id self = std::this_thread::get_id();
  int delivered = 0;
  for (;;) {
    const Clock::time_point now = Clock::now();
    Clock::time_point next = deadline;
    std::vector<std::pair<HWND, UINT_PTR>> due;
    std::vector<HWND> mine;
    {
      std::lock_guard<std::recursive_mutex> guard(TableLock());
      for (const auto& record : AllWindows()) {
        if (record->thread != self) continue;
        mine.push_back(record->handle);
        for (auto& [id, timer] : record->timers) {
          if (timer.due <= now) {
            due.emplace_back(record->handle, id);
            // A late timer fires once, not once for every period it missed.
            timer.due = now + std::chrono::milliseconds(timer.elapse);
          }
          next = std::min(next, timer.due);
        }
      }
    }
    for (const auto& [window, id] : due) {
      // The timer may have been killed by an earlier message of this round.
      bool alive = false;
      if (const auto record = Find(window); record != nullptr) {
        std::lock_guard<std::recursive_mutex> guard(TableLock());
        alive = record->timers.count(id) != 0;
      }
      if (!alive) continue;
      SendMessageA(window, WM_TIMER, id, 0);
      ++delivered;
    }
    for (HWND window : mine) {
      MSG message{};
      while (PeekPlatformMessage(window, &message)) {
        SendMessageA(message.hwnd, message.message, message.wParam, message.lParam);
        ++delivered;
      }
    }
    if (Clock::now() >= deadline) return delivered;
    const auto wait = std::min(next, std::min(deadline, Clock::now() + std::chrono::milliseconds(5)));
    std::this_thread::sleep_until(wait);
  }
}

// ---- The user's actions ----

BOOL PlatformClickButton(HWND control) {
  const auto record = Find(control);
  if (record == nullptr || !IsWindowEnabled(control)) return FALSE;
  {
    std::lock_guard<std::recursive_mutex> guard(TableLock());
    if (record->kind != PlatformControlKind::kCheckBox && record->kind != PlatformControlKind::kButton) return FALSE;
    if (IsAutoCheckBox(record->style)) record->check = record->check == BST_CHECKED ? BST_UNCHECKED : BST_CHECKED;
  }
  NotifyParent(control, BN_CLICKED);
  return TRUE;
}

BOOL PlatformSelectItem(HWND control, int index) {
  const auto record = Find(control);
  if (record == nullptr || !IsWindowEnabled(control)) return FALSE;
  PlatformControlKind kind;
  DWORD style = 0;
  {
    std::lock_guard<std::recursive_mutex> guard(TableLock());
    kind = record->kind;
    style = record->style;
  }
  if (kind == PlatformControlKind::kListView) {
    LVITEMA item{};
    item.stateMask = LVIS_SELECTED;
    item.state = LVIS_SELECTED;
    return SendMessageA(control, LVM_SETITEMSTATE, static_cast<WPARAM>(index), reinterpret_cast<LPARAM>(&item)) != 0;
  }
  if (kind != PlatformControlKind::kListBox && kind != PlatformControlKind::kComboBox) return FALSE;
  const bool combo = kind == PlatformControlKind::kComboBox;
  // A user picks only an item that is there.
  if (index < 0 || index >= SendMessageA(control, combo ? CB_GETCOUNT : LB_GETCOUNT, 0, 0)) return FALSE;
  if (SendMessageA(control, combo ? CB_SETCURSEL : LB_SETCURSEL, static_cast<WPARAM>(index), 0) != index) return FALSE;
  // A list box without LBS_NOTIFY keeps its changes to itself.
  if (combo || (style & LBS_NOTIFY) != 0) NotifyParent(control, combo ? CBN_SELCHANGE : LBN_SELCHANGE);
  return TRUE;
}

BOOL PlatformTypeText(HWND control, const char* text) {
  const auto record = Find(control);
  if (record == nullptr || text == nullptr || !IsWindowEnabled(control)) return FALSE;
  std::string typed = text;
  {
    std::lock_guard<std::recursive_mutex> guard(TableLock());
    if (record->kind != PlatformControlKind::kEdit) return FALSE;
    if ((record->style & ES_LOWERCASE) != 0) {
      for (char& c : typed) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    const std::size_t limit = record->textLimit > 0 ? static_cast<std::size_t>(record->textLimit) : 30000;
    if (typed.size() > limit) typed.resize(limit);
  }
  return SendMessageA(control, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(typed.c_str())) != 0;
}

LRESULT PlatformMouse(HWND window, UINT message, int x, int y) {
  if (Find(window) == nullptr) return 0;
  POINT screen{x, y};
  ClientToScreen(window, &screen);
  SetCursorPosition(screen);
  const LPARAM point = MAKELPARAM(static_cast<WORD>(x), static_cast<WORD>(y));
  if (message == WM_MOUSEMOVE) {
    constexpr WORD kHitClient = 1;
    SendMessageA(window, WM_SETCURSOR, reinterpret_cast<WPARAM>(window), MAKELPARAM(kHitClient, WM_MOUSEMOVE));
  }
  return SendMessageA(window, message, 0, point);
}

LRESULT PlatformKey(HWND window, WPARAM key) {
  if (Find(window) == nullptr) return 0;
  if (GetParent(window) != nullptr) {
    MSG message{window, WM_KEYDOWN, key, 0};
    const LRESULT code = SendMessageA(window, WM_GETDLGCODE, key, reinterpret_cast<LPARAM>(&message));
    // Return and Space go to the dialog unless the control asks for them.
    if ((code & (DLGC_WANTALLKEYS | DLGC_WANTMESSAGE | DLGC_WANTCHARS)) == 0) return 0;
  }
  return SendMessageA(window, WM_KEYDOWN, key, 0);
}
