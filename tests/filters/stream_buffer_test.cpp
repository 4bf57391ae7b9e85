// The stream buffer sink and its recorders, made by class id from their
// module: pins, recorders and their failures, and recordings of what the
// demultiplexer gives, checked with ffprobe and ffmpeg where they are.
#include "platform/graph/stream_buffer.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "filters/stream_buffer/elementary_types.h"
#include "platform/com/objbase.h"
#include "platform/graph/control.h"
#include "platform/graph/graph_plumbing.h"
#include "platform/graph/mpeg2_demux.h"
#include "platform/graph/stream_sinks.h"
#include "tests/platform/test_push_source.h"
#include "tests/support/deadline.h"
#include "tests/support/process.h"
#include "tests/support/ts_reader.h"
#include "tests/support/ts_writer.h"

namespace {

namespace fs = std::filesystem;

constexpr HRESULT kFileExists = HRESULT_FROM_WIN32(ERROR_FILE_EXISTS);
constexpr HRESULT kDiskFull = HRESULT_FROM_WIN32(ERROR_DISK_FULL);
constexpr HRESULT kPathNotFound = HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);

fs::path SamplePath() { return fs::path(BRINDLET_SOURCE_DIR) / "samples" / "mpeg2-mp2-ac3.ts"; }

std::vector<ComPtr<IPin>> Pins(IBaseFilter* filter) { return platform_internal::PinsOf(filter); }

std::vector<std::wstring> PinNames(IBaseFilter* filter) {
  std::vector<std::wstring> names;
  for (const ComPtr<IPin>& pin : Pins(filter)) {
    PIN_INFO info{};
    pin->QueryPinInfo(&info);
    if (info.pFilter != nullptr) info.pFilter->Release();
    names.push_back(info.achName);
  }
  return names;
}

// The sink's pin that nothing is connected to, if any.
ComPtr<IPin> FreePin(IBaseFilter* sink) {
  for (const ComPtr<IPin>& pin : Pins(sink)) {
    ComPtr<IPin> peer;
    if (pin->ConnectedTo(peer.PutAddress()) == VFW_E_NOT_CONNECTED) return pin;
  }
  return {};
}

ComPtr<IStreamBufferSink> SinkOf(IBaseFilter* filter) {
  return QueryAs<IStreamBufferSink>(filter, IID_IStreamBufferSink);
}

ComPtr<IStreamBufferRecordControl> NewRecorder(IBaseFilter* sink, const fs::path& file) {
  ComPtr<IUnknown> made;
  EXPECT_EQ(SinkOf(sink)->CreateRecorder(file.wstring().c_str(), RECORDING_TYPE_CONTENT, made.PutAddress()), S_OK);
  return QueryAs<IStreamBufferRecordControl>(made.Get(), IID_IStreamBufferRecordControl);
}

struct RecordingStatus {
  HRESULT result = E_FAIL;
  BOOL started = -1;
  BOOL stopped = -1;
};

RecordingStatus StatusOf(IStreamBufferRecordControl* recorder) {
  RecordingStatus s;
  EXPECT_EQ(recorder->GetRecordingStatus(&s.result, &s.started, &s.stopped), S_OK);
  return s;
}

HRESULT StartNow(IStreamBufferRecordControl* recorder) {
  REFERENCE_TIME now = 0;
  return recorder->Start(&now);
}

// A sample of `bytes`, timed as the demultiplexer times the start of a PES
// when `start` is given.
ComPtr<IMediaSample> SampleOf(const tsw::Bytes& bytes, std::optional<REFERENCE_TIME> start = std::nullopt) {
  ComPtr<IMediaSample> sample = MakeSample(bytes);
  if (start) {
    REFERENCE_TIME begin = *start;
    REFERENCE_TIME end = begin + 1;
    sample->SetTime(&begin, &end);
  }
  return sample;
}

// A test source whose output pin is connected to the sink's free pin with `type`.
ComPtr<CTestSource> ConnectSource(IBaseFilter* sink, const AM_MEDIA_TYPE& type, HRESULT expected = S_OK) {
  ComPtr<CTestSource> source(new CTestSource({.pushes = false}));
  const ComPtr<IPin> pin = FreePin(sink);
  EXPECT_TRUE(pin);
  if (pin) {
    EXPECT_EQ(source->OutputPin()->Connect(pin.Get(), &type), expected);
  }
  return source;
}

// Breaks the sink's connections to test sources, which hold each other.
void DisconnectAll(IBaseFilter* sink) {
  for (const ComPtr<IPin>& pin : Pins(sink)) {
    ComPtr<IPin> peer;
    if (pin->ConnectedTo(peer.PutAddress()) != S_OK) continue;
    peer->Disconnect();
    pin->Disconnect();
  }
}

std::string Quote(const fs::path& path) { return "'" + path.string() + "'"; }

// ffprobe's answer for one entry of the file.
std::string Probe(const fs::path& file, const std::string& entries) {
  return tsw::Shell("ffprobe -v error -show_entries " + entries + " -of csv=p=0 " + Quote(file) + " 2>/dev/null").out;
}

