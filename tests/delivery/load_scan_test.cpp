#include <gtest/gtest.h>

#include "platform/win32/messages.h"
#include "tests/delivery/filter_probe.h"
#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;

// `count` packets; among the first 10000, every fifth is PID 0x101 and the
// rest 0x100; behind them everything is PID 0x102.
tsw::TsFile CensusFile(std::uint32_t count) {
  tsw::TsFile file;
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint16_t pid = i >= 10000 ? 0x102 : (i % 5 == 0 ? 0x101 : 0x100);
    const Bytes payload = {static_cast<std::uint8_t>(i >> 16), static_cast<std::uint8_t>(i >> 8),
                           static_cast<std::uint8_t>(i)};
    file.Add(tsw::MakePacket(pid, false, payload));
  }
  return file;
}

class LoadScanTest : public ::testing::Test {
 protected:
  CMessageBoxRecorder m_Messages;
};

struct CensusCase {
  std::uint32_t packets;
  std::uint32_t pid100;
  std::uint32_t pid101;
};

// The scan leaves the engine at packet 0 whatever it read.
TEST_F(LoadScanTest, CensusSeesTheFirstTenThousandPacketsThreeTimesOrTheShortFileOnce) {
  const CensusCase cases[] = {
      {4000, 3200, 800},     // whole file, once
      {15000, 12000, 3000},  // the first 10000, then the first 5000 again
      {45000, 24000, 6000},  // three trips through the first 10000
  };
  for (const CensusCase& c : cases) {
    FilterHolder filter;
    ASSERT_EQ(filter.Load(CensusFile(c.packets)), S_OK);
    const CPidCensus& census = CTsSourceFilterProbe::Census(*filter);
    ASSERT_NE(census.Find(0x100), nullptr);
    EXPECT_EQ(census.Find(0x100)->count, c.pid100) << c.packets;
    EXPECT_EQ(census.Find(0x101)->count, c.pid101) << c.packets;
    EXPECT_EQ(census.Find(0x102), nullptr) << c.packets;
    EXPECT_EQ(filter.Query(L"GETPID(0)"), "0x0100 (256)") << "sorted by count";
    EXPECT_EQ(filter.Query(L"NUMPACKETS"), std::to_string(c.pid100 + c.pid101));
    EXPECT_EQ(filter.Query(L"MAXPACKET"), std::to_string(c.packets));
    EXPECT_EQ(filter.Query(L"NUMPIDS"), "2");
    EXPECT_EQ(filter.Query(L"CURPACKET"), "0");
    EXPECT_EQ(filter.Query(L"VIDEOPTS"), "00:00:00.000");
  }
  EXPECT_TRUE(m_Messages.Calls().empty());
}

// Files that are not one clean run of packets still load.
TEST_F(LoadScanTest, OffsetEmptyAndJunkFilesLoad) {
  FilterHolder offset, empty, junk;
  tsw::TsFile partial;
  partial.AddRaw(Bytes(77, 0x00));
  partial.AddRaw(CensusFile(3000).Data());
  ASSERT_EQ(offset.Load(partial), S_OK);
  EXPECT_EQ(CTsSourceFilterProbe::Census(*offset).Find(0x100)->count, 2400u) << "read at the packets' offset";
  EXPECT_TRUE(m_Messages.Calls().empty());

  EXPECT_EQ(empty.Load(tsw::TsFile()), S_OK);
  EXPECT_EQ(empty.Query(L"NUMPIDS"), "0");
  EXPECT_EQ(empty.Query(L"MAXPACKET"), "0");
  EXPECT_EQ(empty.Query(L"MEDIALEN"), "00:00:00.000");

  m_Messages.Clear();
  tsw::TsFile content;
  content.AddRaw(Bytes(50000, 0x11));
  EXPECT_EQ(junk.Load(content), S_OK);
  ASSERT_GE(m_Messages.Calls().size(), 1u);
  EXPECT_EQ(m_Messages.Calls()[0].text, "Input stream does not appear to be a transport stream");
  EXPECT_EQ(m_Messages.Calls()[0].caption, "Brindlet");
}

TEST_F(LoadScanTest, LoadFailures) {
  tsw::TempDir dir;
  FilterHolder filter;
  EXPECT_EQ(filter->Load(nullptr, nullptr), E_POINTER);
  EXPECT_EQ(filter.Load(dir.File("missing.ts")), E_FAIL);
  EXPECT_EQ(filter->OutputPin(), nullptr);
  EXPECT_EQ(filter.Load(dir.Path()), E_FAIL) << "a directory is no file";
  EXPECT_EQ(filter.Query(L"MEDIALEN"), "<null>") << "no pin, no answer";

  ASSERT_EQ(filter.Load(CensusFile(10)), S_OK);
  EXPECT_EQ(filter.Load(CensusFile(20)), E_UNEXPECTED);
  EXPECT_EQ(filter.Query(L"MAXPACKET"), "10") << "the first file stays";
}

TEST_F(LoadScanTest, GetCurFileGivesNameAndTheTypeGivenOrAStream) {
  FilterHolder filter;
  LPWSTR name = reinterpret_cast<LPWSTR>(0x1);
  EXPECT_EQ(filter->GetCurFile(nullptr, nullptr), E_POINTER);
  // No file and no default file in the working directory: S_OK, no name.
  ASSERT_EQ(filter->GetCurFile(&name, nullptr), S_OK);
  EXPECT_EQ(name, nullptr);

  for (const bool given : {false, true}) {
    FilterHolder loaded;
    AM_MEDIA_TYPE type{};
    type.majortype = MEDIATYPE_Stream;
    type.subtype = MEDIASUBTYPE_MPEG2_TRANSPORT;
    tsw::TempDir dir;
    const auto path = dir.File("in.ts");
    CensusFile(10).Write(path);
    ASSERT_EQ(loaded->Load(path.wstring().c_str(), given ? &type : nullptr), S_OK);
    ASSERT_EQ(loaded->GetCurFile(&name, &type), S_OK);
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(std::wstring(name), path.wstring());
    CoTaskMemFree(name);
    EXPECT_EQ(type.majortype, MEDIATYPE_Stream);
    EXPECT_EQ(type.subtype, given ? MEDIASUBTYPE_MPEG2_TRANSPORT : GUID_NULL);
    FreeMediaType(type);
  }
}

TEST_F(LoadScanTest, NotifyWindowGetsEndOfStreamDuringTheScan) {
  HWND window = CreatePlatformWindow();
  const auto handle = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(window));
  FilterHolder filter;
  const std::wstring keyword = L"NOTIFYWND(" + std::to_wstring(handle) + L")";
  EXPECT_EQ(filter.Query(keyword.c_str()), "Notification on");
  ASSERT_EQ(filter.Load(CensusFile(100)), S_OK);
  MSG message{};
  ASSERT_TRUE(PeekPlatformMessage(window, &message));
  EXPECT_EQ(message.message, 0x8001u);
  EXPECT_EQ(message.wParam, 0xAAAAu);
  EXPECT_EQ(message.lParam, 0x5555);
  DestroyPlatformWindow(window);
}

}  // namespace
