// The video header analysis: does a video sequence header (MPEG-2) or an
// access unit delimiter with a sequence parameter set (H.264) begin at the
// start of this packet's PES payload? A hit gives the picture size, aspect
// ratio and frame rate, and marks a place where decoding can start.
#pragma once

#include <atomic>
#include <cstdint>
#include <span>

#include "analysis/bit_reader.h"
#include "analysis/packet_view.h"

// Where the findings go besides the filter's fields: the format blocks.
class CVideoFormatTarget {
 public:
  virtual void SetMpeg2Size(std::uint16_t width, std::uint16_t height) = 0;
  virtual void SetMpeg2Aspect(std::uint16_t x, std::uint16_t y) = 0;
  // The first 12 bytes of the sequence header: code, sizes, aspect and rate.
  virtual void SetMpeg2SequenceStart(std::span<const std::uint8_t, 12> bytes) = 0;
  virtual void SetH264Size(std::uint16_t width, std::uint16_t height) = 0;

 protected:
  ~CVideoFormatTarget() = default;
};

// The filter's video fields. Written by the thread that runs the engine,
// read by queries on other threads, hence atomic.
struct VideoFormat {
  std::atomic<std::uint16_t> width{0};
  std::atomic<std::uint16_t> height{0};
  std::atomic<std::uint16_t> aspectX{0};  // 0: not known yet, the analysis goes on
  std::atomic<std::uint16_t> aspectY{0};
  std::atomic<double> frameRate{0.0};
  std::atomic<std::uint8_t> h264Profile{0};  // not 0 once H.264 was recognised
  std::atomic<std::uint8_t> h264Level{0};
};

inline constexpr std::uint8_t kSequenceHeaderCode = 0xB3;

// 1 if a header was recognised, else 0 with nothing changed. `videoStreamType`
// 27 lets the delimiter be searched for inside the payload. Reads stay inside
// the packet: a header that would run past its end is no hit.
int AnalyseVideoHeader(PacketSpan packet, std::uint16_t videoStreamType, VideoFormat& format,
                       CParameterLog& log, CVideoFormatTarget& blocks);
