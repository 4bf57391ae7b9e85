#include "tests/support/ts_reader.h"

#include <algorithm>
#include <fstream>

namespace tsw {

namespace {
constexpr std::size_t kPacket = 188;
}

Bytes ReadAll(const std::filesystem::path& path) {
  std::error_code error;
  const auto size = std::filesystem::file_size(path, error);
  if (error) return {};
  Bytes bytes(size);
  std::ifstream in(path, std::ios::binary);
  in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(size));
  if (static_cast<std::uintmax_t>(in.gcount()) != size) bytes.resize(static_cast<std::size_t>(in.gcount()));
  return bytes;
}

std::uint16_t PidOf(const std::uint8_t* packet) {
  return static_cast<std::uint16_t>(((packet[1] & 0x1F) << 8) | packet[2]);
}

bool UnitStart(const std::uint8_t* packet) { return (packet[1] & 0x40) != 0; }

std::vector<std::size_t> SequenceHeaderPackets(const Bytes& data, std::uint16_t pid, std::size_t limit) {
  std::vector<std::size_t> found;
  const std::size_t packets = std::min(data.size() / kPacket, limit);
  for (std::size_t i = 0; i < packets; ++i) {
    const std::uint8_t* p = data.data() + i * kPacket;
    if (PidOf(p) != pid || !UnitStart(p)) continue;
    std::size_t at = 4;
    if ((p[3] & 0x20) != 0) at += 1 + p[4];  // adaptation field
    if (at + 9 > kPacket || p[at] != 0 || p[at + 1] != 0 || p[at + 2] != 1) continue;
    const std::size_t es = at + 9 + p[at + 8];
    if (es + 4 <= kPacket && p[es] == 0 && p[es + 1] == 0 && p[es + 2] == 1 && p[es + 3] == 0xB3) {
      found.push_back(i);
    }
  }
  return found;
}

}  // namespace tsw
