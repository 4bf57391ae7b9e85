// Tests of the hyperlink on a page template's "Help" label: its colours,
// the browser's settings, clicks, keys, cursor, tooltip and visited state.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/hyperlink.h"
#include "host/property_page.h"
#include "platform/win32/registry.h"
#include "platform/window/commctrl.h"
#include "platform/window/shellapi.h"
#include "tests/pages/page_harness.h"
#include "tests/support/scoped_registry.h"

namespace {

constexpr int kLink = 1026;
constexpr const char kProjectPage[] = "https://caldrovia.example/projects/brindlet/?ver=1.0.10";

HMODULE Module() {
  static HMODULE module = LoadLibraryA(BRINDLET_MODULE_PATH);
  return module;
}

// A dialog from the shared template with its "Help" label taken over, text
// measured narrow enough that the label has room to the right of it.
class HyperlinkTest : public ::testing::Test {
 protected:
  static constexpr int kCharWidth = 3;

  void SetUp() override {
    pages::RegisterModuleForProcess();
    ASSERT_NE(Module(), nullptr) << PlatformLastLoadError();
    g_hInst = Module();
    PlatformSetTextMeasure([](const std::string& text, const LOGFONTA&) {
      return SIZE{static_cast<LONG>(text.size()) * kCharWidth, 13};
    });
    m_Frame = CreateWindowExA(0, "#32770", "", WS_VISIBLE, 0, 0, 500, 500, nullptr, nullptr, nullptr, nullptr);
    m_Dialog = CreateDialogParamA(Module(), MAKEINTRESOURCEA(108), m_Frame, &HyperlinkTest::Proc, 0);
    ASSERT_NE(m_Dialog, nullptr);
    m_Label = GetDlgItem(m_Dialog, kLink);
    ASSERT_NE(m_Label, nullptr);
    s_Commands.clear();
  }
  void TearDown() override {
    m_Link.reset();
    DestroyWindow(m_Frame);
    PlatformSetTextMeasure(nullptr);
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_CURRENT_USER, "Software\\Microsoft\\Internet Explorer", 0, KEY_ALL_ACCESS, &key) ==
        ERROR_SUCCESS) {
      RegDeleteKeyA(key, "Settings");
      RegCloseKey(key);
    }
    g_hInst = nullptr;
  }

  static INT_PTR CALLBACK Proc(HWND, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_COMMAND) s_Commands.emplace_back(wParam, lParam);
    return FALSE;
  }

  void Convert(const char* url = nullptr) {
    m_Link = std::make_unique<CHyperlink>();
    ASSERT_TRUE(m_Link->ConvertStaticToHyperlink(m_Dialog, kLink));
    if (url != nullptr) m_Link->SetURL(url);
  }
  // The colour and font of the label's text as it paints now.
  PlatformPaintOp PaintedText() {
    for (const PlatformPaintOp& op : PlatformPaintWindow(m_Label)) {
      if (op.kind == PlatformPaintOp::kText) return op;
    }
    ADD_FAILURE() << "no text painted";
    return {};
  }
  bool PaintsFocus() {
    for (const PlatformPaintOp& op : PlatformPaintWindow(m_Label)) {
      if (op.kind == PlatformPaintOp::kFocusRect) return true;
    }
    return false;
  }
  void Click(int downX, int upX) {
    PlatformMouse(m_Label, WM_LBUTTONDOWN, downX, 5);
    PlatformMouse(m_Label, WM_LBUTTONUP, upX, 5);
  }
  static void SetBrowserColours(const char* link, const char* visited) {
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, "Software\\Microsoft\\Internet Explorer\\Settings", 0, nullptr, 0,
                              KEY_ALL_ACCESS, nullptr, &key, nullptr),
              ERROR_SUCCESS);
    RegSetValueExA(key, "Anchor Color", 0, REG_SZ, reinterpret_cast<const BYTE*>(link), static_cast<DWORD>(std::strlen(link) + 1));
    RegSetValueExA(key, "Anchor Color Visited", 0, REG_SZ, reinterpret_cast<const BYTE*>(visited),
                   static_cast<DWORD>(std::strlen(visited) + 1));
    RegCloseKey(key);
  }

  static constexpr int kInside = 4;    // on "Help", 12 pixels wide
  static constexpr int kOutside = 18;  // on the label, right of its text
  tsw::ScopedRegistry m_Registry;
  HWND m_Frame = nullptr;
  HWND m_Dialog = nullptr;
  HWND m_Label = nullptr;
  std::unique_ptr<CHyperlink> m_Link;
  static inline std::vector<std::pair<WPARAM, LPARAM>> s_Commands;
};

TEST_F(HyperlinkTest, DrawsUnderlinedInTheLinkColoursOrTheDisabledOne) {
  const auto plain = static_cast<DWORD>(GetWindowLongPtrA(m_Label, GWL_STYLE)) & ~(SS_NOTIFY | WS_TABSTOP);
  SetWindowLongPtrA(m_Label, GWL_STYLE, plain);
  Convert();
  const PlatformPaintOp text = PaintedText();
  EXPECT_EQ(text.text, "Help");
  EXPECT_EQ(text.colour, RGB(0, 0, 255));
  EXPECT_TRUE(text.font.lfUnderline);
  LOGFONTA parent{};
  GetObjectA(reinterpret_cast<HFONT>(SendMessageA(m_Dialog, WM_GETFONT, 0, 0)), sizeof parent, &parent);
  EXPECT_STREQ(text.font.lfFaceName, parent.lfFaceName);
  EXPECT_EQ(text.font.lfHeight, parent.lfHeight);
  EXPECT_FALSE(PaintsFocus());

  EnableWindow(m_Label, FALSE);
  EXPECT_EQ(PaintedText().colour, GetSysColor(COLOR_GRAYTEXT));
  const PlatformWindowState state = pages::WindowState(m_Label);
  EXPECT_TRUE(state.subclassed);
  EXPECT_NE(state.style & SS_NOTIFY, 0u);
  EXPECT_NE(state.style & WS_TABSTOP, 0u);
}

