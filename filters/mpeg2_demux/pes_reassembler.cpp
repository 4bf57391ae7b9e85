#include "filters/mpeg2_demux/pes_reassembler.h"

#include <algorithm>

namespace {

constexpr std::size_t kPesStartLength = 6;      // start code, stream_id, PES_packet_length
constexpr std::size_t kPesOptionalFixed = 9;    // ... and the two flag bytes, header length
constexpr std::size_t kMaxAdaptationWithPayload = 182;
constexpr std::size_t kMaxAdaptationAlone = 183;

// stream_ids whose PES carries no optional header: the payload follows
// PES_packet_length at once.
bool HasOptionalHeader(std::uint8_t streamId) {
  switch (streamId) {
    case 0xBC:  // program_stream_map
    case 0xBE:  // padding_stream
    case 0xBF:  // private_stream_2
    case 0xF0:  // ECM
    case 0xF1:  // EMM
    case 0xF2:  // DSMCC
    case 0xF8:  // H.222.1 type E
    case 0xFF:  // program_stream_directory
      return false;
    default:
      return true;
  }
}

constexpr std::uint8_t kPaddingStream = 0xBE;

}  // namespace

bool ParseTsPacket(TsPacketBytes bytes, TsPacket* packet) {
  if (bytes[0] != kTsSyncByte) return false;
  TsPacket p;
  p.transportError = (bytes[1] & 0x80) != 0;
  p.unitStart = (bytes[1] & 0x40) != 0;
  p.pid = static_cast<std::uint16_t>(((bytes[1] & 0x1F) << 8) | bytes[2]);
  p.scrambled = (bytes[3] & 0xC0) != 0;
  const int control = (bytes[3] >> 4) & 0x03;
  p.continuity = bytes[3] & 0x0F;
  if (control == 0) return false;
  std::size_t at = 4;
  if ((control & 0x02) != 0) {
    const std::size_t length = bytes[4];
    if (length > (control == 3 ? kMaxAdaptationWithPayload : kMaxAdaptationAlone)) return false;
    if (length > 0) p.discontinuityIndicator = (bytes[5] & 0x80) != 0;
    at = 5 + length;
  }
  p.hasPayload = (control & 0x01) != 0;
  if (p.hasPayload) p.payload = std::span<const std::uint8_t>(bytes).subspan(at);
  *packet = p;
  return true;
}

std::optional<std::uint64_t> ReadTimeStamp(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < 5) return std::nullopt;
  // A marker bit closes each of the three parts.
  if ((bytes[0] & 0x01) == 0 || (bytes[2] & 0x01) == 0 || (bytes[4] & 0x01) == 0) {
    return std::nullopt;
  }
  return (std::uint64_t{bytes[0] & 0x0Eu} << 29) | (std::uint64_t{bytes[1]} << 22) |
         (std::uint64_t{bytes[2] & 0xFEu} << 14) | (std::uint64_t{bytes[3]} << 7) |
         (std::uint64_t{bytes[4]} >> 1);
}

void CPesReassembler::Push(const TsPacket& packet) {
  ++m_Counters.packets;
  if (packet.transportError || (packet.hasPayload && packet.scrambled)) {
    // The payload cannot be trusted or read; the PES it belonged to is lost.
    ++m_Counters.lostPackets;
    Drop();
    return;
  }
  // The counter moves only with a payload. One repeat of the last packet is
  // allowed and carries nothing new.
  if (packet.hasPayload) {
    if (m_HaveContinuity && !packet.discontinuityIndicator) {
      if (packet.continuity == m_LastContinuity) {
        ++m_Counters.duplicates;
        return;
      }
      if (packet.continuity != ((m_LastContinuity + 1) & 0x0F)) {
        ++m_Counters.continuityErrors;
        Drop();
        m_Discontinuity = true;
      }
    } else if (packet.discontinuityIndicator && m_HaveContinuity) {
      m_Discontinuity = true;
    }
    m_HaveContinuity = true;
    m_LastContinuity = packet.continuity;
  }
  if (!packet.hasPayload || packet.payload.empty()) return;

  if (packet.unitStart) {
    EndUnit();
    m_Stage = Stage::Header;
    m_Buffer.clear();
    m_Total = 0;
    m_PayloadOffset = 0;
    m_Header = PesPacket{};
  } else if (m_Stage == Stage::WaitStart) {
    return;
  }
  Append(packet.payload);
  Advance();
}

void CPesReassembler::Append(std::span<const std::uint8_t> bytes) {
  if (m_Stage == Stage::Skip) {
    // Padding is counted to its end but never kept.
    const std::size_t keep = std::min(bytes.size(), m_Total - m_Buffer.size());
    m_Buffer.resize(m_Buffer.size() + keep);
    return;
  }
  // Bytes behind a bounded PES's end are stuffing; they are never kept.
  std::size_t keep = bytes.size();
  if (m_Total != 0 && m_Buffer.size() + keep > m_Total) keep = m_Total - m_Buffer.size();
  m_Buffer.insert(m_Buffer.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(keep));
}

