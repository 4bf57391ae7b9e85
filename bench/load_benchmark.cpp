// Load on a multi-program file and on the bundled sample, the per-packet
// delivery path alone and through the platform's demultiplexer, and the
// section CRC. Load of a multi-program file is meant to stay under 30 ms.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "analysis/psi_section.h"
#include "control/settings_store.h"
#include "delivery/ts_source_filter.h"
#include "host/media_sample.h"
#include "platform/com/com_ptr.h"
#include "tests/delivery/player_graph.h"
#include "tests/support/scoped_registry.h"
#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;

constexpr std::size_t kMultiProgramPackets = 60000;
constexpr int kPrograms = 3;
constexpr std::uint16_t kTransportStreamId = 0x0BB1;
// Tables repeat about every 100 ms of this stream's rate, as a broadcast's do.
constexpr std::size_t kTablesEvery = 500;
constexpr std::uint64_t kFrameTicks = 3600;  // 25 frames per second at 90 kHz
constexpr std::size_t kGopFrames = 12;

std::uint16_t PmtPid(int program) { return static_cast<std::uint16_t>(0x100 * (program + 1)); }
std::uint16_t VideoPid(int program) { return static_cast<std::uint16_t>(PmtPid(program) + 1); }
std::uint16_t AudioPid(int program) { return static_cast<std::uint16_t>(PmtPid(program) + 2); }
std::uint16_t ProgramNumber(int program) { return static_cast<std::uint16_t>(program + 1); }

// An SDT section with one service descriptor per program.
Bytes SdtSection() {
  Bytes body = {0x00, 0x01, 0xFF};  // original_network_id, reserved
  for (int p = 0; p < kPrograms; ++p) {
    const std::string provider = "Bench";
    const std::string name = "Bench Program " + std::to_string(p + 1);
    Bytes descriptor = {0x48, static_cast<std::uint8_t>(3 + provider.size() + name.size()), 0x01,
                        static_cast<std::uint8_t>(provider.size())};
    descriptor.insert(descriptor.end(), provider.begin(), provider.end());
    descriptor.push_back(static_cast<std::uint8_t>(name.size()));
    descriptor.insert(descriptor.end(), name.begin(), name.end());
    const std::uint16_t id = ProgramNumber(p);
    body.insert(body.end(), {static_cast<std::uint8_t>(id >> 8), static_cast<std::uint8_t>(id), 0xFC,
                             static_cast<std::uint8_t>(0x80 | (descriptor.size() >> 8)),
                             static_cast<std::uint8_t>(descriptor.size())});
    body.insert(body.end(), descriptor.begin(), descriptor.end());
  }
  return tsw::Section(0x42, kTransportStreamId, 0, body);
}

void AddTables(tsw::TsFile& file) {
  file.AddSection(0, tsw::PatSection(kTransportStreamId, 0,
                                     {{ProgramNumber(0), PmtPid(0)},
                                      {ProgramNumber(1), PmtPid(1)},
                                      {ProgramNumber(2), PmtPid(2)}}));
  for (int p = 0; p < kPrograms; ++p) {
    file.AddSection(PmtPid(p),
                    tsw::PmtSection(ProgramNumber(p), 0, VideoPid(p),
                                    {{0x02, VideoPid(p), {}},
                                     {0x03, AudioPid(p), tsw::LanguageDescriptor("eng")}}));
  }
  file.AddSection(kSdtPid, SdtSection());
}

// Ten packets of MPEG-2 video a frame, a sequence header at each GOP start,
// and two packets of MPEG audio, each unit with its PTS.
void AddFrame(tsw::TsFile& file, int program, std::size_t frame) {
  const std::uint64_t pts = 90000 + frame * kFrameTicks;
  Bytes video = tsw::PesHeader(0xE0, pts);
  if (frame % kGopFrames == 0) {
    const Bytes header = tsw::Mpeg2SequenceHeader(720, 576, 3, 3);
    video.insert(video.end(), header.begin(), header.end());
  }
  video.insert(video.end(), {0x00, 0x00, 0x01, 0x00, 0x00, 0x08});  // picture start
  video.resize(10 * 184, 0xA5);
  file.AddPes(VideoPid(program), video);

  Bytes audio = tsw::PesHeader(0xC0, pts);
  audio.insert(audio.end(), {0xFF, 0xFD, 0x94, 0x00});  // layer II frame header
  audio.resize(2 * 184, 0x5A);
  file.AddPes(AudioPid(program), audio);
}

tsw::TsFile MultiProgramFile() {
  tsw::TsFile file;
  std::size_t frame = 0;
  std::size_t nextTables = 0;
  while (file.PacketCount() < kMultiProgramPackets) {
    if (file.PacketCount() >= nextTables) {
      AddTables(file);
      nextTables += kTablesEvery;
    }
    for (int p = 0; p < kPrograms; ++p) AddFrame(file, p, frame);
    ++frame;
  }
  return file;
}

// Made once, on first use, and removed at exit.
const std::filesystem::path& MultiProgramPath() {
  static tsw::TempDir dir;
  static const std::filesystem::path path = [] {
    const auto p = dir.File("three-programs.ts");
    MultiProgramFile().Write(p);
    return p;
  }();
  return path;
}

std::filesystem::path BundledSamplePath() {
  return std::filesystem::path(BRINDLET_SOURCE_DIR) / "samples" / "mpeg2-mp2-ac3.ts";
}

