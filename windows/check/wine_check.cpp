// brindlet-wine-check: drives the registered Brindlet.ax through the
// platform's own filter graph manager, the way a player would, so that the
// Windows build can be compared with the Linux build file for file.
//
//   brindlet-wine-check play FILE DIR      plays FILE to the end into one file per stream
//   brindlet-wine-check query FILE KEY...  one line per keyword, as `brindlet query` prints
//   brindlet-wine-check pages FILE PREFIX [--play]
//                                          shows the property frame, saves PREFIX-<n>.png per tab;
//                                          with --play, while the graph plays
//
// FILE is opened by its extension (AddSourceFilter), so the registration of
// the file types is part of what is checked. Exit status 0 on success, 1 on
// a failed check with one line on stderr, 2 on bad arguments.
#include <windows.h>
#include <commctrl.h>
#include <control.h>
#include <evcode.h>
#include <ocidl.h>
#include <olectl.h>
#include <strmif.h>
#include <uuids.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "control/brindlet_ids.h"
#include "control/conversion_sink.h"
#include "control/ts_stream_info.h"
#include "platform/com/com_ptr.h"
#include "platform/graph/stream_buffer.h"
#include "platform/graph/stream_sinks.h"
#include "windows/check/screen_shot.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr long kPlayTimeoutMs = 120000;

std::string Utf8(const wchar_t* text) {
  if (text == nullptr) return {};
  const int bytes = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (bytes <= 1) return {};
  std::string out(static_cast<size_t>(bytes), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, out.data(), bytes, nullptr, nullptr);
  out.resize(static_cast<size_t>(bytes - 1));
  return out;
}

int Fail(const std::string& what, HRESULT hr = S_OK) {
  if (hr == S_OK) {
    std::fprintf(stderr, "brindlet-wine-check: %s\n", what.c_str());
  } else {
    std::fprintf(stderr, "brindlet-wine-check: %s (0x%08lX)\n", what.c_str(), static_cast<unsigned long>(hr));
  }
  return kExitFailure;
}

// The graph and the source it made for FILE by its extension.
struct Session {
  ComPtr<IGraphBuilder> graph;
  ComPtr<IBaseFilter> source;
};

// The class the file type names: HKCR\Media Type\Extensions\<ext>, value
// "Source Filter", as the registration wrote it.
bool SourceForExtension(const std::wstring& file, CLSID* clsid) {
  const size_t dot = file.find_last_of(L'.');
  if (dot == std::wstring::npos) return false;
  const std::wstring key = L"Media Type\\Extensions\\" + file.substr(dot);
  wchar_t text[64] = L"";
  DWORD size = sizeof text;
  if (RegGetValueW(HKEY_CLASSES_ROOT, key.c_str(), L"Source Filter", RRF_RT_REG_SZ, nullptr, text, &size) !=
      ERROR_SUCCESS) {
    return false;
  }
  return SUCCEEDED(CLSIDFromString(text, clsid));
}

int OpenByExtension(const wchar_t* file, Session* session) {
  HRESULT hr = CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IGraphBuilder,
                                session->graph.PutVoid());
  if (FAILED(hr)) return Fail("the platform has no filter graph manager", hr);
  hr = session->graph->AddSourceFilter(file, L"Brindlet", session->source.PutAddress());
  if (FAILED(hr)) return Fail("the graph found no source for " + Utf8(file), hr);
  CLSID clsid{};
  hr = session->source->GetClassID(&clsid);
  if (SUCCEEDED(hr) && clsid == CLSID_BrindletSource) return kExitOk;

  // A graph manager that does not look up the file type falls back to its
  // file reader. Say so, and open the file as the file type tells.
  wchar_t chosen[40] = L"";
  StringFromGUID2(clsid, chosen, 40);
  std::fprintf(stderr, "brindlet-wine-check: note: AddSourceFilter chose %s; opening through the file type\n",
               Utf8(chosen).c_str());
  session->graph->RemoveFilter(session->source.Get());
  session->source.Reset();
  if (!SourceForExtension(file, &clsid)) return Fail("no source is registered for the file type of " + Utf8(file));
  if (clsid != CLSID_BrindletSource) return Fail("the file type of " + Utf8(file) + " names another source");
  ComPtr<IFileSourceFilter> loader;
  hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter, session->source.PutVoid());
  if (SUCCEEDED(hr)) hr = session->graph->AddFilter(session->source.Get(), L"Brindlet");
  if (SUCCEEDED(hr)) hr = session->source->QueryInterface(IID_IFileSourceFilter, loader.PutVoid());
  if (SUCCEEDED(hr)) hr = loader->Load(file, nullptr);
  if (FAILED(hr)) return Fail("the registered source did not open " + Utf8(file), hr);
  return kExitOk;
}

