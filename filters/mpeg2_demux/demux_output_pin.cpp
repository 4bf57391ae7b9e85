#include "filters/mpeg2_demux/demux_output_pin.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>

#include "filters/mpeg2_demux/mpeg2_demultiplexer.h"

namespace {

// A snapshot of a pin's PID map.
class CEnumPidMap final : public CUnknown, public IEnumPIDMap {
 public:
  explicit CEnumPidMap(std::vector<PID_MAP> maps, std::size_t position = 0)
      : CUnknown("PID map enumerator", nullptr), m_Maps(std::move(maps)), m_Position(position) {}

  DECLARE_IUNKNOWN
  STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    if (riid == IID_IEnumPIDMap) return GetInterface(static_cast<IEnumPIDMap*>(this), ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
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
    auto* clone = new (std::nothrow) CEnumPidMap(m_Maps, m_Position);
    if (clone == nullptr) {
      *copy = nullptr;
      return E_OUTOFMEMORY;
    }
    return clone->NonDelegatingQueryInterface(IID_IEnumPIDMap, reinterpret_cast<void**>(copy));
  }

 private:
  const std::vector<PID_MAP> m_Maps;
  std::mutex m_Lock;
  std::size_t m_Position;  // guarded by m_Lock
};

bool SameKind(const AM_MEDIA_TYPE& a, const AM_MEDIA_TYPE& b) {
  return a.majortype == b.majortype && a.subtype == b.subtype;
}

}  // namespace

CDemuxOutputPin::CDemuxOutputPin(CMpeg2Demultiplexer* filter, CCritSec* stateLock, const std::wstring& name,
                                 const CMediaType& type)
    : CBaseOutputPin("demux output pin", filter, stateLock, nullptr, name.c_str()), m_Demux(filter), m_Type(type) {}

STDMETHODIMP CDemuxOutputPin::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IMPEG2PIDMap) return GetInterface(static_cast<IMPEG2PIDMap*>(this), ppv);
  return CBaseOutputPin::NonDelegatingQueryInterface(riid, ppv);
}

STDMETHODIMP CDemuxOutputPin::Connect(IPin* receivePin, const AM_MEDIA_TYPE* type) {
  if (receivePin == nullptr) return E_POINTER;
  CAutoLock lock(m_StateLock);
  // The base answers a connected pin or a running filter first.
  if (type != nullptr && !IsConnected() && m_Filter->IsStopped()) {
    const AM_MEDIA_TYPE& own = m_Type.Type();
    if ((type->majortype != GUID_NULL && type->majortype != own.majortype) ||
        (type->subtype != GUID_NULL && type->subtype != own.subtype)) {
      return VFW_E_TYPE_NOT_ACCEPTED;
    }
  }
  // A full type is the only one the base tries: ours, never the peer's.
  const CMediaType own = m_Type;
  return CBaseOutputPin::Connect(receivePin, &own.Type());
}

// Under the state lock, taken here too for QueryAccept, which comes without it.
HRESULT CDemuxOutputPin::CheckMediaType(const CMediaType* type) {
  CAutoLock lock(m_StateLock);
  return SameKind(type->Type(), m_Type.Type()) ? S_OK : S_FALSE;
}

HRESULT CDemuxOutputPin::GetMediaType(int position, CMediaType* type) {
  if (position < 0) return E_INVALIDARG;
  if (position > 0) return VFW_S_NO_MORE_ITEMS;
  CAutoLock lock(m_StateLock);
  *type = m_Type;
  return S_OK;
}

// `properties` holds what the downstream pin asked for; the pin's own sizes
// stand unless it wants more buffers.
HRESULT CDemuxOutputPin::DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* properties) {
  ALLOCATOR_PROPERTIES wanted{kDemuxAllocatorBuffers, kDemuxSampleSize, 1, 0};
  wanted.cBuffers = std::max(wanted.cBuffers, properties->cBuffers);
  wanted.cbAlign = std::max<LONG>(1, properties->cbAlign);
  wanted.cbPrefix = properties->cbPrefix;
  ALLOCATOR_PROPERTIES actual{};
  const HRESULT hr = allocator->SetProperties(&wanted, &actual);
  if (FAILED(hr)) return hr;
  // A packet must fit in one sample.
  if (actual.cbBuffer < static_cast<LONG>(kTsPacketSize) || actual.cBuffers < 1) return E_FAIL;
  return S_OK;
}

STDMETHODIMP CDemuxOutputPin::MapPID(ULONG count, ULONG* pids, MEDIA_SAMPLE_CONTENT content) {
  if (pids == nullptr) return E_POINTER;
  return m_Demux->MapPids(this, std::span<const ULONG>(pids, count), content);
}

STDMETHODIMP CDemuxOutputPin::UnmapPID(ULONG count, ULONG* pids) {
  if (pids == nullptr) return E_POINTER;
  return m_Demux->UnmapPids(this, std::span<const ULONG>(pids, count));
}

STDMETHODIMP CDemuxOutputPin::EnumPIDMap(IEnumPIDMap** map) {
  if (map == nullptr) return E_POINTER;
  auto* created = new (std::nothrow) CEnumPidMap(m_Demux->MapOf(this));
  if (created == nullptr) {
    *map = nullptr;
    return E_OUTOFMEMORY;
  }
  return created->NonDelegatingQueryInterface(IID_IEnumPIDMap, reinterpret_cast<void**>(map));
}

HRESULT CDemuxOutputPin::SetTypeLocked(const AM_MEDIA_TYPE& type) {
  // Asked under the state lock: an input pin's QueryAccept looks at itself only.
  if (m_Connected != nullptr && m_Connected->QueryAccept(&type) != S_OK) return VFW_E_TYPE_NOT_ACCEPTED;
  m_Type = CMediaType(type);
  if (m_Connected != nullptr) m_MediaType = m_Type;
  return S_OK;
}

void CDemuxOutputPin::Restart() {
  m_DiscontinuityPending = true;
  m_DeliveryResult = S_OK;
  m_Queue.clear();
}

void CDemuxOutputPin::DeliverPayload(std::span<const std::uint8_t> data, const REFERENCE_TIME* start,
                                     bool syncPoint, bool discontinuity) {
  if (m_InputPin == nullptr || FAILED(m_DeliveryResult) || data.empty()) return;
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
  if (m_InputPin != nullptr && SUCCEEDED(m_DeliveryResult)) {
    const HRESULT hr = SendChunks(m_Queue, kTsPacketSize, nullptr, false, false);
    if (FAILED(hr)) m_DeliveryResult = hr;
  }
  m_Queue.clear();
}

// `unit`: raw packets are never split across samples.
HRESULT CDemuxOutputPin::SendChunks(std::span<const std::uint8_t> data, std::size_t unit,
                                    const REFERENCE_TIME* start, bool syncPoint, bool discontinuity) {
  bool first = true;
  while (!data.empty()) {
    ComPtr<IMediaSample> sample;
    const HRESULT got = GetDeliveryBuffer(sample.PutAddress(), nullptr, nullptr, 0);
    if (FAILED(got)) return got;
    if (!sample) return E_UNEXPECTED;
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
    const HRESULT hr = Deliver(sample.Get());
    if (hr != S_OK) return hr;  // S_FALSE: downstream wants no more for now
    data = data.subspan(take);
    first = false;
  }
  return S_OK;
}
