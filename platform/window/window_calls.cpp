// Windows and dialogs: the table of records, making dialogs from templates,
// sending messages, and the calls that read and change a window.
#include <algorithm>
#include <cstring>
#include <unordered_map>

#include "platform/window/window_internal.h"

namespace platform_window {
namespace {

struct Table {
  std::recursive_mutex lock;
  std::unordered_map<std::uintptr_t, std::shared_ptr<WindowRecord>> windows;  // guarded by lock
  std::vector<HWND> order;                                                   // guarded by lock
};

Table& Windows() {
  static Table* table = new Table;
  return *table;
}

std::uintptr_t Key(HWND window) { return reinterpret_cast<std::uintptr_t>(window); }

}  // namespace

std::recursive_mutex& TableLock() { return Windows().lock; }

std::shared_ptr<WindowRecord> Find(HWND window) {
  Table& table = Windows();
  std::lock_guard<std::recursive_mutex> guard(table.lock);
  const auto found = table.windows.find(Key(window));
  return found == table.windows.end() ? nullptr : found->second;
}

std::vector<std::shared_ptr<WindowRecord>> AllWindows() {
  Table& table = Windows();
  std::lock_guard<std::recursive_mutex> guard(table.lock);
  std::vector<std::shared_ptr<WindowRecord>> all;
  for (HWND window : table.order) {
    const auto found = table.windows.find(Key(window));
    if (found != table.windows.end()) all.push_back(found->second);
  }
  return all;
}

std::shared_ptr<WindowRecord> NewWindow(HWND parent, const std::string& className) {
  // A platform window underneath, so the handle takes posted messages too.
  HWND handle = CreatePlatformWindow();
  if (handle == nullptr) return nullptr;
  auto record = std::make_shared<WindowRecord>();
  record->handle = handle;
  record->parent = parent;
  record->thread = std::this_thread::get_id();
  record->className = className;
  Table& table = Windows();
  std::lock_guard<std::recursive_mutex> guard(table.lock);
  table.windows[Key(handle)] = record;
  table.order.push_back(handle);
  if (const auto found = table.windows.find(Key(parent)); found != table.windows.end()) {
    found->second->children.push_back(handle);
  }
  return record;
}

void ForgetWindow(HWND window) {
  Table& table = Windows();
  std::lock_guard<std::recursive_mutex> guard(table.lock);
  const auto found = table.windows.find(Key(window));
  if (found == table.windows.end()) return;
  if (const auto parent = table.windows.find(Key(found->second->parent)); parent != table.windows.end()) {
    auto& siblings = parent->second->children;
    siblings.erase(std::remove(siblings.begin(), siblings.end(), window), siblings.end());
  }
  table.windows.erase(found);
  table.order.erase(std::remove(table.order.begin(), table.order.end(), window), table.order.end());
  DestroyPlatformWindow(window);
}

void NotifyParent(HWND control, WORD code) {
  const auto record = Find(control);
  if (record == nullptr || record->parent == nullptr) return;
  SendMessageA(record->parent, WM_COMMAND, MAKEWPARAM(static_cast<WORD>(record->id), code),
               reinterpret_cast<LPARAM>(control));
}

}  // namespace platform_window

using namespace platform_window;

namespace {

HWND g_Focus = nullptr;  // guarded by TableLock()

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// A dialog's procedure behind its class: the page's procedure first, the
// default handling when it says it didn't handle the message.
LRESULT CALLBACK DialogClassProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  const auto record = Find(window);
  const DLGPROC proc = record != nullptr ? record->dialogProc : nullptr;
  if (proc != nullptr) {
    const INT_PTR handled = proc(window, message, wParam, lParam);
    if (message == WM_INITDIALOG || message == WM_CTLCOLORSTATIC || message == WM_GETDLGCODE) return handled;
    if (handled != 0) {
      const auto after = Find(window);
      return after != nullptr ? after->dialogResult : 0;
    }
  }
  return DefWindowProcA(window, message, wParam, lParam);
}

// The pixel rectangle of a rectangle in dialog units.
RECT ToPixels(short x, short y, short cx, short cy) {
  RECT rect{x, y, x + cx, y + cy};
  rect.left = rect.left * BaseUnitX() / 4;
  rect.right = rect.right * BaseUnitX() / 4;
  rect.top = rect.top * BaseUnitY() / 8;
  rect.bottom = rect.bottom * BaseUnitY() / 8;
  return rect;
}

