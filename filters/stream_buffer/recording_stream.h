// One stream of a recording: gathers the samples of a pin into whole PES
// payloads and stamps them. A timed sample starts a packet and untimed ones
// add to it, as the demultiplexer splits a long PES; bytes that come before
// the first timed sample lead the first packet, so nothing taken is lost.
// Packets leave in decode order once their DTS is known.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <vector>

#include "filters/stream_buffer/dts_from_pts.h"
#include "filters/stream_buffer/elementary_types.h"

struct RecordedPacket {
  std::vector<std::uint8_t> bytes;
  std::int64_t pts = 0;
  std::int64_t dts = 0;
  bool key = false;
};

// Video waits for two pictures: enough for B-frames and a pyramid of them.
inline constexpr int kVideoReorderDelay = 2;

class CRecordingStream {
 public:
  // Times in the muxer's ticks; `frameDuration` 0 when the type gives none.
  CRecordingStream(ElementaryKind kind, std::int64_t frameDuration, std::int64_t defaultDuration);

  // One sample's bytes, with its start time when it has one. Packets now
  // complete and stamped go to `out`.
  void Take(std::span<const std::uint8_t> bytes, std::optional<std::int64_t> start,
            std::vector<RecordedPacket>& out);
  // The end of the stream: the open packet and every waiting one go to `out`.
  void Finish(std::vector<RecordedPacket>& out);

  ElementaryKind Kind() const { return m_Kind; }

 private:
  void Close(std::vector<RecordedPacket>& out);
  void Release(const std::vector<PacketStamps>& stamps, std::vector<RecordedPacket>& out);

  const ElementaryKind m_Kind;
  CDtsFromPts m_Dts;
  std::vector<std::uint8_t> m_Leading;  // untimed bytes before any timed sample
  std::optional<RecordedPacket> m_Open; // the packet samples add to
  std::deque<RecordedPacket> m_Waiting; // closed, DTS not known yet
  std::vector<PacketStamps> m_Stamps;   // scratch
};
