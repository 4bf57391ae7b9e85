// Compiled into each test program: registers the platform's filter modules
// of this build for the program's process before main runs, as the tool
// registers those beside it, so that CoCreateInstance finds them by class id
// through dlopen like any in-process server.
#include "platform/graph/stream_sinks.h"
#include "platform/com/objbase.h"
#include "platform/graph/mpeg2_demux.h"
#include "platform/graph/stream_buffer.h"

namespace {

struct CRegisterPlatformFilters {
  CRegisterPlatformFilters() {
    PlatformRegisterInprocServer(CLSID_NullRenderer, BRINDLET_SINKS_MODULE);
    PlatformRegisterInprocServer(CLSID_StreamFileWriter, BRINDLET_SINKS_MODULE);
    PlatformRegisterInprocServer(CLSID_MPEG2Demultiplexer, BRINDLET_MPEG2_DEMUX_MODULE);
    PlatformRegisterInprocServer(CLSID_StreamBufferSink, BRINDLET_STREAM_BUFFER_MODULE);
  }
} const g_Registered;

}  // namespace
