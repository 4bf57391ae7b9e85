#include "filters/mpeg2_demux/mpeg2_demultiplexer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/cunknown.h"
#include "platform/com/com_memory.h"
#include "platform/graph/control.h"
#include "platform/graph/graph_plumbing.h"
#include "platform/com/objbase.h"
#include "platform/graph/stream_sinks.h"
#include "tests/filters/pes_packets.h"
#include "tests/platform/test_push_source.h"
#include "tests/support/capture_pin.h"
#include "tests/support/ts_reader.h"

namespace {

using namespace pes_packets;

// The filter straight from its code, as the module's class factory makes it.
ComPtr<IBaseFilter> NewDemux() {
  HRESULT hr = E_FAIL;
  CUnknown* created = CMpeg2Demultiplexer::CreateInstance(nullptr, &hr);
  EXPECT_EQ(hr, S_OK);
  ComPtr<IBaseFilter> filter;
  if (created != nullptr) created->NonDelegatingQueryInterface(IID_IBaseFilter, filter.PutVoid());
  return filter;
}

ComPtr<IPin> MakePin(IBaseFilter* demux, const wchar_t* name, REFGUID major, REFGUID sub) {
  const auto control = QueryAs<IMpeg2Demultiplexer>(demux, IID_IMpeg2Demultiplexer);
  AM_MEDIA_TYPE type = TypeOf(major, sub);
  ComPtr<IPin> pin;
  EXPECT_EQ(control->CreateOutputPin(&type, const_cast<LPWSTR>(name), pin.PutAddress()), S_OK);
  return pin;
}

HRESULT Map(IPin* pin, std::vector<ULONG> pids, MEDIA_SAMPLE_CONTENT content) {
  return QueryAs<IMPEG2PIDMap>(pin, IID_IMPEG2PIDMap)
      ->MapPID(static_cast<ULONG>(pids.size()), pids.data(), content);
}

std::map<ULONG, MEDIA_SAMPLE_CONTENT> MapOf(IPin* pin) {
  ComPtr<IEnumPIDMap> maps;
  EXPECT_EQ(QueryAs<IMPEG2PIDMap>(pin, IID_IMPEG2PIDMap)->EnumPIDMap(maps.PutAddress()), S_OK);
  std::map<ULONG, MEDIA_SAMPLE_CONTENT> result;
  PID_MAP entry{};
  ULONG got = 0;
  while (maps->Next(1, &entry, &got) == S_OK) result[entry.ulPID] = entry.MediaSampleContent;
  return result;
}

std::wstring NameOf(IPin* pin) {
  PIN_INFO info{};
  pin->QueryPinInfo(&info);
  if (info.pFilter != nullptr) info.pFilter->Release();
  return info.achName;
}

// Transport packets for several PIDs, each PES ending with its packet.
class Stream {
 public:
  void AddPes(std::uint16_t pid, const Bytes& pes) {
    for (const tsw::Packet& p : Packetize(pid, pes, m_Cc[pid])) {
      m_Bytes.insert(m_Bytes.end(), p.begin(), p.end());
      m_Packets[pid].insert(m_Packets[pid].end(), p.begin(), p.end());
    }
  }
  void AddJunk(std::size_t n) { m_Bytes.insert(m_Bytes.end(), n, 0x5A); }
  // What was added since the last call; the counters go on.
  Bytes Take() { return std::exchange(m_Bytes, {}); }
  const Bytes& Data() const { return m_Bytes; }
  const Bytes& PacketsOf(std::uint16_t pid) { return m_Packets[pid]; }

