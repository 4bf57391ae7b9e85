#include "platform/graph/graph_manager.h"

#include <atomic>
#include <cwchar>
#include <mutex>
#include <string>
#include <vector>

#include "platform/graph/control.h"
#include "platform/graph/graph_events.h"
#include "platform/graph/graph_plumbing.h"
#include "platform/graph/intelligent_connect.h"
#include "platform/graph/reference_clock.h"
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

namespace {

struct FilterEntry {
  ComPtr<IBaseFilter> filter;
  ComPtr<IUnknown> identity;
  std::wstring name;
  bool flagsAnswered = false;
  bool flaggedRenderer = false;
};

constexpr std::size_t kMaxNameLength = MAX_FILTER_NAME - 1;
constexpr int kMaxNameSuffix = 9999;

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
  FilterEntry* FindLocked(IUnknown* identity);
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
  std::vector<FilterEntry> m_Filters;      // guarded by m_DataLock, in the order added
  FILTER_STATE m_State = State_Stopped;    // guarded by m_DataLock; changed under m_ControlLock
  ComPtr<IReferenceClock> m_Clock;         // guarded by m_DataLock
  bool m_ClockChosen = false;              // guarded by m_DataLock: SetSyncSource has run
  unsigned m_ClockGeneration = 0;          // guarded by m_DataLock
  REFERENCE_TIME m_StartTime = 0;          // guarded by m_ControlLock
  REFERENCE_TIME m_StreamTimeAtPause = 0;  // guarded by m_ControlLock
  CGraphEventQueue m_Events;
  std::atomic<ULONG> m_RefCount{0};
};

// ---- Filters ----
std::wstring CFilterGraph::UniqueNameLocked(LPCWSTR wanted, bool* renamed) const {
  std::wstring base = wanted != nullptr && wanted[0] != L'\0' ? wanted : L"Filter";
  if (base.size() > kMaxNameLength) base.resize(kMaxNameLength);
  const auto taken = [this](const std::wstring& name) {
    for (const FilterEntry& entry : m_Filters) {
      if (entry.name == name) return true;
    }
    return false;
  };
  *renamed = false;
  if (!taken(base)) return base;
  *renamed = true;
  constexpr std::size_t kSuffixLength = 5;  // " 0001"
  if (base.size() > kMaxNameLength - kSuffixLength) base.resize(kMaxNameLength - kSuffixLength);
  for (int n = 1; n <= kMaxNameSuffix; ++n) {
    wchar_t suffix[8];
    std::swprintf(suffix, 8, L" %04d", n);
    if (!taken(base + suffix)) return base + suffix;
  }
  return std::wstring();
}

FilterEntry* CFilterGraph::FindLocked(IUnknown* identity) {
  for (FilterEntry& entry : m_Filters) {
    if (entry.identity.Get() == identity) return &entry;
  }
  return nullptr;
}

std::vector<ComPtr<IBaseFilter>> CFilterGraph::Filters() {
  std::lock_guard<std::mutex> guard(m_DataLock);
  std::vector<ComPtr<IBaseFilter>> filters;
  filters.reserve(m_Filters.size());
  for (const FilterEntry& entry : m_Filters) filters.push_back(entry.filter);
  return filters;
}

bool CFilterGraph::InGraph(IBaseFilter* filter) {
  const ComPtr<IUnknown> identity = IdentityOf(filter);
  std::lock_guard<std::mutex> guard(m_DataLock);
  return identity && FindLocked(identity.Get()) != nullptr;
}

FILTER_STATE CFilterGraph::State() {
  std::lock_guard<std::mutex> guard(m_DataLock);
  return m_State;
}

ComPtr<IReferenceClock> CFilterGraph::CurrentClock() {
  std::lock_guard<std::mutex> guard(m_DataLock);
  return m_Clock;
}

