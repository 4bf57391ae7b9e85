#include "pages/program_info_page.h"

#include <cstdio>
#include <cstring>
#include <iterator>

#include "control/settings_store.h"
#include "platform/com/com_memory.h"
#include "platform/graph/strmif.h"
#include "platform/win32/codepage.h"
#include "platform/win32/registry.h"
#include "platform/window/commctrl.h"
#include "registration/file_types.h"

namespace {

constexpr int kDialog = 105;
constexpr int kTitle = 101;

constexpr int kVideoPid = 1001;
constexpr int kVideoType = 1002;
constexpr int kVideoFormat = 1003;
constexpr int kAudioPid = 1004;
constexpr int kAudioType = 1005;
constexpr int kAudioFormat = 1006;
constexpr int kPrograms = 1007;
constexpr int kPatVersion = 1008;
constexpr int kTransportStreamId = 1009;
constexpr int kExtensions = 1012;
constexpr int kAudioTracks = 1015;
constexpr int kVideoSize = 1016;
constexpr int kFrameRate = 1017;
constexpr int kAspectRatio = 1018;
constexpr int kVideoPts = 1022;
constexpr int kPrefDemux = 1023;

constexpr UINT_PTR kProgramsTimer = 1;  // waits for a program table
constexpr UINT_PTR kPtsTimer = 2;       // moves the PTS label
constexpr UINT kTimerPeriod = 1000;

struct CheckSetting {
  int control;
  const char* name;
};
// In the order Apply stores them; "PrefDemux" follows them.
constexpr CheckSetting kChecks[] = {
    {1011, "AC3"},       {1027, "Audio2"},    {1013, "AutoSelect"}, {1014, "AllowGraphEdit"},
    {1019, "PCRClock"},  {1020, "DetLength"}, {1024, "IgnoreCRC"},  {1025, "FastSeeking"},
};
constexpr char kPrefDemuxName[] = "PrefDemux";
constexpr char kExtensionsName[] = "Extensions";
constexpr char kRegisteredName[] = "RegisteredExtensions";

constexpr const char* kDemuxItems[] = {"Any Push Demux", "MPEG-2 Demultiplexer", "NVIDIA HDTV Demux",
                                       "(not yet implemented)"};

constexpr DWORD kTextLimit = 256;  // bytes of a stored list, its zero included

DWORD DefaultNumber(const char* name) {
  const SettingDefinition* definition = FindSetting(name);
  return definition != nullptr ? definition->defaultNumber : 0;
}

// A number queried into a 4-byte buffer preset to its default.
DWORD QueryNumber(HKEY key, const char* name) {
  DWORD value = DefaultNumber(name);
  if (key == nullptr) return value;
  DWORD size = sizeof value;
  BYTE buffer[sizeof value];
  std::memcpy(buffer, &value, sizeof value);
  if (RegQueryValueExA(key, name, nullptr, nullptr, buffer, &size) == ERROR_SUCCESS) {
    std::memcpy(&value, buffer, sizeof value);
  }
  return value;
}

// A text of at most 255 characters into `text`, which holds kTextLimit bytes
// and keeps its default when the value is missing or longer.
void QueryString(HKEY key, const char* name, char* text) {
  if (key == nullptr) return;
  char buffer[kTextLimit] = {};
  DWORD size = sizeof buffer;
  if (RegQueryValueExA(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(buffer), &size) != ERROR_SUCCESS) {
    return;
  }
  buffer[kTextLimit - 1] = '\0';  // the stored bytes need not end in a zero
  std::memcpy(text, buffer, kTextLimit);
}

void WriteNumber(HKEY key, const char* name, DWORD value) {
  RegSetValueExA(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value);
}

void WriteText(HKEY key, const char* name, const char* text) {
  RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text), static_cast<DWORD>(std::strlen(text) + 1));
}

const char* VideoFormatName(BYTE type, DWORD index) {
  switch (type) {
    case 1: return "11172-2 Video";
    case 2: return "13818-2 Video";
    case 27: return "14496-10 Video H.264";
    // The first stream of a program is taken for video whatever its type,
    // as the filter does for a file without a PMT.
    default: return index == 0 ? "Video" : nullptr;
  }
}

}  // namespace

CUnknown* CProgramInfoPage::CreateInstance(IUnknown* outer, HRESULT* result) {
  auto* page = new (std::nothrow) CProgramInfoPage(outer);
  if (result != nullptr) *result = page != nullptr ? S_OK : E_OUTOFMEMORY;
  return page;
}

