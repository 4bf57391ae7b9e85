#include "host/property_page.h"

#include "platform/com/com_memory.h"
#include "platform/win32/codepage.h"
#include "platform/win32/resources.h"

HINSTANCE g_hInst = nullptr;

namespace {

// Long enough for any page title of the string table.
constexpr int kMaxTitle = 256;

// The size a frame falls back on when the template can't be measured.
constexpr LONG kDefaultPageWidth = 340;
constexpr LONG kDefaultPageHeight = 150;

// The dialog's size in pixels as the window layer lays it out, measured on
// a copy made only for that and thrown away at once; the procedure sees
// lParam 0 and leaves the page alone.
bool MeasureDialog(int dialogId, DLGPROC proc, SIZE* size) {
  HWND dialog = CreateDialogParamA(g_hInst, MAKEINTRESOURCEA(dialogId), GetDesktopWindow(), proc, 0);
  if (dialog == nullptr) return false;
  RECT rect{};
  const bool measured = GetWindowRect(dialog, &rect) != FALSE;
  DestroyWindow(dialog);
  if (!measured) return false;
  size->cx = rect.right - rect.left;
  size->cy = rect.bottom - rect.top;
  return true;
}

// The string `id` of the module, widened by the ANSI code page into task
// memory for the frame to free.
HRESULT WideResourceString(int id, LPOLESTR* out) {
  char narrow[kMaxTitle] = {};
  LoadStringA(g_hInst, static_cast<UINT>(id), narrow, kMaxTitle);
  const int chars = MultiByteToWideChar(CP_ACP, 0, narrow, -1, nullptr, 0);
  if (chars <= 0) return E_FAIL;
  auto* wide = static_cast<LPOLESTR>(CoTaskMemAlloc(static_cast<SIZE_T>(chars) * sizeof(WCHAR)));
  if (wide == nullptr) return E_OUTOFMEMORY;
  if (MultiByteToWideChar(CP_ACP, 0, narrow, -1, wide, chars) != chars) {
    CoTaskMemFree(wide);
    return E_FAIL;
  }
  *out = wide;
  return S_OK;
}

}  // namespace

CBasePropertyPage::CBasePropertyPage(const char* name, IUnknown* outer, int dialogId, int titleId)
    : CUnknown(name, outer), m_DialogId(dialogId), m_TitleId(titleId) {}

CBasePropertyPage::~CBasePropertyPage() {
  // A frame that never took its site back leaves it to us.
  if (m_pPageSite != nullptr) m_pPageSite->Release();
  m_pPageSite = nullptr;
}

STDMETHODIMP CBasePropertyPage::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IPropertyPage) return GetInterface(static_cast<IPropertyPage*>(this), ppv);
  return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

STDMETHODIMP_(ULONG) CBasePropertyPage::NonDelegatingRelease() {
  // Before the last reference goes, the page lets go of its site and its
  // objects while its own hooks can still run; the extra reference taken to
  // find out keeps the object alive through them.
  if (NonDelegatingAddRef() == 2) {
    if (m_pPageSite != nullptr) SetPageSite(nullptr);
    if (m_bObjectSet) SetObjects(0, nullptr);
  }
  CUnknown::NonDelegatingRelease();
  return CUnknown::NonDelegatingRelease();
}

HRESULT CBasePropertyPage::OnConnect(IUnknown*) { return S_OK; }
HRESULT CBasePropertyPage::OnDisconnect() { return S_OK; }
HRESULT CBasePropertyPage::OnActivate() { return S_OK; }
HRESULT CBasePropertyPage::OnDeactivate() { return S_OK; }
HRESULT CBasePropertyPage::OnApplyChanges() { return S_OK; }
INT_PTR CBasePropertyPage::OnReceiveMessage(HWND, UINT, WPARAM, LPARAM) { return 0; }

STDMETHODIMP CBasePropertyPage::SetPageSite(IPropertyPageSite* site) {
  if (site != nullptr) {
    if (m_pPageSite != nullptr) return E_UNEXPECTED;
    m_pPageSite = site;
    m_pPageSite->AddRef();
    return S_OK;
  }
  if (m_pPageSite == nullptr) return E_UNEXPECTED;
  m_pPageSite->Release();
  m_pPageSite = nullptr;
  return S_OK;
}

