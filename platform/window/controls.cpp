// The built-in window classes: what static, button, list box, combo box,
// edit, list view and tooltip controls do with their messages, and the
// default handling every window falls back on.
#include <algorithm>
#include <cstring>

#include "platform/window/window_internal.h"

using namespace platform_window;

namespace {

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// Copies `text` into a caller's buffer of `size` characters with a zero;
// returns the characters copied.
LRESULT CopyOut(const std::string& text, LPSTR buffer, std::size_t size) {
  if (buffer == nullptr || size == 0) return 0;
  const std::size_t copied = std::min(text.size(), size - 1);
  std::memcpy(buffer, text.data(), copied);
  buffer[copied] = '\0';
  return static_cast<LRESULT>(copied);
}

std::string TextOf(LPARAM lParam) {
  const char* text = reinterpret_cast<const char*>(lParam);
  return text != nullptr ? text : "";
}

// Index checks of the list messages: a WPARAM is unsigned, so -1 is huge.
bool InRange(WPARAM index, std::size_t size) { return index < size; }

LRESULT CALLBACK StaticProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_GETDLGCODE) return DLGC_STATIC;
  return DefWindowProcA(window, message, wParam, lParam);
}

LRESULT CALLBACK ButtonProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  const auto record = Find(window);
  if (record == nullptr) return 0;
  switch (message) {
    case BM_GETCHECK: {
      std::lock_guard<std::recursive_mutex> guard(TableLock());
      return record->check;
    }
    case BM_SETCHECK: {
      std::lock_guard<std::recursive_mutex> guard(TableLock());
      record->check = static_cast<UINT>(wParam);
      return 0;
    }
    case WM_GETDLGCODE:
      return DLGC_BUTTON;
    default:
      return DefWindowProcA(window, message, wParam, lParam);
  }
}

LRESULT CALLBACK ListBoxProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  const auto record = Find(window);
  if (record == nullptr) return 0;
  std::lock_guard<std::recursive_mutex> guard(TableLock());
  auto& items = record->items;
  auto& data = record->itemData;
  const bool combo = record->kind == PlatformControlKind::kComboBox;
  const LRESULT error = combo ? CB_ERR : LB_ERR;
  // The combo box's messages have other numbers for the same work.
  const UINT add = combo ? CB_ADDSTRING : LB_ADDSTRING;
  const UINT insert = combo ? CB_INSERTSTRING : LB_INSERTSTRING;
  const UINT remove = combo ? CB_DELETESTRING : LB_DELETESTRING;
  const UINT reset = combo ? CB_RESETCONTENT : LB_RESETCONTENT;
  const UINT setSel = combo ? CB_SETCURSEL : LB_SETCURSEL;
  const UINT getSel = combo ? CB_GETCURSEL : LB_GETCURSEL;
  const UINT getText = combo ? CB_GETLBTEXT : LB_GETTEXT;
  const UINT getLength = combo ? CB_GETLBTEXTLEN : LB_GETTEXTLEN;
  const UINT getCount = combo ? CB_GETCOUNT : LB_GETCOUNT;
  const UINT getData = combo ? CB_GETITEMDATA : LB_GETITEMDATA;
  const UINT setData = combo ? CB_SETITEMDATA : LB_SETITEMDATA;
  if (message == add) {
    items.push_back(TextOf(lParam));
    data.push_back(0);
    return static_cast<LRESULT>(items.size() - 1);
  }
  if (message == insert) {
    const std::size_t at = static_cast<LONG_PTR>(wParam) < 0 || wParam > items.size() ? items.size() : wParam;
    items.insert(items.begin() + static_cast<std::ptrdiff_t>(at), TextOf(lParam));
    data.insert(data.begin() + static_cast<std::ptrdiff_t>(at), 0);
    if (record->selected >= static_cast<int>(at)) ++record->selected;
    return static_cast<LRESULT>(at);
  }
  if (message == remove) {
    if (!InRange(wParam, items.size())) return error;
    items.erase(items.begin() + static_cast<std::ptrdiff_t>(wParam));
    data.erase(data.begin() + static_cast<std::ptrdiff_t>(wParam));
    if (record->selected == static_cast<int>(wParam)) record->selected = -1;
    if (record->selected > static_cast<int>(wParam)) --record->selected;
    return static_cast<LRESULT>(items.size());
  }
  if (message == reset) {
    items.clear();
    data.clear();
    record->selected = -1;
    return 0;
  }
  if (message == setSel) {
    // -1 clears the selection and still answers the error value.
    if (static_cast<LONG_PTR>(wParam) == -1) record->selected = -1;
    if (!InRange(wParam, items.size())) return error;
    record->selected = static_cast<int>(wParam);
    return static_cast<LRESULT>(wParam);
  }
  if (message == getSel) return record->selected;
  if (message == getText) {
    // No size is given: the caller's buffer must hold the item, as on the
    // platform.
    if (!InRange(wParam, items.size()) || lParam == 0) return error;
    const std::string& text = items[wParam];
    std::memcpy(reinterpret_cast<char*>(lParam), text.c_str(), text.size() + 1);
    return static_cast<LRESULT>(text.size());
  }
  if (message == getLength) return InRange(wParam, items.size()) ? static_cast<LRESULT>(items[wParam].size()) : error;
  if (message == getCount) return static_cast<LRESULT>(items.size());
  if (message == getData) return InRange(wParam, items.size()) ? data[wParam] : error;
  if (message == setData) {
    if (!InRange(wParam, items.size())) return error;
    data[wParam] = lParam;
    return 0;
  }
  return DefWindowProcA(window, message, wParam, lParam);
}