// The codec of each stream, one a line; ffprobe lists a program's streams
// again after the file's.
std::string CodecsOf(const fs::path& file) {
  std::map<int, std::string> codecs;
  std::istringstream lines(Probe(file, "stream=index,codec_name"));
  std::string line;
  while (std::getline(lines, line)) {
    const std::size_t comma = line.find(',');
    if (comma == std::string::npos || comma == 0) continue;
    std::string codec = line.substr(comma + 1);
    while (!codec.empty() && codec.back() == ',') codec.pop_back();
    codecs[std::atoi(line.c_str())] = codec;
  }
  std::string joined;
  for (const auto& [index, codec] : codecs) joined += codec + "\n";
  return joined;
}

double DurationOf(const fs::path& file) { return std::atof(Probe(file, "format=duration").c_str()); }

// ffmpeg copies one stream out of a recording, as a player's demultiplexer
// would hand it on.
tsw::Bytes CopyOut(const fs::path& file, const std::string& map, const std::string& format, const fs::path& out) {
  const auto result = tsw::Shell("ffmpeg -v error -y -i " + Quote(file) + " -map " + map + " -c copy -f " + format +
                                 " " + Quote(out) + " 2>&1");
  EXPECT_EQ(result.status, 0) << result.out;
  return tsw::ReadAll(out);
}

constexpr std::size_t kChunkPackets = 64;

// Source (fed by hand) -> demultiplexer -> the sink's pins or stream file
// writers, each on a pin of its own.
class CDemuxGraph {
 public:
  CDemuxGraph() {
    m_Graph = Create<IGraphBuilder>(CLSID_FilterGraph, IID_IGraphBuilder);
    m_Control = QueryAs<IMediaControl>(m_Graph.Get(), IID_IMediaControl);
    m_Event = QueryAs<IMediaEvent>(m_Graph.Get(), IID_IMediaEvent);
    m_Demux = Create(CLSID_MPEG2Demultiplexer);
    EXPECT_EQ(m_Graph->AddFilter(m_Demux.Get(), L"Demux"), S_OK);
    m_Source = ComPtr<CTestSource>(new CTestSource({.pushes = false}));
    EXPECT_EQ(m_Graph->AddFilter(m_Source.Get(), L"Source"), S_OK);
    EXPECT_EQ(m_Demux->FindPin(L"MPEG-2 Stream", m_In.PutAddress()), S_OK);
    EXPECT_EQ(m_Graph->ConnectDirect(m_Source->OutputPin(), m_In.Get(), nullptr), S_OK);
    m_Memory = QueryAs<IMemInputPin>(m_In.Get(), IID_IMemInputPin);
    // Every completion shows as an event of its own.
    m_Event->CancelDefaultHandling(EC_COMPLETE);
  }
  ~CDemuxGraph() { m_Control->Stop(); }

  IBaseFilter* Sink() {
    if (!m_Sink) {
      m_Sink = Create(CLSID_StreamBufferSink);
      EXPECT_EQ(m_Graph->AddFilter(m_Sink.Get(), L"Sink"), S_OK);
    }
    return m_Sink.Get();
  }

  void Record(const wchar_t* name, REFGUID major, REFGUID sub, ULONG pid) {
    const ComPtr<IPin> out = OutputPin(name, major, sub, pid);
    EXPECT_EQ(m_Graph->ConnectDirect(out.Get(), FreePin(Sink()).Get(), nullptr), S_OK);
  }

  void Write(const wchar_t* name, REFGUID major, REFGUID sub, ULONG pid, const fs::path& file) {
    const ComPtr<IPin> out = OutputPin(name, major, sub, pid);
    const ComPtr<IBaseFilter> writer = Create(CLSID_StreamFileWriter);
    QueryAs<IFileSinkFilter>(writer.Get(), IID_IFileSinkFilter)->SetFileName(file.wstring().c_str(), nullptr);
    EXPECT_EQ(m_Graph->AddFilter(writer.Get(), name), S_OK);
    EXPECT_EQ(m_Graph->ConnectDirect(out.Get(), InputPinOf(writer.Get()).Get(), nullptr), S_OK);
  }

  // Runs the graph and sends the stream in chunks, `between` after each,
  // then the end of the stream. The graph keeps running.
  void Play(const tsw::Bytes& stream, const std::function<void(std::size_t)>& between = {}) {
    ASSERT_EQ(m_Control->Run(), S_OK);
    constexpr std::size_t kChunk = 188 * kChunkPackets;
    std::size_t n = 0;
    for (std::size_t at = 0; at < stream.size(); at += kChunk, ++n) {
      const std::size_t size = std::min(kChunk, stream.size() - at);
      ASSERT_EQ(m_Memory->Receive(MakeSample(std::span(stream).subspan(at, size)).Get()), S_OK);
      if (between) between(n);
    }
    EXPECT_EQ(m_In->EndOfStream(), S_OK);
  }

