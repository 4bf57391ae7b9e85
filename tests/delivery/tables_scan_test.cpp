// The tables phase of the scan, seen from the filter's interfaces: which PAT,
// PMT and SDT sections count, what track selection leaves, and how the
// getters answer with and without a usable PMT.
#include <gtest/gtest.h>

#include "control/settings_store.h"
#include "platform/win32/messages.h"
#include "tests/delivery/filter_probe.h"
#include "tests/support/scoped_registry.h"
#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;

constexpr std::uint16_t kPmtPid = 0x1000;
constexpr std::uint16_t kVideo = 0x100;
constexpr std::uint16_t kMp2 = 0x101;
constexpr std::uint16_t kAc3 = 0x102;

Bytes Sdt(std::uint16_t tsid, const char* name) {
  return tsw::SdtSection(tsid, 0, {{1, tsw::ServiceDescriptor("", name)}});
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
    ac3.insert(ac3.end(), {0x0B, 0x77});
    file.Add(tsw::MakePacket(kAc3, true, ac3));
  }
}

class TablesScanTest : public ::testing::Test {
 protected:
  ITsScanReport* Report() { return static_cast<ITsScanReport*>(&*m_Filter); }
  ITsStreamInfo* Info() { return static_cast<ITsStreamInfo*>(&*m_Filter); }
  std::uint16_t VideoPid() {
    WORD pid = 0, type = 0;
    Report()->GetVideo(&pid, &type);
    return pid;
  }
  DWORD NoPmt(FilterHolder* filter = nullptr) {
    DWORD ready = 0, noPmt = 0;
    WORD program = 0;
    static_cast<ITsScanReport*>(&**(filter != nullptr ? filter : &m_Filter))->GetScanFlags(&ready, &noPmt, &program);
    return noPmt;
  }

  CMessageBoxRecorder m_Messages;
  FilterHolder m_Filter;
};

TEST_F(TablesScanTest, PatThenPmtSelectsTracksAndAnswersTheGetters) {
  tsw::TsFile file;
  file.AddSection(0, tsw::PatSection(7, 3, {{0, 0x10}, {1, kPmtPid}}));
  file.AddSection(kPmtPid, StandardPmt());
  file.AddSection(17, Sdt(7, "Channel \x86One\x87"));
  AddMedia(file, 50);
  ASSERT_EQ(m_Filter.Load(file), S_OK);

  // The getters' plain answers show in the info command's tests; here the
  // network row and the indices past the end.
  DWORD programs = 0;
  WORD number = 0, pid = 0, streams = 0;
  ASSERT_EQ(Info()->GetProgramCount(&programs), S_OK);
  EXPECT_EQ(programs, 2u) << "the network row makes an entry too";
  ASSERT_EQ(Info()->GetProgramNumber(1, &number), S_OK);
  EXPECT_EQ(number, 1);
  ASSERT_EQ(Info()->GetPmtPidByIndex(1, &pid), S_OK);
  EXPECT_EQ(pid, kPmtPid);
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
  EXPECT_TRUE(m_Messages.Calls().empty());
}

// Sections ahead of the PAT leave no trace; repeated behind it, they count.
TEST_F(TablesScanTest, PmtAndSdtAheadOfThePatCountOnlyWhenRepeated) {
  for (bool repeat : {false, true}) {
    tsw::TsFile file;
    file.AddSection(kPmtPid, StandardPmt());
    file.AddSection(17, Sdt(1, "Early"));
    file.AddSection(0, tsw::PatSection(1, 0, {{1, kPmtPid}}));
    AddMedia(file, 20);
    if (repeat) {
      file.AddSection(kPmtPid, StandardPmt());
      file.AddSection(17, Sdt(1, "Early"));
    }
    FilterHolder filter;
    ASSERT_EQ(filter.Load(file), S_OK);
    EXPECT_EQ(NoPmt(&filter), repeat ? 0u : 1u) << repeat;
    EXPECT_EQ(filter.Query(L"GETNAME(1)"), repeat ? "Early" : "Program/Service 1") << repeat;
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
    ASSERT_EQ(filter.Load(file), S_OK);
    EXPECT_EQ(NoPmt(&filter), 1u) << "no usable PMT: the fallback ran";
  }
  tsw::ScopedRegistry registry;
  ASSERT_TRUE(WriteSettingDword("IgnoreCRC", 5));
  ASSERT_EQ(m_Filter.Load(file), S_OK);
  EXPECT_EQ(NoPmt(), 0u) << "the retry accepted the PMT";
  EXPECT_EQ(VideoPid(), kVideo);
}

TEST_F(TablesScanTest, NoPmtAnswersForTheImpliedProgram) {
  tsw::TsFile file;
  AddMedia(file, 100);
  file.AddFiller(kMp2, 50);      // MP2 outnumbers AC-3
  file.AddFiller(0x1FFF, 2000);  // the largest row, but no PES: passed over
  ASSERT_EQ(m_Filter.Load(file), S_OK);
  ASSERT_EQ(NoPmt(), 1u);
  EXPECT_EQ(VideoPid(), kVideo) << "video has the most packets after the null PID";
  // AC3 (on while nothing is stored) would move the audio to AC-3, but the
  // settings are read only when the filter joins a graph.
  EXPECT_EQ(m_Filter.Query(L"AUDIOPID"), "0x0101 (257)");

  // The implied program's plain answers show in the info command's tests.
  WORD number = 0, pid = 0;
  ASSERT_EQ(Info()->GetProgramNumber(5, &number), S_OK);
  EXPECT_EQ(number, 1) << "whatever the index";
  EXPECT_EQ(Info()->GetPmtPid(1, &pid), E_INVALIDARG);
  BYTE type = 0x5A;
  ASSERT_EQ(Info()->GetStreamType(1, 2, &type), S_OK);
  EXPECT_EQ(type, 0x5A) << "left as it was";
  EXPECT_EQ(m_Filter.Query(L"PMTPID"), "0");
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
  // A missing pointer is an invalid argument too, not E_POINTER.
  EXPECT_EQ(info->GetTransportStreamId(nullptr), E_INVALIDARG);
  EXPECT_EQ(info->GetPmtPid(1, nullptr), E_INVALIDARG);
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
  ASSERT_EQ(m_Filter.Load(file), S_OK);
  EXPECT_EQ(m_Filter->OutputPin()->Name(), L"Video");
  EXPECT_EQ(NoPmt(), 1u);
}

}  // namespace
