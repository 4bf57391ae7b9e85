// The PES fields the system reads, in its own short way: offsets follow the
// lengths that the data claims, and a field that would lie behind the
// packet's end is never read.
#pragma once

#include <cstddef>
#include <cstdint>

#include "analysis/packet_view.h"

// Offset that stands for "behind the packet": no field can be read there.
inline constexpr std::size_t kBeyondPacket = kPacketSize;

// First payload byte by byte 4 alone: 4 if it is 0, else byte 4 + 5. The
// adaptation_field_control bits are not consulted.
std::size_t GetPayload(PacketSpan packet);

// True if 00 00 01 stands at `pes` and the six fixed bytes of a PES header
// (start code, stream_id, PES_packet_length) lie inside the packet.
bool IsPesStart(PacketSpan packet, std::size_t pes);

// PES_packet_length of the header at `pes`; 0 if it lies behind the packet.
std::uint16_t GetPesLength(PacketSpan packet, std::size_t pes);

// First elementary byte of the PES at `pes`: 9 + PES_header_data_length
// behind it when byte 6 starts with '10', else byte 6. May be kBeyondPacket
// or larger; callers test before reading.
std::size_t GetPesPayload(PacketSpan packet, std::size_t pes);

// The PTS of a PES that starts in this packet, 0 for none. Reads bytes 9 to
// 13 of the header whenever its header length is not 0, with no look at the
// PTS_DTS_flags or the marker bits.
std::uint64_t ReadPts(PacketSpan packet);

// True if `length` bytes from `offset` lie inside the packet.
inline bool FitsInPacket(std::size_t offset, std::size_t length) {
  return offset <= kPacketSize && length <= kPacketSize - offset;
}
