#include "control/settings_store.h"

#include <gtest/gtest.h>

#include <sstream>

#include "apps/brindlet/query_command.h"
#include "apps/brindlet/settings_command.h"
#include "platform/win32/registry.h"
#include "tests/support/scoped_registry.h"

namespace {

bool KeyExists() {
  HKEY key = nullptr;
  if (RegOpenKeyExA(HKEY_CURRENT_USER, kSettingsKey, 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
  RegCloseKey(key);
  return true;
}

void StoreRaw(const char* name, DWORD type, const std::string& bytes) {
  HKEY key = nullptr;
  ASSERT_EQ(RegCreateKeyA(HKEY_CURRENT_USER, kSettingsKey, &key), ERROR_SUCCESS);
  ASSERT_EQ(RegSetValueExA(key, name, 0, type, reinterpret_cast<const BYTE*>(bytes.data()),
                           static_cast<DWORD>(bytes.size())),
            ERROR_SUCCESS);
  RegCloseKey(key);
}

TEST(SettingsStore, AbsentKeyGivesTheDefaultsAndReadingLeavesAnEmptyKey) {
  tsw::ScopedRegistry registry;
  EXPECT_TRUE(ResetSettings()) << "no key to remove is no failure";
  EXPECT_FALSE(KeyExists());
  const JoinSettings s = ReadJoinSettings(7);
  EXPECT_EQ(s.ac3, 1u);
  EXPECT_EQ(s.audio2, 0u);
  EXPECT_EQ(s.autoSelect, 1u);
  EXPECT_EQ(s.allowGraphEdit, 0u);
  EXPECT_EQ(s.pcrClock, 0u);
  EXPECT_EQ(s.detLength, 1u);
  EXPECT_EQ(s.ignoreCrc, 0u);
  EXPECT_EQ(s.fastSeeking, 1u);
  EXPECT_EQ(s.prefDemux, 7u) << "a missing PrefDemux leaves the filter's value";
  EXPECT_TRUE(KeyExists()) << "the create form makes the key";
  DWORD value = 42;
  EXPECT_FALSE(ReadSettingDword("IgnoreCRC", &value));
  EXPECT_EQ(value, 42u);
  EXPECT_FALSE(ReadSettingString("Extensions").has_value());
  ASSERT_TRUE(ResetSettings());
  EXPECT_FALSE(KeyExists());
}

TEST(SettingsStore, StoredValuesComeAsTheyAreAndFlagsReduceToOne) {
  tsw::ScopedRegistry registry;
  ASSERT_TRUE(WriteSettingDword("AC3", 7));
  ASSERT_TRUE(WriteSettingDword("PrefDemux", 5));
  ASSERT_TRUE(WriteSettingDword("DetLength", 0));
  const JoinSettings s = ReadJoinSettings(1);
  EXPECT_EQ(s.ac3, 7u);
  EXPECT_EQ(AsFlag(s.ac3), 1);
  EXPECT_EQ(s.prefDemux, 5u) << "PrefDemux is kept as read";
  EXPECT_EQ(AsFlag(s.detLength), 0);
}

TEST(SettingsStore, ShortValueShortensTheReadBehindItAndLongOnesNeverOverflow) {
  tsw::ScopedRegistry registry;
  StoreRaw("Audio2", REG_BINARY, std::string("\x01\x00", 2));
  ASSERT_TRUE(WriteSettingDword("PCRClock", 1));
  ASSERT_TRUE(WriteSettingDword("DetLength", 0));
  StoreRaw("IgnoreCRC", REG_SZ, std::string("a long text value\0", 18));
  ASSERT_TRUE(WriteSettingDword("FastSeeking", 0));
  const JoinSettings s = ReadJoinSettings(1);
  EXPECT_EQ(s.audio2, 1u);
  // The shared length is 2 after Audio2: the 4-byte PCRClock does not fit
  // and keeps its default; the failed query puts the length back to 4.
  EXPECT_EQ(s.pcrClock, 0u);
  EXPECT_EQ(s.detLength, 0u);
  // The text does not fit either; the length it asks for is held to 4.
  EXPECT_EQ(s.ignoreCrc, 0u);
  EXPECT_EQ(s.fastSeeking, 0u);
}

TEST(SettingsCommand, GetSetListReset) {
  tsw::ScopedRegistry registry;
  const struct {
    SettingsOptions options;
    int status;
    const char* out;
  } cases[] = {
      {{"get", "PrefDemux", ""}, kExitOk, "1\n"},    {{"set", "PrefDemux", "0"}, kExitOk, ""},
      {{"get", "prefdemux", ""}, kExitOk, "0\n"},    {{"set", "AC3", "0x10"}, kExitOk, ""},
      {{"get", "AC3", ""}, kExitOk, "16\n"},         {{"set", "Extensions", ".ts;"}, kExitOk, ""},
      {{"get", "Extensions", ""}, kExitOk, ".ts;\n"}, {{"set", "AC3", "yes"}, kExitUsage, ""},
      {{"set", "AC3", "4294967296"}, kExitUsage, ""}, {{"get", "Volume", ""}, kExitUsage, ""},
      {{"reset", "", ""}, kExitOk, ""},               {{"get", "AC3", ""}, kExitOk, "1\n"},
  };
  for (const auto& c : cases) {
    std::ostringstream out, err;
    EXPECT_EQ(RunSettings(c.options, out, err), c.status) << c.options.action << " " << c.options.name;
    EXPECT_EQ(out.str(), c.out) << c.options.action << " " << c.options.name;
    EXPECT_EQ(err.str().empty(), c.status == kExitOk);
  }
  std::ostringstream out, err;
  WriteSettingDword("FastSeeking", 0);
  ASSERT_EQ(RunSettings({"list", "", ""}, out, err), kExitOk);
  EXPECT_NE(out.str().find("FastSeeking=0\n"), std::string::npos);
  EXPECT_NE(out.str().find("AC3=1  (default)\n"), std::string::npos);
  EXPECT_NE(out.str().find("Extensions=.ts;.tp;  (default)\n"), std::string::npos);
}

}  // namespace
