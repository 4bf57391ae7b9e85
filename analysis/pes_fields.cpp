#include "analysis/pes_fields.h"

std::size_t GetPayload(PacketSpan packet) {
  const std::size_t n = packet[4];
  return n == 0 ? 4 : n + 5;
}

bool IsPesStart(PacketSpan packet, std::size_t pes) {
  if (!FitsInPacket(pes, 6)) return false;
  return packet[pes] == 0 && packet[pes + 1] == 0 && packet[pes + 2] == 1;
}

std::uint16_t GetPesLength(PacketSpan packet, std::size_t pes) {
  if (!FitsInPacket(pes, 6)) return 0;
  return static_cast<std::uint16_t>((packet[pes + 4] << 8) | packet[pes + 5]);
}

std::size_t GetPesPayload(PacketSpan packet, std::size_t pes) {
  if (!FitsInPacket(pes, 7)) return kBeyondPacket;
  if ((packet[pes + 6] & 0xC0) != 0x80) return pes + 6;
  if (!FitsInPacket(pes, 9)) return kBeyondPacket;
  return pes + 9 + packet[pes + 8];
}

std::uint64_t ReadPts(PacketSpan packet) {
  const std::size_t p = GetPayload(packet);
  if (!FitsInPacket(p, 14)) return 0;
  if (packet[p] != 0 || packet[p + 1] != 0 || packet[p + 2] != 1) return 0;
  if (packet[p + 8] == 0) return 0;
  const std::uint64_t b9 = packet[p + 9];
  const std::uint64_t b10 = packet[p + 10];
  const std::uint64_t b11 = packet[p + 11];
  const std::uint64_t b12 = packet[p + 12];
  const std::uint64_t b13 = packet[p + 13];
  return ((b9 >> 1) & 0x07) << 30 | b10 << 22 | (b11 >> 1) << 15 | b12 << 7 | (b13 >> 1);
}
