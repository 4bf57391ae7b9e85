#include "control/text_query.h"

#include <gtest/gtest.h>

#include <map>

#include "platform/com/com_memory.h"

namespace {

// A stream with a picture and a sound found, as after a load; the parameter
// log is full.
class FakeFacts final : public CTextQueryFacts {
 public:
  std::uint16_t VideoWidth() override { return width; }
  std::uint16_t VideoHeight() override { return height; }
  std::uint16_t AspectX() override { return aspectX; }
  std::uint16_t AspectY() override { return aspectY; }
  double FrameRate() override { return frameRate; }
  std::uint16_t SelectedAudioPid() override { return 0x101; }
  std::uint32_t SelectedAudioStreamType() override { return 4; }
  const CPidCensus& Census() override { return census; }
  HRESULT SelectedPmtPid(WORD*) override { return E_INVALIDARG; }
  std::string ProgramName(std::int32_t number) override {
    auto it = names.find(number);
    return it == names.end() ? std::string() : it->second;
  }
  bool NoPmt() override { return noPmt; }
  bool HasPin() override { return hasPin; }
  std::uint64_t LastPts() override { return 90000; }
  std::uint32_t CurrentPacket() override { return 1234; }
  int H264LogCount() override { return 20; }
  std::string H264LogLine(int index) override { return "line " + std::to_string(index); }
  std::int64_t Duration() override { return duration; }
  std::uint64_t StreamSize() override { return 188000; }
  void SetPrefDemux(std::uint32_t value) override { prefDemux = value; }
  void SetNotifyWindow(std::uint32_t handle) override { notify = handle; }

  std::uint16_t width = 720, height = 576, aspectX = 16, aspectY = 9;
  double frameRate = 25.0;
  CPidCensus census;
  std::map<std::int32_t, std::string> names = {{2, "News"}};
  bool noPmt = false;
  bool hasPin = true;
  std::int64_t duration = 36610123LL * 10000;  // 10:10:10.123
  std::uint32_t prefDemux = 1;
  std::uint32_t notify = 77;
};

class TextQueryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // Five rows: 17 seen 9 times, then four PIDs of falling count.
    const std::pair<std::uint16_t, int> rows[] = {{0x100, 50}, {0x101, 20}, {0, 5}, {0x1FFF, 3}, {17, 2}};
    for (auto [pid, count] : rows) {
      for (int i = 0; i < count; ++i) facts.census.Add(pid, pid == 0x100 ? 0xE0 : 0);
    }
    facts.census.Sort();
  }
  std::string Ask(const wchar_t* keyword) { return AnswerTextQuery(keyword, facts); }

  FakeFacts facts;
};

TEST_F(TextQueryTest, AnswersByKeyword) {
  const std::pair<const wchar_t*, const char*> cases[] = {
      {L"VIDEOSIZE", "720 x 576"},       {L"FRAMERATE", "25.00"},
      {L"ASPECTRATIO", "16:9"},          {L"AUDIOPID", "0x0101 (257)"},
      {L"AUDIOFORMAT", "13818-3 Audio"}, {L"AUDIOTYPE", "04"},
      {L"VIDEOPTS", "00:00:01.000"},     {L"NUMPIDS", "5"},
      {L"NUMPACKETS", "80"},             {L"PMTPID", "0"},
      {L"GETPID(4)", "0x0011 (17)"},     {L"GETPID", "0x0100 (256)"},
      {L"GETPIDX", "0x0100 (256)"},      {L"GETPID( 1)", "0x0101 (257)"},
      {L"GETPACKETS(1)", "20"},          {L"GETTYPE(0)", "224"},
      {L"GETNAME(2)", "News"},           {L"GETNAME(99)", "Program 99"},
      {L"CURPACKET", "1234"},            {L"MAXPACKET", "1000"},
      {L"MEDIALEN", "10:10:10.123"},     {L"MEDIALEN2", "10:10:10.123"},
      {L"H264.NUMPARAMS", "20"},         {L"H264.GETPARAM(19)", "line 19"},
      // 4294967296 wraps to 0 in 32 bits: row 0 answers.
      {L"GETPID(4294967296)", "0x0100 (256)"},
  };
  for (auto [keyword, answer] : cases) EXPECT_EQ(Ask(keyword), answer) << keyword;
}

