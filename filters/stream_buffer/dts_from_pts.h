// Decode times for a stream whose packets carry only presentation times.
// Video with B-frames shows its pictures out of decode order, so the PTS in
// decode order is not monotonic, while the muxer wants a DTS that rises
// strictly and never passes the PTS. With a reorder delay D, the DTS of the
// i-th packet is the i-th smallest PTS: the first D packets wait until D+1
// times are known, their DTS stepping back from the smallest by a frame
// duration; after that each packet adds its PTS to a window of D+1 and takes
// the window's smallest.
#pragma once

#include <cstdint>
#include <vector>

struct PacketStamps {
  std::int64_t pts;
  std::int64_t dts;
};

class CDtsFromPts {
 public:
  // Times in any unit. `frameDuration` 0: the smallest gap between the first
  // D+1 PTS values, else `defaultDuration`.
  CDtsFromPts(int reorderDelay, std::int64_t frameDuration, std::int64_t defaultDuration);

  // The next packet's PTS, in decode order. The stamps of the packets whose
  // DTS is now known go to `settled`, oldest first: none while the first D
  // wait, D+1 at once when they are known, then one per packet.
  void Push(std::int64_t pts, std::vector<PacketStamps>& settled);
  // Settles the packets that wait, as at the end of a stream, and starts
  // afresh: the next packets wait again, with their DTS still above all
  // given before.
  void Flush(std::vector<PacketStamps>& settled);
  // Stamps for a packet without a time of its own, after all given before.
  PacketStamps Untimed();

  std::int64_t FrameDuration() const { return m_Duration; }

 private:
  void SettleStart(std::vector<PacketStamps>& settled);
  // A PTS outside the reorder delay (or a jump back) would break the
  // muxer's rules: the DTS is raised over the last one, and the PTS to it.
  PacketStamps Stamp(std::int64_t pts, std::int64_t dts);

  const int m_Delay;
  const std::int64_t m_DefaultDuration;
  std::int64_t m_Duration;             // 0 until known
  std::vector<std::int64_t> m_Waiting; // PTS of the first packets, in decode order
  std::vector<std::int64_t> m_Window;  // sorted; PTS not yet taken as a DTS
  bool m_Steady = false;               // the first D+1 are settled
  bool m_AnyDts = false;
  std::int64_t m_LastDts = 0;
};
