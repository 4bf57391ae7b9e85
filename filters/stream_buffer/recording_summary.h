// What a recorder has written, stream by stream: packets, bytes and the
// span of their start times. The recorder adds to it as it writes; the sink
// hands the last started recorder's out to tools, even after the recorder
// has gone.
#pragma once

#include <cstddef>
#include <mutex>
#include <vector>

#include "platform/graph/strmif.h"

struct RecordedStreamSummary {
  GUID majorType{};
  GUID subtype{};
  LONGLONG packets = 0;
  LONGLONG bytes = 0;
  REFERENCE_TIME first = 0;  // earliest start written
  REFERENCE_TIME last = 0;   // latest start written
};

// Locks: m_Lock only, taken last of all; a tool's question waits for no
// sample.
class CRecordingSummary {
 public:
  explicit CRecordingSummary(std::vector<RecordedStreamSummary> streams) : m_Streams(std::move(streams)) {}

  void Add(std::size_t index, std::size_t bytes, REFERENCE_TIME start) {
    std::lock_guard<std::mutex> guard(m_Lock);
    if (index >= m_Streams.size()) return;
    RecordedStreamSummary& s = m_Streams[index];
    s.first = s.packets == 0 || start < s.first ? start : s.first;
    s.last = s.packets == 0 || start > s.last ? start : s.last;
    ++s.packets;
    s.bytes += static_cast<LONGLONG>(bytes);
  }

  std::vector<RecordedStreamSummary> Streams() const {
    std::lock_guard<std::mutex> guard(m_Lock);
    return m_Streams;
  }

 private:
  mutable std::mutex m_Lock;
  std::vector<RecordedStreamSummary> m_Streams;  // m_Lock
};
