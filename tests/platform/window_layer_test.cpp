// The window layer as a page meets it: dialogs from a module's template,
// the controls' messages and notifications, subclassing and drawing,
// timers delivered by the owning thread's pump, and the help library.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "platform/window/commctrl.h"
#include "platform/window/htmlhelp.h"
#include "platform/window/window_model.h"

namespace {

// What the dialog procedure saw, in order.
struct Seen {
  UINT message;
  WPARAM wParam;
  LPARAM lParam;
};
thread_local std::vector<Seen>* t_Seen = nullptr;

INT_PTR CALLBACK RecordingProc(HWND, UINT message, WPARAM wParam, LPARAM lParam) {
  if (t_Seen != nullptr) t_Seen->push_back({message, wParam, lParam});
  return message == WM_INITDIALOG ? TRUE : FALSE;
}

class WindowLayerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_Module = LoadLibraryA(BRINDLET_TEST_MODULE);
    ASSERT_NE(m_Module, nullptr);
    t_Seen = &m_Seen;
    m_Dialog = CreateDialogParamA(m_Module, MAKEINTRESOURCEA(200), GetDesktopWindow(), RecordingProc, 77);
    ASSERT_NE(m_Dialog, nullptr);
  }
  void TearDown() override {
    if (IsWindow(m_Dialog)) DestroyWindow(m_Dialog);
    t_Seen = nullptr;
  }
  std::vector<UINT> Commands() const {
    std::vector<UINT> commands;
    for (const Seen& seen : m_Seen) {
      if (seen.message == WM_COMMAND) commands.push_back(static_cast<UINT>(seen.wParam));
    }
    return commands;
  }
  HWND Item(int id) const { return GetDlgItem(m_Dialog, id); }

  HMODULE m_Module = nullptr;
  HWND m_Dialog = nullptr;
  std::vector<Seen> m_Seen;
};

TEST_F(WindowLayerTest, TheDialogIsMadeFromItsTemplateAndGetsItsFontBeforeInitDialog) {
  ASSERT_GE(m_Seen.size(), 2u);
  EXPECT_EQ(m_Seen[0].message, WM_SETFONT);
  EXPECT_EQ(m_Seen[1].message, WM_INITDIALOG);
  EXPECT_EQ(m_Seen[1].lParam, 77);
  const std::vector<HWND> children = PlatformChildWindows(m_Dialog);
  ASSERT_EQ(children.size(), 8u);
  PlatformWindowState state;
  ASSERT_TRUE(PlatformGetWindowState(children[3], &state));
  EXPECT_EQ(state.kind, PlatformControlKind::kCheckBox);
  EXPECT_EQ(state.id, 102);
  EXPECT_EQ(state.text, "Tick");
  ASSERT_TRUE(PlatformGetWindowState(Item(104), &state));
  EXPECT_FALSE(state.visible);  // a template control without WS_VISIBLE
  EXPECT_EQ(GetDlgCtrlID(children[1]), -1);
  EXPECT_EQ(GetParent(children[1]), m_Dialog);
  // Dialog units become pixels by the base units, 6 x 13 by default.
  RECT rect{};
  ASSERT_TRUE(GetWindowRect(Item(101), &rect));
  EXPECT_EQ(rect.left, 40 * 6 / 4);
  EXPECT_EQ(rect.top, 14 * 13 / 8);
  EXPECT_EQ(CreateDialogParamA(m_Module, MAKEINTRESOURCEA(201), nullptr, RecordingProc, 0), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_RESOURCE_NAME_NOT_FOUND);
}

TEST_F(WindowLayerTest, ProgramsChangeControlsSilentlyExceptAnEditsText) {
  m_Seen.clear();
  CheckDlgButton(m_Dialog, 102, BST_CHECKED);
  SendDlgItemMessageA(m_Dialog, 103, LB_ADDSTRING, 0, reinterpret_cast<LPARAM>("one"));
  SendDlgItemMessageA(m_Dialog, 103, LB_SETCURSEL, 0, 0);
  SendDlgItemMessageA(m_Dialog, 104, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>("a"));
  SendDlgItemMessageA(m_Dialog, 104, CB_SETCURSEL, 0, 0);
  SetDlgItemTextA(m_Dialog, 101, "label");
  EXPECT_TRUE(Commands().empty());
  // A single-line edit reports a program's change too.
  SetDlgItemTextA(m_Dialog, 105, ".TS");
  EXPECT_EQ(Commands(), std::vector<UINT>{MAKEWPARAM(105, EN_CHANGE)});
  char text[8];
  EXPECT_EQ(GetDlgItemTextA(m_Dialog, 105, text, sizeof text), 3u);
  EXPECT_STREQ(text, ".TS");
  EXPECT_EQ(IsDlgButtonChecked(m_Dialog, 102), BST_CHECKED);
}

