#include "apps/brindlet/graph_run.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>

#include "apps/brindlet/source_session.h"
#include "platform/com/com_memory.h"
#include "platform/graph/mpeg2_demux.h"
#include "platform/win32/codepage.h"

namespace {

// One line, as every message of the tool: a box's blank lines go.
std::string OneLine(const char* text) {
  std::string line;
  bool gap = false;
  for (const char* c = text; *c != '\0'; ++c) {
    if (*c == '\n' || *c == '\r') {
      gap = true;
      continue;
    }
    if (gap) line += ' ';
    gap = false;
    line += *c;
  }
  return line;
}

}  // namespace

std::string Hex(HRESULT hr) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(hr));
  return text;
}

std::string DescribeResult(HRESULT hr) {
  const auto code = static_cast<unsigned>(hr);
  if ((code & 0xFFFF0000u) == 0x80070000u) {
    const unsigned long error = code & 0xFFFFu;
    const std::string words = error == ERROR_DISK_FULL ? "disk full" : DescribeWin32Error(error);
    return words + " (" + Hex(hr) + ")";
  }
  return "error " + Hex(hr);
}

std::vector<ComPtr<IPin>> PinsOf(IBaseFilter* filter, PIN_DIRECTION wanted, bool freeOnly) {
  std::vector<ComPtr<IPin>> found;
  ComPtr<IEnumPins> pins;
  if (FAILED(filter->EnumPins(pins.PutAddress())) || !pins) return found;
  for (;;) {
    IPin* raw = nullptr;
    ULONG fetched = 0;
    if (pins->Next(1, &raw, &fetched) != S_OK || fetched != 1 || raw == nullptr) return found;
    ComPtr<IPin> pin = ComPtr<IPin>::Attach(raw);
    PIN_DIRECTION direction = PINDIR_INPUT;
    if (FAILED(pin->QueryDirection(&direction)) || direction != wanted) continue;
    IPin* peer = nullptr;
    if (freeOnly && pin->ConnectedTo(&peer) == S_OK) {
      peer->Release();
      continue;
    }
    found.push_back(std::move(pin));
  }
}

ComPtr<IPin> FirstPin(IBaseFilter* filter, PIN_DIRECTION wanted, bool freeOnly) {
  std::vector<ComPtr<IPin>> pins = PinsOf(filter, wanted, freeOnly);
  return pins.empty() ? ComPtr<IPin>() : std::move(pins.front());
}

LONGLONG ToUnits(double seconds) { return static_cast<LONGLONG>(seconds * kUnitsPerSecond + 0.5); }

void FreeMediaType(AM_MEDIA_TYPE* type) {
  if (type->pbFormat != nullptr) CoTaskMemFree(type->pbFormat);
  if (type->pUnk != nullptr) type->pUnk->Release();
  type->pbFormat = nullptr;
  type->pUnk = nullptr;
  type->cbFormat = 0;
}

std::vector<ComPtr<IPin>> OutputPins(IBaseFilter* filter) { return PinsOf(filter, PINDIR_OUTPUT, false); }

std::string PinName(IPin* pin) {
  PIN_INFO info{};
  if (FAILED(pin->QueryPinInfo(&info))) return {};
  if (info.pFilter != nullptr) info.pFilter->Release();
  return WideToAnsi(info.achName);
}

std::string MappedPids(IPin* pin) {
  ComPtr<IMPEG2PIDMap> map;
  ComPtr<IEnumPIDMap> entries;
  // PutVoid stores the pointer at the end of the statement, so it is looked
  // at in the next one.
  pin->QueryInterface(IID_IMPEG2PIDMap, map.PutVoid());
  if (!map || FAILED(map->EnumPIDMap(entries.PutAddress())) || !entries) return "no PID map";
  std::string text;
  PID_MAP entry{};
  ULONG received = 0;
  while (entries->Next(1, &entry, &received) == S_OK && received == 1) {
    char pid[16];
    std::snprintf(pid, sizeof pid, "0x%04X", static_cast<unsigned>(entry.ulPID));
    text += (text.empty() ? "PID " : ", ") + std::string(pid);
    // What a filter that found no stream for the pin maps.
    if (entry.ulPID == 0) text += " (the PAT)";
  }
  return text.empty() ? "no PID" : text;
}

