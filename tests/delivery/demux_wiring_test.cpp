// The wiring of a demultiplexer and the switch of audio tracks, against a
// demultiplexer that records what it is asked.
#include <gtest/gtest.h>

#include <map>

#include "control/settings_store.h"
#include "platform/win32/codepage.h"
#include "platform/com/com_memory.h"
#include "platform/graph/mpeg2_demux.h"
#include "platform/win32/messages.h"
#include "platform/graph/graph_plumbing.h"
#include "platform/com/objbase.h"
#include "tests/delivery/filter_probe.h"
#include "tests/support/capture_pin.h"
#include "tests/support/scoped_registry.h"
#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;

// A pin of the fake: only its PID map does anything.
class FakePin final : public IPin, public IMPEG2PIDMap {
 public:
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    *ppv = riid == IID_IUnknown || riid == IID_IPin ? static_cast<void*>(static_cast<IPin*>(this))
           : riid == IID_IMPEG2PIDMap              ? static_cast<IMPEG2PIDMap*>(this)
                                                   : nullptr;
    return *ppv != nullptr ? S_OK : E_NOINTERFACE;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return 2; }
  STDMETHODIMP_(ULONG) Release() override { return 1; }
  STDMETHODIMP Connect(IPin*, const AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
  STDMETHODIMP ReceiveConnection(IPin*, const AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
  STDMETHODIMP Disconnect() override { return S_FALSE; }
  STDMETHODIMP ConnectedTo(IPin**) override { return VFW_E_NOT_CONNECTED; }
  STDMETHODIMP ConnectionMediaType(AM_MEDIA_TYPE*) override { return VFW_E_NOT_CONNECTED; }
  STDMETHODIMP QueryPinInfo(PIN_INFO*) override { return E_NOTIMPL; }
  STDMETHODIMP QueryDirection(PIN_DIRECTION* d) override { return *d = PINDIR_OUTPUT, S_OK; }
  STDMETHODIMP QueryId(LPWSTR*) override { return E_NOTIMPL; }
  STDMETHODIMP QueryAccept(const AM_MEDIA_TYPE*) override { return S_FALSE; }
  STDMETHODIMP EnumMediaTypes(IEnumMediaTypes**) override { return E_NOTIMPL; }
  STDMETHODIMP QueryInternalConnections(IPin**, ULONG*) override { return E_NOTIMPL; }
  STDMETHODIMP EndOfStream() override { return S_OK; }
  STDMETHODIMP BeginFlush() override { return S_OK; }
  STDMETHODIMP EndFlush() override { return S_OK; }
  STDMETHODIMP NewSegment(REFERENCE_TIME, REFERENCE_TIME, double) override { return S_OK; }
  STDMETHODIMP MapPID(ULONG count, ULONG* pids, MEDIA_SAMPLE_CONTENT content) override {
    for (ULONG i = 0; i < count; ++i) log.push_back("map " + std::to_string(pids[i]) + (content == MEDIA_ELEMENTARY_STREAM ? " es" : " ?"));
    return S_OK;
  }
  STDMETHODIMP UnmapPID(ULONG count, ULONG* pids) override {
    for (ULONG i = 0; i < count; ++i) log.push_back("unmap " + std::to_string(pids[i]));
    return S_OK;
  }
  STDMETHODIMP EnumPIDMap(IEnumPIDMap**) override { return E_NOTIMPL; }

  std::vector<std::string> log;
};

class FakeDemux final : public StubFilter<IMpeg2Demultiplexer, IID_IMpeg2Demultiplexer> {
 public:
  STDMETHODIMP FindPin(LPCWSTR id, IPin** pin) override {
    *pin = Pin(id);
    return *pin != nullptr ? S_OK : VFW_E_NOT_FOUND;
  }
  // A taken name comes back without its pin.
  STDMETHODIMP CreateOutputPin(AM_MEDIA_TYPE*, LPWSTR name, IPin** pin) override {
    created.push_back(name);
    auto& made = pins[name];
    *pin = made ? nullptr : (made = std::make_unique<FakePin>()).get();
    return *pin != nullptr ? S_OK : VFW_E_DUPLICATE_NAME;
  }
  STDMETHODIMP SetOutputPinMediaType(LPWSTR, AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
  STDMETHODIMP DeleteOutputPin(LPWSTR) override { return E_NOTIMPL; }

  FakePin* Pin(const std::wstring& name) { return pins.count(name) ? pins[name].get() : nullptr; }
  std::map<std::wstring, std::unique_ptr<FakePin>> pins;
  std::vector<std::wstring> created;
};

// PAT, PMT with the streams given, and a PES start on each PID so every
// stream has a census row.
tsw::TsFile TracksFile(const std::vector<tsw::PmtStream>& streams) {
  tsw::TsFile file;
  file.AddSection(0, tsw::PatSection(1, 0, {{1, 0x1000}}));
  file.AddSection(0x1000, tsw::PmtSection(1, 0, 0x100, streams));
  for (int round = 0; round < 3; ++round) {
    for (const auto& stream : streams) {
      file.Add(tsw::MakePacket(stream.pid, true, tsw::PesHeader(stream.streamType == 2 ? 0xE0 : 0xC0, 90000)));
    }
  }
  file.AddFiller(0x1FFF, 31000);  // enough packets to switch tracks behind packet 30000
  return file;
}

tsw::PmtStream Mpeg(std::uint16_t pid, const char* language) { return {3, pid, tsw::LanguageDescriptor(language)}; }
tsw::PmtStream Ac3(std::uint16_t pid, const char* language) { return {0x81, pid, tsw::LanguageDescriptor(language)}; }
const tsw::PmtStream kVideoStream{2, 0x100, {}};

class DemuxWiringTest : public ::testing::Test {
 protected:
  void Open(const std::vector<tsw::PmtStream>& streams, DWORD ac3, DWORD audio2) {
    ASSERT_TRUE(WriteSettingDword("AC3", ac3));
    ASSERT_TRUE(WriteSettingDword("Audio2", audio2));
    OpenFile(TracksFile(streams));
  }
  // Joins (which reads the settings) and loads `file`.
  void OpenFile(const tsw::TsFile& file) {
    ASSERT_EQ(m_Filter->JoinFilterGraph(nullptr, nullptr), S_OK);
    ASSERT_EQ(m_Filter.Load(file), S_OK);
  }
  DWORD TrackCount() {
    DWORD count = 99;
    EXPECT_EQ(m_Filter->Count(&count), S_OK);
    return count;
  }
  std::string Label(LONG index, DWORD* flags = nullptr) {
    LPWSTR name = nullptr;
    EXPECT_EQ(m_Filter->Info(index, nullptr, flags, nullptr, nullptr, &name, nullptr, nullptr), S_OK);
    std::string text = name != nullptr ? WideToAnsi(name) : "";
    CoTaskMemFree(name);
    return text;
  }

  tsw::ScopedRegistry m_Registry;
  CMessageBoxRecorder m_Messages{IDNO};
  FilterHolder m_Filter;
  FakeDemux m_Demux;
};

struct ChoiceCase {
  const char* name;
  std::vector<tsw::PmtStream> audio;
  DWORD ac3;
  DWORD audio2;
  WORD selected;
  const wchar_t* pin;
};

class FirstTrackTest : public DemuxWiringTest, public ::testing::WithParamInterface<ChoiceCase> {};

TEST_P(FirstTrackTest, ChoiceByTheSettingsAndThePinByTheKind) {
  const ChoiceCase& c = GetParam();
  std::vector<tsw::PmtStream> streams = {kVideoStream};
  streams.insert(streams.end(), c.audio.begin(), c.audio.end());
  Open(streams, c.ac3, c.audio2);
  ASSERT_EQ(m_Filter->WireDemux(&m_Demux), S_OK);
  WORD count = 0, selected = 9;
  static_cast<ITsScanReport*>(&*m_Filter)->GetAudioTrackCount(&count, &selected);
  EXPECT_EQ(selected, c.selected);
  ASSERT_EQ(m_Demux.created.size(), 2u);
  EXPECT_EQ(m_Demux.created[0], L"Video");
  EXPECT_EQ(m_Demux.created[1], c.pin);
  const std::string mapped = "map " + std::to_string(c.audio[c.selected].pid) + " es";
  EXPECT_EQ(m_Demux.Pin(c.pin)->log, std::vector<std::string>{mapped});
  EXPECT_EQ(m_Demux.Pin(L"Video")->log, std::vector<std::string>{"map 256 es"});
  EXPECT_TRUE(m_Filter->HoldsDemux());
  m_Filter->ReleaseDemux();
}

INSTANTIATE_TEST_SUITE_P(
    Settings, FirstTrackTest,
    ::testing::Values(ChoiceCase{"OneTrackWhateverAc3Says", {Ac3(0x101, "eng")}, 0, 0, 0, L"AC3"},
                      ChoiceCase{"MpegThenAc3WithAc3On", {Mpeg(0x101, "eng"), Ac3(0x102, "deu")}, 1, 0, 1, L"AC3"},
                      ChoiceCase{"TwoAc3WithAc3Off", {Ac3(0x101, "eng"), Ac3(0x102, "deu")}, 0, 0, 0, L"AC3"},
                      ChoiceCase{"SecondMpegWithAudio2",
                                 {Mpeg(0x101, "eng"), Mpeg(0x102, "deu"), Ac3(0x103, "fra")}, 0, 1, 1, L"Audio"},
                      ChoiceCase{"NeighbourOfAnotherKindStays", {Mpeg(0x101, "eng"), Ac3(0x102, "deu")}, 0, 1, 0,
                                 L"Audio"}),
    [](const auto& testInfo) { return std::string(testInfo.param.name); });

TEST_F(DemuxWiringTest, TakenNamesCountAsWiredAndLeaveTheDemultiplexerUnheld) {
  Open({kVideoStream, Mpeg(0x101, "eng")}, 0, 0);
  ASSERT_EQ(m_Filter->WireDemux(&m_Demux), S_OK);
  m_Filter->ReleaseDemux();
  m_Demux.Pin(L"Audio")->log.clear();
  EXPECT_EQ(m_Filter->WireDemux(&m_Demux), E_FAIL) << "a taken video name with no pin is a failed video pin";
  EXPECT_FALSE(m_Filter->HoldsDemux());
  EXPECT_TRUE(m_Demux.Pin(L"Audio")->log.empty()) << "no map touched";
}

TEST_F(DemuxWiringTest, NotReadyOrNoDemultiplexerInterface) {
  EXPECT_EQ(m_Filter->WireDemux(&m_Demux), E_FAIL) << "nothing loaded";
  Open({kVideoStream, Mpeg(0x101, "eng")}, 0, 0);
  tsw::CapturePin plain;  // a filter, but no demultiplexer
  EXPECT_EQ(m_Filter->WireDemux(&plain), E_NOINTERFACE);
}

TEST_F(DemuxWiringTest, StreamSelectLabelsSwitchesAndAsksForAChangeOfKind) {
  Open({kVideoStream, Mpeg(0x101, "eng"), Mpeg(0x102, ""), Ac3(0x103, "deu")}, 0, 0);
  ASSERT_EQ(m_Filter->WireDemux(&m_Demux), S_OK);
  EXPECT_EQ(TrackCount(), 3u);
  DWORD flags = 9;
  EXPECT_EQ(Label(0, &flags), "Audio (eng) (MPG) ");
  EXPECT_EQ(flags, AMSTREAMSELECTINFO_ENABLED);
  EXPECT_EQ(Label(1, &flags), "Audio Track 1 (MPG) ");
  EXPECT_EQ(flags, 0u);
  EXPECT_EQ(Label(2), "Audio (deu) (AC3) ");
  EXPECT_EQ(m_Filter->Info(3, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), E_INVALIDARG);
  EXPECT_EQ(m_Filter->Info(0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), S_OK);
  DWORD group = 0;
  AM_MEDIA_TYPE* type = nullptr;
  ASSERT_EQ(m_Filter->Info(2, &type, nullptr, nullptr, &group, nullptr, nullptr, nullptr), S_OK);
  EXPECT_EQ(group, 0x00648E51u);
  ASSERT_NE(type, nullptr);
  EXPECT_EQ(type->subtype, MEDIASUBTYPE_DOLBY_AC3);
  FreeMediaType(*type);
  CoTaskMemFree(type);

  EXPECT_EQ(m_Filter->Enable(0, 0), E_NOTIMPL);
  EXPECT_EQ(m_Filter->Enable(99, AMSTREAMSELECTENABLE_ENABLEALL), E_NOTIMPL);
  EXPECT_EQ(m_Filter->Enable(1, AMSTREAMSELECTENABLE_ENABLE), E_INVALIDARG) << "before packet 30000";
  m_Filter->OutputPin()->Engine().CurrentPacket = 30000;
  auto& audio = m_Demux.Pin(L"Audio")->log;
  audio.clear();
  ASSERT_EQ(m_Filter->Enable(1, AMSTREAMSELECTENABLE_ENABLE), S_OK);
  EXPECT_EQ(audio, (std::vector<std::string>{"unmap 257", "map 258 es"}));
  EXPECT_EQ(m_Demux.Pin(L"Video")->log, (std::vector<std::string>{"map 256 es", "map 256 es"}))
      << "the video PID is mapped again";
  Label(1, &flags);
  EXPECT_EQ(flags, AMSTREAMSELECTINFO_ENABLED);

  // A change of kind: the dialog, and E_INVALIDARG whatever the answer.
  EXPECT_EQ(m_Filter->Enable(2, AMSTREAMSELECTENABLE_ENABLE), E_INVALIDARG);
  ASSERT_EQ(m_Messages.Count(), 1u);
  EXPECT_EQ(m_Messages.Calls()[0].caption, "Media Type Change");
  EXPECT_NE(m_Messages.Calls()[0].text.find("currently in MPEG audio mode"), std::string::npos);
  EXPECT_EQ(m_Messages.Calls()[0].type, static_cast<UINT>(MB_YESNO));
  DWORD stored = 7;
  EXPECT_TRUE(ReadSettingDword("AC3", &stored));
  EXPECT_EQ(stored, 0u) << "No changes nothing";
  m_Messages.SetAnswer(IDYES);
  EXPECT_EQ(m_Filter->Enable(2, AMSTREAMSELECTENABLE_ENABLE), E_INVALIDARG);
  EXPECT_TRUE(ReadSettingDword("AC3", &stored));
  EXPECT_EQ(stored, 1u) << "Yes stores the other mode for the next start";
  Label(1, &flags);
  EXPECT_EQ(flags, AMSTREAMSELECTINFO_ENABLED) << "the track did not change";
  m_Filter->ReleaseDemux();
}

// Without a PMT the census decides, and its one track speaks English.
TEST_F(DemuxWiringTest, FallbackTrackIsLabelledInEnglish) {
  tsw::TsFile file;
  for (int i = 0; i < 20; ++i) {
    file.Add(tsw::MakePacket(0x100, true, tsw::PesHeader(0xE0, 90000 + 3600u * static_cast<unsigned>(i))));
    if (i % 2 == 0) file.Add(tsw::MakePacket(0x101, true, tsw::PesHeader(0xC0, 90000)));
  }
  OpenFile(file);
  EXPECT_EQ(TrackCount(), 1u);
  EXPECT_EQ(Label(0), "Audio (eng) (MPG) ");
  EXPECT_EQ(m_Filter->Count(nullptr), E_POINTER);
}

// A later PMT without stream rows empties the track list and leaves the
// ready flag: no track to enable, but the wiring still works on the record
// an earlier PMT left in place.
TEST_F(DemuxWiringTest, EmptiedTrackListStillWiresTheRecordLeftBehind) {
  tsw::TsFile file;
  file.AddSection(0, tsw::PatSection(1, 0, {{1, 0x1000}, {2, 0x1001}}));
  file.AddSection(0x1000, tsw::PmtSection(1, 0, 0x100, {kVideoStream, Ac3(0x101, "deu")}));
  file.AddSection(0x1001, tsw::PmtSection(2, 0, 0x100, {}));
  file.Add(tsw::MakePacket(0x100, true, tsw::PesHeader(0xE0, 90000)));
  file.Add(tsw::MakePacket(0x101, true, tsw::PesHeader(0xBD, 90000)));
  file.AddFiller(0x1FFF, 31000);
  OpenFile(file);
  ASSERT_EQ(TrackCount(), 0u);
  m_Filter->OutputPin()->Engine().CurrentPacket = 30000;
  EXPECT_EQ(m_Filter->Enable(0, AMSTREAMSELECTENABLE_ENABLE), E_INVALIDARG);
  ASSERT_EQ(m_Filter->WireDemux(&m_Demux), S_OK);
  ASSERT_NE(m_Demux.Pin(L"AC3"), nullptr) << "the kind of the record picks the pin";
  EXPECT_EQ(m_Demux.Pin(L"AC3")->log, std::vector<std::string>{"map 257 es"});
  m_Filter->ReleaseDemux();
}

// ---- Through the platform's demultiplexer --------------------------------

// The PIDs mapped to a pin of the demultiplexer, or -1 without that pin.
std::vector<long> MappedTo(IBaseFilter* demux, const wchar_t* name) {
  ComPtr<IPin> pin;
  if (FAILED(demux->FindPin(name, pin.PutAddress()))) return {-1};
  ComPtr<IMPEG2PIDMap> map;
  ComPtr<IEnumPIDMap> maps;
  EXPECT_EQ(pin->QueryInterface(IID_IMPEG2PIDMap, map.PutVoid()), S_OK);
  EXPECT_EQ(map->EnumPIDMap(maps.PutAddress()), S_OK);
  std::vector<long> pids;
  PID_MAP entry{};
  ULONG got = 0;
  while (maps->Next(1, &entry, &got) == S_OK && got == 1) pids.push_back(static_cast<long>(entry.ulPID));
  return pids;
}

class ConnectTest : public DemuxWiringTest, public ::testing::WithParamInterface<DWORD> {};

// The filter wires the demultiplexer as the pins connect, whatever
// PrefDemux says; connected again, it finds the pins made (a taken name
// that comes back with its pin) and leaves them and their maps alone.
TEST_P(ConnectTest, WiresAtTheFirstConnectionAndLeavesItAtTheNext) {
  ASSERT_TRUE(WriteSettingDword("PrefDemux", GetParam()));
  OpenFile(TracksFile({kVideoStream, Mpeg(0x101, "eng"), Mpeg(0x102, "deu")}));

  ComPtr<IBaseFilter> demux;
  ASSERT_EQ(CoCreateInstance(CLSID_MPEG2Demultiplexer, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                             demux.PutVoid()),
            S_OK);
  ComPtr<IPin> input;
  ASSERT_EQ(demux->FindPin(L"MPEG-2 Stream", input.PutAddress()), S_OK);
  IPin* output = m_Filter->OutputPin();
  ASSERT_EQ(output->Connect(input.Get(), nullptr), S_OK);
  EXPECT_TRUE(m_Filter->HoldsDemux());
  EXPECT_EQ(MappedTo(demux.Get(), L"Video"), std::vector<long>{0x100});
  EXPECT_EQ(MappedTo(demux.Get(), L"Audio"), std::vector<long>{0x101});

  EXPECT_EQ(output->Disconnect(), S_OK);
  EXPECT_EQ(input->Disconnect(), S_OK);
  EXPECT_FALSE(m_Filter->HoldsDemux());
  ASSERT_EQ(output->Connect(input.Get(), nullptr), S_OK);
  EXPECT_FALSE(m_Filter->HoldsDemux()) << "taken names: wired, but nothing held";
  EXPECT_EQ(MappedTo(demux.Get(), L"Video"), std::vector<long>{0x100});
  EXPECT_EQ(MappedTo(demux.Get(), L"Audio"), std::vector<long>{0x101});
  EXPECT_EQ(platform_internal::PinsOf(demux.Get()).size(), 3u) << "no pin made twice";
  output->Disconnect();
  input->Disconnect();
}

INSTANTIATE_TEST_SUITE_P(PrefDemux, ConnectTest, ::testing::Values(0u, 1u));

}  // namespace