  // The events queued so far, with their first parameter.
  std::vector<std::pair<LONG, LONG_PTR>> Events() {
    std::vector<std::pair<LONG, LONG_PTR>> events;
    LONG code = 0;
    LONG_PTR p1 = 0, p2 = 0;
    while (SUCCEEDED(m_Event->GetEvent(&code, &p1, &p2, 0))) events.emplace_back(code, p1);
    return events;
  }

 private:
  ComPtr<IPin> OutputPin(const wchar_t* name, REFGUID major, REFGUID sub, ULONG pid) {
    const auto control = QueryAs<IMpeg2Demultiplexer>(m_Demux.Get(), IID_IMpeg2Demultiplexer);
    AM_MEDIA_TYPE type = TypeOf(major, sub);
    ComPtr<IPin> pin;
    EXPECT_EQ(control->CreateOutputPin(&type, const_cast<LPWSTR>(name), pin.PutAddress()), S_OK);
    EXPECT_EQ(QueryAs<IMPEG2PIDMap>(pin.Get(), IID_IMPEG2PIDMap)->MapPID(1, &pid, MEDIA_ELEMENTARY_STREAM), S_OK);
    return pin;
  }

  ComPtr<IGraphBuilder> m_Graph;
  ComPtr<IMediaControl> m_Control;
  ComPtr<IMediaEvent> m_Event;
  ComPtr<IBaseFilter> m_Demux;
  ComPtr<IBaseFilter> m_Sink;
  ComPtr<CTestSource> m_Source;
  ComPtr<IPin> m_In;
  ComPtr<IMemInputPin> m_Memory;
};

// ---- The filter and its pins ----

TEST(StreamBufferSinkFilter, IsARendererWhosePinsTakeTheFiveElementaryTypes) {
  const struct {
    GUID major;
    GUID sub;
    bool taken;
  } cases[] = {
      {MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO, true},
      {MEDIATYPE_Video, MEDIASUBTYPE_AVC1, true},
      {MEDIATYPE_Audio, MEDIASUBTYPE_MPEG1AudioPayload, true},
      {MEDIATYPE_Audio, MEDIASUBTYPE_DOLBY_AC3, true},
      {MEDIATYPE_Audio, MEDIASUBTYPE_AAC_AUDIO, true},
      {MEDIATYPE_Stream, MEDIASUBTYPE_MPEG2_TRANSPORT, false},
      {MEDIATYPE_Video, GUID_NULL, false},
      {MEDIATYPE_Audio, MEDIASUBTYPE_MPEG2_VIDEO, false},  // a subtype under the wrong major type
  };
  for (const auto& c : cases) {
    const ComPtr<IBaseFilter> sink = Create(CLSID_StreamBufferSink);
    EXPECT_EQ(QueryAs<IAMFilterMiscFlags>(sink.Get(), IID_IAMFilterMiscFlags)->GetMiscFlags(),
              static_cast<ULONG>(AM_FILTER_MISC_FLAGS_IS_RENDERER));
    EXPECT_EQ(SinkOf(sink.Get())->LockProfile(nullptr), VFW_E_NOT_CONNECTED) << "a profile of no streams";
    const AM_MEDIA_TYPE type = TypeOf(c.major, c.sub);
    EXPECT_EQ(FreePin(sink.Get())->QueryAccept(&type), c.taken ? S_OK : S_FALSE);
    ConnectSource(sink.Get(), type, c.taken ? S_OK : VFW_E_TYPE_NOT_ACCEPTED);
    // A connection takes the free pin, and another comes.
    EXPECT_EQ(PinNames(sink.Get()).back(), c.taken ? L"Input 1" : L"Input 0");
    DisconnectAll(sink.Get());
  }
}

TEST(StreamBufferSinkFilter, FreePinsComeUntilSixteenOrTheProfileLocks) {
  const AM_MEDIA_TYPE video = TypeOf(MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO);
  const AM_MEDIA_TYPE audio = TypeOf(MEDIATYPE_Audio, MEDIASUBTYPE_DOLBY_AC3);
  const ComPtr<IBaseFilter> full = Create(CLSID_StreamBufferSink);
  std::vector<ComPtr<CTestSource>> sources;
  for (int i = 0; i < 16; ++i) sources.push_back(ConnectSource(full.Get(), audio));
  EXPECT_EQ(PinNames(full.Get()).back(), L"Input 15");
  EXPECT_FALSE(FreePin(full.Get()));
  DisconnectAll(full.Get());

  const ComPtr<IBaseFilter> sink = Create(CLSID_StreamBufferSink);
  ConnectSource(sink.Get(), video);
  const ComPtr<CTestSource> second = ConnectSource(sink.Get(), audio);
  const auto control = SinkOf(sink.Get());
  EXPECT_EQ(control->IsProfileLocked(), S_FALSE);
  EXPECT_EQ(control->LockProfile(nullptr), S_OK);
  EXPECT_EQ(control->IsProfileLocked(), S_OK);
  EXPECT_EQ(control->LockProfile(nullptr), S_OK);
  // The streams are fixed now: the free pin takes nothing, and a pin of the
  // profile takes only its own type again.
  ConnectSource(sink.Get(), video, VFW_E_TYPE_NOT_ACCEPTED);
  ComPtr<IPin> pin;
  ASSERT_EQ(sink->FindPin(L"Input 1", pin.PutAddress()), S_OK);
  second->OutputPin()->Disconnect();
  ASSERT_EQ(pin->Disconnect(), S_OK);
  EXPECT_EQ(second->OutputPin()->Connect(pin.Get(), &video), VFW_E_TYPE_NOT_ACCEPTED);
  EXPECT_EQ(second->OutputPin()->Connect(pin.Get(), &audio), S_OK);
  EXPECT_EQ(PinNames(sink.Get()).size(), 3u);
  DisconnectAll(sink.Get());
}