// A filter as the class factory makes one, released at the end.
class FilterHolder {
 public:
  FilterHolder() {
    HRESULT hr = E_FAIL;
    m_Filter = static_cast<CTsSourceFilter*>(CTsSourceFilter::CreateInstance(nullptr, &hr));
    m_Filter->NonDelegatingUnknown()->AddRef();
  }
  ~FilterHolder() { m_Filter->NonDelegatingUnknown()->Release(); }
  FilterHolder(const FilterHolder&) = delete;
  FilterHolder& operator=(const FilterHolder&) = delete;

  HRESULT Load(const std::filesystem::path& path) {
    return m_Filter->Load(path.wstring().c_str(), nullptr);
  }
  CTsSourceFilter* operator->() { return m_Filter; }

 private:
  CTsSourceFilter* m_Filter;
};

void RunLoad(benchmark::State& state, const std::filesystem::path& path, DWORD expectedPrograms) {
  if (!std::filesystem::exists(path)) {
    state.SkipWithError(("missing " + path.string()).c_str());
    return;
  }
  // Load reads its settings; a folder of its own keeps them at the defaults.
  const tsw::ScopedRegistry registry;
  {
    // Timing a scan that fell back to the census would measure another path.
    FilterHolder filter;
    DWORD programs = 0;
    DWORD ready = 0;
    DWORD noPmt = 0;
    WORD selected = 0;
    if (filter.Load(path) != S_OK || filter->GetProgramCount(&programs) != S_OK ||
        filter->GetScanFlags(&ready, &noPmt, &selected) != S_OK || programs != expectedPrograms ||
        ready == 0 || noPmt != 0) {
      state.SkipWithError("the scan did not choose tracks from the expected programs");
      return;
    }
  }
  for (auto _ : state) {
    FilterHolder filter;
    benchmark::DoNotOptimize(filter.Load(path));
  }
  state.counters["MB"] = static_cast<double>(std::filesystem::file_size(path)) / 1e6;
}

void BM_LoadMultiProgram(benchmark::State& state) { RunLoad(state, MultiProgramPath(), kPrograms); }
BENCHMARK(BM_LoadMultiProgram)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_LoadBundledSample(benchmark::State& state) { RunLoad(state, BundledSamplePath(), 1); }
BENCHMARK(BM_LoadBundledSample)->Unit(benchmark::kMillisecond)->UseRealTime();

// Packets handed out one a sample after Load, rewinding at the end of the
// file; block reads are included. The argument is the output mode: 1 the
// transport stream, 3 the video elementary stream, where a call also passes
// over the packets of other PIDs and only video packets count.
void BM_FillBuffer(benchmark::State& state) {
  const auto mode = static_cast<DWORD>(state.range(0));
  const tsw::ScopedRegistry registry;
  WriteSettingDword("PrefDemux", mode);
  FilterHolder filter;
  if (filter.Load(MultiProgramPath()) != S_OK || filter->OutputPin() == nullptr) {
    state.SkipWithError("Load failed");
    return;
  }
  CTsOutputPin& pin = *filter->OutputPin();
  auto* sample = new CMediaSample(static_cast<LONG>(kPacketSize));
  sample->AddRef();
  std::int64_t delivered = 0;
  for (auto _ : state) {
    const HRESULT hr = pin.FillBuffer(sample);
    if (hr == S_OK) {
      ++delivered;
    } else {
      pin.OnThreadDestroy();
    }
  }
  sample->Release();
  state.SetItemsProcessed(delivered);
}
BENCHMARK(BM_FillBuffer)->ArgName("demux")->Arg(1)->Arg(3);

// The bundled sample played through a graph as a player builds it: the
// filter, the platform's demultiplexer wired by the filter, and a null
// renderer on each of its pins. One iteration is Run to the completion and
// Stop, which sends the next run from packet 0 again; items are packets.
void BM_PlayThroughDemultiplexer(benchmark::State& state) {
  const tsw::ScopedRegistry registry;
  FilterHolder filter;
  ComPtr<IBaseFilter> source;
  filter->NonDelegatingQueryInterface(IID_IBaseFilter, source.PutVoid());
  if (filter.Load(BundledSamplePath()) != S_OK) {
    state.SkipWithError("the filter did not load the sample");
    return;
  }
  CPlayerGraph graph;
  const std::string failure = graph.Build(source.Get(), filter->OutputPin());
  if (!failure.empty()) {
    state.SkipWithError(failure.c_str());
    return;
  }
  const auto packets = static_cast<std::int64_t>(std::filesystem::file_size(BundledSamplePath()) / kPacketSize);
  for (auto _ : state) {
    graph.Control()->Run();
    LONG code = 0;
    graph.Events()->WaitForCompletion(INFINITE, &code);
    graph.Control()->Stop();
    if (code != EC_COMPLETE) {
      state.SkipWithError("playback did not complete");
      break;
    }
  }
  graph.TearDown();
  state.SetItemsProcessed(state.iterations() * packets);
}
BENCHMARK(BM_PlayThroughDemultiplexer)->Unit(benchmark::kMillisecond)->UseRealTime();

// The CRC over the section bytes that one packet holds.
void BM_Crc32Mpeg2Section(benchmark::State& state) {
  std::vector<std::uint8_t> section(kSectionBytesInPacket);
  for (std::size_t i = 0; i < section.size(); ++i) section[i] = static_cast<std::uint8_t>(i * 37 + 11);
  for (auto _ : state) {
    benchmark::DoNotOptimize(section.data());
    benchmark::DoNotOptimize(Crc32Mpeg2(section));
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(section.size()));
}
BENCHMARK(BM_Crc32Mpeg2Section);

}  // namespace

BENCHMARK_MAIN();
