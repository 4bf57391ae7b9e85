// Transport packet geometry and the two header fields the system reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

inline constexpr std::size_t kPacketSize = 188;
inline constexpr std::uint8_t kSyncByte = 0x47;
// Delivery reads the file in blocks of this many packets, and every mode of
// the engine addresses a packet by its index modulo this number.
inline constexpr std::uint32_t kBlockPackets = 10000;
inline constexpr std::uint32_t kScanBlockPackets = 30000;
inline constexpr std::uint32_t kTailBlockPackets = 20000;
inline constexpr std::uint16_t kNullPid = 0x1FFF;
inline constexpr std::uint16_t kSdtPid = 17;

// Exactly one packet; every accessor below reads inside these 188 bytes.
using PacketSpan = std::span<const std::uint8_t, kPacketSize>;

inline std::uint16_t GetPid(PacketSpan packet) {
  return static_cast<std::uint16_t>(((packet[1] & 0x1F) << 8) | packet[2]);
}

inline int GetPayloadUnitStart(PacketSpan packet) { return (packet[1] >> 6) & 1; }