// ---- Completion ----

// Sources fed by hand into the sink's pins, one for each of Types().
class SinkFedByHand : public GraphFixture {
 protected:
  void SetUp() override {
    GraphFixture::SetUp();
    m_Event->CancelDefaultHandling(EC_COMPLETE);
    m_Sink = Create(CLSID_StreamBufferSink);
    ASSERT_EQ(m_Graph->AddFilter(m_Sink.Get(), L"Sink"), S_OK);
    for (const AM_MEDIA_TYPE& type : Types()) {
      const ComPtr<IPin> in = FreePin(m_Sink.Get());
      m_Sources.emplace_back(new CTestSource({.pushes = false}));
      ASSERT_EQ(m_Graph->AddFilter(m_Sources.back().Get(), std::to_wstring(m_Sources.size()).c_str()), S_OK);
      ASSERT_EQ(m_Graph->ConnectDirect(m_Sources.back()->OutputPin(), in.Get(), &type), S_OK);
      m_Pins.push_back(in);
      m_Memories.push_back(QueryAs<IMemInputPin>(in.Get(), IID_IMemInputPin));
    }
  }

  virtual std::vector<AM_MEDIA_TYPE> Types() const {
    return {TypeOf(MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO), TypeOf(MEDIATYPE_Audio, MEDIASUBTYPE_DOLBY_AC3)};
  }

  LONG NextEvent() {
    LONG code = 0;
    LONG_PTR p1 = 0, p2 = 0;
    return SUCCEEDED(m_Event->GetEvent(&code, &p1, &p2, 0)) ? code : 0;
  }

  ComPtr<IBaseFilter> m_Sink;
  std::vector<ComPtr<CTestSource>> m_Sources;
  std::vector<ComPtr<IPin>> m_Pins;
  std::vector<ComPtr<IMemInputPin>> m_Memories;
};

TEST_F(SinkFedByHand, CompletesOnceEveryConnectedPinHasEnded) {
  EXPECT_EQ(m_Memories[0]->Receive(SampleOf(tsw::Bytes(10, 1), 0).Get()), VFW_E_WRONG_STATE);
  ASSERT_EQ(m_Control->Run(), S_OK);
  EXPECT_EQ(m_Memories[0]->Receive(SampleOf(tsw::Bytes(10, 1), 0).Get()), S_OK) << "no recorder: taken and dropped";
  EXPECT_EQ(m_Pins[0]->EndOfStream(), S_OK);
  EXPECT_EQ(m_Pins[0]->EndOfStream(), S_OK);
  EXPECT_EQ(NextEvent(), 0) << "one pin of two has ended, twice";
  EXPECT_EQ(m_Pins[1]->EndOfStream(), S_OK);
  EXPECT_EQ(NextEvent(), EC_COMPLETE);
  EXPECT_EQ(NextEvent(), 0);
  // A flush starts that pin's stream again.
  EXPECT_EQ(m_Pins[1]->BeginFlush(), S_OK);
  EXPECT_EQ(m_Memories[1]->Receive(SampleOf(tsw::Bytes(10, 1), 0).Get()), S_FALSE);
  EXPECT_EQ(m_Pins[1]->EndFlush(), S_OK);
  EXPECT_EQ(NextEvent(), 0);
  EXPECT_EQ(m_Pins[1]->EndOfStream(), S_OK);
  EXPECT_EQ(NextEvent(), EC_COMPLETE);
  // Each run starts afresh.
  ASSERT_EQ(m_Control->Stop(), S_OK);
  ASSERT_EQ(m_Control->Run(), S_OK);
  EXPECT_EQ(m_Pins[1]->EndOfStream(), S_OK);
  EXPECT_EQ(NextEvent(), 0);
}

// ---- Recorders ----

