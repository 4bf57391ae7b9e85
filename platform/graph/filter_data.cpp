#include "platform/graph/filter_data.h"

#include <algorithm>
#include <cstring>
#include <map>

namespace platform_internal {
namespace {

constexpr DWORD Tag(const char (&text)[5]) {
  return static_cast<DWORD>(static_cast<BYTE>(text[0])) |
         static_cast<DWORD>(static_cast<BYTE>(text[1])) << 8 |
         static_cast<DWORD>(static_cast<BYTE>(text[2])) << 16 |
         static_cast<DWORD>(static_cast<BYTE>(text[3])) << 24;
}

constexpr DWORD kPinTag = Tag("0pi3");
constexpr DWORD kTypeTag = Tag("0ty3");
constexpr DWORD kNameTableTag = Tag("0nm3");
constexpr std::size_t kGuidSize = 16;
constexpr wchar_t kReplacement = 0xFFFD;

// ---------------------------------------------------------------------------
// Writing

void PutDword(std::vector<BYTE>* out, std::size_t at, DWORD value) {
  for (std::size_t i = 0; i < 4; ++i) (*out)[at + i] = static_cast<BYTE>(value >> (8 * i));
}

void AppendDword(std::vector<BYTE>* out, DWORD value) {
  out->resize(out->size() + 4);
  PutDword(out, out->size() - 4, value);
}

void AppendGuid(std::vector<BYTE>* out, const GUID& guid) {
  AppendDword(out, guid.Data1);
  out->push_back(static_cast<BYTE>(guid.Data2));
  out->push_back(static_cast<BYTE>(guid.Data2 >> 8));
  out->push_back(static_cast<BYTE>(guid.Data3));
  out->push_back(static_cast<BYTE>(guid.Data3 >> 8));
  out->insert(out->end(), guid.Data4, guid.Data4 + 8);
}

// UTF-16 whatever the width of wchar_t, so a blob reads the same on both
// platforms; what UTF-16 cannot hold becomes U+FFFD.
void AppendUtf16(std::vector<BYTE>* out, const std::wstring& text) {
  auto unit = [out](DWORD u) {
    out->push_back(static_cast<BYTE>(u));
    out->push_back(static_cast<BYTE>(u >> 8));
  };
  for (wchar_t c : text) {
    const auto code = static_cast<DWORD>(c);
    if constexpr (sizeof(wchar_t) == 2) {
      unit(code);
    } else if (code >= 0x10000 && code <= 0x10FFFF) {
      unit(0xD800 + ((code - 0x10000) >> 10));
      unit(0xDC00 + ((code - 0x10000) & 0x3FF));
    } else if (code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
      unit(kReplacement);
    } else {
      unit(code);
    }
  }
  unit(0);
}

// Collects what the records point to and gives each its offset once the
// records' size is known.
class CPool {
 public:
  // Offsets relative to the pool's start until Place moves them.
  DWORD Guid(const GUID& guid) {
    const auto [it, added] = m_Guids.try_emplace(guid, static_cast<DWORD>(m_Bytes.size()));
    if (added) AppendGuid(&m_Bytes, guid);
    return it->second;
  }
  DWORD Medium(const REGPINMEDIUM& medium) {
    const auto at = static_cast<DWORD>(m_Bytes.size());
    AppendGuid(&m_Bytes, medium.clsMedium);
    AppendDword(&m_Bytes, medium.dw1);
    AppendDword(&m_Bytes, medium.dw2);
    return at;
  }
  DWORD Name(const std::wstring& name) {
    const auto at = static_cast<DWORD>(m_Bytes.size());
    AppendUtf16(&m_Bytes, name);
    return at;
  }
  const std::vector<BYTE>& Bytes() const { return m_Bytes; }

 private:
  std::map<GUID, DWORD, GuidLess> m_Guids;
  std::vector<BYTE> m_Bytes;
};

// ---------------------------------------------------------------------------
// Reading: a cursor that checks the remaining length before every read and
// stays failed once a read did not fit.

class CReader {
 public:
  explicit CReader(std::span<const BYTE> blob, std::size_t at = 0) : m_Blob(blob), m_At(at) {
    if (at > blob.size()) m_Failed = true;
  }

