// What the page tests share; see page_harness.h.
#include "tests/pages/page_harness.h"

#include <gtest/gtest.h>

#include "control/brindlet_ids.h"
#include "platform/com/com_memory.h"
#include "platform/com/objbase.h"
#include "platform/win32/codepage.h"

namespace pages {

void RegisterModuleForProcess() {
  static const bool registered = [] {
    bool ok = PlatformRegisterInprocServer(CLSID_BrindletSource, BRINDLET_MODULE_PATH) == S_OK;
    for (const CLSID& clsid : AllPageClsids()) {
      ok = PlatformRegisterInprocServer(clsid, BRINDLET_MODULE_PATH) == S_OK && ok;
    }
    return ok;
  }();
  ASSERT_TRUE(registered) << "the module " << BRINDLET_MODULE_PATH << " could not be registered";
}

std::vector<CLSID> AllPageClsids() {
  return {CLSID_ProgramInfoPage, CLSID_H264AnalyzerPage, CLSID_PidInfoPage, CLSID_ProgramsPage, CLSID_AboutPage};
}

// ---- CRecordingPageSite ----

STDMETHODIMP CRecordingPageSite::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IUnknown || riid == IID_IPropertyPageSite) {
    *ppv = static_cast<IPropertyPageSite*>(this);
    AddRef();
    return S_OK;
  }
  *ppv = nullptr;
  return E_NOINTERFACE;
}

STDMETHODIMP CRecordingPageSite::OnStatusChange(DWORD flags) {
  std::lock_guard<std::mutex> lock(m_Lock);
  m_Statuses.push_back(flags);
  return S_OK;
}

STDMETHODIMP CRecordingPageSite::GetLocaleID(LCID* locale) {
  if (locale == nullptr) return E_POINTER;
  *locale = 0x0409;
  return S_OK;
}

STDMETHODIMP CRecordingPageSite::GetPageContainer(IUnknown** container) {
  if (container != nullptr) *container = nullptr;
  return E_NOTIMPL;
}

std::vector<DWORD> CRecordingPageSite::Statuses() const {
  std::lock_guard<std::mutex> lock(m_Lock);
  return m_Statuses;
}

void CRecordingPageSite::ClearStatuses() {
  std::lock_guard<std::mutex> lock(m_Lock);
  m_Statuses.clear();
}

// ---- CModuleFilter ----

CModuleFilter::CModuleFilter() {
  RegisterModuleForProcess();
  const HRESULT hr =
      CoCreateInstance(CLSID_BrindletSource, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter, m_Filter.PutVoid());
  EXPECT_EQ(hr, S_OK) << PlatformLastLoadError();
}

HRESULT CModuleFilter::Load(const std::filesystem::path& path) {
  if (!m_Filter) return E_UNEXPECTED;
  ComPtr<IFileSourceFilter> source;
  const HRESULT hr = m_Filter->QueryInterface(IID_IFileSourceFilter, source.PutVoid());
  if (FAILED(hr)) return hr;
  return source->Load(AnsiToWide(path.string()).c_str(), nullptr);
}

std::string CModuleFilter::Query(const char* keyword) const {
  if (!m_Filter) return {};
  ComPtr<ITsStreamInfo> info;
  if (FAILED(m_Filter->QueryInterface(IID_ITsStreamInfo, info.PutVoid()))) return {};
  LPWSTR text = nullptr;
  if (FAILED(info->QueryText(AnsiToWide(keyword).c_str(), &text)) || text == nullptr) return {};
  std::string answer = WideToAnsi(text);
  CoTaskMemFree(text);
  return answer;
}

// ---- CPageHarness ----

CPageHarness::CPageHarness(REFCLSID clsid) {
  RegisterModuleForProcess();
  m_Created = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IPropertyPage, m_Page.PutVoid());
  if (FAILED(m_Created)) return;
  EXPECT_EQ(m_Page->SetPageSite(&m_Site), S_OK);
}

CPageHarness::~CPageHarness() {
  if (m_Page) {
    if (m_Active) m_Page->Deactivate();
    if (m_Connected) m_Page->SetObjects(0, nullptr);
    m_Page->SetPageSite(nullptr);
    m_Page.Reset();
  }
  if (m_Frame != nullptr) DestroyWindow(m_Frame);
  EXPECT_EQ(m_Site.References(), 0u) << "the page kept its site";
}

HRESULT CPageHarness::Connect(IUnknown* object) {
  if (!m_Page) return m_Created;
  const HRESULT hr = object != nullptr ? m_Page->SetObjects(1, &object) : m_Page->SetObjects(0, nullptr);
  m_Connected = object != nullptr && SUCCEEDED(hr);
  return hr;
}

HRESULT CPageHarness::Activate() {
  if (!m_Page) return m_Created;
  if (m_Frame == nullptr) {
    m_Frame = CreateWindowExA(0, "#32770", "Properties", WS_VISIBLE, 0, 0, 400, 400, nullptr, nullptr, nullptr,
                              nullptr);
    if (m_Frame == nullptr) return E_FAIL;
  }
  const RECT rect{0, 0, 400, 400};
  const HRESULT hr = m_Page->Activate(m_Frame, &rect, TRUE);
  m_Active = SUCCEEDED(hr);
  return hr;
}

HRESULT CPageHarness::Deactivate() {
  if (!m_Page) return m_Created;
  m_Active = false;
  return m_Page->Deactivate();
}

HRESULT CPageHarness::Open(IUnknown* object) {
  const HRESULT hr = Connect(object);
  if (FAILED(hr)) return hr;
  return Activate();
}

HWND CPageHarness::Dialog() const {
  if (m_Frame == nullptr) return nullptr;
  for (HWND child : PlatformChildWindows(m_Frame)) {
    if (WindowState(child).kind == PlatformControlKind::kDialog) return child;
  }
  return nullptr;
}

HWND CPageHarness::Control(int id) const {
  HWND dialog = Dialog();
  return dialog != nullptr ? GetDlgItem(dialog, id) : nullptr;
}

// ---- Readers ----

PlatformWindowState WindowState(HWND window) {
  PlatformWindowState state;
  if (!PlatformGetWindowState(window, &state)) state.window = nullptr;
  return state;
}

PlatformWindowState ControlState(HWND dialog, int id) {
  HWND control = dialog != nullptr ? GetDlgItem(dialog, id) : nullptr;
  EXPECT_NE(control, nullptr) << "no control " << id;
  return WindowState(control);
}

std::string ControlText(HWND dialog, int id) { return ControlState(dialog, id).text; }
UINT CheckState(HWND dialog, int id) { return ControlState(dialog, id).check; }
std::vector<std::string> ListItems(HWND dialog, int id) { return ControlState(dialog, id).items; }
std::vector<LPARAM> ListItemData(HWND dialog, int id) { return ControlState(dialog, id).itemData; }
int ListSelection(HWND dialog, int id) { return ControlState(dialog, id).selected; }
std::vector<PlatformListColumn> ListViewColumns(HWND dialog, int id) { return ControlState(dialog, id).columns; }
std::vector<std::vector<std::string>> ListViewRows(HWND dialog, int id) { return ControlState(dialog, id).rows; }

std::filesystem::path BundledSample() {
  return std::filesystem::path(BRINDLET_SOURCE_DIR) / "samples" / "mpeg2-mp2-ac3.ts";
}

std::filesystem::path SharedSample(const std::string& name) {
  const std::filesystem::path path = std::filesystem::path(BRINDLET_SHARED_SAMPLES) / name;
  std::error_code error;
  return std::filesystem::is_regular_file(path, error) ? path : std::filesystem::path();
}

}  // namespace pages