void ReadBitmapSize(HINSTANCE module, WindowRecord& control) {
  control.bitmapId = static_cast<UINT>(std::strtoul(control.text.c_str(), nullptr, 10));
  control.text.clear();
  const PlatformBitmapResource* bitmap = PlatformFindBitmap(module, control.bitmapId);
  if (bitmap == nullptr || bitmap->bits == nullptr || bitmap->size < 12) return;
  control.bitmap = bitmap;
  auto read32 = [&](std::size_t at) {
    std::int32_t value = 0;
    std::memcpy(&value, bitmap->bits + at, sizeof value);
    return value;
  };
  control.bitmapWidth = read32(4);
  const std::int32_t height = read32(8);
  control.bitmapHeight = height < 0 ? -height : height;
}

}  // namespace

// ---- Dialogs ----

HWND CreateDialogParamA(HINSTANCE module, LPCSTR templateName, HWND parent, DLGPROC dialogProc, LPARAM initParam) {
  const PlatformDialogResource* dialog = PlatformFindDialog(module, templateName);
  if (dialog == nullptr) {
    SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
    return nullptr;
  }
  const auto record = NewWindow(parent, "#32770");
  if (record == nullptr) return nullptr;
  {
    std::lock_guard<std::recursive_mutex> guard(TableLock());
    record->kind = PlatformControlKind::kDialog;
    record->style = dialog->style;
    record->exStyle = dialog->exStyle;
    record->dialogRect = {dialog->x, dialog->y, dialog->x + dialog->cx, dialog->y + dialog->cy};
    record->rect = ToPixels(dialog->x, dialog->y, dialog->cx, dialog->cy);
    record->text = dialog->caption != nullptr ? dialog->caption : "";
    record->proc = DialogClassProc;
    record->dialogProc = dialogProc;
    record->dialogTemplate = dialog;
  }
  HWND window = record->handle;
  const HFONT font = (dialog->style & DS_SETFONT) != 0 ? DialogFont(dialog->fontName, dialog->fontSize) : nullptr;
  for (UINT i = 0; i < dialog->itemCount; ++i) {
    const PlatformDialogItem& item = dialog->items[i];
    const auto control = NewWindow(window, item.className != nullptr ? item.className : "");
    if (control == nullptr) break;
    std::lock_guard<std::recursive_mutex> guard(TableLock());
    control->style = item.style;
    control->exStyle = item.exStyle;
    control->id = item.id == 0xFFFF ? -1 : item.id;
    control->kind = KindOf(control->className, item.style);
    control->dialogRect = {item.x, item.y, item.x + item.cx, item.y + item.cy};
    control->rect = ToPixels(item.x, item.y, item.cx, item.cy);
    control->text = item.text != nullptr ? item.text : "";
    control->proc = ClassProcedure(control->kind);
    control->font = font;
    if (control->kind == PlatformControlKind::kBitmap) ReadBitmapSize(module, *control);
  }
  if (font != nullptr) {
    // The dialog manager keeps the font itself: a dialog procedure that
    // claims WM_SETFONT (as one does before WM_INITDIALOG) doesn't lose it.
    {
      std::lock_guard<std::recursive_mutex> guard(TableLock());
      record->font = font;
    }
    SendMessageA(window, WM_SETFONT, reinterpret_cast<WPARAM>(font), FALSE);
  }
  SendMessageA(window, WM_INITDIALOG, 0, initParam);
  return IsWindow(window) ? window : nullptr;
}

BOOL DestroyWindow(HWND window) {
  const auto record = Find(window);
  if (record == nullptr) {
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return FALSE;
  }
  SendMessageA(window, WM_DESTROY, 0, 0);
  std::vector<HWND> children;
  {
    std::lock_guard<std::recursive_mutex> guard(TableLock());
    children = record->children;
    record->timers.clear();
    if (g_Focus == window) g_Focus = nullptr;
  }
  for (HWND child : children) DestroyWindow(child);
  SendMessageA(window, WM_NCDESTROY, 0, 0);
  ForgetWindow(window);
  return TRUE;
}

HWND GetDlgItem(HWND dialog, int id) {
  const auto record = Find(dialog);
  if (record == nullptr) return nullptr;
  std::lock_guard<std::recursive_mutex> guard(TableLock());
  for (HWND child : record->children) {
    const auto control = Find(child);
    if (control != nullptr && control->id == id) return child;
  }
  SetLastError(ERROR_INVALID_DLG_ITEM);
  return nullptr;
}

