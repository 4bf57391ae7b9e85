#include "filters/stream_buffer/ts_recording.h"

#include <new>

#include "filters/stream_buffer/random_access.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavformat/avformat.h>
#include <libavformat/avio.h>
#include <libavutil/error.h>
#include <libavutil/mathematics.h>
#include <libavutil/mem.h>
}

namespace {

constexpr int kIoBufferBytes = 64 * 1024;
constexpr AVRational kReferenceTimeBase = {1, 10'000'000};
constexpr int kDefaultSampleRate = 48000;
// The muxer refuses a first H.264 packet shorter than a start code and a
// NAL header.
constexpr std::size_t kShortestH264Packet = 5;

AVCodecID CodecOf(ElementaryKind kind) {
  switch (kind) {
    case ElementaryKind::Mpeg2Video:
      return AV_CODEC_ID_MPEG2VIDEO;
    case ElementaryKind::H264Video:
      return AV_CODEC_ID_H264;
    case ElementaryKind::MpegAudio:
      return AV_CODEC_ID_MP2;
    case ElementaryKind::Ac3Audio:
      return AV_CODEC_ID_AC3;
    case ElementaryKind::AacAudio:
      return AV_CODEC_ID_AAC;
  }
  return AV_CODEC_ID_NONE;
}

// The output callback took a mutable buffer before libavformat 61.
#if LIBAVFORMAT_VERSION_MAJOR >= 61
using IoBuffer = const std::uint8_t*;
#else
using IoBuffer = std::uint8_t*;
#endif

int WriteCallback(void* opaque, IoBuffer data, int size) { return CTsRecording::WriteToFile(opaque, data, size); }

// The muxer takes a first H.264 packet only from a start code on; bytes in
// front of it (the tail of a NAL whose start the recording missed) cannot be
// decoded anyway. A four-byte start code keeps its leading zero.
std::span<const std::uint8_t> FromFirstStartCode(std::span<const std::uint8_t> bytes) {
  std::size_t at = FindStartCode(bytes);
  if (at > 0 && at < bytes.size() && bytes[at - 1] == 0) --at;
  return bytes.subspan(at);
}

}  // namespace

CTsRecording::~CTsRecording() { Close(); }

HRESULT CTsRecording::Open(const std::string& path, std::span<const RecordingStreamFormat> streams,
                           std::unique_ptr<CTsRecording>* recording) {
  if (recording == nullptr) return E_POINTER;
  recording->reset();
  if (streams.empty()) return E_INVALIDARG;
  std::unique_ptr<CTsRecording> made(new (std::nothrow) CTsRecording());
  if (!made) return E_OUTOFMEMORY;
  if (const HRESULT hr = made->m_File.Create(path); FAILED(hr)) return hr;
  const HRESULT hr = made->Begin(streams);
  if (FAILED(hr)) {
    // The name goes back, so that the caller may try again.
    made.reset();
    DeleteFileA(path.c_str());
    return hr;
  }
  *recording = std::move(made);
  return S_OK;
}

HRESULT CTsRecording::Begin(std::span<const RecordingStreamFormat> streams) {
  const AVOutputFormat* format = av_guess_format("mpegts", nullptr, nullptr);
  if (format == nullptr) return E_FAIL;
  if (avformat_alloc_output_context2(&m_Context, format, nullptr, nullptr) < 0 || m_Context == nullptr) {
    return E_OUTOFMEMORY;
  }
  auto* buffer = static_cast<unsigned char*>(av_malloc(kIoBufferBytes));
  if (buffer == nullptr) return E_OUTOFMEMORY;
  m_Io = avio_alloc_context(buffer, kIoBufferBytes, 1, this, nullptr, WriteCallback, nullptr);
  if (m_Io == nullptr) {
    av_free(buffer);
    return E_OUTOFMEMORY;
  }
  m_Context->pb = m_Io;
  m_Context->flags |= AVFMT_FLAG_CUSTOM_IO;
  for (const RecordingStreamFormat& s : streams) {
    AVStream* stream = avformat_new_stream(m_Context, nullptr);
    if (stream == nullptr) return E_OUTOFMEMORY;
    stream->codecpar->codec_type = IsVideo(s.kind) ? AVMEDIA_TYPE_VIDEO : AVMEDIA_TYPE_AUDIO;
    stream->codecpar->codec_id = CodecOf(s.kind);
    // The muxer wants a rate for every audio stream; it only picks the MPEG
    // audio stream type by it.
    if (!IsVideo(s.kind)) stream->codecpar->sample_rate = s.sampleRate > 0 ? s.sampleRate : kDefaultSampleRate;
    stream->time_base = kReferenceTimeBase;
    m_Kinds.push_back(s.kind);
  }
  m_Written.assign(m_Kinds.size(), false);
  m_Packet = av_packet_alloc();
  if (m_Packet == nullptr) return E_OUTOFMEMORY;
  // The muxer sets each stream's time base here (90 kHz).
  const int written = avformat_write_header(m_Context, nullptr);
  if (written < 0) return Failed(written);
  m_HeaderWritten = true;
  return S_OK;
}

