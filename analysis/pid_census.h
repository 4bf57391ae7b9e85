// The PID census: which PIDs the scanned packets carry, how many of each, and
// what their PES starts look like.
#pragma once

#include <cstdint>

#include "analysis/packet_view.h"

struct PidStat {
  std::uint16_t pid;
  std::uint32_t count;
  std::uint8_t kind;
};

inline constexpr std::uint16_t kMaxCensusRows = 1000;
inline constexpr std::uint8_t kKindH264 = 27;
inline constexpr std::uint8_t kKindAac = 248;
inline constexpr std::uint8_t kKindAc3 = 249;
inline constexpr std::uint16_t kAc3PrivateMinLength = 1800;

// The kind byte of one packet: 0 without a PES start, else the stream_id,
// 249 for AC-3 by sync word or by a long private stream, 27 for an H.264
// access unit delimiter.
std::uint8_t CensusKind(PacketSpan packet);

// The sort order: larger counts first, counts compared unsigned.
int CompareCensusRows(const void* a, const void* b);

class CPidCensus {
 public:
  // Counts one packet. The first non-zero kind of a PID stays, except that
  // 249 replaces any kind. Past 1000 rows new PIDs are not counted.
  void Add(std::uint16_t pid, std::uint8_t kind);
  // Largest count first; equal counts keep no particular order.
  void Sort();

  std::uint16_t Count() const { return m_Count; }
  const PidStat& Row(std::uint16_t index) const { return m_Rows[index]; }
  const PidStat* Find(std::uint16_t pid) const;
  // Sum of all counts, in 32 bits as the queries report it.
  std::uint32_t TotalPackets() const;

 private:
  PidStat m_Rows[kMaxCensusRows] = {};
  std::uint16_t m_Count = 0;
};
