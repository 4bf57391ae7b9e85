// What the page tests share: the module registered for the process, pages
// and filters made through it, a page site that records what it is told, a
// page connected and activated in a container window, and readers of the
// controls as the window layer's model shows them.
#pragma once

#include <atomic>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "control/ts_stream_info.h"
#include "platform/com/com_ptr.h"
#include "platform/graph/strmif.h"
#include "platform/window/olectl.h"
#include "platform/window/window_model.h"

namespace pages {

// Maps the filter's and the five pages' class ids to the module for this
// process; idempotent, so every test may call it first.
void RegisterModuleForProcess();

// The five pages' class ids in the order the filter offers them.
std::vector<CLSID> AllPageClsids();

// A page site that counts its references and records every status change
// in order. It lives on the test's stack; it must outlive the pages that
// hold it, which the harness below ensures.
class CRecordingPageSite final : public IPropertyPageSite {
 public:
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
  STDMETHODIMP_(ULONG) AddRef() override { return ++m_Refs; }
  STDMETHODIMP_(ULONG) Release() override { return --m_Refs; }
  STDMETHODIMP OnStatusChange(DWORD flags) override;
  STDMETHODIMP GetLocaleID(LCID* locale) override;
  STDMETHODIMP GetPageContainer(IUnknown** container) override;
  STDMETHODIMP TranslateAccelerator(MSG*) override { return E_NOTIMPL; }

  std::vector<DWORD> Statuses() const;
  void ClearStatuses();
  ULONG References() const { return m_Refs; }

 private:
  std::atomic<ULONG> m_Refs{0};
  mutable std::mutex m_Lock;
  std::vector<DWORD> m_Statuses;
};

// The source filter made through the module (CoCreateInstance), as a host
// makes it.
class CModuleFilter {
 public:
  CModuleFilter();
  HRESULT Load(const std::filesystem::path& path);
  IUnknown* Unknown() const { return m_Filter.Get(); }
  IBaseFilter* Filter() const { return m_Filter.Get(); }
  // The answer to a text query, "" for no answer.
  std::string Query(const char* keyword) const;

 private:
  ComPtr<IBaseFilter> m_Filter;
};

// One page made by class id through the module, with a recording site, a
// plain container window as the frame and the page's dialog inside it. The
// destructor takes the page down as a frame does: Deactivate, no objects,
// no site, Release.
class CPageHarness {
 public:
  explicit CPageHarness(REFCLSID clsid);
  ~CPageHarness();
  CPageHarness(const CPageHarness&) = delete;
  CPageHarness& operator=(const CPageHarness&) = delete;

  HRESULT Created() const { return m_Created; }
  IPropertyPage* Page() const { return m_Page.Get(); }
  CRecordingPageSite& Site() { return m_Site; }
  HWND Frame() const { return m_Frame; }

  // SetObjects with `object`, or with no objects for null.
  HRESULT Connect(IUnknown* object);
  // Activates the page in the frame at (0, 0, 400, 400); the dialog is then
  // Dialog().
  HRESULT Activate();
  HRESULT Deactivate();
  // Connect and Activate; the second result when the first succeeded.
  HRESULT Open(IUnknown* object);
  // The page's dialog: the frame's child while the page is active.
  HWND Dialog() const;
  HWND Control(int id) const;

 private:
  CRecordingPageSite m_Site;
  ComPtr<IPropertyPage> m_Page;
  HRESULT m_Created = E_FAIL;
  HWND m_Frame = nullptr;
  bool m_Connected = false;
  bool m_Active = false;
};

// ---- Readers of what the controls show ----
PlatformWindowState WindowState(HWND window);
PlatformWindowState ControlState(HWND dialog, int id);
std::string ControlText(HWND dialog, int id);
UINT CheckState(HWND dialog, int id);
std::vector<std::string> ListItems(HWND dialog, int id);
std::vector<LPARAM> ListItemData(HWND dialog, int id);
int ListSelection(HWND dialog, int id);
std::vector<PlatformListColumn> ListViewColumns(HWND dialog, int id);
std::vector<std::vector<std::string>> ListViewRows(HWND dialog, int id);

// The bundled MPEG-2 sample of the source tree.
std::filesystem::path BundledSample();
// A file of the shared samples folder, or empty when it isn't there.
std::filesystem::path SharedSample(const std::string& name);

}  // namespace pages
