#include "platform/com/guid.h"

#include <cstring>
#include <type_traits>

namespace {

// "{" 8 "-" 4 "-" 4 "-" 4 "-" 12 "}"
constexpr std::size_t kGuidTextLength = 38;

// Widened through the unsigned type so a negative wchar_t cannot pass as a digit.
template <class Char>
int HexValue(Char ch) {
  const auto c = static_cast<unsigned long>(static_cast<std::make_unsigned_t<Char>>(ch));
  if (c >= '0' && c <= '9') return static_cast<int>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<int>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<int>(c - 'A' + 10);
  return -1;
}

// Shared by the narrow and wide entry points; the caller has already checked
// that exactly kGuidTextLength characters are readable.
template <class Char>
bool ParseBraced(const Char* s, GUID* out) {
  if (s[0] != '{' || s[kGuidTextLength - 1] != '}') return false;
  if (s[9] != '-' || s[14] != '-' || s[19] != '-' || s[24] != '-') return false;

  // Hex digit positions in text order: 16 bytes, two digits each.
  static constexpr std::size_t kBytePos[16] = {1,  3,  5,  7,  10, 12, 15, 17,
                                               20, 22, 25, 27, 29, 31, 33, 35};
  BYTE bytes[16];
  for (std::size_t i = 0; i < 16; ++i) {
    const int hi = HexValue(s[kBytePos[i]]);
    const int lo = HexValue(s[kBytePos[i] + 1]);
    if (hi < 0 || lo < 0) return false;
    bytes[i] = static_cast<BYTE>(hi << 4 | lo);
  }

  GUID g{};
  g.Data1 = static_cast<DWORD>(bytes[0]) << 24 | static_cast<DWORD>(bytes[1]) << 16 |
            static_cast<DWORD>(bytes[2]) << 8 | bytes[3];
  g.Data2 = static_cast<WORD>(bytes[4] << 8 | bytes[5]);
  g.Data3 = static_cast<WORD>(bytes[6] << 8 | bytes[7]);
  std::memcpy(g.Data4, bytes + 8, 8);
  *out = g;
  return true;
}

void FormatBraced(const GUID& g, char (&text)[kGuidTextLength + 1]) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::size_t pos = 0;
  auto put = [&](unsigned long value, int digits) {
    for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) {
      text[pos++] = kDigits[(value >> shift) & 0xF];
    }
  };
  text[pos++] = '{';
  put(g.Data1, 8);
  text[pos++] = '-';
  put(g.Data2, 4);
  text[pos++] = '-';
  put(g.Data3, 4);
  text[pos++] = '-';
  put(g.Data4[0], 2);
  put(g.Data4[1], 2);
  text[pos++] = '-';
  for (std::size_t i = 2; i < 8; ++i) put(g.Data4[i], 2);
  text[pos++] = '}';
  text[pos] = '\0';
}

}  // namespace

bool GuidFromString(const char* text, GUID* out) {
  if (text == nullptr || out == nullptr) return false;
  // Bounded look at the length: one character more tells "too long" apart.
  if (strnlen(text, kGuidTextLength + 1) != kGuidTextLength) return false;
  return ParseBraced(text, out);
}

std::string GuidToString(REFGUID guid) {
  char text[kGuidTextLength + 1];
  FormatBraced(guid, text);
  return std::string(text, kGuidTextLength);
}

int StringFromGUID2(REFGUID guid, LPWSTR buffer, int cchMax) {
  constexpr int kNeeded = static_cast<int>(kGuidTextLength + 1);
  if (buffer == nullptr || cchMax < kNeeded) return 0;
  char text[kGuidTextLength + 1];
  FormatBraced(guid, text);
  for (std::size_t i = 0; i <= kGuidTextLength; ++i) buffer[i] = static_cast<WCHAR>(text[i]);
  return kNeeded;
}

HRESULT CLSIDFromString(LPCWSTR text, CLSID* clsid) {
  if (clsid == nullptr) return E_INVALIDARG;
  if (text == nullptr || text[0] == L'\0') {
    *clsid = GUID_NULL;
    return S_OK;
  }
  std::size_t length = 0;
  while (length <= kGuidTextLength && text[length] != L'\0') ++length;
  if (length == kGuidTextLength && ParseBraced(text, clsid)) return S_OK;
  *clsid = GUID_NULL;
  return CO_E_CLASSSTRING;
}

bool GuidLess::operator()(const GUID& a, const GUID& b) const {
  if (a.Data1 != b.Data1) return a.Data1 < b.Data1;
  if (a.Data2 != b.Data2) return a.Data2 < b.Data2;
  if (a.Data3 != b.Data3) return a.Data3 < b.Data3;
  return std::memcmp(a.Data4, b.Data4, sizeof a.Data4) < 0;
}

std::size_t std::hash<GUID>::operator()(const GUID& g) const noexcept {
  // FNV-1a over the fields; GUIDs are already well mixed, this just folds them.
  std::uint64_t h = 0xcbf29ce484222325ull;
  auto mix = [&h](std::uint64_t byte) {
    h ^= byte;
    h *= 0x100000001b3ull;
  };
  for (int shift = 0; shift < 32; shift += 8) mix((g.Data1 >> shift) & 0xFF);
  for (int shift = 0; shift < 16; shift += 8) mix((g.Data2 >> shift) & 0xFF);
  for (int shift = 0; shift < 16; shift += 8) mix((g.Data3 >> shift) & 0xFF);
  for (BYTE b : g.Data4) mix(b);
  return static_cast<std::size_t>(h);
}