CProgramInfoPage::CProgramInfoPage(IUnknown* outer)
    : CStreamInfoPage("Program Info Page", outer, kDialog, kTitle, "/html/prop_page.htm") {}

HRESULT CProgramInfoPage::OnConnect(IUnknown* object) {
  const HRESULT hr = CStreamInfoPage::OnConnect(object);
  if (FAILED(hr)) return hr;
  m_pInfo->GetTransportStreamId(&m_TransportStreamId);
  m_pInfo->GetPatVersion(&m_PatVersion);
  DWORD count = 0;
  m_pInfo->GetProgramCount(&count);
  m_ProgramCount = static_cast<LONG>(count);
  return hr;
}

INT_PTR CProgramInfoPage::OnReceiveMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case WM_INITDIALOG:
      Open(window);
      return TRUE;
    case WM_TIMER:
      return OnTimer(window, wParam, lParam);
    case WM_COMMAND:
      return OnCommand(window, wParam, lParam);
    case WM_DESTROY:
      // Timer 1 may still run; it ends with the window.
      KillTimer(m_hwnd, kPtsTimer);
      OnSharedMessage(message, wParam);
      return TRUE;
    default:
      return CBasePropertyPage::OnReceiveMessage(window, message, wParam, lParam);
  }
}

void CProgramInfoPage::ReadSettings() {
  HKEY key = nullptr;
  if (RegCreateKeyA(HKEY_CURRENT_USER, kSettingsKey, &key) != ERROR_SUCCESS) key = nullptr;
  DWORD checks[std::size(kChecks)] = {};
  for (std::size_t i = 0; i < std::size(kChecks); ++i) checks[i] = QueryNumber(key, kChecks[i].name);
  const DWORD prefDemux = QueryNumber(key, kPrefDemuxName);
  char extensions[kTextLimit] = {};
  std::snprintf(extensions, sizeof extensions, "%s", FindSetting(kExtensionsName)->defaultText);
  QueryString(key, kExtensionsName, extensions);
  std::memset(m_RegisteredExtensions, 0, sizeof m_RegisteredExtensions);
  QueryString(key, kRegisteredName, m_RegisteredExtensions);
  if (key != nullptr) RegCloseKey(key);

  for (std::size_t i = 0; i < std::size(kChecks); ++i) {
    CheckDlgButton(m_hwnd, kChecks[i].control, checks[i] != 0 ? BST_CHECKED : BST_UNCHECKED);
  }
  SendDlgItemMessageA(m_hwnd, kPrefDemux, CB_RESETCONTENT, 0, 0);
  SetDlgItemTextA(m_hwnd, kExtensions, extensions);
  for (const char* item : kDemuxItems) {
    SendDlgItemMessageA(m_hwnd, kPrefDemux, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(item));
  }
  // A stored number beyond the list selects nothing.
  SendDlgItemMessageA(m_hwnd, kPrefDemux, CB_SETCURSEL, static_cast<WPARAM>(prefDemux), 0);
}

void CProgramInfoPage::Open(HWND window) {
  OpenHelpLink(window);
  m_Opening = true;
  ReadSettings();
  SendDlgItemMessageA(window, kPrograms, LB_RESETCONTENT, 0, 0);
  m_Opening = false;

  if (m_ProgramCount == 0 || m_pInfo == nullptr) {
    // No program table yet: timer 1 watches for one, and the programs show
    // at the page's next opening.
    SendDlgItemMessageA(window, kPrograms, LB_ADDSTRING, 0, reinterpret_cast<LPARAM>("No PMT found"));
    SetTimer(window, kProgramsTimer, kTimerPeriod, nullptr);
    return;
  }
  for (LONG index = 0; index < m_ProgramCount; ++index) {
    WORD number = 0;
    m_pInfo->GetProgramNumber(index, &number);
    WORD streams = 0;
    m_pInfo->GetStreamCount(number, &streams);
    if (streams == 0) continue;
    char keyword[32];
    std::snprintf(keyword, sizeof keyword, "GETNAME(%d)", number);
    const LRESULT item = SendDlgItemMessageA(window, kPrograms, LB_ADDSTRING, 0,
                                             reinterpret_cast<LPARAM>(QueryPageText(m_pInfo, keyword).c_str()));
    if (item == LB_ERR) continue;
    SendDlgItemMessageA(window, kPrograms, LB_SETITEMDATA, static_cast<WPARAM>(item), number);
    SendDlgItemMessageA(window, kPrograms, LB_SETCURSEL, static_cast<WPARAM>(item), 0);
    ShowProgram(number);
  }
  char text[16];
  std::snprintf(text, sizeof text, "%d", m_PatVersion);
  SetDlgItemTextA(window, kPatVersion, text);
  std::snprintf(text, sizeof text, "%d", m_TransportStreamId);
  SetDlgItemTextA(window, kTransportStreamId, text);
  SetTimer(window, kPtsTimer, kTimerPeriod, nullptr);
}

