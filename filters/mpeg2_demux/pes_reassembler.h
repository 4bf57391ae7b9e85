// Transport packet fields and PES reassembly for the MPEG-2 demultiplexer:
// byte work only, no COM, so it can be tested and fuzzed alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

inline constexpr std::size_t kTsPacketSize = 188;
inline constexpr std::uint8_t kTsSyncByte = 0x47;
inline constexpr std::uint16_t kTsPidCount = 0x2000;
inline constexpr std::uint64_t kPtsMask = (std::uint64_t{1} << 33) - 1;
// An unbounded PES that grows past this is junk or a lost start, not a frame.
inline constexpr std::size_t kMaxPesSize = 16 * 1024 * 1024;

using TsPacketBytes = std::span<const std::uint8_t, kTsPacketSize>;

// The header fields of one packet and where its payload lies.
struct TsPacket {
  std::uint16_t pid = 0;
  bool transportError = false;
  bool unitStart = false;
  bool scrambled = false;
  std::uint8_t continuity = 0;
  bool hasPayload = false;  // adaptation_field_control 1 or 3
  bool discontinuityIndicator = false;
  std::span<const std::uint8_t> payload;  // inside the packet's 188 bytes
};

// False for a packet that cannot be read: no sync byte, the reserved
// adaptation_field_control 0, or an adaptation field the packet cannot hold.
[[nodiscard]] bool ParseTsPacket(TsPacketBytes bytes, TsPacket* packet);

// A 33-bit time stamp of a PES header, or nothing when its marker bits are
// wrong. `bytes` holds at least five bytes.
[[nodiscard]] std::optional<std::uint64_t> ReadTimeStamp(std::span<const std::uint8_t> bytes);

// One reassembled PES as the reassembler hands it out; the payload lives
// only during the call.
struct PesPacket {
  std::uint8_t streamId = 0;
  std::optional<std::uint64_t> pts;
  std::optional<std::uint64_t> dts;
  bool discontinuity = false;  // data was lost or dropped before this one
  std::span<const std::uint8_t> payload;
};

// Fault counts, for tests and tools.
struct PesCounters {
  std::uint64_t packets = 0;
  std::uint64_t delivered = 0;
  std::uint64_t continuityErrors = 0;
  std::uint64_t duplicates = 0;
  std::uint64_t lostPackets = 0;  // transport errors and scrambled payloads
  std::uint64_t badHeaders = 0;
  std::uint64_t truncated = 0;  // a bounded PES cut short by the next start or the end
  std::uint64_t oversized = 0;
};

// Reassembles the PES packets of one PID. A bounded PES goes out as soon as
// its PES_packet_length is reached; one of length 0 when the next unit start
// comes, or at Finish.
class CPesReassembler {
 public:
  using Sink = std::function<void(const PesPacket&)>;
  explicit CPesReassembler(Sink sink) : m_Sink(std::move(sink)) {}

  // One packet of this reassembler's PID, parsed by ParseTsPacket.
  void Push(const TsPacket& packet);
  // The stream has ended: an unbounded PES ends with it and goes out.
  void Finish();
  // Forgets the partial PES and the continuity counter; the next PES is
  // marked as a discontinuity.
  void Reset();

  const PesCounters& Counters() const { return m_Counters; }

 private:
  enum class Stage { WaitStart, Header, Payload, Skip };
  enum class HeaderResult { NeedMore, Bad, Done };

  HeaderResult ParseHeader();
  void Append(std::span<const std::uint8_t> bytes);
  void Advance();
  void EndUnit();
  void Deliver();
  void Drop();

  Sink m_Sink;
  PesCounters m_Counters;
  Stage m_Stage = Stage::WaitStart;
  std::vector<std::uint8_t> m_Buffer;  // the PES from its start code on
  std::size_t m_Total = 0;             // 6 + PES_packet_length; 0 for unbounded
  std::size_t m_PayloadOffset = 0;
  PesPacket m_Header;  // fields of the PES being assembled
  bool m_HaveContinuity = false;
  std::uint8_t m_LastContinuity = 0;
  bool m_Discontinuity = false;
};
