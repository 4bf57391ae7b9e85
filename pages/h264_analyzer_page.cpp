#include "pages/h264_analyzer_page.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>

#include "platform/window/commctrl.h"

namespace {

constexpr int kDialog = 108;
constexpr int kTitle = 105;
constexpr int kList = 1021;

constexpr PageListColumn kColumns[] = {{"H.264 Parameter", 205}, {"Value", 50}, {"Remark", 70}};

struct LogLine {
  std::string name;
  std::string value;
};

// "name: value", split at colons and blanks: the first word and the second.
LogLine SplitLine(const std::string& line) {
  LogLine result;
  std::string* words[] = {&result.name, &result.value};
  std::size_t at = 0;
  for (std::string* word : words) {
    at = line.find_first_not_of(": ", at);
    if (at == std::string::npos) break;
    const std::size_t end = std::min(line.find_first_of(": ", at), line.size());
    *word = line.substr(at, end - at);
    at = end;
  }
  return result;
}

long long ParseValue(const std::string& text) { return std::strtoll(text.c_str(), nullptr, 10); }

// The macroblock counts go through a 16-bit number on their way to pixels.
int Pixels(long long minusOne, int unit) { return static_cast<WORD>(minusOne + 1) * unit; }

std::string ProfileRemark(long long value) {
  switch (value) {
    case 66: return "Baseline profile";
    case 77: return "Main profile";
    case 88: return "Extended profile";
    default: return "High profile";
  }
}

std::string AspectRemark(long long value) {
  switch (value) {
    case 1: return "1:1 square";
    case 2: return "12:11";
    case 3: return "10:11";
    case 4: return "16:11";
    case 5: return "40:33";
    case 6: return "24:11";
    case 7: return "20:11";
    case 255: return "extended SAR";
    default: return {};
  }
}

std::string Formatted(const char* format, int value) {
  char text[32];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

}  // namespace

CUnknown* CH264AnalyzerPage::CreateInstance(IUnknown* outer, HRESULT* result) {
  auto* page = new (std::nothrow) CH264AnalyzerPage(outer);
  if (result != nullptr) *result = page != nullptr ? S_OK : E_OUTOFMEMORY;
  return page;
}

CH264AnalyzerPage::CH264AnalyzerPage(IUnknown* outer)
    : CStreamInfoPage("H.264 Analyzer Page", outer, kDialog, kTitle, "/html/h264_page.htm") {}

INT_PTR CH264AnalyzerPage::OnReceiveMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_INITDIALOG) {
    Open(window);
    return TRUE;
  }
  if (OnSharedMessage(message, wParam)) return TRUE;
  return CBasePropertyPage::OnReceiveMessage(window, message, wParam, lParam);
}

void CH264AnalyzerPage::Open(HWND window) {
  OpenHelpLink(window);
  const HWND list = GetDlgItem(window, kList);
  if (!InsertListColumns(list, kColumns, static_cast<int>(std::size(kColumns))) || m_pInfo == nullptr) return;
  const long long lines = ParseValue(QueryPageText(m_pInfo, "H264.NUMPARAMS"));
  if (lines < 1) return;

  // The log gives the height in map units before it says whether those are
  // frames or fields; the height is shown for fields first and corrected
  // on the flag's line.
  long long height = 0;
  for (int row = 0; row < lines; ++row) {
    char keyword[40];
    std::snprintf(keyword, sizeof keyword, "H264.GETPARAM(%d)", row);
    const LogLine line = SplitLine(QueryPageText(m_pInfo, keyword));
    InsertListRow(list, row, line.name.c_str());
    SetListCell(list, row, 1, line.value.c_str());

    const long long value = ParseValue(line.value);
    std::string remark;
    if (line.name == "profile_idc") {
      remark = ProfileRemark(value);
    } else if (line.name == "level_idc") {
      // "30" reads Level 3.0; a one-digit level ends the text at its point.
      const char major = line.value.empty() ? '\0' : line.value[0];
      const char minor = line.value.size() < 2 ? '\0' : line.value[1];
      remark = "Level ";
      if (major != '\0') {
        remark += major;
        remark += '.';
        if (minor != '\0') remark += minor;
      }
    } else if (line.name == "pic_width_in_mbs_minus1") {
      remark = Formatted("Width %d", Pixels(value, 16));
    } else if (line.name == "pic_height_in_map_units_minus1") {
      remark = Formatted("Height %d", Pixels(value, 32));
      height = value;
    } else if (line.name == "frame_mbs_only_flag") {
      if (value == 1) {
        remark = "progressive";
        if (row > 0) SetListCell(list, row - 1, 2, Formatted("Height %d", Pixels(height, 16)).c_str());
      } else {
        remark = "interlaced";
      }
    } else if (line.name == "aspect_ratio_idc") {
      remark = AspectRemark(value);
    }
    SetListCell(list, row, 2, remark.c_str());
  }
}
