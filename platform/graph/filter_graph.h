// The platform's filter graph manager as its own units see it: the object,
// its fields and its locks. graph_manager.cpp holds the object, its filters,
// connections and clock; graph_states.cpp its state changes.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "platform/graph/control.h"
#include "platform/graph/graph_events.h"
#include "platform/graph/graph_plumbing.h"
#include "platform/graph/intelligent_connect.h"
#include "platform/graph/strmif.h"

// Locks, in the order they may be taken:
//   m_ControlLock (recursive) makes the state changes of IMediaControl and
//   the final release one at a time, and is held while they call into the
//   filters. Only those take it: filters call back into the graph from
//   under their own locks (a source's SetSyncSource lists the filters and
//   sets the graph's clock while it holds its filter lock; a source adds a
//   filter while it joins), so nothing they call may wait for it.
//   m_DataLock guards the fields and is never held while calling out, so
//   the graph holds no lock at all across JoinFilterGraph, SetSyncSource,
//   Connect or seeking calls; loops over the filters run over copies.
//   The event queue's lock is the only one IMediaEventSink takes, so a
//   worker thread can report while the host thread waits for it in Stop.

namespace platform_internal {

struct GraphMember {
  ComPtr<IBaseFilter> filter;
  ComPtr<IUnknown> identity;
  std::wstring name;
  bool flagsAnswered = false;
  bool flaggedRenderer = false;
};

inline constexpr std::size_t kMaxNameLength = MAX_FILTER_NAME - 1;
inline constexpr int kMaxNameSuffix = 9999;

class CFilterGraph final : public IGraphBuilder,
                           public IMediaControl,
                           public IMediaEvent,
                           public IMediaEventSink,
                           public IMediaFilter,
                           public IMediaSeeking {
 public:
  CFilterGraph() = default;

  // ---- IUnknown ----
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_IFilterGraph || riid == IID_IGraphBuilder) {
      *ppv = static_cast<IGraphBuilder*>(this);
    } else if (riid == IID_IMediaControl || riid == IID_IDispatch) {
      *ppv = static_cast<IMediaControl*>(this);
    } else if (riid == IID_IMediaEvent) {
      *ppv = static_cast<IMediaEvent*>(this);
    } else if (riid == IID_IMediaEventSink) {
      *ppv = static_cast<IMediaEventSink*>(this);
    } else if (riid == IID_IMediaFilter || riid == IID_IPersist) {
      *ppv = static_cast<IMediaFilter*>(this);
    } else if (riid == IID_IMediaSeeking) {
      *ppv = static_cast<IMediaSeeking*>(this);
    } else {
      *ppv = nullptr;
      return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return ++m_RefCount; }
  STDMETHODIMP_(ULONG) Release() override {
    const ULONG count = --m_RefCount;
    if (count == 0) {
      // Filters may take and drop references to the graph while it is torn
      // down; the count must not reach 0 a second time.
      m_RefCount = 1;
      Teardown();
      delete this;
    }
    return count;
  }

  // ---- IFilterGraph ----
  STDMETHODIMP AddFilter(IBaseFilter* filter, LPCWSTR name) override;
  STDMETHODIMP RemoveFilter(IBaseFilter* filter) override;
  STDMETHODIMP EnumFilters(IEnumFilters** filters) override;
  STDMETHODIMP FindFilterByName(LPCWSTR name, IBaseFilter** filter) override;
  STDMETHODIMP ConnectDirect(IPin* output, IPin* input, const AM_MEDIA_TYPE* type) override;
  STDMETHODIMP Reconnect(IPin* pin) override;
  STDMETHODIMP Disconnect(IPin* pin) override;
  STDMETHODIMP SetDefaultSyncSource() override;

  // ---- IGraphBuilder ----
  STDMETHODIMP Connect(IPin* output, IPin* input) override {
    return ConnectDirect(output, input, nullptr);
  }
  STDMETHODIMP Render(IPin* output) override {
    if (State() != State_Stopped) return VFW_E_NOT_STOPPED;
    return RenderPin(this, output);
  }
  // A play list is not taken.
  STDMETHODIMP RenderFile(LPCWSTR file, LPCWSTR playList) override {
    if (file == nullptr) return E_POINTER;
    if (playList != nullptr) return E_INVALIDARG;
    if (State() != State_Stopped) return VFW_E_NOT_STOPPED;
    return RenderFileByExtension(this, file);
  }
  STDMETHODIMP AddSourceFilter(LPCWSTR fileName, LPCWSTR filterName, IBaseFilter** filter) override {
    return AddSourceFilterByExtension(this, fileName, filterName, filter);
  }
  STDMETHODIMP SetLogFile(DWORD_PTR) override { return E_NOTIMPL; }
  STDMETHODIMP Abort() override { return E_NOTIMPL; }
  STDMETHODIMP ShouldOperationContinue() override { return E_NOTIMPL; }