std::vector<ComPtr<IPin>> Pins(IBaseFilter* filter, PIN_DIRECTION direction) {
  std::vector<ComPtr<IPin>> pins;
  ComPtr<IEnumPins> pinList;
  if (FAILED(filter->EnumPins(pinList.PutAddress()))) return pins;
  ComPtr<IPin> pin;
  while (pinList->Next(1, pin.PutAddress(), nullptr) == S_OK) {
    PIN_DIRECTION its{};
    if (SUCCEEDED(pin->QueryDirection(&its)) && its == direction) pins.push_back(pin);
  }
  return pins;
}

ComPtr<IPin> FirstPin(IBaseFilter* filter, PIN_DIRECTION direction) {
  std::vector<ComPtr<IPin>> pins = Pins(filter, direction);
  return pins.empty() ? ComPtr<IPin>() : pins.front();
}

std::wstring PinName(IPin* pin) {
  PIN_INFO info{};
  if (FAILED(pin->QueryPinInfo(&info))) return L"?";
  if (info.pFilter != nullptr) info.pFilter->Release();
  return info.achName;
}

// Connects the source to a new demultiplexer, which the source wires.
int ConnectDemux(Session& session, ComPtr<IBaseFilter>* demux) {
  // The platform under Wine has no MPEG-2 demultiplexer: ours is registered
  // under the platform's class id, so this is the one a player would get.
  HRESULT hr = CoCreateInstance(CLSID_MPEG2Demultiplexer, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                demux->PutVoid());
  if (SUCCEEDED(hr)) hr = session.graph->AddFilter(demux->Get(), L"MPEG-2 Demultiplexer");
  if (FAILED(hr)) return Fail("no MPEG-2 demultiplexer", hr);
  const ComPtr<IPin> output = FirstPin(session.source.Get(), PINDIR_OUTPUT);
  const ComPtr<IPin> input = FirstPin(demux->Get(), PINDIR_INPUT);
  if (!output || !input) return Fail("a pin is missing");
  hr = session.graph->ConnectDirect(output.Get(), input.Get(), nullptr);
  if (FAILED(hr)) return Fail("the source did not connect to the demultiplexer", hr);
  return kExitOk;
}

// Runs the graph until the platform reports the end of every stream.
int RunToCompletion(IGraphBuilder* graph) {
  ComPtr<IMediaControl> control;
  ComPtr<IMediaEvent> events;
  HRESULT hr = graph->QueryInterface(IID_IMediaControl, control.PutVoid());
  if (SUCCEEDED(hr)) hr = graph->QueryInterface(IID_IMediaEvent, events.PutVoid());
  if (FAILED(hr)) return Fail("the graph has no control or events", hr);
  hr = control->Run();
  if (FAILED(hr)) return Fail("the graph did not run", hr);
  long code = 0;
  hr = events->WaitForCompletion(kPlayTimeoutMs, &code);
  control->Stop();
  if (hr == E_ABORT) return Fail("the graph did not complete within the time");
  if (FAILED(hr) || code != EC_COMPLETE) return Fail("the graph ended with event " + std::to_string(code), hr);
  return kExitOk;
}

struct Writer {
  std::wstring pin;
  std::wstring file;
  ComPtr<IBaseFilter> filter;
  ComPtr<IStreamSinkControl> counts;
};

