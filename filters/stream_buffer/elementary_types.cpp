#include "filters/stream_buffer/elementary_types.h"

#include <cstddef>
#include <cstring>

#include "platform/graph/media_formats.h"

namespace {

// The three video headers share their first fields, AvgTimePerFrame among them.
constexpr std::size_t kAvgTimePerFrameOffset = offsetof(VIDEOINFOHEADER2, AvgTimePerFrame);
static_assert(offsetof(MPEG2VIDEOINFO, hdr.AvgTimePerFrame) == kAvgTimePerFrameOffset);

}  // namespace

std::optional<ElementaryKind> KindOf(const AM_MEDIA_TYPE& type) {
  if (type.majortype == MEDIATYPE_Video) {
    if (type.subtype == MEDIASUBTYPE_MPEG2_VIDEO) return ElementaryKind::Mpeg2Video;
    if (type.subtype == MEDIASUBTYPE_AVC1) return ElementaryKind::H264Video;
  } else if (type.majortype == MEDIATYPE_Audio) {
    if (type.subtype == MEDIASUBTYPE_MPEG1AudioPayload) return ElementaryKind::MpegAudio;
    if (type.subtype == MEDIASUBTYPE_DOLBY_AC3) return ElementaryKind::Ac3Audio;
    if (type.subtype == MEDIASUBTYPE_AAC_AUDIO) return ElementaryKind::AacAudio;
  }
  return std::nullopt;
}

bool IsVideo(ElementaryKind kind) {
  return kind == ElementaryKind::Mpeg2Video || kind == ElementaryKind::H264Video;
}

REFERENCE_TIME FrameDurationOf(const AM_MEDIA_TYPE& type) {
  const bool video = type.formattype == FORMAT_MPEG2Video || type.formattype == FORMAT_VideoInfo ||
                     type.formattype == FORMAT_VideoInfo2;
  if (!video || type.pbFormat == nullptr || type.cbFormat < kAvgTimePerFrameOffset + sizeof(REFERENCE_TIME)) {
    return 0;
  }
  REFERENCE_TIME duration = 0;
  std::memcpy(&duration, type.pbFormat + kAvgTimePerFrameOffset, sizeof duration);
  return duration > 0 ? duration : 0;
}

int SampleRateOf(const AM_MEDIA_TYPE& type) {
  if (type.formattype != FORMAT_WaveFormatEx || type.pbFormat == nullptr || type.cbFormat < sizeof(WAVEFORMATEX)) {
    return 0;
  }
  WAVEFORMATEX format{};
  std::memcpy(&format, type.pbFormat, sizeof format);
  return format.nSamplesPerSec > 0 && format.nSamplesPerSec <= 768000 ? static_cast<int>(format.nSamplesPerSec) : 0;
}
