#include "filters/stream_buffer/recording_stream.h"

#include "filters/stream_buffer/random_access.h"

CRecordingStream::CRecordingStream(ElementaryKind kind, std::int64_t frameDuration, std::int64_t defaultDuration)
    : m_Kind(kind), m_Dts(IsVideo(kind) ? kVideoReorderDelay : 0, frameDuration, defaultDuration) {}

void CRecordingStream::Take(std::span<const std::uint8_t> bytes, std::optional<std::int64_t> start,
                            std::vector<RecordedPacket>& out) {
  if (start) {
    Close(out);
    RecordedPacket packet;
    packet.bytes = std::move(m_Leading);
    m_Leading.clear();
    packet.bytes.insert(packet.bytes.end(), bytes.begin(), bytes.end());
    packet.pts = *start;
    m_Open = std::move(packet);
  } else if (m_Open) {
    m_Open->bytes.insert(m_Open->bytes.end(), bytes.begin(), bytes.end());
  } else {
    m_Leading.insert(m_Leading.end(), bytes.begin(), bytes.end());
  }
}

void CRecordingStream::Finish(std::vector<RecordedPacket>& out) {
  Close(out);
  m_Stamps.clear();
  m_Dts.Flush(m_Stamps);
  Release(m_Stamps, out);
  if (!m_Leading.empty()) {
    // Bytes that no timed sample followed go out last, so none is lost.
    RecordedPacket packet;
    packet.bytes = std::move(m_Leading);
    m_Leading.clear();
    const PacketStamps stamps = m_Dts.Untimed();
    packet.pts = stamps.pts;
    packet.dts = stamps.dts;
    packet.key = IsRandomAccess(m_Kind, packet.bytes);
    out.push_back(std::move(packet));
  }
}

void CRecordingStream::Close(std::vector<RecordedPacket>& out) {
  if (!m_Open) return;
  m_Open->key = IsRandomAccess(m_Kind, m_Open->bytes);
  const std::int64_t pts = m_Open->pts;
  m_Waiting.push_back(std::move(*m_Open));
  m_Open.reset();
  m_Stamps.clear();
  m_Dts.Push(pts, m_Stamps);
  Release(m_Stamps, out);
}

// The stamps come oldest first, one for each of the oldest waiting packets.
void CRecordingStream::Release(const std::vector<PacketStamps>& stamps, std::vector<RecordedPacket>& out) {
  for (const PacketStamps& s : stamps) {
    RecordedPacket packet = std::move(m_Waiting.front());
    m_Waiting.pop_front();
    packet.pts = s.pts;
    packet.dts = s.dts;
    out.push_back(std::move(packet));
  }
}
