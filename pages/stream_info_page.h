// What the four pages that show the filter's findings share: the filter's
// ITsStreamInfo kept from OnConnect, the Help link in command mode with its
// topic, and the window's end.
#pragma once

#include <memory>
#include <new>
#include <string>

#include "control/ts_stream_info.h"
#include "host/hyperlink.h"
#include "host/property_page.h"
#include "pages/page_support.h"

inline constexpr int kHelpLinkId = 1026;

class CStreamInfoPage : public CBasePropertyPage {
 public:
  // Kept from OnConnect to the page object's end: a page can be opened
  // again after OnDisconnect and still needs the filter.
  ~CStreamInfoPage() override {
    if (m_pInfo != nullptr) m_pInfo->Release();
  }

  HRESULT OnConnect(IUnknown* object) override {
    if (object == nullptr) return E_POINTER;
    ITsStreamInfo* info = nullptr;
    if (FAILED(object->QueryInterface(IID_ITsStreamInfo, reinterpret_cast<void**>(&info))) || info == nullptr) {
      return E_NOINTERFACE;
    }
    if (m_pInfo != nullptr) m_pInfo->Release();
    m_pInfo = info;
    return S_OK;
  }

  // These pages save nothing; the site only hears that all is applied.
  HRESULT OnApplyChanges() override {
    m_bDirty = false;
    if (m_pPageSite != nullptr) m_pPageSite->OnStatusChange(PROPPAGESTATUS_VALIDATE);
    return S_OK;
  }

 protected:
  CStreamInfoPage(const char* name, IUnknown* outer, int dialogId, int titleId, const char* helpTopic)
      : CBasePropertyPage(name, outer, dialogId, titleId), m_HelpTopic(helpTopic) {}

  // The opening's first step on every page: the label becomes the Help
  // link, and the help file is looked up afresh, since the module may have
  // been registered elsewhere since the last opening.
  void OpenHelpLink(HWND window) {
    m_hwnd = window;
    m_Hyperlink.reset(new (std::nothrow) CHyperlink());
    if (m_Hyperlink) m_Hyperlink->ConvertStaticToHyperlink(window, kHelpLinkId);
    m_HelpFile = FindHelpFile();
  }

  // The Help command and the window's end, alike on every page; true when
  // the message was one of them.
  bool OnSharedMessage(UINT message, WPARAM wParam) {
    if (message == WM_COMMAND && LOWORD(wParam) == kHelpLinkId && HIWORD(wParam) == 0) {
      ShowHelpTopic(m_hwnd, m_HelpFile, m_HelpTopic);
      return true;
    }
    if (message == WM_DESTROY) {
      m_Hyperlink.reset();
      m_hwnd = nullptr;
      return true;
    }
    return false;
  }

  ITsStreamInfo* m_pInfo = nullptr;
  std::unique_ptr<CHyperlink> m_Hyperlink;  // while the window is open
  std::string m_HelpFile;

 private:
  const char* const m_HelpTopic;
};
