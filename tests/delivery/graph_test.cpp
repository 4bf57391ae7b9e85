// The filter as a graph object: its interfaces, the clock choice, the
// Running Object Table, the class factory of the module, and where its pin's
// delivery starts. The worker's own rules are the base stream's, tested with
// it; a seek while it delivers is the seeking tests'.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>

#include "control/settings_store.h"
#include "host/class_factory.h"
#include "platform/win32/codepage.h"
#include "platform/com/com_ptr.h"
#include "platform/graph/control.h"
#include "platform/win32/messages.h"
#include "platform/com/objbase.h"
#include "platform/com/rot.h"
#include "tests/delivery/filter_probe.h"
#include "tests/support/capture_pin.h"
#include "tests/support/scoped_registry.h"
#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;

constexpr std::uint16_t kVideo = 0x100;

// `count` packets: PAT and PMT at `tables` and the packet behind it, a video
// PES opening with a sequence header at each of `headers`, a bare video PES
// start every tenth packet, and video and audio numbered in their payload.
tsw::TsFile GateFile(std::uint32_t count, std::vector<std::uint32_t> headers, std::uint32_t tables = 0) {
  tsw::TsFile file;
  for (std::uint32_t i = 0; i < count; ++i) {
    if (i == tables) {
      file.AddSection(0, tsw::PatSection(1, 0, {{1, 0x1000}}));
    } else if (i == tables + 1) {
      file.AddSection(0x1000, tsw::PmtSection(1, 0, kVideo, {{2, kVideo, {}}, {3, 0x101, {}}}));
    } else if (std::count(headers.begin(), headers.end(), i) != 0) {
      Bytes pes = tsw::PesHeader(0xE0, 90000 + i * 90);
      const Bytes sequence = tsw::Mpeg2SequenceHeader(720, 576, 3, 3);
      pes.insert(pes.end(), sequence.begin(), sequence.end());
      file.Add(tsw::MakePacket(kVideo, true, pes));
    } else if (i % 10 == 0) {
      file.Add(tsw::MakePacket(kVideo, true, tsw::PesHeader(0xE0, 90000 + i * 90)));
    } else {
      const Bytes index = {0xAA, static_cast<std::uint8_t>(i >> 16), static_cast<std::uint8_t>(i >> 8),
                           static_cast<std::uint8_t>(i)};
      file.Add(tsw::MakePacket(i % 3 ? kVideo : 0x101, false, index));
    }
  }
  return file;
}

class GraphTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(WriteSettingDword("PrefDemux", 0)); }
  IPin* Pin() { return m_Filter->OutputPin(); }

  tsw::ScopedRegistry m_Registry;
  CMessageBoxRecorder m_Messages;
  FilterHolder m_Filter;
};

TEST_F(GraphTest, InterfacesSeekingOnceThePinExistsAndThePinsName) {
  void* face = nullptr;
  IUnknown* unknown = m_Filter->NonDelegatingUnknown();
  EXPECT_EQ(unknown->QueryInterface(IID_IMediaSeeking, &face), E_NOINTERFACE);
  ASSERT_EQ(m_Filter.Load(GateFile(100, {50})), S_OK);
  ComPtr<IMediaSeeking> seeking, fromPin;
  ASSERT_EQ(unknown->QueryInterface(IID_IMediaSeeking, seeking.PutVoid()), S_OK);
  ASSERT_EQ(Pin()->QueryInterface(IID_IMediaSeeking, fromPin.PutVoid()), S_OK);
  EXPECT_EQ(fromPin.Get(), seeking.Get()) << "one seeking object, on the pin and on the filter";
  for (REFIID iid : {IID_IAMExtendedSeeking, IID_IAMStreamSelect, IID_IAMFilterMiscFlags, IID_ISpecifyPropertyPages,
                     IID_IBaseFilter, IID_IMediaFilter, IID_IPersist, IID_IAMovieSetup}) {
    ASSERT_EQ(unknown->QueryInterface(iid, &face), S_OK);
    static_cast<IUnknown*>(face)->Release();
  }
  PIN_INFO info{};
  ASSERT_EQ(Pin()->QueryPinInfo(&info), S_OK);
  EXPECT_STREQ(info.achName, L"TS Out");
  info.pFilter->Release();
}

