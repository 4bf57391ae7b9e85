// A small transport stream writer for tests: packets, PSI sections with a
// real CRC, PES headers with PTS, video headers, so each test builds exactly
// the bytes it needs.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

namespace tsw {

using Bytes = std::vector<std::uint8_t>;
using Packet = std::array<std::uint8_t, 188>;

// CRC-32 of MPEG-2 sections, bit by bit, independent of the system's table.
std::uint32_t Crc32Mpeg2(std::span<const std::uint8_t> data);

// A packet with a 4-byte header and `payload`, padded with 0xFF. With
// `adaptationLength` >= 0 an adaptation field of that length (a flags byte of
// 0 and stuffing) stands between header and payload. The payload is cut at
// the packet's end.
Packet MakePacket(std::uint16_t pid, bool payloadUnitStart, std::span<const std::uint8_t> payload,
                  int adaptationLength = -1, std::uint8_t continuity = 0);

// The five PTS bytes with the given 4-bit prefix ('0010' for PTS only) and
// all marker bits set.
std::array<std::uint8_t, 5> EncodePts(std::uint64_t pts, std::uint8_t prefix = 0x2);

// A PES header: start code, stream_id, PES_packet_length, '10' flags byte, a
// PTS when `pts` is not 0, and `extraHeaderBytes` of stuffing.
Bytes PesHeader(std::uint8_t streamId, std::uint64_t pts, std::uint16_t pesLength = 0,
                std::uint8_t extraHeaderBytes = 0);

// A long-form section with CRC: table_id, syntax bit, id extension, version,
// current_next 1, section numbers, then `body`.
Bytes Section(std::uint8_t tableId, std::uint16_t idExtension, std::uint8_t version,
              std::span<const std::uint8_t> body, std::uint8_t sectionNumber = 0,
              std::uint8_t lastSectionNumber = 0);

struct PatRow {
  std::uint16_t program;
  std::uint16_t pid;
};
Bytes PatSection(std::uint16_t transportStreamId, std::uint8_t version,
                 std::initializer_list<PatRow> rows);

struct PmtStream {
  std::uint8_t streamType;
  std::uint16_t pid;
  Bytes descriptors;
};
Bytes PmtSection(std::uint16_t program, std::uint8_t version, std::uint16_t pcrPid,
                 const std::vector<PmtStream>& streams);
Bytes LanguageDescriptor(const std::string& code, std::uint8_t audioType = 0);

// Rewrites the CRC_32 in the last four bytes after a test has edited the
// section, so that only the edit decides whether a reader takes it.
void Reseal(Bytes& section);
// Writes a section_length into the header; the bytes stay as they are.
void SetSectionLength(Bytes& section, std::uint16_t sectionLength);

// The 183 section bytes of a packet whose section starts behind a
// pointer_field of 0: the section, cut at the packet's end or padded with
// stuffing.
Bytes InPacket(std::span<const std::uint8_t> section);

// Service descriptor (tag 0x48): service_type, provider name, service name.
// The name is bytes, control codes included.
Bytes ServiceDescriptor(const std::string& provider, const std::string& name,
                        std::uint8_t serviceType = 1);

struct SdtService {
  std::uint16_t serviceId;
  Bytes descriptors;
};
// An SDT section: original_network_id, a reserved byte, then one row per
// service with running_status set in the bits above the loop length.
Bytes SdtSection(std::uint16_t transportStreamId, std::uint8_t version,
                 const std::vector<SdtService>& services, std::uint8_t tableId = 0x42,
                 std::uint8_t sectionNumber = 0, std::uint8_t lastSectionNumber = 0);

// A section split over packets of `pid`: the first, with the unit start and a
// pointer_field of 0, takes 183 bytes, every further one 184.
std::vector<Packet> SectionPackets(std::uint16_t pid, std::span<const std::uint8_t> section);

// MPEG-2 video sequence header (00 00 01 B3 ...) of 12 bytes.
Bytes Mpeg2SequenceHeader(std::uint16_t width, std::uint16_t height, std::uint8_t aspectCode,
                          std::uint8_t frameRateCode);

// H.264 access unit delimiter 00 00 00 01 09 F0.
Bytes H264Delimiter();

// MSB-first bit writer with Exp-Golomb codes, for H.264 parameter sets.
class BitWriter {
 public:
  void Bits(std::uint32_t value, int count);
  void Ue(std::uint32_t value);
  void Se(std::int32_t value);
  // Stop bit and zero padding to a whole byte.
  Bytes Finish();

 private:
  Bytes m_Bytes;
  int m_Used = 0;  // bits used in the last byte
};

// A file of packets under construction.
class TsFile {
 public:
  void Add(const Packet& packet);
  // One section in one packet behind a pointer_field of 0.
  void AddSection(std::uint16_t pid, std::span<const std::uint8_t> section);
  // A whole PES spread over packets; the first carries the unit start.
  void AddPes(std::uint16_t pid, std::span<const std::uint8_t> pes);
  // `count` packets of `pid` with no unit start.
  void AddFiller(std::uint16_t pid, std::size_t count);
  // Raw bytes, for partial packets and junk.
  void AddRaw(std::span<const std::uint8_t> bytes);

  std::size_t PacketCount() const { return m_Bytes.size() / 188; }
  const Bytes& Data() const { return m_Bytes; }
  void Write(const std::filesystem::path& path) const;

 private:
  std::uint8_t NextContinuity(std::uint16_t pid);
  Bytes m_Bytes;
  std::array<std::uint8_t, 8192> m_Continuity{};
};

// A fresh directory under the system's temporary folder, removed at the end.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& Path() const { return m_Path; }
  std::filesystem::path File(const std::string& name) const { return m_Path / name; }

 private:
  std::filesystem::path m_Path;
};

}  // namespace tsw
