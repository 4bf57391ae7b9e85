#include "platform/mpeg2_demultiplexer.h"

#include <algorithm>
#include <cwchar>
#include <utility>

#include "platform/graph/graph_plumbing.h"

namespace platform_internal {

namespace {

// PTS differences beyond half the 33-bit range are steps backwards.
constexpr std::int64_t kPtsHalfRange = std::int64_t{1} << 32;
constexpr std::int64_t kPtsRange = std::int64_t{1} << 33;

}  // namespace

// ---- The stream ----

void CMpeg2Demultiplexer::ProcessBytes(std::span<const std::uint8_t> data) {
  if (!m_Carry.empty()) {
    const std::size_t take = std::min(kTsPacketSize - m_Carry.size(), data.size());
    m_Carry.insert(m_Carry.end(), data.begin(), data.begin() + static_cast<std::ptrdiff_t>(take));
    data = data.subspan(take);
    if (m_Carry.size() < kTsPacketSize) return;
    ProcessPacket(TsPacketBytes(m_Carry.data(), kTsPacketSize));
    m_Carry.clear();
  }
  while (!data.empty()) {
    if (data[0] != kTsSyncByte) {
      // Lost: the next sync byte that a packet later is followed by another
      // (or by the end of what there is) is taken as a packet start.
      std::size_t at = 1;
      while (at < data.size() &&
             (data[at] != kTsSyncByte ||
              (at + kTsPacketSize < data.size() && data[at + kTsPacketSize] != kTsSyncByte))) {
        ++at;
      }
      data = data.subspan(at);
      continue;
    }
    if (data.size() < kTsPacketSize) {
      m_Carry.assign(data.begin(), data.end());
      return;
    }
    ProcessPacket(data.first<kTsPacketSize>());
    data = data.subspan(kTsPacketSize);
  }
}

void CMpeg2Demultiplexer::ProcessPacket(TsPacketBytes bytes) {
  TsPacket packet;
  if (!ParseTsPacket(bytes, &packet)) return;
  const Route& route = (*m_ActiveRoutes)[packet.pid];
  if (route.pin == nullptr) return;
  if (route.content == MEDIA_TRANSPORT_PACKET) {
    if (std::find(m_QueuedPins.begin(), m_QueuedPins.end(), route.pin) == m_QueuedPins.end()) {
      m_QueuedPins.push_back(route.pin);
    }
    route.pin->QueuePacket(bytes);
    return;
  }
  Assembly& assembly = m_Assemblies[packet.pid];
  if (!assembly.assembler) {
    const std::uint16_t pid = packet.pid;
    assembly.assembler =
        std::make_unique<CPesReassembler>([this, pid](const PesPacket& pes) { DeliverPes(pid, pes); });
  } else if (assembly.generation != route.generation) {
    // A PID moved to another pin: what was half made for the old one is dropped.
    assembly.assembler->Reset();
  }
  assembly.generation = route.generation;
  assembly.assembler->Push(packet);
}

void CMpeg2Demultiplexer::DeliverPes(std::uint16_t pid, const PesPacket& pes) {
  const Route& route = (*m_ActiveRoutes)[pid];
  if (route.pin == nullptr || route.content != MEDIA_ELEMENTARY_STREAM) return;
  if (pes.pts) {
    const REFERENCE_TIME start = TimeOf(*pes.pts);
    route.pin->Deliver(pes.payload, &start, true, pes.discontinuity);
  } else {
    route.pin->Deliver(pes.payload, nullptr, false, pes.discontinuity);
  }
}

// 90 kHz ticks since the first PTS of the segment, in 100 ns units. Each
// step is taken as the shorter way round the 33-bit circle, so a wrap goes
// on counting and a PTS a little before the first gives a negative time.
REFERENCE_TIME CMpeg2Demultiplexer::TimeOf(std::uint64_t pts) {
  if (!m_HaveFirstPts) {
    m_HaveFirstPts = true;
    m_PtsSinceFirst = 0;
  } else {
    auto step = static_cast<std::int64_t>((pts - m_LastPts) & kPtsMask);
    if (step >= kPtsHalfRange) step -= kPtsRange;
    m_PtsSinceFirst += step;
  }
  m_LastPts = pts;
  return m_SegmentStart + m_PtsSinceFirst * 1000 / 9;
}

HRESULT CMpeg2Demultiplexer::ReceiveGate() {
  const std::uint64_t version = m_StreamVersion.load(std::memory_order_acquire);
  if (version != m_SeenVersion) {
    std::lock_guard<std::mutex> guard(m_Lock);
    if (m_State == State_Stopped) {
      m_SeenGate = VFW_E_WRONG_STATE;
    } else if (m_Flushing) {
      m_SeenGate = S_FALSE;
    } else if (!m_InputPeer) {
      m_SeenGate = VFW_E_NOT_CONNECTED;
    } else {
      m_SeenGate = S_OK;
    }
    m_SeenRoutes = m_PublishedRoutes;
    m_SeenVersion = m_StreamVersion.load(std::memory_order_relaxed);
  }
  return m_SeenGate;
}

void CMpeg2Demultiplexer::ResetStreamLocked() {
  m_Carry.clear();
  for (Assembly& assembly : m_Assemblies) {
    if (assembly.assembler) assembly.assembler->Reset();
  }
  std::lock_guard<std::mutex> guard(m_Lock);
  for (CDemuxOutputPin* pin : OutputsLocked()) pin->Restart();
}

// ---- The filter ----

CMpeg2Demultiplexer::CMpeg2Demultiplexer()
    : m_PublishedRoutes(std::make_shared<const RouteTable>()) {}

CMpeg2Demultiplexer::~CMpeg2Demultiplexer() { ClearMediaType(&m_InputType); }

STDMETHODIMP CMpeg2Demultiplexer::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IUnknown || riid == IID_IPersist || riid == IID_IMediaFilter ||
      riid == IID_IBaseFilter) {
    *ppv = static_cast<IBaseFilter*>(this);
  } else if (riid == IID_IMpeg2Demultiplexer) {
    *ppv = static_cast<IMpeg2Demultiplexer*>(this);
  } else if (riid == IID_IAMFilterMiscFlags) {
    *ppv = static_cast<IAMFilterMiscFlags*>(this);
  } else {
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  AddRef();
  return S_OK;
}