 private:
  Bytes m_Bytes;
  std::map<std::uint16_t, std::uint8_t> m_Cc;
  std::map<std::uint16_t, Bytes> m_Packets;
};

// ---- The filter and its pins ----

TEST(DemuxFilter, PinsTakeTheirTypesAndOutputNamesAreUnique) {
  const ComPtr<IBaseFilter> demux = NewDemux();
  ComPtr<IPin> in;
  ASSERT_EQ(demux->FindPin(L"MPEG-2 Stream", in.PutAddress()), S_OK);
  ComPtr<IEnumMediaTypes> inputTypes;
  ASSERT_EQ(in->EnumMediaTypes(inputTypes.PutAddress()), S_OK);
  AM_MEDIA_TYPE* proposed = nullptr;
  ULONG fetched = 7;
  EXPECT_EQ(inputTypes->Next(1, &proposed, &fetched), S_FALSE);
  EXPECT_EQ(fetched, 0u);
  const AM_MEDIA_TYPE transport = TypeOf(MEDIATYPE_Stream, MEDIASUBTYPE_MPEG2_TRANSPORT);
  AM_MEDIA_TYPE type = TypeOf(MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO);
  EXPECT_EQ(in->QueryAccept(&transport), S_OK);
  EXPECT_EQ(in->QueryAccept(&type), S_FALSE);
  IMemAllocator* allocator = reinterpret_cast<IMemAllocator*>(0x1);
  EXPECT_EQ(QueryAs<IMemInputPin>(in.Get(), IID_IMemInputPin)->GetAllocator(&allocator),
            VFW_E_NO_ALLOCATOR);
  EXPECT_EQ(allocator, nullptr);
  ComPtr<CTestSource> source(new CTestSource({.pushes = false}));
  EXPECT_EQ(source->OutputPin()->Connect(in.Get(), &type), VFW_E_TYPE_NOT_ACCEPTED);

  // Output pins by name: they stay, and a taken name is refused.
  const auto control = QueryAs<IMpeg2Demultiplexer>(demux.Get(), IID_IMpeg2Demultiplexer);
  MakePin(demux.Get(), L"Video", MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO);  // released at once
  MakePin(demux.Get(), L"Audio", MEDIATYPE_Audio, MEDIASUBTYPE_DOLBY_AC3);

  IPin* input = reinterpret_cast<IPin*>(0x1);
  EXPECT_EQ(control->CreateOutputPin(&type, const_cast<LPWSTR>(L"MPEG-2 Stream"), &input),
            VFW_E_DUPLICATE_NAME);
  EXPECT_EQ(input, nullptr);

  ComPtr<IPin> video;
  ASSERT_EQ(demux->FindPin(L"Video", video.PutAddress()), S_OK);
  // A taken output name comes back with the pin that has it.
  ComPtr<IPin> again;
  EXPECT_EQ(control->CreateOutputPin(&type, const_cast<LPWSTR>(L"Video"), again.PutAddress()),
            VFW_E_DUPLICATE_NAME);
  EXPECT_EQ(again.Get(), video.Get());

  std::vector<std::wstring> names;
  for (const ComPtr<IPin>& pin : platform_internal::PinsOf(demux.Get())) {
    names.push_back(NameOf(pin.Get()));
  }
  EXPECT_EQ(names, (std::vector<std::wstring>{L"MPEG-2 Stream", L"Video", L"Audio"}));

  // The pin proposes the type it was made with.
  ComPtr<IEnumMediaTypes> types;
  ASSERT_EQ(video->EnumMediaTypes(types.PutAddress()), S_OK);
  AM_MEDIA_TYPE* offered = nullptr;
  ASSERT_EQ(types->Next(1, &offered, nullptr), S_OK);
  EXPECT_EQ(offered->subtype, MEDIASUBTYPE_MPEG2_VIDEO);
  platform_internal::ClearMediaType(offered);
  CoTaskMemFree(offered);


  ASSERT_EQ(demux->Pause(), S_OK);
  IPin* late = nullptr;
  EXPECT_EQ(control->CreateOutputPin(&type, const_cast<LPWSTR>(L"Late"), &late),
            VFW_E_NOT_STOPPED);
  EXPECT_EQ(demux->Stop(), S_OK);
}

TEST(DemuxFilter, PidMapsMoveBetweenPins) {
  const ComPtr<IBaseFilter> demux = NewDemux();
  const ComPtr<IPin> a = MakePin(demux.Get(), L"A", MEDIATYPE_Audio, MEDIASUBTYPE_DOLBY_AC3);
  const ComPtr<IPin> b = MakePin(demux.Get(), L"B", MEDIATYPE_Audio, MEDIASUBTYPE_DOLBY_AC3);
  EXPECT_EQ(Map(a.Get(), {0x100, 0x101}, MEDIA_ELEMENTARY_STREAM), S_OK);
  EXPECT_EQ(Map(b.Get(), {0x200}, MEDIA_TRANSPORT_PACKET), S_OK);
  EXPECT_EQ(MapOf(a.Get()), (std::map<ULONG, MEDIA_SAMPLE_CONTENT>{
                                {0x100, MEDIA_ELEMENTARY_STREAM}, {0x101, MEDIA_ELEMENTARY_STREAM}}));
  EXPECT_EQ(Map(b.Get(), {0x101}, MEDIA_ELEMENTARY_STREAM), S_OK);
  EXPECT_EQ(MapOf(a.Get()),
            (std::map<ULONG, MEDIA_SAMPLE_CONTENT>{{0x100, MEDIA_ELEMENTARY_STREAM}}));
  EXPECT_EQ(MapOf(b.Get()), (std::map<ULONG, MEDIA_SAMPLE_CONTENT>{
                                {0x101, MEDIA_ELEMENTARY_STREAM}, {0x200, MEDIA_TRANSPORT_PACKET}}));

  const auto mapB = QueryAs<IMPEG2PIDMap>(b.Get(), IID_IMPEG2PIDMap);
  ULONG pid = 0x100;  // not b's: left alone
  EXPECT_EQ(mapB->UnmapPID(1, &pid), S_OK);
  pid = 0x200;
  EXPECT_EQ(mapB->UnmapPID(1, &pid), S_OK);
  EXPECT_EQ(MapOf(a.Get()).size(), 1u);
  EXPECT_EQ(MapOf(b.Get()).size(), 1u);

  EXPECT_EQ(Map(a.Get(), {0x2000}, MEDIA_ELEMENTARY_STREAM), E_INVALIDARG);
  EXPECT_EQ(Map(a.Get(), {0x1FFF}, MEDIA_MPEG2_PSI), E_NOTIMPL);
  EXPECT_EQ(MapOf(a.Get()).size(), 1u);
}

// Pins, enumerators and the allocator of a connection are objects of the
// module: none may outlive the filter's last reference, or the module could
// never unload.
TEST(DemuxFilter, EverythingItHandsOutGoesWithItsLastReference) {
  const long before = ActiveObjectCount();
  {
    tsw::CapturePin capture;
    const ComPtr<IBaseFilter> demux = NewDemux();
    const auto control = QueryAs<IMpeg2Demultiplexer>(demux.Get(), IID_IMpeg2Demultiplexer);
    const ComPtr<IPin> pin = MakePin(demux.Get(), L"Video", MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO);
    MakePin(demux.Get(), L"Gone", MEDIATYPE_Audio, MEDIASUBTYPE_DOLBY_AC3);
    ASSERT_EQ(Map(pin.Get(), {0x100}, MEDIA_ELEMENTARY_STREAM), S_OK);
    ComPtr<IEnumPIDMap> maps;
    ASSERT_EQ(QueryAs<IMPEG2PIDMap>(pin.Get(), IID_IMPEG2PIDMap)->EnumPIDMap(maps.PutAddress()), S_OK);
    ComPtr<IEnumPins> pins;
    ASSERT_EQ(demux->EnumPins(pins.PutAddress()), S_OK);
    ComPtr<IEnumMediaTypes> types;
    ASSERT_EQ(pin->EnumMediaTypes(types.PutAddress()), S_OK);
    AM_MEDIA_TYPE type = TypeOf(MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO);
    ComPtr<IPin> again;
    EXPECT_EQ(control->CreateOutputPin(&type, const_cast<LPWSTR>(L"Video"), again.PutAddress()),
              VFW_E_DUPLICATE_NAME);

    ASSERT_EQ(pin->Connect(&capture, nullptr), S_OK);
    ASSERT_EQ(demux->Pause(), S_OK);
    ASSERT_EQ(demux->Stop(), S_OK);
    EXPECT_EQ(control->DeleteOutputPin(const_cast<LPWSTR>(L"Gone")), S_OK);
    EXPECT_EQ(pin->Disconnect(), S_OK);
    capture.Disconnect();
    EXPECT_EQ(capture.References(), 0);
  }
  EXPECT_EQ(ActiveObjectCount(), before);
}

// The module's class table serves the filter by its class id.
TEST(DemuxModule, ServesTheFilterByClassId) {
  const ComPtr<IBaseFilter> demux = Create(CLSID_MPEG2Demultiplexer);
  ASSERT_TRUE(demux);
  CLSID clsid{};
  EXPECT_EQ(demux->GetClassID(&clsid), S_OK);
  EXPECT_EQ(clsid, CLSID_MPEG2Demultiplexer);
  EXPECT_TRUE(QueryAs<IMpeg2Demultiplexer>(demux.Get(), IID_IMpeg2Demultiplexer));
  const auto flags = QueryAs<IAMFilterMiscFlags>(demux.Get(), IID_IAMFilterMiscFlags);
  ASSERT_TRUE(flags);
  EXPECT_EQ(flags->GetMiscFlags(), 0u);  // neither a renderer nor a source
}

// ---- Streams through a graph ----

// Source (fed by hand) -> demultiplexer -> one sink per output pin.
class DemuxInGraph : public GraphFixture {
 protected:
  void SetUp() override {
    GraphFixture::SetUp();
    m_Demux = NewDemux();
    Feed(m_Demux.Get(), L"MPEG-2 Stream");
  }

