// The module Sinks.ax: the platform's null renderer and stream file writer
// as an in-process server of their own. A graph that renders an elementary
// or transport stream ends it in a writer; the null renderer is only ever
// made by its class id.
#include "filters/sinks/null_renderer.h"
#include "filters/sinks/stream_file_writer.h"
#include "host/dll_setup.h"

namespace {

const AMOVIESETUP_MEDIATYPE kInputTypes[] = {
    {&MEDIATYPE_Stream, &GUID_NULL},
    {&MEDIATYPE_Video, &GUID_NULL},
    {&MEDIATYPE_Audio, &GUID_NULL},
};

const AMOVIESETUP_PIN kPins[] = {
    {const_cast<LPWSTR>(L"In"), TRUE, FALSE, FALSE, FALSE, &GUID_NULL, nullptr, 3, kInputTypes},
};

const AMOVIESETUP_FILTER kNullRendererSetup = {&CLSID_NullRenderer, L"Null Renderer", MERIT_DO_NOT_USE, 1, kPins};
// Below the demultiplexer, so a transport stream is taken apart, not written whole.
const AMOVIESETUP_FILTER kWriterSetup = {&CLSID_StreamFileWriter, L"Stream File Writer", MERIT_UNLIKELY, 1, kPins};

const CFactoryTemplate kClassTable[] = {
    {L"Null Renderer", &CLSID_NullRenderer, CNullRenderer::CreateInstance, nullptr, &kNullRendererSetup},
    {L"Stream File Writer", &CLSID_StreamFileWriter, CStreamFileWriter::CreateInstance, nullptr, &kWriterSetup},
};

}  // namespace

DEFINE_SELF_REGISTERING_MODULE(kClassTable)
