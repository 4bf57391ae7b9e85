#include "tests/support/ts_writer.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace tsw {

std::uint32_t Crc32Mpeg2(std::span<const std::uint8_t> data) {
  std::uint32_t crc = 0xFFFFFFFFu;
  for (std::uint8_t byte : data) {
    crc ^= static_cast<std::uint32_t>(byte) << 24;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc & 0x80000000u) != 0 ? (crc << 1) ^ 0x04C11DB7u : crc << 1;
    }
  }
  return crc;
}

Packet MakePacket(std::uint16_t pid, bool payloadUnitStart, std::span<const std::uint8_t> payload,
                  int adaptationLength, std::uint8_t continuity) {
  Packet packet;
  packet.fill(0xFF);
  packet[0] = 0x47;
  packet[1] = static_cast<std::uint8_t>((payloadUnitStart ? 0x40 : 0) | ((pid >> 8) & 0x1F));
  packet[2] = static_cast<std::uint8_t>(pid & 0xFF);
  std::size_t at = 4;
  if (adaptationLength >= 0) {
    packet[3] = static_cast<std::uint8_t>(0x30 | (continuity & 0x0F));
    packet[4] = static_cast<std::uint8_t>(adaptationLength);
    if (adaptationLength > 0) packet[5] = 0;
    at = 5 + static_cast<std::size_t>(adaptationLength);
  } else {
    packet[3] = static_cast<std::uint8_t>(0x10 | (continuity & 0x0F));
  }
  if (at < packet.size()) {
    const std::size_t n = std::min(payload.size(), packet.size() - at);
    std::copy_n(payload.begin(), n, packet.begin() + static_cast<std::ptrdiff_t>(at));
  }
  return packet;
}

std::array<std::uint8_t, 5> EncodePts(std::uint64_t pts, std::uint8_t prefix) {
  return {static_cast<std::uint8_t>((prefix << 4) | (((pts >> 30) & 0x07) << 1) | 1),
          static_cast<std::uint8_t>((pts >> 22) & 0xFF),
          static_cast<std::uint8_t>((((pts >> 15) & 0x7F) << 1) | 1),
          static_cast<std::uint8_t>((pts >> 7) & 0xFF),
          static_cast<std::uint8_t>(((pts & 0x7F) << 1) | 1)};
}

Bytes PesHeader(std::uint8_t streamId, std::uint64_t pts, std::uint16_t pesLength,
                std::uint8_t extraHeaderBytes) {
  Bytes header = {0x00, 0x00, 0x01, streamId, static_cast<std::uint8_t>(pesLength >> 8),
                  static_cast<std::uint8_t>(pesLength & 0xFF), 0x80,
                  static_cast<std::uint8_t>(pts != 0 ? 0x80 : 0x00),
                  static_cast<std::uint8_t>((pts != 0 ? 5 : 0) + extraHeaderBytes)};
  if (pts != 0) {
    const auto bytes = EncodePts(pts);
    header.insert(header.end(), bytes.begin(), bytes.end());
  }
  header.insert(header.end(), extraHeaderBytes, 0xFF);
  return header;
}

Bytes Section(std::uint8_t tableId, std::uint16_t idExtension, std::uint8_t version,
              std::span<const std::uint8_t> body, std::uint8_t sectionNumber,
              std::uint8_t lastSectionNumber) {
  const std::size_t sectionLength = 5 + body.size() + 4;
  Bytes section = {tableId,
                   static_cast<std::uint8_t>(0xB0 | ((sectionLength >> 8) & 0x0F)),
                   static_cast<std::uint8_t>(sectionLength & 0xFF),
                   static_cast<std::uint8_t>(idExtension >> 8),
                   static_cast<std::uint8_t>(idExtension & 0xFF),
                   static_cast<std::uint8_t>(0xC1 | ((version & 0x1F) << 1)),
                   sectionNumber,
                   lastSectionNumber};
  section.insert(section.end(), body.begin(), body.end());
  const std::uint32_t crc = Crc32Mpeg2(section);
  for (int shift = 24; shift >= 0; shift -= 8) {
    section.push_back(static_cast<std::uint8_t>((crc >> shift) & 0xFF));
  }
  return section;
}