TEST_F(SinkFedByHand, CreateRecorderRefusesTakenNamesAndOtherKinds) {
  tsw::TempDir dir;
  const std::wstring taken = dir.File("show").wstring();
  std::ofstream(dir.File("show")) << "an earlier run";
  fs::create_directory(dir.File("folder"));
  const std::wstring folder = dir.File("folder").wstring();
  const std::wstring fresh = dir.File("fresh").wstring();
  const auto sink = SinkOf(m_Sink.Get());
  IUnknown* recorder = nullptr;
  const struct {
    const char* what;
    const wchar_t* name;
    DWORD type;
    IUnknown** out;
    HRESULT expected;
  } cases[] = {
      {"an existing file", taken.c_str(), RECORDING_TYPE_CONTENT, &recorder, kFileExists},
      {"a folder", folder.c_str(), RECORDING_TYPE_CONTENT, &recorder, kFileExists},
      {"a reference recording", fresh.c_str(), RECORDING_TYPE_REFERENCE, &recorder, E_INVALIDARG},
      {"no name", nullptr, RECORDING_TYPE_CONTENT, &recorder, E_INVALIDARG},
      {"nowhere to put it", fresh.c_str(), RECORDING_TYPE_CONTENT, nullptr, E_INVALIDARG},
  };
  for (const auto& c : cases) {
    recorder = reinterpret_cast<IUnknown*>(0x1);
    EXPECT_EQ(sink->CreateRecorder(c.name, c.type, c.out), c.expected) << c.what;
    EXPECT_TRUE(c.out == nullptr || recorder == nullptr) << c.what;
  }
  EXPECT_EQ(sink->IsProfileLocked(), S_FALSE) << "nothing made, nothing locked";

  // What a program does then: delete the file and ask again.
  fs::remove(dir.File("show"));
  ComPtr<IUnknown> made;
  ASSERT_EQ(sink->CreateRecorder(taken.c_str(), RECORDING_TYPE_CONTENT, made.PutAddress()), S_OK);
  EXPECT_TRUE(QueryAs<IStreamBufferRecordControl>(made.Get(), IID_IStreamBufferRecordControl));
  EXPECT_EQ(sink->IsProfileLocked(), S_OK) << "a recorder fixes the streams";
  EXPECT_FALSE(fs::exists(dir.File("show"))) << "the file comes at the start";
}

TEST_F(SinkFedByHand, StartFailsWithTheFilesError) {
  tsw::TempDir dir;
  std::ofstream(dir.File("plain")) << "x";
  const struct {
    const char* what;
    fs::path file;
    std::function<void()> after;  // between CreateRecorder and Start
    HRESULT expected;
  } cases[] = {
      {"a missing folder", dir.File("missing") / "show", {}, kPathNotFound},
      {"a file as folder", dir.File("plain") / "show", {}, kPathNotFound},
      {"a file made since", dir.File("late"), [&] { std::ofstream(dir.File("late")) << "x"; }, kFileExists},
  };
  for (const auto& c : cases) {
    const auto recorder = NewRecorder(m_Sink.Get(), c.file);
    ASSERT_TRUE(recorder) << c.what;
    if (c.after) c.after();
    EXPECT_EQ(StartNow(recorder.Get()), c.expected) << c.what;
    const RecordingStatus status = StatusOf(recorder.Get());
    EXPECT_EQ(status.result, c.expected) << c.what;
    EXPECT_EQ(status.started, FALSE) << c.what;
    EXPECT_EQ(recorder->Stop(0), S_OK) << c.what << ": nothing to stop";
    EXPECT_EQ(StatusOf(recorder.Get()).stopped, FALSE) << c.what;
  }
  EXPECT_EQ(tsw::ReadAll(dir.File("late")), tsw::Bytes{'x'}) << "a file not ours stays as it was";
}

TEST_F(SinkFedByHand, StartAndStopKeepTheirOrder) {
  tsw::TempDir dir;
  const auto recorder = NewRecorder(m_Sink.Get(), dir.File("show"));
  const auto expect = [&](HRESULT result, BOOL started, BOOL stopped, const char* when) {
    const RecordingStatus s = StatusOf(recorder.Get());
    EXPECT_EQ(s.result, result) << when;
    EXPECT_EQ(s.started, started) << when;
    EXPECT_EQ(s.stopped, stopped) << when;
  };
  expect(S_OK, FALSE, FALSE, "made");
  EXPECT_EQ(recorder->GetRecordingStatus(nullptr, nullptr, nullptr), S_OK);
  const auto summary = QueryAs<IStreamBufferRecordingSummary>(m_Sink.Get(), IID_IStreamBufferRecordingSummary);
  DWORD streams = 7;
  EXPECT_EQ(summary->GetStreamCount(&streams), S_FALSE) << "no recorder has started";
  EXPECT_EQ(streams, 0u);
  REFERENCE_TIME later = 10000000;
  EXPECT_EQ(recorder->Start(nullptr), E_POINTER);
  EXPECT_EQ(recorder->Start(&later), E_NOTIMPL);
  EXPECT_EQ(StartNow(recorder.Get()), S_OK);
  EXPECT_TRUE(fs::is_regular_file(dir.File("show"))) << "exactly the name given";
  EXPECT_EQ(StartNow(recorder.Get()), S_OK) << "started already";
  EXPECT_EQ(recorder->Stop(later), E_NOTIMPL);
  expect(S_OK, TRUE, FALSE, "started");
  EXPECT_EQ(summary->GetStreamCount(&streams), S_OK);
  EXPECT_EQ(streams, 2u);
  EXPECT_EQ(recorder->Stop(0), S_OK);
  EXPECT_EQ(recorder->Stop(0), S_OK);
  expect(S_OK, TRUE, TRUE, "stopped");
  EXPECT_EQ(StartNow(recorder.Get()), E_UNEXPECTED) << "a recorder records once";
}

