// OleCreatePropertyFrame: the pages of some objects as one sheet, each page
// in a site of its own, with whoever plays the user (a host's real dialog,
// a tool, a test) driving the sheet through CPlatformPropertySheet.
#include <algorithm>
#include <atomic>
#include <mutex>

#include "platform/com/com_memory.h"
#include "platform/win32/codepage.h"
#include "platform/window/window_model.h"

namespace {

std::mutex g_HandlerLock;
PropertyFrameHandler g_Handler;  // guarded by g_HandlerLock

std::string Narrow(LPCOLESTR text) {
  if (text == nullptr) return {};
  const int bytes = WideCharToMultiByte(CP_ACP, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (bytes <= 1) return {};
  std::string out(static_cast<std::size_t>(bytes), '\0');
  WideCharToMultiByte(CP_ACP, 0, text, -1, out.data(), bytes, nullptr, nullptr);
  out.resize(static_cast<std::size_t>(bytes - 1));
  return out;
}

class CSheet;

// One page's site: it passes the page's status to the sheet.
class CPageSite final : public IPropertyPageSite {
 public:
  CPageSite(CSheet* sheet, LCID locale) : m_Sheet(sheet), m_Locale(locale) {}
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if (riid != IID_IUnknown && riid != IID_IPropertyPageSite) return E_NOINTERFACE;
    *ppv = static_cast<IPropertyPageSite*>(this);
    AddRef();
    return S_OK;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return ++m_Count; }
  STDMETHODIMP_(ULONG) Release() override {
    const ULONG count = --m_Count;
    if (count == 0) delete this;
    return count;
  }
  STDMETHODIMP OnStatusChange(DWORD flags) override;
  STDMETHODIMP GetLocaleID(LCID* locale) override {
    if (locale == nullptr) return E_POINTER;
    *locale = m_Locale;
    return S_OK;
  }
  STDMETHODIMP GetPageContainer(IUnknown** container) override {
    if (container != nullptr) *container = nullptr;
    return E_NOTIMPL;
  }
  STDMETHODIMP TranslateAccelerator(MSG*) override { return S_FALSE; }
  // The sheet is gone; a page that still holds the site talks to no one.
  void Detach() { m_Sheet = nullptr; }

 private:
  ~CPageSite() = default;
  CSheet* m_Sheet;
  LCID m_Locale;
  std::atomic<ULONG> m_Count{1};
};

class CSheet final : public CPlatformPropertySheet {
 public:
  struct Page {
    IPropertyPage* page = nullptr;
    CPageSite* site = nullptr;
    CLSID clsid{};
    std::string title;
    SIZE size{};
    HWND window = nullptr;
    bool active = false;
  };

  explicit CSheet(HWND frame) : m_Frame(frame) {}
  void Add(const Page& page) { m_Pages.push_back(page); }

  ULONG PageCount() const override { return static_cast<ULONG>(m_Pages.size()); }
  std::string PageTitle(ULONG index) const override { return index < m_Pages.size() ? m_Pages[index].title : ""; }
  SIZE PageSize(ULONG index) const override { return index < m_Pages.size() ? m_Pages[index].size : SIZE{}; }
  CLSID PageClsid(ULONG index) const override { return index < m_Pages.size() ? m_Pages[index].clsid : CLSID{}; }
  HWND FrameWindow() const override { return m_Frame; }
  HWND PageWindow(ULONG index) const override { return index < m_Pages.size() ? m_Pages[index].window : nullptr; }
  ULONG CurrentPage() const override { return m_Current; }

  HWND ShowPage(ULONG index) override {
    if (index >= m_Pages.size()) return nullptr;
    Page& page = m_Pages[index];
    if (!page.active) {
      const std::vector<HWND> before = PlatformChildWindows(m_Frame);
      const RECT rect{0, 0, page.size.cx, page.size.cy};
      if (FAILED(page.page->Activate(m_Frame, &rect, TRUE))) return nullptr;
      page.active = true;
      for (HWND child : PlatformChildWindows(m_Frame)) {
        if (std::find(before.begin(), before.end(), child) == before.end()) page.window = child;
      }
    }
    if (m_Current != index && m_Current < m_Pages.size() && m_Pages[m_Current].active) {
      m_Pages[m_Current].page->Show(SW_HIDE);
    }
    page.page->Show(SW_SHOW);
    m_Current = index;
    return page.window;
  }