  [[nodiscard]] DWORD Dword() {
    if (m_Failed || m_Blob.size() - m_At < 4) {
      m_Failed = true;
      return 0;
    }
    DWORD value = 0;
    for (std::size_t i = 0; i < 4; ++i) value |= static_cast<DWORD>(m_Blob[m_At + i]) << (8 * i);
    m_At += 4;
    return value;
  }
  [[nodiscard]] WORD Word() {
    if (m_Failed || m_Blob.size() - m_At < 2) {
      m_Failed = true;
      return 0;
    }
    const auto value = static_cast<WORD>(m_Blob[m_At] | m_Blob[m_At + 1] << 8);
    m_At += 2;
    return value;
  }
  [[nodiscard]] GUID Guid() {
    GUID guid{};
    guid.Data1 = Dword();
    guid.Data2 = Word();
    guid.Data3 = Word();
    if (m_Failed || m_Blob.size() - m_At < 8) {
      m_Failed = true;
      return GUID{};
    }
    std::memcpy(guid.Data4, m_Blob.data() + m_At, 8);
    m_At += 8;
    return guid;
  }
  void Fail() { m_Failed = true; }
  bool Failed() const { return m_Failed; }

 private:
  std::span<const BYTE> m_Blob;
  std::size_t m_At;
  bool m_Failed = false;
};

// Pool offsets may not point into the header, which is never pooled data.
bool PoolOffsetFits(std::span<const BYTE> blob, DWORD offset, std::size_t size) {
  return offset >= kFilterDataHeaderSize && offset <= blob.size() && blob.size() - offset >= size;
}

std::optional<GUID> GuidAt(std::span<const BYTE> blob, DWORD offset) {
  if (!PoolOffsetFits(blob, offset, kGuidSize)) return std::nullopt;
  CReader reader(blob, offset);
  const GUID guid = reader.Guid();
  return guid;
}

std::optional<REGPINMEDIUM> MediumAt(std::span<const BYTE> blob, DWORD offset) {
  if (!PoolOffsetFits(blob, offset, kFilterDataMediumSize)) return std::nullopt;
  CReader reader(blob, offset);
  REGPINMEDIUM medium{};
  medium.clsMedium = reader.Guid();
  medium.dw1 = reader.Dword();
  medium.dw2 = reader.Dword();
  return medium;
}

// A name must end, with its zero, inside the blob.
std::optional<std::wstring> NameAt(std::span<const BYTE> blob, DWORD offset) {
  if (!PoolOffsetFits(blob, offset, 2)) return std::nullopt;
  CReader reader(blob, offset);
  std::wstring name;
  for (;;) {
    const DWORD unit = reader.Word();
    if (reader.Failed()) return std::nullopt;
    if (unit == 0) return name;
    if constexpr (sizeof(wchar_t) == 2) {
      name.push_back(static_cast<wchar_t>(unit));
    } else if (unit >= 0xD800 && unit <= 0xDBFF) {
      CReader ahead = reader;
      const DWORD low = ahead.Word();
      if (!ahead.Failed() && low >= 0xDC00 && low <= 0xDFFF) {
        name.push_back(static_cast<wchar_t>(0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00)));
        reader = ahead;
      } else {
        name.push_back(kReplacement);
      }
    } else if (unit >= 0xDC00 && unit <= 0xDFFF) {
      name.push_back(kReplacement);
    } else {
      name.push_back(static_cast<wchar_t>(unit));
    }
  }
}

bool ReadPin(std::span<const BYTE> blob, CReader* reader, FilterDataPin* pin) {
  if (reader->Dword() != kPinTag) return false;
  pin->flags = reader->Dword();
  pin->instances = reader->Dword();
  const DWORD typeCount = reader->Dword();
  const DWORD mediumCount = reader->Dword();
  const DWORD categoryOffset = reader->Dword();
  if (reader->Failed()) return false;
  if (categoryOffset != 0) {
    pin->category = GuidAt(blob, categoryOffset);
    if (!pin->category) return false;
  }
  // Each loop ends at the first read past the end, so a huge count costs
  // no more than the blob's length.
  for (DWORD i = 0; i < typeCount; ++i) {
    const DWORD tag = reader->Dword();
    static_cast<void>(reader->Dword());  // reserved
    const DWORD majorOffset = reader->Dword();
    const DWORD minorOffset = reader->Dword();
    if (reader->Failed() || tag != kTypeTag) return false;
    const auto major = GuidAt(blob, majorOffset);
    const auto minor = GuidAt(blob, minorOffset);
    if (!major || !minor) return false;
    pin->types.push_back({*major, *minor});
  }
  for (DWORD i = 0; i < mediumCount; ++i) {
    const DWORD offset = reader->Dword();
    if (reader->Failed()) return false;
    const auto medium = MediumAt(blob, offset);
    if (!medium) return false;
    pin->mediums.push_back(*medium);
  }
  return true;
}

bool ReadNames(std::span<const BYTE> blob, DWORD tableOffset, std::vector<FilterDataPin>* pins) {
  if (!PoolOffsetFits(blob, tableOffset, 8)) return false;
  CReader reader(blob, tableOffset);
  if (reader.Dword() != kNameTableTag || reader.Dword() != pins->size()) return false;
  for (FilterDataPin& pin : *pins) {
    const DWORD offset = reader.Dword();
    if (reader.Failed()) return false;
    if (offset == 0) continue;
    auto name = NameAt(blob, offset);
    if (!name) return false;
    pin.name = std::move(*name);
  }
  return true;
}

// ---------------------------------------------------------------------------
// Matching

bool SameOrWild(const GUID& wanted, const GUID& offered, bool exact) {
  return wanted == offered || (!exact && (wanted == GUID_NULL || offered == GUID_NULL));
}

bool TypeMatches(const RegisteredPinType& wanted, const RegisteredPinType& offered, bool exact) {
  return SameOrWild(wanted.major, offered.major, exact) &&
         SameOrWild(wanted.minor, offered.minor, exact);
}

bool SameMedium(const REGPINMEDIUM& a, const REGPINMEDIUM& b) {
  return a.clsMedium == b.clsMedium && a.dw1 == b.dw1 && a.dw2 == b.dw2;
}

struct DirectionWanted {
  bool output;
  bool needed;
  const std::vector<RegisteredPinType>& types;
  bool render;
  const std::optional<REGPINMEDIUM>& medium;
  const std::optional<CLSID>& category;
};

bool PinMeets(const FilterDataPin& pin, const DirectionWanted& wanted, bool exact) {
  if (((pin.flags & REG_PINFLAG_B_OUTPUT) != 0) != wanted.output) return false;
  if (wanted.render && (pin.flags & REG_PINFLAG_B_RENDERER) == 0) return false;
  if (!wanted.types.empty()) {
    bool any = false;
    for (const RegisteredPinType& want : wanted.types) {
      for (const RegisteredPinType& offered : pin.types)
        any = any || TypeMatches(want, offered, exact);
    }
    if (!any) return false;
  }
  if (wanted.medium) {
    bool any = false;
    for (const REGPINMEDIUM& medium : pin.mediums) any = any || SameMedium(*wanted.medium, medium);
    if (!any) return false;
  }
  return !wanted.category || pin.category == wanted.category;
}

bool DirectionMet(const FilterData& data, const DirectionWanted& wanted, bool exact) {
  const bool constrained = wanted.needed || !wanted.types.empty() || wanted.render ||
                           wanted.medium.has_value() || wanted.category.has_value();
  if (!constrained) return true;
  for (const FilterDataPin& pin : data.pins) {
    if (PinMeets(pin, wanted, exact)) return true;
  }
  return false;
}

}  // namespace