// Each pin on a thread of its own, as upstream filters may deliver, while
// the host thread asks for the status and finally stops the recording
// with samples still coming: no lock waits on another, and what was
// recorded is whole.
TEST_F(SinkFedByHand, StatusAndStopWhileEachPinDeliversOnItsOwnThread) {
  tsw::TempDir dir;
  const auto recorder = NewRecorder(m_Sink.Get(), dir.File("rec"));
  ASSERT_TRUE(recorder);
  ASSERT_EQ(StartNow(recorder.Get()), S_OK);
  ASSERT_EQ(m_Control->Run(), S_OK);
  const tsw::Deadline deadline(std::chrono::seconds(120), "delivery beside status and stop");

  std::atomic<bool> stop{false};
  std::atomic<int> delivered{0};
  std::vector<std::thread> upstream;
  for (std::size_t pin = 0; pin < m_Memories.size(); ++pin) {
    upstream.emplace_back([&, pin] {
      for (int n = 0; !stop; ++n) {
        const tsw::Bytes bytes(1500 + 100 * pin, static_cast<std::uint8_t>(n));
        const bool timed = n % 3 != 2;  // every third a continuation
        const HRESULT hr =
            m_Memories[pin]->Receive(SampleOf(bytes, timed ? std::optional(n * 400000LL) : std::nullopt).Get());
        if (hr != S_OK) break;
        ++delivered;
      }
    });
  }
  int polls = 0;
  while (delivered < 2000) {
    const RecordingStatus status = StatusOf(recorder.Get());
    EXPECT_EQ(status.result, S_OK);
    EXPECT_EQ(status.started, TRUE);
    ++polls;
    std::this_thread::yield();
  }
  EXPECT_EQ(recorder->Stop(0), S_OK);
  const int atStop = delivered;
  while (delivered < atStop + 200) std::this_thread::yield();  // dropped now
  stop = true;
  for (std::thread& t : upstream) t.join();
  EXPECT_GT(polls, 0);
  const RecordingStatus status = StatusOf(recorder.Get());
  EXPECT_EQ(status.result, S_OK);
  EXPECT_EQ(status.stopped, TRUE);
  EXPECT_GT(fs::file_size(dir.File("rec")), 188u * 100);
  EXPECT_EQ(fs::file_size(dir.File("rec")) % 188, 0u) << "whole transport packets";
}

class H264FedByHand : public SinkFedByHand {
 protected:
  std::vector<AM_MEDIA_TYPE> Types() const override { return {TypeOf(MEDIATYPE_Video, MEDIASUBTYPE_AVC1)}; }
};

// A recording that starts inside a PES holds its tail in front of the first
// timed sample; for H.264 the muxer takes a first packet only from a start
// code on, so the tail goes up to there. Read back through the
// demultiplexer, the rest is byte for byte what came.
TEST_F(H264FedByHand, RecordingStartsAtTheFirstStartCode) {
  tsw::TempDir dir;
  const auto recorder = NewRecorder(m_Sink.Get(), dir.File("rec"));
  ASSERT_EQ(StartNow(recorder.Get()), S_OK);
  ASSERT_EQ(m_Control->Run(), S_OK);
  const tsw::Bytes idr = {0, 0, 0, 1, 0x09, 0x10, 0, 0, 0, 1, 0x65, 0x88, 0x84, 0x21, 0xA0};
  const tsw::Bytes rest(3000, 0x5A);
  const tsw::Bytes predicted = {0, 0, 0, 1, 0x09, 0x30, 0, 0, 0, 1, 0x41, 0x9A, 0x02};
  const struct {
    tsw::Bytes bytes;
    std::optional<REFERENCE_TIME> start;
  } samples[] = {
      {{0xAB, 0xCD, 0x00}, std::nullopt},  // the tail of a PES begun before the start
      {idr, 0},
      {rest, std::nullopt},
      {predicted, 400000},
      {predicted, 800000},
  };
  tsw::Bytes expected;
  for (const auto& s : samples) {
    ASSERT_EQ(m_Memories[0]->Receive(SampleOf(s.bytes, s.start).Get()), S_OK);
    if (s.start || !expected.empty()) expected.insert(expected.end(), s.bytes.begin(), s.bytes.end());
  }
  EXPECT_EQ(m_Pins[0]->EndOfStream(), S_OK);
  EXPECT_EQ(recorder->Stop(0), S_OK);
  ASSERT_EQ(fs::file_size(dir.File("rec")) % 188, 0u);
  GUID subtype{};
  LONGLONG packets = 0, bytes = 0;
  REFERENCE_TIME first = -1, last = -1;
  EXPECT_EQ(QueryAs<IStreamBufferRecordingSummary>(m_Sink.Get(), IID_IStreamBufferRecordingSummary)
                ->GetStream(0, nullptr, &subtype, &packets, &bytes, &first, &last),
            S_OK);
  EXPECT_EQ(subtype, MEDIASUBTYPE_AVC1);
  EXPECT_EQ(packets, 3);
  EXPECT_EQ(bytes, static_cast<LONGLONG>(expected.size()));
  EXPECT_EQ(first, 0);
  EXPECT_EQ(last, 800000);

  // The muxer numbers its streams' PIDs from 0x100.
  CDemuxGraph back;
  back.Write(L"Video", MEDIATYPE_Video, MEDIASUBTYPE_AVC1, 0x100, dir.File("es"));
  back.Play(tsw::ReadAll(dir.File("rec")));
  EXPECT_EQ(tsw::ReadAll(dir.File("es")), expected);
}

