// Feeds the filter mapper's FilterData decoder. The input is decoded as it
// stands; then a record built from the input's bytes must come back from
// encoding and decoding unchanged, and its encoding is decoded again after
// the input's own cuts and overwrites, so the deeper paths of the decoder
// are reached without seed files. Every blob lies in a buffer of exactly its
// length, so a read past it trips AddressSanitizer. Whatever decodes must
// survive encoding and decoding once more.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "platform/graph/filter_data.h"
#include "platform/graph/strmif.h"

namespace {

using platform_internal::DecodeFilterData;
using platform_internal::EncodeFilterData;
using platform_internal::FilterData;
using platform_internal::FilterDataPin;
using platform_internal::FilterSearch;

// Reads the input front to back; zeros once it runs out.
class CBytes {
 public:
  CBytes(const std::uint8_t* data, std::size_t size) : m_Data(data), m_Size(size) {}
  std::uint8_t Byte() { return m_At < m_Size ? m_Data[m_At++] : 0; }
  DWORD Dword() {
    DWORD value = 0;
    for (int i = 0; i < 4; ++i) value = value << 8 | Byte();
    return value;
  }
  bool Empty() const { return m_At >= m_Size; }

 private:
  const std::uint8_t* m_Data;
  std::size_t m_Size;
  std::size_t m_At = 0;
};

GUID PickGuid(CBytes* in) {
  switch (in->Byte() % 4) {
    case 0:
      return GUID_NULL;
    case 1:
      return MEDIATYPE_Stream;
    case 2:
      return MEDIASUBTYPE_MPEG2_TRANSPORT;
    default:
      return MakeGuid(in->Dword(), 1, 2, in->Byte(), 0, 0, 0, 0, 0, 0, in->Byte());
  }
}

// Only what UTF-16 holds, and no zero, which would end the name.
std::wstring PickName(CBytes* in) {
  std::wstring name;
  for (int n = in->Byte() % 6; n > 0; --n) {
    DWORD code = (in->Dword() % 0x10FFFF) + 1;
    if (code >= 0xD800 && code <= 0xDFFF) code -= 0x800;
    name.push_back(static_cast<wchar_t>(code));
  }
  return name;
}

FilterData BuildRecord(CBytes* in) {
  FilterData data;
  data.merit = in->Dword();
  for (int pins = in->Byte() % 5; pins > 0; --pins) {
    FilterDataPin pin;
    if ((in->Byte() & 1) != 0) pin.name = PickName(in);
    pin.flags = in->Dword();
    pin.instances = in->Dword();
    for (int n = in->Byte() % 4; n > 0; --n) pin.types.push_back({PickGuid(in), PickGuid(in)});
    for (int n = in->Byte() % 3; n > 0; --n)
      pin.mediums.push_back({PickGuid(in), in->Dword(), in->Dword()});
    if ((in->Byte() & 1) != 0) pin.category = PickGuid(in);
    data.pins.push_back(std::move(pin));
  }
  return data;
}

void Decode(const std::vector<BYTE>& blob, CBytes* in) {
  const auto data = DecodeFilterData(std::span<const BYTE>(blob.data(), blob.size()));
  if (!data) return;
  const auto again = DecodeFilterData(EncodeFilterData(*data));
  if (!again || !(*again == *data)) std::abort();
  FilterSearch search;
  search.query.minimumMerit = in->Dword();
  search.query.exactMatch = (in->Byte() & 1) != 0;
  search.query.render = (in->Byte() & 1) != 0;
  search.query.inputTypes.push_back({PickGuid(in), PickGuid(in)});
  search.query.outputNeeded = (in->Byte() & 1) != 0;
  static_cast<void>(FilterDataMatches(*data, search));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  CBytes in(data, size);
  Decode(std::vector<BYTE>(data, data + size), &in);

  CBytes steer(data, size);
  const FilterData record = BuildRecord(&steer);
  const std::vector<BYTE> encoded = EncodeFilterData(record);
  const auto decoded = DecodeFilterData(encoded);
  if (!decoded || !(*decoded == record)) std::abort();

  std::vector<BYTE> blob = encoded;
  for (int round = 0; round < 8 && !steer.Empty() && !blob.empty(); ++round) {
    const DWORD at = steer.Dword() % blob.size();
    switch (steer.Byte() % 3) {
      case 0:
        blob.resize(at);
        break;
      case 1:
        for (std::size_t i = 0; i < 4 && at + i < blob.size(); ++i) blob[at + i] = steer.Byte();
        break;
      default:
        blob[at] = steer.Byte();
        break;
    }
    // A copy of exactly its length: the vector may hold capacity beyond it.
    Decode(std::vector<BYTE>(blob.begin(), blob.end()), &steer);
  }
  return 0;
}