int Play(const wchar_t* file, const std::wstring& dir) {
  Session session;
  if (const int status = OpenByExtension(file, &session); status != kExitOk) return status;
  IGraphBuilder* graph = session.graph.Get();

  ComPtr<IBaseFilter> demux;
  if (const int status = ConnectDemux(session, &demux); status != kExitOk) return status;
  HRESULT hr = S_OK;

  std::vector<Writer> writers;
  for (const ComPtr<IPin>& pin : Pins(demux.Get(), PINDIR_OUTPUT)) {
    Writer writer;
    writer.pin = PinName(pin.Get());
    writer.file = dir + L"\\" + writer.pin + L".es";
    ComPtr<IFileSinkFilter> sink;
    hr = CoCreateInstance(CLSID_StreamFileWriter, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                          writer.filter.PutVoid());
    if (SUCCEEDED(hr)) hr = writer.filter->QueryInterface(IID_IFileSinkFilter, sink.PutVoid());
    if (SUCCEEDED(hr)) hr = writer.filter->QueryInterface(IID_IStreamSinkControl, writer.counts.PutVoid());
    if (SUCCEEDED(hr)) hr = writer.counts->SetAcceptAnyType(TRUE);
    if (SUCCEEDED(hr)) hr = graph->AddFilter(writer.filter.Get(), (L"Writer " + writer.pin).c_str());
    if (SUCCEEDED(hr)) hr = sink->SetFileName(writer.file.c_str(), nullptr);
    if (FAILED(hr)) return Fail("no file writer for the pin " + Utf8(writer.pin.c_str()), hr);
    const ComPtr<IPin> writerInput = FirstPin(writer.filter.Get(), PINDIR_INPUT);
    hr = writerInput ? graph->ConnectDirect(pin.Get(), writerInput.Get(), nullptr) : E_FAIL;
    if (FAILED(hr)) return Fail("the pin " + Utf8(writer.pin.c_str()) + " did not connect to a writer", hr);
    writers.push_back(std::move(writer));
  }
  if (writers.empty()) return Fail("the demultiplexer has no output pins");

  if (const int status = RunToCompletion(graph); status != kExitOk) return status;

  for (const Writer& writer : writers) {
    LONGLONG samples = 0;
    LONGLONG bytes = 0;
    writer.counts->GetCounts(&samples, &bytes, nullptr, nullptr, nullptr);
    std::printf("%s: %s, %lld samples, %lld bytes\n", Utf8(writer.pin.c_str()).c_str(),
                Utf8(writer.file.c_str()).c_str(), samples, bytes);
  }
  return kExitOk;
}

// The filter's message boxes, answered as a user would: OK, after noting
// the text. Runs until told to stop.
void AnswerMessages(std::atomic<bool>* stop, std::vector<std::string>* texts) {
  const DWORD process = GetCurrentProcessId();
  while (!*stop) {
    Sleep(50);
    HWND box = nullptr;
    while ((box = FindWindowExW(nullptr, box, L"#32770", nullptr)) != nullptr) {
      DWORD owner = 0;
      GetWindowThreadProcessId(box, &owner);
      if (owner != process || !IsWindowVisible(box)) continue;
      wchar_t caption[64] = L"";
      GetWindowTextW(box, caption, 64);
      wchar_t text[256] = L"";
      GetDlgItemTextW(box, 0xFFFF, text, 256);  // the message's static control
      texts->push_back(Utf8(caption) + ": " + Utf8(text));
      PostMessageW(box, WM_COMMAND, IDOK, 0);
      Sleep(200);
    }
  }
}

int Convert(const wchar_t* file) {
  Session session;
  if (const int status = OpenByExtension(file, &session); status != kExitOk) return status;
  ComPtr<IBaseFilter> demux;
  if (const int status = ConnectDemux(session, &demux); status != kExitOk) return status;
  // The platform under Wine has no stream buffer engine either: ours.
  ComPtr<IBaseFilter> sink;
  HRESULT hr = CoCreateInstance(CLSID_StreamBufferSink, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                sink.PutVoid());
  if (SUCCEEDED(hr)) hr = session.graph->AddFilter(sink.Get(), L"Stream Buffer Sink");
  if (FAILED(hr)) return Fail("no stream buffer sink", hr);
  for (const ComPtr<IPin>& pin : Pins(demux.Get(), PINDIR_OUTPUT)) {
    // The sink adds a free input pin each time one is taken.
    ComPtr<IPin> free;
    for (const ComPtr<IPin>& candidate : Pins(sink.Get(), PINDIR_INPUT)) {
      ComPtr<IPin> peer;
      if (!free && FAILED(candidate->ConnectedTo(peer.PutAddress()))) free = candidate;
    }
    hr = free ? session.graph->ConnectDirect(pin.Get(), free.Get(), nullptr) : E_FAIL;
    if (FAILED(hr)) return Fail("the pin " + Utf8(PinName(pin.Get()).c_str()) + " did not connect to the sink", hr);
  }
  ComPtr<ITsConversionSink> conversion;
  hr = session.source->QueryInterface(IID_ITsConversionSink, conversion.PutVoid());
  if (SUCCEEDED(hr)) hr = conversion->SetSinkFilter(sink.Get());
  if (FAILED(hr)) return Fail("the source took no stream buffer sink", hr);

  std::atomic<bool> stop{false};
  std::vector<std::string> messages;
  std::thread answering(AnswerMessages, &stop, &messages);
  const int status = RunToCompletion(session.graph.Get());
  stop = true;
  answering.join();
  for (const std::string& message : messages) std::printf("%s\n", message.c_str());
  return status;
}