STDMETHODIMP CFilterGraph::AddFilter(IBaseFilter* filter, LPCWSTR name) {
  if (filter == nullptr) return E_POINTER;
  const ComPtr<IUnknown> identity = IdentityOf(filter);
  if (!identity) return E_NOINTERFACE;
  bool renamed = false;
  std::wstring unique;
  {
    std::lock_guard<std::mutex> guard(m_DataLock);
    if (FindLocked(identity.Get()) != nullptr) return E_INVALIDARG;
    unique = UniqueNameLocked(name, &renamed);
    if (unique.empty()) return VFW_E_DUPLICATE_NAME;
    m_Filters.push_back({ComPtr<IBaseFilter>(filter), identity, unique});
  }

  const HRESULT joined = filter->JoinFilterGraph(GraphFace(), unique.c_str());
  if (FAILED(joined)) {
    ComPtr<IBaseFilter> refused;  // released after the lock
    std::lock_guard<std::mutex> guard(m_DataLock);
    std::erase_if(m_Filters, [&](FilterEntry& e) {
      if (e.identity.Get() != identity.Get()) return false;
      refused = std::move(e.filter);
      return true;
    });
    return joined;
  }

  if (const auto flags = Query<IAMFilterMiscFlags>(filter, IID_IAMFilterMiscFlags)) {
    const ULONG misc = flags->GetMiscFlags();
    std::lock_guard<std::mutex> guard(m_DataLock);
    if (FilterEntry* entry = FindLocked(identity.Get())) {
      entry->flagsAnswered = true;
      entry->flaggedRenderer = (misc & AM_FILTER_MISC_FLAGS_IS_RENDERER) != 0;
    }
  }
  if (const ComPtr<IReferenceClock> clock = CurrentClock()) filter->SetSyncSource(clock.Get());
  return renamed ? VFW_S_DUPLICATE_NAME : S_OK;
}

void CFilterGraph::DisconnectPins(IBaseFilter* filter) {
  for (const ComPtr<IPin>& pin : PinsOf(filter)) {
    if (ComPtr<IPin> peer = PeerOf(pin.Get())) {
      pin->Disconnect();
      peer->Disconnect();
    }
  }
}

STDMETHODIMP CFilterGraph::RemoveFilter(IBaseFilter* filter) {
  if (filter == nullptr) return E_POINTER;
  const ComPtr<IUnknown> identity = IdentityOf(filter);
  ComPtr<IBaseFilter> held;
  bool wasClock = false;
  FILTER_STATE state = State_Stopped;
  {
    std::lock_guard<std::mutex> guard(m_DataLock);
    FilterEntry* entry = FindLocked(identity.Get());
    if (entry == nullptr) return VFW_E_NOT_FOUND;
    held = std::move(entry->filter);
    std::erase_if(m_Filters,
                  [&](const FilterEntry& e) { return e.identity.Get() == identity.Get(); });
    state = m_State;
    wasClock = m_Clock && IdentityOf(m_Clock.Get()).Get() == identity.Get();
  }
  if (state != State_Stopped) held->Stop();
  DisconnectPins(held.Get());
  // A filter that is its own clock holds itself through it; dropping the
  // clock breaks that loop. Without its clock, the graph picks another at
  // the next pause out of stopped.
  held->SetSyncSource(nullptr);
  if (wasClock) {
    SetSyncSource(nullptr);
    std::lock_guard<std::mutex> guard(m_DataLock);
    m_ClockChosen = false;
  }
  held->JoinFilterGraph(nullptr, nullptr);
  return S_OK;
}

STDMETHODIMP CFilterGraph::EnumFilters(IEnumFilters** filters) {
  if (filters == nullptr) return E_POINTER;
  auto* created = new CEnumSnapshot<IEnumFilters, IBaseFilter>(IID_IEnumFilters, Filters());
  created->AddRef();
  *filters = created;
  return S_OK;
}

STDMETHODIMP CFilterGraph::FindFilterByName(LPCWSTR name, IBaseFilter** filter) {
  if (name == nullptr || filter == nullptr) return E_POINTER;
  *filter = nullptr;
  std::lock_guard<std::mutex> guard(m_DataLock);
  for (const FilterEntry& entry : m_Filters) {
    if (entry.name == name) {
      *filter = ComPtr<IBaseFilter>(entry.filter).Detach();
      return S_OK;
    }
  }
  return VFW_E_NOT_FOUND;
}

// ---- Connections ----

STDMETHODIMP CFilterGraph::ConnectDirect(IPin* output, IPin* input, const AM_MEDIA_TYPE* type) {
  if (output == nullptr || input == nullptr) return E_POINTER;
  if (State() != State_Stopped) return VFW_E_NOT_STOPPED;
  for (IPin* pin : {output, input}) {
    if (!InGraph(OwnerOf(pin).Get())) return VFW_E_NOT_IN_GRAPH;
  }
  if (!IsOutputPin(output) || IsOutputPin(input)) return VFW_E_INVALID_DIRECTION;
  // The output pin drives the connection, as the platform's pins expect.
  return output->Connect(input, type);
}