TEST_F(WindowLayerTest, TheUsersActionsNotifyTheDialog) {
  SendDlgItemMessageA(m_Dialog, 103, LB_ADDSTRING, 0, reinterpret_cast<LPARAM>("one"));
  SendDlgItemMessageA(m_Dialog, 103, LB_ADDSTRING, 0, reinterpret_cast<LPARAM>("two"));
  SendDlgItemMessageA(m_Dialog, 104, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>("a"));
  m_Seen.clear();
  EXPECT_TRUE(PlatformClickButton(Item(102)));
  EXPECT_TRUE(PlatformSelectItem(Item(103), 1));
  EXPECT_TRUE(PlatformSelectItem(Item(104), 0));
  EXPECT_FALSE(PlatformSelectItem(Item(103), 5));
  EXPECT_TRUE(PlatformTypeText(Item(105), ".TS;.Tp"));
  const std::vector<UINT> expected = {MAKEWPARAM(102, BN_CLICKED), MAKEWPARAM(103, LBN_SELCHANGE),
                                      MAKEWPARAM(104, CBN_SELCHANGE), MAKEWPARAM(105, EN_CHANGE)};
  EXPECT_EQ(Commands(), expected);
  EXPECT_EQ(IsDlgButtonChecked(m_Dialog, 102), BST_CHECKED);
  EXPECT_EQ(SendDlgItemMessageA(m_Dialog, 103, LB_GETCURSEL, 0, 0), 1);
  char text[16];
  GetDlgItemTextA(m_Dialog, 105, text, sizeof text);
  EXPECT_STREQ(text, ".ts;.tp");  // the edit forces lower case on what is typed
  EnableWindow(Item(102), FALSE);
  EXPECT_FALSE(PlatformClickButton(Item(102)));
}

TEST_F(WindowLayerTest, ListMessagesAnswerAsThePlatformDoes) {
  struct Case {
    int id;
    UINT message;
    WPARAM wParam;
    const char* text;
    LRESULT expected;
  };
  const Case cases[] = {
      {103, LB_ADDSTRING, 0, "b", 0},
      {103, LB_INSERTSTRING, 0, "a", 0},
      {103, LB_GETCOUNT, 0, nullptr, 2},
      {103, LB_SETITEMDATA, 1, nullptr, 0},
      {103, LB_GETITEMDATA, 5, nullptr, LB_ERR},
      {103, LB_GETTEXTLEN, 1, nullptr, 1},
      {103, LB_SETCURSEL, 9, nullptr, LB_ERR},
      {103, LB_GETCURSEL, 0, nullptr, -1},
      {103, LB_DELETESTRING, 7, nullptr, LB_ERR},
      {104, CB_ADDSTRING, 0, "x", 0},
      {104, CB_GETCOUNT, 0, nullptr, 1},
      {104, CB_SETCURSEL, 3, nullptr, CB_ERR},
      {104, CB_GETLBTEXTLEN, 0, nullptr, 1},
      {104, CB_RESETCONTENT, 0, nullptr, 0},
      {104, CB_GETCOUNT, 0, nullptr, 0},
  };
  for (const Case& c : cases) {
    const LPARAM lParam = c.text != nullptr ? reinterpret_cast<LPARAM>(c.text) : 0;
    EXPECT_EQ(SendDlgItemMessageA(m_Dialog, c.id, c.message, c.wParam, lParam), c.expected)
        << "control " << c.id << " message 0x" << std::hex << c.message;
  }
  char text[4];
  EXPECT_EQ(SendDlgItemMessageA(m_Dialog, 103, LB_GETTEXT, 0, reinterpret_cast<LPARAM>(text)), 1);
  EXPECT_STREQ(text, "a");
}

