#include "pages/page_support.h"

#include <cstring>
#include <vector>

#include "platform/com/com_memory.h"
#include "platform/com/objbase.h"
#include "platform/win32/codepage.h"
#include "platform/win32/registry.h"
#include "platform/window/commctrl.h"
#include "platform/window/htmlhelp.h"

namespace {

// A page's text buffer: 254 bytes and the zero.
constexpr int kTextBuffer = 255;
// The longest path the pages keep, without its zero.
constexpr std::size_t kMaxPath = 260;

constexpr const char kModuleServerKey[] = "CLSID\\{8F923A8B-F96C-420C-8458-0D6406E82E4C}\\InprocServer32";
// The help library's control, whose registered server is the library.
constexpr const char kHelpServerKey[] = "CLSID\\{ADB880A6-D8FF-11CF-9377-00AA003B7A11}\\InprocServer32";
constexpr const char kHelpLibrary[] = "hhctrl.ocx";
constexpr WORD kHtmlHelpOrdinal = 14;

using HtmlHelpEntry = HWND(WINAPI*)(HWND, LPCSTR, UINT, DWORD_PTR);

// The default value of HKEY_CLASSES_ROOT\`subKey`, at most kMaxPath
// characters; "" when the key or the value can't be read.
std::string ClassesRootDefault(const char* subKey) {
  HKEY key = nullptr;
  if (RegOpenKeyExA(HKEY_CLASSES_ROOT, subKey, 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS) return {};
  char value[kMaxPath + 1] = {};
  DWORD size = sizeof value;
  DWORD type = 0;
  const LONG error = RegQueryValueExA(key, nullptr, nullptr, &type, reinterpret_cast<BYTE*>(value), &size);
  RegCloseKey(key);
  if (error != ERROR_SUCCESS || (type != REG_SZ && type != REG_EXPAND_SZ)) return {};
  return std::string(value, strnlen(value, size < sizeof value ? size : sizeof value));
}

HtmlHelpEntry LoadHtmlHelp() {
  HMODULE library = nullptr;
  const std::string registered = ClassesRootDefault(kHelpServerKey);
  if (!registered.empty()) library = LoadLibraryA(registered.c_str());
  if (library == nullptr) library = LoadLibraryA(kHelpLibrary);
  if (library == nullptr) return nullptr;
  // The library stays loaded for the rest of the process.
  // Through the generic function pointer type: the platform's FARPROC has a
  // return type of its own, and a direct cast would warn.
  const auto entry = reinterpret_cast<void (*)()>(GetProcAddress(library, MAKEINTRESOURCEA(kHtmlHelpOrdinal)));
  return reinterpret_cast<HtmlHelpEntry>(entry);
}

}  // namespace

std::string QueryPageText(ITsStreamInfo* info, const char* keyword) {
  if (info == nullptr || keyword == nullptr) return {};
  const int keywordChars = MultiByteToWideChar(CP_ACP, 0, keyword, -1, nullptr, 0);
  if (keywordChars <= 0) return {};
  std::vector<WCHAR> wideKeyword(static_cast<std::size_t>(keywordChars));
  MultiByteToWideChar(CP_ACP, 0, keyword, -1, wideKeyword.data(), keywordChars);

  LPWSTR answer = nullptr;
  const HRESULT hr = info->QueryText(wideKeyword.data(), &answer);
  if (answer == nullptr) return {};
  std::string text;
  if (SUCCEEDED(hr)) {
    const int bytes = WideCharToMultiByte(GetACP(), 0, answer, -1, nullptr, 0, nullptr, nullptr);
    if (bytes > 0) {
      std::vector<char> narrow(static_cast<std::size_t>(bytes));
      if (WideCharToMultiByte(GetACP(), 0, answer, -1, narrow.data(), bytes, nullptr, nullptr) == bytes) {
        text.assign(narrow.data(), strnlen(narrow.data(), narrow.size()));
      }
    }
  }
  CoTaskMemFree(answer);

  // The pages' buffers hold 254 bytes; a cut never splits a character of
  // the multi-byte code page.
  if (text.size() >= static_cast<std::size_t>(kTextBuffer)) {
    std::size_t end = kTextBuffer - 1;
    if (GetACP() == CP_UTF8) {
      while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    }
    text.resize(end);
  }
  return text;
}

void SetDlgItemQuery(HWND dialog, int id, ITsStreamInfo* info, const char* keyword) {
  SetDlgItemTextA(dialog, id, QueryPageText(info, keyword).c_str());
}

std::string FindHelpFile() {
  std::string path = ClassesRootDefault(kModuleServerKey);
  // The last point of the whole path, even one in a folder's name: the
  // help file is always named this way, wherever the module was put.
  const std::size_t point = path.rfind('.');
  if (point == std::string::npos) return path;
  path.resize(point + 1);
  path += "chm";
  if (path.size() > kMaxPath) path.resize(kMaxPath);
  return path;
}

void ShowHelpTopic(HWND dialog, const std::string& helpFile, const char* topic) {
  // Looked for once: a system without the library isn't searched again on
  // every click.
  static const HtmlHelpEntry entry = LoadHtmlHelp();
  if (entry == nullptr) return;
  entry(dialog, helpFile.c_str(), HH_DISPLAY_TOPIC, reinterpret_cast<DWORD_PTR>(topic));
}

bool InsertListColumns(HWND list, const PageListColumn* columns, int count) {
  for (int i = 0; i < count; ++i) {
    LVCOLUMNA column{};
    column.mask = LVCF_FMT | LVCF_WIDTH | LVCF_TEXT | LVCF_SUBITEM;
    column.fmt = LVCFMT_LEFT;
    column.cx = columns[i].width;
    column.pszText = const_cast<LPSTR>(columns[i].title);
    column.iSubItem = i;
    if (SendMessageA(list, LVM_INSERTCOLUMNA, static_cast<WPARAM>(i), reinterpret_cast<LPARAM>(&column)) < 0) {
      return false;
    }
  }
  return true;
}

int InsertListRow(HWND list, int row, const char* text) {
  LVITEMA item{};
  item.mask = LVIF_TEXT;
  item.iItem = row;
  item.iSubItem = 0;
  item.pszText = const_cast<LPSTR>(text);
  return static_cast<int>(SendMessageA(list, LVM_INSERTITEMA, 0, reinterpret_cast<LPARAM>(&item)));
}

void SetListCell(HWND list, int row, int column, const char* text) {
  LVITEMA item{};
  item.iSubItem = column;
  item.pszText = const_cast<LPSTR>(text);
  SendMessageA(list, LVM_SETITEMTEXTA, static_cast<WPARAM>(row), reinterpret_cast<LPARAM>(&item));
}
