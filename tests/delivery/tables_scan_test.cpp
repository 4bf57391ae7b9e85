// The tables phase of the scan, seen from the filter's interfaces: which PAT,
// PMT and SDT sections count, what track selection leaves, and how the
// getters answer with and without a usable PMT.
#include <gtest/gtest.h>

#include "control/settings_store.h"
#include "platform/messages.h"
#include "tests/delivery/filter_probe.h"
#include "tests/support/scoped_registry.h"
#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;

constexpr std::uint16_t kPmtPid = 0x1000;
constexpr std::uint16_t kVideo = 0x100;
constexpr std::uint16_t kMp2 = 0x101;
constexpr std::uint16_t kAc3 = 0x102;

Bytes SdtSection(std::uint16_t tsid, std::uint8_t version,
                 const std::vector<std::pair<std::uint16_t, std::string>>& services) {
  Bytes body = {0xFF, 0x01, 0xFF};
  for (const auto& service : services) {
    const std::uint16_t id = service.first;
    const std::string& name = service.second;
    Bytes descriptor = {0x48, static_cast<std::uint8_t>(3 + name.size()), 0x01, 0x00,
                        static_cast<std::uint8_t>(name.size())};
    descriptor.insert(descriptor.end(), name.begin(), name.end());
    body.push_back(static_cast<std::uint8_t>(id >> 8));
    body.push_back(static_cast<std::uint8_t>(id & 0xFF));
    body.push_back(0xFC);
    body.push_back(static_cast<std::uint8_t>(0x80 | (descriptor.size() >> 8)));
    body.push_back(static_cast<std::uint8_t>(descriptor.size() & 0xFF));
    body.insert(body.end(), descriptor.begin(), descriptor.end());
  }
  return tsw::Section(0x42, tsid, version, body);
}

Bytes StandardPmt(std::uint16_t program = 1, std::uint8_t version = 0) {
  return tsw::PmtSection(program, version, kVideo,
                         {{2, kVideo, {}},
                          {3, kMp2, tsw::LanguageDescriptor("eng")},
                          {0x81, kAc3, tsw::LanguageDescriptor("deu")}});
}

// A/V packets so that every stream has a census row: video PES starts with
// PTS, MP2 and AC-3 PES starts.
void AddMedia(tsw::TsFile& file, std::uint32_t rounds) {
  for (std::uint32_t i = 0; i < rounds; ++i) {
    file.Add(tsw::MakePacket(kVideo, true, tsw::PesHeader(0xE0, 90000 + i * 3600)));
    file.AddFiller(kVideo, 3);
    file.Add(tsw::MakePacket(kMp2, true, tsw::PesHeader(0xC0, 90000 + i * 3600, 400)));
    Bytes ac3 = tsw::PesHeader(0xBD, 90000 + i * 3600, 800);
    ac3.push_back(0x0B);
    ac3.push_back(0x77);
    file.Add(tsw::MakePacket(kAc3, true, ac3));
  }
}

class TablesScanTest : public ::testing::Test {
 protected:
  HRESULT Load(const tsw::TsFile& file) {
    const auto path = m_Dir.File("t.ts");
    file.Write(path);
    return m_Filter.Load(path);
  }
  ITsScanReport* Report() { return static_cast<ITsScanReport*>(&*m_Filter); }
  ITsStreamInfo* Info() { return static_cast<ITsStreamInfo*>(&*m_Filter); }
  std::uint16_t VideoPid() {
    WORD pid = 0, type = 0;
    Report()->GetVideo(&pid, &type);
    return pid;
  }
  DWORD NoPmt() {
    DWORD ready = 0, noPmt = 0;
    WORD program = 0;
    Report()->GetScanFlags(&ready, &noPmt, &program);
    return noPmt;
  }

  tsw::TempDir m_Dir;
  CMessageBoxRecorder m_Messages;
  FilterHolder m_Filter;
};