void CProgramInfoPage::ShowProgram(WORD number) {
  for (const int id : {kVideoFormat, kVideoType, kVideoPid, kVideoSize, kFrameRate, kAspectRatio}) {
    SetDlgItemTextA(m_hwnd, id, "");
  }
  if (m_pInfo == nullptr) return;
  WORD streams = 0;
  m_pInfo->GetStreamCount(number, &streams);
  // Every video stream is shown in turn, so the last one stands.
  for (DWORD index = 0; index < streams; ++index) {
    BYTE type = 0;
    WORD pid = 0;
    m_pInfo->GetStreamType(number, index, &type);
    m_pInfo->GetStreamPid(number, index, &pid);
    const char* format = VideoFormatName(type, index);
    if (format == nullptr) continue;
    char text[32];
    SetDlgItemTextA(m_hwnd, kVideoFormat, format);
    std::snprintf(text, sizeof text, "%02x", type);
    SetDlgItemTextA(m_hwnd, kVideoType, text);
    std::snprintf(text, sizeof text, "0x%04x (%d)", pid, pid);
    SetDlgItemTextA(m_hwnd, kVideoPid, text);
  }
  // One video analysis for the whole file, whichever program is shown.
  SetDlgItemQuery(m_hwnd, kVideoSize, m_pInfo, "VIDEOSIZE");
  SetDlgItemQuery(m_hwnd, kFrameRate, m_pInfo, "FRAMERATE");
  SetDlgItemQuery(m_hwnd, kAspectRatio, m_pInfo, "ASPECTRATIO");

  SendDlgItemMessageA(m_hwnd, kAudioTracks, LB_RESETCONTENT, 0, 0);
  IAMStreamSelect* select = nullptr;
  if (FAILED(m_pInfo->QueryInterface(IID_IAMStreamSelect, reinterpret_cast<void**>(&select))) || select == nullptr) {
    return;
  }
  DWORD tracks = 0;
  select->Count(&tracks);
  for (DWORD index = 0; index < tracks; ++index) {
    DWORD flags = 0;
    LPWSTR name = nullptr;
    select->Info(static_cast<LONG>(index), nullptr, &flags, nullptr, nullptr, &name, nullptr, nullptr);
    char narrow[255] = {};
    if (name != nullptr) {
      WideCharToMultiByte(GetACP(), 0, name, -1, narrow, static_cast<int>(sizeof narrow), nullptr, nullptr);
      narrow[sizeof narrow - 1] = '\0';
      CoTaskMemFree(name);
    }
    // Items stay one to a track, even a nameless one: the item index is the track's.
    SendDlgItemMessageA(m_hwnd, kAudioTracks, LB_ADDSTRING, 0, reinterpret_cast<LPARAM>(narrow));
    if ((flags & AMSTREAMSELECTINFO_ENABLED) != 0) {
      SendDlgItemMessageA(m_hwnd, kAudioTracks, LB_SETCURSEL, index, 0);
      ShowAudio(static_cast<int>(index), false);
    }
  }
  select->Release();
}

void CProgramInfoPage::ShowAudio(int index, bool enable) {
  for (const int id : {kAudioFormat, kAudioType, kAudioPid}) SetDlgItemTextA(m_hwnd, id, "");
  if (m_pInfo == nullptr) return;
  if (enable) {
    IAMStreamSelect* select = nullptr;
    if (SUCCEEDED(m_pInfo->QueryInterface(IID_IAMStreamSelect, reinterpret_cast<void**>(&select))) &&
        select != nullptr) {
      // A refusal shows itself: the labels below keep the filter's track.
      select->Enable(index, AMSTREAMSELECTENABLE_ENABLE);
      select->Release();
    }
  }
  SetDlgItemQuery(m_hwnd, kAudioPid, m_pInfo, "AUDIOPID");
  SetDlgItemQuery(m_hwnd, kAudioFormat, m_pInfo, "AUDIOFORMAT");
  SetDlgItemQuery(m_hwnd, kAudioType, m_pInfo, "AUDIOTYPE");
}