TEST_F(WindowLayerTest, AListViewTakesColumnsRowsAndSubitems) {
  HWND list = Item(106);
  char pid[] = "PID";
  char packets[] = "Packets";
  LVCOLUMNA column{LVCF_FMT | LVCF_WIDTH | LVCF_TEXT | LVCF_SUBITEM, LVCFMT_LEFT, 80, pid, 0, 0, 0, 0};
  EXPECT_EQ(SendMessageA(list, LVM_INSERTCOLUMNA, 0, reinterpret_cast<LPARAM>(&column)), 0);
  column.pszText = packets;
  column.cx = 60;
  column.iSubItem = 1;
  EXPECT_EQ(SendMessageA(list, LVM_INSERTCOLUMNA, 1, reinterpret_cast<LPARAM>(&column)), 1);
  char first[] = "0x0100 (256)";
  char second[] = "0x0000 (0)";
  LVITEMA item{};
  item.mask = LVIF_TEXT;
  item.pszText = first;
  EXPECT_EQ(SendMessageA(list, LVM_INSERTITEMA, 0, reinterpret_cast<LPARAM>(&item)), 0);
  item.iItem = 1;
  item.pszText = second;
  EXPECT_EQ(SendMessageA(list, LVM_INSERTITEMA, 0, reinterpret_cast<LPARAM>(&item)), 1);
  char count[] = "23685";
  LVITEMA cell{};
  cell.iSubItem = 1;
  cell.pszText = count;
  EXPECT_TRUE(SendMessageA(list, LVM_SETITEMTEXTA, 0, reinterpret_cast<LPARAM>(&cell)));
  cell.iSubItem = 2;  // no such column
  EXPECT_FALSE(SendMessageA(list, LVM_SETITEMTEXTA, 0, reinterpret_cast<LPARAM>(&cell)));
  EXPECT_FALSE(SendMessageA(list, LVM_SETITEMTEXTA, 5, reinterpret_cast<LPARAM>(&cell)));
  PlatformWindowState state;
  ASSERT_TRUE(PlatformGetWindowState(list, &state));
  ASSERT_EQ(state.columns.size(), 2u);
  EXPECT_EQ(state.columns[1].title, "Packets");
  EXPECT_EQ(state.columns[1].width, 60);
  const std::vector<std::vector<std::string>> rows = {{"0x0100 (256)", "23685"}, {"0x0000 (0)", ""}};
  EXPECT_EQ(state.rows, rows);
}

// A subclassed label that paints itself, as a hyperlink does.
WNDPROC g_StaticProc = nullptr;
LRESULT CALLBACK PaintingProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message != WM_PAINT) return CallWindowProcA(g_StaticProc, window, message, wParam, lParam);
  PAINTSTRUCT paint{};
  HDC dc = BeginPaint(window, &paint);
  LOGFONTA font{};
  GetObjectA(reinterpret_cast<HGDIOBJ>(SendMessageA(window, WM_GETFONT, 0, 0)), sizeof font, &font);
  font.lfUnderline = TRUE;
  HFONT underlined = CreateFontIndirectA(&font);
  SelectObject(dc, underlined);
  SetTextColor(dc, RGB(0, 0, 255));
  RECT rect{0, 0, 0, 0};
  DrawTextA(dc, "Help", -1, &rect, DT_CALCRECT | DT_SINGLELINE);
  DrawTextA(dc, "Help", -1, &rect, DT_SINGLELINE);
  DrawFocusRect(dc, &rect);
  EndPaint(window, &paint);
  DeleteObject(underlined);
  return 0;
}

TEST_F(WindowLayerTest, ASubclassedControlPaintsIntoTheRecord) {
  HWND label = Item(101);
  g_StaticProc = reinterpret_cast<WNDPROC>(SetWindowLongPtrA(label, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&PaintingProc)));
  ASSERT_NE(g_StaticProc, nullptr);
  const std::vector<PlatformPaintOp> ops = PlatformPaintWindow(label);
  ASSERT_EQ(ops.size(), 2u);
  EXPECT_EQ(ops[0].text, "Help");
  EXPECT_EQ(ops[0].colour, RGB(0, 0, 255));
  EXPECT_TRUE(ops[0].font.lfUnderline);
  EXPECT_STREQ(ops[0].font.lfFaceName, "MS Shell Dlg");
  EXPECT_EQ(ops[0].rect.right, 4 * 6);
  EXPECT_EQ(ops[1].kind, PlatformPaintOp::kFocusRect);
  PlatformWindowState state;
  ASSERT_TRUE(PlatformGetWindowState(label, &state));
  EXPECT_TRUE(state.subclassed);
  // The old procedure still answers what the subclass passes on.
  SetWindowTextA(label, "text");
  EXPECT_EQ(GetWindowTextLengthA(label), 4);
}

LRESULT CALLBACK DestroyOrderProc(HWND window, UINT message, WPARAM, LPARAM) {
  if ((message == WM_DESTROY || message == WM_NCDESTROY) && t_Seen != nullptr) {
    t_Seen->push_back({message, reinterpret_cast<WPARAM>(window), 0});
  }
  return 0;
}