  bool ApplyEnabled() const override { return m_Dirty; }

  HRESULT Apply() override {
    HRESULT result = S_OK;
    for (Page& page : m_Pages) {
      if (!page.active || page.page->IsPageDirty() != S_OK) continue;
      const HRESULT hr = page.page->Apply();
      if (FAILED(hr)) result = hr;
    }
    m_Dirty = false;
    for (Page& page : m_Pages) {
      if (page.active && page.page->IsPageDirty() == S_OK) m_Dirty = true;
    }
    Changed();
    return result;
  }

  void SetStatusListener(std::function<void()> listener) override { m_Listener = std::move(listener); }

  void OnStatus(DWORD flags) {
    if ((flags & PROPPAGESTATUS_DIRTY) != 0) m_Dirty = true;
    Changed();
  }

  // Deactivates and lets go of every page, and closes the frame.
  void Close() {
    for (Page& page : m_Pages) {
      if (page.active) page.page->Deactivate();
      page.active = false;
    }
    for (Page& page : m_Pages) {
      page.page->SetObjects(0, nullptr);
      page.page->SetPageSite(nullptr);
      page.site->Detach();
      page.site->Release();
      page.page->Release();
    }
    m_Pages.clear();
    DestroyWindow(m_Frame);
  }

 private:
  void Changed() {
    if (m_Listener) m_Listener();
  }

  HWND m_Frame;
  std::vector<Page> m_Pages;
  ULONG m_Current = static_cast<ULONG>(-1);
  bool m_Dirty = false;
  std::function<void()> m_Listener;
};

STDMETHODIMP CPageSite::OnStatusChange(DWORD flags) {
  if (m_Sheet != nullptr) m_Sheet->OnStatus(flags);
  return S_OK;
}

}  // namespace

PropertyFrameHandler SetPropertyFrameHandler(PropertyFrameHandler handler) {
  std::lock_guard<std::mutex> guard(g_HandlerLock);
  PropertyFrameHandler previous = std::move(g_Handler);
  g_Handler = std::move(handler);
  return previous;
}

STDAPI OleCreatePropertyFrame(HWND owner, UINT x, UINT y, LPCOLESTR caption, ULONG objectCount, IUnknown** objects,
                              ULONG pageCount, const CLSID* pages, LCID locale, DWORD, LPVOID) {
  if ((objectCount != 0 && objects == nullptr) || (pageCount != 0 && pages == nullptr)) return E_POINTER;
  HWND frame = CreateWindowExA(0, "#32770", Narrow(caption).c_str(), WS_POPUP | WS_CAPTION | WS_SYSMENU,
                               static_cast<int>(x), static_cast<int>(y), 0, 0, owner, nullptr, nullptr, nullptr);
  if (frame == nullptr) return E_OUTOFMEMORY;

  HRESULT firstFailure = S_OK;
  CSheet sheet(frame);
  for (ULONG i = 0; i < pageCount; ++i) {
    CSheet::Page page;
    page.clsid = pages[i];
    const HRESULT hr = CoCreateInstance(pages[i], nullptr, CLSCTX_INPROC_SERVER, IID_IPropertyPage,
                                        reinterpret_cast<void**>(&page.page));
    if (FAILED(hr) || page.page == nullptr) {
      if (SUCCEEDED(firstFailure)) firstFailure = FAILED(hr) ? hr : E_NOINTERFACE;
      continue;
    }
    page.site = new CPageSite(&sheet, locale);
    page.page->SetPageSite(page.site);
    page.page->SetObjects(objectCount, objects);
    PROPPAGEINFO info{};
    info.cb = sizeof info;
    if (SUCCEEDED(page.page->GetPageInfo(&info))) {
      page.title = Narrow(info.pszTitle);
      page.size = info.size;
      CoTaskMemFree(info.pszTitle);
      CoTaskMemFree(info.pszDocString);
      CoTaskMemFree(info.pszHelpFile);
    }
    sheet.Add(page);
  }
  if (sheet.PageCount() == 0 && pageCount != 0) {
    sheet.Close();
    return firstFailure;
  }
  PropertyFrameHandler handler;
  {
    std::lock_guard<std::mutex> guard(g_HandlerLock);
    handler = g_Handler;
  }
  if (handler) {
    handler(sheet);
  } else if (sheet.PageCount() != 0) {
    sheet.ShowPage(0);
  }
  sheet.Close();
  return S_OK;
}
