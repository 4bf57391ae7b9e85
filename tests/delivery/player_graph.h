// The graph a player builds around the filter: the platform's graph manager,
// the platform's demultiplexer behind the filter's pin (the filter wires it
// as they connect) and a null renderer on each of the demultiplexer's pins.
// Header only, so that the tests and the benchmarks share it without
// GoogleTest.
#pragma once

#include <string>
#include <vector>

#include "platform/com/com_ptr.h"
#include "platform/graph/control.h"
#include "platform/graph/graph_plumbing.h"
#include "platform/graph/mpeg2_demux.h"
#include "platform/com/objbase.h"
#include "platform/graph/stream_sinks.h"
#include "platform/graph/strmif.h"

class CPlayerGraph {
 public:
  CPlayerGraph() = default;
  ~CPlayerGraph() { TearDown(); }
  CPlayerGraph(const CPlayerGraph&) = delete;
  CPlayerGraph& operator=(const CPlayerGraph&) = delete;

  // Adds `source` (a filter that has loaded its file) and builds the rest.
  // Empty on success, else what failed.
  std::string Build(IBaseFilter* source, IPin* sourcePin) {
    CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IGraphBuilder, m_Graph.PutVoid());
    CoCreateInstance(CLSID_MPEG2Demultiplexer, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter, m_Demux.PutVoid());
    if (!m_Graph || !m_Demux) return "no graph or no demultiplexer";
    m_Source = source;
    m_Graph->AddFilter(source, L"Source");
    m_Graph->AddFilter(m_Demux.Get(), L"Demultiplexer");
    ComPtr<IPin> demuxInput;
    m_Demux->FindPin(L"MPEG-2 Stream", demuxInput.PutAddress());
    if (!demuxInput || m_Graph->ConnectDirect(sourcePin, demuxInput.Get(), nullptr) != S_OK) {
      return "the filter did not wire the demultiplexer";
    }
    for (const ComPtr<IPin>& pin : platform_internal::PinsOf(m_Demux.Get())) {
      PIN_DIRECTION direction = PINDIR_INPUT;
      if (FAILED(pin->QueryDirection(&direction)) || direction != PINDIR_OUTPUT) continue;
      ComPtr<IBaseFilter> renderer;
      ComPtr<IStreamSinkControl> counts;
      CoCreateInstance(CLSID_NullRenderer, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter, renderer.PutVoid());
      if (!renderer) return "no null renderer";
      renderer->QueryInterface(IID_IStreamSinkControl, counts.PutVoid());
      counts->SetAcceptAnyType(TRUE);
      m_Graph->AddFilter(renderer.Get(), nullptr);
      ComPtr<IPin> input;
      renderer->FindPin(L"In", input.PutAddress());
      if (!input || m_Graph->ConnectDirect(pin.Get(), input.Get(), nullptr) != S_OK) {
        return "a pin of the demultiplexer would not connect";
      }
      m_Renderers.push_back(renderer);
      m_Counts.push_back(counts);
    }
    if (m_Renderers.empty()) return "the demultiplexer has no output pins";
    m_Graph->QueryInterface(IID_IMediaControl, m_Control.PutVoid());
    m_Graph->QueryInterface(IID_IMediaEvent, m_Events.PutVoid());
    m_Graph->QueryInterface(IID_IMediaSeeking, m_Seeking.PutVoid());
    if (!m_Control || !m_Events || !m_Seeking) return "the graph lacks its control interfaces";
    return {};
  }

  IMediaControl* Control() const { return m_Control.Get(); }
  IMediaEvent* Events() const { return m_Events.Get(); }
  IMediaSeeking* Seeking() const { return m_Seeking.Get(); }
  // Samples the renderers took since the last pause out of stopped.
  LONGLONG SamplesRendered() const {
    LONGLONG total = 0;
    for (const ComPtr<IStreamSinkControl>& counts : m_Counts) {
      LONGLONG samples = 0;
      if (SUCCEEDED(counts->GetCounts(&samples, nullptr, nullptr, nullptr, nullptr))) total += samples;
    }
    return total;
  }
  // Each renderer holds every sample this long, as a slow consumer would.
  void SetSampleDelay(DWORD microseconds) const {
    for (const ComPtr<IStreamSinkControl>& counts : m_Counts) counts->SetSampleDelay(microseconds);
  }

  // Stops the graph and takes every filter out, so that the pins let go of
  // each other and of the source.
  void TearDown() {
    if (!m_Graph) return;
    if (m_Control) m_Control->Stop();
    for (const ComPtr<IBaseFilter>& renderer : m_Renderers) m_Graph->RemoveFilter(renderer.Get());
    if (m_Demux) m_Graph->RemoveFilter(m_Demux.Get());
    if (m_Source != nullptr) m_Graph->RemoveFilter(m_Source);
    m_Renderers.clear();
    m_Counts.clear();
    m_Control = nullptr;
    m_Events = nullptr;
    m_Seeking = nullptr;
    m_Demux = nullptr;
    m_Graph = nullptr;
  }

 private:
  ComPtr<IGraphBuilder> m_Graph;
  ComPtr<IBaseFilter> m_Demux;
  IBaseFilter* m_Source = nullptr;  // the caller's
  std::vector<ComPtr<IBaseFilter>> m_Renderers;
  std::vector<ComPtr<IStreamSinkControl>> m_Counts;
  ComPtr<IMediaControl> m_Control;
  ComPtr<IMediaEvent> m_Events;
  ComPtr<IMediaSeeking> m_Seeking;
};
