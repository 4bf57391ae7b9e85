#include "platform/demux_output_pin.h"

#include <algorithm>
#include <cstring>
#include <cwchar>

#include "platform/com/com_memory.h"
#include "platform/graph/graph_plumbing.h"
#include "platform/memory_sample.h"
#include "platform/mpeg2_demultiplexer.h"

namespace platform_internal {

namespace {

// Offers the pin's one media type.
class COneMediaType final : public IEnumMediaTypes {
 public:
  COneMediaType(const AM_MEDIA_TYPE& type, bool done) : m_Done(done) {
    if (FAILED(CopyMediaTypeTo(type, &m_Type))) m_Valid = false;
  }

  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    if (riid != IID_IUnknown && riid != IID_IEnumMediaTypes) {
      *ppv = nullptr;
      return E_NOINTERFACE;
    }
    *ppv = static_cast<IEnumMediaTypes*>(this);
    AddRef();
    return S_OK;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return ++m_RefCount; }
  STDMETHODIMP_(ULONG) Release() override {
    const ULONG count = --m_RefCount;
    if (count == 0) delete this;
    return count;
  }

  STDMETHODIMP Next(ULONG count, AM_MEDIA_TYPE** types, ULONG* fetched) override {
    if (types == nullptr || (fetched == nullptr && count != 1)) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    ULONG given = 0;
    if (count > 0 && !m_Done && m_Valid) {
      auto* copy = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
      if (copy == nullptr) return E_OUTOFMEMORY;
      if (FAILED(CopyMediaTypeTo(m_Type, copy))) {
        CoTaskMemFree(copy);
        return E_OUTOFMEMORY;
      }
      types[0] = copy;
      given = 1;
      m_Done = true;
    }
    if (fetched != nullptr) *fetched = given;
    return given == count ? S_OK : S_FALSE;
  }
  STDMETHODIMP Skip(ULONG count) override {
    std::lock_guard<std::mutex> guard(m_Lock);
    if (count == 0) return S_OK;
    const bool had = !m_Done;
    m_Done = true;
    return had && count == 1 ? S_OK : S_FALSE;
  }
  STDMETHODIMP Reset() override {
    std::lock_guard<std::mutex> guard(m_Lock);
    m_Done = false;
    return S_OK;
  }
  STDMETHODIMP Clone(IEnumMediaTypes** copy) override {
    if (copy == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    auto* clone = new COneMediaType(m_Type, m_Done);
    clone->AddRef();
    *copy = clone;
    return S_OK;
  }

 private:
  ~COneMediaType() { ClearMediaType(&m_Type); }

  AM_MEDIA_TYPE m_Type{};
  bool m_Valid = true;
  std::mutex m_Lock;
  bool m_Done;  // guarded by m_Lock
  std::atomic<ULONG> m_RefCount{0};
};

// A snapshot of a pin's PID map.
class CEnumPidMap final : public IEnumPIDMap {
 public:
  explicit CEnumPidMap(std::vector<PID_MAP> maps, std::size_t position = 0)
      : m_Maps(std::move(maps)), m_Position(position) {}

  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    if (riid != IID_IUnknown && riid != IID_IEnumPIDMap) {
      *ppv = nullptr;
      return E_NOINTERFACE;
    }
    *ppv = static_cast<IEnumPIDMap*>(this);
    AddRef();
    return S_OK;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return ++m_RefCount; }
  STDMETHODIMP_(ULONG) Release() override {
    const ULONG count = --m_RefCount;
    if (count == 0) delete this;
    return count;
  }

