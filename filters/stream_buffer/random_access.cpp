#include "filters/stream_buffer/random_access.h"

namespace {

constexpr std::uint8_t kMpeg2Picture = 0x00;
constexpr std::uint8_t kMpeg2Sequence = 0xB3;
constexpr std::uint8_t kMpeg2Gop = 0xB8;
constexpr std::uint8_t kMpeg2IPicture = 1;

constexpr std::uint8_t kH264Slice = 1;
constexpr std::uint8_t kH264Idr = 5;
constexpr std::uint8_t kH264Sps = 7;

bool Mpeg2RandomAccess(std::span<const std::uint8_t> bytes) {
  for (std::size_t at = FindStartCode(bytes); at + 3 < bytes.size(); at = FindStartCode(bytes, at + 3)) {
    const std::uint8_t code = bytes[at + 3];
    if (code == kMpeg2Sequence || code == kMpeg2Gop) return true;
    if (code == kMpeg2Picture) {
      // temporal_reference (10 bits), then picture_coding_type (3 bits).
      return at + 5 < bytes.size() && ((bytes[at + 5] >> 3) & 0x7) == kMpeg2IPicture;
    }
  }
  return false;
}

bool H264RandomAccess(std::span<const std::uint8_t> bytes) {
  for (std::size_t at = FindStartCode(bytes); at + 3 < bytes.size(); at = FindStartCode(bytes, at + 3)) {
    const std::uint8_t type = bytes[at + 3] & 0x1F;
    if (type == kH264Idr || type == kH264Sps) return true;
    if (type == kH264Slice) return false;
  }
  return false;
}

}  // namespace

std::size_t FindStartCode(std::span<const std::uint8_t> bytes, std::size_t from) {
  for (std::size_t at = from; at + 2 < bytes.size(); ++at) {
    if (bytes[at + 2] > 1) {
      at += 2;  // no start code can cover this byte
      continue;
    }
    if (bytes[at] == 0 && bytes[at + 1] == 0 && bytes[at + 2] == 1) return at;
  }
  return bytes.size();
}

bool IsRandomAccess(ElementaryKind kind, std::span<const std::uint8_t> bytes) {
  switch (kind) {
    case ElementaryKind::Mpeg2Video:
      return Mpeg2RandomAccess(bytes);
    case ElementaryKind::H264Video:
      return H264RandomAccess(bytes);
    default:
      return true;
  }
}
