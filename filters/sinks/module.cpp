// The module Sinks.ax: the platform's null renderer and stream file writer
// as an in-process server of their own.
#include "filters/sinks/null_renderer.h"
#include "filters/sinks/stream_file_writer.h"
#include "host/class_factory.h"

#define SINKS_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

const CFactoryTemplate kClassTable[] = {
    {L"Null Renderer", &CLSID_NullRenderer, CNullRenderer::CreateInstance, nullptr, nullptr},
    {L"Stream File Writer", &CLSID_StreamFileWriter, CStreamFileWriter::CreateInstance, nullptr, nullptr},
};

}  // namespace

SINKS_EXPORT BOOL DllMain(HINSTANCE, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) RunInitRoutines(kClassTable, TRUE);
  if (reason == DLL_PROCESS_DETACH) RunInitRoutines(kClassTable, FALSE);
  return TRUE;
}

SINKS_EXPORT HRESULT DllGetClassObject(REFCLSID clsid, REFIID riid, LPVOID* ppv) {
  return GetClassObjectFromTable(kClassTable, clsid, riid, ppv);
}

SINKS_EXPORT HRESULT DllCanUnloadNow() { return CanUnloadNow(); }
