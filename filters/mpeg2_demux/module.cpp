// The module Mpeg2Demux.ax: the MPEG-2 demultiplexer as an in-process server
// of its own.
#include "filters/mpeg2_demux/mpeg2_demultiplexer.h"
#include "host/class_factory.h"

#define MPEG2_DEMUX_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

const CFactoryTemplate kClassTable[] = {
    {L"MPEG-2 Demultiplexer", &CLSID_MPEG2Demultiplexer, CMpeg2Demultiplexer::CreateInstance, nullptr, nullptr},
};

}  // namespace

MPEG2_DEMUX_EXPORT BOOL DllMain(HINSTANCE, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) RunInitRoutines(kClassTable, TRUE);
  if (reason == DLL_PROCESS_DETACH) RunInitRoutines(kClassTable, FALSE);
  return TRUE;
}

MPEG2_DEMUX_EXPORT HRESULT DllGetClassObject(REFCLSID clsid, REFIID riid, LPVOID* ppv) {
  return GetClassObjectFromTable(kClassTable, clsid, riid, ppv);
}

MPEG2_DEMUX_EXPORT HRESULT DllCanUnloadNow() { return CanUnloadNow(); }