STDMETHODIMP_(ULONG) CMpeg2Demultiplexer::Release() {
  const ULONG count = --m_RefCount;
  if (count == 0) delete this;
  return count;
}

STDMETHODIMP CMpeg2Demultiplexer::GetClassID(CLSID* clsid) {
  if (clsid == nullptr) return E_POINTER;
  *clsid = CLSID_MPEG2Demultiplexer;
  return S_OK;
}

STDMETHODIMP CMpeg2Demultiplexer::Stop() {
  {
    std::lock_guard<std::mutex> guard(m_Lock);
    if (m_State == State_Stopped) return S_OK;
    m_State = State_Stopped;
    NoteStreamChangeLocked();
    // Wakes a delivery waiting for a buffer, so the stream lock comes free.
    for (CDemuxOutputPin* pin : OutputsLocked()) pin->DecommitLocked();
  }
  // Waits for a Receive under way; a later one finds the filter stopped.
  std::lock_guard<std::mutex> stream(m_ReceiveLock);
  ResetStreamLocked();
  return S_OK;
}

STDMETHODIMP CMpeg2Demultiplexer::Pause() {
  {
    // From running, a delivery may be waiting in a renderer that holds
    // samples while paused: the stream lock is not to be waited for.
    std::lock_guard<std::mutex> guard(m_Lock);
    if (m_State != State_Stopped) {
      m_State = State_Paused;
      return S_OK;
    }
  }
  std::lock_guard<std::mutex> stream(m_ReceiveLock);
  std::lock_guard<std::mutex> guard(m_Lock);
  if (m_State == State_Stopped) {
    const std::vector<CDemuxOutputPin*> outputs = OutputsLocked();
    for (CDemuxOutputPin* pin : outputs) {
      const HRESULT hr = pin->CommitLocked();
      if (FAILED(hr)) {
        for (CDemuxOutputPin* other : outputs) other->DecommitLocked();
        return hr;
      }
    }
    // A new run: times count from its first PTS, every pin starts afresh.
    m_HaveFirstPts = false;
    m_SegmentStart = 0;
    m_Carry.clear();
    for (Assembly& assembly : m_Assemblies) {
      if (assembly.assembler) assembly.assembler->Reset();
    }
    for (CDemuxOutputPin* pin : outputs) pin->Restart();
    m_Flushing = false;
  }
  m_State = State_Paused;
  NoteStreamChangeLocked();
  return S_OK;
}

STDMETHODIMP CMpeg2Demultiplexer::Run(REFERENCE_TIME) {
  FILTER_STATE state = State_Stopped;
  {
    std::lock_guard<std::mutex> guard(m_Lock);
    state = m_State;
  }
  if (state == State_Stopped) {
    const HRESULT hr = Pause();
    if (FAILED(hr)) return hr;
  }
  std::lock_guard<std::mutex> guard(m_Lock);
  m_State = State_Running;
  return S_OK;
}