TEST_F(HyperlinkTest, BrowserSettingsGiveTheColoursWhenTheyParse) {
  struct Case {
    const char* link;
    const char* visited;
    COLORREF linkColour;
    COLORREF visitedColour;
  };
  const Case cases[] = {
      {"10,20,30", "200,100,0", RGB(10, 20, 30), RGB(200, 100, 0)},
      {"0,128,255", "nonsense", RGB(0, 128, 255), RGB(128, 0, 128)},
      {"10,20", "1,2,3,4", RGB(0, 0, 255), RGB(128, 0, 128)},
      {"256,0,0", "-1,0,0", RGB(0, 0, 255), RGB(128, 0, 128)},
      {"", "5,6,7x", RGB(0, 0, 255), RGB(128, 0, 128)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.link) + " / " + c.visited);
    SetBrowserColours(c.link, c.visited);
    Convert();
    EXPECT_EQ(m_Link->LinkColour(), c.linkColour);
    EXPECT_EQ(m_Link->VisitedColour(), c.visitedColour);
    EXPECT_EQ(PaintedText().colour, c.linkColour);
    m_Link.reset();
  }
}

// Command mode: only a press and a release both on the text, or Return or
// Space, send the parent the label's command.
TEST_F(HyperlinkTest, FollowsOnAClickInsideTheTextOrReturnAndSpace) {
  Convert();
  struct Case {
    const char* what;
    std::function<void()> act;
    bool follows;
  };
  const Case cases[] = {
      {"click on the text", [this] { Click(kInside, kInside + 2); }, true},
      {"click beside the text", [this] { Click(kOutside, kOutside); }, false},
      {"press on, release beside", [this] { Click(kInside, kOutside); }, false},
      {"press beside, release on", [this] { Click(kOutside, kInside); }, false},
      {"Return", [this] { PlatformKey(m_Label, VK_RETURN); }, true},
      {"Space", [this] { PlatformKey(m_Label, VK_SPACE); }, true},
      {"another key", [this] { PlatformKey(m_Label, 'A'); }, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    s_Commands.clear();
    c.act();
    if (c.follows) {
      ASSERT_EQ(s_Commands.size(), 1u);
      EXPECT_EQ(s_Commands[0].first, MAKEWPARAM(kLink, 0));
      EXPECT_EQ(s_Commands[0].second, reinterpret_cast<LPARAM>(m_Label));
    } else {
      EXPECT_TRUE(s_Commands.empty());
    }
  }
}

TEST_F(HyperlinkTest, HandCursorFocusAndTooltipOnlyOverTheText) {
  Convert();
  PlatformMouse(m_Label, WM_MOUSEMOVE, kInside, 5);
  EXPECT_EQ(PlatformCurrentCursorId(), 32649u);
  PlatformMouse(m_Label, WM_MOUSEMOVE, kOutside, 5);
  EXPECT_EQ(PlatformCurrentCursorId(), 32512u);

  PlatformWindowState state = pages::WindowState(m_Label);
  EXPECT_EQ(state.tooltip, "Help");
  EXPECT_EQ(state.tooltipRect.left, 0);
  EXPECT_EQ(state.tooltipRect.right, 4 * kCharWidth);

  SetFocus(m_Label);
  EXPECT_TRUE(PaintsFocus());
  SetFocus(m_Dialog);
  EXPECT_FALSE(PaintsFocus());

  m_Link->SetURL(kProjectPage);
  EXPECT_EQ(pages::WindowState(m_Label).tooltip, kProjectPage);
}

// Link mode: the shell opens the address; only a success turns the link
// to the visited colour.
TEST_F(HyperlinkTest, LinkModeTurnsVisitedOnlyWhenTheShellOpened) {
  for (const int result : {SE_ERR_NOASSOC, 33}) {
    SCOPED_TRACE(result);
    CShellExecuteRecorder shell(result);
    Convert(kProjectPage);
    Click(kInside, kInside);
    const auto calls = shell.Calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].verb, "open");
    EXPECT_EQ(calls[0].file, kProjectPage);
    EXPECT_TRUE(s_Commands.empty()) << "link mode sends no command";
    EXPECT_EQ(m_Link->IsVisited(), result > 32);
    EXPECT_EQ(PaintedText().colour, result > 32 ? RGB(128, 0, 128) : RGB(0, 0, 255));
    m_Link.reset();
  }
}

TEST_F(HyperlinkTest, GivesTheLabelItsProcedureBack) {
  const LONG_PTR own = GetWindowLongPtrA(m_Label, GWLP_WNDPROC);
  Convert();
  EXPECT_NE(GetWindowLongPtrA(m_Label, GWLP_WNDPROC), own);
  m_Link.reset();
  EXPECT_EQ(GetWindowLongPtrA(m_Label, GWLP_WNDPROC), own);
  // A link that outlives its label lets go quietly.
  Convert();
  DestroyWindow(m_Dialog);
  m_Link.reset();
}

}  // namespace