INT_PTR CProgramInfoPage::OnTimer(HWND window, WPARAM wParam, LPARAM lParam) {
  if (wParam == kProgramsTimer) {
    if (m_pInfo != nullptr) {
      DWORD count = static_cast<DWORD>(m_ProgramCount);
      m_pInfo->GetProgramCount(&count);
      m_ProgramCount = static_cast<LONG>(count);
    }
    if (m_ProgramCount > 0) KillTimer(window, kProgramsTimer);
    return TRUE;
  }
  if (wParam == kPtsTimer) {
    SetDlgItemQuery(window, kVideoPts, m_pInfo, "VIDEOPTS");
    return TRUE;
  }
  return CBasePropertyPage::OnReceiveMessage(window, WM_TIMER, wParam, lParam);
}

INT_PTR CProgramInfoPage::OnCommand(HWND window, WPARAM wParam, LPARAM lParam) {
  const int id = LOWORD(wParam);
  const WORD code = HIWORD(wParam);
  switch (id) {
    case kPrograms:
      if (code == LBN_SELCHANGE) {
        const LRESULT item = SendDlgItemMessageA(window, kPrograms, LB_GETCURSEL, 0, 0);
        if (item != LB_ERR) {
          ShowProgram(static_cast<WORD>(SendDlgItemMessageA(window, kPrograms, LB_GETITEMDATA, item, 0)));
        }
        return TRUE;
      }
      break;
    case kAudioTracks:
      if (code == LBN_SELCHANGE) {
        const LRESULT item = SendDlgItemMessageA(window, kAudioTracks, LB_GETCURSEL, 0, 0);
        if (item != LB_ERR) ShowAudio(static_cast<int>(item), true);
        return TRUE;
      }
      break;
    case kExtensions:
      if (code == EN_CHANGE) return MarkDirty(window, wParam, lParam);
      break;
    case kPrefDemux:
      if (code == CBN_SELCHANGE) return MarkDirty(window, wParam, lParam);
      break;
    default:
      for (const CheckSetting& check : kChecks) {
        if (id == check.control && code == BN_CLICKED) return MarkDirty(window, wParam, lParam);
      }
      if (OnSharedMessage(WM_COMMAND, wParam)) return TRUE;
      break;
  }
  return CBasePropertyPage::OnReceiveMessage(window, WM_COMMAND, wParam, lParam);
}

INT_PTR CProgramInfoPage::MarkDirty(HWND window, WPARAM wParam, LPARAM lParam) {
  if (m_Opening) return CBasePropertyPage::OnReceiveMessage(window, WM_COMMAND, wParam, lParam);
  m_bDirty = true;
  if (m_pPageSite != nullptr) m_pPageSite->OnStatusChange(PROPPAGESTATUS_DIRTY);
  return TRUE;
}

HRESULT CProgramInfoPage::OnApplyChanges() {
  DWORD checks[std::size(kChecks)] = {};
  bool anySet = false;
  for (std::size_t i = 0; i < std::size(kChecks); ++i) {
    checks[i] = IsDlgButtonChecked(m_hwnd, kChecks[i].control);
    anySet = anySet || checks[i] != 0;
  }
  // No selection reads as CB_ERR and is stored as such.
  const DWORD prefDemux = static_cast<DWORD>(SendDlgItemMessageA(m_hwnd, kPrefDemux, CB_GETCURSEL, 0, 0));
  char extensions[kTextLimit] = {};
  GetDlgItemTextA(m_hwnd, kExtensions, extensions, static_cast<int>(sizeof extensions));
  extensions[kTextLimit - 1] = '\0';

  // All zero is what a page whose controls have gone reads; storing that
  // would wipe the user's settings, so it counts as applied and stores
  // nothing.
  if (!anySet && prefDemux == 0) return S_OK;

  HKEY key = nullptr;
  if (RegCreateKeyA(HKEY_CURRENT_USER, kSettingsKey, &key) == ERROR_SUCCESS) {
    for (std::size_t i = 0; i < std::size(kChecks); ++i) WriteNumber(key, kChecks[i].name, checks[i]);
    WriteNumber(key, kPrefDemuxName, prefDemux);
    WriteText(key, kExtensionsName, extensions);
    if (std::strcmp(extensions, m_RegisteredExtensions) != 0) {
      ApplyExtensionList(m_RegisteredExtensions, false);
      ApplyExtensionList(extensions, true);
      WriteText(key, kRegisteredName, extensions);
      std::memcpy(m_RegisteredExtensions, extensions, sizeof m_RegisteredExtensions);
    }
    RegCloseKey(key);
  }
  m_bDirty = false;
  if (m_pPageSite != nullptr) m_pPageSite->OnStatusChange(PROPPAGESTATUS_VALIDATE);
  return S_OK;
}