TEST_F(TablesScanTest, PatThenPmtSelectsTracksAndAnswersTheGetters) {
  tsw::TsFile file;
  file.AddSection(0, tsw::PatSection(7, 3, {{0, 0x10}, {1, kPmtPid}}));
  file.AddSection(kPmtPid, StandardPmt());
  file.AddSection(17, SdtSection(7, 0, {{1, "Channel \x86One\x87"}}));
  AddMedia(file, 50);
  ASSERT_EQ(Load(file), S_OK);

  WORD tsid = 0;
  BYTE version = 0;
  DWORD programs = 0;
  ASSERT_EQ(Info()->GetTransportStreamId(&tsid), S_OK);
  ASSERT_EQ(Info()->GetPatVersion(&version), S_OK);
  ASSERT_EQ(Info()->GetProgramCount(&programs), S_OK);
  EXPECT_EQ(tsid, 7);
  EXPECT_EQ(version, 3);
  EXPECT_EQ(programs, 2u) << "the network row makes an entry too";

  WORD number = 0, pid = 0, streams = 0;
  ASSERT_EQ(Info()->GetProgramNumber(1, &number), S_OK);
  EXPECT_EQ(number, 1);
  ASSERT_EQ(Info()->GetPmtPidByIndex(1, &pid), S_OK);
  EXPECT_EQ(pid, kPmtPid);
  ASSERT_EQ(Info()->GetStreamCount(1, &streams), S_OK);
  EXPECT_EQ(streams, 3);
  BYTE type = 0;
  ASSERT_EQ(Info()->GetStreamType(1, 2, &type), S_OK);
  EXPECT_EQ(type, 0x81);
  ASSERT_EQ(Info()->GetStreamPid(1, 1, &pid), S_OK);
  EXPECT_EQ(pid, kMp2);
  EXPECT_EQ(Info()->GetStreamPid(1, 3, &pid), E_INVALIDARG);
  EXPECT_EQ(Info()->GetStreamCount(99, &streams), E_INVALIDARG);

  EXPECT_EQ(VideoPid(), kVideo);
  EXPECT_EQ(NoPmt(), 0u);
  EXPECT_EQ(m_Filter.Query(L"PMTPID"), "4096");
  EXPECT_EQ(m_Filter.Query(L"AUDIOPID"), "0x0101 (257)");
  EXPECT_EQ(m_Filter.Query(L"AUDIOFORMAT"), "11172-3 Audio");
  EXPECT_EQ(m_Filter.Query(L"AUDIOTYPE"), "03");
  EXPECT_EQ(m_Filter.Query(L"GETNAME(1)"), "Channel One");
  EXPECT_EQ(m_Filter.Query(L"GETNAME(0)"), "Program 0");

  WORD count = 0, selected = 0, kind = 0, streamType = 0;
  ASSERT_EQ(Report()->GetAudioTrackCount(&count, &selected), S_OK);
  ASSERT_EQ(count, 2);
  char language[8] = {};
  ASSERT_EQ(Report()->GetAudioTrack(1, &pid, &kind, &streamType, language, sizeof language), S_OK);
  EXPECT_EQ(pid, kAc3);
  EXPECT_EQ(kind, 2);
  EXPECT_EQ(std::string(language), "deu");
  EXPECT_TRUE(m_Messages.Calls().empty());
}

TEST_F(TablesScanTest, PmtBeforeThePatLeavesNoTraceAndItsRepetitionCounts) {
  tsw::TsFile file;
  file.AddSection(kPmtPid, StandardPmt());
  file.AddSection(0, tsw::PatSection(1, 0, {{1, kPmtPid}}));
  AddMedia(file, 20);
  file.AddSection(kPmtPid, StandardPmt());
  ASSERT_EQ(Load(file), S_OK);
  EXPECT_EQ(VideoPid(), kVideo);
  EXPECT_EQ(NoPmt(), 0u);
}

TEST_F(TablesScanTest, SdtBeforeThePatNamesNothingUntilItRepeats) {
  for (bool repeat : {false, true}) {
    tsw::TsFile file;
    file.AddSection(17, SdtSection(1, 0, {{1, "Early"}}));
    file.AddSection(0, tsw::PatSection(1, 0, {{1, kPmtPid}}));
    file.AddSection(kPmtPid, StandardPmt());
    AddMedia(file, 10);
    if (repeat) file.AddSection(17, SdtSection(1, 0, {{1, "Early"}}));
    FilterHolder filter;
    const auto path = m_Dir.File("sdt.ts");
    file.Write(path);
    ASSERT_EQ(filter.Load(path), S_OK);
    EXPECT_EQ(filter.Query(L"GETNAME(1)"), repeat ? "Early" : "Program 1");
  }
}

TEST_F(TablesScanTest, PmtWithBadCrcNeedsIgnoreCrcElseTheCensusDecides) {
  Bytes pmt = StandardPmt();
  pmt.back() ^= 0xFF;  // break the CRC of a short section
  tsw::TsFile file;
  file.AddSection(0, tsw::PatSection(1, 0, {{1, kPmtPid}}));
  file.AddSection(kPmtPid, pmt);
  AddMedia(file, 50);
  // The retry pass starts where the tables pass stopped, at packet 30000: it
  // sees anything only in a longer file.
  file.AddFiller(0x1FFF, 40000);
  {
    FilterHolder filter;
    const auto path = m_Dir.File("crc.ts");
    file.Write(path);
    ASSERT_EQ(filter.Load(path), S_OK);
    DWORD ready = 0, noPmt = 0;
    WORD program = 0;
    static_cast<ITsScanReport*>(&*filter)->GetScanFlags(&ready, &noPmt, &program);
    EXPECT_EQ(noPmt, 1u) << "no usable PMT: the fallback ran";
  }
  tsw::ScopedRegistry registry;
  ASSERT_TRUE(WriteSettingDword("IgnoreCRC", 5));
  ASSERT_EQ(Load(file), S_OK);
  EXPECT_EQ(NoPmt(), 0u) << "the retry accepted the PMT";
  EXPECT_EQ(VideoPid(), kVideo);
}

