#include "delivery/media_types.h"

#include <cstddef>
#include <cstring>
#include <mutex>

#include "platform/graph/media_formats.h"

namespace {

// An MPEG-2 sequence header for 720 x 480 with a non-intra quantiser matrix,
// then a sequence extension: what a decoder sees until a file tells more.
constexpr std::uint8_t kSequenceHeader[kSequenceHeaderBytes] = {
    0x00, 0x00, 0x01, 0xB3, 0x2D, 0x01, 0xE0, 0x24, 0x09, 0xC4, 0x23, 0x81, 0x10, 0x11, 0x11,
    0x12, 0x12, 0x12, 0x13, 0x13, 0x13, 0x13, 0x14, 0x14, 0x14, 0x14, 0x14, 0x15, 0x15, 0x15,
    0x15, 0x15, 0x15, 0x16, 0x16, 0x16, 0x16, 0x16, 0x16, 0x16, 0x17, 0x17, 0x17, 0x17, 0x17,
    0x17, 0x17, 0x17, 0x18, 0x18, 0x18, 0x19, 0x18, 0x18, 0x18, 0x19, 0x1A, 0x1A, 0x1A, 0x1A,
    0x19, 0x1B, 0x1B, 0x1B, 0x1B, 0x1B, 0x1C, 0x1C, 0x1C, 0x1C, 0x1E, 0x1E, 0x1E, 0x1F, 0x1F,
    0x21, 0x00, 0x00, 0x01, 0xB5, 0x14, 0x82, 0x00, 0x01, 0x00, 0x00};

static_assert(offsetof(MPEG2VIDEOINFO, dwSequenceHeader) + kSequenceHeaderBytes == kVideoBlockBytes);

template <typename T>
void Put(std::uint8_t* block, std::size_t offset, T value) {
  std::memcpy(block + offset, &value, sizeof value);
}

using VideoBlock = std::array<std::uint8_t, kVideoBlockBytes>;
using AudioBlockBytes = std::array<std::uint8_t, kAudioBlockBytes>;

VideoBlock MakeVideoBlock(LONG width, LONG height, DWORD aspectX, DWORD aspectY) {
  VideoBlock block{};
  std::uint8_t* b = block.data();
  Put<LONG>(b, offsetof(MPEG2VIDEOINFO, hdr.rcSource.right), width);
  Put<LONG>(b, offsetof(MPEG2VIDEOINFO, hdr.rcSource.bottom), height);
  Put<DWORD>(b, offsetof(MPEG2VIDEOINFO, hdr.dwBitRate), 4000000);
  Put<REFERENCE_TIME>(b, offsetof(MPEG2VIDEOINFO, hdr.AvgTimePerFrame), 333667);
  Put<DWORD>(b, offsetof(MPEG2VIDEOINFO, hdr.dwPictAspectRatioX), aspectX);
  Put<DWORD>(b, offsetof(MPEG2VIDEOINFO, hdr.dwPictAspectRatioY), aspectY);
  Put<DWORD>(b, offsetof(MPEG2VIDEOINFO, hdr.bmiHeader.biSize), 40);
  Put<LONG>(b, offsetof(MPEG2VIDEOINFO, hdr.bmiHeader.biWidth), width);
  Put<LONG>(b, offsetof(MPEG2VIDEOINFO, hdr.bmiHeader.biHeight), height);
  Put<LONG>(b, offsetof(MPEG2VIDEOINFO, hdr.bmiHeader.biXPelsPerMeter), 2000);
  Put<LONG>(b, offsetof(MPEG2VIDEOINFO, hdr.bmiHeader.biYPelsPerMeter), 53031);
  Put<DWORD>(b, offsetof(MPEG2VIDEOINFO, dwStartTimeCode), 0x0006F498);
  Put<DWORD>(b, offsetof(MPEG2VIDEOINFO, cbSequenceHeader), kSequenceHeaderBytes);
  Put<DWORD>(b, offsetof(MPEG2VIDEOINFO, dwProfile), 2);
  Put<DWORD>(b, offsetof(MPEG2VIDEOINFO, dwLevel), 2);
  std::memcpy(b + offsetof(MPEG2VIDEOINFO, dwSequenceHeader), kSequenceHeader, kSequenceHeaderBytes);
  return block;
}

AudioBlockBytes MakeAudioBlock() {
  MPEG1WAVEFORMAT format{};
  format.wfx.wFormatTag = 0x0050;
  format.wfx.nChannels = 2;
  format.wfx.nSamplesPerSec = 48000;
  format.wfx.nAvgBytesPerSec = 32000;
  format.wfx.nBlockAlign = 768;
  format.wfx.wBitsPerSample = 0;
  format.wfx.cbSize = 22;
  format.fwHeadLayer = 2;
  format.dwHeadBitrate = 256000;
  format.fwHeadMode = 1;
  format.fwHeadModeExt = 1;
  format.wHeadEmphasis = 1;
  format.fwHeadFlags = 0x001C;
  AudioBlockBytes block{};
  std::memcpy(block.data(), &format, sizeof format);
  return block;
}

// The process's one copy of each block. The worker patches the video blocks
// while a host thread may copy them into a pin's type, hence the lock.
struct Blocks {
  std::mutex lock;
  VideoBlock mpeg2 = MakeVideoBlock(720, 480, 4, 3);
  VideoBlock h264 = MakeVideoBlock(1920, 1088, 16, 9);
  const AudioBlockBytes audio = MakeAudioBlock();
};

Blocks& TheBlocks() {
  static Blocks blocks;
  return blocks;
}

void PatchSize(VideoBlock& block, std::uint16_t width, std::uint16_t height) {
  std::uint8_t* b = block.data();
  Put<LONG>(b, offsetof(MPEG2VIDEOINFO, hdr.rcSource.right), width);
  Put<LONG>(b, offsetof(MPEG2VIDEOINFO, hdr.rcSource.bottom), height);
  Put<LONG>(b, offsetof(MPEG2VIDEOINFO, hdr.bmiHeader.biWidth), width);
  Put<LONG>(b, offsetof(MPEG2VIDEOINFO, hdr.bmiHeader.biHeight), height);
}

CMediaType MakeType(REFGUID major, REFGUID sub, REFGUID formatType, const std::uint8_t* block,
                    std::size_t size) {
  CMediaType type;
  type.SetMajorType(major);
  type.SetSubtype(sub);
  type.SetFixedSizeSamples(true);
  type.SetFormat(formatType, block, static_cast<ULONG>(size));
  return type;
}

}  // namespace

