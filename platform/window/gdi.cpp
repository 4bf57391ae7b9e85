// Fonts and device contexts that record: what a window draws while it
// paints is kept as a list of operations a program reads back.
#include <atomic>
#include <cstring>
#include <unordered_map>

#include "platform/window/window_internal.h"

using namespace platform_window;

namespace {

struct DeviceContext {
  HWND window = nullptr;
  HFONT font = nullptr;
  COLORREF textColour = 0;
  int backgroundMode = OPAQUE;
  std::vector<PlatformPaintOp> ops;
};

struct Gdi {
  std::mutex lock;
  std::unordered_map<std::uintptr_t, LOGFONTA> fonts;                           // guarded by lock
  std::unordered_map<std::uintptr_t, std::unique_ptr<DeviceContext>> contexts;  // guarded by lock
  std::uintptr_t next = 0x1000;                                                 // guarded by lock
  PlatformTextMeasure measure;                                                  // guarded by lock
};

Gdi& State() {
  static Gdi* gdi = new Gdi;
  return *gdi;
}

std::atomic<int> g_BaseX{6};
std::atomic<int> g_BaseY{13};

std::uintptr_t Key(const void* handle) { return reinterpret_cast<std::uintptr_t>(handle); }

DeviceContext* ContextOf(Gdi& gdi, HDC dc) {
  const auto found = gdi.contexts.find(Key(dc));
  return found != gdi.contexts.end() ? found->second.get() : nullptr;
}

HDC NewContext(HWND window) {
  Gdi& gdi = State();
  std::lock_guard<std::mutex> guard(gdi.lock);
  const std::uintptr_t handle = gdi.next++;
  auto context = std::make_unique<DeviceContext>();
  context->window = window;
  const auto record = Find(window);
  if (record != nullptr) {
    std::lock_guard<std::recursive_mutex> table(TableLock());
    context->font = record->font;
  }
  gdi.contexts[handle] = std::move(context);
  return reinterpret_cast<HDC>(handle);
}

// Ends a context; its drawing becomes the window's last painting.
void EndContext(HDC dc) {
  std::unique_ptr<DeviceContext> context;
  {
    Gdi& gdi = State();
    std::lock_guard<std::mutex> guard(gdi.lock);
    const auto found = gdi.contexts.find(Key(dc));
    if (found == gdi.contexts.end()) return;
    context = std::move(found->second);
    gdi.contexts.erase(found);
  }
  const auto record = Find(context->window);
  if (record == nullptr) return;
  std::lock_guard<std::recursive_mutex> table(TableLock());
  record->paint = std::move(context->ops);
}

}  // namespace

namespace platform_window {

int BaseUnitX() { return g_BaseX.load(); }
int BaseUnitY() { return g_BaseY.load(); }

SIZE MeasureText(const std::string& text, const LOGFONTA& font) {
  PlatformTextMeasure measure;
  {
    Gdi& gdi = State();
    std::lock_guard<std::mutex> guard(gdi.lock);
    measure = gdi.measure;
  }
  if (measure) return measure(text, font);
  return {static_cast<LONG>(text.size()) * BaseUnitX(), BaseUnitY()};
}

LOGFONTA FontOf(HFONT font) {
  LOGFONTA logFont{};
  if (font == nullptr || GetObjectA(font, sizeof logFont, &logFont) == 0) {
    logFont.lfHeight = -11;
    logFont.lfWeight = FW_NORMAL;
    std::strncpy(logFont.lfFaceName, "MS Shell Dlg", LF_FACESIZE - 1);
  }
  return logFont;
}

// One font object per face and size, as the dialog manager shares them.
HFONT DialogFont(const char* face, WORD points) {
  static std::mutex lock;
  static auto* made = new std::unordered_map<std::string, HFONT>;
  const std::string key = std::string(face != nullptr ? face : "") + "/" + std::to_string(points);
  std::lock_guard<std::mutex> guard(lock);
  if (const auto found = made->find(key); found != made->end()) return found->second;
  LOGFONTA font{};
  font.lfHeight = -static_cast<LONG>(points * 96 / 72);
  font.lfWeight = FW_NORMAL;
  std::strncpy(font.lfFaceName, face != nullptr ? face : "", LF_FACESIZE - 1);
  const HFONT handle = CreateFontIndirectA(&font);
  (*made)[key] = handle;
  return handle;
}

}  // namespace platform_window

void PlatformSetDialogBaseUnits(int x, int y) {
  if (x > 0) g_BaseX = x;
  if (y > 0) g_BaseY = y;
}

void PlatformSetTextMeasure(PlatformTextMeasure measure) {
  Gdi& gdi = State();
  std::lock_guard<std::mutex> guard(gdi.lock);
  gdi.measure = std::move(measure);
}

std::vector<PlatformPaintOp> PlatformPaintWindow(HWND window) {
  if (Find(window) == nullptr) return {};
  SendMessageA(window, WM_PAINT, 0, 0);
  const auto record = Find(window);
  if (record == nullptr) return {};
  std::lock_guard<std::recursive_mutex> table(TableLock());
  return record->paint;
}

