#include "filters/mpeg2_demux/mpeg2_demultiplexer.h"

#include <algorithm>
#include <new>
#include <string>
#include <utility>

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
    route.pin->DeliverPayload(pes.payload, &start, true, pes.discontinuity);
  } else {
    route.pin->DeliverPayload(pes.payload, nullptr, false, pes.discontinuity);
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
  if (const HRESULT streaming = m_Input.CheckStreaming(); streaming != S_OK) return streaming;
  const std::uint64_t version = m_StreamVersion.load(std::memory_order_acquire);
  if (version != m_SeenVersion) {
    CAutoLock lock(&m_StateLockStorage);
    m_SeenRoutes = m_PublishedRoutes;
    m_SeenVersion = m_StreamVersion.load(std::memory_order_relaxed);
  }
  return S_OK;
}

void CMpeg2Demultiplexer::DropPartialPes() {
  m_Carry.clear();
  for (Assembly& assembly : m_Assemblies) {
    if (assembly.assembler) assembly.assembler->Reset();
  }
}

void CMpeg2Demultiplexer::ResetStreamLocked() {
  DropPartialPes();
  CAutoLock lock(&m_StateLockStorage);
  for (CDemuxOutputPin* pin : OutputsLocked()) pin->Restart();
}

// ---- The filter ----

CUnknown* CMpeg2Demultiplexer::CreateInstance(IUnknown* outer, HRESULT* result) {
  if (outer != nullptr) {
    if (result != nullptr) *result = CLASS_E_NOAGGREGATION;
    return nullptr;
  }
  auto* demux = new (std::nothrow) CMpeg2Demultiplexer();
  if (result != nullptr) *result = demux != nullptr ? S_OK : E_OUTOFMEMORY;
  return demux;
}

CMpeg2Demultiplexer::CMpeg2Demultiplexer()
    : CBaseFilter("MPEG-2 Demultiplexer", nullptr, &m_StateLockStorage, CLSID_MPEG2Demultiplexer),
      m_Input(this, &m_StateLockStorage),
      m_PublishedRoutes(std::make_shared<const RouteTable>()) {}

CMpeg2Demultiplexer::~CMpeg2Demultiplexer() = default;

STDMETHODIMP CMpeg2Demultiplexer::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IMpeg2Demultiplexer) return GetInterface(static_cast<IMpeg2Demultiplexer*>(this), ppv);
  if (riid == IID_IAMFilterMiscFlags) return GetInterface(static_cast<IAMFilterMiscFlags*>(this), ppv);
  return CBaseFilter::NonDelegatingQueryInterface(riid, ppv);
}

// Under the state lock, as the base calls them.
int CMpeg2Demultiplexer::GetPinCount() { return 1 + static_cast<int>(m_Pins.size()); }

CBasePin* CMpeg2Demultiplexer::GetPin(int index) {
  if (index == 0) return &m_Input;
  if (index < 0 || index > static_cast<int>(m_Pins.size())) return nullptr;
  return m_Pins[static_cast<std::size_t>(index - 1)].get();
}

STDMETHODIMP CMpeg2Demultiplexer::Stop() {
  HRESULT hr = S_OK;
  {
    CAutoLock lock(&m_StateLockStorage);
    if (m_State == State_Stopped) return S_OK;
    // The input pin refuses samples from here on; the output pins decommit,
    // which wakes a delivery waiting for a buffer, so the stream lock comes
    // free.
    hr = CBaseFilter::Stop();
  }
  // Waits for a Receive under way; a later one finds the filter stopped.
  std::lock_guard<std::mutex> stream(m_ReceiveLock);
  ResetStreamLocked();
  return hr;
}

