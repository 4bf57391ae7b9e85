// The module Mpeg2Demux.ax: the MPEG-2 demultiplexer as an in-process server
// of its own.
#include "filters/mpeg2_demux/mpeg2_demultiplexer.h"
#include "host/class_factory.h"

namespace {

const CFactoryTemplate kClassTable[] = {
    {L"MPEG-2 Demultiplexer", &CLSID_MPEG2Demultiplexer, CMpeg2Demultiplexer::CreateInstance, nullptr, nullptr},
};

}  // namespace

DEFINE_CLASS_TABLE_EXPORTS(kClassTable)