  STDMETHODIMP Next(ULONG request, PID_MAP* map, ULONG* received) override {
    if (map == nullptr || (received == nullptr && request != 1)) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    ULONG given = 0;
    while (given < request && m_Position < m_Maps.size()) map[given++] = m_Maps[m_Position++];
    if (received != nullptr) *received = given;
    return given == request ? S_OK : S_FALSE;
  }
  STDMETHODIMP Skip(ULONG records) override {
    std::lock_guard<std::mutex> guard(m_Lock);
    const std::size_t left = m_Maps.size() - m_Position;
    m_Position += std::min<std::size_t>(records, left);
    return records <= left ? S_OK : S_FALSE;
  }
  STDMETHODIMP Reset() override {
    std::lock_guard<std::mutex> guard(m_Lock);
    m_Position = 0;
    return S_OK;
  }
  STDMETHODIMP Clone(IEnumPIDMap** copy) override {
    if (copy == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    auto* clone = new CEnumPidMap(m_Maps, m_Position);
    clone->AddRef();
    *copy = clone;
    return S_OK;
  }

 private:
  ~CEnumPidMap() = default;

  const std::vector<PID_MAP> m_Maps;
  std::mutex m_Lock;
  std::size_t m_Position;  // guarded by m_Lock
  std::atomic<ULONG> m_RefCount{0};
};

bool SameKind(const AM_MEDIA_TYPE& a, const AM_MEDIA_TYPE& b) {
  return a.majortype == b.majortype && a.subtype == b.subtype;
}

}  // namespace

CDemuxOutputPin::CDemuxOutputPin(CMpeg2Demultiplexer* filter, std::wstring name,
                                 const AM_MEDIA_TYPE& type)
    : m_Filter(filter), m_Name(std::move(name)), m_Type(type) {}

CDemuxOutputPin::~CDemuxOutputPin() {
  ClearMediaType(&m_Type);
  ClearMediaType(&m_ConnectionType);
}

STDMETHODIMP CDemuxOutputPin::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IUnknown || riid == IID_IPin) {
    *ppv = static_cast<IPin*>(this);
  } else if (riid == IID_IMPEG2PIDMap) {
    *ppv = static_cast<IMPEG2PIDMap*>(this);
  } else {
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  AddRef();
  return S_OK;
}

STDMETHODIMP_(ULONG) CDemuxOutputPin::AddRef() { return m_Filter->AddRef(); }
STDMETHODIMP_(ULONG) CDemuxOutputPin::Release() { return m_Filter->Release(); }

// The pin proposes its own type; a type from the caller must agree with it.
STDMETHODIMP CDemuxOutputPin::Connect(IPin* receivePin, const AM_MEDIA_TYPE* type) {
  if (receivePin == nullptr) return E_POINTER;
  AM_MEDIA_TYPE offered{};
  {
    std::lock_guard<std::mutex> guard(m_Filter->Lock());
    if (m_Peer) return VFW_E_ALREADY_CONNECTED;
    if (!m_Filter->StoppedLocked()) return VFW_E_NOT_STOPPED;
    if (type != nullptr && ((type->majortype != GUID_NULL && type->majortype != m_Type.majortype) ||
                            (type->subtype != GUID_NULL && type->subtype != m_Type.subtype))) {
      return VFW_E_TYPE_NOT_ACCEPTED;
    }
    const HRESULT hr = CopyMediaTypeTo(m_Type, &offered);
    if (FAILED(hr)) return hr;
  }
  // The peer is called without the lock: it asks this pin about itself.
  if (IsOutputPin(receivePin)) {
    ClearMediaType(&offered);
    return VFW_E_INVALID_DIRECTION;
  }
  HRESULT hr = receivePin->ReceiveConnection(this, &offered);
  ComPtr<IMemInputPin> input;
  if (SUCCEEDED(hr)) {
    input = Query<IMemInputPin>(receivePin, IID_IMemInputPin);
    if (!input) {
      receivePin->Disconnect();
      hr = E_NOINTERFACE;
    }
  }
  if (FAILED(hr)) {
    ClearMediaType(&offered);
    return hr;
  }
  ComPtr<IMemAllocator> allocator = DecideAllocator(input.Get());
  std::lock_guard<std::mutex> guard(m_Filter->Lock());
  m_Peer = receivePin;
  m_Input = std::move(input);
  m_Allocator = std::move(allocator);
  ClearMediaType(&m_ConnectionType);
  m_ConnectionType = offered;
  return S_OK;
}

// The downstream allocator, if it offers one and takes buffers big enough;
// else null, and the pin sends samples of its own.
ComPtr<IMemAllocator> CDemuxOutputPin::DecideAllocator(IMemInputPin* input) {
  ComPtr<IMemAllocator> allocator;
  if (FAILED(input->GetAllocator(allocator.PutAddress())) || !allocator) return nullptr;
  ALLOCATOR_PROPERTIES wanted{kDemuxAllocatorBuffers, kDemuxSampleSize, 1, 0};
  ALLOCATOR_PROPERTIES needs{};
  if (SUCCEEDED(input->GetAllocatorRequirements(&needs))) {
    wanted.cBuffers = std::max(wanted.cBuffers, needs.cBuffers);
    wanted.cbAlign = std::max<LONG>(1, needs.cbAlign);
    wanted.cbPrefix = needs.cbPrefix;
  }
  ALLOCATOR_PROPERTIES actual{};
  if (FAILED(allocator->SetProperties(&wanted, &actual)) ||
      actual.cbBuffer < static_cast<LONG>(kTsPacketSize) || actual.cBuffers < 1 ||
      FAILED(input->NotifyAllocator(allocator.Get(), FALSE))) {
    return nullptr;
  }
  return allocator;
}

