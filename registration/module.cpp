// The module Brindlet.ax: its class table and the five exports that make it
// an in-process server that registers itself.
#include <cstring>
#include <string>

#include "control/brindlet_ids.h"
#include "control/settings_store.h"
#include "delivery/ts_source_filter.h"
#include "host/dll_setup.h"
#include "pages/about_page.h"
#include "pages/h264_analyzer_page.h"
#include "pages/pid_info_page.h"
#include "pages/program_info_page.h"
#include "pages/programs_page.h"
#include "platform/win32/registry.h"
#include "registration/file_types.h"

namespace {

CUnknown* CreateSourceFilter(IUnknown* outer, HRESULT* result) {
  return CTsSourceFilter::CreateInstance(outer, result);
}

const AMOVIESETUP_MEDIATYPE kOutputTypes[] = {
    {&MEDIATYPE_Stream, &MEDIASUBTYPE_MPEG2_TRANSPORT},
};

// The registered pin is "Output"; the running filter's pin has other names.
const AMOVIESETUP_PIN kPins[] = {
    {const_cast<LPWSTR>(L"Output"), FALSE, TRUE, FALSE, FALSE, &GUID_NULL, nullptr, 1, kOutputTypes},
};

// Found as the source of its file types, never picked to render a pin.
const AMOVIESETUP_FILTER kSourceSetup = {&CLSID_BrindletSource, L"Caldrovia Brindlet", MERIT_DO_NOT_USE, 1, kPins};

const CFactoryTemplate kClassTable[] = {
    {L"Caldrovia Brindlet", &CLSID_BrindletSource, CreateSourceFilter, nullptr, &kSourceSetup},
    {L"Program Info Page", &CLSID_ProgramInfoPage, CProgramInfoPage::CreateInstance, nullptr, nullptr},
    {L"H.264 Analyzer Page", &CLSID_H264AnalyzerPage, CH264AnalyzerPage::CreateInstance, nullptr, nullptr},
    {L"PID Info Page", &CLSID_PidInfoPage, CPidInfoPage::CreateInstance, nullptr, nullptr},
    {L"Programs", &CLSID_ProgramsPage, CProgramsPage::CreateInstance, nullptr, nullptr},
    {L"About Page", &CLSID_AboutPage, CAboutPage::CreateInstance, nullptr, nullptr},
};

// "RegisteredExtensions" as it stands, at most 256 bytes; the key is only
// opened, so that unregistering leaves no empty settings key behind.
std::string StoredExtensionList() {
  HKEY key = nullptr;
  if (RegOpenKeyExA(HKEY_CURRENT_USER, kSettingsKey, 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS) return {};
  char buffer[256];
  DWORD size = sizeof buffer;
  const LONG error =
      RegQueryValueExA(key, "RegisteredExtensions", nullptr, nullptr, reinterpret_cast<BYTE*>(buffer), &size);
  RegCloseKey(key);
  if (error != ERROR_SUCCESS) return {};
  return std::string(buffer, strnlen(buffer, size));
}

}  // namespace

MODULE_EXPORT BOOL DllMain(HINSTANCE module, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    SetBrindletModule(module);
    g_hInst = module;
    DisableThreadLibraryCalls(module);
    RunInitRoutines(kClassTable, TRUE);
  } else if (reason == DLL_PROCESS_DETACH) {
    RunInitRoutines(kClassTable, FALSE);
  }
  return TRUE;
}

MODULE_EXPORT HRESULT DllGetClassObject(REFCLSID clsid, REFIID riid, LPVOID* ppv) {
  return GetClassObjectFromTable(kClassTable, clsid, riid, ppv);
}

MODULE_EXPORT HRESULT DllCanUnloadNow() { return CanUnloadNow(); }

MODULE_EXPORT HRESULT DllRegisterServer() {
  RegisterExtension(".ts", nullptr, true);
  RegisterExtension(".tp", "*.ts;*.tp", true);
  // Registering brings every setting back to its default.
  RegDeleteKeyA(HKEY_CURRENT_USER, kSettingsKey);
  return RegisterServer(kClassTable, BrindletModule(), TRUE);
}

MODULE_EXPORT HRESULT DllUnregisterServer() {
  RegisterExtension(".ts", nullptr, false);
  RegisterExtension(".tp", nullptr, false);
  for (const std::string& word : ExtensionWords(StoredExtensionList().c_str())) {
    RegisterExtension(word.c_str(), nullptr, false);
  }
  return RegisterServer(kClassTable, BrindletModule(), FALSE);
}
