// The five media types that the filter hands to the demultiplexer, and their
// three format blocks. One copy of each block exists in the process; the
// video analysis patches the two video blocks in place, and a media type
// taken afterwards carries the patch.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "analysis/video_header.h"
#include "host/media_type.h"
#include "platform/graph/strmif.h"

inline constexpr std::size_t kSequenceHeaderBytes = 86;
inline constexpr std::size_t kVideoBlockBytes = 218;
inline constexpr std::size_t kAudioBlockBytes = 40;

enum class StreamMediaType { Mpeg2Video, H264Video, MpegAudio, Ac3Audio, AacAudio };

// A copy of one of the five types, with its block as it stands now.
CMediaType GetStreamMediaType(StreamMediaType which);

// A copy of a format block as it stands now.
std::array<std::uint8_t, kVideoBlockBytes> Mpeg2VideoBlock();
std::array<std::uint8_t, kVideoBlockBytes> H264VideoBlock();
std::array<std::uint8_t, kAudioBlockBytes> AudioBlock();

// Writes the analysis's findings into the process's video blocks.
class CVideoBlockPatcher final : public CVideoFormatTarget {
 public:
  void SetMpeg2Size(std::uint16_t width, std::uint16_t height) override;
  void SetMpeg2Aspect(std::uint16_t x, std::uint16_t y) override;
  void SetMpeg2SequenceStart(std::span<const std::uint8_t, 12> bytes) override;
  void SetH264Size(std::uint16_t width, std::uint16_t height) override;
};

// Puts the blocks back to their first values; for tests, since the blocks
// outlive every filter.
void ResetFormatBlocks();
