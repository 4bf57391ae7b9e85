#include "analysis/pid_census.h"

#include <cstdlib>

#include "analysis/pes_fields.h"

std::uint8_t CensusKind(PacketSpan packet) {
  if (!GetPayloadUnitStart(packet)) return 0;
  const std::size_t pes = GetPayload(packet);
  if (!IsPesStart(packet, pes)) return 0;

  const std::uint8_t streamId = packet[pes + 3];
  const std::size_t es = GetPesPayload(packet, pes);
  if (FitsInPacket(es, 2) && packet[es] == 0x0B && packet[es + 1] == 0x77) return kKindAc3;
  if (streamId == 0xBD && GetPesLength(packet, pes) >= kAc3PrivateMinLength) return kKindAc3;
  if (FitsInPacket(es, 5) && packet[es] == 0 && packet[es + 1] == 0 && packet[es + 2] == 0 &&
      packet[es + 3] == 1 && packet[es + 4] == 9) {
    return kKindH264;
  }
  return streamId;
}

int CompareCensusRows(const void* a, const void* b) {
  const auto countA = static_cast<const PidStat*>(a)->count;
  const auto countB = static_cast<const PidStat*>(b)->count;
  if (countA > countB) return -1;
  if (countA < countB) return 1;
  return 0;
}

void CPidCensus::Add(std::uint16_t pid, std::uint8_t kind) {
  for (std::uint16_t i = 0; i < m_Count; ++i) {
    PidStat& row = m_Rows[i];
    if (row.pid != pid) continue;
    ++row.count;
    if (kind != 0 && (row.kind == 0 || kind == kKindAc3)) row.kind = kind;
    return;
  }
  if (m_Count >= kMaxCensusRows) return;
  m_Rows[m_Count] = PidStat{pid, 1, kind};
  ++m_Count;
}

void CPidCensus::Sort() {
  if (m_Count > 1) std::qsort(m_Rows, m_Count, sizeof(PidStat), CompareCensusRows);
}

const PidStat* CPidCensus::Find(std::uint16_t pid) const {
  for (std::uint16_t i = 0; i < m_Count; ++i) {
    if (m_Rows[i].pid == pid) return &m_Rows[i];
  }
  return nullptr;
}

std::uint32_t CPidCensus::TotalPackets() const {
  std::uint32_t total = 0;
  for (std::uint16_t i = 0; i < m_Count; ++i) total += m_Rows[i].count;
  return total;
}