STDMETHODIMP CFilterGraph::Reconnect(IPin* pin) {
  if (pin == nullptr) return E_POINTER;
  if (State() != State_Stopped) return VFW_E_NOT_STOPPED;
  const ComPtr<IPin> peer = PeerOf(pin);
  if (!peer) return VFW_E_NOT_CONNECTED;
  AM_MEDIA_TYPE type{};
  HRESULT hr = pin->ConnectionMediaType(&type);
  if (FAILED(hr)) return hr;
  const bool pinIsOutput = IsOutputPin(pin);
  IPin* output = pinIsOutput ? pin : peer.Get();
  IPin* input = pinIsOutput ? peer.Get() : pin;
  output->Disconnect();
  input->Disconnect();
  hr = output->Connect(input, &type);
  ClearMediaType(&type);
  return hr;
}

STDMETHODIMP CFilterGraph::Disconnect(IPin* pin) {
  if (pin == nullptr) return E_POINTER;
  return pin->Disconnect();
}

// ---- Clock ----

STDMETHODIMP CFilterGraph::SetDefaultSyncSource() {
  ComPtr<IReferenceClock> clock;
  for (const ComPtr<IBaseFilter>& filter : Filters()) {
    clock = Query<IReferenceClock>(filter.Get(), IID_IReferenceClock);
    if (clock) break;
  }
  if (!clock) {
    const HRESULT hr = CreateSystemClock(nullptr, IID_IReferenceClock, clock.PutVoid());
    if (FAILED(hr)) return hr;
  }
  return SetSyncSource(clock.Get());
}

STDMETHODIMP CFilterGraph::SetSyncSource(IReferenceClock* clock) {
  ComPtr<IReferenceClock> previous;  // released after the lock
  unsigned generation = 0;
  {
    std::lock_guard<std::mutex> guard(m_DataLock);
    previous = std::move(m_Clock);
    m_Clock = clock;
    m_ClockChosen = true;
    generation = ++m_ClockGeneration;
  }
  for (const ComPtr<IBaseFilter>& filter : Filters()) {
    filter->SetSyncSource(clock);
    // A filter that chose another clock from inside this call has given it
    // to every filter already; going on would hand out the old one.
    std::lock_guard<std::mutex> guard(m_DataLock);
    if (m_ClockGeneration != generation) break;
  }
  return S_OK;
}

REFERENCE_TIME CFilterGraph::ClockTime() {
  REFERENCE_TIME now = 0;
  const ComPtr<IReferenceClock> clock = CurrentClock();
  if (clock && FAILED(clock->GetTime(&now))) now = 0;
  return now;
}

// ---- States ----

// Post-order over the output connections, so every filter comes after all
// the filters it feeds; filters that nothing connects keep their order.
std::vector<ComPtr<IBaseFilter>> CFilterGraph::DownstreamFirst() {
  const std::vector<ComPtr<IBaseFilter>> filters = Filters();
  std::vector<ComPtr<IUnknown>> identities;
  for (const ComPtr<IBaseFilter>& filter : filters) identities.push_back(IdentityOf(filter.Get()));
  std::vector<bool> visited(filters.size(), false);
  std::vector<ComPtr<IBaseFilter>> order;

  const auto indexOf = [&](IUnknown* identity) {
    for (std::size_t i = 0; i < identities.size(); ++i) {
      if (identities[i].Get() == identity) return i;
    }
    return identities.size();
  };
  const auto visit = [&](const auto& self, std::size_t i) -> void {
    if (visited[i]) return;
    visited[i] = true;
    for (const ComPtr<IPin>& pin : PinsOf(filters[i].Get())) {
      if (!IsOutputPin(pin.Get())) continue;
      const ComPtr<IPin> peer = PeerOf(pin.Get());
      const ComPtr<IBaseFilter> next = OwnerOf(peer.Get());
      const std::size_t j = indexOf(IdentityOf(next.Get()).Get());
      if (j < filters.size()) self(self, j);
    }
    order.push_back(filters[i]);
  };
  for (std::size_t i = 0; i < filters.size(); ++i) visit(visit, i);
  return order;
}

int CFilterGraph::RenderersToHearFrom() {
  std::vector<FilterEntry> entries;
  {
    std::lock_guard<std::mutex> guard(m_DataLock);
    entries = m_Filters;
  }
  int renderers = 0;
  for (const FilterEntry& entry : entries) {
    bool hasInput = false;
    bool hasOutput = false;
    bool inputConnected = false;
    for (const ComPtr<IPin>& pin : PinsOf(entry.filter.Get())) {
      if (IsOutputPin(pin.Get())) {
        hasOutput = true;
      } else {
        hasInput = true;
        if (PeerOf(pin.Get())) inputConnected = true;
      }
    }
    const bool renderer = entry.flagsAnswered ? entry.flaggedRenderer : hasInput && !hasOutput;
    if (renderer && inputConnected) ++renderers;
  }
  return renderers;
}