STDMETHODIMP CMpeg2Demultiplexer::Pause() {
  {
    // From running, a delivery may be waiting in a renderer that holds
    // samples while paused: the stream lock is not to be waited for.
    CAutoLock lock(&m_StateLockStorage);
    if (m_State != State_Stopped) return CBaseFilter::Pause();
  }
  std::lock_guard<std::mutex> stream(m_ReceiveLock);
  CAutoLock lock(&m_StateLockStorage);
  if (m_State == State_Stopped) {
    // A new run: times count from its first PTS, every pin starts afresh.
    m_HaveFirstPts = false;
    m_SegmentStart = 0;
    DropPartialPes();
    for (CDemuxOutputPin* pin : OutputsLocked()) pin->Restart();
  }
  // Commits the output pins' allocators and lets the input pin take samples.
  const HRESULT hr = CBaseFilter::Pause();
  if (FAILED(hr)) {
    // What the base activated before the failure goes back.
    for (int i = 0; i < GetPinCount(); ++i) {
      if (GetPin(i)->IsConnected()) GetPin(i)->Inactive();
    }
  }
  return hr;
}

STDMETHODIMP CMpeg2Demultiplexer::Run(REFERENCE_TIME start) {
  // The pause out of stopped takes the stream lock before the state lock,
  // so it runs before the base's Run, which holds the state lock.
  if (IsStopped()) {
    const HRESULT hr = Pause();
    if (FAILED(hr)) return hr;
  }
  CAutoLock lock(&m_StateLockStorage);
  if (m_State == State_Stopped) return VFW_E_WRONG_STATE;  // a Stop came between
  return CBaseFilter::Run(start);
}

// ---- IMpeg2Demultiplexer ----

STDMETHODIMP CMpeg2Demultiplexer::CreateOutputPin(AM_MEDIA_TYPE* type, LPWSTR pinName, IPin** pin) {
  if (pin == nullptr) return E_POINTER;
  *pin = nullptr;
  if (type == nullptr || pinName == nullptr) return E_POINTER;
  const std::wstring name(pinName);
  if (name.empty() || name.size() >= MAX_PIN_NAME) return E_INVALIDARG;
  CAutoLock lock(&m_StateLockStorage);
  if (m_State != State_Stopped) return VFW_E_NOT_STOPPED;
  if (name == kDemuxInputPinName) return VFW_E_DUPLICATE_NAME;
  // A caller that comes back for a name it made before (a source wiring us
  // again at its next connection) gets that pin with the refusal, so it can
  // go on with what stands.
  if (CDemuxOutputPin* taken = FindOutputLocked(name.c_str()); taken != nullptr) {
    *pin = taken;
    taken->AddRef();
    return VFW_E_DUPLICATE_NAME;
  }
  auto created = std::unique_ptr<CDemuxOutputPin>(
      new (std::nothrow) CDemuxOutputPin(this, &m_StateLockStorage, name, CMediaType(*type)));
  if (!created) return E_OUTOFMEMORY;
  m_Pins.push_back(std::move(created));
  *pin = m_Pins.back().get();
  (*pin)->AddRef();
  return S_OK;
}

STDMETHODIMP CMpeg2Demultiplexer::SetOutputPinMediaType(LPWSTR pinName, AM_MEDIA_TYPE* type) {
  if (pinName == nullptr || type == nullptr) return E_POINTER;
  CAutoLock lock(&m_StateLockStorage);
  CDemuxOutputPin* pin = FindOutputLocked(pinName);
  if (pin == nullptr) return VFW_E_NOT_FOUND;
  if (m_State != State_Stopped && pin->IsConnected()) return VFW_E_NOT_STOPPED;
  return pin->SetTypeLocked(*type);
}

STDMETHODIMP CMpeg2Demultiplexer::DeleteOutputPin(LPWSTR pinName) {
  if (pinName == nullptr) return E_POINTER;
  ComPtr<IPin> peer;
  CDemuxOutputPin* pin = nullptr;
  {
    CAutoLock lock(&m_StateLockStorage);
    if (m_State != State_Stopped) return VFW_E_NOT_STOPPED;
    pin = FindOutputLocked(pinName);
    if (pin == nullptr) return VFW_E_NOT_FOUND;
    peer = pin->GetConnected();
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
  CAutoLock lock(&m_StateLockStorage);
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
  CAutoLock lock(&m_StateLockStorage);
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
  CAutoLock lock(&m_StateLockStorage);
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
  m_StreamVersion.fetch_add(1, std::memory_order_release);
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
  CAutoLock lock(&m_StateLockStorage);
  for (const auto& pin : m_Pins) {
    if (IPin* peer = pin->GetConnected()) peers.emplace_back(peer);
  }
  return peers;
}
