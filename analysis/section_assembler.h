// Gathers SDT sections that span several packets of PID 17. It trusts the
// packets to follow each other: a lost one shows only as a wrong CRC.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "analysis/packet_view.h"

class CSectionAssembler {
 public:
  // The section bytes are the packet's from offset 5 on; a continuation
  // packet's payload starts at offset 4. 1: append this packet; 0: read the
  // section now.
  int WantsPacket(PacketSpan packet);
  void AppendPacket(PacketSpan packet);
  // The gathered section, or the packet's own section bytes when idle.
  std::span<const std::uint8_t> FinishSection(PacketSpan packet);
  void ReleaseSection();

  bool Gathering() const { return m_Buffer != nullptr; }

 private:
  std::size_t Gathered() const { return m_WritePosition; }
  void Copy(std::span<const std::uint8_t> bytes);

  std::unique_ptr<std::uint8_t[]> m_Buffer;
  std::size_t m_Size = 0;           // section_length + 3
  std::size_t m_WritePosition = 0;  // next free byte
  std::uint16_t m_SectionLength = 0;
  bool m_FirstPacket = false;
};

// A section that the packet alone can hold is read at once; only lengths
// above this are gathered.
inline constexpr std::uint16_t kSingleSectionMaxLength = 188;
