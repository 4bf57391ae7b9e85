// Feeds the input, cut into 188-byte packets, to the section readers, the SDT
// assembler and the PES field readers in the order the scan's passes use
// them, then runs track selection over what they found. Every reader is
// also given raw slices of the input with lengths they did not choose.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <vector>

#include "analysis/packet_view.h"
#include "analysis/pat_parser.h"
#include "analysis/pes_fields.h"
#include "analysis/pid_census.h"
#include "analysis/pmt_parser.h"
#include "analysis/program_table.h"
#include "analysis/psi_section.h"
#include "analysis/sdt_parser.h"
#include "analysis/section_assembler.h"
#include "analysis/track_selection.h"

namespace {

// Beyond this the run only repeats what shorter inputs already do.
constexpr std::size_t kMaxPackets = 4096;

// No reader looks at byte 0 of a packet, so it steers the run and is set
// back to the sync byte before the packet is read.
constexpr std::uint8_t kIgnoreCrc = 0x01;  // the PMT reader's retry pass
constexpr std::uint8_t kAnyPat = 0x02;     // offer PAT sections after one was taken
// Rewrites the CRC_32 of the section before it is offered: the fuzzer cannot
// forge one, and without it nothing behind the CRC test is ever reached.
constexpr std::uint8_t kFixCrc = 0x04;

volatile std::uint64_t g_Sink = 0;

void Check(bool condition) {
  if (!condition) std::abort();
}

bool Terminated(const char* text, std::size_t size) { return std::memchr(text, 0, size) != nullptr; }

struct Readers {
  CProgramTable programs;
  CPatParser pat{programs};
  CPmtParser pmt{programs};
  CSdtParser sdt{programs};
  CSectionAssembler assembler;
  CPidCensus census;
  TrackSelection selection;
  PmtRecord pmtRecord{};
  SdtRecord sdtRecord{};
};

// Writes the CRC_32 that makes the first `total` bytes valid, where they fit.
void FixCrc(std::span<std::uint8_t> section, std::size_t total) {
  if (total < 4 || total > section.size()) return;
  const std::uint32_t crc = Crc32Mpeg2(section.first(total - 4));
  for (std::size_t i = 0; i < 4; ++i) {
    section[total - 4 + i] = static_cast<std::uint8_t>(crc >> (24 - 8 * i));
  }
}

void PesStep(PacketSpan packet, Readers& r) {
  r.census.Add(GetPid(packet), CensusKind(packet));
  std::uint64_t sink = ReadPts(packet);
  const std::size_t pes = GetPayload(packet);
  if (IsPesStart(packet, pes)) {
    sink += GetPesLength(packet, pes);
    const std::size_t es = GetPesPayload(packet, pes);
    if (FitsInPacket(es, 1)) sink += packet[es];
  }
  g_Sink = g_Sink + sink;
}

void SdtStep(std::span<std::uint8_t, kPacketSize> bytes, std::uint8_t control, Readers& r) {
  const PacketSpan packet(bytes);
  if (r.assembler.WantsPacket(packet)) {
    r.assembler.AppendPacket(packet);
    return;
  }
  const std::span<const std::uint8_t> section = r.assembler.FinishSection(packet);
  const std::size_t total = ReadSectionHeader(section).section_length + 3;
  if (control & kFixCrc) {
    // The span is the assembler's own heap buffer or this packet's copy,
    // both writable; only the interface hands them out as const.
    FixCrc({const_cast<std::uint8_t*>(section.data()), section.size()}, total);
  }
  r.sdt.OfferSection(section, total);
  r.assembler.ReleaseSection();
}

void TablesStep(std::span<std::uint8_t, kPacketSize> bytes, std::uint8_t control, Readers& r) {
  const std::span<std::uint8_t> section = bytes.subspan(kSectionOffsetInPacket);
  const SectionHeader header = ReadSectionHeader(section);
  const std::size_t total = header.section_length + 3;
  if (header.table_id == 0 && PassesCommonSectionTest(header) &&
      (r.pat.Log().section_count == 0 || (control & kAnyPat))) {
    if (control & kFixCrc) FixCrc(section, total);
    r.pat.OfferSection(section, total);
    return;
  }
  if (header.table_id == 2 && PassesCommonSectionTest(header) && r.pat.Log().section_count > 0) {
    if (control & kFixCrc) FixCrc(section, total);
    r.pmt.SetIgnoreCrc((control & kIgnoreCrc) ? 1 : 0);
    if (r.pmt.OfferSection(section, total) == 0) return;
    SelectTracks(r.programs, r.census, r.pmt.LastProgramNumber(), r.selection);
    return;
  }
  if (GetPid(PacketSpan(bytes)) == kSdtPid) SdtStep(bytes, control, r);
}

// The readers on a slice of the input in an allocation of exactly its size,
// so a read past the end meets the sanitizer rather than the next packet.
void RawSliceStep(std::span<const std::uint8_t> input, std::size_t offset, std::size_t length,
                  std::size_t claimed, Readers& r) {
  if (offset > input.size()) return;
  length = std::min(length, input.size() - offset);
  const std::unique_ptr<std::uint8_t[]> copy(new std::uint8_t[length > 0 ? length : 1]);
  if (length > 0) std::memcpy(copy.get(), input.data() + offset, length);
  const std::span<const std::uint8_t> slice(copy.get(), length);

  ParsePmt(slice, r.pmtRecord);
  Check(r.pmtRecord.stream_count <= static_cast<std::uint32_t>(kMaxPmtRows));
  Check(r.pmtRecord.section_length <= kMaxParsedSectionLength);
  for (std::uint32_t i = 0; i < r.pmtRecord.stream_count; ++i) {
    Check(Terminated(r.pmtRecord.streams[i].language, kLanguageSize));
  }

  ParseSdt(slice, claimed, r.sdtRecord);
  ParseSdt(slice, ReadSectionHeader(slice).section_length + 3, r.sdtRecord);
  Check(r.sdtRecord.service_count <= static_cast<std::uint32_t>(kMaxSdtServices));
  for (std::uint32_t i = 0; i < r.sdtRecord.service_count; ++i) {
    Check(Terminated(r.sdtRecord.services[i].name, kServiceNameSize));
  }

  g_Sink = g_Sink + Crc32Mpeg2(slice) + (CrcIsValid(slice, claimed) ? 1u : 0u);
}

void CheckFindings(const Readers& r, const TrackSelection& selection) {
  Check(r.programs.Count() >= 0 && r.programs.Count() <= kMaxPrograms);
  for (int i = 0; i < r.programs.Count(); ++i) {
    const ProgramEntry& entry = r.programs.Entry(i);
    Check(entry.stream_count <= static_cast<std::uint32_t>(kMaxPmtRows));
    Check(Terminated(entry.name, kProgramNameSize));
    for (std::uint32_t s = 0; s < entry.stream_count; ++s) {
      Check(Terminated(entry.pmt.streams[s].language, kLanguageSize));
    }
  }
  Check(selection.trackCount <= kMaxAudioTracks);
  for (std::uint16_t t = 0; t < selection.trackCount; ++t) {
    Check(Terminated(selection.tracks[t].language, sizeof selection.tracks[t].language));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::span<const std::uint8_t> input(data, size);
  const std::size_t packets = std::min((size + kPacketSize - 1) / kPacketSize, kMaxPackets);
  auto readers = std::make_unique<Readers>();
  Readers& r = *readers;

  // One exactly sized buffer per packet: section reads that run past the
  // packet's end are caught, not satisfied by the padding of a larger one.
  std::vector<std::uint8_t> packet(kPacketSize);
  const auto load = [&](std::size_t index) {
    const std::size_t at = index * kPacketSize;
    const std::size_t n = std::min(kPacketSize, size - at);
    std::memset(packet.data(), 0xFF, kPacketSize);
    std::memcpy(packet.data(), data + at, n);
    const std::uint8_t control = packet[0];
    packet[0] = kSyncByte;
    return control;
  };
  const std::span<std::uint8_t, kPacketSize> bytes(packet.data(), kPacketSize);

  // Census first, then the tables, as the scan's first two passes.
  for (std::size_t i = 0; i < packets; ++i) {
    load(i);
    PesStep(PacketSpan(bytes), r);
  }
  r.census.Sort();
  for (std::uint16_t i = 1; i < r.census.Count(); ++i) {
    Check(r.census.Row(static_cast<std::uint16_t>(i - 1)).count >= r.census.Row(i).count);
  }
  for (std::size_t i = 0; i < packets; ++i) {
    const std::uint8_t control = load(i);
    TablesStep(bytes, control, r);
  }
  CheckFindings(r, r.selection);

  for (std::size_t i = 0; i < packets; ++i) {
    load(i);
    const std::size_t offset = i * kPacketSize + (packet[3] % kPacketSize);
    const std::size_t length = static_cast<std::size_t>(packet[184] << 8 | packet[185]) & 0x7FF;
    const std::size_t claimed = static_cast<std::size_t>(packet[186] << 8 | packet[187]) & 0x1FFF;
    RawSliceStep(input, offset, length, claimed, r);
  }

  // Every program found, then the census fallback both ways, on fresh and
  // on already filled selections.
  for (int i = 0; i < r.programs.Count(); ++i) {
    TrackSelection fresh;
    SelectTracks(r.programs, r.census, r.programs.Entry(i).program_number, fresh);
    CheckFindings(r, fresh);
    SelectTracks(r.programs, r.census, r.programs.Entry(i).program_number, r.selection);
  }
  for (const bool preferAc3 : {false, true}) {
    TrackSelection fresh;
    CensusFallback(r.census, preferAc3, fresh);
    CheckFindings(r, fresh);
    CensusFallback(r.census, preferAc3, r.selection);
  }
  CheckFindings(r, r.selection);
  return 0;
}
