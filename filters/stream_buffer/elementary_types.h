// The elementary streams the stream buffer sink records, as the
// demultiplexer's output pins describe them: which of the five a media type
// is, and what its format block tells about frame duration and sample rate.
#pragma once

#include <optional>

#include "platform/graph/strmif.h"

inline constexpr GUID FORMAT_VideoInfo =
    MakeGuid(0x05589F80, 0xC356, 0x11CE, 0xBF, 0x01, 0x00, 0xAA, 0x00, 0x55, 0x59, 0x5A);
inline constexpr GUID FORMAT_VideoInfo2 =
    MakeGuid(0xF72A76A0, 0xEB0A, 0x11D0, 0xAC, 0xE4, 0x00, 0x00, 0xC0, 0xCC, 0x16, 0xBA);

enum class ElementaryKind { Mpeg2Video, H264Video, MpegAudio, Ac3Audio, AacAudio };

// The kind of a type the sink's pins take; none for any other type.
std::optional<ElementaryKind> KindOf(const AM_MEDIA_TYPE& type);

bool IsVideo(ElementaryKind kind);

// AvgTimePerFrame of a video format block (VIDEOINFOHEADER, VIDEOINFOHEADER2
// or MPEG2VIDEOINFO) in 100 ns units; 0 when the block does not give one.
REFERENCE_TIME FrameDurationOf(const AM_MEDIA_TYPE& type);

// nSamplesPerSec of a WAVEFORMATEX block; 0 when there is none.
int SampleRateOf(const AM_MEDIA_TYPE& type);