LRESULT CALLBACK EditProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  const auto record = Find(window);
  if (record == nullptr) return 0;
  switch (message) {
    case EM_LIMITTEXT: {
      std::lock_guard<std::recursive_mutex> guard(TableLock());
      record->textLimit = static_cast<int>(wParam);
      return 0;
    }
    case WM_SETTEXT: {
      DefWindowProcA(window, message, wParam, lParam);
      // A single-line edit tells its parent of every change, a program's too.
      NotifyParent(window, EN_CHANGE);
      return TRUE;
    }
    case WM_GETDLGCODE:
      return DLGC_WANTCHARS | DLGC_WANTARROWS;
    default:
      return DefWindowProcA(window, message, wParam, lParam);
  }
}

LRESULT CALLBACK ListViewProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  const auto record = Find(window);
  if (record == nullptr) return 0;
  std::lock_guard<std::recursive_mutex> guard(TableLock());
  auto& rows = record->rows;
  auto& columns = record->columns;
  switch (message) {
    case LVM_INSERTCOLUMNA: {
      const auto* column = reinterpret_cast<const LVCOLUMNA*>(lParam);
      if (column == nullptr) return -1;
      PlatformListColumn entry;
      if ((column->mask & LVCF_TEXT) != 0 && column->pszText != nullptr) entry.title = column->pszText;
      if ((column->mask & LVCF_WIDTH) != 0) entry.width = column->cx;
      if ((column->mask & LVCF_FMT) != 0) entry.format = column->fmt;
      const std::size_t at = std::min<std::size_t>(wParam, columns.size());
      columns.insert(columns.begin() + static_cast<std::ptrdiff_t>(at), entry);
      for (auto& row : rows) {
        if (row.size() > at) row.insert(row.begin() + static_cast<std::ptrdiff_t>(at), std::string());
      }
      return static_cast<LRESULT>(at);
    }
    case LVM_GETCOLUMNA: {
      auto* column = reinterpret_cast<LVCOLUMNA*>(lParam);
      if (column == nullptr || !InRange(wParam, columns.size())) return FALSE;
      if ((column->mask & LVCF_WIDTH) != 0) column->cx = columns[wParam].width;
      if ((column->mask & LVCF_FMT) != 0) column->fmt = columns[wParam].format;
      if ((column->mask & LVCF_TEXT) != 0 && column->cchTextMax > 0) {
        CopyOut(columns[wParam].title, column->pszText, static_cast<std::size_t>(column->cchTextMax));
      }
      return TRUE;
    }
    case LVM_INSERTITEMA: {
      const auto* item = reinterpret_cast<const LVITEMA*>(lParam);
      if (item == nullptr || item->iSubItem != 0 || item->iItem < 0) return -1;
      const std::size_t at = std::min<std::size_t>(static_cast<std::size_t>(item->iItem), rows.size());
      std::vector<std::string> row(std::max<std::size_t>(columns.size(), 1));
      if ((item->mask & LVIF_TEXT) != 0 && item->pszText != nullptr) row[0] = item->pszText;
      rows.insert(rows.begin() + static_cast<std::ptrdiff_t>(at), std::move(row));
      return static_cast<LRESULT>(at);
    }
    case LVM_SETITEMA:
    case LVM_SETITEMTEXTA: {
      const auto* item = reinterpret_cast<const LVITEMA*>(lParam);
      if (item == nullptr) return FALSE;
      const std::size_t row = message == LVM_SETITEMA ? static_cast<std::size_t>(item->iItem) : wParam;
      if (!InRange(row, rows.size()) || item->iSubItem < 0) return FALSE;
      if (message == LVM_SETITEMA && (item->mask & LVIF_STATE) != 0 && (item->stateMask & LVIS_SELECTED) != 0 &&
          (item->state & LVIS_SELECTED) != 0) {
        record->selected = static_cast<int>(row);
      }
      if (message == LVM_SETITEMA && (item->mask & LVIF_TEXT) == 0) return TRUE;
      const auto column = static_cast<std::size_t>(item->iSubItem);
      // A subitem beyond the columns has nowhere to be shown.
      if (column >= std::max<std::size_t>(columns.size(), 1)) return FALSE;
      if (rows[row].size() <= column) rows[row].resize(column + 1);
      rows[row][column] = item->pszText != nullptr ? item->pszText : "";
      return TRUE;
    }
    case LVM_GETITEMTEXTA: {
      auto* item = reinterpret_cast<LVITEMA*>(lParam);
      if (item == nullptr || !InRange(wParam, rows.size()) || item->iSubItem < 0 || item->cchTextMax <= 0) return 0;
      const auto column = static_cast<std::size_t>(item->iSubItem);
      const std::string text = column < rows[wParam].size() ? rows[wParam][column] : std::string();
      return CopyOut(text, item->pszText, static_cast<std::size_t>(item->cchTextMax));
    }
    case LVM_GETITEMCOUNT:
      return static_cast<LRESULT>(rows.size());
    case LVM_DELETEALLITEMS:
      rows.clear();
      record->selected = -1;
      return TRUE;
    case LVM_SETITEMSTATE: {
      const auto* item = reinterpret_cast<const LVITEMA*>(lParam);
      if (item == nullptr || (item->stateMask & LVIS_SELECTED) == 0) return TRUE;
      const bool select = (item->state & LVIS_SELECTED) != 0;
      if (static_cast<LONG_PTR>(wParam) == -1) {
        if (!select) record->selected = -1;
        return TRUE;
      }
      if (!InRange(wParam, rows.size())) return FALSE;
      if (select) {
        record->selected = static_cast<int>(wParam);
      } else if (record->selected == static_cast<int>(wParam)) {
        record->selected = -1;
      }
      return TRUE;
    }
    case LVM_GETNEXTITEM: {
      const LONG_PTR start = static_cast<LONG_PTR>(wParam);
      if ((lParam & LVNI_SELECTED) == 0) return start + 1 < static_cast<LONG_PTR>(rows.size()) ? start + 1 : -1;
      return record->selected > start ? record->selected : -1;
    }
    default:
      return DefWindowProcA(window, message, wParam, lParam);
  }
}

