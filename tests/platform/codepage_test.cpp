#include "platform/win32/codepage.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/win32/files.h"

namespace {

// The API calls decode and encode as AnsiToWide and WideToAnsi do; their
// own rules for lengths and buffers come after the tables.
TEST(CodePage, Utf8DecodingReplacesEachMaximalInvalidSubpart) {
  const std::wstring R(1, L'\uFFFD');
  const struct {
    std::string bytes;
    std::wstring expected;
  } cases[] = {
      {"A", L"A"},
      {"\xC3\xA9", L"\u00E9"},
      {"\xE2\x82\xAC", L"\u20AC"},
      {"\xF0\x9F\x98\x80", L"\U0001F600"},
      {"\xF4\x8F\xBF\xBF", L"\U0010FFFF"},
      {std::string("a\0b", 3), std::wstring(L"a\0b", 3)},
      {"\x80", R},                          // stray continuation byte
      {"\xC0\xAF", R + R},                  // overlong: C0 is never a lead
      {"\xE0\x80\xAF", R + R + R},          // overlong three-byte form
      {"\xED\xA0\x80", R + R + R},          // encoded surrogate
      {"\xF4\x90\x80\x80", R + R + R + R},  // above U+10FFFF
      {"\xF5\x80", R + R},
      {"\xFF\xFE", R + R},
      {"\xE2\x82", R},             // truncated at the end
      {"\xE2\x82\x41", R + L"A"},  // the breaking byte starts afresh
      {"\xF0\x9F\x98\x41", R + L"A"},
      {"\xC3\xC3\xA9", R + L"\u00E9"},
      // The worked example of the Unicode standard's replacement practice.
      {"\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
       L"a" + R + R + R + L"b" + R + L"c" + R + R + L"d"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(AnsiToWide(c.bytes), c.expected) << testing::PrintToString(c.bytes);
  }
}

TEST(CodePage, WideEncodingReplacesWhatIsNotAScalarValue) {
  const std::string R = "\xEF\xBF\xBD";
  const struct {
    std::wstring text;
    std::string expected;
  } cases[] = {
      {L"A\u00E9\u20AC\U0001F600", "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
      {std::wstring(1, static_cast<wchar_t>(0xD800)), R},
      {std::wstring(1, static_cast<wchar_t>(0xDFFF)), R},
      {std::wstring{static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)}, R + R},
      {std::wstring(1, static_cast<wchar_t>(0x110000)), R},
      {std::wstring(1, static_cast<wchar_t>(-1)), R},
      {std::wstring(L"x\0y", 3), std::string("x\0y", 3)},
  };
  for (const auto& c : cases) EXPECT_EQ(WideToAnsi(c.text), c.expected);
}

TEST(CodePage, TerminatorIsCountedAndBuffersAreNeverOverrun) {
  EXPECT_EQ(GetACP(), CP_UTF8);
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, "h\xC3\xA9", -1, nullptr, 0), 3);
  wchar_t wide[3] = {L'#', L'#', L'#'};
  ASSERT_EQ(MultiByteToWideChar(CP_UTF8, 0, "h\xC3\xA9", -1, wide, 3), 3);
  EXPECT_EQ(wide[0], L'h');
  EXPECT_EQ(wide[1], L'\u00E9');
  EXPECT_EQ(wide[2], L'\0');

  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"h\u00E9", -1, nullptr, 0, nullptr, nullptr), 4);
  char narrow[4] = {'#', '#', '#', '#'};
  ASSERT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"h\u00E9", -1, narrow, 4, nullptr, nullptr), 4);
  EXPECT_EQ(std::string(narrow), "h\xC3\xA9");

  // A truncated sequence right before the terminator does not swallow it.
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "\xE2\x82", -1, wide, 3), 2);
  EXPECT_EQ(wide[0], L'\uFFFD');
  EXPECT_EQ(wide[1], L'\0');

  // An explicit length leaves the terminator out.
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", 3, nullptr, 0), 3);

  // A buffer too small fails without writing past its end.
  constexpr wchar_t kGuard = static_cast<wchar_t>(0x5A5A5A);
  std::vector<wchar_t> guarded(4, kGuard);  // three usable, the fourth is the guard
  SetLastError(ERROR_SUCCESS);
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abcd", -1, guarded.data(), 3), 0);
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(guarded[3], kGuard);

  std::vector<char> bytes(5, 'G');  // four usable: one short of "a€" plus terminator
  SetLastError(ERROR_SUCCESS);
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"a\u20AC", -1, bytes.data(), 4, nullptr, nullptr), 0);
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(bytes[4], 'G');
  // Exactly the size needed is enough.
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"a\u20AC", -1, bytes.data(), 5, nullptr, nullptr), 5);
}

}  // namespace
