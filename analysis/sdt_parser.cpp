#include "analysis/sdt_parser.h"

#include <algorithm>
#include <memory>

#include "analysis/psi_section.h"

namespace {

constexpr std::uint8_t kServiceDescriptorTag = 0x48;
constexpr std::uint8_t kEmphasisOn = 0x86;
constexpr std::uint8_t kEmphasisOff = 0x87;
constexpr std::uint8_t kActualSdtTableId = 0x42;

bool HasService(const SdtRecord& record, std::uint32_t serviceId) {
  for (std::uint32_t i = 0; i < record.service_count; ++i) {
    if (record.services[i].service_id == serviceId) return true;
  }
  return false;
}

// The name of a service descriptor whose payload is [begin, end) of `r`; the
// provider's name is passed over by its length. Emphasis codes are dropped.
void CopyServiceName(const CSectionReader& r, std::size_t begin, std::size_t end, SdtService& service) {
  std::size_t at = begin + 1;  // service_type
  at += 1 + r.U8(at);          // provider name
  std::size_t out = 0;
  if (at < end) {
    const std::size_t nameEnd = std::min(end, at + 1 + r.U8(at));
    for (std::size_t i = at + 1; i < nameEnd && out + 1 < kServiceNameSize; ++i) {
      const std::uint8_t c = r.U8(i);
      if (c != kEmphasisOn && c != kEmphasisOff) service.name[out++] = static_cast<char>(c);
    }
  }
  service.name[out] = '\0';
}

}  // namespace

void ParseSdt(std::span<const std::uint8_t> section, std::size_t totalLength, SdtRecord& record) {
  const std::size_t size = std::min(totalLength, section.size());
  const CSectionReader r(section.first(size));
  record.service_count = 0;
  // Rows run from offset 11 to where CRC_32 begins.
  const std::size_t rowsEnd = size >= 4 ? size - 4 : 0;
  std::size_t row = 11;
  while (row + 5 <= rowsEnd) {
    const std::uint32_t serviceId = r.U16(row);
    const std::size_t loopEnd = row + 5 + r.Length12(row + 3);
    if (loopEnd > rowsEnd) break;  // a row that claims more than the section holds ends the walk
    std::size_t d = row + 5;
    while (d + 2 <= loopEnd) {
      const std::uint8_t tag = r.U8(d);
      const std::size_t end = d + 2 + r.U8(d + 1);
      if (end > loopEnd) break;
      if (tag == kServiceDescriptorTag && !HasService(record, serviceId) &&
          record.service_count < kMaxSdtServices) {
        SdtService& service = record.services[record.service_count++];
        service.service_id = serviceId;
        CopyServiceName(r, d + 2, end, service);
      }
      d = end;
    }
    row = loopEnd;
  }
}

int CSdtParser::OfferSection(std::span<const std::uint8_t> section, std::size_t totalLength) {
  const SectionHeader h = ReadSectionHeader(section);
  if (h.current_next_indicator == 0) return 0;
  if (!PassesCommonSectionTest(h)) return 0;
  if (h.table_id != kActualSdtTableId) return 0;
  if (!CrcIsValid(section, totalLength)) return 0;

  auto record = std::make_unique<SdtRecord>();
  CopyHeaderFields(h, *record);
  record->transport_stream_id = h.id_extension;
  ParseSdt(section, totalLength, *record);

  m_Log.Accept(h.id_extension, h.version_number, h.section_number);
  for (std::uint32_t i = 0; i < record->service_count; ++i) {
    m_Table.SetServiceName(static_cast<std::uint16_t>(record->services[i].service_id),
                           record->services[i].name);
  }
  return 1;
}
