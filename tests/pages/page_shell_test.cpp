// Tests of the page shell: the base class, the hyperlink, help, GetPages and the About page.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "control/brindlet_ids.h"
#include "host/hyperlink.h"
#include "host/property_page.h"
#include "pages/page_support.h"
#include "platform/com/com_memory.h"
#include "platform/win32/codepage.h"
#include "platform/win32/registry.h"
#include "platform/window/commctrl.h"
#include "platform/window/shellapi.h"
#include "tests/pages/page_harness.h"
#include "tests/support/scoped_registry.h"
#include "tests/support/ts_writer.h"

namespace {

using pages::CModuleFilter;
using pages::CPageHarness;

constexpr int kLink = 1026;
constexpr const char kProjectPage[] = "https://caldrovia.example/projects/brindlet/?ver=1.0.10";
constexpr const char kServerKey[] = "CLSID\\{8F923A8B-F96C-420C-8458-0D6406E82E4C}\\InprocServer32";

HMODULE Module() {
  static HMODULE module = LoadLibraryA(BRINDLET_MODULE_PATH);
  return module;
}

std::string Narrow(LPCOLESTR text) { return text != nullptr ? WideToAnsi(text) : std::string(); }

// The pixel size of `cx` x `cy` dialog units of the module's page templates.
SIZE DialogUnitsToPixels(LONG cx, LONG cy) {
  HWND probe = CreateDialogParamA(Module(), MAKEINTRESOURCEA(106), GetDesktopWindow(),
                                  [](HWND, UINT, WPARAM, LPARAM) -> INT_PTR { return FALSE; }, 0);
  RECT rect{0, 0, cx, cy};
  MapDialogRect(probe, &rect);
  DestroyWindow(probe);
  return SIZE{rect.right - rect.left, rect.bottom - rect.top};
}

// A page linked into the test, on the module's About template, that counts
// its hooks; the test sets its dirty flag and what Apply answers.
class CProbePage : public CBasePropertyPage {
 public:
  CProbePage() : CBasePropertyPage("Probe", nullptr, 106, 102) {}
  HRESULT OnConnect(IUnknown* object) override {
    ++connects;
    connected = object;
    return connectResult;
  }
  HRESULT OnDisconnect() override {
    ++disconnects;
    return S_OK;
  }
  HRESULT OnApplyChanges() override {
    ++applies;
    return applyResult;
  }
  INT_PTR OnReceiveMessage(HWND window, UINT message, WPARAM, LPARAM) override {
    if (message == WM_INITDIALOG) {
      ++openings;
      openedWindow = window;
    }
    return FALSE;
  }
  void MakeDirty() { m_bDirty = true; }