// The scan's Tables pass analyses video PES starts once the PMT has named
// the video PID, until it meets a sequence header; the gate stands right
// behind it, and delivery begins with that packet, each time from the start.
TEST_F(GraphTest, DeliveryStartsAtTheGateEndsOnceAndRestartsFromPacketZero) {
  struct Case {
    const char* name;
    std::vector<std::uint32_t> headers;
    std::uint32_t tables;
    std::size_t first;
  };
  const Case cases[] = {{"HeaderBehindThePmt", {700, 900}, 0, 700},
                        {"HeaderAheadOfThePmtIsNotSeen", {5, 700}, 10, 700},
                        {"NoHeaderSendsEverything", {}, 0, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    FilterHolder filter;
    const tsw::TsFile content = GateFile(3000, c.headers, c.tables);
    ASSERT_EQ(filter.Load(content), S_OK);
    tsw::CapturePin peer;
    IPin* pin = filter->OutputPin();
    ASSERT_EQ(pin->Connect(&peer, nullptr), S_OK);
    const std::size_t sent = 3000 - c.first;
    for (int round = 0; round < 2; ++round) {
      ASSERT_EQ(filter->Pause(), S_OK);
      ASSERT_TRUE(peer.WaitForEndOfStream(10000, round + 1));
      const auto samples = peer.Samples();
      const std::size_t at = round == 0 ? 0 : sent;
      ASSERT_EQ(samples.size(), at + sent);
      for (std::size_t i = 0; i < sent; ++i) {
        const auto expected = content.Data().begin() + static_cast<std::ptrdiff_t>((c.first + i) * 188);
        ASSERT_TRUE(std::equal(samples[at + i].bytes.begin(), samples[at + i].bytes.end(), expected)) << i;
      }
      EXPECT_EQ(peer.EndOfStreams(), round + 1);
      EXPECT_EQ(samples[at].sync, c.first != 0) << "the header packet carries a PTS";
      EXPECT_FALSE(samples[at].discontinuity);
      ASSERT_EQ(filter->Stop(), S_OK);
      EXPECT_EQ(filter.Query(L"CURPACKET"), "0");
    }
    EXPECT_EQ(peer.NewSegments(), 2);
    EXPECT_EQ(pin->Disconnect(), S_OK);
  }
}

TEST_F(GraphTest, WithPrefDemuxOneAPlainPeerIsRefusedAndLeavesNoEntry) {
  ASSERT_TRUE(WriteSettingDword("PrefDemux", 1));
  ASSERT_EQ(m_Filter.Load(GateFile(100, {50})), S_OK);
  tsw::CapturePin peer;
  EXPECT_EQ(Pin()->Connect(&peer, nullptr), E_NOINTERFACE);
  EXPECT_FALSE(peer.Connected());
  const std::wstring path = m_Filter.Path().wstring();
  for (const auto& name : PlatformRunningObjectNames()) EXPECT_EQ(name.find(path), std::wstring::npos);
}

// ---- The graph --------------------------------------------------------------

// A filter with a clock of its own, for the clock choice.
class ClockFilter final : public StubFilter<IReferenceClock, IID_IReferenceClock> {
 public:
  STDMETHODIMP GetTime(REFERENCE_TIME* time) override { return *time = 0, S_OK; }
  STDMETHODIMP AdviseTime(REFERENCE_TIME, REFERENCE_TIME, HEVENT, DWORD_PTR*) override { return E_NOTIMPL; }
  STDMETHODIMP AdvisePeriodic(REFERENCE_TIME, REFERENCE_TIME, HSEMAPHORE, DWORD_PTR*) override { return E_NOTIMPL; }
  STDMETHODIMP Unadvise(DWORD_PTR) override { return E_NOTIMPL; }
};

// The graph is declared last: it goes first, and lets go of the filters
// while they live.
class FilterInGraphTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IFilterGraph, m_Graph.PutVoid()), S_OK);
    ASSERT_EQ(m_Graph->QueryInterface(IID_IMediaFilter, m_GraphFilter.PutVoid()), S_OK);
    ASSERT_EQ(
        CoCreateInstance(CLSID_SystemClock, nullptr, CLSCTX_INPROC_SERVER, IID_IReferenceClock, m_System.PutVoid()),
        S_OK);
  }
  IReferenceClock* GraphClock() {
    IReferenceClock* clock = nullptr;
    m_GraphFilter->GetSyncSource(&clock);
    if (clock != nullptr) clock->Release();
    return clock;
  }

  tsw::ScopedRegistry m_Registry;
  ClockFilter m_Clock;
  FilterHolder m_Filter;
  ComPtr<IReferenceClock> m_System;
  ComPtr<IFilterGraph> m_Graph;
  ComPtr<IMediaFilter> m_GraphFilter;
};