std::string RunToEnd(IMediaEvent* events, IMediaSeeking* seeking, std::vector<std::pair<double, double>> seeks,
                     const std::function<bool()>& quick, const std::function<void()>& onSlice,
                     std::ostream& err) {
  std::sort(seeks.begin(), seeks.end());
  std::size_t nextSeek = 0;
  std::string failure;
  for (;;) {
    LONG code = 0;
    LONG_PTR param1 = 0;
    LONG_PTR param2 = 0;
    const bool seekPending = nextSeek < seeks.size() && seeking != nullptr;
    const HRESULT hr = events->GetEvent(&code, &param1, &param2, seekPending || quick() ? kSeekSliceMs : kWaitSliceMs);
    if (hr == E_ABORT) {
      LONGLONG position = 0;
      if (seekPending && SUCCEEDED(seeking->GetCurrentPosition(&position)) &&
          position >= ToUnits(seeks[nextSeek].first)) {
        // The worker is running: the seek flushes it and sends it on.
        LONGLONG target = ToUnits(seeks[nextSeek].second);
        seeking->SetPositions(&target, AM_SEEKING_AbsolutePositioning, nullptr, 0);
        ++nextSeek;
      }
      onSlice();
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
  if (failure.empty()) {
    for (std::size_t i = nextSeek; i < seeks.size(); ++i) {
      err << "brindlet: note: the stream ended before the position " << seeks[i].first << " s of --seek-at\n";
    }
  }
  return failure;
}

bool GetControls(IFilterGraph* graph, GraphControls* controls, std::ostream& err) {
  graph->QueryInterface(IID_IMediaControl, controls->control.PutVoid());
  graph->QueryInterface(IID_IMediaEvent, controls->events.PutVoid());
  graph->QueryInterface(IID_IMediaSeeking, controls->seeking.PutVoid());
  if (!controls->control || !controls->events) {
    err << "brindlet: the filter graph cannot be run\n";
    return false;
  }
  return true;
}

CConsoleQuestion::CConsoleQuestion(std::optional<bool> answer, std::ostream& err, std::function<void()> beforePrint)
    : m_Answer(answer), m_Err(err), m_BeforePrint(std::move(beforePrint)) {
  m_Previous = SetMessageBoxHandler([this](const char* text, const char* caption, UINT type) {
    return Show(text, caption, type);
  });
}

CConsoleQuestion::~CConsoleQuestion() { SetMessageBoxHandler(m_Previous); }

int CConsoleQuestion::Show(const char* text, const char* caption, UINT type) {
  ++m_Shown;
  m_BeforePrint();
  m_Err << caption << ": " << OneLine(text) << "\n" << std::flush;
  const UINT buttons = type & MB_TYPEMASK;
  if (buttons != MB_YESNO && buttons != MB_YESNOCANCEL) return buttons == MB_OK || buttons == MB_OKCANCEL ? IDOK : IDCANCEL;
  bool yes = false;
  if (m_Answer) {
    yes = *m_Answer;
  } else if (isatty(STDIN_FILENO) != 0) {
    for (;;) {
      m_Err << "Yes or No? (y/n) " << std::flush;
      std::string reply;
      if (!std::getline(std::cin, reply)) break;
      if (reply == "y" || reply == "Y" || reply == "yes") {
        yes = true;
        break;
      }
      if (reply == "n" || reply == "N" || reply == "no") break;
    }
  }
  m_Yes = yes;
  return yes ? IDYES : IDNO;
}

CHeldNotices::CHeldNotices() {
  m_Previous = SetMessageBoxHandler([this](const char* text, const char* caption, UINT type) {
    const std::pair<std::string, std::string> notice(caption, OneLine(text));
    if (std::find(m_Held.begin(), m_Held.end(), notice) == m_Held.end()) m_Held.push_back(notice);
    const UINT buttons = type & MB_TYPEMASK;
    return buttons == MB_OK || buttons == MB_OKCANCEL ? IDOK : buttons == MB_YESNO || buttons == MB_YESNOCANCEL ? IDNO
                                                                                                          : IDCANCEL;
  });
  m_Installed = true;
}

void CHeldNotices::Stop() {
  if (m_Installed) SetMessageBoxHandler(m_Previous);
  m_Installed = false;
}

std::string CHeldNotices::Take() {
  std::string text;
  for (const auto& [caption, notice] : m_Held) text += (text.empty() ? "" : "; ") + notice;
  m_Held.clear();
  return text.empty() ? text : " (the filter said: " + text + ")";
}

void CHeldNotices::Print(std::ostream& err) const {
  for (const auto& [caption, notice] : m_Held) err << (caption.empty() ? "" : caption + ": ") << notice << "\n";
}