// ---- Recordings of what the demultiplexer gives ----

struct RecordedPin {
  const wchar_t* name;
  GUID major;
  GUID sub;
  ULONG pid;
  const char* codec;        // as ffprobe names it
  const char* copyFormat;   // ffmpeg's raw format for the stream copied out
};

struct RecordingCase {
  const char* name;
  std::function<fs::path(const tsw::TempDir&)> make;  // the source file; empty path: skip
  std::vector<RecordedPin> pins;
};

void PrintTo(const RecordingCase& c, std::ostream* out) { *out << c.name; }

fs::path MakeH264Aac(const tsw::TempDir& dir) {
  // x264 with B-frames in a pyramid and an access unit delimiter in front
  // of every picture, as broadcasters send H.264.
  const fs::path file = dir.File("h264-aac.ts");
  const auto made = tsw::Shell(
      "ffmpeg -v error -y -f lavfi -i testsrc=size=320x240:rate=25 -f lavfi -i sine=frequency=440:sample_rate=48000 "
      "-t 4 -c:v libx264 -preset fast -x264-params aud=1:bframes=3:b-pyramid=normal:keyint=25 -c:a aac "
      "-f mpegts " + Quote(file) + " 2>&1");
  return made.status == 0 ? file : fs::path();
}

class StreamBufferRecording : public testing::TestWithParam<RecordingCase> {};

TEST_P(StreamBufferRecording, HoldsEveryStreamByteForByte) {
  if (!tsw::OnPath("ffmpeg") || !tsw::OnPath("ffprobe")) GTEST_SKIP() << "ffmpeg and ffprobe check the recording";
  const RecordingCase& c = GetParam();
  tsw::TempDir dir;
  const fs::path source = c.make(dir);
  if (source.empty()) GTEST_SKIP() << "ffmpeg could not make the source";
  const tsw::Bytes stream = tsw::ReadAll(source);
  const fs::path recording = dir.File("recording");  // exactly the name given
  const fs::path dropped = dir.File("dropped");      // its recorder is let go while running
  const fs::path late = dir.File("late");            // started halfway through

  {
    CDemuxGraph graph;
    for (const RecordedPin& pin : c.pins) graph.Record(pin.name, pin.major, pin.sub, pin.pid);
    ASSERT_EQ(SinkOf(graph.Sink())->LockProfile(nullptr), S_OK);
    auto recorder = NewRecorder(graph.Sink(), recording);
    auto droppedRecorder = NewRecorder(graph.Sink(), dropped);
    auto lateRecorder = NewRecorder(graph.Sink(), late);
    ASSERT_EQ(StartNow(recorder.Get()), S_OK);
    ASSERT_EQ(StartNow(droppedRecorder.Get()), S_OK);
    const std::size_t chunks = (stream.size() + 188 * kChunkPackets - 1) / (188 * kChunkPackets);
    graph.Play(stream, [&](std::size_t n) {
      if (n == chunks / 2) {
        EXPECT_EQ(StartNow(lateRecorder.Get()), S_OK);
      }
    });
    const auto events = graph.Events();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].first, EC_COMPLETE);
    droppedRecorder = nullptr;
    EXPECT_EQ(recorder->Stop(0), S_OK);
    EXPECT_EQ(lateRecorder->Stop(0), S_OK);
    EXPECT_EQ(StatusOf(recorder.Get()).result, S_OK);
  }

  // The recording has the streams, as long as the source.
  std::string codecs;
  for (const RecordedPin& pin : c.pins) codecs += std::string(pin.codec) + "\n";
  EXPECT_EQ(CodecsOf(recording), codecs);
  EXPECT_NEAR(DurationOf(recording), DurationOf(source), 0.1);
  EXPECT_EQ(tsw::ReadAll(dropped), tsw::ReadAll(recording)) << "a recorder let go ends its file as Stop would";
  EXPECT_NEAR(DurationOf(late), DurationOf(source) / 2, DurationOf(source) / 8);

  // Each stream copied out of the recording is what a stream file writer
  // takes from the same demultiplexer pin.
  {
    CDemuxGraph graph;
    for (const RecordedPin& pin : c.pins) {
      graph.Write(pin.name, pin.major, pin.sub, pin.pid, dir.File("es-" + std::string(pin.codec)));
    }
    graph.Play(stream);
  }
  int audio = 0;
  for (const RecordedPin& pin : c.pins) {
    const bool video = pin.major == MEDIATYPE_Video;
    const std::string map = video ? "0:v" : "0:a:" + std::to_string(audio++);
    const tsw::Bytes written = tsw::ReadAll(dir.File("es-" + std::string(pin.codec)));
    const tsw::Bytes copied = CopyOut(recording, map, pin.copyFormat, dir.File("copied-" + std::string(pin.codec)));
    EXPECT_GT(written.size(), 1000u) << pin.codec;
    EXPECT_EQ(copied.size(), written.size()) << pin.codec;
    EXPECT_TRUE(copied == written) << pin.codec;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Sources, StreamBufferRecording,
    testing::Values(
        RecordingCase{"Mpeg2Mp2Ac3",
                      [](const tsw::TempDir&) { return SamplePath(); },
                      {{L"Video", MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO, 0x100, "mpeg2video", "mpeg2video"},
                       {L"Audio", MEDIATYPE_Audio, MEDIASUBTYPE_MPEG1AudioPayload, 0x101, "mp2", "data"},
                       {L"AC-3", MEDIATYPE_Audio, MEDIASUBTYPE_DOLBY_AC3, 0x102, "ac3", "data"}}},
        RecordingCase{"H264Aac",
                      MakeH264Aac,
                      {{L"Video", MEDIATYPE_Video, MEDIASUBTYPE_AVC1, 0x100, "h264", "h264"},
                       {L"Audio", MEDIATYPE_Audio, MEDIASUBTYPE_AAC_AUDIO, 0x101, "aac", "data"}}}),
    [](const testing::TestParamInfo<RecordingCase>& param) { return std::string(param.param.name); });