int GetDlgCtrlID(HWND control) {
  const auto record = Find(control);
  return record != nullptr ? record->id : 0;
}

HWND GetParent(HWND window) {
  const auto record = Find(window);
  return record != nullptr ? record->parent : nullptr;
}

BOOL SetDlgItemTextA(HWND dialog, int id, LPCSTR text) {
  HWND control = GetDlgItem(dialog, id);
  return control != nullptr ? SetWindowTextA(control, text) : FALSE;
}

UINT GetDlgItemTextA(HWND dialog, int id, LPSTR buffer, int size) {
  HWND control = GetDlgItem(dialog, id);
  if (control == nullptr) {
    if (buffer != nullptr && size > 0) buffer[0] = '\0';
    return 0;
  }
  return static_cast<UINT>(GetWindowTextA(control, buffer, size));
}

BOOL SetWindowTextA(HWND window, LPCSTR text) {
  if (Find(window) == nullptr) {
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return FALSE;
  }
  return SendMessageA(window, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text != nullptr ? text : "")) != 0;
}

int GetWindowTextA(HWND window, LPSTR buffer, int size) {
  if (buffer == nullptr || size <= 0) return 0;
  buffer[0] = '\0';
  return static_cast<int>(SendMessageA(window, WM_GETTEXT, static_cast<WPARAM>(size), reinterpret_cast<LPARAM>(buffer)));
}

int GetWindowTextLengthA(HWND window) { return static_cast<int>(SendMessageA(window, WM_GETTEXTLENGTH, 0, 0)); }

BOOL CheckDlgButton(HWND dialog, int id, UINT check) {
  HWND control = GetDlgItem(dialog, id);
  if (control == nullptr) return FALSE;
  SendMessageA(control, BM_SETCHECK, check, 0);
  return TRUE;
}

UINT IsDlgButtonChecked(HWND dialog, int id) {
  HWND control = GetDlgItem(dialog, id);
  return control != nullptr ? static_cast<UINT>(SendMessageA(control, BM_GETCHECK, 0, 0)) : BST_UNCHECKED;
}

// Called on the caller's thread, as a message sent within one thread is.
LRESULT SendMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  const auto record = Find(window);
  if (record == nullptr) {
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return 0;
  }
  WNDPROC proc = nullptr;
  {
    std::lock_guard<std::recursive_mutex> guard(TableLock());
    proc = record->proc;
  }
  return proc != nullptr ? proc(window, message, wParam, lParam) : DefWindowProcA(window, message, wParam, lParam);
}

LRESULT SendDlgItemMessageA(HWND dialog, int id, UINT message, WPARAM wParam, LPARAM lParam) {
  HWND control = GetDlgItem(dialog, id);
  return control != nullptr ? SendMessageA(control, message, wParam, lParam) : 0;
}

BOOL MapDialogRect(HWND dialog, LPRECT rect) {
  if (rect == nullptr || Find(dialog) == nullptr) return FALSE;
  rect->left = rect->left * BaseUnitX() / 4;
  rect->right = rect->right * BaseUnitX() / 4;
  rect->top = rect->top * BaseUnitY() / 8;
  rect->bottom = rect->bottom * BaseUnitY() / 8;
  return TRUE;
}

// ---- Windows in general ----

HWND CreateWindowExA(DWORD exStyle, LPCSTR className, LPCSTR windowName, DWORD style, int x, int y, int width,
                     int height, HWND parent, HMENU menu, HINSTANCE, LPVOID) {
  const std::string name = className != nullptr && !IS_INTRESOURCE(className) ? className : "";
  const auto record = NewWindow(parent, name);
  if (record == nullptr) return nullptr;
  {
    std::lock_guard<std::recursive_mutex> guard(TableLock());
    record->kind = Lower(name) == Lower(TOOLTIPS_CLASSA) ? PlatformControlKind::kTooltip : KindOf(name, style);
    record->style = style;
    record->exStyle = exStyle;
    record->id = (style & WS_CHILD) != 0 ? static_cast<int>(reinterpret_cast<std::intptr_t>(menu)) : 0;
    record->rect = {x, y, x + width, y + height};
    record->text = windowName != nullptr ? windowName : "";
    record->proc = ClassProcedure(record->kind);
  }
  SendMessageA(record->handle, WM_CREATE, 0, 0);
  return record->handle;
}