LRESULT CALLBACK TooltipProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  const auto record = Find(window);
  if (record == nullptr) return 0;
  const auto* info = reinterpret_cast<const TOOLINFOA*>(lParam);
  std::lock_guard<std::recursive_mutex> guard(TableLock());
  auto& tools = record->tools;
  auto same = [&](const ToolEntry& tool) { return info != nullptr && tool.window == info->hwnd && tool.id == info->uId; };
  switch (message) {
    case TTM_ADDTOOLA: {
      if (info == nullptr) return FALSE;
      ToolEntry tool;
      tool.window = info->hwnd;
      tool.id = info->uId;
      tool.flags = info->uFlags;
      tool.rect = info->rect;
      if (info->lpszText != nullptr && !IS_INTRESOURCE(info->lpszText)) tool.text = info->lpszText;
      tools.erase(std::remove_if(tools.begin(), tools.end(), same), tools.end());
      tools.push_back(tool);
      return TRUE;
    }
    case TTM_DELTOOLA:
      tools.erase(std::remove_if(tools.begin(), tools.end(), same), tools.end());
      return 0;
    case TTM_NEWTOOLRECTA:
      for (auto& tool : tools) {
        if (same(tool)) tool.rect = info->rect;
      }
      return 0;
    case TTM_UPDATETIPTEXTA:
      for (auto& tool : tools) {
        if (same(tool) && info->lpszText != nullptr && !IS_INTRESOURCE(info->lpszText)) tool.text = info->lpszText;
      }
      return 0;
    case TTM_ACTIVATE:
      return 0;
    default:
      return DefWindowProcA(window, message, wParam, lParam);
  }
}

