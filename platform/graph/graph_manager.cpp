#include "platform/graph/graph_manager.h"

#include <cwchar>

#include "platform/graph/filter_graph.h"
#include "platform/graph/reference_clock.h"

namespace platform_internal {

// ---- Filters ----
std::wstring CFilterGraph::UniqueNameLocked(LPCWSTR wanted, bool* renamed) const {
  std::wstring base = wanted != nullptr && wanted[0] != L'\0' ? wanted : L"Filter";
  if (base.size() > kMaxNameLength) base.resize(kMaxNameLength);
  const auto taken = [this](const std::wstring& name) {
    for (const GraphMember& entry : m_Filters) {
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

GraphMember* CFilterGraph::FindLocked(IUnknown* identity) {
  for (GraphMember& entry : m_Filters) {
    if (entry.identity.Get() == identity) return &entry;
  }
  return nullptr;
}

std::vector<ComPtr<IBaseFilter>> CFilterGraph::Filters() {
  std::lock_guard<std::mutex> guard(m_DataLock);
  std::vector<ComPtr<IBaseFilter>> filters;
  filters.reserve(m_Filters.size());
  for (const GraphMember& entry : m_Filters) filters.push_back(entry.filter);
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
    std::erase_if(m_Filters, [&](GraphMember& e) {
      if (e.identity.Get() != identity.Get()) return false;
      refused = std::move(e.filter);
      return true;
    });
    return joined;
  }

  if (const auto flags = Query<IAMFilterMiscFlags>(filter, IID_IAMFilterMiscFlags)) {
    const ULONG misc = flags->GetMiscFlags();
    std::lock_guard<std::mutex> guard(m_DataLock);
    if (GraphMember* entry = FindLocked(identity.Get())) {
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
    GraphMember* entry = FindLocked(identity.Get());
    if (entry == nullptr) return VFW_E_NOT_FOUND;
    held = std::move(entry->filter);
    std::erase_if(m_Filters,
                  [&](const GraphMember& e) { return e.identity.Get() == identity.Get(); });
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
  for (const GraphMember& entry : m_Filters) {
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

HRESULT CreateFilterGraph(IUnknown* outer, REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  if (outer != nullptr) return CLASS_E_NOAGGREGATION;
  ComPtr<IGraphBuilder> graph(new CFilterGraph);
  return graph->QueryInterface(riid, ppv);
}

}  // namespace platform_internal
