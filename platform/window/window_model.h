// The window layer as a model: what a program (the command-line tool, a
// test, a widget host) reads back from the windows that dialogs made, the
// user's actions it can play into them, and the handlers through which the
// platform's user-facing calls (ShellExecuteA, the property frame) reach
// whoever stands for the user. None of this is a platform call; the system's
// own code never includes this header.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/window/olectl.h"
#include "platform/window/wingdi.h"
#include "platform/window/winuser.h"

// The kinds a program sees, by window class and style.
enum class PlatformControlKind {
  kDialog,     // a dialog from a template
  kStatic,     // "Static", text
  kBitmap,     // "Static" with SS_BITMAP
  kGroupBox,   // "Button" with BS_GROUPBOX
  kCheckBox,   // "Button" with BS_CHECKBOX or BS_AUTOCHECKBOX
  kButton,     // any other "Button"
  kListBox,    // "ListBox"
  kComboBox,   // "ComboBox"
  kEdit,       // "Edit"
  kListView,   // "SysListView32"
  kTooltip,    // "tooltips_class32"
  kWindow,     // anything else
};
const char* PlatformControlKindName(PlatformControlKind kind);

struct PlatformListColumn {
  std::string title;
  int width = 0;  // pixels, as the page gave it
  int format = 0;
};

struct PlatformWindowState {
  HWND window = nullptr;
  HWND parent = nullptr;
  int id = 0;  // -1 for a template control without an id
  std::string className;
  PlatformControlKind kind = PlatformControlKind::kWindow;
  DWORD style = 0;
  DWORD exStyle = 0;
  bool visible = false;   // its own WS_VISIBLE, whatever its parent's
  bool enabled = true;
  bool focused = false;
  bool subclassed = false;  // someone replaced its window procedure
  RECT dialogRect{};        // position and size in dialog units, from the template
  std::string text;
  UINT check = BST_UNCHECKED;
  // List box and combo box.
  std::vector<std::string> items;
  std::vector<LPARAM> itemData;
  int selected = -1;
  // List view.
  std::vector<PlatformListColumn> columns;
  std::vector<std::vector<std::string>> rows;
  // Bitmap static: the resource and its size in pixels.
  UINT bitmapId = 0;
  int bitmapWidth = 0;
  int bitmapHeight = 0;
  // The resource itself, for a host that draws it; null if the module has
  // no such bitmap.
  const struct PlatformBitmapResource* bitmap = nullptr;
  // A tooltip tool that covers this window: its text and rectangle (pixels).
  std::string tooltip;
  RECT tooltipRect{};
  int textLimit = 0;  // an edit's limit, 0 for the default
};

// Fills `state`; false for a window that isn't there.
bool PlatformGetWindowState(HWND window, PlatformWindowState* state);
// The children of `parent`, in the order they were made (the template's).
std::vector<HWND> PlatformChildWindows(HWND parent);
// The template a dialog was made from, null for other windows.
const struct PlatformDialogResource* PlatformDialogTemplate(HWND dialog);

// The pixel size of a dialog unit: the dialog font's average character
// width and height (the dialog's base units). 6 x 13 unless a host that
// measures a real font says otherwise.
void PlatformSetDialogBaseUnits(int x, int y);

// What a window drew: one WM_PAINT sent now, with the device context
// recording. Text in the font and colour selected at the time; focus
// rectangles with an empty text.
struct PlatformPaintOp {
  enum Kind { kText, kFocusRect } kind = kText;
  std::string text;
  RECT rect{};
  UINT format = 0;
  COLORREF colour = 0;
  LOGFONTA font{};
};
std::vector<PlatformPaintOp> PlatformPaintWindow(HWND window);
// How text is measured while painting: width and height in pixels of a
// line of text in a font. The default gives every character the base unit
// width and a line the base unit height.
using PlatformTextMeasure = std::function<SIZE(const std::string& text, const LOGFONTA& font)>;
void PlatformSetTextMeasure(PlatformTextMeasure measure);
// The resource id of the last cursor set (IDC_ARROW's 32512 at first).
UINT PlatformCurrentCursorId();