TEST_F(TablesScanTest, NoPmtAnswersForTheImpliedProgram) {
  tsw::TsFile file;
  AddMedia(file, 100);
  file.AddFiller(0x1FFF, 2000);  // the largest row, but no PES: passed over
  ASSERT_EQ(Load(file), S_OK);
  ASSERT_EQ(NoPmt(), 1u);
  EXPECT_EQ(VideoPid(), kVideo) << "video has the most packets after the null PID";

  DWORD programs = 0;
  WORD number = 0, streams = 0, pid = 0;
  ASSERT_EQ(Info()->GetProgramCount(&programs), S_OK);
  EXPECT_EQ(programs, 1u);
  ASSERT_EQ(Info()->GetProgramNumber(0, &number), S_OK);
  EXPECT_EQ(number, 1);
  ASSERT_EQ(Info()->GetProgramNumber(5, &number), S_OK);
  EXPECT_EQ(number, 1);
  ASSERT_EQ(Info()->GetStreamCount(1, &streams), S_OK);
  EXPECT_EQ(streams, 2);
  EXPECT_EQ(Info()->GetPmtPid(1, &pid), E_INVALIDARG);
  BYTE type = 0x5A;
  ASSERT_EQ(Info()->GetStreamType(1, 2, &type), S_OK);
  EXPECT_EQ(type, 0x5A) << "left as it was";
  ASSERT_EQ(Info()->GetStreamType(1, 0, &type), S_OK);
  EXPECT_EQ(type, 0xE0) << "the census kind of the video PID";
  ASSERT_EQ(Info()->GetStreamPid(1, 1, &pid), S_OK);
  EXPECT_EQ(pid, kMp2);
  EXPECT_EQ(m_Filter.Query(L"GETNAME(1)"), "Program/Service 1");
  EXPECT_EQ(m_Filter.Query(L"PMTPID"), "0");
}

TEST_F(TablesScanTest, AcThreePreferenceMovesTheFallbackAudio) {
  tsw::TsFile file;
  AddMedia(file, 100);
  file.AddFiller(kMp2, 50);  // MP2 outnumbers AC-3
  FilterHolder filter;
  const auto path = m_Dir.File("ac3.ts");
  file.Write(path);
  ASSERT_EQ(filter.Load(path), S_OK);
  EXPECT_EQ(filter.Query(L"AUDIOPID"), "0x0101 (257)") << "AC3 is 0 until the settings are read";
}

TEST(TsStreamInfoUnloaded, AnswersForAFilterWithoutFile) {
  FilterHolder filter;
  ITsStreamInfo* info = &*filter;
  DWORD programs = 9;
  ASSERT_EQ(info->GetProgramCount(&programs), S_OK);
  EXPECT_EQ(programs, 0u);
  WORD streams = 7;
  EXPECT_EQ(info->GetStreamCount(1, &streams), E_INVALIDARG);
  EXPECT_EQ(streams, 7);
  EXPECT_EQ(info->GetTransportStreamId(nullptr), E_INVALIDARG);
  EXPECT_EQ(info->GetPatVersion(nullptr), E_INVALIDARG);
  EXPECT_EQ(info->GetProgramCount(nullptr), E_INVALIDARG);
  EXPECT_EQ(info->GetProgramNumber(0, nullptr), E_INVALIDARG);
  EXPECT_EQ(info->GetPmtPidByIndex(0, nullptr), E_INVALIDARG);
  EXPECT_EQ(info->GetPmtPid(1, nullptr), E_INVALIDARG);
  EXPECT_EQ(info->GetPmtVersion(1, nullptr), E_INVALIDARG);
  EXPECT_EQ(info->GetStreamCount(1, nullptr), E_INVALIDARG);
  EXPECT_EQ(info->GetStreamType(1, 0, nullptr), E_INVALIDARG);
  EXPECT_EQ(info->GetStreamPid(1, 0, nullptr), E_INVALIDARG);
  EXPECT_EQ(filter.Query(L"GETNAME(3)"), "Program 3");
}

TEST_F(TablesScanTest, ElementaryOutputReadsNoTablesSoTheCensusDecides) {
  tsw::TsFile file;
  file.AddSection(0, tsw::PatSection(1, 0, {{1, kPmtPid}}));
  file.AddSection(kPmtPid, StandardPmt());
  AddMedia(file, 50);
  tsw::ScopedRegistry registry;
  ASSERT_TRUE(WriteSettingDword("PrefDemux", 3));
  ASSERT_EQ(Load(file), S_OK);
  EXPECT_EQ(m_Filter->OutputPin()->Name(), L"Video");
  EXPECT_EQ(NoPmt(), 1u);
  EXPECT_EQ(CTsSourceFilterProbe::PrefDemux(*m_Filter), 3u);
}

}  // namespace
