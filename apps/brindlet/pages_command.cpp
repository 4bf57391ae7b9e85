#include "apps/brindlet/pages_command.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "apps/brindlet/json_writer.h"
#include "apps/brindlet/page_reader.h"
#include "apps/brindlet/source_session.h"
#include "control/brindlet_ids.h"
#include "platform/com/com_memory.h"
#include "platform/com/guid.h"
#include "platform/window/window_model.h"

namespace {

constexpr int kExtensionEdit = 1012;


void WriteJson(const std::vector<PageView>& pages, std::ostream& out) {
  CJsonWriter json(out);
  json.BeginObject();
  json.Key("pages").BeginArray();
  for (const PageView& page : pages) {
    json.BeginObject();
    json.Key("clsid").String(page.clsid);
    json.Key("title").String(page.title);
    json.Key("size").BeginArray(true);
    json.Number(page.width);
    json.Number(page.height);
    json.EndArray();
    json.Key("controls").BeginArray();
    for (const PageControl& control : page.controls) {
      const PlatformWindowState& state = control.state;
      json.BeginObject(true);
      json.Key("id").Number(state.id);
      json.Key("kind").String(control.kind);
      if (!state.visible) json.Key("hidden").Bool(true);
      if (!control.group.empty()) json.Key("group").String(control.group);
      if (!control.label.empty()) json.Key("label").String(control.label);
      switch (state.kind) {
        case PlatformControlKind::kCheckBox:
          json.Key("checked").Bool(state.check == BST_CHECKED);
          break;
        case PlatformControlKind::kListBox:
        case PlatformControlKind::kComboBox:
          json.Key("items").BeginArray();
          for (const std::string& item : state.items) json.String(item);
          json.EndArray();
          json.Key("selected").Number(state.selected);
          break;
        case PlatformControlKind::kListView:
          json.Key("columns").BeginArray();
          for (const PlatformListColumn& column : state.columns) {
            json.BeginObject();
            json.Key("title").String(column.title);
            json.Key("width").Number(column.width);
            json.EndObject();
          }
          json.EndArray();
          json.Key("rows").BeginArray();
          for (const auto& row : state.rows) {
            json.BeginArray();
            for (const std::string& cell : row) json.String(cell);
            json.EndArray();
          }
          json.EndArray();
          break;
        case PlatformControlKind::kBitmap:
          json.Key("bitmap").Number(state.bitmapId);
          json.Key("width").Number(state.bitmapWidth);
          json.Key("height").Number(state.bitmapHeight);
          break;
        default:
          json.Key("text").String(state.text);
          if (!state.tooltip.empty()) json.Key("tooltip").String(state.tooltip);
          break;
      }
      json.EndObject();
    }
    json.EndArray();
    json.EndObject();
  }
  json.EndArray();
  json.EndObject();
  out << "\n";
}

std::string Fit(const std::string& text, std::size_t width) {
  if (text.size() >= width) return text.substr(0, width > 1 ? width - 1 : width) + " ";
  return text + std::string(width - text.size(), ' ');
}

void WriteListView(const PlatformWindowState& state, std::ostream& out) {
  // Each column as wide as its widest text and a blank.
  std::vector<std::size_t> widths;
  for (const PlatformListColumn& column : state.columns) widths.push_back(column.title.size() + 2);
  for (const auto& row : state.rows) {
    for (std::size_t i = 0; i < row.size() && i < widths.size(); ++i) widths[i] = std::max(widths[i], row[i].size() + 2);
  }
  auto line = [&](const std::vector<std::string>& cells) {
    std::string text = "    ";
    for (std::size_t i = 0; i < widths.size(); ++i) text += Fit(i < cells.size() ? cells[i] : "", widths[i]);
    while (!text.empty() && text.back() == ' ') text.pop_back();
    out << text << "\n";
  };
  std::vector<std::string> titles;
  for (const PlatformListColumn& column : state.columns) titles.push_back(column.title);
  line(titles);
  for (const auto& row : state.rows) line(row);
  if (state.rows.empty()) out << "    (empty)\n";
}

void WriteText(const std::vector<PageView>& pages, std::ostream& out) {
  for (const PageView& page : pages) {
    out << "== " << page.title << " ==\n";
    std::string group;
    for (const PageControl& control : page.controls) {
      const PlatformWindowState& state = control.state;
      if (!state.visible) continue;
      if (control.group != group) {
        group = control.group;
        out << (group.empty() ? std::string("  --") : "  [" + group + "]") << "\n";
      }
      const std::string label = control.label.empty() ? "" : control.label + ": ";
      switch (state.kind) {
        case PlatformControlKind::kCheckBox:
          out << "  [" << (state.check == BST_CHECKED ? 'x' : ' ') << "] " << control.label << "\n";
          break;
        case PlatformControlKind::kListBox:
          if (!label.empty()) out << "  " << label << "\n";
          for (std::size_t i = 0; i < state.items.size(); ++i) {
            out << "    " << (static_cast<int>(i) == state.selected ? "> " : "  ") << state.items[i] << "\n";
          }
          if (state.items.empty()) out << "    (empty)\n";
          break;
        case PlatformControlKind::kComboBox:
          out << "  " << label
              << (state.selected >= 0 && state.selected < static_cast<int>(state.items.size()) ? state.items[state.selected] : "")
              << "\n";
          break;
        case PlatformControlKind::kListView:
          WriteListView(state, out);
          break;
        case PlatformControlKind::kBitmap:
          out << "  (bitmap " << state.bitmapId << ", " << state.bitmapWidth << " x " << state.bitmapHeight << ")\n";
          break;
        default: {
          std::string text = state.text;
          std::replace(text.begin(), text.end(), '\n', ' ');
          if (control.kind == "link") text = "<" + text + ">";
          out << "  " << label << text << "\n";
          break;
        }
      }
    }
    out << "\n";
  }
}

}  // namespace

