// The module Brindlet.ax: its class table and the exports that make it an
// in-process server.
#include "host/class_factory.h"
#include "delivery/ts_source_filter.h"

#define BRINDLET_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

CUnknown* CreateSourceFilter(IUnknown* outer, HRESULT* result) {
  return CTsSourceFilter::CreateInstance(outer, result);
}

// Row 0 is the filter; the property pages join the table as they are built.
const CFactoryTemplate kClassTable[] = {
    {L"Caldrovia Brindlet", &CLSID_BrindletSource, CreateSourceFilter, nullptr, nullptr},
};

HINSTANCE g_Module = nullptr;

}  // namespace

HINSTANCE BrindletModule() { return g_Module; }

BRINDLET_EXPORT BOOL DllMain(HINSTANCE module, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    g_Module = module;
    RunInitRoutines(kClassTable, TRUE);
  } else if (reason == DLL_PROCESS_DETACH) {
    RunInitRoutines(kClassTable, FALSE);
  }
  return TRUE;
}

BRINDLET_EXPORT HRESULT DllGetClassObject(REFCLSID clsid, REFIID riid, LPVOID* ppv) {
  return GetClassObjectFromTable(kClassTable, clsid, riid, ppv);
}

BRINDLET_EXPORT HRESULT DllCanUnloadNow() { return CanUnloadNow(); }
