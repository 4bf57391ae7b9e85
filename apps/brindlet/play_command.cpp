#include "apps/brindlet/play_command.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <sstream>

#include "apps/brindlet/graph_run.h"
#include "apps/brindlet/output_files.h"
#include "apps/brindlet/query_command.h"
#include "apps/brindlet/source_session.h"
#include "apps/brindlet/status_line.h"
#include "control/settings_store.h"
#include "platform/win32/codepage.h"
#include "platform/com/com_memory.h"
#include "platform/graph/control.h"
#include "platform/win32/messages.h"
#include "platform/graph/mpeg2_demux.h"
#include "platform/com/objbase.h"
#include "platform/graph/stream_sinks.h"

namespace {

LONGLONG SamplesWritten(IStreamSinkControl* counts, LONGLONG* bytes) {
  LONGLONG samples = 0;
  if (FAILED(counts->GetCounts(&samples, bytes, nullptr, nullptr, nullptr))) {
    samples = 0;
    if (bytes != nullptr) *bytes = 0;
  }
  return samples;
}

// "120 packets, 22560 bytes" for the status line.
std::string Written(LONGLONG count, const char* unit, LONGLONG bytes) {
  return std::to_string(count) + " " + unit + ", " + std::to_string(bytes) + " bytes";
}

std::string Summary(LONGLONG samples, LONGLONG bytes, double seconds) {
  // A run too short for the clock still gets a finite rate.
  const double rate = seconds > 0 ? static_cast<double>(samples) / seconds : static_cast<double>(samples);
  char line[128];
  std::snprintf(line, sizeof line, "%lld packets, %lld bytes, %.2f s, %.0f packets/s",
                static_cast<long long>(samples), static_cast<long long>(bytes), seconds, rate);
  return line;
}

}  // namespace

