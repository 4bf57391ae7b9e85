// The module Mpeg2Demux.ax: the MPEG-2 demultiplexer as an in-process server
// of its own, registered to take a transport stream when a graph renders one.
#include "filters/mpeg2_demux/mpeg2_demultiplexer.h"
#include "host/dll_setup.h"

namespace {

const AMOVIESETUP_MEDIATYPE kInputTypes[] = {{&MEDIATYPE_Stream, &MEDIASUBTYPE_MPEG2_TRANSPORT}};
const AMOVIESETUP_MEDIATYPE kOutputTypes[] = {{&GUID_NULL, &GUID_NULL}};

const AMOVIESETUP_PIN kPins[] = {
    {const_cast<LPWSTR>(L"MPEG-2 Stream"), FALSE, FALSE, FALSE, FALSE, &GUID_NULL, nullptr, 1, kInputTypes},
    // Output pins are made by whoever connects the input.
    {const_cast<LPWSTR>(L"Output"), FALSE, TRUE, TRUE, TRUE, &GUID_NULL, nullptr, 1, kOutputTypes},
};

const AMOVIESETUP_FILTER kSetup = {&CLSID_MPEG2Demultiplexer, L"MPEG-2 Demultiplexer", MERIT_NORMAL, 2, kPins};

const CFactoryTemplate kClassTable[] = {
    {L"MPEG-2 Demultiplexer", &CLSID_MPEG2Demultiplexer, CMpeg2Demultiplexer::CreateInstance, nullptr, &kSetup},
};

}  // namespace

DEFINE_SELF_REGISTERING_MODULE(kClassTable)