STDMETHODIMP CDemuxOutputPin::ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* type) {
  if (connector == nullptr || type == nullptr) return E_POINTER;
  return VFW_E_INVALID_DIRECTION;
}

STDMETHODIMP CDemuxOutputPin::Disconnect() {
  ComPtr<IPin> peer;  // released after the lock
  ComPtr<IMemInputPin> input;
  ComPtr<IMemAllocator> allocator;
  std::lock_guard<std::mutex> guard(m_Filter->Lock());
  if (!m_Peer) return S_FALSE;
  if (!m_Filter->StoppedLocked()) return VFW_E_NOT_STOPPED;
  peer = std::move(m_Peer);
  input = std::move(m_Input);
  allocator = std::move(m_Allocator);
  ClearMediaType(&m_ConnectionType);
  return S_OK;
}

STDMETHODIMP CDemuxOutputPin::ConnectedTo(IPin** pin) {
  if (pin == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> guard(m_Filter->Lock());
  *pin = ComPtr<IPin>(m_Peer).Detach();
  return *pin != nullptr ? S_OK : VFW_E_NOT_CONNECTED;
}

STDMETHODIMP CDemuxOutputPin::ConnectionMediaType(AM_MEDIA_TYPE* type) {
  if (type == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> guard(m_Filter->Lock());
  if (!m_Peer) {
    *type = AM_MEDIA_TYPE{};
    return VFW_E_NOT_CONNECTED;
  }
  return CopyMediaTypeTo(m_ConnectionType, type);
}

STDMETHODIMP CDemuxOutputPin::QueryPinInfo(PIN_INFO* info) {
  if (info == nullptr) return E_POINTER;
  info->pFilter = static_cast<IBaseFilter*>(m_Filter);
  info->pFilter->AddRef();
  info->dir = PINDIR_OUTPUT;
  std::wcsncpy(info->achName, m_Name.c_str(), MAX_PIN_NAME - 1);
  info->achName[MAX_PIN_NAME - 1] = L'\0';
  return S_OK;
}

STDMETHODIMP CDemuxOutputPin::QueryDirection(PIN_DIRECTION* direction) {
  if (direction == nullptr) return E_POINTER;
  *direction = PINDIR_OUTPUT;
  return S_OK;
}

STDMETHODIMP CDemuxOutputPin::QueryId(LPWSTR* id) {
  if (id == nullptr) return E_POINTER;
  return CopyWideString(m_Name, id);
}

STDMETHODIMP CDemuxOutputPin::QueryAccept(const AM_MEDIA_TYPE* type) {
  if (type == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> guard(m_Filter->Lock());
  return SameKind(*type, m_Type) ? S_OK : S_FALSE;
}

STDMETHODIMP CDemuxOutputPin::EnumMediaTypes(IEnumMediaTypes** types) {
  if (types == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> guard(m_Filter->Lock());
  auto* created = new COneMediaType(m_Type, false);
  created->AddRef();
  *types = created;
  return S_OK;
}

STDMETHODIMP CDemuxOutputPin::QueryInternalConnections(IPin**, ULONG*) { return E_NOTIMPL; }

// Calls that only an input pin takes.
STDMETHODIMP CDemuxOutputPin::EndOfStream() { return E_UNEXPECTED; }
STDMETHODIMP CDemuxOutputPin::BeginFlush() { return E_UNEXPECTED; }
STDMETHODIMP CDemuxOutputPin::EndFlush() { return E_UNEXPECTED; }
STDMETHODIMP CDemuxOutputPin::NewSegment(REFERENCE_TIME, REFERENCE_TIME, double) { return S_OK; }

STDMETHODIMP CDemuxOutputPin::MapPID(ULONG count, ULONG* pids, MEDIA_SAMPLE_CONTENT content) {
  if (pids == nullptr) return E_POINTER;
  return m_Filter->MapPids(this, std::span<const ULONG>(pids, count), content);
}

STDMETHODIMP CDemuxOutputPin::UnmapPID(ULONG count, ULONG* pids) {
  if (pids == nullptr) return E_POINTER;
  return m_Filter->UnmapPids(this, std::span<const ULONG>(pids, count));
}

STDMETHODIMP CDemuxOutputPin::EnumPIDMap(IEnumPIDMap** map) {
  if (map == nullptr) return E_POINTER;
  auto* created = new CEnumPidMap(m_Filter->MapOf(this));
  created->AddRef();
  *map = created;
  return S_OK;
}

HRESULT CDemuxOutputPin::SetTypeLocked(const AM_MEDIA_TYPE& type) {
  if (m_Peer) {
    // Asked under the filter's lock: an input pin's QueryAccept looks at
    // itself only.
    if (m_Peer->QueryAccept(&type) != S_OK) return VFW_E_TYPE_NOT_ACCEPTED;
  }
  AM_MEDIA_TYPE copy{};
  HRESULT hr = CopyMediaTypeTo(type, &copy);
  if (FAILED(hr)) return hr;
  if (m_Peer) {
    AM_MEDIA_TYPE connection{};
    hr = CopyMediaTypeTo(type, &connection);
    if (FAILED(hr)) {
      ClearMediaType(&copy);
      return hr;
    }
    ClearMediaType(&m_ConnectionType);
    m_ConnectionType = connection;
  }
  ClearMediaType(&m_Type);
  m_Type = copy;
  return S_OK;
}

HRESULT CDemuxOutputPin::CommitLocked() {
  return m_Allocator ? m_Allocator->Commit() : S_OK;
}

void CDemuxOutputPin::DecommitLocked() {
  // Also wakes a delivery waiting in GetBuffer.
  if (m_Allocator) m_Allocator->Decommit();
}

void CDemuxOutputPin::Restart() {
  m_DiscontinuityPending = true;
  m_DeliveryResult = S_OK;
  m_Queue.clear();
}

void CDemuxOutputPin::Deliver(std::span<const std::uint8_t> data, const REFERENCE_TIME* start,
                              bool syncPoint, bool discontinuity) {
  if (!m_Input || FAILED(m_DeliveryResult) || data.empty()) return;
  const HRESULT hr = SendChunks(data, 1, start, syncPoint, discontinuity);
  // A refusal ends this pin's stream until the next flush or start; the
  // other pins go on.
  if (FAILED(hr)) m_DeliveryResult = hr;
}

void CDemuxOutputPin::QueuePacket(std::span<const std::uint8_t> packet) {
  m_Queue.insert(m_Queue.end(), packet.begin(), packet.end());
}

void CDemuxOutputPin::SendQueuedPackets() {
  if (m_Queue.empty()) return;
  if (m_Input && SUCCEEDED(m_DeliveryResult)) {
    const HRESULT hr = SendChunks(m_Queue, kTsPacketSize, nullptr, false, false);
    if (FAILED(hr)) m_DeliveryResult = hr;
  }
  m_Queue.clear();
}

// `unit`: raw packets are never split across samples.
HRESULT CDemuxOutputPin::SendChunks(std::span<const std::uint8_t> data, std::size_t unit,
                                    const REFERENCE_TIME* start, bool syncPoint,
                                    bool discontinuity) {
  bool first = true;
  while (!data.empty()) {
    ComPtr<IMediaSample> sample;
    if (m_Allocator) {
      const HRESULT hr = m_Allocator->GetBuffer(sample.PutAddress(), nullptr, nullptr, 0);
      if (FAILED(hr)) return hr;
      if (!sample) return E_UNEXPECTED;
    } else {
      const std::size_t size = std::min<std::size_t>(data.size(), kDemuxSampleSize);
      sample = new CMemorySample(static_cast<LONG>(size));
    }
    BYTE* buffer = nullptr;
    if (FAILED(sample->GetPointer(&buffer)) || buffer == nullptr) return E_UNEXPECTED;
    const std::size_t room = static_cast<std::size_t>(std::max<LONG>(0, sample->GetSize()));
    std::size_t take = std::min(room, data.size());
    if (take > unit) take -= take % unit;
    if (take < unit && take < data.size()) return VFW_E_BUFFER_OVERFLOW;
    std::memcpy(buffer, data.data(), take);
    sample->SetActualDataLength(static_cast<LONG>(take));
    if (first && start != nullptr) {
      // The length of a PES in time is not known; the stop says only
      // that the sample has a start.
      REFERENCE_TIME begin = *start;
      REFERENCE_TIME end = begin + 1;
      sample->SetTime(&begin, &end);
    } else {
      sample->SetTime(nullptr, nullptr);
    }
    sample->SetSyncPoint(first && syncPoint ? TRUE : FALSE);
    sample->SetDiscontinuity(first && (discontinuity || m_DiscontinuityPending) ? TRUE : FALSE);
    sample->SetPreroll(FALSE);
    m_DiscontinuityPending = false;
    const HRESULT hr = m_Input->Receive(sample.Get());
    if (hr != S_OK) return hr;  // S_FALSE: downstream wants no more for now
    data = data.subspan(take);
    first = false;
  }
  return S_OK;
}

}  // namespace platform_internal