std::int64_t CTsRecording::ToTicks(std::size_t index, REFERENCE_TIME time) const {
  return av_rescale_q_rnd(time, kReferenceTimeBase, m_Context->streams[index]->time_base,
                          static_cast<AVRounding>(AV_ROUND_NEAR_INF | AV_ROUND_PASS_MINMAX));
}

REFERENCE_TIME CTsRecording::ToReferenceTime(std::size_t index, std::int64_t ticks) const {
  return av_rescale_q_rnd(ticks, m_Context->streams[index]->time_base, kReferenceTimeBase,
                          static_cast<AVRounding>(AV_ROUND_NEAR_INF | AV_ROUND_PASS_MINMAX));
}

HRESULT CTsRecording::Write(std::size_t index, const RecordedPacket& packet, std::size_t* taken) {
  if (taken != nullptr) *taken = 0;
  if (FAILED(m_Failure)) return m_Failure;
  if (m_Closed || !m_HeaderWritten || index >= m_Kinds.size()) return E_UNEXPECTED;
  std::span<const std::uint8_t> bytes = packet.bytes;
  if (m_Kinds[index] == ElementaryKind::H264Video && !m_Written[index]) {
    bytes = FromFirstStartCode(bytes);
    if (bytes.size() < kShortestH264Packet) return S_OK;
  }
  if (bytes.empty()) return S_OK;
  av_packet_unref(m_Packet);
  // Not reference-counted: the interleaver keeps a copy of its own.
  m_Packet->data = const_cast<std::uint8_t*>(bytes.data());
  m_Packet->size = static_cast<int>(bytes.size());
  m_Packet->stream_index = static_cast<int>(index);
  m_Packet->pts = packet.pts;
  m_Packet->dts = packet.dts;
  m_Packet->flags = packet.key ? AV_PKT_FLAG_KEY : 0;
  const int written = av_interleaved_write_frame(m_Context, m_Packet);
  m_Packet->data = nullptr;
  m_Packet->size = 0;
  if (written < 0) return Failed(written);
  m_Written[index] = true;
  // The muxer writes through a buffer, so a failed write may show only in
  // the file's state.
  if (FAILED(m_File.Failure())) return Failed(AVERROR(EIO));
  if (taken != nullptr) *taken = bytes.size();
  return S_OK;
}

HRESULT CTsRecording::Close() {
  if (m_Closed) return m_Failure;
  m_Closed = true;
  if (m_HeaderWritten) {
    // What the interleaver holds goes out even after a failure, as far as
    // the disk takes it; a transport stream reads without the trailer.
    const int trailer = av_write_trailer(m_Context);
    if (trailer < 0) Failed(trailer);
  }
  if (m_Io != nullptr) {
    avio_flush(m_Io);
    if (m_Io->error < 0) Failed(m_Io->error);
    av_freep(&m_Io->buffer);
    avio_context_free(&m_Io);
  }
  if (m_Context != nullptr) {
    m_Context->pb = nullptr;
    avformat_free_context(m_Context);
    m_Context = nullptr;
  }
  av_packet_free(&m_Packet);
  if (const HRESULT closed = m_File.Close(); FAILED(closed) && SUCCEEDED(m_Failure)) m_Failure = closed;
  return m_Failure;
}

int CTsRecording::WriteToFile(void* opaque, const std::uint8_t* data, int size) {
  auto* self = static_cast<CTsRecording*>(opaque);
  if (size <= 0) return 0;
  return SUCCEEDED(self->m_File.Write(data, static_cast<std::size_t>(size))) ? size : AVERROR(EIO);
}

HRESULT CTsRecording::Failed(int averror) {
  if (SUCCEEDED(m_Failure)) {
    if (FAILED(m_File.Failure())) {
      m_Failure = m_File.Failure();
    } else if (averror < 0 && -averror < 4096) {
      m_Failure = HResultFromErrno(-averror);  // AVERROR(errno)
    } else {
      m_Failure = E_FAIL;
    }
  }
  return m_Failure;
}
