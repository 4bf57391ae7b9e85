// Feeds whole packets to the video header analysis, with every stream type
// it distinguishes and with the H.264 branch both open and closed, and checks
// that what it stores stays within its bounds. The packet is copied to a
// buffer of exactly 188 bytes so that any read past it trips the sanitizer.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "analysis/video_header.h"

namespace {

struct NullBlocks final : public CVideoFormatTarget {
  void SetMpeg2Size(std::uint16_t, std::uint16_t) override {}
  void SetMpeg2Aspect(std::uint16_t x, std::uint16_t y) override {
    if (x == 0 || y == 0) std::abort();
  }
  void SetMpeg2SequenceStart(std::span<const std::uint8_t, 12> bytes) override {
    if (bytes[3] != kSequenceHeaderCode) std::abort();
  }
  void SetH264Size(std::uint16_t, std::uint16_t) override {}
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  VideoFormat format;
  CParameterLog log;
  NullBlocks blocks;
  // The first byte picks the stream type and whether an H.264 profile is
  // already known; the rest are packets.
  const std::uint8_t control = size > 0 ? data[0] : 0;
  const std::uint16_t streamType = (control & 1) != 0 ? 27 : 2;
  if ((control & 2) != 0) format.h264Profile = 100;
  const std::uint8_t* at = size > 0 ? data + 1 : data;
  std::size_t left = size > 0 ? size - 1 : 0;
  for (int n = 0; n < 64 && left > 0; ++n) {
    auto packet = std::make_unique<std::uint8_t[]>(kPacketSize);
    const std::size_t take = left < kPacketSize ? left : kPacketSize;
    std::memcpy(packet.get(), at, take);
    at += take;
    left -= take;
    const int hit = AnalyseVideoHeader(PacketSpan(packet.get(), kPacketSize), streamType, format, log, blocks);
    if (hit != 0 && hit != 1) std::abort();
    if (log.Count() < 0 || log.Count() > kLogRows) std::abort();
    for (int i = 0; i < kLogRows; ++i) {
      if (log.Line(i).size() > kLogRowChars) std::abort();
    }
  }
  return 0;
}