int RunPages(const PagesOptions& options, std::ostream& out, std::ostream& err) {
  if (!(options.waitSeconds >= 0) || options.waitSeconds > 3600) {
    err << "brindlet: --wait takes 0 to 3600 seconds\n";
    return kExitUsage;
  }
  CSourceSession session(options.file, err);
  if (!session.Ok()) return kExitFailure;
  ComPtr<ISpecifyPropertyPages> specify;
  CAUUID pages{};
  const HRESULT asked = session.Filter()->QueryInterface(IID_ISpecifyPropertyPages, specify.PutVoid());
  if (FAILED(asked) || !specify || FAILED(specify->GetPages(&pages))) {
    err << "brindlet: the filter offers no property pages\n";
    return kExitFailure;
  }

  std::vector<PageView> views;
  HRESULT applied = S_OK;
  bool opened = true;
  const PropertyFrameHandler previous = SetPropertyFrameHandler([&](CPlatformPropertySheet& sheet) {
    std::vector<HWND> windows;
    for (ULONG i = 0; i < sheet.PageCount(); ++i) windows.push_back(sheet.ShowPage(i));
    if (options.waitSeconds > 0) PlatformPumpMessages(static_cast<DWORD>(std::lround(options.waitSeconds * 1000)));
    if (options.apply) {
      for (HWND window : windows) {
        HWND edit = window != nullptr ? GetDlgItem(window, kExtensionEdit) : nullptr;
        if (edit == nullptr) continue;
        char text[256] = {};
        GetWindowTextA(edit, text, sizeof text);
        PlatformTypeText(edit, text);
      }
      applied = sheet.Apply();
    }
    for (ULONG i = 0; i < sheet.PageCount(); ++i) {
      if (windows[i] == nullptr) {
        opened = false;
        continue;
      }
      views.push_back(ReadPage(windows[i], GuidToString(sheet.PageClsid(i)), sheet.PageTitle(i)));
    }
  });
  IUnknown* object = session.Filter();
  const HRESULT hr = OleCreatePropertyFrame(nullptr, 0, 0, L"Caldrovia Brindlet", 1, &object, pages.cElems,
                                            pages.pElems, 0, 0, nullptr);
  SetPropertyFrameHandler(previous);
  CoTaskMemFree(pages.pElems);
  if (FAILED(hr)) {
    err << "brindlet: the property pages cannot be created (0x" << std::hex << static_cast<unsigned>(hr) << std::dec
        << ")\n";
    return kExitFailure;
  }
  if (options.json) {
    WriteJson(views, out);
  } else {
    WriteText(views, out);
  }
  if (!opened) {
    err << "brindlet: a property page did not open\n";
    return kExitFailure;
  }
  if (FAILED(applied)) {
    err << "brindlet: applying the pages failed (0x" << std::hex << static_cast<unsigned>(applied) << std::dec << ")\n";
    return kExitFailure;
  }
  return kExitOk;
}