// What the platform's loader and version reader find in a module: each
// ordinal from 1 with the name that leads to the same entry, then the
// version block's numbers and strings.
int Module(const wchar_t* path) {
  HMODULE module = LoadLibraryExW(path, nullptr, 0);
  if (module == nullptr) return Fail("the module did not load", HRESULT_FROM_WIN32(GetLastError()));
  static const char* const kNames[] = {"DllCanUnloadNow", "DllGetClassObject", "DllMain", "DllRegisterServer",
                                       "DllUnregisterServer"};
  for (WORD ordinal = 1; ordinal <= 8; ++ordinal) {
    const FARPROC entry = GetProcAddress(module, MAKEINTRESOURCEA(ordinal));
    if (entry == nullptr) continue;
    const char* name = "?";
    for (const char* candidate : kNames) {
      if (GetProcAddress(module, candidate) == entry) name = candidate;
    }
    std::printf("@%u %s\n", ordinal, name);
  }
  FreeLibrary(module);

  DWORD handle = 0;
  const DWORD size = GetFileVersionInfoSizeW(path, &handle);
  std::vector<BYTE> block(size);
  VS_FIXEDFILEINFO* fixed = nullptr;
  UINT length = 0;
  if (size == 0 || !GetFileVersionInfoW(path, 0, size, block.data()) ||
      !VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&fixed), &length) || length < sizeof *fixed) {
    return Fail("the module has no version block");
  }
  std::printf("FileVersion %lu.%lu.%lu.%lu, flags 0x%lX of 0x%lX, OS 0x%lX, type %lu\n",
              static_cast<unsigned long>(HIWORD(fixed->dwFileVersionMS)),
              static_cast<unsigned long>(LOWORD(fixed->dwFileVersionMS)),
              static_cast<unsigned long>(HIWORD(fixed->dwFileVersionLS)),
              static_cast<unsigned long>(LOWORD(fixed->dwFileVersionLS)),
              static_cast<unsigned long>(fixed->dwFileFlags), static_cast<unsigned long>(fixed->dwFileFlagsMask),
              static_cast<unsigned long>(fixed->dwFileOS), static_cast<unsigned long>(fixed->dwFileType));
  WORD* translation = nullptr;
  if (VerQueryValueW(block.data(), L"\\VarFileInfo\\Translation", reinterpret_cast<void**>(&translation),
                     &length) &&
      length >= 4) {
    std::printf("Translation 0x%04X %u\n", translation[0], translation[1]);
  }
  for (const wchar_t* key : {L"CompanyName", L"FileDescription", L"FileVersion", L"InternalName",
                             L"OriginalFilename", L"ProductName", L"ProductVersion", L"OLESelfRegister"}) {
    const std::wstring query = L"\\StringFileInfo\\040904E4\\" + std::wstring(key);
    wchar_t* value = nullptr;
    if (VerQueryValueW(block.data(), query.c_str(), reinterpret_cast<void**>(&value), &length) && value) {
      std::printf("%s: %s\n", Utf8(key).c_str(), Utf8(value).c_str());
    }
  }
  return kExitOk;
}