HFONT CreateFontIndirectA(const LOGFONTA* font) {
  if (font == nullptr) return nullptr;
  Gdi& gdi = State();
  std::lock_guard<std::mutex> guard(gdi.lock);
  const std::uintptr_t handle = gdi.next++;
  LOGFONTA copy = *font;
  copy.lfFaceName[LF_FACESIZE - 1] = '\0';
  gdi.fonts[handle] = copy;
  return reinterpret_cast<HFONT>(handle);
}

int GetObjectA(HGDIOBJ object, int size, LPVOID out) {
  if (out == nullptr || size <= 0) return 0;
  Gdi& gdi = State();
  std::lock_guard<std::mutex> guard(gdi.lock);
  const auto found = gdi.fonts.find(Key(object));
  if (found == gdi.fonts.end()) return 0;
  const std::size_t copied = std::min<std::size_t>(static_cast<std::size_t>(size), sizeof(LOGFONTA));
  std::memcpy(out, &found->second, copied);
  return static_cast<int>(copied);
}

BOOL DeleteObject(HGDIOBJ object) {
  Gdi& gdi = State();
  std::lock_guard<std::mutex> guard(gdi.lock);
  return gdi.fonts.erase(Key(object)) != 0 ? TRUE : FALSE;
}

HGDIOBJ SelectObject(HDC dc, HGDIOBJ object) {
  Gdi& gdi = State();
  std::lock_guard<std::mutex> guard(gdi.lock);
  DeviceContext* context = ContextOf(gdi, dc);
  if (context == nullptr || gdi.fonts.count(Key(object)) == 0) return nullptr;
  const HFONT previous = context->font;
  context->font = object;
  // A context starts with the system font, which is a font all the same.
  return previous != nullptr ? previous : object;
}

COLORREF SetTextColor(HDC dc, COLORREF colour) {
  Gdi& gdi = State();
  std::lock_guard<std::mutex> guard(gdi.lock);
  DeviceContext* context = ContextOf(gdi, dc);
  if (context == nullptr) return 0xFFFFFFFF;
  const COLORREF previous = context->textColour;
  context->textColour = colour;
  return previous;
}

int SetBkMode(HDC dc, int mode) {
  Gdi& gdi = State();
  std::lock_guard<std::mutex> guard(gdi.lock);
  DeviceContext* context = ContextOf(gdi, dc);
  if (context == nullptr) return 0;
  const int previous = context->backgroundMode;
  context->backgroundMode = mode;
  return previous;
}

int DrawTextA(HDC dc, LPCSTR text, int count, LPRECT rect, UINT format) {
  if (text == nullptr || rect == nullptr) return 0;
  const std::size_t length = count < 0 ? std::strlen(text) : ::strnlen(text, static_cast<std::size_t>(count));
  const std::string line(text, length);
  HFONT font = nullptr;
  {
    Gdi& gdi = State();
    std::lock_guard<std::mutex> guard(gdi.lock);
    DeviceContext* context = ContextOf(gdi, dc);
    if (context == nullptr) return 0;
    font = context->font;
  }
  const LOGFONTA logFont = FontOf(font);
  const SIZE size = MeasureText(line, logFont);
  if ((format & DT_CALCRECT) != 0) {
    rect->right = rect->left + size.cx;
    rect->bottom = rect->top + size.cy;
    return size.cy;
  }
  Gdi& gdi = State();
  std::lock_guard<std::mutex> guard(gdi.lock);
  DeviceContext* context = ContextOf(gdi, dc);
  if (context == nullptr) return 0;
  PlatformPaintOp op;
  op.kind = PlatformPaintOp::kText;
  op.text = line;
  op.rect = *rect;
  op.format = format;
  op.colour = context->textColour;
  op.font = logFont;
  context->ops.push_back(op);
  return size.cy;
}

BOOL DrawFocusRect(HDC dc, const RECT* rect) {
  if (rect == nullptr) return FALSE;
  Gdi& gdi = State();
  std::lock_guard<std::mutex> guard(gdi.lock);
  DeviceContext* context = ContextOf(gdi, dc);
  if (context == nullptr) return FALSE;
  PlatformPaintOp op;
  op.kind = PlatformPaintOp::kFocusRect;
  op.rect = *rect;
  context->ops.push_back(op);
  return TRUE;
}

HDC BeginPaint(HWND window, PAINTSTRUCT* paint) {
  if (paint == nullptr || Find(window) == nullptr) return nullptr;
  *paint = PAINTSTRUCT{};
  paint->hdc = NewContext(window);
  GetClientRect(window, &paint->rcPaint);
  return paint->hdc;
}

BOOL EndPaint(HWND, const PAINTSTRUCT* paint) {
  if (paint == nullptr) return FALSE;
  EndContext(paint->hdc);
  return TRUE;
}

HDC GetDC(HWND window) { return Find(window) != nullptr ? NewContext(window) : nullptr; }

int ReleaseDC(HWND, HDC dc) {
  // Drawing outside WM_PAINT is not what the window shows at its next
  // painting; only measuring is done with these.
  Gdi& gdi = State();
  std::lock_guard<std::mutex> guard(gdi.lock);
  return gdi.contexts.erase(Key(dc)) != 0 ? 1 : 0;
}