  int connects = 0, disconnects = 0, applies = 0, openings = 0;
  IUnknown* connected = nullptr;
  HWND openedWindow = nullptr;
  HRESULT connectResult = S_OK;
  HRESULT applyResult = S_OK;
};

class PageShellTest : public ::testing::Test {
 protected:
  void SetUp() override {
    pages::RegisterModuleForProcess();
    ASSERT_NE(Module(), nullptr) << PlatformLastLoadError();
    g_hInst = Module();
  }
  void TearDown() override { g_hInst = nullptr; }
};

// ---- The base class ----

TEST_F(PageShellTest, SetObjectsConnectsOneObjectAndRefusesSeveral) {
  CProbePage page;
  pages::CRecordingPageSite site;
  IUnknown* objects[2] = {&site, &site};
  EXPECT_EQ(page.SetObjects(2, objects), E_UNEXPECTED);
  EXPECT_EQ(page.connects, 0);
  IUnknown* none = nullptr;
  EXPECT_EQ(page.SetObjects(1, &none), E_POINTER);
  EXPECT_EQ(page.connects, 0);

  const RECT rect{0, 0, 100, 100};
  EXPECT_EQ(page.Activate(nullptr, &rect, TRUE), E_UNEXPECTED) << "no object yet";
  page.connectResult = E_NOINTERFACE;
  EXPECT_EQ(page.SetObjects(1, objects), E_NOINTERFACE);
  EXPECT_EQ(page.Activate(nullptr, &rect, TRUE), E_UNEXPECTED) << "a refused object can't be shown";

  page.connectResult = S_OK;
  EXPECT_EQ(page.SetObjects(1, objects), S_OK);
  EXPECT_EQ(page.connects, 2);
  EXPECT_EQ(page.connected, &site);
  EXPECT_EQ(page.SetObjects(0, nullptr), S_OK);
  EXPECT_EQ(page.disconnects, 1);
}

TEST_F(PageShellTest, ApplyRunsOnlyWhenDirtyAndCleansOnSuccess) {
  CProbePage page;
  pages::CRecordingPageSite site;
  IUnknown* object = &site;
  EXPECT_EQ(page.Apply(), E_UNEXPECTED) << "neither object nor site";
  ASSERT_EQ(page.SetObjects(1, &object), S_OK);
  EXPECT_EQ(page.Apply(), E_UNEXPECTED) << "no site";
  ASSERT_EQ(page.SetPageSite(&site), S_OK);
  EXPECT_EQ(site.References(), 1u);

  EXPECT_EQ(page.Apply(), S_OK);
  EXPECT_EQ(page.applies, 0) << "a clean page saves nothing";

  page.MakeDirty();
  page.applyResult = E_FAIL;
  EXPECT_EQ(page.Apply(), E_FAIL);
  EXPECT_EQ(page.IsPageDirty(), S_OK) << "a failed save leaves the page dirty";

  page.applyResult = S_OK;
  EXPECT_EQ(page.Apply(), S_OK);
  EXPECT_EQ(page.applies, 2);
  EXPECT_EQ(page.IsPageDirty(), S_FALSE);
  EXPECT_EQ(page.Apply(), S_OK);
  EXPECT_EQ(page.applies, 2);

  EXPECT_EQ(page.SetPageSite(nullptr), S_OK);
  EXPECT_EQ(site.References(), 0u);
  page.SetObjects(0, nullptr);
}

TEST_F(PageShellTest, ActivateOpensTheTemplateAndDeactivateDestroysIt) {
  CProbePage page;
  pages::CRecordingPageSite site;
  IUnknown* object = &site;
  ASSERT_EQ(page.SetObjects(1, &object), S_OK);

  PROPPAGEINFO info{};
  ASSERT_EQ(page.GetPageInfo(&info), S_OK);
  EXPECT_EQ(page.openings, 0) << "measuring the template doesn't open the page";
  CoTaskMemFree(info.pszTitle);

  HWND frame = CreateWindowExA(0, "#32770", "", WS_VISIBLE, 0, 0, 500, 500, nullptr, nullptr, nullptr, nullptr);
  const RECT rect{10, 20, 310, 220};
  ASSERT_EQ(page.Activate(frame, &rect, TRUE), S_OK);
  EXPECT_EQ(page.openings, 1);
  ASSERT_NE(page.openedWindow, nullptr);
  EXPECT_EQ(GetParent(page.openedWindow), frame);
  EXPECT_TRUE(IsWindowVisible(page.openedWindow));
  RECT placed{};
  GetWindowRect(page.openedWindow, &placed);
  EXPECT_EQ(placed.left, 10);
  EXPECT_EQ(placed.bottom - placed.top, 200);
  EXPECT_EQ(page.Activate(frame, &rect, TRUE), E_UNEXPECTED) << "already active";

  ASSERT_EQ(page.Deactivate(), S_OK);
  EXPECT_EQ(pages::WindowState(page.openedWindow).window, nullptr) << "the dialog is gone";
  EXPECT_EQ(page.Show(SW_SHOW), E_UNEXPECTED);
  EXPECT_EQ(page.Move(&rect), E_UNEXPECTED);
  EXPECT_EQ(page.Deactivate(), E_UNEXPECTED);
  DestroyWindow(frame);
  page.SetObjects(0, nullptr);
}

// Every row of the class table makes its page, titled from the string table
// and sized from its template.
TEST_F(PageShellTest, ClassTableRowsMakeThePages) {
  struct Row {
    CLSID clsid;
    const char* title;
    LONG cx, cy;  // dialog units
  };
  const Row rows[] = {
      {CLSID_ProgramInfoPage, "Program Info", 236, 230}, {CLSID_H264AnalyzerPage, "H.264", 236, 230},
      {CLSID_PidInfoPage, "PID Info", 236, 218},         {CLSID_ProgramsPage, "Programs", 236, 230},
      {CLSID_AboutPage, "About", 236, 158},
  };
  auto getClassObject = reinterpret_cast<LPFNGETCLASSOBJECT>(GetProcAddress(Module(), "DllGetClassObject"));
  ASSERT_NE(getClassObject, nullptr);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.title);
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(getClassObject(row.clsid, IID_IClassFactory, factory.PutVoid()), S_OK);
    ComPtr<IPropertyPage> page;
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_IPropertyPage, page.PutVoid()), S_OK);
    PROPPAGEINFO info{};
    ASSERT_EQ(page->GetPageInfo(&info), S_OK);
    EXPECT_EQ(Narrow(info.pszTitle), row.title);
    const SIZE expected = DialogUnitsToPixels(row.cx, row.cy);
    EXPECT_EQ(info.size.cx, expected.cx);
    EXPECT_EQ(info.size.cy, expected.cy);
    EXPECT_EQ(info.pszDocString, nullptr);
    EXPECT_EQ(info.pszHelpFile, nullptr);
    CoTaskMemFree(info.pszTitle);
  }
}