// ---- A disk that fills up ----

// In a process of its own, since the size limit holds for the whole
// process: records the sample into a file that may not grow past `limit`.
// Exits 0 when the recording failed as a full disk should make it fail.
[[noreturn]] void RecordIntoSizeLimit(const fs::path& file, rlim_t limit) {
  int failures = 0;
  const auto check = [&](bool ok, const char* what) {
    if (!ok) {
      std::fprintf(stderr, "not so: %s\n", what);
      ++failures;
    }
  };
  ::signal(SIGXFSZ, SIG_IGN);  // the write fails with EFBIG instead
  const rlimit size{limit, limit};
  check(::setrlimit(RLIMIT_FSIZE, &size) == 0, "size limit set");
  {
    CDemuxGraph graph;
    graph.Record(L"Video", MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO, 0x100);
    graph.Record(L"Audio", MEDIATYPE_Audio, MEDIASUBTYPE_MPEG1AudioPayload, 0x101);
    const auto recorder = NewRecorder(graph.Sink(), file);
    check(StartNow(recorder.Get()) == S_OK, "started");
    graph.Play(tsw::ReadAll(SamplePath()));
    const RecordingStatus status = StatusOf(recorder.Get());
    check(status.result == kDiskFull, "the status tells of a full disk");
    const auto events = graph.Events();
    check(events.size() == 1 && events[0].first == EC_ERRORABORT &&
              static_cast<HRESULT>(events[0].second) == kDiskFull,
          "one abort with the failure, no completion");
    check(recorder->Stop(0) == kDiskFull, "Stop answers the failure");
    check(StatusOf(recorder.Get()).stopped == TRUE, "stopped");
  }
  std::fflush(stderr);
  std::_Exit(failures == 0 ? 0 : 1);
}

TEST(StreamBufferRecorderDiskFull, FailsOnceAndLeavesAReadableFile) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  constexpr rlim_t kLimit = 1 << 20;
  // The child runs this test again from the top: it finds the folder here.
  constexpr char kFolderVariable[] = "BRINDLET_STREAM_BUFFER_FULL_DIR";
  std::optional<tsw::TempDir> dir;
  fs::path folder;
  if (const char* given = std::getenv(kFolderVariable)) {
    folder = given;
  } else {
    dir.emplace();
    folder = dir->Path();
    ::setenv(kFolderVariable, folder.c_str(), 1);
  }
  const fs::path file = folder / "full";
  EXPECT_EXIT(RecordIntoSizeLimit(file, kLimit), testing::ExitedWithCode(0), "");
  ::unsetenv(kFolderVariable);

  ASSERT_TRUE(fs::exists(file));
  EXPECT_LE(fs::file_size(file), kLimit);
  EXPECT_GT(fs::file_size(file), kLimit / 2);
  if (!tsw::OnPath("ffprobe")) GTEST_SKIP() << "ffprobe reads what was written";
  EXPECT_EQ(CodecsOf(file), "mpeg2video\nmp2\n");
  EXPECT_GT(DurationOf(file), 1.0);
}

}  // namespace