  // A writer behind a new output pin; returns the pin.
  ComPtr<IPin> AddWriter(const wchar_t* name, REFGUID major, REFGUID sub,
                         const std::filesystem::path& file) {
    ComPtr<IPin> pin = MakePin(m_Demux.Get(), name, major, sub);
    const ComPtr<IBaseFilter> writer = Create(CLSID_StreamFileWriter);
    QueryAs<IStreamSinkControl>(writer.Get(), IID_IStreamSinkControl)->SetAcceptAnyType(TRUE);
    QueryAs<IFileSinkFilter>(writer.Get(), IID_IFileSinkFilter)
        ->SetFileName(file.wstring().c_str(), nullptr);
    EXPECT_EQ(m_Graph->AddFilter(writer.Get(), name), S_OK);
    EXPECT_EQ(m_Graph->ConnectDirect(pin.Get(), InputPinOf(writer.Get()).Get(), nullptr), S_OK);
    return pin;
  }

  HRESULT Send(std::span<const std::uint8_t> bytes) {
    return m_Memory->Receive(MakeSample(bytes).Get());
  }
  void SendInChunks(const Bytes& data, std::size_t chunk) {
    for (std::size_t at = 0; at < data.size(); at += chunk) {
      const std::size_t n = std::min(chunk, data.size() - at);
      ASSERT_EQ(Send(std::span<const std::uint8_t>(data).subspan(at, n)), S_OK);
    }
  }

