// The module Sinks.ax: the platform's null renderer and stream file writer
// as an in-process server of their own.
#include "filters/sinks/null_renderer.h"
#include "filters/sinks/stream_file_writer.h"
#include "host/class_factory.h"

namespace {

const CFactoryTemplate kClassTable[] = {
    {L"Null Renderer", &CLSID_NullRenderer, CNullRenderer::CreateInstance, nullptr, nullptr},
    {L"Stream File Writer", &CLSID_StreamFileWriter, CStreamFileWriter::CreateInstance, nullptr, nullptr},
};

}  // namespace

DEFINE_CLASS_TABLE_EXPORTS(kClassTable)
