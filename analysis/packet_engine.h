// The packet engine: one call takes the next packet of the stream. The scan
// passes call it without a sample and it counts, reads tables or follows the
// PTS; delivery calls it with a sample and the packet goes downstream. It
// never waits for time.
#pragma once

#include <atomic>
#include <cstdint>
#include <span>

#include "analysis/packet_view.h"
#include "platform/win32/win_types.h"

// What the engine needs of the filter that owns the file and the findings.
// Every call may take the filter lock; the engine is called with the pin
// lock held, so the order is pin lock, then filter lock.
class CPacketEngineHost {
 public:
  virtual std::uint64_t GetStreamSize() = 0;
  virtual HRESULT ReadPackets(std::span<std::uint8_t> buffer, std::uint32_t first,
                              std::uint32_t count, std::uint32_t* firstOut) = 0;
  virtual int ScanPhase() = 0;
  virtual std::uint32_t PrefDemux() = 0;
  virtual std::uint16_t VideoPid() = 0;
  // True once a video header has given the aspect ratio; the analysis stops.
  virtual bool VideoHeaderKnown() = 0;
  // 1 if the packet holds a video header that was recognised, else 0.
  virtual int AnalyseVideoHeader(PacketSpan target) = 0;
  virtual void TablesStep(PacketSpan target) = 0;
  virtual void CensusAdd(std::uint16_t pid, std::uint8_t kind) = 0;
  // The end of the stream was reached (again).
  virtual void EndOfStream() = 0;

 protected:
  ~CPacketEngineHost() = default;
};

// What a call with a sample writes to it.
struct SampleProperties {
  REFERENCE_TIME start = 0;
  REFERENCE_TIME stop = 0;
  bool syncPoint = false;
  bool discontinuity = false;
  // Set only by the elementary output; -1 leaves the sample's length alone.
  LONG actualLength = -1;
};

inline constexpr std::uint32_t kGateSearchPackets = 5000;

// Converts toward zero, with values beyond the 64-bit range held at its ends
// and NaN as 0, so odd rates cannot make the cast undefined.
std::int64_t ClampToInt64(double value);

class CPacketEngine {
 public:
  explicit CPacketEngine(CPacketEngineHost& host) : m_Host(host) {}
  CPacketEngine(const CPacketEngine&) = delete;
  CPacketEngine& operator=(const CPacketEngine&) = delete;

  // One packet. `sample` is the sample's buffer, empty for a scan call.
  // S_OK for a packet taken, S_FALSE at the end of the stream, E_FAIL with no
  // packet block or a sample buffer shorter than a packet.
  HRESULT FillBuffer(std::span<std::uint8_t> sample, double rate, REFERENCE_TIME stopTime,
                     SampleProperties* properties);

  // The thread-end reset: the next start begins at packet 0; the gate stays.
  void OnThreadDestroy();
  // A jump to packet `target`: passes over packets until a video header.
  void SeekToPacket(std::uint32_t target);

  // All fields are guarded by the pin lock. Those that clients read without
  // it (the queries, the pages) are atomic so that a reader sees a whole
  // value, perhaps one packet old.
  std::span<std::uint8_t> PacketBlock;     // the block that was read last
  std::uint32_t BlockFirstPacket = 0;      // index of its first packet, in delivery
  std::atomic<std::uint32_t> CurrentPacket{0};
  std::uint32_t DeliveryGate = 0;
  std::uint32_t GateBase = 0;
  bool ResyncAfterSeek = false;
  std::atomic<std::uint64_t> FirstPts{0};
  std::atomic<std::uint64_t> LastPts{0};
  std::atomic<std::uint64_t> PtsDelta{0};
  std::uint16_t PesRemaining = 0;

 private:
  bool RunVideoAnalysis(PacketSpan target);
  void PtsStep(PacketSpan target, bool* syncPoint);
  LONG ElementaryOutput(PacketSpan packet, std::span<std::uint8_t> target, bool hasSample);

  CPacketEngineHost& m_Host;
  std::uint8_t m_Scratch[kPacketSize] = {};  // target of the scan calls
};
