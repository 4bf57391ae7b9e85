// The module StreamBuffer.ax: the stream buffer sink as an in-process server
// of its own. It is only ever made by its class id, so the mapper keeps it
// out of intelligent connect.
#include "filters/stream_buffer/elementary_types.h"
#include "filters/stream_buffer/stream_buffer_sink.h"
#include "host/dll_setup.h"

namespace {

const AMOVIESETUP_MEDIATYPE kInputTypes[] = {
    {&MEDIATYPE_Video, &MEDIASUBTYPE_MPEG2_VIDEO},
    {&MEDIATYPE_Video, &MEDIASUBTYPE_AVC1},
    {&MEDIATYPE_Audio, &MEDIASUBTYPE_MPEG1AudioPayload},
    {&MEDIATYPE_Audio, &MEDIASUBTYPE_DOLBY_AC3},
    {&MEDIATYPE_Audio, &MEDIASUBTYPE_AAC_AUDIO},
};

const AMOVIESETUP_PIN kPins[] = {
    {const_cast<LPWSTR>(L"Input"), TRUE, FALSE, FALSE, TRUE, &GUID_NULL, nullptr, 5, kInputTypes},
};

const AMOVIESETUP_FILTER kSetup = {&CLSID_StreamBufferSink, L"Stream Buffer Sink", MERIT_DO_NOT_USE, 1, kPins};

const CFactoryTemplate kClassTable[] = {
    {L"Stream Buffer Sink", &CLSID_StreamBufferSink, CStreamBufferSink::CreateInstance, nullptr, &kSetup},
};

}  // namespace

DEFINE_SELF_REGISTERING_MODULE(kClassTable)