CPesReassembler::HeaderResult CPesReassembler::ParseHeader() {
  const std::span<const std::uint8_t> b(m_Buffer);
  if (b.size() < kPesStartLength) return HeaderResult::NeedMore;
  if (b[0] != 0x00 || b[1] != 0x00 || b[2] != 0x01) return HeaderResult::Bad;
  m_Header.streamId = b[3];
  const std::size_t length = static_cast<std::size_t>((b[4] << 8) | b[5]);
  m_Total = length == 0 ? 0 : kPesStartLength + length;
  if (!HasOptionalHeader(m_Header.streamId)) {
    m_PayloadOffset = kPesStartLength;
    return HeaderResult::Done;
  }
  if (m_Total != 0 && m_Total < kPesOptionalFixed) return HeaderResult::Bad;
  if (b.size() < kPesOptionalFixed) return HeaderResult::NeedMore;
  if ((b[6] & 0xC0) != 0x80) return HeaderResult::Bad;
  const int ptsDtsFlags = (b[7] >> 6) & 0x03;
  const std::size_t headerLength = b[8];
  const std::size_t payloadOffset = kPesOptionalFixed + headerLength;
  if (m_Total != 0 && payloadOffset > m_Total) return HeaderResult::Bad;
  if (ptsDtsFlags == 1) return HeaderResult::Bad;  // forbidden value
  const std::size_t stampBytes = ptsDtsFlags == 3 ? 10 : ptsDtsFlags == 2 ? 5 : 0;
  if (headerLength < stampBytes) return HeaderResult::Bad;
  if (b.size() < payloadOffset) return HeaderResult::NeedMore;
  if (ptsDtsFlags >= 2) m_Header.pts = ReadTimeStamp(b.subspan(kPesOptionalFixed, 5));
  if (ptsDtsFlags == 3) m_Header.dts = ReadTimeStamp(b.subspan(kPesOptionalFixed + 5, 5));
  m_PayloadOffset = payloadOffset;
  return HeaderResult::Done;
}

void CPesReassembler::Advance() {
  if (m_Stage == Stage::Header) {
    switch (ParseHeader()) {
      case HeaderResult::NeedMore:
        // An unbounded header still unread this far is not a PES header.
        if (m_Buffer.size() > kPesOptionalFixed + 255) {
          ++m_Counters.badHeaders;
          Drop();
        }
        return;
      case HeaderResult::Bad:
        ++m_Counters.badHeaders;
        Drop();
        return;
      case HeaderResult::Done:
        if (m_Header.streamId == kPaddingStream) {
          m_Stage = m_Total != 0 ? Stage::Skip : Stage::WaitStart;
        } else {
          m_Stage = Stage::Payload;
        }
        // The length was unknown while the first bytes came in.
        if (m_Total != 0 && m_Buffer.size() > m_Total) m_Buffer.resize(m_Total);
        break;
    }
  }
  if (m_Total != 0 && m_Buffer.size() >= m_Total) {
    if (m_Stage == Stage::Payload) Deliver();
    m_Stage = Stage::WaitStart;
    m_Buffer.clear();
    return;
  }
  if (m_Total == 0 && m_Buffer.size() > kMaxPesSize) {
    ++m_Counters.oversized;
    Drop();
  }
}

void CPesReassembler::EndUnit() {
  if (m_Stage == Stage::Payload && m_Total == 0) {
    Deliver();
  } else if (m_Stage == Stage::Header || m_Stage == Stage::Payload || m_Stage == Stage::Skip) {
    ++m_Counters.truncated;
    m_Discontinuity = true;
  }
  m_Stage = Stage::WaitStart;
  m_Buffer.clear();
}

void CPesReassembler::Deliver() {
  if (m_Buffer.size() <= m_PayloadOffset) return;  // a header alone carries nothing to play
  PesPacket pes = m_Header;
  pes.discontinuity = m_Discontinuity;
  pes.payload = std::span<const std::uint8_t>(m_Buffer).subspan(m_PayloadOffset);
  m_Discontinuity = false;
  ++m_Counters.delivered;
  m_Sink(pes);
}

void CPesReassembler::Drop() {
  if (m_Stage != Stage::WaitStart) m_Discontinuity = true;
  m_Stage = Stage::WaitStart;
  m_Buffer.clear();
}

void CPesReassembler::Finish() {
  EndUnit();
}

void CPesReassembler::Reset() {
  m_Stage = Stage::WaitStart;
  m_Buffer.clear();
  m_HaveContinuity = false;
  m_Discontinuity = true;
}