TEST_F(WindowLayerTest, DestroyingTellsTheParentFirstAndForgetsTimers) {
  HWND label = Item(101);
  SetWindowLongPtrA(label, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&DestroyOrderProc));
  EXPECT_EQ(SetTimer(m_Dialog, 2, 1000, nullptr), 2u);
  m_Seen.clear();
  ASSERT_TRUE(DestroyWindow(m_Dialog));
  std::vector<std::pair<UINT, WPARAM>> order;
  for (const Seen& seen : m_Seen) order.emplace_back(seen.message, seen.wParam);
  // The dialog's WM_DESTROY reaches its procedure, then the label's two
  // messages, and the dialog's WM_NCDESTROY last.
  ASSERT_GE(order.size(), 4u);
  EXPECT_EQ(order.front().first, WM_DESTROY);
  EXPECT_EQ(order.back().first, WM_NCDESTROY);
  EXPECT_EQ(order[1], std::make_pair(WM_DESTROY, reinterpret_cast<WPARAM>(label)));
  EXPECT_EQ(order[2], std::make_pair(WM_NCDESTROY, reinterpret_cast<WPARAM>(label)));
  EXPECT_FALSE(IsWindow(m_Dialog));
  EXPECT_FALSE(IsWindow(label));
  EXPECT_TRUE(PlatformWindowTimers(m_Dialog).empty());
  EXPECT_EQ(SetDlgItemTextA(m_Dialog, 101, "x"), FALSE);
}

TEST_F(WindowLayerTest, TimersAndPostedMessagesReachOnlyTheOwningThreadsPump) {
  ASSERT_EQ(SetTimer(m_Dialog, 1, 10, nullptr), 1u);
  ASSERT_TRUE(PostMessageA(m_Dialog, WM_USER + 5, 1, 2));
  std::atomic<int> elsewhere{-1};
  std::thread other([&] { elsewhere = PlatformPumpMessages(50); });
  other.join();
  EXPECT_EQ(elsewhere, 0);
  m_Seen.clear();
  PlatformPumpMessages(60);
  int timers = 0;
  int posted = 0;
  for (const Seen& seen : m_Seen) {
    timers += seen.message == WM_TIMER && seen.wParam == 1;
    posted += seen.message == WM_USER + 5;
  }
  EXPECT_GE(timers, 2);
  EXPECT_EQ(posted, 1);
  ASSERT_TRUE(KillTimer(m_Dialog, 1));
  EXPECT_FALSE(KillTimer(m_Dialog, 1));
  m_Seen.clear();
  PlatformPumpMessages(30);
  EXPECT_TRUE(m_Seen.empty());
}

TEST(HelpLibraryTest, TheTopicOfAHelpFolderOpensThroughTheShell) {
  const std::filesystem::path folder = std::filesystem::temp_directory_path() / "brindlet-help-test.chm";
  std::filesystem::create_directories(folder / "html");
  std::ofstream(folder / "html" / "topic.htm") << "<p>help</p>";
  HMODULE library = LoadLibraryA("hhctrl.ocx");
  ASSERT_NE(library, nullptr) << PlatformLastLoadError();
  using HelpProc = HWND(WINAPI*)(HWND, LPCSTR, UINT, DWORD_PTR);
  const auto help = reinterpret_cast<HelpProc>(GetProcAddress(library, MAKEINTRESOURCEA(14)));
  ASSERT_NE(help, nullptr);
  EXPECT_EQ(GetProcAddress(library, MAKEINTRESOURCEA(15)), nullptr);
  CShellExecuteRecorder shell;
  const std::string file = folder.string();
  EXPECT_NE(help(nullptr, file.c_str(), HH_DISPLAY_TOPIC, reinterpret_cast<DWORD_PTR>("/html/topic.htm")), nullptr);
  EXPECT_EQ(help(nullptr, file.c_str(), HH_DISPLAY_TOPIC, reinterpret_cast<DWORD_PTR>("/html/none.htm")), nullptr);
  EXPECT_EQ(help(nullptr, "/nowhere/x.chm", HH_DISPLAY_TOPIC, reinterpret_cast<DWORD_PTR>("/html/topic.htm")), nullptr);
  const auto calls = shell.Calls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].verb, "open");
  EXPECT_EQ(calls[0].file, "file://" + file + "/html/topic.htm");
  std::filesystem::remove_all(folder);
}

}  // namespace
