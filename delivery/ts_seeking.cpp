#include "delivery/ts_seeking.h"

#include "delivery/ts_output_pin.h"
#include "delivery/ts_source_filter.h"

CTsSeeking::CTsSeeking(CTsOutputPin* pin, IUnknown* owner, CCritSec* pinLock, REFERENCE_TIME duration)
    : CSourceSeeking(owner, pinLock, duration), m_Pin(pin) {}

std::uint32_t CTsSeeking::PacketForTime(REFERENCE_TIME time) {
  // Whole milliseconds in 32 bits, as signed numbers, then widened again.
  const auto tMs = static_cast<std::int64_t>(static_cast<std::int32_t>(time / 10000));
  const auto dMs = static_cast<std::int64_t>(static_cast<std::int32_t>(m_Duration / 10000));
  // The file itself, whatever stop limit stands.
  const std::uint64_t packets = m_Pin->Filter()->FileSizeBytes() / kPacketSize;
  // A duration under a millisecond has no proportion: every time maps to
  // packet 0.
  if (dMs == 0) return 0;
  const std::uint64_t product = static_cast<std::uint64_t>(tMs) * packets;
  return static_cast<std::uint32_t>(product / static_cast<std::uint64_t>(dMs));
}

HRESULT CTsSeeking::ChangeStart() {
  {
    CAutoLock lock(m_Lock);
    m_Pin->Engine().SeekToPacket(PacketForTime(m_Start));
  }
  m_Pin->RestartWorker();
  return S_OK;
}

HRESULT CTsSeeking::ChangeStop() {
  {
    CAutoLock lock(m_Lock);
    const std::uint32_t stop = PacketForTime(m_Stop);
    m_Pin->Filter()->SetStreamLimit(static_cast<std::uint64_t>(stop) * kPacketSize);
    // Each packet counts as one frame here, which holds only near the start.
    const auto reached = static_cast<std::int64_t>(static_cast<std::uint64_t>(m_Pin->Engine().CurrentPacket) *
                                                   static_cast<std::uint64_t>(kFrameLength));
    if (reached < m_Stop) return S_OK;
  }
  m_Pin->RestartWorker();
  return S_OK;
}

HRESULT CTsSeeking::ChangeRate() {
  CAutoLock lock(m_Lock);
  return m_Rate < 1.0 ? E_FAIL : S_OK;
}

HRESULT CTsSeeking::DurationInBytes(LONGLONG* bytes) {
  *bytes = static_cast<LONGLONG>(m_Pin->Filter()->StreamBytes());
  return S_OK;
}

HRESULT CTsSeeking::CurrentPosition(LONGLONG* position) {
  const std::uint64_t current = m_Pin->Engine().CurrentPacket;
  if (m_TimeFormatIsBytes) {
    *position = static_cast<LONGLONG>(current * kPacketSize);
    return S_OK;
  }
  if (m_Pin->Filter()->FastSeekingOn()) {
    const auto size = static_cast<std::int64_t>(m_Pin->Filter()->StreamBytes());
    // An empty stream has no position but its start.
    const std::int64_t perPacket = size > 0 ? m_Duration * static_cast<std::int64_t>(kPacketSize) / size : 0;
    *position = perPacket * static_cast<std::int64_t>(current);
    return S_OK;
  }
  const auto ms = static_cast<std::int32_t>(static_cast<std::uint32_t>(m_Pin->Engine().PtsDelta / 90));
  *position = static_cast<LONGLONG>(ms) * 10000;
  return S_OK;
}