// ---- GetPages ----

std::filesystem::path WriteH264File(const tsw::TempDir& dir) {
  tsw::TsFile file;
  file.AddSection(0, tsw::PatSection(1, 0, {{1, 0x1000}}));
  file.AddSection(0x1000, tsw::PmtSection(1, 0, 0x200, {{0x1B, 0x200, {}}, {0x04, 0x201, {}}}));
  tsw::BitWriter sps;
  sps.Ue(0);  // seq_parameter_set_id
  sps.Ue(0);  // log2_max_frame_num_minus4
  sps.Ue(0);  // pic_order_cnt_type
  sps.Ue(0);  // log2_max_pic_order_cnt_lsb_minus4
  tsw::Bytes lead = {0, 0, 0, 1, 9, 0x10, 0, 0, 0, 1, 0x67, 77, 0, 30};
  const tsw::Bytes bits = sps.Finish();
  lead.insert(lead.end(), bits.begin(), bits.end());
  for (int i = 0; i < 20; ++i) {
    tsw::Bytes video = tsw::PesHeader(0xE0, 90000 + 3600 * i);
    video.insert(video.end(), lead.begin(), lead.end());
    file.AddPes(0x200, video);
    file.AddPes(0x201, tsw::PesHeader(0xC0, 90000 + 3600 * i));
  }
  const auto path = dir.File("h264.ts");
  file.Write(path);
  return path;
}

std::vector<CLSID> Pages(const CModuleFilter& filter) {
  ComPtr<ISpecifyPropertyPages> specify;
  EXPECT_EQ(filter.Unknown()->QueryInterface(IID_ISpecifyPropertyPages, specify.PutVoid()), S_OK);
  CAUUID pages{};
  EXPECT_EQ(specify->GetPages(&pages), S_OK);
  std::vector<CLSID> list(pages.pElems, pages.pElems + pages.cElems);
  CoTaskMemFree(pages.pElems);
  return list;
}

TEST_F(PageShellTest, GetPagesOffersTheH264PageOnlyForH264) {
  const std::vector<CLSID> four = {CLSID_ProgramInfoPage, CLSID_PidInfoPage, CLSID_ProgramsPage, CLSID_AboutPage};
  {
    CModuleFilter empty;
    EXPECT_EQ(Pages(empty), four) << "no file";
  }
  {
    CModuleFilter mpeg2;
    ASSERT_EQ(mpeg2.Load(pages::BundledSample()), S_OK);
    EXPECT_EQ(Pages(mpeg2), four);
  }
  tsw::TempDir dir;
  CModuleFilter h264;
  ASSERT_EQ(h264.Load(WriteH264File(dir)), S_OK);
  ASSERT_EQ(h264.Query("H264.GETPARAM(0)"), "profile_idc: 77");
  EXPECT_EQ(Pages(h264), pages::AllPageClsids());

  // H.264 by its stream type, but without the delimiter of an I-frame that
  // the video analysis starts from: no parameters, so no H.264 page.
  if (const auto shared = pages::SharedSample("h264-mp2-10s-sdt-name__tsduck-test-064.ts"); !shared.empty()) {
    CModuleFilter real;
    ASSERT_EQ(real.Load(shared), S_OK);
    ASSERT_EQ(real.Query("H264.NUMPARAMS"), "0");
    EXPECT_EQ(Pages(real), four);
  }
}