Bytes PatSection(std::uint16_t transportStreamId, std::uint8_t version,
                 std::initializer_list<PatRow> rows) {
  Bytes body;
  for (const PatRow& row : rows) {
    body.push_back(static_cast<std::uint8_t>(row.program >> 8));
    body.push_back(static_cast<std::uint8_t>(row.program & 0xFF));
    body.push_back(static_cast<std::uint8_t>(0xE0 | ((row.pid >> 8) & 0x1F)));
    body.push_back(static_cast<std::uint8_t>(row.pid & 0xFF));
  }
  return Section(0x00, transportStreamId, version, body);
}

Bytes PmtSection(std::uint16_t program, std::uint8_t version, std::uint16_t pcrPid,
                 const std::vector<PmtStream>& streams) {
  Bytes body = {static_cast<std::uint8_t>(0xE0 | ((pcrPid >> 8) & 0x1F)),
                static_cast<std::uint8_t>(pcrPid & 0xFF), 0xF0, 0x00};
  for (const PmtStream& stream : streams) {
    body.push_back(stream.streamType);
    body.push_back(static_cast<std::uint8_t>(0xE0 | ((stream.pid >> 8) & 0x1F)));
    body.push_back(static_cast<std::uint8_t>(stream.pid & 0xFF));
    body.push_back(static_cast<std::uint8_t>(0xF0 | ((stream.descriptors.size() >> 8) & 0x0F)));
    body.push_back(static_cast<std::uint8_t>(stream.descriptors.size() & 0xFF));
    body.insert(body.end(), stream.descriptors.begin(), stream.descriptors.end());
  }
  return Section(0x02, program, version, body);
}

Bytes LanguageDescriptor(const std::string& code, std::uint8_t audioType) {
  Bytes descriptor = {0x0A, static_cast<std::uint8_t>(code.size() + 1)};
  descriptor.insert(descriptor.end(), code.begin(), code.end());
  descriptor.push_back(audioType);
  return descriptor;
}

void Reseal(Bytes& section) {
  if (section.size() < 4) return;
  const std::size_t body = section.size() - 4;
  const std::uint32_t crc = Crc32Mpeg2(std::span<const std::uint8_t>(section).first(body));
  for (std::size_t i = 0; i < 4; ++i) {
    section[body + i] = static_cast<std::uint8_t>((crc >> (24 - 8 * i)) & 0xFF);
  }
}

void SetSectionLength(Bytes& section, std::uint16_t sectionLength) {
  if (section.size() < 3) return;
  section[1] = static_cast<std::uint8_t>((section[1] & 0xF0) | ((sectionLength >> 8) & 0x0F));
  section[2] = static_cast<std::uint8_t>(sectionLength & 0xFF);
}

Bytes InPacket(std::span<const std::uint8_t> section) {
  const std::size_t n = std::min<std::size_t>(section.size(), 183);
  Bytes bytes(section.begin(), section.begin() + static_cast<std::ptrdiff_t>(n));
  bytes.resize(183, 0xFF);
  return bytes;
}

Bytes ServiceDescriptor(const std::string& provider, const std::string& name, std::uint8_t serviceType) {
  Bytes descriptor = {0x48, static_cast<std::uint8_t>(3 + provider.size() + name.size()), serviceType,
                      static_cast<std::uint8_t>(provider.size())};
  descriptor.insert(descriptor.end(), provider.begin(), provider.end());
  descriptor.push_back(static_cast<std::uint8_t>(name.size()));
  descriptor.insert(descriptor.end(), name.begin(), name.end());
  return descriptor;
}

Bytes SdtSection(std::uint16_t transportStreamId, std::uint8_t version,
                 const std::vector<SdtService>& services, std::uint8_t tableId, std::uint8_t sectionNumber,
                 std::uint8_t lastSectionNumber) {
  Bytes body = {0x12, 0x34, 0xFF};
  for (const SdtService& service : services) {
    body.push_back(static_cast<std::uint8_t>(service.serviceId >> 8));
    body.push_back(static_cast<std::uint8_t>(service.serviceId & 0xFF));
    body.push_back(0xFC);
    body.push_back(static_cast<std::uint8_t>(0x80 | ((service.descriptors.size() >> 8) & 0x0F)));
    body.push_back(static_cast<std::uint8_t>(service.descriptors.size() & 0xFF));
    body.insert(body.end(), service.descriptors.begin(), service.descriptors.end());
  }
  return Section(tableId, transportStreamId, version, body, sectionNumber, lastSectionNumber);
}

