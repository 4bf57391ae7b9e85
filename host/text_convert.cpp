#include "host/text_convert.h"

#include <climits>

#include "platform/com/objbase.h"
#include "platform/win32/codepage.h"

std::string NarrowText(std::wstring_view text) {
  if (text.empty() || text.size() > static_cast<std::size_t>(INT_MAX)) return {};
  const int length = static_cast<int>(text.size());
  const int bytes = WideCharToMultiByte(CP_ACP, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  if (bytes <= 0) return {};
  std::string out(static_cast<std::size_t>(bytes), '\0');
  const int written = WideCharToMultiByte(CP_ACP, 0, text.data(), length, out.data(), bytes, nullptr, nullptr);
  out.resize(written > 0 ? static_cast<std::size_t>(written) : 0);
  return out;
}

std::wstring WidenText(std::string_view text) {
  if (text.empty() || text.size() > static_cast<std::size_t>(INT_MAX)) return {};
  const int length = static_cast<int>(text.size());
  const int chars = MultiByteToWideChar(CP_ACP, 0, text.data(), length, nullptr, 0);
  if (chars <= 0) return {};
  std::wstring out(static_cast<std::size_t>(chars), L'\0');
  const int written = MultiByteToWideChar(CP_ACP, 0, text.data(), length, out.data(), chars);
  out.resize(written > 0 ? static_cast<std::size_t>(written) : 0);
  return out;
}

std::string GuidText(REFGUID guid) {
  // 38 characters and the terminator.
  WCHAR wide[39] = {};
  const int written = StringFromGUID2(guid, wide, 39);
  if (written <= 1) return {};
  return NarrowText(std::wstring_view(wide, static_cast<std::size_t>(written - 1)));
}