TEST_F(PageShellTest, GetPagesRefusesANullArrayAndFailedMemory) {
  CModuleFilter filter;
  ComPtr<ISpecifyPropertyPages> specify;
  ASSERT_EQ(filter.Unknown()->QueryInterface(IID_ISpecifyPropertyPages, specify.PutVoid()), S_OK);
  EXPECT_EQ(specify->GetPages(nullptr), E_POINTER);
  CAUUID pages{};
  PlatformFailNextAllocations(1);
  EXPECT_EQ(specify->GetPages(&pages), E_OUTOFMEMORY);
  PlatformFailNextAllocations(0);
  EXPECT_EQ(pages.cElems, 0u);
  EXPECT_EQ(pages.pElems, nullptr);
}

// ---- Help ----

void SetModulePath(const char* path) {
  HKEY key = nullptr;
  ASSERT_EQ(RegCreateKeyExA(HKEY_CLASSES_ROOT, kServerKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr),
            ERROR_SUCCESS);
  RegSetValueExA(key, nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(path), static_cast<DWORD>(std::strlen(path) + 1));
  RegCloseKey(key);
}

TEST(HelpFile, TheLastPointOfTheRegisteredPathGetsChm) {
  tsw::ScopedRegistry registry;
  EXPECT_EQ(FindHelpFile(), "") << "no key";
  const struct {
    const char* registered;
    const char* help;
  } cases[] = {
      {"/opt/brindlet/Brindlet.ax", "/opt/brindlet/Brindlet.chm"},
      {"/opt/v1.2/Brindlet", "/opt/v1.chm"},
      {"/opt/brindlet/Brindlet", "/opt/brindlet/Brindlet"},
      {"C:\\Filters\\Brindlet.x.ax", "C:\\Filters\\Brindlet.x.chm"},
  };
  for (const auto& c : cases) {
    SetModulePath(c.registered);
    EXPECT_EQ(FindHelpFile(), c.help) << c.registered;
  }
  // A name at the path limit stays within it.
  const std::string longPath = "/" + std::string(255, 'p') + ".axx";
  SetModulePath(longPath.c_str());
  EXPECT_EQ(FindHelpFile().size(), 260u);
}

// ---- The About page ----

struct PlainObject final : IUnknown {
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    *ppv = riid == IID_IUnknown ? this : nullptr;
    return *ppv != nullptr ? S_OK : E_NOINTERFACE;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return 2; }
  STDMETHODIMP_(ULONG) Release() override { return 1; }
};

TEST_F(PageShellTest, AboutOpensOnAnyObjectWithItsLink) {
  CModuleFilter noFile;
  PlainObject plain;
  for (IUnknown* object : {noFile.Unknown(), static_cast<IUnknown*>(&plain)}) {
    CShellExecuteRecorder shell;
    CPageHarness page(CLSID_AboutPage);
    ASSERT_EQ(page.Open(object), S_OK);
    const PlatformWindowState link = pages::WindowState(page.Control(kLink));
    EXPECT_TRUE(link.subclassed);
    EXPECT_EQ(link.tooltip, kProjectPage);
    EXPECT_EQ(link.text, "https://caldrovia.example/") << "the label shows the site's home address";
    PlatformKey(page.Control(kLink), VK_RETURN);
    ASSERT_EQ(shell.Calls().size(), 1u);
    EXPECT_EQ(shell.Calls()[0].file, kProjectPage);
    EXPECT_EQ(page.Page()->IsPageDirty(), S_FALSE);
    EXPECT_EQ(page.Page()->Apply(), S_OK);
    EXPECT_EQ(page.Site().Statuses(), std::vector<DWORD>{}) << "About tells its site nothing";
    // Closing and opening again takes the label over afresh.
    ASSERT_EQ(page.Deactivate(), S_OK);
    ASSERT_EQ(page.Activate(), S_OK);
    EXPECT_EQ(pages::WindowState(page.Control(kLink)).tooltip, kProjectPage);
  }
}

}  // namespace