std::vector<Packet> SectionPackets(std::uint16_t pid, std::span<const std::uint8_t> section) {
  std::vector<Packet> packets;
  Bytes first = {0x00};
  const std::size_t head = std::min<std::size_t>(183, section.size());
  first.insert(first.end(), section.begin(), section.begin() + static_cast<std::ptrdiff_t>(head));
  packets.push_back(MakePacket(pid, true, first, -1, 0));
  for (std::size_t at = head; at < section.size(); at += 184) {
    const std::size_t n = std::min<std::size_t>(184, section.size() - at);
    packets.push_back(
        MakePacket(pid, false, section.subspan(at, n), -1, static_cast<std::uint8_t>(packets.size())));
  }
  return packets;
}

Bytes Mpeg2SequenceHeader(std::uint16_t width, std::uint16_t height, std::uint8_t aspectCode,
                          std::uint8_t frameRateCode) {
  return {0x00,
          0x00,
          0x01,
          0xB3,
          static_cast<std::uint8_t>(width >> 4),
          static_cast<std::uint8_t>(((width & 0x0F) << 4) | ((height >> 8) & 0x0F)),
          static_cast<std::uint8_t>(height & 0xFF),
          static_cast<std::uint8_t>((aspectCode << 4) | (frameRateCode & 0x0F)),
          0xFF,
          0xFF,
          0xE0,
          0x00};
}

Bytes H264Delimiter() { return {0x00, 0x00, 0x00, 0x01, 0x09, 0xF0}; }

void BitWriter::Bits(std::uint32_t value, int count) {
  for (int i = count - 1; i >= 0; --i) {
    if (m_Used == 0) m_Bytes.push_back(0);
    if (((value >> i) & 1u) != 0) m_Bytes.back() |= static_cast<std::uint8_t>(0x80u >> m_Used);
    m_Used = (m_Used + 1) % 8;
  }
}

void BitWriter::Ue(std::uint32_t value) {
  const std::uint64_t coded = static_cast<std::uint64_t>(value) + 1;
  int bits = 0;
  while ((coded >> bits) > 1) ++bits;
  Bits(0, bits);
  for (int i = bits; i >= 0; --i) Bits(static_cast<std::uint32_t>((coded >> i) & 1u), 1);
}

void BitWriter::Se(std::int32_t value) {
  const auto magnitude = static_cast<std::uint32_t>(value < 0 ? -static_cast<std::int64_t>(value) : value);
  Ue(value > 0 ? 2 * magnitude - 1 : 2 * magnitude);
}

Bytes BitWriter::Finish() {
  Bits(1, 1);
  while (m_Used != 0) Bits(0, 1);
  return m_Bytes;
}

void TsFile::Add(const Packet& packet) { m_Bytes.insert(m_Bytes.end(), packet.begin(), packet.end()); }

std::uint8_t TsFile::NextContinuity(std::uint16_t pid) {
  return static_cast<std::uint8_t>(m_Continuity[pid & 0x1FFF]++ & 0x0F);
}

void TsFile::AddSection(std::uint16_t pid, std::span<const std::uint8_t> section) {
  Bytes payload = {0x00};
  payload.insert(payload.end(), section.begin(), section.end());
  Add(MakePacket(pid, true, payload, -1, NextContinuity(pid)));
}

void TsFile::AddPes(std::uint16_t pid, std::span<const std::uint8_t> pes) {
  std::size_t at = 0;
  bool first = true;
  do {
    const std::size_t n = std::min<std::size_t>(184, pes.size() - at);
    Add(MakePacket(pid, first, pes.subspan(at, n), -1, NextContinuity(pid)));
    at += n;
    first = false;
  } while (at < pes.size());
}

void TsFile::AddFiller(std::uint16_t pid, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) Add(MakePacket(pid, false, {}, -1, NextContinuity(pid)));
}

void TsFile::AddRaw(std::span<const std::uint8_t> bytes) {
  m_Bytes.insert(m_Bytes.end(), bytes.begin(), bytes.end());
}

void TsFile::Write(const std::filesystem::path& path) const {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(m_Bytes.data()), static_cast<std::streamsize>(m_Bytes.size()));
  if (!out) throw std::runtime_error("cannot write " + path.string());
}

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "brindlet-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  m_Path = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(m_Path, ignored);
}

}  // namespace tsw
