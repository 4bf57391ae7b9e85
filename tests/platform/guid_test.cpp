#include "platform/com/guid.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/com/unknwn.h"

namespace {

constexpr GUID kSample =
    MakeGuid(0x12345678, 0x9ABC, 0xDEF0, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF);

TEST(Guid, FormatsUpperCaseBracedAndParsesAnyCase) {
  const struct {
    GUID guid;
    const char* text;
  } cases[] = {
      {GUID_NULL, "{00000000-0000-0000-0000-000000000000}"},
      {kSample, "{12345678-9ABC-DEF0-0123-456789ABCDEF}"},
      {IID_IUnknown, "{00000000-0000-0000-C000-000000000046}"},
      {MakeGuid(0xFFFFFFFF, 0xFFFF, 0xFFFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF),
       "{FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFF}"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(GuidToString(c.guid), c.text);
    GUID parsed = kSample;
    ASSERT_TRUE(GuidFromString(c.text, &parsed)) << c.text;
    EXPECT_EQ(parsed, c.guid) << c.text;
  }
  GUID parsed{};
  ASSERT_TRUE(GuidFromString("{12345678-9abc-def0-0123-456789AbCdEf}", &parsed));
  EXPECT_EQ(parsed, kSample);
}

TEST(Guid, RejectsMalformedTextAndLeavesOutputAlone) {
  const char* const cases[] = {
      "",
      "12345678-9ABC-DEF0-0123-456789ABCDEF",     // no braces
      "{12345678-9ABC-DEF0-0123-456789ABCDEF}x",  // trailing character
      "{12345678-9ABC-DEF0-0123-456789ABCDE}",    // one digit short
      "{12345678-9ABC-DEF0-0123+456789ABCDEF}",   // wrong separator
      "{1234567G-9ABC-DEF0-0123-456789ABCDEF}",   // not hex
  };
  for (const char* text : cases) {
    GUID out = kSample;
    EXPECT_FALSE(GuidFromString(text, &out)) << '"' << text << '"';
    EXPECT_EQ(out, kSample) << '"' << text << '"';
  }
  GUID out = kSample;
  EXPECT_FALSE(GuidFromString(nullptr, &out));
  EXPECT_EQ(out, kSample);
  EXPECT_FALSE(GuidFromString("{12345678-9ABC-DEF0-0123-456789ABCDEF}", nullptr));
}

TEST(Guid, ClsidFromStringResults) {
  CLSID clsid = kSample;
  EXPECT_EQ(CLSIDFromString(L"{12345678-9abc-DEF0-0123-456789ABCDEF}", &clsid), S_OK);
  EXPECT_EQ(clsid, kSample);

  // Wide characters that narrow to hex digits must not pass as them.
  for (const wchar_t* bad : {L"not a guid", L"{12345678-9ABC-DEF0-0123-456789ABCDE\u0661}",
                             L"{\U00010031" L"2345678-9ABC-DEF0-0123-456789ABCDEF}"}) {
    clsid = kSample;
    EXPECT_EQ(CLSIDFromString(bad, &clsid), CO_E_CLASSSTRING);
    EXPECT_EQ(clsid, GUID_NULL);
  }

  clsid = kSample;
  EXPECT_EQ(CLSIDFromString(nullptr, &clsid), S_OK);
  EXPECT_EQ(clsid, GUID_NULL);
  EXPECT_EQ(CLSIDFromString(L"{00000000-0000-0000-C000-000000000046}", nullptr), E_INVALIDARG);
}

}  // namespace
