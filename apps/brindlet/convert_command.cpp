#include "apps/brindlet/convert_command.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "apps/brindlet/graph_run.h"
#include "apps/brindlet/query_command.h"
#include "apps/brindlet/source_session.h"
#include "control/conversion_sink.h"
#include "conversion/recording_conversion.h"
#include "platform/com/objbase.h"
#include "platform/graph/mpeg2_demux.h"
#include "platform/graph/stream_buffer.h"
#include "platform/win32/codepage.h"
#include "platform/win32/messages.h"

namespace {

namespace fs = std::filesystem;

std::string KindOf(REFGUID subtype) {
  if (subtype == MEDIASUBTYPE_MPEG2_VIDEO) return "MPEG-2 video";
  if (subtype == kSubtypeAvc1) return "H.264 video";
  if (subtype == kSubtypeMpeg1AudioPayload) return "MPEG audio";
  if (subtype == MEDIASUBTYPE_DOLBY_AC3) return "AC-3 audio";
  if (subtype == kSubtypeAac) return "AAC audio";
  return "other";
}

std::string Clock(REFERENCE_TIME units) {
  const long long ms = units / 10000;
  char text[32];
  std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld.%03lld", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60,
                ms % 1000);
  return text;
}

struct RecordedStream {
  GUID subtype{};
  LONGLONG packets = 0;
  LONGLONG bytes = 0;
  REFERENCE_TIME first = 0;
  REFERENCE_TIME last = 0;
};

// What the sink says it recorded; nothing when it has not started a recorder.
std::vector<RecordedStream> RecordedStreams(IStreamBufferRecordingSummary* summary) {
  std::vector<RecordedStream> streams;
  DWORD count = 0;
  if (summary == nullptr || summary->GetStreamCount(&count) != S_OK) return streams;
  for (DWORD i = 0; i < count; ++i) {
    RecordedStream stream;
    if (SUCCEEDED(summary->GetStream(i, nullptr, &stream.subtype, &stream.packets, &stream.bytes, &stream.first,
                                     &stream.last))) {
      streams.push_back(stream);
    }
  }
  return streams;
}

bool Started(IStreamBufferRecordingSummary* summary) {
  DWORD count = 0;
  return summary != nullptr && summary->GetStreamCount(&count) == S_OK;
}

}  // namespace

