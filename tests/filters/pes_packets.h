// PES packets and the transport packets that carry them, for the
// reassembler and demultiplexer tests.
#pragma once

#include <algorithm>
#include <optional>
#include <span>
#include <vector>

#include "tests/support/ts_writer.h"

namespace pes_packets {

using tsw::Bytes;

// A PES with the optional header: PTS and DTS when given. Unbounded
// (PES_packet_length 0) unless `bounded`.
inline Bytes Pes(std::uint8_t streamId, const Bytes& payload, std::optional<std::uint64_t> pts,
                 std::optional<std::uint64_t> dts = std::nullopt, bool bounded = true) {
  Bytes header;
  if (pts) {
    const auto p = tsw::EncodePts(*pts, dts ? 0x3 : 0x2);
    header.insert(header.end(), p.begin(), p.end());
  }
  if (dts) {
    const auto d = tsw::EncodePts(*dts, 0x1);
    header.insert(header.end(), d.begin(), d.end());
  }
  const std::size_t length = 3 + header.size() + payload.size();
  Bytes pes = {0x00, 0x00, 0x01, streamId,
               static_cast<std::uint8_t>(bounded ? length >> 8 : 0),
               static_cast<std::uint8_t>(bounded ? length & 0xFF : 0), 0x80,
               static_cast<std::uint8_t>(pts ? (dts ? 0xC0 : 0x80) : 0x00),
               static_cast<std::uint8_t>(header.size())};
  pes.insert(pes.end(), header.begin(), header.end());
  pes.insert(pes.end(), payload.begin(), payload.end());
  return pes;
}

inline Bytes Pattern(std::size_t size, std::uint8_t seed) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(seed + i * 13);
  return bytes;
}

// Splits a PES over packets of `pid`; the last is filled up by adaptation
// stuffing, so no byte follows the PES. `firstChunk` caps the first share.
inline std::vector<tsw::Packet> Packetize(std::uint16_t pid, const Bytes& pes,
                                          std::uint8_t& continuity, std::size_t firstChunk = 184) {
  std::vector<tsw::Packet> packets;
  for (std::size_t at = 0; at < pes.size();) {
    const std::size_t n = std::min({at == 0 ? firstChunk : 184, std::size_t{184}, pes.size() - at});
    packets.push_back(tsw::MakePacket(pid, at == 0, std::span(pes).subspan(at, n),
                                      n < 184 ? static_cast<int>(183 - n) : -1, continuity++));
    at += n;
  }
  return packets;
}

}  // namespace pes_packets