bool operator==(const FilterDataPin& a, const FilterDataPin& b) {
  auto sameType = [](const RegisteredPinType& x, const RegisteredPinType& y) {
    return x.major == y.major && x.minor == y.minor;
  };
  return a.name == b.name && a.flags == b.flags && a.instances == b.instances &&
         a.category == b.category &&
         std::equal(a.types.begin(), a.types.end(), b.types.begin(), b.types.end(), sameType) &&
         std::equal(a.mediums.begin(), a.mediums.end(), b.mediums.begin(), b.mediums.end(),
                    SameMedium);
}

bool operator==(const FilterData& a, const FilterData& b) {
  return a.merit == b.merit && a.pins == b.pins;
}

std::vector<BYTE> EncodeFilterData(const FilterData& data) {
  bool named = false;
  std::size_t recordsSize = kFilterDataHeaderSize;
  for (const FilterDataPin& pin : data.pins) {
    recordsSize +=
        kFilterDataPinSize + pin.types.size() * kFilterDataTypeSize + pin.mediums.size() * 4;
    named = named || !pin.name.empty();
  }
  const std::size_t tableOffset = recordsSize;
  if (named) recordsSize += 8 + 4 * data.pins.size();

  std::vector<BYTE> out;
  CPool pool;
  auto placed = [&recordsSize](DWORD poolOffset) {
    return static_cast<DWORD>(recordsSize + poolOffset);
  };

  AppendDword(&out, kFilterDataVersion);
  AppendDword(&out, data.merit);
  AppendDword(&out, static_cast<DWORD>(data.pins.size()));
  AppendDword(&out, named ? static_cast<DWORD>(tableOffset) : 0);
  for (const FilterDataPin& pin : data.pins) {
    AppendDword(&out, kPinTag);
    AppendDword(&out, pin.flags);
    AppendDword(&out, pin.instances);
    AppendDword(&out, static_cast<DWORD>(pin.types.size()));
    AppendDword(&out, static_cast<DWORD>(pin.mediums.size()));
    AppendDword(&out, pin.category ? placed(pool.Guid(*pin.category)) : 0);
    for (const RegisteredPinType& type : pin.types) {
      AppendDword(&out, kTypeTag);
      AppendDword(&out, 0);
      AppendDword(&out, placed(pool.Guid(type.major)));
      AppendDword(&out, placed(pool.Guid(type.minor)));
    }
    for (const REGPINMEDIUM& medium : pin.mediums) AppendDword(&out, placed(pool.Medium(medium)));
  }
  if (named) {
    AppendDword(&out, kNameTableTag);
    AppendDword(&out, static_cast<DWORD>(data.pins.size()));
    for (const FilterDataPin& pin : data.pins) {
      AppendDword(&out, pin.name.empty() ? 0 : placed(pool.Name(pin.name)));
    }
  }
  out.insert(out.end(), pool.Bytes().begin(), pool.Bytes().end());
  return out;
}