TEST_F(FilterInGraphTest, AfterMiscFlagsTheFirstFilterWithAClockBecomesTheGraphClock) {
  ASSERT_EQ(m_Graph->AddFilter(&m_Clock, L"Clock"), S_OK);
  ASSERT_EQ(m_Graph->AddFilter(static_cast<IBaseFilter*>(&*m_Filter), L"Brindlet"), S_OK);
  EXPECT_EQ(m_Filter->GetMiscFlags(), AM_FILTER_MISC_FLAGS_IS_SOURCE);
  ASSERT_EQ(m_Filter->SetSyncSource(m_System.Get()), S_OK);
  EXPECT_EQ(GraphClock(), static_cast<IReferenceClock*>(&m_Clock));
  // Chosen once: a further clock stands until the flags are asked again.
  ASSERT_EQ(m_GraphFilter->SetSyncSource(m_System.Get()), S_OK);
  EXPECT_EQ(GraphClock(), m_System.Get());
  ASSERT_EQ(m_Filter->SetSyncSource(nullptr), S_OK);
  m_Filter->GetMiscFlags();
  ASSERT_EQ(m_Filter->SetSyncSource(nullptr), S_OK) << "a null clock leaves the flag set";
  ASSERT_EQ(m_Filter->SetSyncSource(m_System.Get()), S_OK);
  EXPECT_EQ(GraphClock(), static_cast<IReferenceClock*>(&m_Clock));
}

TEST_F(FilterInGraphTest, PcrClockKeepsTheGivenClockUntilVendorInfoIsAsked) {
  ASSERT_TRUE(WriteSettingDword("PCRClock", 1));
  ASSERT_EQ(m_Graph->AddFilter(&m_Clock, L"Clock"), S_OK);
  ASSERT_EQ(m_Graph->AddFilter(static_cast<IBaseFilter*>(&*m_Filter), L"Brindlet"), S_OK);
  m_Filter->GetMiscFlags();
  ASSERT_EQ(m_GraphFilter->SetSyncSource(m_System.Get()), S_OK);
  EXPECT_EQ(GraphClock(), m_System.Get());
  LPWSTR vendor = nullptr;
  ASSERT_EQ(m_Filter->QueryVendorInfo(&vendor), S_OK);
  EXPECT_STREQ(vendor, L"1.2.0.0");
  CoTaskMemFree(vendor);
  m_Filter->GetMiscFlags();
  ASSERT_EQ(m_Filter->SetSyncSource(m_System.Get()), S_OK);
  EXPECT_EQ(GraphClock(), static_cast<IReferenceClock*>(&m_Clock)) << "the live PCRClock copy is 0 now";
}

TEST_F(FilterInGraphTest, RunningObjectTableNamesTheGraphAndTheConnectedFilter) {
  ASSERT_TRUE(WriteSettingDword("AllowGraphEdit", 1));
  ASSERT_TRUE(WriteSettingDword("PrefDemux", 0));
  ASSERT_EQ(m_Graph->AddFilter(static_cast<IBaseFilter*>(&*m_Filter), L"Brindlet"), S_OK);
  char graphName[64];
  std::snprintf(graphName, sizeof graphName, "!FilterGraph %08x pid %08x",
                static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(m_Graph.Get())), static_cast<unsigned>(getpid()));
  const auto has = [](const std::string& wanted) {
    const auto names = PlatformRunningObjectNames();
    return std::any_of(names.begin(), names.end(), [&](const std::wstring& n) { return WideToAnsi(n) == wanted; });
  };
  EXPECT_TRUE(has(graphName));

  CMessageBoxRecorder messages;
  ASSERT_EQ(m_Filter.Load(GateFile(100, {50})), S_OK);
  const std::string path = m_Filter.Path().string();
  tsw::CapturePin peer;
  ASSERT_EQ(m_Filter->OutputPin()->Connect(&peer, nullptr), S_OK);
  char filterName[512];
  std::snprintf(filterName, sizeof filterName, "!Brindlet:%s pid %08x", path.c_str(), static_cast<unsigned>(getpid()));
  EXPECT_TRUE(has(filterName));
  ASSERT_EQ(m_Filter->OutputPin()->Disconnect(), S_OK);
  EXPECT_FALSE(has(filterName)) << "disconnecting revokes the filter's entry";
  LPWSTR vendor = nullptr;
  ASSERT_EQ(m_Filter->QueryVendorInfo(&vendor), S_OK);
  CoTaskMemFree(vendor);
  EXPECT_FALSE(has(graphName)) << "the vendor query revokes the graph's entry";
}