  // ---- IDispatch (of IMediaControl and IMediaEvent) ----
  STDMETHODIMP GetTypeInfoCount(UINT* count) override {
    if (count != nullptr) *count = 0;
    return E_NOTIMPL;
  }
  STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo** info) override {
    if (info != nullptr) *info = nullptr;
    return E_NOTIMPL;
  }
  STDMETHODIMP GetIDsOfNames(REFIID, WCHAR**, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
  STDMETHODIMP Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                      UINT*) override {
    return E_NOTIMPL;
  }

  // ---- IMediaControl, and IMediaFilter's Stop and Pause ----
  STDMETHODIMP Run() override { return RunFrom(nullptr); }
  STDMETHODIMP Pause() override;
  STDMETHODIMP Stop() override;
  STDMETHODIMP GetState(LONG timeoutMs, OAFilterState* state) override {
    if (state == nullptr) return E_POINTER;
    FILTER_STATE filterState = State_Stopped;
    const HRESULT hr = StateOfGraph(static_cast<DWORD>(timeoutMs), &filterState);
    *state = filterState;
    return hr;
  }
  STDMETHODIMP RenderFile(BSTR file) override { return RenderFile(file, nullptr); }
  STDMETHODIMP AddSourceFilter(BSTR, IDispatch** filterInfo) override {
    if (filterInfo != nullptr) *filterInfo = nullptr;
    return E_NOTIMPL;
  }
  STDMETHODIMP get_FilterCollection(IDispatch** collection) override {
    if (collection != nullptr) *collection = nullptr;
    return E_NOTIMPL;
  }
  STDMETHODIMP get_RegFilterCollection(IDispatch** collection) override {
    if (collection != nullptr) *collection = nullptr;
    return E_NOTIMPL;
  }
  // Filters cue up in Pause, so pausing and stopping again is all it takes.
  STDMETHODIMP StopWhenReady() override {
    std::lock_guard<std::recursive_mutex> guard(m_ControlLock);
    const HRESULT hr = Pause();
    if (FAILED(hr)) return hr;
    return Stop();
  }

  // ---- IMediaEvent ----
  STDMETHODIMP GetEventHandle(OAEVENT* event) override {
    if (event != nullptr) *event = 0;
    return E_NOTIMPL;
  }
  STDMETHODIMP GetEvent(LONG* code, LONG_PTR* param1, LONG_PTR* param2, LONG timeoutMs) override {
    return m_Events.GetEvent(code, param1, param2, timeoutMs);
  }
  STDMETHODIMP WaitForCompletion(LONG timeoutMs, LONG* code) override {
    return m_Events.WaitForCompletion(timeoutMs, code);
  }
  STDMETHODIMP CancelDefaultHandling(LONG code) override {
    return m_Events.CancelDefaultHandling(code);
  }
  STDMETHODIMP RestoreDefaultHandling(LONG code) override {
    return m_Events.RestoreDefaultHandling(code);
  }
  STDMETHODIMP FreeEventParams(LONG, LONG_PTR, LONG_PTR) override { return S_OK; }

  // ---- IMediaEventSink ----
  STDMETHODIMP Notify(LONG code, LONG_PTR param1, LONG_PTR param2) override {
    m_Events.Notify(code, param1, param2);
    return S_OK;
  }

  // ---- IMediaFilter ----
  STDMETHODIMP GetClassID(CLSID* clsid) override {
    if (clsid == nullptr) return E_POINTER;
    *clsid = CLSID_FilterGraph;
    return S_OK;
  }
  STDMETHODIMP Run(REFERENCE_TIME start) override { return RunFrom(&start); }
  STDMETHODIMP GetState(DWORD timeoutMs, FILTER_STATE* state) override {
    if (state == nullptr) return E_POINTER;
    return StateOfGraph(timeoutMs, state);
  }
  STDMETHODIMP SetSyncSource(IReferenceClock* clock) override;
  STDMETHODIMP GetSyncSource(IReferenceClock** clock) override {
    if (clock == nullptr) return E_POINTER;
    *clock = CurrentClock().Detach();
    return S_OK;
  }

  // ---- IMediaSeeking, passed to the first filter that has it ----
  STDMETHODIMP GetCapabilities(DWORD* capabilities) override {
    return Seek([&](IMediaSeeking* s) { return s->GetCapabilities(capabilities); });
  }
  STDMETHODIMP CheckCapabilities(DWORD* capabilities) override {
    return Seek([&](IMediaSeeking* s) { return s->CheckCapabilities(capabilities); });
  }
  STDMETHODIMP IsFormatSupported(const GUID* format) override {
    return Seek([&](IMediaSeeking* s) { return s->IsFormatSupported(format); });
  }
  STDMETHODIMP QueryPreferredFormat(GUID* format) override {
    return Seek([&](IMediaSeeking* s) { return s->QueryPreferredFormat(format); });
  }
  STDMETHODIMP GetTimeFormat(GUID* format) override {
    return Seek([&](IMediaSeeking* s) { return s->GetTimeFormat(format); });
  }
  STDMETHODIMP IsUsingTimeFormat(const GUID* format) override {
    return Seek([&](IMediaSeeking* s) { return s->IsUsingTimeFormat(format); });
  }
  STDMETHODIMP SetTimeFormat(const GUID* format) override {
    return Seek([&](IMediaSeeking* s) { return s->SetTimeFormat(format); });
  }
  STDMETHODIMP GetDuration(LONGLONG* duration) override {
    return Seek([&](IMediaSeeking* s) { return s->GetDuration(duration); });
  }
  STDMETHODIMP GetStopPosition(LONGLONG* stop) override {
    return Seek([&](IMediaSeeking* s) { return s->GetStopPosition(stop); });
  }
  STDMETHODIMP GetCurrentPosition(LONGLONG* current) override {
    return Seek([&](IMediaSeeking* s) { return s->GetCurrentPosition(current); });
  }
  STDMETHODIMP ConvertTimeFormat(LONGLONG* target, const GUID* targetFormat, LONGLONG source,
                                 const GUID* sourceFormat) override {
    return Seek([&](IMediaSeeking* s) {
      return s->ConvertTimeFormat(target, targetFormat, source, sourceFormat);
    });
  }
  STDMETHODIMP SetPositions(LONGLONG* current, DWORD currentFlags, LONGLONG* stop,
                            DWORD stopFlags) override {
    return Seek(
        [&](IMediaSeeking* s) { return s->SetPositions(current, currentFlags, stop, stopFlags); });
  }
  STDMETHODIMP GetPositions(LONGLONG* current, LONGLONG* stop) override {
    return Seek([&](IMediaSeeking* s) { return s->GetPositions(current, stop); });
  }
  STDMETHODIMP GetAvailable(LONGLONG* earliest, LONGLONG* latest) override {
    return Seek([&](IMediaSeeking* s) { return s->GetAvailable(earliest, latest); });
  }
  STDMETHODIMP SetRate(double rate) override {
    return Seek([&](IMediaSeeking* s) { return s->SetRate(rate); });
  }
  STDMETHODIMP GetRate(double* rate) override {
    return Seek([&](IMediaSeeking* s) { return s->GetRate(rate); });
  }
  STDMETHODIMP GetPreroll(LONGLONG* preroll) override {
    return Seek([&](IMediaSeeking* s) { return s->GetPreroll(preroll); });
  }

 private:
  ~CFilterGraph() = default;

  IFilterGraph* GraphFace() { return static_cast<IGraphBuilder*>(this); }

  void Teardown();
  HRESULT RunFrom(const REFERENCE_TIME* start);
  HRESULT StateOfGraph(DWORD timeoutMs, FILTER_STATE* state);
  std::wstring UniqueNameLocked(LPCWSTR wanted, bool* renamed) const;
  GraphMember* FindLocked(IUnknown* identity);
  std::vector<ComPtr<IBaseFilter>> Filters();
  bool InGraph(IBaseFilter* filter);
  FILTER_STATE State();
  ComPtr<IReferenceClock> CurrentClock();
  REFERENCE_TIME ClockTime();
  std::vector<ComPtr<IBaseFilter>> DownstreamFirst();
  int RenderersToHearFrom();
  static void DisconnectPins(IBaseFilter* filter);

  template <class Call>
  HRESULT Seek(Call call) {
    for (const ComPtr<IBaseFilter>& filter : Filters()) {
      if (const auto seeking = Query<IMediaSeeking>(filter.Get(), IID_IMediaSeeking)) {
        return call(seeking.Get());
      }
    }
    return E_NOTIMPL;
  }

  std::recursive_mutex m_ControlLock;
  std::mutex m_DataLock;
  std::vector<GraphMember> m_Filters;      // guarded by m_DataLock, in the order added
  FILTER_STATE m_State = State_Stopped;    // guarded by m_DataLock; changed under m_ControlLock
  ComPtr<IReferenceClock> m_Clock;         // guarded by m_DataLock
  bool m_ClockChosen = false;              // guarded by m_DataLock: SetSyncSource has run
  unsigned m_ClockGeneration = 0;          // guarded by m_DataLock
  REFERENCE_TIME m_StartTime = 0;          // guarded by m_ControlLock
  REFERENCE_TIME m_StreamTimeAtPause = 0;  // guarded by m_ControlLock
  CGraphEventQueue m_Events;
  std::atomic<ULONG> m_RefCount{0};
};

}  // namespace platform_internal
