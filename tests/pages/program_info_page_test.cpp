// Tests of the Program Info page: what it shows of a program, its two
// timers, its dirty state, and Apply with the settings and the extensions.
#include "tests/pages/info_pages_fixture.h"

namespace {

using namespace info_pages_test;
using namespace pages;
using namespace std::chrono_literals;

// ---- Program Info: what it shows ----

TEST_F(InfoPagesTest, ProgramInfoOfAFileWithoutPmt) {
  // The implied program: video of stream kind 224, MPEG audio of kind 192.
  m_Fake.impliedProgram = true;
  m_Fake.impliedStreams = {{224, 0x1E1}, {192, 0x1E2}};
  m_Fake.transportStreamId = 7;
  m_Fake.patVersion = 3;
  m_Fake.texts = {{"GETNAME(1)", "Program/Service 1"}, {"VIDEOSIZE", "720 x 576"}};
  m_Fake.tracks = {{"Audio (eng) (MPG) ", "0x01e2 (482)", "c0", ""}};
  {
    CPageHarness page(CLSID_ProgramInfoPage);
    const HWND dialog = OpenOnFake(page);
    EXPECT_EQ(ListItems(dialog, 1007), std::vector<std::string>{"Program/Service 1"});
    EXPECT_EQ(ListItemData(dialog, 1007), std::vector<LPARAM>{1});
    EXPECT_EQ(ListSelection(dialog, 1007), 0);
    EXPECT_EQ(ControlText(dialog, 1003), "Video");
    EXPECT_EQ(ControlText(dialog, 1002), "e0");
    EXPECT_EQ(ControlText(dialog, 1001), "0x01e1 (481)");
    EXPECT_EQ(ControlText(dialog, 1016), "720 x 576");
    EXPECT_EQ(ListItems(dialog, 1015), std::vector<std::string>{"Audio (eng) (MPG) "});
    EXPECT_EQ(ListSelection(dialog, 1015), 0);
    EXPECT_EQ(ControlText(dialog, 1004), "0x01e2 (482)");
    EXPECT_EQ(ControlText(dialog, 1005), "c0");
    EXPECT_EQ(ControlText(dialog, 1006), "");
    EXPECT_EQ(ControlText(dialog, 1008), "3");
    EXPECT_EQ(ControlText(dialog, 1009), "7");
    EXPECT_EQ(Timers(dialog), (std::vector<std::pair<UINT_PTR, UINT>>{{2, 1000}}));
  }
  CPageHarness programs(CLSID_ProgramsPage);
  ASSERT_EQ(programs.Open(static_cast<ITsStreamInfo*>(&m_Fake)), S_OK);
  EXPECT_EQ(ListViewRows(programs.Dialog(), 1021), (Rows{{"Program/Service 1", "0001 (1)", "2"}}));
}

TEST_F(InfoPagesTest, ProgramInfoShowsTheLastVideoStreamOfAProgram) {
  struct Case {
    std::vector<CFakeStreamInfo::Stream> streams;
    const char* format;
    const char* type;
    const char* pid;
  };
  const Case cases[] = {
      {{{1, 0x100}, {2, 0x101}}, "13818-2 Video", "02", "0x0101 (257)"},
      {{{0x81, 0x100}}, "Video", "81", "0x0100 (256)"},
      {{{27, 0x1011}, {0x81, 0x1100}}, "14496-10 Video H.264", "1b", "0x1011 (4113)"},
      // Any type stands for video at index 0, none after it.
      {{{3, 0x44}, {4, 0x45}}, "Video", "03", "0x0044 (68)"},
      {{{4, 0x45}, {1, 0x1FFF}}, "11172-2 Video", "01", "0x1fff (8191)"},
  };
  for (const Case& c : cases) {
    m_Fake.programs = {{5, c.streams}};
    CPageHarness page(CLSID_ProgramInfoPage);
    const HWND dialog = OpenOnFake(page);
    EXPECT_EQ(ControlText(dialog, 1003), c.format) << c.pid;
    EXPECT_EQ(ControlText(dialog, 1002), c.type) << c.pid;
    EXPECT_EQ(ControlText(dialog, 1001), c.pid);
  }
}

TEST_F(InfoPagesTest, ProgramInfoListsProgramsWithStreamsAndShowsTheChosenOne) {
  m_Fake.programs = {{1, {{2, 0x100}}}, {2, {}}, {3, {{27, 0x300}}}};
  m_Fake.texts = {{"GETNAME(1)", "One"}, {"GETNAME(2)", "Two"}, {"GETNAME(3)", "Three"}};
  CPageHarness page(CLSID_ProgramInfoPage);
  const HWND dialog = OpenOnFake(page);
  EXPECT_EQ(ListItems(dialog, 1007), (std::vector<std::string>{"One", "Three"}));
  EXPECT_EQ(ListItemData(dialog, 1007), (std::vector<LPARAM>{1, 3}));
  EXPECT_EQ(ListSelection(dialog, 1007), 1);
  EXPECT_EQ(ControlText(dialog, 1001), "0x0300 (768)");

  ASSERT_TRUE(PlatformSelectItem(page.Control(1007), 0));
  EXPECT_EQ(ControlText(dialog, 1003), "13818-2 Video");
  EXPECT_EQ(ControlText(dialog, 1001), "0x0100 (256)");
  EXPECT_EQ(page.Page()->IsPageDirty(), S_FALSE) << "looking at a program changes nothing";
}

TEST_F(InfoPagesTest, ChoosingAnAudioTrackAsksTheFilterAndShowsWhatItPlays) {
  struct Case {
    bool accepts;
    const char* pid;
  };
  for (const Case c : {Case{true, "0x0202 (514)"}, Case{false, "0x0201 (513)"}}) {
    m_Fake.programs = {{1, {{2, 0x100}}}};
    m_Fake.tracks = {{"Audio Track 0 (MPG) ", "0x0201 (513)", "03", "11172-3 Audio"},
                     {"Audio Track 1 (AC3) ", "0x0202 (514)", "81", "13818-1 priv AC3"}};
    m_Fake.selectedTrack = 0;
    m_Fake.acceptsEnable = c.accepts;
    m_Fake.enableCalls.clear();
    CPageHarness page(CLSID_ProgramInfoPage);
    const HWND dialog = OpenOnFake(page);
    EXPECT_TRUE(m_Fake.enableCalls.empty()) << "opening enables nothing";
    EXPECT_EQ(ListItems(dialog, 1015).size(), 2u);
    EXPECT_EQ(ControlText(dialog, 1004), "0x0201 (513)");

    ASSERT_TRUE(PlatformSelectItem(page.Control(1015), 1));
    EXPECT_EQ(m_Fake.enableCalls, (std::vector<std::pair<LONG, DWORD>>{{1, AMSTREAMSELECTENABLE_ENABLE}}));
    EXPECT_EQ(ControlText(dialog, 1004), c.pid);
    EXPECT_EQ(page.Page()->IsPageDirty(), S_FALSE) << "a track takes effect at once, not on Apply";
  }
}

TEST_F(InfoPagesTest, ProgramInfoWithoutStreamSelectionLeavesTheAudioListEmpty) {
  m_Fake.programs = {{1, {{2, 0x100}}}};
  m_Fake.tracks = {{"Audio Track 0 (MPG) ", "0x0201 (513)", "03", "11172-3 Audio"}};
  m_Fake.offersStreamSelect = false;
  CPageHarness page(CLSID_ProgramInfoPage);
  const HWND dialog = OpenOnFake(page);
  EXPECT_TRUE(ListItems(dialog, 1015).empty());
  EXPECT_EQ(ControlText(dialog, 1004), "");
}

// ---- Program Info: timers ----

TEST_F(InfoPagesTest, TimerOneWaitsForProgramsAndStopsWithoutStartingTimerTwo) {
  CPageHarness page(CLSID_ProgramInfoPage);
  const HWND dialog = OpenOnFake(page);
  EXPECT_EQ(Timers(dialog), (std::vector<std::pair<UINT_PTR, UINT>>{{1, 1000}}));
  SendMessageA(dialog, WM_TIMER, 1, 0);
  EXPECT_EQ(Timers(dialog).size(), 1u);

  m_Fake.programs = {{1, {{2, 0x100}}}};
  SendMessageA(dialog, WM_TIMER, 1, 0);
  EXPECT_TRUE(Timers(dialog).empty());
  EXPECT_EQ(ListItems(dialog, 1007), std::vector<std::string>{"No PMT found"}) << "programs show at the next opening";
}

TEST_F(InfoPagesTest, TimerTwoMovesThePtsAndEndsWithTheWindow) {
  m_Fake.programs = {{1, {{2, 0x100}}}};
  m_Fake.texts = {{"VIDEOPTS", "00:00:01.000"}};
  CPageHarness page(CLSID_ProgramInfoPage);
  const HWND dialog = OpenOnFake(page);
  EXPECT_EQ(Timers(dialog), (std::vector<std::pair<UINT_PTR, UINT>>{{2, 1000}}));
  EXPECT_EQ(ControlText(dialog, 1022), "00:00:00.000") << "the PTS moves on the timer only";
  SendMessageA(dialog, WM_TIMER, 2, 0);
  EXPECT_EQ(ControlText(dialog, 1022), "00:00:01.000");

  m_Fake.texts["VIDEOPTS"] = "01:02:03.456";
  EXPECT_GT(PlatformPumpMessages(1300), 0);
  EXPECT_EQ(ControlText(dialog, 1022), "01:02:03.456");

  // A timer that isn't the page's changes nothing.
  m_Fake.texts["VIDEOPTS"] = "09:09:09.999";
  SendMessageA(dialog, WM_TIMER, 7, 0);
  EXPECT_EQ(ControlText(dialog, 1022), "01:02:03.456");
}

// ---- Program Info: dirty state and Apply ----

TEST_F(InfoPagesTest, OpeningLeavesThePageCleanAndTheUsersChangesMakeItDirty) {
  m_Fake.programs = {{1, {{2, 0x100}}}};
  struct Action {
    const char* what;
    std::function<void(CPageHarness&)> act;
  };
  const Action actions[] = {
      {"a check box", [](CPageHarness& page) { PlatformClickButton(page.Control(1027)); }},
      {"a hidden check box", [](CPageHarness& page) { PlatformClickButton(page.Control(1024)); }},
      {"the extension list", [](CPageHarness& page) { PlatformTypeText(page.Control(1012), ".m2t"); }},
      {"the demultiplexer", [](CPageHarness& page) { PlatformSelectItem(page.Control(1023), 2); }},
  };
  for (const Action& action : actions) {
    CPageHarness page(CLSID_ProgramInfoPage);
    OpenOnFake(page);
    EXPECT_EQ(page.Page()->IsPageDirty(), S_FALSE) << action.what;
    EXPECT_TRUE(page.Site().Statuses().empty()) << "filling the controls is not the user's change";
    action.act(page);
    EXPECT_EQ(page.Page()->IsPageDirty(), S_OK) << action.what;
    EXPECT_EQ(page.Site().Statuses(), std::vector<DWORD>{PROPPAGESTATUS_DIRTY}) << action.what;
  }
}

TEST_F(InfoPagesTest, FirstApplyOnAnEmptyStoreSavesTheShownValuesAndRegistersTheDefaultExtensions) {
  // Stored as 7, shown as checked, saved as 1.
  ASSERT_TRUE(WriteSettingDword("AC3", 7));
  CPageHarness page(CLSID_ProgramInfoPage);
  OpenOnFake(page);
  PlatformClickButton(page.Control(1027));
  PlatformClickButton(page.Control(1027));
  ASSERT_EQ(page.Page()->Apply(), S_OK);

  EXPECT_EQ(page.Page()->IsPageDirty(), S_FALSE);
  EXPECT_EQ(page.Site().Statuses().back(), PROPPAGESTATUS_VALIDATE);
  const std::pair<const char*, DWORD> stored[] = {
      {"AC3", 1},       {"Audio2", 0},    {"AutoSelect", 1},  {"AllowGraphEdit", 0}, {"PCRClock", 0},
      {"DetLength", 1}, {"IgnoreCRC", 0}, {"FastSeeking", 1}, {"PrefDemux", 1},
  };
  for (const auto& [name, value] : stored) EXPECT_EQ(StoredNumber(name), value) << name;
  EXPECT_EQ(ReadSettingString("Extensions"), ".ts;.tp;");
  EXPECT_EQ(ReadSettingString("RegisteredExtensions"), ".ts;.tp;");
  EXPECT_EQ(SourceFilterOf(".ts"), kClsidText);
  EXPECT_EQ(SourceFilterOf(".tp"), kClsidText);
  EXPECT_EQ(RegistryText(HKEY_CLASSES_ROOT, ".ts", "PerceivedType"), "video");
}

TEST_F(InfoPagesTest, ApplyWithEveryBoxClearAndDemultiplexerZeroStoresNothing) {
  for (const char* name : {"Audio2", "AutoSelect", "AllowGraphEdit", "PCRClock", "DetLength", "IgnoreCRC",
                           "FastSeeking"}) {
    ASSERT_TRUE(WriteSettingDword(name, 0));
  }
  ASSERT_TRUE(WriteSettingDword("AC3", 1));
  ASSERT_TRUE(WriteSettingDword("PrefDemux", 1));
  ASSERT_TRUE(WriteSettingString("Extensions", ".ts;"));

  CPageHarness page(CLSID_ProgramInfoPage);
  OpenOnFake(page);
  PlatformClickButton(page.Control(1011));
  PlatformSelectItem(page.Control(1023), 0);
  PlatformTypeText(page.Control(1012), ".mpg;");
  ASSERT_EQ(page.Page()->Apply(), S_OK);

  EXPECT_EQ(page.Page()->IsPageDirty(), S_FALSE);
  for (const DWORD status : page.Site().Statuses()) EXPECT_NE(status, PROPPAGESTATUS_VALIDATE);
  EXPECT_EQ(StoredNumber("AC3"), 1u);
  EXPECT_EQ(StoredNumber("PrefDemux"), 1u);
  EXPECT_EQ(ReadSettingString("Extensions"), ".ts;");
  EXPECT_EQ(ReadSettingString("RegisteredExtensions"), std::nullopt);
  EXPECT_EQ(SourceFilterOf(".mpg"), std::nullopt);
}

TEST_F(InfoPagesTest, ADemultiplexerBeyondTheListIsShownUnselectedAndStoredAsNoSelection) {
  ASSERT_TRUE(WriteSettingDword("PrefDemux", 5));
  CPageHarness page(CLSID_ProgramInfoPage);
  const HWND dialog = OpenOnFake(page);
  EXPECT_EQ(ListSelection(dialog, 1023), -1);
  PlatformClickButton(page.Control(1027));
  ASSERT_EQ(page.Page()->Apply(), S_OK);
  EXPECT_EQ(StoredNumber("PrefDemux"), 0xFFFFFFFFu);
}

TEST_F(InfoPagesTest, OnlyAChangedExtensionListIsRegistered) {
  // As after a first Apply, with the system's keys gone since.
  ASSERT_TRUE(WriteSettingString("Extensions", ".ts;.tp;"));
  ASSERT_TRUE(WriteSettingString("RegisteredExtensions", ".ts;.tp;"));
  CPageHarness page(CLSID_ProgramInfoPage);
  OpenOnFake(page);
  PlatformTypeText(page.Control(1012), ".ts;.tp;.m2t");
  PlatformTypeText(page.Control(1012), ".ts;.tp;");
  EXPECT_EQ(page.Page()->IsPageDirty(), S_OK);
  ASSERT_EQ(page.Page()->Apply(), S_OK);
  EXPECT_EQ(SourceFilterOf(".ts"), std::nullopt) << "the list equals the registered one";
  EXPECT_EQ(SourceFilterOf(".m2t"), std::nullopt);

  // The edit forces lower case; the stored text is what it shows.
  PlatformTypeText(page.Control(1012), ".M2T; x");
  ASSERT_EQ(page.Page()->Apply(), S_OK);
  EXPECT_EQ(SourceFilterOf(".m2t"), kClsidText);
  EXPECT_EQ(ReadSettingString("RegisteredExtensions"), ".m2t; x");
  EXPECT_EQ(ReadSettingString("Extensions"), ".m2t; x");
}

}  // namespace