int RunConvert(const ConvertOptions& options, std::ostream& out, std::ostream& err, ProgressMode progress) {
  if (options.file.empty()) {
    err << "brindlet: convert needs FILE\n";
    return kExitUsage;
  }
  const std::string recording = WideToAnsi(CRecordingConversion::RecordingName(AnsiToWide(options.file)));
  if (recording.empty()) {
    err << "brindlet: " << options.file << ": the recording is named by cutting the file's name at its last point, "
        << "and this name has none (or is too long)\n";
    return kExitFailure;
  }
  CStatusLine* statusLine = nullptr;
  CConsoleQuestion question(options.answer, err, [&] {
    if (statusLine != nullptr) statusLine->Clear();
  });
  std::error_code error;
  if (fs::exists(recording, error)) {
    // The filter deletes a file that stands in the recording's way.
    const std::string text = recording + " exists. Replace it with the recording?";
    if (MessageBoxA(nullptr, text.c_str(), "Brindlet", MB_YESNO) != IDYES) {
      err << "brindlet: " << recording << " is left as it is; --yes replaces it\n";
      return kExitFailure;
    }
  }

  CSourceSession session(options.file, err);
  if (!session.Ok()) return kExitFailure;
  IFilterGraph* graph = session.Graph();

  ComPtr<IBaseFilter> demux;
  ComPtr<IBaseFilter> sink;
  HRESULT hr = CoCreateInstance(CLSID_MPEG2Demultiplexer, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                demux.PutVoid());
  if (SUCCEEDED(hr)) hr = graph->AddFilter(demux.Get(), L"MPEG-2 Demultiplexer");
  if (FAILED(hr)) {
    err << "brindlet: cannot set up the MPEG-2 demultiplexer: " << DescribeResult(hr) << "\n";
    return kExitFailure;
  }
  hr = CoCreateInstance(CLSID_StreamBufferSink, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter, sink.PutVoid());
  if (SUCCEEDED(hr)) hr = graph->AddFilter(sink.Get(), L"Stream Buffer Sink");
  if (FAILED(hr)) {
    err << "brindlet: cannot set up the stream buffer sink (StreamBuffer.ax): " << DescribeResult(hr) << "\n";
    return kExitFailure;
  }
  const ComPtr<IPin> output = FirstPin(session.Filter(), PINDIR_OUTPUT);
  const ComPtr<IPin> input = FirstPin(demux.Get(), PINDIR_INPUT);
  hr = output && input ? graph->ConnectDirect(output.Get(), input.Get(), nullptr) : E_FAIL;
  if (FAILED(hr)) {
    err << "brindlet: the filter could not wire the demultiplexer for " << options.file << ": "
        << DescribeResult(hr) << "\n";
    return kExitFailure;
  }
  std::vector<std::string> pins;
  for (const ComPtr<IPin>& pin : OutputPins(demux.Get())) {
    // The sink adds a free input pin each time one is taken.
    const ComPtr<IPin> free = FirstPin(sink.Get(), PINDIR_INPUT, true);
    hr = free ? graph->ConnectDirect(pin.Get(), free.Get(), nullptr) : E_FAIL;
    if (FAILED(hr)) {
      err << "brindlet: cannot connect the demultiplexer's pin " << PinName(pin.Get())
          << " to the stream buffer sink: " << DescribeResult(hr) << "\n";
      return kExitFailure;
    }
    pins.push_back(PinName(pin.Get()) + " (" + MappedPids(pin.Get()) + ")");
  }
  if (pins.empty()) {
    err << "brindlet: the filter made no output pins on the demultiplexer: nothing to record\n";
    return kExitFailure;
  }

  ComPtr<ITsConversionSink> conversion;
  session.Filter()->QueryInterface(IID_ITsConversionSink, conversion.PutVoid());
  hr = conversion ? conversion->SetSinkFilter(sink.Get()) : E_NOINTERFACE;
  if (FAILED(hr)) {
    err << "brindlet: the filter takes no stream buffer sink: " << DescribeResult(hr) << "\n";
    return kExitFailure;
  }
  ComPtr<IStreamBufferRecordingSummary> summary;
  sink->QueryInterface(IID_IStreamBufferRecordingSummary, summary.PutVoid());

  GraphControls controls;
  if (!GetControls(graph, &controls, err)) return kExitFailure;
  CStatusLine line(progress, err, session, controls.seeking.Get());
  statusLine = &line;
  auto update = [&] {
    LONGLONG packets = 0;
    LONGLONG bytes = 0;
    for (const RecordedStream& stream : RecordedStreams(summary.Get())) {
      packets += stream.packets;
      bytes += stream.bytes;
    }
    line.Update(std::to_string(packets) + " packets, " + std::to_string(bytes) + " bytes recorded");
  };

  // The filter makes and starts the recorder in the Pause that Run begins with.
  hr = controls.control->Run();
  if (FAILED(hr) || (summary && !Started(summary.Get()))) {
    controls.control->Stop();
    line.Clear();
    const fs::path folder = fs::absolute(recording, error).parent_path();
    err << "brindlet: no recording was made at " << recording << ": "
        << (FAILED(hr)                                  ? "the graph would not run (" + DescribeResult(hr) + ")"
            : ::access(folder.c_str(), W_OK) != 0 ? "the folder " + folder.string() + " cannot be written"
                                                        : "the stream buffer sink made no recorder")
        << "\n";
    return kExitFailure;
  }
  update();
  const std::string failure = RunToEnd(controls.events.Get(), controls.seeking.Get(), {}, [] { return false; },
                                       update, err);
  // With a recorder, the filter's Stop waits a second on each side of it.
  controls.control->Stop();
  line.Clear();
  statusLine = nullptr;
  if (!failure.empty()) {
    err << "brindlet: the recording failed, " << failure << "; what was written stays in " << recording << "\n";
    return kExitFailure;
  }

  out << "Recording: " << recording << "\n";
  REFERENCE_TIME first = 0;
  REFERENCE_TIME last = 0;
  bool any = false;
  const std::vector<RecordedStream> streams = RecordedStreams(summary.Get());
  for (std::size_t i = 0; i < streams.size(); ++i) {
    const RecordedStream& s = streams[i];
    out << (i < pins.size() ? pins[i] : "Stream " + std::to_string(i)) << ": " << KindOf(s.subtype) << ", "
        << s.packets << " packets, " << s.bytes << " bytes, " << Clock(s.packets > 0 ? s.last - s.first : 0)
        << "\n";
    if (s.packets == 0) continue;
    first = any ? std::min(first, s.first) : s.first;
    last = any ? std::max(last, s.last) : s.last;
    any = true;
  }
  out << "Duration: " << Clock(any ? last - first : 0) << "\n";
  return kExitOk;
}