STDMETHODIMP CFilterGraph::Pause() {
  std::lock_guard<std::recursive_mutex> control(m_ControlLock);
  const FILTER_STATE from = State();
  if (from == State_Paused) return S_OK;
  if (from == State_Stopped) {
    bool chosen = false;
    {
      std::lock_guard<std::mutex> guard(m_DataLock);
      chosen = m_ClockChosen;
    }
    if (!chosen) {
      const HRESULT hr = SetDefaultSyncSource();
      if (FAILED(hr)) return hr;
    }
    m_Events.BeginStreaming(RenderersToHearFrom());
  } else {
    m_StreamTimeAtPause = ClockTime() - m_StartTime;
  }
  const std::vector<ComPtr<IBaseFilter>> order = DownstreamFirst();
  HRESULT result = S_OK;
  for (const ComPtr<IBaseFilter>& filter : order) {
    const HRESULT hr = filter->Pause();
    if (FAILED(hr)) {
      if (from == State_Stopped) {
        m_Events.EndStreaming();
        for (const ComPtr<IBaseFilter>& f : order) f->Stop();
        return hr;
      }
      if (SUCCEEDED(result)) result = hr;
    } else if (hr != S_OK && result == S_OK) {
      result = hr;  // a filter still on its way: S_FALSE
    }
  }
  if (from == State_Stopped) m_StreamTimeAtPause = 0;
  std::lock_guard<std::mutex> guard(m_DataLock);
  m_State = State_Paused;
  return result;
}

HRESULT CFilterGraph::RunFrom(const REFERENCE_TIME* start) {
  std::lock_guard<std::recursive_mutex> control(m_ControlLock);
  const FILTER_STATE from = State();
  if (from == State_Running) return S_OK;
  if (from == State_Stopped) {
    const HRESULT hr = Pause();
    if (FAILED(hr)) return hr;
  }
  // Resuming goes on at the stream time where the pause left it.
  m_StartTime = start != nullptr ? *start : ClockTime() - m_StreamTimeAtPause;
  HRESULT result = S_OK;
  for (const ComPtr<IBaseFilter>& filter : DownstreamFirst()) {
    const HRESULT hr = filter->Run(m_StartTime);
    if (FAILED(hr) && SUCCEEDED(result)) result = hr;
  }
  std::lock_guard<std::mutex> guard(m_DataLock);
  m_State = State_Running;
  return result;
}

STDMETHODIMP CFilterGraph::Stop() {
  std::lock_guard<std::recursive_mutex> control(m_ControlLock);
  // The queue forgets completion first, so a renderer that finishes while
  // the filters stop does not complete the next run.
  m_Events.EndStreaming();
  if (State() == State_Stopped) return S_OK;
  HRESULT result = S_OK;
  for (const ComPtr<IBaseFilter>& filter : DownstreamFirst()) {
    const HRESULT hr = filter->Stop();
    if (FAILED(hr) && SUCCEEDED(result)) result = hr;
  }
  m_StreamTimeAtPause = 0;
  std::lock_guard<std::mutex> guard(m_DataLock);
  m_State = State_Stopped;
  return result;
}

HRESULT CFilterGraph::StateOfGraph(DWORD timeoutMs, FILTER_STATE* state) {
  *state = State();
  HRESULT result = S_OK;
  for (const ComPtr<IBaseFilter>& filter : Filters()) {
    FILTER_STATE filterState = State_Stopped;
    if (filter->GetState(timeoutMs, &filterState) == VFW_S_STATE_INTERMEDIATE) {
      result = VFW_S_STATE_INTERMEDIATE;
    }
  }
  return result;
}

void CFilterGraph::Teardown() {
  std::lock_guard<std::recursive_mutex> control(m_ControlLock);
  Stop();
  // Connected pins hold each other, so disconnecting is what lets the
  // filters go; the last added goes first.
  for (;;) {
    ComPtr<IBaseFilter> filter;
    {
      std::lock_guard<std::mutex> guard(m_DataLock);
      if (m_Filters.empty()) break;
      filter = std::move(m_Filters.back().filter);
      m_Filters.pop_back();
    }
    DisconnectPins(filter.Get());
    filter->SetSyncSource(nullptr);
    filter->JoinFilterGraph(nullptr, nullptr);
  }
  ComPtr<IReferenceClock> clock;
  std::lock_guard<std::mutex> guard(m_DataLock);
  clock = std::move(m_Clock);
}

}  // namespace

HRESULT CreateFilterGraph(IUnknown* outer, REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  if (outer != nullptr) return CLASS_E_NOAGGREGATION;
  ComPtr<IGraphBuilder> graph(new CFilterGraph);
  return graph->QueryInterface(riid, ppv);
}

}  // namespace platform_internal
