#include "analysis/packet_engine.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "analysis/pes_fields.h"
#include "analysis/pid_census.h"

namespace {
constexpr std::uint32_t kElementaryDemux = 3;
}

std::int64_t ClampToInt64(double value) {
  if (std::isnan(value)) return 0;
  // 2^63 is exactly representable; anything at or above it does not fit.
  if (value >= 9223372036854775808.0) return std::numeric_limits<std::int64_t>::max();
  if (value <= -9223372036854775808.0) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(value);
}

void CPacketEngine::OnThreadDestroy() {
  CurrentPacket = 0;
  FirstPts = 0;
  LastPts = 0;
}

void CPacketEngine::SeekToPacket(std::uint32_t target) {
  CurrentPacket = target;
  ResyncAfterSeek = true;
  DeliveryGate = target + 1;
}

bool CPacketEngine::RunVideoAnalysis(PacketSpan target) {
  if (m_Host.AnalyseVideoHeader(target) == 0) return false;
  DeliveryGate = GateBase = CurrentPacket;
  return true;
}

HRESULT CPacketEngine::FillBuffer(std::span<std::uint8_t> sample, double rate,
                                  REFERENCE_TIME stopTime, SampleProperties* properties) {
  if (PacketBlock.empty()) return E_FAIL;
  const bool hasSample = !sample.empty();
  const std::span<std::uint8_t> target = hasSample ? sample : std::span<std::uint8_t>(m_Scratch);
  if (target.size() < kPacketSize) return E_FAIL;
  const PacketSpan targetPacket(target.data(), kPacketSize);

  const std::uint32_t prefDemux = m_Host.PrefDemux();
  const std::uint16_t videoPid = m_Host.VideoPid();
  const std::uint64_t packets = m_Host.GetStreamSize() / kPacketSize;

  std::uint16_t pid = 0;
  const std::uint8_t* packetBytes = nullptr;
  for (;;) {
    const std::uint32_t current = CurrentPacket.load(std::memory_order_relaxed);
    if (current >= packets) {
      m_Host.EndOfStream();
      return S_FALSE;
    }
    if (hasSample && (current < BlockFirstPacket ||
                      static_cast<std::uint64_t>(current) >
                          static_cast<std::uint64_t>(BlockFirstPacket) + (kBlockPackets - 1))) {
      m_Host.ReadPackets(PacketBlock, current, kBlockPackets, &BlockFirstPacket);
    }
    // Every mode addresses the block by the index modulo 10000, whatever the
    // block's own size; both buffers hold at least that many packets.
    const std::size_t at = static_cast<std::size_t>(current % kBlockPackets) * kPacketSize;
    if (at + kPacketSize > PacketBlock.size()) return E_FAIL;
    packetBytes = PacketBlock.data() + at;
    if (prefDemux != kElementaryDemux) std::memcpy(target.data(), packetBytes, kPacketSize);

    if (ResyncAfterSeek && !RunVideoAnalysis(targetPacket) &&
        DeliveryGate < GateBase + kGateSearchPackets) {
      ++DeliveryGate;
    }

    pid = GetPid(PacketSpan(packetBytes, kPacketSize));
    // Only this thread writes it; readers need a whole value, not a fence
    // at every packet.
    CurrentPacket.store(current + 1, std::memory_order_release);
    if (prefDemux == kElementaryDemux && hasSample && pid != videoPid) continue;
    if (current + 1 < DeliveryGate) continue;
    break;
  }

  LONG actualLength = -1;
  if (prefDemux == kElementaryDemux) {
    actualLength = ElementaryOutput(PacketSpan(packetBytes, kPacketSize), target, hasSample);
  }
  const int phase = m_Host.ScanPhase();
  if (phase == 2) m_Host.TablesStep(targetPacket);
  if (phase == 1) m_Host.CensusAdd(pid, CensusKind(targetPacket));

  bool syncPoint = false;
  if (pid != 0 && pid == videoPid && GetPayloadUnitStart(targetPacket) &&
      prefDemux != kElementaryDemux) {
    PtsStep(targetPacket, &syncPoint);
  }

  // Times only move at a PTS of the video PID, in whole milliseconds; the
  // stop time is the stream's, the same on every sample.
  const double inverse = 1.0 / rate;
  const auto ms = static_cast<std::int32_t>(static_cast<std::uint32_t>(PtsDelta / 90));
  const std::int64_t start =
      ClampToInt64(static_cast<double>(static_cast<std::int64_t>(ms) * 10000) * inverse);
  const std::int64_t stop = ClampToInt64(static_cast<double>(stopTime) * inverse);

  if (hasSample) {
    if (properties != nullptr) {
      properties->start = start;
      properties->stop = stop;
      properties->syncPoint = syncPoint;
      properties->discontinuity = ResyncAfterSeek;
      properties->actualLength = actualLength;
    }
    if (ResyncAfterSeek) {
      ResyncAfterSeek = false;
      GateBase = 0;
    }
  }
  return S_OK;
}

void CPacketEngine::PtsStep(PacketSpan target, bool* syncPoint) {
  if (!m_Host.VideoHeaderKnown()) RunVideoAnalysis(target);
  const std::uint64_t pts = ReadPts(target);
  if (pts == 0) return;
  LastPts = pts;
  if (FirstPts == 0) {
    FirstPts = pts;
  } else if (m_Host.ScanPhase() == 2 && pts < FirstPts) {
    FirstPts = pts;
  }
  PtsDelta = pts - FirstPts;
  *syncPoint = true;
}

LONG CPacketEngine::ElementaryOutput(PacketSpan packet, std::span<std::uint8_t> target,
                                     bool hasSample) {
  std::size_t skip = 4;
  if (GetPayloadUnitStart(packet) && hasSample) {
    skip = 0;
    const std::size_t pes = GetPayload(packet);
    if (IsPesStart(packet, pes)) {
      PesRemaining = GetPesLength(packet, pes);
      skip = GetPesPayload(packet, pes);
    }
  }
  PesRemaining = static_cast<std::uint16_t>(PesRemaining + skip - kPacketSize);
  // A header that claims to reach past the packet leaves nothing to copy.
  const std::size_t room = skip < kPacketSize ? kPacketSize - skip : 0;
  const std::size_t n = std::min<std::size_t>(PesRemaining, room);
  if (n > 0) std::memmove(target.data(), packet.data() + skip, n);
  return hasSample ? static_cast<LONG>(n) : -1;
}