CMediaType GetStreamMediaType(StreamMediaType which) {
  Blocks& blocks = TheBlocks();
  std::lock_guard<std::mutex> lock(blocks.lock);
  switch (which) {
    case StreamMediaType::Mpeg2Video:
      return MakeType(MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO, FORMAT_MPEG2Video, blocks.mpeg2.data(),
                      blocks.mpeg2.size());
    case StreamMediaType::H264Video:
      return MakeType(MEDIATYPE_Video, MEDIASUBTYPE_AVC1, FORMAT_MPEG2Video, blocks.h264.data(),
                      blocks.h264.size());
    case StreamMediaType::MpegAudio:
      return MakeType(MEDIATYPE_Audio, MEDIASUBTYPE_MPEG1AudioPayload, FORMAT_WaveFormatEx,
                      blocks.audio.data(), blocks.audio.size());
    case StreamMediaType::Ac3Audio:
      return MakeType(MEDIATYPE_Audio, MEDIASUBTYPE_DOLBY_AC3, FORMAT_WaveFormatEx, blocks.audio.data(),
                      blocks.audio.size());
    case StreamMediaType::AacAudio:
      return MakeType(MEDIATYPE_Audio, MEDIASUBTYPE_AAC_AUDIO, FORMAT_WaveFormatEx, blocks.audio.data(),
                      blocks.audio.size());
  }
  return CMediaType();
}

std::array<std::uint8_t, kVideoBlockBytes> Mpeg2VideoBlock() {
  std::lock_guard<std::mutex> lock(TheBlocks().lock);
  return TheBlocks().mpeg2;
}

std::array<std::uint8_t, kVideoBlockBytes> H264VideoBlock() {
  std::lock_guard<std::mutex> lock(TheBlocks().lock);
  return TheBlocks().h264;
}

std::array<std::uint8_t, kAudioBlockBytes> AudioBlock() { return TheBlocks().audio; }

void CVideoBlockPatcher::SetMpeg2Size(std::uint16_t width, std::uint16_t height) {
  std::lock_guard<std::mutex> lock(TheBlocks().lock);
  PatchSize(TheBlocks().mpeg2, width, height);
}

void CVideoBlockPatcher::SetMpeg2Aspect(std::uint16_t x, std::uint16_t y) {
  std::lock_guard<std::mutex> lock(TheBlocks().lock);
  std::uint8_t* b = TheBlocks().mpeg2.data();
  Put<DWORD>(b, offsetof(MPEG2VIDEOINFO, hdr.dwPictAspectRatioX), x);
  Put<DWORD>(b, offsetof(MPEG2VIDEOINFO, hdr.dwPictAspectRatioY), y);
}

void CVideoBlockPatcher::SetMpeg2SequenceStart(std::span<const std::uint8_t, 12> bytes) {
  std::lock_guard<std::mutex> lock(TheBlocks().lock);
  std::memcpy(TheBlocks().mpeg2.data() + offsetof(MPEG2VIDEOINFO, dwSequenceHeader), bytes.data(),
              bytes.size());
}

void CVideoBlockPatcher::SetH264Size(std::uint16_t width, std::uint16_t height) {
  std::lock_guard<std::mutex> lock(TheBlocks().lock);
  PatchSize(TheBlocks().h264, width, height);
}

void ResetFormatBlocks() {
  std::lock_guard<std::mutex> lock(TheBlocks().lock);
  TheBlocks().mpeg2 = MakeVideoBlock(720, 480, 4, 3);
  TheBlocks().h264 = MakeVideoBlock(1920, 1088, 16, 9);
}
