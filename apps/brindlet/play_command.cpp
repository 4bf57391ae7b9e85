#include "apps/brindlet/play_command.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "apps/brindlet/query_command.h"
#include "apps/brindlet/source_session.h"
#include "control/settings_store.h"
#include "platform/codepage.h"
#include "platform/control.h"
#include "platform/objbase.h"
#include "platform/sink_filters.h"

namespace {

// Long enough to cost nothing, short enough for a live progress line.
constexpr LONG kWaitSliceMs = 200;
// While a seek waits for its moment, the position is looked at this often.
constexpr LONG kSeekSliceMs = 1;
constexpr double kUnitsPerSecond = 1e7;  // REFERENCE_TIME

std::string Hex(HRESULT hr) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(hr));
  return text;
}

// Win32 errors (as the writer reports them) in words, anything else by code.
std::string DescribeResult(HRESULT hr) {
  const auto code = static_cast<unsigned>(hr);
  if ((code & 0xFFFF0000u) == 0x80070000u) {
    const unsigned long error = code & 0xFFFFu;
    const std::string words = error == ERROR_DISK_FULL ? "disk full" : DescribeWin32Error(error);
    return words + " (" + Hex(hr) + ")";
  }
  return "error " + Hex(hr);
}

ComPtr<IPin> FirstPin(IBaseFilter* filter, PIN_DIRECTION wanted) {
  ComPtr<IEnumPins> pins;
  if (FAILED(filter->EnumPins(pins.PutAddress())) || !pins) return {};
  for (;;) {
    IPin* raw = nullptr;
    ULONG fetched = 0;
    if (pins->Next(1, &raw, &fetched) != S_OK || fetched != 1 || raw == nullptr) return {};
    ComPtr<IPin> pin = ComPtr<IPin>::Attach(raw);
    PIN_DIRECTION direction = PINDIR_INPUT;
    if (SUCCEEDED(pin->QueryDirection(&direction)) && direction == wanted) return pin;
  }
}

LONGLONG SamplesWritten(IStreamSinkControl* counts, LONGLONG* bytes) {
  LONGLONG samples = 0;
  if (FAILED(counts->GetCounts(&samples, bytes, nullptr, nullptr, nullptr))) {
    samples = 0;
    if (bytes != nullptr) *bytes = 0;
  }
  return samples;
}

// One line, redrawn in place; the escape clears what a longer line left.
void ShowProgress(std::ostream& err, IStreamSinkControl* counts, IMediaSeeking* seeking) {
  const LONGLONG samples = SamplesWritten(counts, nullptr);
  LONGLONG position = 0;
  if (seeking == nullptr || FAILED(seeking->GetCurrentPosition(&position))) position = 0;
  char line[96];
  std::snprintf(line, sizeof line, "\r%lld packets written, at %.1f s\x1b[K",
                static_cast<long long>(samples), static_cast<double>(position) / kUnitsPerSecond);
  err << line << std::flush;
}

void ClearProgress(std::ostream& err) { err << "\r\x1b[K" << std::flush; }

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

LONGLONG ToUnits(double seconds) { return static_cast<LONGLONG>(seconds * kUnitsPerSecond + 0.5); }

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
  // The filter keeps a rate below 1 for the sample times but refuses it.
  if (options.rate && FAILED(seeking->SetRate(*options.rate))) {
    err << "brindlet: note: the filter refuses a rate of " << *options.rate
        << "; it divides the sample times by it all the same\n";
  }
  return true;
}

}  // namespace

int RunPlay(const PlayOptions& options, std::ostream& out, std::ostream& err, bool showProgress) {
  if (options.file.empty() || options.raw.empty()) {
    err << "brindlet: play needs FILE and --raw OUT\n";
    return kExitUsage;
  }
  CSourceSession session(options.file, err);
  if (!session.Ok()) return kExitFailure;
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

  ComPtr<IMediaControl> control;
  ComPtr<IMediaEvent> events;
  ComPtr<IMediaSeeking> seeking;  // only for the progress line; may stay empty
  graph->QueryInterface(IID_IMediaControl, control.PutVoid());
  graph->QueryInterface(IID_IMediaEvent, events.PutVoid());
  graph->QueryInterface(IID_IMediaSeeking, seeking.PutVoid());
  if (!control || !events) {
    err << "brindlet: the filter graph cannot be run\n";
    return kExitFailure;
  }

  if (!ApplyPositions(options, seeking.Get(), err)) return kExitFailure;
  std::vector<std::pair<double, double>> seeks = options.seekAt;
  std::sort(seeks.begin(), seeks.end());
  std::size_t nextSeek = 0;

  const auto started = std::chrono::steady_clock::now();
  hr = control->Run();
  if (FAILED(hr)) {
    // The writer creates its file on the way to running, so this is as a
    // rule an output that cannot be written.
    err << "brindlet: cannot start playing into " << options.raw << ": " << DescribeResult(hr) << "\n";
    control->Stop();
    return kExitFailure;
  }

  // GetEvent rather than WaitForCompletion: the ending event's parameter is
  // the error that an abort or a failed completion carries.
  std::string failure;
  for (;;) {
    LONG code = 0;
    LONG_PTR param1 = 0;
    LONG_PTR param2 = 0;
    const bool seekPending = nextSeek < seeks.size() && seeking;
    hr = events->GetEvent(&code, &param1, &param2, seekPending ? kSeekSliceMs : kWaitSliceMs);
    if (hr == E_ABORT) {
      LONGLONG position = 0;
      if (seekPending && SUCCEEDED(seeking->GetCurrentPosition(&position)) &&
          position >= ToUnits(seeks[nextSeek].first)) {
        // The worker is running: the seek flushes it and sends it on.
        LONGLONG target = ToUnits(seeks[nextSeek].second);
        seeking->SetPositions(&target, AM_SEEKING_AbsolutePositioning, nullptr, 0);
        ++nextSeek;
      }
      if (showProgress) ShowProgress(err, counts.Get(), seeking.Get());
      continue;
    }
    if (FAILED(hr)) {
      failure = "the graph stopped before the end of the stream (" + Hex(hr) + ")";
      break;
    }
    events->FreeEventParams(code, param1, param2);
    const auto result = static_cast<HRESULT>(param1);
    if (code == EC_COMPLETE) {
      if (FAILED(result)) failure = "playback ended with " + DescribeResult(result);
      break;
    }
    if (code == EC_ERRORABORT) {
      failure = "playback aborted: " + DescribeResult(result);
      break;
    }
    if (code == EC_USERABORT) {
      failure = "playback aborted by the user";
      break;
    }
  }
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  control->Stop();
  if (showProgress) ClearProgress(err);

  if (!failure.empty()) {
    err << "brindlet: " << failure << "\n";
    return kExitFailure;
  }
  for (std::size_t i = nextSeek; i < seeks.size(); ++i) {
    err << "brindlet: note: the stream ended before the position " << seeks[i].first << " s of --seek-at\n";
  }
  LONGLONG bytes = 0;
  const LONGLONG samples = SamplesWritten(counts.Get(), &bytes);
  out << Summary(samples, bytes, seconds) << "\n";
  return kExitOk;
}