int Query(const wchar_t* file, int count, wchar_t** keywords) {
  Session session;
  if (const int status = OpenByExtension(file, &session); status != kExitOk) return status;
  ComPtr<ITsStreamInfo> info;
  const HRESULT hr = session.source->QueryInterface(IID_ITsStreamInfo, info.PutVoid());
  if (FAILED(hr)) return Fail("the source does not answer ITsStreamInfo", hr);
  for (int i = 0; i < count; ++i) {
    LPWSTR text = nullptr;
    // `brindlet query` prints an empty line for no answer, and so does this.
    if (FAILED(info->QueryText(keywords[i], &text))) text = nullptr;
    std::printf("%s\n", Utf8(text).c_str());
    CoTaskMemFree(text);
  }
  return kExitOk;
}

// --- The property frame -----------------------------------------------------

struct FrameSearch {
  DWORD process;
  HWND found;
};

BOOL CALLBACK FindFrame(HWND window, LPARAM context) {
  auto* search = reinterpret_cast<FrameSearch*>(context);
  DWORD process = 0;
  GetWindowThreadProcessId(window, &process);
  if (process != search->process || !IsWindowVisible(window)) return TRUE;
  search->found = window;
  return FALSE;
}

BOOL CALLBACK FindTabs(HWND window, LPARAM context) {
  wchar_t name[64];
  if (GetClassNameW(window, name, 64) > 0 && lstrcmpiW(name, WC_TABCONTROLW) == 0) {
    *reinterpret_cast<HWND*>(context) = window;
    return FALSE;
  }
  return TRUE;
}

// A click on a tab, as the user's mouse makes it: the tab control tells the
// frame, which changes the page.
void ClickTab(HWND tabs, int index) {
  RECT item{};
  if (!SendMessageW(tabs, TCM_GETITEMRECT, static_cast<WPARAM>(index), reinterpret_cast<LPARAM>(&item))) return;
  const LPARAM at = MAKELPARAM((item.left + item.right) / 2, (item.top + item.bottom) / 2);
  SendMessageW(tabs, WM_LBUTTONDOWN, MK_LBUTTON, at);
  SendMessageW(tabs, WM_LBUTTONUP, 0, at);
}

// Runs beside the modal frame: waits for it, shoots each tab, then presses
// Cancel. Gives up (and ends the process) if no frame appears.
// Runs beside the modal frame: waits for it, shoots each tab, then presses
// Cancel. While a graph plays, the first tab is shot again a moment later,
// so that its timers can be seen at work. Gives up (and ends the process) if
// no frame appears.
void ShootFrame(const std::wstring& prefix, int pages, bool playing, std::atomic<int>* saved) {
  FrameSearch search{GetCurrentProcessId(), nullptr};
  for (int tries = 0; tries < 300 && search.found == nullptr; ++tries) {
    Sleep(100);
    EnumWindows(FindFrame, reinterpret_cast<LPARAM>(&search));
  }
  if (search.found == nullptr) {
    std::fprintf(stderr, "brindlet-wine-check: no property frame appeared\n");
    std::fflush(stderr);
    ExitProcess(kExitFailure);
  }
  HWND tabs = nullptr;
  EnumChildWindows(search.found, FindTabs, reinterpret_cast<LPARAM>(&tabs));
  auto shoot = [&](const std::wstring& name) {
    SetForegroundWindow(search.found);
    RedrawWindow(search.found, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW | RDW_ALLCHILDREN);
    Sleep(200);
    if (CaptureWindow(search.found, prefix + L"-" + name + L".png")) ++*saved;
  };
  for (int page = 0; page < pages; ++page) {
    if (tabs != nullptr) ClickTab(tabs, page);
    Sleep(1500);  // the pages' timers fill their labels
    shoot(std::to_wstring(page + 1));
    if (page == 0 && playing) {
      Sleep(1500);
      shoot(L"1-later");
    }
    if (tabs == nullptr) break;
  }
  PostMessageW(search.found, WM_COMMAND, IDCANCEL, 0);
}