STDMETHODIMP CBasePropertyPage::SetObjects(ULONG count, IUnknown** objects) {
  if (count == 1) {
    if (objects == nullptr || objects[0] == nullptr) return E_POINTER;
    const HRESULT hr = OnConnect(objects[0]);
    // A page whose object was refused can't be activated.
    m_bObjectSet = SUCCEEDED(hr);
    return hr;
  }
  if (count == 0) {
    m_bObjectSet = false;
    return OnDisconnect();
  }
  // A page shows one filter, never a selection of several.
  return E_UNEXPECTED;
}

STDMETHODIMP CBasePropertyPage::GetPageInfo(PROPPAGEINFO* info) {
  if (info == nullptr) return E_POINTER;
  LPOLESTR title = nullptr;
  const HRESULT hr = WideResourceString(m_TitleId, &title);
  if (FAILED(hr)) return E_OUTOFMEMORY;
  info->cb = sizeof(PROPPAGEINFO);
  info->pszTitle = title;
  info->pszDocString = nullptr;
  info->pszHelpFile = nullptr;
  info->dwHelpContext = 0;
  info->size.cx = kDefaultPageWidth;
  info->size.cy = kDefaultPageHeight;
  MeasureDialog(m_DialogId, DialogProc, &info->size);
  return S_OK;
}

STDMETHODIMP CBasePropertyPage::Activate(HWND parent, LPCRECT rect, BOOL) {
  if (rect == nullptr) return E_POINTER;
  if (!m_bObjectSet) return E_UNEXPECTED;
  if (m_hwnd != nullptr) return E_UNEXPECTED;
  m_hwnd = CreateDialogParamA(g_hInst, MAKEINTRESOURCEA(m_DialogId), parent, DialogProc,
                              reinterpret_cast<LPARAM>(this));
  if (m_hwnd == nullptr) return E_OUTOFMEMORY;
  OnActivate();
  Move(rect);
  return Show(SW_SHOWNORMAL);
}

STDMETHODIMP CBasePropertyPage::Deactivate() {
  if (m_hwnd == nullptr) return E_UNEXPECTED;
  OnDeactivate();
  // The page's own WM_DESTROY may clear m_hwnd while the window goes.
  HWND dialog = m_hwnd;
  DestroyWindow(dialog);
  m_hwnd = nullptr;
  m_Dlg = nullptr;
  return S_OK;
}

STDMETHODIMP CBasePropertyPage::Show(UINT command) {
  if (m_hwnd == nullptr) return E_UNEXPECTED;
  if (command != static_cast<UINT>(SW_SHOW) && command != static_cast<UINT>(SW_SHOWNORMAL) &&
      command != static_cast<UINT>(SW_HIDE)) {
    return E_INVALIDARG;
  }
  ShowWindow(m_hwnd, static_cast<int>(command));
  InvalidateRect(m_hwnd, nullptr, TRUE);
  return S_OK;
}

STDMETHODIMP CBasePropertyPage::Move(LPCRECT rect) {
  if (rect == nullptr) return E_POINTER;
  if (m_hwnd == nullptr) return E_UNEXPECTED;
  MoveWindow(m_hwnd, rect->left, rect->top, rect->right - rect->left, rect->bottom - rect->top, TRUE);
  return S_OK;
}

STDMETHODIMP CBasePropertyPage::Apply() {
  if (!m_bObjectSet || m_pPageSite == nullptr) return E_UNEXPECTED;
  if (!m_bDirty) return S_OK;
  const HRESULT hr = OnApplyChanges();
  if (SUCCEEDED(hr)) m_bDirty = false;
  return hr;
}

INT_PTR CALLBACK CBasePropertyPage::DialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_INITDIALOG) {
    SetWindowLongPtrA(window, DWLP_USER, lParam);
    auto* page = reinterpret_cast<CBasePropertyPage*>(lParam);
    // No page: the copy that GetPageInfo measures.
    if (page == nullptr) return TRUE;
    page->m_Dlg = window;
    // The page's opening runs inside this message, before Activate has the
    // handle back from CreateDialogParamA.
    page->m_hwnd = window;
  }
  auto* page = reinterpret_cast<CBasePropertyPage*>(GetWindowLongPtrA(window, DWLP_USER));
  if (page == nullptr) return TRUE;
  return page->OnReceiveMessage(window, message, wParam, lParam);
}
