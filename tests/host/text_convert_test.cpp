#include "host/text_convert.h"

#include <gtest/gtest.h>

namespace {

struct RoundTrip {
  const char* label;
  std::string narrow;
  std::wstring wide;
};

class TextConvertRoundTrip : public testing::TestWithParam<RoundTrip> {};

TEST_P(TextConvertRoundTrip, BothWays) {
  const RoundTrip& row = GetParam();
  EXPECT_EQ(NarrowText(row.wide), row.narrow);
  EXPECT_EQ(WidenText(row.narrow), row.wide);
}

// The ANSI code page is UTF-8 here; explicit lengths keep inner zeros.
INSTANTIATE_TEST_SUITE_P(
    Texts, TextConvertRoundTrip,
    testing::Values(RoundTrip{"empty", "", L""}, RoundTrip{"ascii", "C:\\media\\a.ts", L"C:\\media\\a.ts"},
                    RoundTrip{"accents", "Caf\xC3\xA9 \xE2\x82\xAC", L"Caf\u00E9 \u20AC"},
                    RoundTrip{"inner zero", std::string("a\0b", 3), std::wstring(L"a\0b", 3)}),
    [](const testing::TestParamInfo<RoundTrip>& param) {
      std::string name = param.param.label;
      for (char& c : name) {
        if (c == ' ') c = '_';
      }
      return name;
    });

TEST(TextConvert, BadBytesAreReplacedNotRefused) {
  EXPECT_EQ(WidenText("a\xFF" "b"), L"a\uFFFDb");
}

TEST(TextConvert, GuidTextIsTheRegistryForm) {
  const GUID guid{0x8f923a8b, 0xf96c, 0x420c, {0x84, 0x58, 0x0d, 0x64, 0x06, 0xe8, 0x2e, 0x4c}};
  EXPECT_EQ(GuidText(guid), "{8F923A8B-F96C-420C-8458-0D6406E82E4C}");
  EXPECT_EQ(GuidText(GUID{}), "{00000000-0000-0000-0000-000000000000}");
}

}  // namespace