LONG_PTR SetWindowLongPtrA(HWND window, int index, LONG_PTR value) {
  const auto record = Find(window);
  if (record == nullptr) {
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return 0;
  }
  std::lock_guard<std::recursive_mutex> guard(TableLock());
  const bool dialog = record->kind == PlatformControlKind::kDialog;
  LONG_PTR previous = 0;
  SetLastError(ERROR_SUCCESS);
  switch (index) {
    case GWLP_WNDPROC:
      previous = reinterpret_cast<LONG_PTR>(record->proc);
      record->proc = reinterpret_cast<WNDPROC>(value);
      record->subclassed = record->proc != ClassProcedure(record->kind) &&
                           !(dialog && record->proc == reinterpret_cast<WNDPROC>(&DialogClassProc));
      return previous;
    case GWLP_USERDATA:
      previous = record->userData;
      record->userData = value;
      return previous;
    case GWL_STYLE:
      previous = static_cast<LONG_PTR>(record->style);
      record->style = static_cast<DWORD>(value);
      return previous;
    case GWL_EXSTYLE:
      previous = static_cast<LONG_PTR>(record->exStyle);
      record->exStyle = static_cast<DWORD>(value);
      return previous;
    case GWLP_ID:
      previous = record->id;
      record->id = static_cast<int>(value);
      return previous;
    default:
      break;
  }
  if (dialog && index == DWLP_MSGRESULT) {
    previous = record->dialogResult;
    record->dialogResult = value;
  } else if (dialog && index == DWLP_USER) {
    previous = record->dialogUser;
    record->dialogUser = value;
  } else if (dialog && index == DWLP_DLGPROC) {
    previous = reinterpret_cast<LONG_PTR>(record->dialogProc);
    record->dialogProc = reinterpret_cast<DLGPROC>(value);
  } else {
    SetLastError(ERROR_INVALID_PARAMETER);
  }
  return previous;
}

LONG_PTR GetWindowLongPtrA(HWND window, int index) {
  const auto record = Find(window);
  if (record == nullptr) {
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return 0;
  }
  std::lock_guard<std::recursive_mutex> guard(TableLock());
  const bool dialog = record->kind == PlatformControlKind::kDialog;
  switch (index) {
    case GWLP_WNDPROC: return reinterpret_cast<LONG_PTR>(record->proc);
    case GWLP_USERDATA: return record->userData;
    case GWL_STYLE: return static_cast<LONG_PTR>(record->style);
    case GWL_EXSTYLE: return static_cast<LONG_PTR>(record->exStyle);
    case GWLP_ID: return record->id;
    default: break;
  }
  if (dialog && index == DWLP_MSGRESULT) return record->dialogResult;
  if (dialog && index == DWLP_USER) return record->dialogUser;
  if (dialog && index == DWLP_DLGPROC) return reinterpret_cast<LONG_PTR>(record->dialogProc);
  SetLastError(ERROR_INVALID_PARAMETER);
  return 0;
}

LRESULT CallWindowProcA(WNDPROC proc, HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  return proc != nullptr ? proc(window, message, wParam, lParam) : 0;
}

BOOL ShowWindow(HWND window, int command) {
  const auto record = Find(window);
  if (record == nullptr) return FALSE;
  bool wasVisible = false;
  {
    std::lock_guard<std::recursive_mutex> guard(TableLock());
    wasVisible = (record->style & WS_VISIBLE) != 0;
    if (command == SW_HIDE) {
      record->style &= ~WS_VISIBLE;
    } else {
      record->style |= WS_VISIBLE;
    }
  }
  if (wasVisible != (command != SW_HIDE)) SendMessageA(window, WM_SHOWWINDOW, command != SW_HIDE, 0);
  return wasVisible ? TRUE : FALSE;
}

// Visible when the window and all its parents are.
BOOL IsWindowVisible(HWND window) {
  for (auto record = Find(window); record != nullptr; record = Find(record->parent)) {
    if ((record->style & WS_VISIBLE) == 0) return FALSE;
  }
  return Find(window) != nullptr ? TRUE : FALSE;
}