LRESULT CALLBACK PlainProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  return DefWindowProcA(window, message, wParam, lParam);
}

}  // namespace

namespace platform_window {

PlatformControlKind KindOf(const std::string& className, DWORD style) {
  const std::string name = Lower(className);
  if (name == "static") {
    return (style & SS_TYPEMASK) == SS_BITMAP ? PlatformControlKind::kBitmap : PlatformControlKind::kStatic;
  }
  if (name == "button") {
    const DWORD type = style & BS_TYPEMASK;
    if (type == BS_GROUPBOX) return PlatformControlKind::kGroupBox;
    if (type == BS_CHECKBOX || type == BS_AUTOCHECKBOX) return PlatformControlKind::kCheckBox;
    return PlatformControlKind::kButton;
  }
  if (name == "listbox") return PlatformControlKind::kListBox;
  if (name == "combobox") return PlatformControlKind::kComboBox;
  if (name == "edit") return PlatformControlKind::kEdit;
  if (name == Lower(WC_LISTVIEWA)) return PlatformControlKind::kListView;
  if (name == Lower(TOOLTIPS_CLASSA)) return PlatformControlKind::kTooltip;
  return PlatformControlKind::kWindow;
}

WNDPROC ClassProcedure(PlatformControlKind kind) {
  switch (kind) {
    case PlatformControlKind::kStatic:
    case PlatformControlKind::kBitmap:
      return StaticProc;
    case PlatformControlKind::kGroupBox:
    case PlatformControlKind::kCheckBox:
    case PlatformControlKind::kButton:
      return ButtonProc;
    case PlatformControlKind::kListBox:
    case PlatformControlKind::kComboBox:
      return ListBoxProc;
    case PlatformControlKind::kEdit:
      return EditProc;
    case PlatformControlKind::kListView:
      return ListViewProc;
    case PlatformControlKind::kTooltip:
      return TooltipProc;
    default:
      return PlainProc;
  }
}

}  // namespace platform_window

const char* PlatformControlKindName(PlatformControlKind kind) {
  switch (kind) {
    case PlatformControlKind::kDialog: return "dialog";
    case PlatformControlKind::kStatic: return "static";
    case PlatformControlKind::kBitmap: return "bitmap";
    case PlatformControlKind::kGroupBox: return "group";
    case PlatformControlKind::kCheckBox: return "check";
    case PlatformControlKind::kButton: return "button";
    case PlatformControlKind::kListBox: return "listbox";
    case PlatformControlKind::kComboBox: return "combo";
    case PlatformControlKind::kEdit: return "edit";
    case PlatformControlKind::kListView: return "listview";
    case PlatformControlKind::kTooltip: return "tooltip";
    default: return "window";
  }
}

LRESULT DefWindowProcA(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  const auto record = Find(window);
  if (record == nullptr) return 0;
  switch (message) {
    case WM_SETTEXT: {
      std::lock_guard<std::recursive_mutex> guard(TableLock());
      record->text = TextOf(lParam);
      return TRUE;
    }
    case WM_GETTEXT: {
      std::lock_guard<std::recursive_mutex> guard(TableLock());
      return CopyOut(record->text, reinterpret_cast<LPSTR>(lParam), wParam);
    }
    case WM_GETTEXTLENGTH: {
      std::lock_guard<std::recursive_mutex> guard(TableLock());
      return static_cast<LRESULT>(record->text.size());
    }
    case WM_SETFONT: {
      std::lock_guard<std::recursive_mutex> guard(TableLock());
      record->font = reinterpret_cast<HFONT>(wParam);
      return 0;
    }
    case WM_GETFONT: {
      std::lock_guard<std::recursive_mutex> guard(TableLock());
      return reinterpret_cast<LRESULT>(record->font);
    }
    case WM_PAINT: {
      PAINTSTRUCT paint{};
      BeginPaint(window, &paint);
      EndPaint(window, &paint);
      return 0;
    }
    case WM_SETCURSOR:
      SetCursor(LoadCursorA(nullptr, IDC_ARROW));
      return TRUE;
    default:
      return 0;
  }
}