  ComPtr<IBaseFilter> m_Demux;
};

TEST_F(DemuxInGraph, WritesEachPidsPayloadsInAnyChunking) {
  Stream stream;
  Bytes video, audio;
  for (int i = 0; i < 40; ++i) {
    const Bytes frame = Pattern(static_cast<std::size_t>(500 + i * 97), static_cast<std::uint8_t>(i));
    const Bytes sound = Pattern(static_cast<std::size_t>(300 + i), static_cast<std::uint8_t>(i + 100));
    stream.AddPes(0x100, Pes(0xE0, frame, 90000 + 3600 * static_cast<std::uint64_t>(i),
                             std::nullopt, false));
    stream.AddPes(0x101, Pes(0xC0, sound, 90000 + 2160 * static_cast<std::uint64_t>(i)));
    stream.AddPes(0x102, Pes(0xC1, sound, 1));  // mapped nowhere
    if (i % 7 == 3) stream.AddJunk(61);             // lost sync
    video.insert(video.end(), frame.begin(), frame.end());
    audio.insert(audio.end(), sound.begin(), sound.end());
  }
  tsw::TempDir dir;
  const ComPtr<IPin> v = AddWriter(L"Video", MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO,
                                   dir.File("v.m2v"));
  const ComPtr<IPin> a = AddWriter(L"Audio", MEDIATYPE_Audio, MEDIASUBTYPE_DOLBY_AC3,
                                   dir.File("a.mpa"));
  const ComPtr<IPin> t = AddWriter(L"Packets", MEDIATYPE_Stream, MEDIASUBTYPE_MPEG2_TRANSPORT,
                                   dir.File("p.ts"));
  ASSERT_EQ(Map(v.Get(), {0x100}, MEDIA_ELEMENTARY_STREAM), S_OK);
  ASSERT_EQ(Map(a.Get(), {0x101}, MEDIA_ELEMENTARY_STREAM), S_OK);
  ASSERT_EQ(Map(t.Get(), {0x101}, MEDIA_TRANSPORT_PACKET), S_OK);  // moves 0x101 ...
  ASSERT_EQ(Map(a.Get(), {0x101}, MEDIA_ELEMENTARY_STREAM), S_OK);  // ... and back
  ASSERT_EQ(Map(t.Get(), {0x102}, MEDIA_TRANSPORT_PACKET), S_OK);

  for (const std::size_t chunk : {stream.Data().size(), std::size_t{188 * 7}, std::size_t{1000},
                                  std::size_t{1}}) {
    ASSERT_EQ(m_Control->Run(), S_OK);
    SendInChunks(stream.Data(), chunk);
    EXPECT_EQ(m_In->EndOfStream(), S_OK);
    ASSERT_EQ(m_Control->Stop(), S_OK);
    EXPECT_EQ(tsw::ReadAll(dir.File("v.m2v")), video) << "chunk " << chunk;
    EXPECT_EQ(tsw::ReadAll(dir.File("a.mpa")), audio) << "chunk " << chunk;
    EXPECT_EQ(tsw::ReadAll(dir.File("p.ts")), stream.PacketsOf(0x102)) << "chunk " << chunk;
  }
}

// A capture pin shows the samples' times and flags.
class DemuxToCapture : public DemuxInGraph {
 protected:
  void SetUp() override {
    DemuxInGraph::SetUp();
    m_Pin = MakePin(m_Demux.Get(), L"Video", MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO);
    ASSERT_EQ(m_Pin->Connect(&m_Capture, nullptr), S_OK);
    ASSERT_EQ(Map(m_Pin.Get(), {0x100}, MEDIA_ELEMENTARY_STREAM), S_OK);
    ASSERT_EQ(m_Demux->Pause(), S_OK);
  }
  void TearDown() override {
    m_Demux->Stop();
    m_Pin->Disconnect();
    m_Capture.Disconnect();
    DemuxInGraph::TearDown();
  }
  void SendPes(std::uint64_t pts, const Bytes& payload) {
    m_Stream.AddPes(0x100, Pes(0xE0, payload, pts));
    ASSERT_EQ(Send(m_Stream.Take()), S_OK);
  }

