#include "platform/win32/codepage.h"

#include <climits>
#include <cstdint>
#include <cstring>
#include <cwchar>

#include "platform/win32/files.h"

namespace {

constexpr char32_t kReplacement = 0xFFFD;

// Decodes one scalar value from s[0..n), n >= 1. Returns the bytes consumed.
// A malformed sequence yields U+FFFD for its maximal invalid subpart: the
// lead byte plus the continuation bytes that were still acceptable, so the
// byte that broke the sequence starts the next one.
std::size_t DecodeUtf8(const unsigned char* s, std::size_t n, char32_t* out) {
  const unsigned char lead = s[0];
  if (lead < 0x80) {
    *out = lead;
    return 1;
  }
  std::size_t trail = 0;
  char32_t value = 0;
  // The second byte's range excludes overlong forms (E0, F0), encoded
  // surrogates (ED) and values above 0x10FFFF (F4).
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    trail = 1;
    value = lead & 0x1Fu;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    trail = 2;
    value = lead & 0x0Fu;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    trail = 3;
    value = lead & 0x07u;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    *out = kReplacement;  // C0, C1, F5..FF or a stray continuation byte
    return 1;
  }
  for (std::size_t i = 1; i <= trail; ++i) {
    if (i >= n || s[i] < low || s[i] > high) {
      *out = kReplacement;
      return i;
    }
    value = value << 6 | (s[i] & 0x3Fu);
    low = 0x80;
    high = 0xBF;
  }
  *out = value;
  return trail + 1;
}

// Calls emit(char32_t) per decoded scalar value.
template <class Emit>
void DecodeAll(const char* src, std::size_t n, Emit&& emit) {
  const auto* s = reinterpret_cast<const unsigned char*>(src);
  std::size_t pos = 0;
  while (pos < n) {
    char32_t value = 0;
    pos += DecodeUtf8(s + pos, n - pos, &value);
    emit(value);
  }
}

// Calls emit(char) per UTF-8 byte; returns whether anything was replaced.
template <class Emit>
bool EncodeAll(const wchar_t* src, std::size_t n, Emit&& emit) {
  bool replaced = false;
  for (std::size_t i = 0; i < n; ++i) {
    // wchar_t is signed here; as unsigned, negative values land above 0x10FFFF.
    char32_t c = static_cast<char32_t>(static_cast<std::uint32_t>(src[i]));
    if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF) {
      c = kReplacement;
      replaced = true;
    }
    if (c < 0x80) {
      emit(static_cast<char>(c));
    } else if (c < 0x800) {
      emit(static_cast<char>(0xC0 | c >> 6));
      emit(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
      emit(static_cast<char>(0xE0 | c >> 12));
      emit(static_cast<char>(0x80 | (c >> 6 & 0x3F)));
      emit(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
      emit(static_cast<char>(0xF0 | c >> 18));
      emit(static_cast<char>(0x80 | (c >> 12 & 0x3F)));
      emit(static_cast<char>(0x80 | (c >> 6 & 0x3F)));
      emit(static_cast<char>(0x80 | (c & 0x3F)));
    }
  }
  return replaced;
}

bool IsUtf8CodePage(UINT codePage) { return codePage == CP_ACP || codePage == CP_UTF8; }

int Fail(DWORD error) {
  SetLastError(error);
  return 0;
}

// Shared argument checks; on success *length holds the source length in units.
template <class Src, class Dst>
bool CheckArguments(UINT codePage, const Src* src, int srcLength, const Dst* dst, int dstSize,
                    std::size_t* length) {
  if (!IsUtf8CodePage(codePage) || src == nullptr || srcLength == 0 || srcLength < -1 ||
      dstSize < 0 || (dst == nullptr && dstSize > 0)) {
    return false;
  }
  if (dstSize > 0 && static_cast<const void*>(src) == static_cast<const void*>(dst)) return false;
  if (srcLength > 0) {
    *length = static_cast<std::size_t>(srcLength);
  } else if constexpr (sizeof(Src) == 1) {
    *length = std::strlen(src) + 1;
  } else {
    *length = std::wcslen(src) + 1;
  }
  return true;
}

}  // namespace

UINT GetACP() { return CP_UTF8; }

int WideCharToMultiByte(UINT codePage, DWORD /*flags*/, LPCWSTR src, int srcChars, LPSTR dst,
                        int dstBytes, LPCSTR defaultChar, BOOL* usedDefault) {
  std::size_t length = 0;
  if (!CheckArguments(codePage, src, srcChars, dst, dstBytes, &length)) {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  if (codePage == CP_UTF8 && (defaultChar != nullptr || usedDefault != nullptr)) {
    return Fail(ERROR_INVALID_PARAMETER);
  }

  std::size_t needed = 0;
  const bool replaced = EncodeAll(src, length, [&needed](char) { ++needed; });
  if (needed > INT_MAX) return Fail(ERROR_INVALID_PARAMETER);
  if (usedDefault != nullptr) *usedDefault = replaced ? TRUE : FALSE;
  if (dstBytes == 0) return static_cast<int>(needed);
  if (needed > static_cast<std::size_t>(dstBytes)) return Fail(ERROR_INSUFFICIENT_BUFFER);

  std::size_t pos = 0;
  EncodeAll(src, length, [dst, &pos](char c) { dst[pos++] = c; });
  return static_cast<int>(needed);
}

int MultiByteToWideChar(UINT codePage, DWORD /*flags*/, LPCSTR src, int srcBytes, LPWSTR dst,
                        int dstChars) {
  std::size_t length = 0;
  if (!CheckArguments(codePage, src, srcBytes, dst, dstChars, &length)) {
    return Fail(ERROR_INVALID_PARAMETER);
  }

  std::size_t needed = 0;
  DecodeAll(src, length, [&needed](char32_t) { ++needed; });
  if (needed > INT_MAX) return Fail(ERROR_INVALID_PARAMETER);
  if (dstChars == 0) return static_cast<int>(needed);
  if (needed > static_cast<std::size_t>(dstChars)) return Fail(ERROR_INSUFFICIENT_BUFFER);

  std::size_t pos = 0;
  DecodeAll(src, length, [dst, &pos](char32_t c) { dst[pos++] = static_cast<wchar_t>(c); });
  return static_cast<int>(needed);
}

std::string WideToAnsi(std::wstring_view text) {
  std::string out;
  out.reserve(text.size());
  EncodeAll(text.data(), text.size(), [&out](char c) { out.push_back(c); });
  return out;
}

std::wstring AnsiToWide(std::string_view text) {
  std::wstring out;
  out.reserve(text.size());
  DecodeAll(text.data(), text.size(),
            [&out](char32_t c) { out.push_back(static_cast<wchar_t>(c)); });
  return out;
}