TEST_F(TextQueryTest, NoAnswerAndPinKeywordsAnswerNothingWithoutAPin) {
  for (const wchar_t* keyword : {L"videosize", L"VIDEOSIZE2", L"", L"GETPID(5)", L"GETPID(-1)",
                                 L"GETTYPE(99999)", L"H264.GETPARAM(20)", L"H264.GETPARAM(-1)", L"NOPE", L"GETP"}) {
    EXPECT_EQ(Ask(keyword), "") << keyword;
  }
  facts.hasPin = false;
  for (const wchar_t* keyword :
       {L"VIDEOPTS", L"CURPACKET", L"H264.NUMPARAMS", L"H264.GETPARAM(0)", L"MEDIALEN"}) {
    EXPECT_EQ(Ask(keyword), "") << keyword;
  }
  EXPECT_EQ(Ask(L"MAXPACKET"), "1000");
}

TEST_F(TextQueryTest, NothingFoundYetReadsAsZeros) {
  FakeFacts empty;
  empty.width = empty.height = empty.aspectX = empty.aspectY = 0;
  empty.frameRate = 0.0;
  EXPECT_EQ(AnswerTextQuery(L"FRAMERATE", empty), "0.00");
  EXPECT_EQ(AnswerTextQuery(L"VIDEOSIZE", empty), "0 x 0");
  EXPECT_EQ(AnswerTextQuery(L"ASPECTRATIO", empty), "0:0");
  EXPECT_EQ(AnswerTextQuery(L"NUMPIDS", empty), "0");
  EXPECT_EQ(AnswerTextQuery(L"GETPID(0)", empty), "");
}

TEST_F(TextQueryTest, PrefDemuxOnlyZeroSwitchesAndNotifyWindowIsAlwaysSet) {
  EXPECT_EQ(Ask(L"PREFDEMUX(1)"), "");
  EXPECT_EQ(facts.prefDemux, 1u);
  EXPECT_EQ(Ask(L"PREFDEMUX"), "Any Push Demux");
  EXPECT_EQ(facts.prefDemux, 0u);
  EXPECT_EQ(Ask(L"NOTIFYWND(65552)"), "Notification on");
  EXPECT_EQ(facts.notify, 65552u);
  EXPECT_EQ(Ask(L"NOTIFYWND"), "Notification on");
  EXPECT_EQ(facts.notify, 0u);
}

TEST_F(TextQueryTest, NamesWithoutPmtSpeakOfServicesAndLongTimesAndNamesStayBounded) {
  facts.noPmt = true;
  EXPECT_EQ(Ask(L"GETNAME(1)"), "Program/Service 1");
  EXPECT_EQ(Ask(L"GETNAME(2)"), "News");
  facts.duration = 3600000LL * 1000000 * 10000;  // a million hours
  EXPECT_EQ(Ask(L"MEDIALEN"), "1000000:00:00.000");
  facts.names[5] = std::string(100, 'x');
  EXPECT_EQ(Ask(L"GETNAME(5)").size(), kMaxAnswerLength);
}

TEST(AudioFormatName, ByStreamType) {
  const std::pair<std::uint32_t, const char*> table[] = {
      {3, "11172-3 Audio"},    {4, "13818-3 Audio"},    {6, "13818-1 priv AC3"},
      {128, "13818-1 priv AC3"}, {129, "13818-1 priv AC3"}, {249, "13818-1 priv AC3"},
      {248, "14496 3 priv AAC"}, {15, ""},                {0, ""}};
  for (auto [type, name] : table) EXPECT_STREQ(AudioFormatName(type), name) << type;
}

TEST(QueryTextAnswer, ArgumentsAllocationAndNullAnswers) {
  FakeFacts facts;
  CCritSec lock;
  LPWSTR text = reinterpret_cast<LPWSTR>(0x1);
  EXPECT_EQ(QueryTextAnswer(nullptr, &text, facts, lock), E_INVALIDARG);
  EXPECT_EQ(text, reinterpret_cast<LPWSTR>(0x1)) << "left as it was";
  EXPECT_EQ(QueryTextAnswer(L"NUMPIDS", nullptr, facts, lock), E_INVALIDARG);

  EXPECT_EQ(QueryTextAnswer(L"UNKNOWN", &text, facts, lock), S_OK);
  EXPECT_EQ(text, nullptr);

  ASSERT_EQ(QueryTextAnswer(L"NOTIFYWND(3)", &text, facts, lock), S_OK);
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text, L"Notification on");
  CoTaskMemFree(text);

  PlatformFailNextAllocations(1);
  EXPECT_EQ(QueryTextAnswer(L"NUMPIDS", &text, facts, lock), E_OUTOFMEMORY);
  EXPECT_EQ(text, nullptr);
}

}  // namespace
