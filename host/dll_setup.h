// Self-registration of a module's class table: its classes under
// HKEY_CLASSES_ROOT\CLSID and its filters with the platform's filter mapper,
// the work behind a module's DllRegisterServer and DllUnregisterServer.
#pragma once

#include <span>

#include "host/class_factory.h"
#include "platform/graph/filter_mapper.h"

// The setup data that a row of a class table may carry for its filter.
using AMOVIESETUP_MEDIATYPE = REGPINTYPES;
using AMOVIESETUP_PIN = REGFILTERPINS;

struct AMOVIESETUP_FILTER {
  const CLSID* clsID;
  const WCHAR* strName;
  DWORD dwMerit;
  UINT nPins;
  const AMOVIESETUP_PIN* lpPin;
};

// For each row: with `add`, HKEY_CLASSES_ROOT\CLSID\{clsid} gets the row's
// name, and its InprocServer32 the module's path and ThreadingModel "Both";
// the first key that cannot be made ends the loop with
// HRESULT_FROM_WIN32 of the registry's error. Without `add`, the key goes
// with everything under it, from the bottom up; a key that is not there is
// no failure.
HRESULT RegisterClasses(std::span<const CFactoryTemplate> table, LPCWSTR path, BOOL add);

// The whole registration of a module: its path, the classes when adding,
// then every row with setup data taken out of the filter mapper and, when
// adding, entered again (IFilterMapper2, else the older IFilterMapper);
// the classes go last when removing. A mapper that has no such filter is
// no failure, so registering on a clean machine and unregistering twice
// both succeed.
HRESULT RegisterServer(std::span<const CFactoryTemplate> table, HINSTANCE module, BOOL add);

// The five exports of a module that only serves and registers its class
// table: DllMain keeps the module's handle and runs the table's hooks,
// DllGetClassObject and DllCanUnloadNow serve it, DllRegisterServer and
// DllUnregisterServer are RegisterServer.
#define DEFINE_SELF_REGISTERING_MODULE(table)                                         \
  namespace {                                                                         \
  HINSTANCE g_SetupModule = nullptr;                                                  \
  }                                                                                   \
  MODULE_EXPORT BOOL DllMain(HINSTANCE module, DWORD reason, LPVOID) {                \
    if (reason == DLL_PROCESS_ATTACH) {                                               \
      g_SetupModule = module;                                                         \
      RunInitRoutines(table, TRUE);                                                   \
    }                                                                                 \
    if (reason == DLL_PROCESS_DETACH) RunInitRoutines(table, FALSE);                  \
    return TRUE;                                                                      \
  }                                                                                   \
  MODULE_EXPORT HRESULT DllGetClassObject(REFCLSID clsid, REFIID riid, LPVOID* ppv) { \
    return GetClassObjectFromTable(table, clsid, riid, ppv);                          \
  }                                                                                   \
  MODULE_EXPORT HRESULT DllCanUnloadNow() { return CanUnloadNow(); }                  \
  MODULE_EXPORT HRESULT DllRegisterServer() { return RegisterServer(table, g_SetupModule, TRUE); } \
  MODULE_EXPORT HRESULT DllUnregisterServer() { return RegisterServer(table, g_SetupModule, FALSE); }
