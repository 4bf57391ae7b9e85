#include "delivery/ts_output_pin.h"

#include "delivery/ts_source_filter.h"

namespace {
constexpr std::uint32_t kElementaryDemux = 3;
constexpr LONG kSampleBuffers = 2;
}  // namespace

CTsOutputPin::CTsOutputPin(HRESULT* result, CTsSourceFilter* filter, CPacketEngineHost& host,
                           REFERENCE_TIME duration)
    : CSourceStream("Brindlet output pin", result, filter,
                    filter->PrefDemuxValue() == kElementaryDemux ? L"Video" : L"TS Out"),
      m_TsFilter(filter),
      m_Engine(host),
      m_Seeking(this, NonDelegatingUnknown(), &m_PinLock, duration) {}

CTsOutputPin::~CTsOutputPin() = default;

STDMETHODIMP CTsOutputPin::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IMediaSeeking) return GetInterface(static_cast<IMediaSeeking*>(&m_Seeking), ppv);
  return CSourceStream::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CTsOutputPin::GetMediaType(CMediaType* type) {
  if (type == nullptr) return E_POINTER;
  CAutoLock lock(m_StateLock);
  *type = CMediaType();
  type->SetMajorType(MEDIATYPE_Stream);
  type->SetSubtype(m_TsFilter->PrefDemuxValue() == kElementaryDemux ? MEDIASUBTYPE_MPEG2_VIDEO
                                                                    : MEDIASUBTYPE_MPEG2_TRANSPORT);
  type->SetFixedSizeSamples(true);
  type->SetSampleSize(1);
  return S_OK;
}

HRESULT CTsOutputPin::DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* properties) {
  CAutoLock lock(m_StateLock);
  if (allocator == nullptr || properties == nullptr) return E_POINTER;
  {
    CAutoLock pinLock(&m_PinLock);
    if (m_Engine.PacketBlock.empty()) return E_FAIL;
  }
  // One packet per sample, at most two in flight, whatever the peer asked.
  properties->cBuffers = kSampleBuffers;
  properties->cbBuffer = static_cast<LONG>(kPacketSize);
  properties->cbAlign = 1;
  properties->cbPrefix = 0;
  ALLOCATOR_PROPERTIES actual{};
  const HRESULT hr = allocator->SetProperties(properties, &actual);
  if (FAILED(hr)) return hr;
  return actual.cbBuffer >= static_cast<LONG>(kPacketSize) ? S_OK : E_FAIL;
}

HRESULT CTsOutputPin::CheckConnect(IPin* peer) {
  HRESULT hr = CBaseOutputPin::CheckConnect(peer);
  if (FAILED(hr)) return hr;
  if (m_TsFilter->HoldsDemux()) return S_OK;

  PIN_INFO info{};
  hr = peer->QueryPinInfo(&info);
  if (FAILED(hr)) return hr;
  if (info.pFilter != nullptr) {
    // On success the wiring keeps the reference that the pin info carried.
    hr = m_TsFilter->WireDemux(info.pFilter);
    if (FAILED(hr)) {
      info.pFilter->Release();
      if (m_TsFilter->PrefDemuxValue() != 1) hr = S_OK;
    } else if (!m_TsFilter->HoldsDemux()) {
      // The pins stood from an earlier wiring: nothing holds the peer now.
      info.pFilter->Release();
    }
    if (FAILED(hr)) return hr;
  }
  m_TsFilter->RegisterFilterInRot();
  return hr;
}

HRESULT CTsOutputPin::BreakConnect() {
  const HRESULT hr = CBaseOutputPin::BreakConnect();
  m_TsFilter->ReleaseDemux();
  if (FAILED(hr)) return hr;
  m_TsFilter->RevokeFilterFromRot();
  return S_OK;
}

HRESULT CTsOutputPin::FillBuffer(IMediaSample* sample) {
  CAutoLock lock(&m_PinLock);
  if (m_Engine.PacketBlock.empty()) return E_FAIL;

  std::span<std::uint8_t> buffer;
  if (sample != nullptr) {
    BYTE* data = nullptr;
    const LONG size = sample->GetSize();
    if (FAILED(sample->GetPointer(&data)) || data == nullptr || size <= 0) return E_FAIL;
    buffer = std::span<std::uint8_t>(data, static_cast<std::size_t>(size));
  }

  SampleProperties properties;
  const HRESULT hr = m_Engine.FillBuffer(buffer, m_Seeking.SeekRate(), m_Seeking.SeekStop(), &properties);
  if (hr == S_OK && sample != nullptr) {
    sample->SetTime(&properties.start, &properties.stop);
    sample->SetSyncPoint(properties.syncPoint ? TRUE : FALSE);
    if (properties.discontinuity) sample->SetDiscontinuity(TRUE);
    if (properties.actualLength >= 0) sample->SetActualDataLength(properties.actualLength);
  }
  return hr;
}

HRESULT CTsOutputPin::OnThreadDestroy() {
  CAutoLock lock(&m_PinLock);
  m_Engine.OnThreadDestroy();
  return S_OK;
}

HRESULT CTsOutputPin::OnThreadStartPlay() {
  return DeliverNewSegment(m_Seeking.SeekStart(), m_Seeking.SeekStop(), m_Seeking.SeekRate());
}

void CTsOutputPin::SetSeekDuration(REFERENCE_TIME duration) { m_Seeking.SetSeekDuration(duration); }

REFERENCE_TIME CTsOutputPin::DurationForQueries() {
  // What GetDuration answers, but from the atomic fields, so that a query
  // holding the filter lock never waits for the pin lock. The stream size
  // takes the filter lock, which such a caller holds already.
  if (m_Seeking.TimeFormatIsBytes()) return static_cast<REFERENCE_TIME>(m_TsFilter->StreamBytes());
  return m_Seeking.SeekDuration();
}