  Stream m_Stream;
  tsw::CapturePin m_Capture;
  ComPtr<IPin> m_Pin;
};

TEST_F(DemuxToCapture, TimesCountFromTheFirstPtsOfTheSegment) {
  constexpr std::uint64_t kTop = (std::uint64_t{1} << 33);
  const struct {
    std::uint64_t pts;
    REFERENCE_TIME start;
  } cases[] = {
      {kTop - 9000, 0},          // first: the origin
      {kTop - 4500, 500000},     // 4500 ticks = 50 ms
      {900, 1100000},            // over the wrap
      {kTop - 9000 - 900, -100000},  // before the first
  };
  for (const auto& c : cases) SendPes(c.pts, Pattern(10, 1));
  const auto samples = m_Capture.Samples();
  ASSERT_EQ(samples.size(), std::size(cases));
  for (std::size_t i = 0; i < samples.size(); ++i) {
    EXPECT_EQ(samples[i].start, cases[i].start) << i;
    EXPECT_TRUE(samples[i].sync);
    EXPECT_EQ(samples[i].discontinuity, i == 0);  // first after the start
  }
  // A new segment: the next PTS is the origin again, shifted by its start.
  EXPECT_EQ(m_In->NewSegment(20000000, 40000000, 1.0), S_OK);
  EXPECT_EQ(m_Capture.NewSegments(), 1);
  SendPes(5000, Pattern(10, 2));
  SendPes(5900, Pattern(10, 2));
  const auto after = m_Capture.Samples();
  ASSERT_EQ(after.size(), samples.size() + 2);
  EXPECT_EQ(after[samples.size()].start, 20000000);
  EXPECT_TRUE(after[samples.size()].discontinuity);
  EXPECT_EQ(after[samples.size() + 1].start, 20100000);
}

TEST_F(DemuxToCapture, FlushDropsThePartialPesAndMarksTheNext) {
  m_Stream.AddPes(0x100, Pes(0xE0, Pattern(2000, 5), 100));
  const Bytes data = m_Stream.Take();
  ASSERT_EQ(Send(std::span<const std::uint8_t>(data).first(188 * 3)), S_OK);
  EXPECT_EQ(m_In->BeginFlush(), S_OK);
  EXPECT_EQ(Send(std::span<const std::uint8_t>(data).subspan(188 * 3)), S_FALSE);
  EXPECT_EQ(m_In->EndFlush(), S_OK);
  EXPECT_EQ(m_Capture.Flushes(), 1);
  // The rest of the old PES, then a new one: only the new one comes.
  ASSERT_EQ(Send(std::span<const std::uint8_t>(data).subspan(188 * 3)), S_OK);
  SendPes(200, Pattern(7, 6));
  const auto samples = m_Capture.Samples();
  ASSERT_EQ(samples.size(), 1u);
  EXPECT_EQ(samples[0].bytes, Pattern(7, 6));
  EXPECT_TRUE(samples[0].discontinuity);
}

// An unbounded PES larger than a buffer goes out in buffer-sized parts; only
// the first carries the time and the flags.
TEST_F(DemuxToCapture, LargePesGoesOutInBufferSizedPartsTimedOnce) {
  const Bytes big = Pattern(static_cast<std::size_t>(kDemuxSampleSize) * 2 + 1000, 3);
  m_Stream.AddPes(0x100, Pes(0xE0, big, 9000, std::nullopt, false));
  ASSERT_EQ(Send(m_Stream.Take()), S_OK);
  EXPECT_EQ(m_In->EndOfStream(), S_OK);  // an unbounded PES ends with the stream
  const auto samples = m_Capture.Samples();
  ASSERT_EQ(samples.size(), 3u);
  Bytes joined;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    EXPECT_EQ(samples[i].start, i == 0 ? 0 : -1) << i;
    EXPECT_EQ(samples[i].sync, i == 0) << i;
    EXPECT_EQ(samples[i].discontinuity, i == 0) << i;
    if (i < 2) {
      EXPECT_EQ(samples[i].bytes.size(), static_cast<std::size_t>(kDemuxSampleSize)) << i;
    }
    joined.insert(joined.end(), samples[i].bytes.begin(), samples[i].bytes.end());
  }
  EXPECT_EQ(joined, big);
}