// The graph a player would have running behind its properties dialog: the
// demultiplexer's pins into null renderers held to about the stream's pace.
int StartPlaying(Session& session, ComPtr<IMediaControl>* control) {
  ComPtr<IBaseFilter> demux;
  if (const int status = ConnectDemux(session, &demux); status != kExitOk) return status;
  constexpr DWORD kSampleDelayMicroseconds = 20000;
  for (const ComPtr<IPin>& pin : Pins(demux.Get(), PINDIR_OUTPUT)) {
    ComPtr<IBaseFilter> renderer;
    ComPtr<IStreamSinkControl> pace;
    HRESULT hr = CoCreateInstance(CLSID_NullRenderer, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                  renderer.PutVoid());
    if (SUCCEEDED(hr)) hr = renderer->QueryInterface(IID_IStreamSinkControl, pace.PutVoid());
    if (SUCCEEDED(hr)) hr = pace->SetAcceptAnyType(TRUE);
    if (SUCCEEDED(hr)) hr = pace->SetSampleDelay(kSampleDelayMicroseconds);
    if (SUCCEEDED(hr)) hr = session.graph->AddFilter(renderer.Get(), (L"Renderer " + PinName(pin.Get())).c_str());
    const ComPtr<IPin> input = SUCCEEDED(hr) ? FirstPin(renderer.Get(), PINDIR_INPUT) : ComPtr<IPin>();
    hr = input ? session.graph->ConnectDirect(pin.Get(), input.Get(), nullptr) : E_FAIL;
    if (FAILED(hr)) return Fail("no null renderer for the pin " + Utf8(PinName(pin.Get()).c_str()), hr);
  }
  HRESULT hr = session.graph->QueryInterface(IID_IMediaControl, control->PutVoid());
  if (SUCCEEDED(hr)) hr = (*control)->Run();
  if (FAILED(hr)) return Fail("the graph did not run", hr);
  return kExitOk;
}

int Pages(const wchar_t* file, const std::wstring& prefix, bool play) {
  Session session;
  if (const int status = OpenByExtension(file, &session); status != kExitOk) return status;
  ComPtr<ISpecifyPropertyPages> specify;
  HRESULT hr = session.source->QueryInterface(IID_ISpecifyPropertyPages, specify.PutVoid());
  CAUUID pages{};
  if (SUCCEEDED(hr)) hr = specify->GetPages(&pages);
  if (FAILED(hr) || pages.cElems == 0) return Fail("the source names no property pages", hr);
  ComPtr<IMediaControl> control;
  if (play) {
    if (const int status = StartPlaying(session, &control); status != kExitOk) {
      CoTaskMemFree(pages.pElems);
      return status;
    }
  }

  std::atomic<int> saved{0};
  std::thread shooter(ShootFrame, prefix, static_cast<int>(pages.cElems), play, &saved);
  IUnknown* object = session.source.Get();
  hr = OleCreatePropertyFrame(nullptr, 0, 0, L"Brindlet", 1, &object, pages.cElems, pages.pElems,
                              LOCALE_USER_DEFAULT, 0, nullptr);
  shooter.join();
  CoTaskMemFree(pages.pElems);
  if (control) control->Stop();
  if (FAILED(hr)) return Fail("the platform did not show the property frame", hr);
  std::printf("%lu pages, %d screenshots\n", static_cast<unsigned long>(pages.cElems), saved.load());
  return saved.load() > 0 ? kExitOk : Fail("no screenshot could be taken");
}

int Usage() {
  std::fprintf(stderr,
               "usage: brindlet-wine-check play FILE DIR | query FILE KEYWORD... | pages FILE PREFIX [--play] | convert FILE |\n"
               "       module MODULE\n");
  return kExitUsage;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc < 3) return Usage();
  const std::wstring command = argv[1];
  if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) return Fail("COM did not start");
  INITCOMMONCONTROLSEX controls{sizeof controls, ICC_WIN95_CLASSES};
  InitCommonControlsEx(&controls);
  int status = kExitUsage;
  if (command == L"play" && argc == 4) {
    status = Play(argv[2], argv[3]);
  } else if (command == L"query") {
    status = Query(argv[2], argc - 3, argv + 3);
  } else if (command == L"module" && argc == 3) {
    status = Module(argv[2]);
  } else if (command == L"convert" && argc == 3) {
    status = Convert(argv[2]);
  } else if (command == L"pages" && (argc == 4 || (argc == 5 && std::wstring(argv[4]) == L"--play"))) {
    status = Pages(argv[2], argv[3], argc == 5);
  } else {
    status = Usage();
  }
  std::fflush(stdout);
  CoUninitialize();
  return status;
}