std::optional<FilterData> DecodeFilterData(std::span<const BYTE> blob) {
  CReader reader(blob);
  const DWORD version = reader.Dword();
  FilterData data;
  data.merit = reader.Dword();
  const DWORD pinCount = reader.Dword();
  const DWORD tableOffset = reader.Dword();
  if (reader.Failed() || version != kFilterDataVersion) return std::nullopt;
  for (DWORD i = 0; i < pinCount; ++i) {
    FilterDataPin pin;
    if (!ReadPin(blob, &reader, &pin)) return std::nullopt;
    data.pins.push_back(std::move(pin));
  }
  if (tableOffset != 0 && !ReadNames(blob, tableOffset, &data.pins)) return std::nullopt;
  return data;
}

HRESULT FilterDataFromRegFilter2(const REGFILTER2& reg, FilterData* out) {
  if (out == nullptr) return E_POINTER;
  if (reg.dwVersion != 1 && reg.dwVersion != 2) return E_INVALIDARG;
  auto typesOf = [](UINT count, const REGPINTYPES* types, std::vector<RegisteredPinType>* into) {
    if (count != 0 && types == nullptr) return false;
    for (UINT i = 0; i < count; ++i) {
      into->push_back({types[i].clsMajorType != nullptr ? *types[i].clsMajorType : GUID_NULL,
                       types[i].clsMinorType != nullptr ? *types[i].clsMinorType : GUID_NULL});
    }
    return true;
  };

  FilterData data;
  data.merit = reg.dwMerit;
  if (reg.dwVersion == 1) {
    if (reg.cPins != 0 && reg.rgPins == nullptr) return E_POINTER;
    for (ULONG i = 0; i < reg.cPins; ++i) {
      const REGFILTERPINS& in = reg.rgPins[i];
      FilterDataPin pin;
      if (in.strName != nullptr) pin.name = in.strName;
      pin.flags = (in.bRendered ? REG_PINFLAG_B_RENDERER : 0) |
                  (in.bOutput ? REG_PINFLAG_B_OUTPUT : 0) | (in.bZero ? REG_PINFLAG_B_ZERO : 0) |
                  (in.bMany ? REG_PINFLAG_B_MANY : 0);
      if (!typesOf(in.nMediaTypes, in.lpMediaType, &pin.types)) return E_POINTER;
      data.pins.push_back(std::move(pin));
    }
  } else {
    if (reg.cPins2 != 0 && reg.rgPins2 == nullptr) return E_POINTER;
    for (ULONG i = 0; i < reg.cPins2; ++i) {
      const REGFILTERPINS2& in = reg.rgPins2[i];
      FilterDataPin pin;
      pin.flags = in.dwFlags;
      pin.instances = in.cInstances;
      if (!typesOf(in.nMediaTypes, in.lpMediaType, &pin.types)) return E_POINTER;
      if (in.nMediums != 0 && in.lpMedium == nullptr) return E_POINTER;
      pin.mediums.assign(in.lpMedium, in.lpMedium + in.nMediums);
      if (in.clsPinCategory != nullptr) pin.category = *in.clsPinCategory;
      data.pins.push_back(std::move(pin));
    }
  }
  *out = std::move(data);
  return S_OK;
}

bool FilterDataMatches(const FilterData& data, const FilterSearch& search) {
  const FilterQuery& q = search.query;
  if (data.merit < q.minimumMerit) return false;
  const DirectionWanted input{false,    q.inputNeeded,      q.inputTypes,
                              q.render, search.inputMedium, search.inputCategory};
  const DirectionWanted output{true,  q.outputNeeded,      q.outputTypes,
                               false, search.outputMedium, search.outputCategory};
  return DirectionMet(data, input, q.exactMatch) && DirectionMet(data, output, q.exactMatch);
}

}  // namespace platform_internal