// A peer that keeps its samples drains the pin's buffers: the delivery
// waits for one, and Stop wakes it. The next start delivers again.
TEST_F(DemuxToCapture, StopWakesADeliveryWaitingForABuffer) {
  m_Capture.SetHoldSamples(true);
  for (int i = 0; i < kDemuxAllocatorBuffers + 2; ++i) {
    m_Stream.AddPes(0x100, Pes(0xE0, Pattern(100, static_cast<std::uint8_t>(i)), 100));
  }
  const Bytes data = m_Stream.Take();
  std::atomic<HRESULT> answer{E_FAIL};
  std::thread upstream([&] { answer = Send(data); });
  ASSERT_TRUE(m_Capture.WaitFor(kDemuxAllocatorBuffers, 10000));
  EXPECT_EQ(m_Demux->Stop(), S_OK);
  upstream.join();
  EXPECT_EQ(answer, S_OK);  // one pin's trouble is not the upstream's
  EXPECT_EQ(m_Capture.SampleCount(), static_cast<std::size_t>(kDemuxAllocatorBuffers));

  m_Capture.SetHoldSamples(false);
  m_Capture.ReleaseHeldSamples();
  ASSERT_EQ(m_Demux->Pause(), S_OK);
  SendPes(200, Pattern(9, 7));
  const auto samples = m_Capture.Samples();
  ASSERT_EQ(samples.size(), static_cast<std::size_t>(kDemuxAllocatorBuffers) + 1);
  EXPECT_EQ(samples.back().bytes, Pattern(9, 7));
  EXPECT_TRUE(samples.back().discontinuity);
}

// The upstream thread delivers while the host thread moves the map and
// finally stops the filter: clean under ThreadSanitizer, and Stop returns.
TEST_F(DemuxToCapture, MapChangesBesideTheStreamAndStopEndsIt) {
  Stream stream;
  for (int i = 0; i < 20; ++i) {
    stream.AddPes(0x100, Pes(0xE0, Pattern(700, 1), 100 + static_cast<std::uint64_t>(i)));
    stream.AddPes(0x101, Pes(0xE0, Pattern(700, 2), 100 + static_cast<std::uint64_t>(i)));
  }
  std::atomic<bool> refused{false};
  std::thread upstream([&] {
    while (Send(stream.Data()) == S_OK) {
    }
    refused = true;
  });
  // The map changes start once delivery has, or on a busy machine they may
  // all be over before the upstream thread runs.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (m_Capture.SampleCount() == 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
  }
  for (int i = 0; i < 200; ++i) {
    EXPECT_EQ(Map(m_Pin.Get(), {i % 2 == 0 ? 0x101u : 0x100u}, MEDIA_ELEMENTARY_STREAM), S_OK);
    MapOf(m_Pin.Get());
    std::this_thread::yield();
  }
  EXPECT_EQ(m_Demux->Stop(), S_OK);
  upstream.join();
  EXPECT_TRUE(refused);
  EXPECT_GT(m_Capture.SampleCount(), 0u);
}

}  // namespace