TEST_F(FilterInGraphTest, PrefDemuxTwoWithTheClassMissingJoinsAllTheSame) {
  ASSERT_TRUE(WriteSettingDword("PrefDemux", 2));
  EXPECT_EQ(m_Graph->AddFilter(static_cast<IBaseFilter*>(&*m_Filter), L"Brindlet"), S_OK);
  EXPECT_FALSE(m_Filter->HoldsDemux());
}

// ---- The module, through dlopen and its class factory ------------------------

TEST(ModuleTest, FactoryCreatesAggregatesAndTheModuleCountsWhatLives) {
  // Declared first, closed last: after every object of the module has gone.
  const std::unique_ptr<void, int (*)(void*)> module(dlopen(BRINDLET_MODULE_PATH, RTLD_NOW | RTLD_LOCAL), dlclose);
  ASSERT_NE(module, nullptr) << dlerror();
  const auto getClassObject = reinterpret_cast<LPFNGETCLASSOBJECT>(dlsym(module.get(), "DllGetClassObject"));
  const auto canUnloadNow = reinterpret_cast<LPFNCANUNLOADNOW>(dlsym(module.get(), "DllCanUnloadNow"));
  ASSERT_NE(getClassObject, nullptr);
  ASSERT_NE(canUnloadNow, nullptr);
  EXPECT_EQ(dlsym(module.get(), "CUnknownThatShouldStayInside"), nullptr);
  EXPECT_EQ(canUnloadNow(), S_OK);
  void* out = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(getClassObject(CLSID_BrindletSource, IID_IBaseFilter, &out), E_NOINTERFACE);
  EXPECT_EQ(getClassObject(GUID_NULL, IID_IClassFactory, &out), CLASS_E_CLASSNOTAVAILABLE);
  EXPECT_EQ(out, reinterpret_cast<void*>(0x1)) << "untouched";

  ComPtr<IClassFactory> factory;
  ASSERT_EQ(getClassObject(CLSID_BrindletSource, IID_IClassFactory, factory.PutVoid()), S_OK);
  EXPECT_EQ(canUnloadNow(), S_FALSE) << "the factory lives";

  // Any object will do as the outer one; how an aggregated object counts is
  // the host's own test.
  tsw::CapturePin outer;
  void* object = nullptr;
  EXPECT_EQ(factory->CreateInstance(static_cast<IPin*>(&outer), IID_IBaseFilter, &object), E_NOINTERFACE);
  EXPECT_EQ(object, nullptr);
  ASSERT_EQ(factory->CreateInstance(static_cast<IPin*>(&outer), IID_IUnknown, &object), S_OK);
  static_cast<IUnknown*>(object)->Release();

  IBaseFilter* filter = nullptr;
  ASSERT_EQ(factory->CreateInstance(nullptr, IID_IBaseFilter, reinterpret_cast<void**>(&filter)), S_OK);
  ASSERT_EQ(factory->LockServer(TRUE), S_OK);
  factory.Reset();
  EXPECT_EQ(canUnloadNow(), S_FALSE) << "a filter lives";
  filter->Release();
  EXPECT_EQ(canUnloadNow(), S_FALSE) << "the server is locked";
  ComPtr<IClassFactory> again;
  ASSERT_EQ(getClassObject(CLSID_BrindletSource, IID_IUnknown, again.PutVoid()), S_OK);
  again->LockServer(FALSE);
  again.Reset();
  EXPECT_EQ(canUnloadNow(), S_OK);
}

}  // namespace
