#include "platform/graph/filter_graph.h"

#include <algorithm>
#include <set>

#include "platform/graph/reference_clock.h"

namespace platform_internal {

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
  std::vector<GraphMember> entries;
  {
    std::lock_guard<std::mutex> guard(m_DataLock);
    entries = m_Filters;
  }
  int renderers = 0;
  for (const GraphMember& entry : entries) {
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

}  // namespace platform_internal