BOOL EnableWindow(HWND window, BOOL enable) {
  const auto record = Find(window);
  if (record == nullptr) return FALSE;
  bool wasDisabled = false;
  {
    std::lock_guard<std::recursive_mutex> guard(TableLock());
    wasDisabled = (record->style & WS_DISABLED) != 0;
    if (enable) {
      record->style &= ~WS_DISABLED;
    } else {
      record->style |= WS_DISABLED;
    }
  }
  if (wasDisabled != !enable) SendMessageA(window, WM_ENABLE, enable, 0);
  return wasDisabled ? TRUE : FALSE;
}

BOOL IsWindowEnabled(HWND window) {
  const auto record = Find(window);
  if (record == nullptr) return FALSE;
  std::lock_guard<std::recursive_mutex> guard(TableLock());
  return (record->style & WS_DISABLED) == 0 ? TRUE : FALSE;
}

BOOL GetClientRect(HWND window, LPRECT rect) {
  const auto record = Find(window);
  if (record == nullptr || rect == nullptr) return FALSE;
  std::lock_guard<std::recursive_mutex> guard(TableLock());
  *rect = {0, 0, record->rect.right - record->rect.left, record->rect.bottom - record->rect.top};
  return TRUE;
}

BOOL GetWindowRect(HWND window, LPRECT rect) {
  const auto record = Find(window);
  if (record == nullptr || rect == nullptr) return FALSE;
  std::lock_guard<std::recursive_mutex> guard(TableLock());
  *rect = record->rect;
  return TRUE;
}

BOOL MoveWindow(HWND window, int x, int y, int width, int height, BOOL) {
  const auto record = Find(window);
  if (record == nullptr) return FALSE;
  std::lock_guard<std::recursive_mutex> guard(TableLock());
  record->rect = {x, y, x + width, y + height};
  return TRUE;
}

BOOL InvalidateRect(HWND window, const RECT*, BOOL) { return Find(window) != nullptr ? TRUE : FALSE; }

HWND GetDesktopWindow() {
  static HWND desktop = [] {
    const auto record = NewWindow(nullptr, "#32769");
    record->style = WS_VISIBLE;
    record->rect = {0, 0, 1920, 1080};
    record->proc = ClassProcedure(PlatformControlKind::kWindow);
    return record->handle;
  }();
  return desktop;
}

HWND SetFocus(HWND window) {
  HWND previous = nullptr;
  {
    std::lock_guard<std::recursive_mutex> guard(TableLock());
    previous = g_Focus;
    if (window != nullptr && Find(window) == nullptr) return nullptr;
    g_Focus = window;
  }
  if (previous != window) {
    if (previous != nullptr) SendMessageA(previous, WM_KILLFOCUS, reinterpret_cast<WPARAM>(window), 0);
    if (window != nullptr) SendMessageA(window, WM_SETFOCUS, reinterpret_cast<WPARAM>(previous), 0);
  }
  return previous;
}

HWND GetFocus() {
  std::lock_guard<std::recursive_mutex> guard(TableLock());
  return g_Focus;
}

BOOL PtInRect(const RECT* rect, POINT point) {
  return rect != nullptr && point.x >= rect->left && point.x < rect->right && point.y >= rect->top &&
                 point.y < rect->bottom
             ? TRUE
             : FALSE;
}

namespace {
// The window's origin on the screen: its and its parents' positions added.
POINT Origin(HWND window) {
  POINT origin{0, 0};
  std::lock_guard<std::recursive_mutex> guard(TableLock());
  for (auto record = Find(window); record != nullptr; record = Find(record->parent)) {
    origin.x += record->rect.left;
    origin.y += record->rect.top;
  }
  return origin;
}
POINT g_Cursor{0, 0};  // guarded by TableLock()
}  // namespace

BOOL GetCursorPos(POINT* point) {
  if (point == nullptr) return FALSE;
  std::lock_guard<std::recursive_mutex> guard(TableLock());
  *point = g_Cursor;
  return TRUE;
}

BOOL ScreenToClient(HWND window, POINT* point) {
  if (point == nullptr || Find(window) == nullptr) return FALSE;
  const POINT origin = Origin(window);
  point->x -= origin.x;
  point->y -= origin.y;
  return TRUE;
}

BOOL ClientToScreen(HWND window, POINT* point) {
  if (point == nullptr || Find(window) == nullptr) return FALSE;
  const POINT origin = Origin(window);
  point->x += origin.x;
  point->y += origin.y;
  return TRUE;
}

void platform_window::SetCursorPosition(POINT point) {
  std::lock_guard<std::recursive_mutex> guard(TableLock());
  g_Cursor = point;
}
