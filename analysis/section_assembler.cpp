#include "analysis/section_assembler.h"

#include <algorithm>
#include <cstring>

#include "analysis/psi_section.h"

namespace {
// A continuation packet's payload starts at packet offset 4, one byte before
// the section bytes that the caller hands over.
constexpr std::size_t kContinuationBytes = 184;
}  // namespace

int CSectionAssembler::WantsPacket(PacketSpan packet) {
  if (Gathering() && m_Size - Gathered() > kContinuationBytes) return 1;
  const SectionHeader h = ReadSectionHeader(packet.subspan(kSectionOffsetInPacket));
  if (!h.complete || h.section_length <= kSingleSectionMaxLength || h.section_length > kMaxSectionLength ||
      h.section_length < kMinSectionLength || h.last_section_number < h.section_number ||
      h.section_syntax_indicator == 0 || Gathering()) {
    return 0;
  }
  m_SectionLength = static_cast<std::uint16_t>(h.section_length);
  m_Size = h.section_length + 3;
  m_Buffer.reset(new std::uint8_t[m_Size]());
  m_WritePosition = 0;
  m_FirstPacket = true;
  return 1;
}

void CSectionAssembler::Copy(std::span<const std::uint8_t> bytes) {
  const std::size_t n = std::min(bytes.size(), m_Size - m_WritePosition);
  std::memcpy(m_Buffer.get() + m_WritePosition, bytes.data(), n);
  m_WritePosition += n;
}

void CSectionAssembler::AppendPacket(PacketSpan packet) {
  if (!Gathering()) return;
  // The first packet gives its 183 section bytes, every later one 184.
  Copy(packet.subspan(m_FirstPacket ? kSectionOffsetInPacket : kPacketSize - kContinuationBytes));
  m_FirstPacket = false;
}

std::span<const std::uint8_t> CSectionAssembler::FinishSection(PacketSpan packet) {
  if (!Gathering()) return packet.subspan(kSectionOffsetInPacket);
  Copy(packet.subspan(kPacketSize - kContinuationBytes));
  return {m_Buffer.get(), m_Size};
}

void CSectionAssembler::ReleaseSection() {
  m_Buffer.reset();
  m_Size = 0;
  m_WritePosition = 0;
  m_SectionLength = 0;
  m_FirstPacket = false;
}
