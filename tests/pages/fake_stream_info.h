// A stand-in for the filter as the pages see it: ITsStreamInfo and
// IAMStreamSelect with answers a test sets, and a record of the calls to
// Enable. It lives on the test's stack and counts its references, so a
// test can check that a page let go of it.
#pragma once

#include <algorithm>
#include <atomic>
#include <map>
#include <string>
#include <vector>

#include "control/ts_stream_info.h"
#include "platform/com/com_memory.h"
#include "platform/graph/strmif.h"
#include "platform/win32/codepage.h"

namespace pages {

class CFakeStreamInfo final : public ITsStreamInfo, public IAMStreamSelect {
 public:
  struct Stream {
    BYTE type;
    WORD pid;
  };
  struct Program {
    WORD number;
    std::vector<Stream> streams;
  };
  struct Track {
    std::string name;
    std::string pid;  // what "AUDIOPID" answers while it is selected
    std::string type;
    std::string format;
  };

  // What the filter knows; change freely between calls.
  WORD transportStreamId = 0;
  BYTE patVersion = 0;
  std::vector<Program> programs;
  // Set: the filter stands for one implied program 1 with these streams.
  bool impliedProgram = false;
  std::vector<Stream> impliedStreams;
  std::map<std::string, std::string> texts;  // keyword, exactly as asked -> answer
  bool offersStreamSelect = true;
  std::vector<Track> tracks;
  LONG selectedTrack = 0;
  bool acceptsEnable = true;
  std::vector<std::pair<LONG, DWORD>> enableCalls;

  ULONG References() const { return m_Refs; }

  // IUnknown
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if (riid == IID_IUnknown || riid == IID_ITsStreamInfo) {
      *ppv = static_cast<ITsStreamInfo*>(this);
    } else if (riid == IID_IAMStreamSelect && offersStreamSelect) {
      *ppv = static_cast<IAMStreamSelect*>(this);
    } else {
      return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return ++m_Refs; }
  STDMETHODIMP_(ULONG) Release() override { return --m_Refs; }

  // ITsStreamInfo
  STDMETHODIMP GetTransportStreamId(WORD* id) override { return Out(id, transportStreamId); }
  STDMETHODIMP GetPatVersion(BYTE* version) override { return Out(version, patVersion); }
  STDMETHODIMP GetProgramCount(DWORD* count) override {
    return Out(count, impliedProgram ? 1u : static_cast<DWORD>(programs.size()));
  }
  STDMETHODIMP GetProgramNumber(LONG index, WORD* number) override {
    if (impliedProgram) return Out(number, WORD{1});
    if (index < 0 || index >= static_cast<LONG>(programs.size())) return E_INVALIDARG;
    return Out(number, programs[static_cast<std::size_t>(index)].number);
  }
  STDMETHODIMP GetPmtPidByIndex(LONG, WORD*) override { return E_NOTIMPL; }
  STDMETHODIMP GetPmtPid(WORD, WORD*) override { return E_NOTIMPL; }
  STDMETHODIMP GetPmtVersion(WORD, BYTE*) override { return E_NOTIMPL; }
  STDMETHODIMP GetStreamCount(WORD number, WORD* count) override {
    const std::vector<Stream>* streams = StreamsOf(number);
    return streams != nullptr ? Out(count, static_cast<WORD>(streams->size())) : E_INVALIDARG;
  }
  STDMETHODIMP GetStreamType(WORD number, DWORD index, BYTE* type) override {
    const std::vector<Stream>* streams = StreamsOf(number);
    if (streams == nullptr || index >= streams->size()) return E_INVALIDARG;
    return Out(type, (*streams)[index].type);
  }
  STDMETHODIMP GetStreamPid(WORD number, DWORD index, WORD* pid) override {
    const std::vector<Stream>* streams = StreamsOf(number);
    if (streams == nullptr || index >= streams->size()) return E_INVALIDARG;
    return Out(pid, (*streams)[index].pid);
  }
  STDMETHODIMP QueryText(LPCWSTR keyword, LPWSTR* text) override {
    if (keyword == nullptr || text == nullptr) return E_INVALIDARG;
    *text = nullptr;
    const std::string answer = Answer(WideToAnsi(keyword));
    if (answer.empty()) return S_OK;
    const std::wstring wide = AnsiToWide(answer);
    *text = static_cast<LPWSTR>(CoTaskMemAlloc((wide.size() + 1) * sizeof(WCHAR)));
    if (*text == nullptr) return E_OUTOFMEMORY;
    std::copy(wide.c_str(), wide.c_str() + wide.size() + 1, *text);
    return S_OK;
  }

  // IAMStreamSelect
  STDMETHODIMP Count(DWORD* count) override { return Out(count, static_cast<DWORD>(tracks.size())); }
  STDMETHODIMP Info(LONG index, AM_MEDIA_TYPE** type, DWORD* flags, LCID* lcid, DWORD* group, LPWSTR* name,
                    IUnknown** object, IUnknown** unknown) override {
    if (index < 0 || index >= static_cast<LONG>(tracks.size())) return E_INVALIDARG;
    // The pages ask for flags and the name only.
    if (type != nullptr || lcid != nullptr || group != nullptr || object != nullptr || unknown != nullptr) {
      return E_UNEXPECTED;
    }
    if (flags != nullptr) *flags = index == selectedTrack ? AMSTREAMSELECTINFO_ENABLED : 0;
    if (name != nullptr) {
      const std::wstring wide = AnsiToWide(tracks[static_cast<std::size_t>(index)].name);
      *name = static_cast<LPWSTR>(CoTaskMemAlloc((wide.size() + 1) * sizeof(WCHAR)));
      if (*name == nullptr) return E_OUTOFMEMORY;
      std::copy(wide.c_str(), wide.c_str() + wide.size() + 1, *name);
    }
    return S_OK;
  }
  STDMETHODIMP Enable(LONG index, DWORD flags) override {
    enableCalls.emplace_back(index, flags);
    if (!acceptsEnable || index < 0 || index >= static_cast<LONG>(tracks.size())) return E_INVALIDARG;
    selectedTrack = index;
    return S_OK;
  }

 private:
  template <class T, class V>
  static HRESULT Out(T* out, V value) {
    if (out == nullptr) return E_INVALIDARG;
    *out = static_cast<T>(value);
    return S_OK;
  }

  const std::vector<Stream>* StreamsOf(WORD number) const {
    for (const Program& program : programs) {
      if (program.number == number) return &program.streams;
    }
    return impliedProgram ? &impliedStreams : nullptr;
  }

  std::string Answer(const std::string& keyword) const {
    const bool audio = keyword == "AUDIOPID" || keyword == "AUDIOTYPE" || keyword == "AUDIOFORMAT";
    if (audio && selectedTrack >= 0 && selectedTrack < static_cast<LONG>(tracks.size())) {
      const Track& track = tracks[static_cast<std::size_t>(selectedTrack)];
      return keyword == "AUDIOPID" ? track.pid : keyword == "AUDIOTYPE" ? track.type : track.format;
    }
    const auto found = texts.find(keyword);
    return found != texts.end() ? found->second : std::string();
  }

  std::atomic<ULONG> m_Refs{0};
};

}  // namespace pages
