// The elementary streams the stream buffer sink records, as the
// demultiplexer's output pins describe them: which of the five a media type
// is, and what its format block tells about frame duration and sample rate.
#pragma once

#include <optional>

#include "platform/graph/strmif.h"

enum class ElementaryKind { Mpeg2Video, H264Video, MpegAudio, Ac3Audio, AacAudio };

// The kind of a type the sink's pins take; none for any other type.
std::optional<ElementaryKind> KindOf(const AM_MEDIA_TYPE& type);

bool IsVideo(ElementaryKind kind);

// AvgTimePerFrame of a video format block (VIDEOINFOHEADER, VIDEOINFOHEADER2
// or MPEG2VIDEOINFO) in 100 ns units; 0 when the block does not give one.
REFERENCE_TIME FrameDurationOf(const AM_MEDIA_TYPE& type);

// nSamplesPerSec of a WAVEFORMATEX block; 0 when there is none.
int SampleRateOf(const AM_MEDIA_TYPE& type);