STDMETHODIMP CMpeg2Demultiplexer::GetState(DWORD, FILTER_STATE* state) {
  if (state == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> guard(m_Lock);
  *state = m_State;
  return S_OK;
}

STDMETHODIMP CMpeg2Demultiplexer::SetSyncSource(IReferenceClock* clock) {
  std::lock_guard<std::mutex> guard(m_Lock);
  m_Clock = clock;
  return S_OK;
}

STDMETHODIMP CMpeg2Demultiplexer::GetSyncSource(IReferenceClock** clock) {
  if (clock == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> guard(m_Lock);
  *clock = ComPtr<IReferenceClock>(m_Clock).Detach();
  return S_OK;
}

STDMETHODIMP CMpeg2Demultiplexer::EnumPins(IEnumPins** pins) {
  if (pins == nullptr) return E_POINTER;
  std::vector<ComPtr<IPin>> list{ComPtr<IPin>(static_cast<IPin*>(&m_Input))};
  {
    std::lock_guard<std::mutex> guard(m_Lock);
    for (const auto& pin : m_Pins) list.emplace_back(static_cast<IPin*>(pin.get()));
  }
  auto* created = new CEnumSnapshot<IEnumPins, IPin>(IID_IEnumPins, std::move(list));
  created->AddRef();
  *pins = created;
  return S_OK;
}

STDMETHODIMP CMpeg2Demultiplexer::FindPin(LPCWSTR id, IPin** pin) {
  if (id == nullptr || pin == nullptr) return E_POINTER;
  *pin = nullptr;
  if (std::wcscmp(id, kDemuxInputPinName) == 0) {
    *pin = static_cast<IPin*>(&m_Input);
  } else {
    std::lock_guard<std::mutex> guard(m_Lock);
    *pin = FindOutputLocked(id);
  }
  if (*pin == nullptr) return VFW_E_NOT_FOUND;
  (*pin)->AddRef();
  return S_OK;
}

STDMETHODIMP CMpeg2Demultiplexer::QueryFilterInfo(FILTER_INFO* info) {
  if (info == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> guard(m_Lock);
  std::wcsncpy(info->achName, m_Name.c_str(), MAX_FILTER_NAME - 1);
  info->achName[MAX_FILTER_NAME - 1] = L'\0';
  info->pGraph = m_Graph;
  if (m_Graph != nullptr) m_Graph->AddRef();
  return S_OK;
}

STDMETHODIMP CMpeg2Demultiplexer::JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) {
  std::lock_guard<std::mutex> guard(m_Lock);
  m_Graph = graph;
  m_Name = name != nullptr ? name : L"";
  return S_OK;
}

STDMETHODIMP CMpeg2Demultiplexer::QueryVendorInfo(LPWSTR* vendorInfo) {
  if (vendorInfo != nullptr) *vendorInfo = nullptr;
  return E_NOTIMPL;
}

// ---- IMpeg2Demultiplexer ----

STDMETHODIMP CMpeg2Demultiplexer::CreateOutputPin(AM_MEDIA_TYPE* type, LPWSTR pinName,
                                                  IPin** pin) {
  if (pin == nullptr) return E_POINTER;
  *pin = nullptr;
  if (type == nullptr || pinName == nullptr) return E_POINTER;
  const std::wstring name(pinName);
  if (name.empty() || name.size() >= MAX_PIN_NAME) return E_INVALIDARG;
  std::lock_guard<std::mutex> guard(m_Lock);
  if (m_State != State_Stopped) return VFW_E_NOT_STOPPED;
  if (name == kDemuxInputPinName) return VFW_E_DUPLICATE_NAME;
  // A caller that comes back for a name it made before (a source wiring us
  // again at its next connection) gets that pin with the refusal, so it can
  // go on with what stands.
  if (CDemuxOutputPin* taken = FindOutputLocked(name.c_str()); taken != nullptr) {
    *pin = static_cast<IPin*>(taken);
    (*pin)->AddRef();
    return VFW_E_DUPLICATE_NAME;
  }
  AM_MEDIA_TYPE copy{};
  const HRESULT hr = CopyMediaTypeTo(*type, &copy);
  if (FAILED(hr)) return hr;
  m_Pins.push_back(std::make_unique<CDemuxOutputPin>(this, name, copy));
  *pin = static_cast<IPin*>(m_Pins.back().get());
  (*pin)->AddRef();
  return S_OK;
}

STDMETHODIMP CMpeg2Demultiplexer::SetOutputPinMediaType(LPWSTR pinName, AM_MEDIA_TYPE* type) {
  if (pinName == nullptr || type == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> guard(m_Lock);
  CDemuxOutputPin* pin = FindOutputLocked(pinName);
  if (pin == nullptr) return VFW_E_NOT_FOUND;
  if (m_State != State_Stopped && pin->PeerLocked()) return VFW_E_NOT_STOPPED;
  return pin->SetTypeLocked(*type);
}

STDMETHODIMP CMpeg2Demultiplexer::DeleteOutputPin(LPWSTR pinName) {
  if (pinName == nullptr) return E_POINTER;
  ComPtr<IPin> peer;
  CDemuxOutputPin* pin = nullptr;
  {
    std::lock_guard<std::mutex> guard(m_Lock);
    if (m_State != State_Stopped) return VFW_E_NOT_STOPPED;
    pin = FindOutputLocked(pinName);
    if (pin == nullptr) return VFW_E_NOT_FOUND;
    peer = pin->PeerLocked();
    bool routed = false;
    for (Route& route : m_Routes) {
      if (route.pin == pin) {
        route = Route{};
        routed = true;
      }
    }
    if (routed) PublishRoutesLocked();
    const auto at = std::find_if(m_Pins.begin(), m_Pins.end(),
                                 [pin](const auto& held) { return held.get() == pin; });
    m_Deleted.push_back(std::move(*at));
    m_Pins.erase(at);
  }
  // Both ends let go, as the graph's Disconnect would do for each pin.
  if (peer) peer->Disconnect();
  pin->Disconnect();
  return S_OK;
}

// ---- PID maps ----

HRESULT CMpeg2Demultiplexer::MapPids(CDemuxOutputPin* pin, std::span<const ULONG> pids,
                                     MEDIA_SAMPLE_CONTENT content) {
  if (pids.empty()) return E_INVALIDARG;
  if (content == MEDIA_MPEG2_PSI || content == MEDIA_TRANSPORT_PAYLOAD) return E_NOTIMPL;
  if (content != MEDIA_ELEMENTARY_STREAM && content != MEDIA_TRANSPORT_PACKET) return E_INVALIDARG;
  for (const ULONG pid : pids) {
    if (pid >= kTsPidCount) return E_INVALIDARG;
  }
  std::lock_guard<std::mutex> guard(m_Lock);
  if (FindOutputLocked(pin->Name().c_str()) != pin) return VFW_E_NOT_FOUND;  // deleted
  bool changed = false;
  for (const ULONG pid : pids) {
    Route& route = m_Routes[pid];
    // Mapping a PID again to where it goes already keeps its stream whole.
    if (route.pin == pin && route.content == content) continue;
    route = Route{pin, content, m_NextGeneration++};
    changed = true;
  }
  if (changed) PublishRoutesLocked();
  return S_OK;
}

HRESULT CMpeg2Demultiplexer::UnmapPids(CDemuxOutputPin* pin, std::span<const ULONG> pids) {
  if (pids.empty()) return E_INVALIDARG;
  for (const ULONG pid : pids) {
    if (pid >= kTsPidCount) return E_INVALIDARG;
  }
  std::lock_guard<std::mutex> guard(m_Lock);
  bool changed = false;
  for (const ULONG pid : pids) {
    // A PID that went to another pin meanwhile is that pin's business.
    if (m_Routes[pid].pin != pin) continue;
    m_Routes[pid] = Route{};
    changed = true;
  }
  if (changed) PublishRoutesLocked();
  return S_OK;
}

std::vector<PID_MAP> CMpeg2Demultiplexer::MapOf(CDemuxOutputPin* pin) {
  std::vector<PID_MAP> maps;
  std::lock_guard<std::mutex> guard(m_Lock);
  for (std::size_t pid = 0; pid < m_Routes.size(); ++pid) {
    if (m_Routes[pid].pin == pin) {
      maps.push_back(PID_MAP{static_cast<ULONG>(pid), m_Routes[pid].content});
    }
  }
  return maps;
}

// The stream side reads a copy, taken once per sample, so a map changed
// beside the delivery never shows half done.
void CMpeg2Demultiplexer::PublishRoutesLocked() {
  m_PublishedRoutes = std::make_shared<const RouteTable>(m_Routes);
  NoteStreamChangeLocked();
}

CDemuxOutputPin* CMpeg2Demultiplexer::FindOutputLocked(LPCWSTR name) const {
  for (const auto& pin : m_Pins) {
    if (pin->Name() == name) return pin.get();
  }
  return nullptr;
}

std::vector<CDemuxOutputPin*> CMpeg2Demultiplexer::OutputsLocked() const {
  std::vector<CDemuxOutputPin*> outputs;
  for (const auto& pin : m_Pins) outputs.push_back(pin.get());
  return outputs;
}

std::vector<ComPtr<IPin>> CMpeg2Demultiplexer::ConnectedPeers() {
  std::vector<ComPtr<IPin>> peers;
  std::lock_guard<std::mutex> guard(m_Lock);
  for (const auto& pin : m_Pins) {
    if (ComPtr<IPin> peer = pin->PeerLocked()) peers.push_back(std::move(peer));
  }
  return peers;
}

HRESULT CreateMpeg2Demultiplexer(IUnknown* outer, REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  if (outer != nullptr) return CLASS_E_NOAGGREGATION;
  ComPtr<IBaseFilter> filter(static_cast<IBaseFilter*>(new CMpeg2Demultiplexer));
  return filter->QueryInterface(riid, ppv);
}

}  // namespace platform_internal