bool ParseSeekAt(const std::string& text, std::pair<double, double>* seek) {
  const auto colon = text.find(':');
  if (colon == std::string::npos) return false;
  try {
    std::size_t used = 0;
    const double at = std::stod(text.substr(0, colon), &used);
    if (used != colon) return false;
    const std::string to = text.substr(colon + 1);
    const double target = std::stod(to, &used);
    if (used != to.size() || at < 0 || target < 0) return false;
    *seek = {at, target};
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

namespace {

// The filter turns a time into a packet by its share of the duration, in a
// 32-bit packet index. From 2^32 packets on (about 808 GB) the index wraps,
// so a --start or --stop beyond that lands 2^32 packets earlier; the user
// hears of it, as nothing else would tell.
void WrappedSeekNote(const PlayOptions& options, IMediaSeeking* seeking, std::ostream& err) {
  constexpr std::uint64_t kIndexRange = std::uint64_t{1} << 32;
  std::error_code error;
  const std::uint64_t packets = std::filesystem::file_size(options.file, error) / 188;
  LONGLONG duration = 0;
  if (error || packets < kIndexRange || FAILED(seeking->GetDuration(&duration)) || duration <= 0) return;
  for (const auto& [name, seconds] : {std::pair{"--start", options.start}, std::pair{"--stop", options.stop}}) {
    if (!seconds || *seconds <= 0) continue;
    const double share = std::min(static_cast<double>(ToUnits(*seconds)) / static_cast<double>(duration), 1.0);
    const auto packet = static_cast<std::uint64_t>(share * static_cast<double>(packets));
    if (packet < kIndexRange) continue;
    char text[160];
    std::snprintf(text, sizeof text,
                  "brindlet: note: %s %g lands at packet %llu (%.0f%% of the file), not %llu: the filter counts "
                  "packets in 32 bits\n",
                  name, *seconds, static_cast<unsigned long long>(packet % kIndexRange),
                  100.0 * static_cast<double>(packet % kIndexRange) / static_cast<double>(packets),
                  static_cast<unsigned long long>(packet));
    err << text;
  }
}

// The start, stop and rate of the command line, through the graph's
// seeking, before the graph runs.
bool ApplyPositions(const PlayOptions& options, IMediaSeeking* seeking, std::ostream& err) {
  if (!options.start && !options.stop && !options.rate) return true;
  if (seeking == nullptr) {
    err << "brindlet: the graph cannot seek\n";
    return false;
  }
  LONGLONG start = options.start ? ToUnits(*options.start) : 0;
  LONGLONG stop = options.stop ? ToUnits(*options.stop) : 0;
  const HRESULT hr = seeking->SetPositions(options.start ? &start : nullptr,
                                           options.start ? AM_SEEKING_AbsolutePositioning : 0,
                                           options.stop ? &stop : nullptr,
                                           options.stop ? AM_SEEKING_AbsolutePositioning : 0);
  if (FAILED(hr)) {
    err << "brindlet: cannot set the positions: " << DescribeResult(hr) << "\n";
    return false;
  }
  WrappedSeekNote(options, seeking, err);
  // The filter keeps a rate below 1 for the sample times but refuses it.
  if (options.rate && FAILED(seeking->SetRate(*options.rate))) {
    err << "brindlet: note: the filter refuses a rate of " << *options.rate
        << "; it divides the sample times by it all the same\n";
  }
  return true;
}

}  // namespace

namespace {

// The filter refuses a change of audio track while its pin stands in the
// file's first 30000 packets.
constexpr std::uint64_t kFirstSwitchPacket = 30000;
constexpr std::uint64_t kPacketBytes = 188;
// The filter does not pace its output, so the stretch in which it allows a
// switch may pass in a few milliseconds. While a switch waits, the writers
// hold each sample this long, as a player's clock would, so that the tool
// looking at the position every millisecond can act in that stretch.
constexpr DWORD kSwitchPaceMicroseconds = 100;

std::string ExtensionFor(REFGUID subtype) {
  if (subtype == MEDIASUBTYPE_MPEG2_VIDEO) return ".m2v";
  if (subtype == kSubtypeAvc1) return ".h264";
  if (subtype == kSubtypeMpeg1AudioPayload) return ".mp2";
  if (subtype == MEDIASUBTYPE_DOLBY_AC3) return ".ac3";
  if (subtype == kSubtypeAac) return ".aac";
  return ".bin";
}

// "H.264" gives "h264": a name that needs no quoting and no second dot.
std::string FileStem(const std::string& pinName) {
  std::string stem;
  for (const char c : pinName) {
    if (c == '.') continue;
    stem += static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  }
  return stem.empty() ? "stream" : stem;
}

// The bytes of the input the run was to read: the file, or its share
// between --start and --stop, by the same proportion the filter seeks by.
std::uintmax_t InputSpan(const PlayOptions& options, IMediaSeeking* seeking) {
  std::error_code error;
  const std::uintmax_t bytes = std::filesystem::file_size(options.file, error);
  LONGLONG duration = 0;
  if (error) return 0;
  if (seeking == nullptr || FAILED(seeking->GetDuration(&duration)) || duration <= 0) return bytes;
  const auto share = [&](double seconds) {
    return std::min(static_cast<double>(ToUnits(seconds)) / static_cast<double>(duration), 1.0);
  };
  const double from = options.start ? share(*options.start) : 0.0;
  const double to = options.stop && *options.stop > 0 ? share(*options.stop) : 1.0;
  return to > from ? static_cast<std::uintmax_t>(static_cast<double>(bytes) * (to - from)) : 0;
}

// What a run that failed while writing leaves behind, for its one line. A
// disk that filled late leaves a result worth having: files that hold at
// least half as many bytes as the input the run was to read are kept (an
// elementary stream is most of its transport stream). Less is taken back.
std::string Aftermath(COutputFiles& files, std::uintmax_t span) {
  const std::uintmax_t written = files.Bytes();
  if (written == 0) return files.RemoveAll();
  const std::string share =
      span > 0 ? ", " + std::to_string(std::min<std::uintmax_t>(written * 100 / span, 100)) + "% of the input" : "";
  const std::string amount = " (" + std::to_string(written) + " bytes" + share + ")";
  if (written >= span / 2) {
    const std::string removed = files.RemoveEmpty();
    return "; kept the partial " + files.Kept() + amount + removed;
  }
  return files.RemoveAll() + amount;
}

struct StreamWriter {
  std::string pinName;
  std::string pids;  // what the filter mapped to the pin, for the reports
  std::filesystem::path file;
  ComPtr<IBaseFilter> filter;
  ComPtr<IStreamSinkControl> counts;
};

int PlayRaw(const PlayOptions& options, CSourceSession& session, CHeldNotices& notices, std::ostream& out,
            std::ostream& err, ProgressMode progress) {
  IFilterGraph* graph = session.Graph();

  ComPtr<IBaseFilter> writer;
  HRESULT hr = CoCreateInstance(CLSID_StreamFileWriter, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                writer.PutVoid());
  ComPtr<IFileSinkFilter> sink;
  ComPtr<IStreamSinkControl> counts;
  if (SUCCEEDED(hr)) hr = writer->QueryInterface(IID_IFileSinkFilter, sink.PutVoid());
  if (SUCCEEDED(hr)) hr = writer->QueryInterface(IID_IStreamSinkControl, counts.PutVoid());
  if (FAILED(hr)) {
    err << "brindlet: cannot create the stream file writer: " << DescribeResult(hr) << "\n";
    return kExitFailure;
  }
  hr = sink->SetFileName(AnsiToWide(options.raw).c_str(), nullptr);
  if (SUCCEEDED(hr)) hr = graph->AddFilter(writer.Get(), L"Writer");
  if (FAILED(hr)) {
    err << "brindlet: cannot set up the writer for " << options.raw << ": " << DescribeResult(hr) << "\n";
    return kExitFailure;
  }

  const ComPtr<IPin> output = FirstPin(session.Filter(), PINDIR_OUTPUT);
  const ComPtr<IPin> input = FirstPin(writer.Get(), PINDIR_INPUT);
  if (!output || !input) {
    err << "brindlet: the " << (output ? "writer has no input pin" : "filter has no output pin") << "\n";
    return kExitFailure;
  }
  hr = graph->ConnectDirect(output.Get(), input.Get(), nullptr);
  if (FAILED(hr)) {
    DWORD prefDemux = 1;
    ReadSettingDword("PrefDemux", &prefDemux);
    if (prefDemux == 1) {
      err << "brindlet: cannot connect the filter to a file writer: with PrefDemux 1 (the default) its pin "
             "connects only to an MPEG-2 demultiplexer; `brindlet settings set PrefDemux 0` lets it deliver "
             "to a plain writer\n";
    } else {
      err << "brindlet: cannot connect the filter to the file writer (PrefDemux " << prefDemux
          << "): " << DescribeResult(hr) << "\n";
    }
    return kExitFailure;
  }

  GraphControls controls;
  if (!GetControls(graph, &controls, err)) return kExitFailure;
  if (!ApplyPositions(options, controls.seeking.Get(), err)) return kExitFailure;

  COutputFiles files;
  files.Add(options.raw);
  const auto started = std::chrono::steady_clock::now();
  hr = controls.control->Run();
  files.Started(SUCCEEDED(hr));
  if (FAILED(hr)) {
    // The writer creates its file on the way to running, so this is as a
    // rule an output that cannot be written.
    controls.control->Stop();
    err << "brindlet: cannot start playing into " << options.raw << ": " << DescribeResult(hr) << files.RemoveAll()
        << "\n";
    return kExitFailure;
  }
  CStatusLine statusLine(progress, err, session, controls.seeking.Get());
  auto update = [&] {
    LONGLONG bytes = 0;
    const LONGLONG packets = SamplesWritten(counts.Get(), &bytes);
    statusLine.Update(Written(packets, "packets", bytes));
  };
  update();
  const std::string failure = RunToEnd(
      controls.events.Get(), controls.seeking.Get(), options.seekAt, [] { return false; }, update, err);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  controls.control->Stop();
  statusLine.Clear();

  if (!failure.empty()) {
    err << "brindlet: " << failure << Aftermath(files, InputSpan(options, controls.seeking.Get())) << "\n";
    return kExitFailure;
  }
  LONGLONG bytes = 0;
  const LONGLONG samples = SamplesWritten(counts.Get(), &bytes);
  if (bytes == 0) {
    // The same rule as --out: a run that delivered nothing failed.
    err << "brindlet: nothing was delivered: the filter's pin sent "
        << (samples == 0 ? std::string("no packets") : std::to_string(samples) + " samples without a byte")
        << notices.Take() << files.RemoveAll() << "\n";
    return kExitFailure;
  }
  out << Summary(samples, bytes, seconds) << "\n";
  return kExitOk;
}

std::string TrackLabel(IAMStreamSelect* select, LONG index) {
  LPWSTR name = nullptr;
  if (FAILED(select->Info(index, nullptr, nullptr, nullptr, nullptr, &name, nullptr, nullptr)) || name == nullptr) {
    return {};
  }
  std::string label = WideToAnsi(name);
  CoTaskMemFree(name);
  while (!label.empty() && label.back() == ' ') label.pop_back();
  return label;
}

// The switch of --audio: tried while playing, from about the time of packet
// 30000 on, until the filter takes it or says why not.
struct AudioSwitch {
  LONG index = 0;
  LONGLONG from = 0;  // position from which Enable is tried
  bool pending = false;
  bool done = false;
  HRESULT last = S_OK;
  LONGLONG at = 0;  // the position when it was made
};

int PlayOut(const PlayOptions& options, CSourceSession& session, CHeldNotices& notices, std::ostream& out,
            std::ostream& err, ProgressMode progress) {
  IFilterGraph* graph = session.Graph();
  const std::filesystem::path dir(options.out);
  COutputFiles files;
  files.NoteFolder(dir);
  std::error_code error;
  std::filesystem::create_directories(dir, error);
  if (!std::filesystem::is_directory(dir, error)) {
    err << "brindlet: cannot make the folder " << options.out << "\n";
    return kExitFailure;
  }

  ComPtr<IAMStreamSelect> select;
  AudioSwitch audio;
  if (options.audio) {
    DWORD tracks = 0;
    HRESULT hr = session.Filter()->QueryInterface(IID_IAMStreamSelect, select.PutVoid());
    if (SUCCEEDED(hr)) hr = select ? select->Count(&tracks) : E_NOINTERFACE;
    if (FAILED(hr)) {
      err << "brindlet: the filter offers no audio track selection: " << DescribeResult(hr) << "\n";
      return kExitFailure;
    }
    if (*options.audio >= static_cast<long>(tracks)) {
      err << "brindlet: --audio " << *options.audio << ": the file has "
          << (tracks == 0 ? std::string("no audio track") : std::to_string(tracks) + " audio track(s), 0 to " +
                                                                 std::to_string(tracks - 1))
          << "\n";
      return kExitFailure;
    }
    audio.index = static_cast<LONG>(*options.audio);
    audio.pending = true;
  }

  ComPtr<IBaseFilter> demux;
  HRESULT hr = CoCreateInstance(CLSID_MPEG2Demultiplexer, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                demux.PutVoid());
  if (SUCCEEDED(hr)) hr = graph->AddFilter(demux.Get(), L"MPEG-2 Demultiplexer");
  if (FAILED(hr)) {
    err << "brindlet: cannot set up the MPEG-2 demultiplexer: " << DescribeResult(hr) << "\n";
    return kExitFailure;
  }
  const ComPtr<IPin> output = FirstPin(session.Filter(), PINDIR_OUTPUT);
  const ComPtr<IPin> input = FirstPin(demux.Get(), PINDIR_INPUT);
  if (!output || !input) {
    err << "brindlet: the " << (output ? "demultiplexer has no input pin" : "filter has no output pin") << "\n";
    return kExitFailure;
  }
  DWORD prefDemux = 1;
  ReadSettingDword("PrefDemux", &prefDemux);
  // The filter wires the demultiplexer as part of this connection: its
  // output pins appear, with the filter's media types and PID maps.
  hr = graph->ConnectDirect(output.Get(), input.Get(), nullptr);
  if (FAILED(hr)) {
    err << "brindlet: the filter could not wire the demultiplexer for " << options.file << " (PrefDemux "
        << prefDemux << " fails the connection with it): " << DescribeResult(hr) << "\n";
    return kExitFailure;
  }

  std::vector<StreamWriter> writers;
  for (const ComPtr<IPin>& pin : OutputPins(demux.Get())) {
    StreamWriter writer;
    writer.pinName = PinName(pin.Get());
    writer.pids = MappedPids(pin.Get());
    ComPtr<IFileSinkFilter> sink;
    ComPtr<IPin> writerInput;
    hr = CoCreateInstance(CLSID_StreamFileWriter, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                          writer.filter.PutVoid());
    if (SUCCEEDED(hr)) hr = writer.filter->QueryInterface(IID_IFileSinkFilter, sink.PutVoid());
    if (SUCCEEDED(hr)) hr = writer.filter->QueryInterface(IID_IStreamSinkControl, writer.counts.PutVoid());
    if (SUCCEEDED(hr)) hr = writer.counts->SetAcceptAnyType(TRUE);
    if (SUCCEEDED(hr)) hr = graph->AddFilter(writer.filter.Get(), AnsiToWide("Writer " + writer.pinName).c_str());
    if (FAILED(hr)) {
      err << "brindlet: cannot set up a file writer for the pin " << writer.pinName << ": " << DescribeResult(hr)
          << "\n";
      return kExitFailure;
    }
    writerInput = FirstPin(writer.filter.Get(), PINDIR_INPUT);
    hr = writerInput ? graph->ConnectDirect(pin.Get(), writerInput.Get(), nullptr) : E_FAIL;
    AM_MEDIA_TYPE type{};
    if (SUCCEEDED(hr)) hr = pin->ConnectionMediaType(&type);
    if (FAILED(hr)) {
      err << "brindlet: cannot connect the demultiplexer's pin " << writer.pinName << " to a file writer: "
          << DescribeResult(hr) << "\n";
      return kExitFailure;
    }
    writer.file = dir / (FileStem(writer.pinName) + ExtensionFor(type.subtype));
    FreeMediaType(&type);
    hr = sink->SetFileName(AnsiToWide(writer.file.string()).c_str(), nullptr);
    if (FAILED(hr)) {
      err << "brindlet: cannot write " << writer.file.string() << ": " << DescribeResult(hr) << "\n";
      return kExitFailure;
    }
    files.Add(writer.file);
    writers.push_back(std::move(writer));
  }
  if (writers.empty()) {
    err << "brindlet: the filter connected to the demultiplexer but made no output pins on it (PrefDemux "
        << prefDemux << " lets the connection stand when the wiring fails)\n";
    return kExitFailure;
  }

  GraphControls controls;
  if (!GetControls(graph, &controls, err)) return kExitFailure;
  if (!ApplyPositions(options, controls.seeking.Get(), err)) return kExitFailure;

  if (audio.pending) {
    // The position runs by the PTS or by the share of the file, so the time
    // of packet 30000 is only an estimate: start a little early, as a refused
    // try costs nothing.
    LONGLONG duration = 0;
    const auto bytes = std::filesystem::file_size(options.file, error);
    if (!error && controls.seeking && SUCCEEDED(controls.seeking->GetDuration(&duration)) && duration > 0 &&
        bytes >= kPacketBytes) {
      const double share = static_cast<double>(kFirstSwitchPacket) / static_cast<double>(bytes / kPacketBytes);
      audio.from = static_cast<LONGLONG>(static_cast<double>(duration) * share * 0.9);
    }
  }

  CStatusLine statusLine(progress, err, session, controls.seeking.Get());
  auto update = [&] {
    LONGLONG samples = 0;
    LONGLONG bytes = 0;
    for (const StreamWriter& writer : writers) {
      LONGLONG written = 0;
      samples += SamplesWritten(writer.counts.Get(), &written);
      bytes += written;
    }
    statusLine.Update(Written(samples, "samples", bytes));
  };
  CConsoleQuestion question(options.answer, err, [&] { statusLine.Clear(); });
  auto paceWriters = [&](DWORD microseconds) {
    for (const StreamWriter& writer : writers) writer.counts->SetSampleDelay(microseconds);
  };
  if (audio.pending) paceWriters(kSwitchPaceMicroseconds);
  auto trySwitch = [&] {
    LONGLONG position = 0;
    if (!controls.seeking || FAILED(controls.seeking->GetCurrentPosition(&position))) position = 0;
    if (position < audio.from) return;
    const int shownBefore = question.Shown();
    audio.last = select->Enable(audio.index, AMSTREAMSELECTENABLE_ENABLE);
    if (SUCCEEDED(audio.last)) {
      audio.done = true;
      audio.at = position;
      audio.pending = false;
    } else if (audio.last != E_INVALIDARG || question.Shown() != shownBefore) {
      // Refused for good: another kind of track (the filter has asked), or
      // an answer that no later try changes.
      audio.pending = false;
    }
    if (!audio.pending) paceWriters(0);
  };

  const auto started = std::chrono::steady_clock::now();
  hr = controls.control->Run();
  files.Started(SUCCEEDED(hr));
  if (FAILED(hr)) {
    controls.control->Stop();
    err << "brindlet: cannot start playing into " << options.out << ": " << DescribeResult(hr) << files.RemoveAll()
        << "\n";
    return kExitFailure;
  }
  update();
  const std::string failure = RunToEnd(
      controls.events.Get(), controls.seeking.Get(), options.seekAt, [&] { return audio.pending; },
      [&] {
        if (audio.pending) trySwitch();
        update();
      },
      err);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  controls.control->Stop();
  statusLine.Clear();

  if (!failure.empty()) {
    err << "brindlet: " << failure << Aftermath(files, InputSpan(options, controls.seeking.Get())) << "\n";
    return kExitFailure;
  }

  LONGLONG allSamples = 0;
  LONGLONG allBytes = 0;
  std::string silent;  // the pins that delivered nothing, with their PIDs
  std::ostringstream lines;
  for (const StreamWriter& writer : writers) {
    LONGLONG bytes = 0;
    const LONGLONG samples = SamplesWritten(writer.counts.Get(), &bytes);
    allSamples += samples;
    allBytes += bytes;
    lines << writer.pinName << ": " << writer.file.string() << ", " << writer.pids << ", " << samples << " samples, "
          << bytes << " bytes\n";
    if (bytes == 0) silent += (silent.empty() ? "" : "; ") + writer.pinName + " (" + writer.pids + ")";
  }
  if (allBytes == 0) {
    // No summary of files that are then taken back: the one line names the
    // pins and what the filter mapped to them.
    err << "brindlet: nothing was delivered: the filter wired the demultiplexer, but no payload reached " << silent
        << notices.Take() << files.RemoveAll() << "\n";
    return kExitFailure;
  }
  out << lines.str() << writers.size() << " streams, " << allSamples << " samples, " << allBytes << " bytes, "
      << [&] {
           char text[32];
           std::snprintf(text, sizeof text, "%.2f s", seconds);
           return std::string(text);
         }()
      << "\n";

  int status = kExitOk;
  if (options.audio) {
    const std::string label = TrackLabel(select.Get(), audio.index);
    if (audio.done) {
      char at[32];
      std::snprintf(at, sizeof at, "%.2f s", static_cast<double>(audio.at) / kUnitsPerSecond);
      out << "audio track " << audio.index << " (" << label << ") enabled at " << at << "\n";
    } else if (question.Shown() > 0) {
      err << "brindlet: --audio " << audio.index << ": " << label
          << " needs another media type, which a running graph cannot change"
          << (question.AnsweredYes() ? "; the filter takes the other kind the next time a file is played"
                                     : "; the answer was No")
          << "\n";
      status = kExitFailure;
    } else if (audio.last == E_INVALIDARG || audio.last == S_OK) {
      err << "brindlet: --audio " << audio.index << ": the stream ended before the filter allowed a change of "
             "track (it allows one from packet 30000 on)\n";
      status = kExitFailure;
    } else {
      err << "brindlet: --audio " << audio.index << ": the filter refused the track: " << DescribeResult(audio.last)
          << "\n";
      status = kExitFailure;
    }
  }
  if (!silent.empty()) err << "brindlet: note: nothing reached " << silent << files.RemoveEmpty() << "\n";
  return status;
}

}  // namespace

int RunPlay(const PlayOptions& options, std::ostream& out, std::ostream& err, ProgressMode progress) {
  if (options.file.empty() || options.out.empty() == options.raw.empty()) {
    err << "brindlet: play needs FILE and one of --out DIR or --raw OUT\n";
    return kExitUsage;
  }
  if (options.audio && (options.out.empty() || *options.audio < 0)) {
    err << "brindlet: --audio needs --out and a track number from 0\n";
    return kExitUsage;
  }
  CHeldNotices notices;
  CSourceSession session(options.file, err);
  notices.Stop();
  int status = kExitFailure;
  if (session.Ok()) {
    status = options.out.empty() ? PlayRaw(options, session, notices, out, err, progress)
                                 : PlayOut(options, session, notices, out, err, progress);
  }
  notices.Print(err);
  return status;
}
