#include "delivery/ts_output_pin.h"

CTsOutputPin::CTsOutputPin(HRESULT* result, CPacketEngineHost& host, std::uint32_t prefDemux,
                           REFERENCE_TIME duration)
    : m_Name(prefDemux == 3 ? L"Video" : L"TS Out"),
      m_Engine(host),
      m_Duration(duration),
      m_Stop(duration) {
  if (result != nullptr) *result = S_OK;
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
  const HRESULT hr = m_Engine.FillBuffer(buffer, m_Rate, m_Stop, &properties);
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

void CTsOutputPin::SetSeekDuration(REFERENCE_TIME duration) {
  CAutoLock lock(&m_PinLock);
  m_Duration = duration;
  m_Stop = duration;
}