// Timers of a window, by id.
struct PlatformTimerState {
  UINT_PTR id = 0;
  UINT elapse = 0;
};
std::vector<PlatformTimerState> PlatformWindowTimers(HWND window);

// Delivers to the calling thread's windows, for `milliseconds`, the timers
// as they fall due and the messages posted to them; returns how many
// messages were delivered. 0 ms delivers what is due now and returns.
int PlatformPumpMessages(DWORD milliseconds);

// ---- The user's actions, with the notifications the controls send ----
// A button: an auto check box toggles; the parent gets BN_CLICKED.
BOOL PlatformClickButton(HWND control);
// A list box or combo box item: selected, the parent gets LBN_SELCHANGE or
// CBN_SELCHANGE.
BOOL PlatformSelectItem(HWND control, int index);
// An edit's text replaced as if typed (lower case with ES_LOWERCASE, cut to
// its limit); the parent gets EN_CHANGE.
BOOL PlatformTypeText(HWND control, const char* text);
// The mouse at client point (x, y): WM_MOUSEMOVE with WM_SETCURSOR, or a
// button press (focus first) or release; returns the window's answer.
LRESULT PlatformMouse(HWND window, UINT message, int x, int y);
// A key pressed while `window` has the focus: WM_KEYDOWN reaches it when its
// WM_GETDLGCODE asks for the key (or it is not in a dialog).
LRESULT PlatformKey(HWND window, WPARAM key);

// ---- Who stands for the user ----
// ShellExecuteA's handler: returns the platform's result (above 32 for
// success). The default opens the file or address with xdg-open when a
// display is there, and otherwise answers SE_ERR_NOASSOC.
using ShellExecuteHandler = std::function<int(const std::string& verb, const std::string& file,
                                              const std::string& parameters)>;
ShellExecuteHandler SetShellExecuteHandler(ShellExecuteHandler handler);

// Test helper: records ShellExecuteA calls and answers each with `result`.
class CShellExecuteRecorder {
 public:
  struct Call {
    std::string verb;
    std::string file;
    std::string parameters;
  };
  explicit CShellExecuteRecorder(int result = 42);
  ~CShellExecuteRecorder();
  CShellExecuteRecorder(const CShellExecuteRecorder&) = delete;
  CShellExecuteRecorder& operator=(const CShellExecuteRecorder&) = delete;
  std::vector<Call> Calls() const;

 private:
  struct State;
  State* m_State;
  ShellExecuteHandler m_Previous;
};

// The sheet that OleCreatePropertyFrame shows, as its user sees it: a frame
// window with one page shown at a time. Pages are activated when first
// shown and stay active, hidden, until the sheet closes.
class CPlatformPropertySheet {
 public:
  virtual ULONG PageCount() const = 0;
  virtual std::string PageTitle(ULONG index) const = 0;
  virtual SIZE PageSize(ULONG index) const = 0;  // pixels, from GetPageInfo
  virtual CLSID PageClsid(ULONG index) const = 0;
  virtual HWND FrameWindow() const = 0;
  // Activates page `index` if need be and shows it; its window, or null
  // when the page refused to activate.
  virtual HWND ShowPage(ULONG index) = 0;
  virtual HWND PageWindow(ULONG index) const = 0;  // null until shown
  virtual ULONG CurrentPage() const = 0;
  // True while any page's site has been told it is dirty since the last
  // Apply: the Apply button is enabled.
  virtual bool ApplyEnabled() const = 0;
  // Apply on every page that says it is dirty.
  virtual HRESULT Apply() = 0;
  // Pages' last status changes, for the host's buttons.
  virtual void SetStatusListener(std::function<void()> listener) = 0;

 protected:
  ~CPlatformPropertySheet() = default;
};

// Plays the user of a sheet. When it returns the sheet closes: every page
// is deactivated, let go of its objects and its site, and released. The
// default shows the first page and closes, as a user who closes at once.
using PropertyFrameHandler = std::function<void(CPlatformPropertySheet& sheet)>;
PropertyFrameHandler SetPropertyFrameHandler(PropertyFrameHandler handler);
