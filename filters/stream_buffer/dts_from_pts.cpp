#include "filters/stream_buffer/dts_from_pts.h"

#include <algorithm>

CDtsFromPts::CDtsFromPts(int reorderDelay, std::int64_t frameDuration, std::int64_t defaultDuration)
    : m_Delay(std::max(0, reorderDelay)),
      m_DefaultDuration(std::max<std::int64_t>(1, defaultDuration)),
      m_Duration(std::max<std::int64_t>(0, frameDuration)) {}

void CDtsFromPts::Push(std::int64_t pts, std::vector<PacketStamps>& settled) {
  m_Window.insert(std::upper_bound(m_Window.begin(), m_Window.end(), pts), pts);
  if (!m_Steady) {
    m_Waiting.push_back(pts);
    if (m_Waiting.size() > static_cast<std::size_t>(m_Delay)) SettleStart(settled);
    return;
  }
  const std::int64_t smallest = m_Window.front();
  m_Window.erase(m_Window.begin());
  settled.push_back(Stamp(pts, smallest));
}

void CDtsFromPts::Flush(std::vector<PacketStamps>& settled) {
  if (!m_Waiting.empty()) SettleStart(settled);
  m_Window.clear();
  m_Steady = false;
}

PacketStamps CDtsFromPts::Untimed() {
  const std::int64_t next = m_AnyDts ? m_LastDts + 1 : 0;
  return Stamp(next, next);
}

void CDtsFromPts::SettleStart(std::vector<PacketStamps>& settled) {
  if (m_Duration == 0) {
    std::vector<std::int64_t> sorted = m_Waiting;
    std::sort(sorted.begin(), sorted.end());
    for (std::size_t i = 1; i < sorted.size(); ++i) {
      const std::int64_t gap = sorted[i] - sorted[i - 1];
      if (gap > 0 && (m_Duration == 0 || gap < m_Duration)) m_Duration = gap;
    }
  }
  const std::int64_t duration = m_Duration > 0 ? m_Duration : m_DefaultDuration;
  const std::int64_t smallest = m_Window.front();
  // With all D+1 known, the last of them takes the smallest PTS out of the
  // window; with fewer (the stream ended first) none is taken.
  const bool full = m_Waiting.size() > static_cast<std::size_t>(m_Delay);
  for (std::size_t k = 0; k < m_Waiting.size(); ++k) {
    const auto stepsBack = static_cast<std::int64_t>(m_Delay) - static_cast<std::int64_t>(k);
    settled.push_back(Stamp(m_Waiting[k], smallest - stepsBack * duration));
  }
  if (full) m_Window.erase(m_Window.begin());
  m_Waiting.clear();
  m_Steady = true;
}

PacketStamps CDtsFromPts::Stamp(std::int64_t pts, std::int64_t dts) {
  if (m_AnyDts && dts <= m_LastDts) dts = m_LastDts + 1;
  m_AnyDts = true;
  m_LastDts = dts;
  return {std::max(pts, dts), dts};
}
