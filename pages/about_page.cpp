#include "pages/about_page.h"

#include <new>

namespace {

constexpr int kDialog = 106;
constexpr int kTitle = 102;
constexpr int kLinkLabel = 1026;
// The label shows the site's home address; following it opens the project
// page, which names the version that sent the visitor.
constexpr const char kProjectPage[] = "https://caldrovia.example/projects/brindlet/?ver=1.0.10";

}  // namespace

CUnknown* CAboutPage::CreateInstance(IUnknown* outer, HRESULT* result) {
  auto* page = new (std::nothrow) CAboutPage(outer);
  if (result != nullptr) *result = page != nullptr ? S_OK : E_OUTOFMEMORY;
  return page;
}

CAboutPage::CAboutPage(IUnknown* outer) : CBasePropertyPage("About Page", outer, kDialog, kTitle) {}

INT_PTR CAboutPage::OnReceiveMessage(HWND window, UINT message, WPARAM, LPARAM) {
  switch (message) {
    case WM_INITDIALOG:
      m_hwnd = window;
      m_Link.reset(new (std::nothrow) CHyperlink());
      if (m_Link != nullptr) {
        m_Link->ConvertStaticToHyperlink(window, kLinkLabel);
        m_Link->SetURL(kProjectPage);
      }
      return TRUE;
    case WM_DESTROY:
      m_Link.reset();
      m_hwnd = nullptr;
      return FALSE;
    default:
      return FALSE;
  }
}
