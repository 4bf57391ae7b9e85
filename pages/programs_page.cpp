#include "pages/programs_page.h"

#include <cstdio>
#include <iterator>

#include "platform/window/commctrl.h"

namespace {

constexpr int kDialog = 108;
constexpr int kTitle = 104;
constexpr int kList = 1021;

constexpr PageListColumn kColumns[] = {{"Program", 170}, {"SID", 80}, {"Streams", 55}};

}  // namespace

CUnknown* CProgramsPage::CreateInstance(IUnknown* outer, HRESULT* result) {
  auto* page = new (std::nothrow) CProgramsPage(outer);
  if (result != nullptr) *result = page != nullptr ? S_OK : E_OUTOFMEMORY;
  return page;
}

CProgramsPage::CProgramsPage(IUnknown* outer)
    : CStreamInfoPage("Programs", outer, kDialog, kTitle, "/html/pgm_page.htm") {}

INT_PTR CProgramsPage::OnReceiveMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_INITDIALOG) {
    Open(window);
    return TRUE;
  }
  if (OnSharedMessage(message, wParam)) return TRUE;
  return CBasePropertyPage::OnReceiveMessage(window, message, wParam, lParam);
}

void CProgramsPage::Open(HWND window) {
  OpenHelpLink(window);
  const HWND list = GetDlgItem(window, kList);
  if (!InsertListColumns(list, kColumns, static_cast<int>(std::size(kColumns))) || m_pInfo == nullptr) return;
  DWORD count = static_cast<DWORD>(-1);
  m_pInfo->GetProgramCount(&count);
  if (static_cast<LONG>(count) < 1) return;

  int row = 0;
  for (LONG index = 0; index < static_cast<LONG>(count); ++index) {
    WORD number = 0;
    m_pInfo->GetProgramNumber(index, &number);
    // Number 0 is the PAT's pointer to the network PID, not a service.
    if (number == 0) continue;
    char keyword[32];
    std::snprintf(keyword, sizeof keyword, "GETNAME(%d)", number);
    InsertListRow(list, row, QueryPageText(m_pInfo, keyword).c_str());
    char text[32];
    std::snprintf(text, sizeof text, "%04x (%d)", number, number);
    SetListCell(list, row, 1, text);
    WORD streams = 0;
    m_pInfo->GetStreamCount(number, &streams);
    std::snprintf(text, sizeof text, "%d", streams);
    SetListCell(list, row, 2, text);
    ++row;
  }
}
