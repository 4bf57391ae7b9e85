// The MPEG-2 demultiplexer (CLSID_MPEG2Demultiplexer): one input pin
// "MPEG-2 Stream" that takes a transport stream in samples of any size, and
// output pins made on request through IMpeg2Demultiplexer, each with a PID
// map (IMPEG2PIDMap). A PID mapped as MEDIA_ELEMENTARY_STREAM goes out as one
// PES payload per sample, timed by its PTS; one mapped as
// MEDIA_TRANSPORT_PACKET goes out as its raw packets. Delivery runs on the
// upstream's thread, inside Receive.
#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "filters/mpeg2_demux/demux_input_pin.h"
#include "filters/mpeg2_demux/demux_output_pin.h"
#include "filters/mpeg2_demux/pes_reassembler.h"
#include "host/base_filter.h"
#include "platform/graph/mpeg2_demux.h"
#include "platform/graph/strmif.h"

// Lock order: m_ReceiveLock, then the state lock.
//   m_ReceiveLock serialises the stream: Receive, EndOfStream, NewSegment,
//   EndFlush, and the reset at Pause and Stop. Downstream pins are called
//   under it; under the state lock only their QueryAccept and their
//   allocators' Commit and Decommit, which never call back.
//   The state lock (the base's) guards the filter's state, its pins, their
//   connections and the PID maps; the host thread takes it alone, so
//   CreateOutputPin, MapPID and the like never wait for a sample in
//   delivery. BeginFlush and Stop do not take m_ReceiveLock before they have
//   released a blocked delivery (flush downstream, decommit).
//   Whether samples are taken at all (stopped, flushing) the input pin knows
//   from flags it reads without a lock.
class CMpeg2Demultiplexer final : public CBaseFilter,
                                  public IMpeg2Demultiplexer,
                                  public IAMFilterMiscFlags {
 public:
  // The factory function of the module's class table.
  static CUnknown* CreateInstance(IUnknown* outer, HRESULT* result);
  ~CMpeg2Demultiplexer() override;

  DECLARE_IUNKNOWN
  STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

  int GetPinCount() override;
  CBasePin* GetPin(int index) override;

  STDMETHODIMP Stop() override;
  STDMETHODIMP Pause() override;
  STDMETHODIMP Run(REFERENCE_TIME start) override;

  STDMETHODIMP CreateOutputPin(AM_MEDIA_TYPE* type, LPWSTR pinName, IPin** pin) override;
  STDMETHODIMP SetOutputPinMediaType(LPWSTR pinName, AM_MEDIA_TYPE* type) override;
  STDMETHODIMP DeleteOutputPin(LPWSTR pinName) override;

  // Neither a renderer nor a source.
  STDMETHODIMP_(ULONG) GetMiscFlags() override { return 0; }

  // ---- For the output pins ----
  HRESULT MapPids(CDemuxOutputPin* pin, std::span<const ULONG> pids, MEDIA_SAMPLE_CONTENT content);
  HRESULT UnmapPids(CDemuxOutputPin* pin, std::span<const ULONG> pids);
  std::vector<PID_MAP> MapOf(CDemuxOutputPin* pin);

 private:
  friend class CDemuxInputPin;

  // Where a PID goes. `generation` changes whenever the pin or the content
  // does, so the stream side knows to drop what it had assembled.
  struct Route {
    CDemuxOutputPin* pin = nullptr;
    MEDIA_SAMPLE_CONTENT content = MEDIA_ELEMENTARY_STREAM;
    std::uint64_t generation = 0;
  };
  using RouteTable = std::array<Route, kTsPidCount>;

  struct Assembly {
    std::unique_ptr<CPesReassembler> assembler;
    std::uint64_t generation = 0;
  };

  CMpeg2Demultiplexer();

  CDemuxOutputPin* FindOutputLocked(LPCWSTR name) const;
  void PublishRoutesLocked();
  std::vector<CDemuxOutputPin*> OutputsLocked() const;
  std::vector<ComPtr<IPin>> ConnectedPeers();

  // Stream side, under m_ReceiveLock.
  void ProcessBytes(std::span<const std::uint8_t> data);
  void ProcessPacket(TsPacketBytes packet);
  void DeliverPes(std::uint16_t pid, const PesPacket& pes);
  void DropPartialPes();
  void ResetStreamLocked();
  // S_OK when a sample may be taken, else the answer; brings m_SeenRoutes
  // up to date.
  HRESULT ReceiveGate();
  REFERENCE_TIME TimeOf(std::uint64_t pts);

  CCritSec m_StateLockStorage;
  CDemuxInputPin m_Input;

  std::mutex m_ReceiveLock;
  std::vector<std::uint8_t> m_Carry;                      // guarded by m_ReceiveLock; a partial packet
  std::array<Assembly, kTsPidCount> m_Assemblies;         // guarded by m_ReceiveLock
  const RouteTable* m_ActiveRoutes = nullptr;             // guarded by m_ReceiveLock; during a call
  std::vector<CDemuxOutputPin*> m_QueuedPins;             // guarded by m_ReceiveLock
  bool m_HaveFirstPts = false;                            // guarded by m_ReceiveLock
  std::uint64_t m_LastPts = 0;                            // guarded by m_ReceiveLock
  LONGLONG m_PtsSinceFirst = 0;                           // guarded by m_ReceiveLock; unwrapped ticks
  REFERENCE_TIME m_SegmentStart = 0;                      // guarded by m_ReceiveLock
  // The routes Receive last saw. Taken again under the state lock only when
  // m_StreamVersion has moved, so a packet costs no state lock.
  std::uint64_t m_SeenVersion = 0;                        // guarded by m_ReceiveLock
  std::shared_ptr<const RouteTable> m_SeenRoutes;         // guarded by m_ReceiveLock

  std::vector<std::unique_ptr<CDemuxOutputPin>> m_Pins;    // state lock; creation order
  std::vector<std::unique_ptr<CDemuxOutputPin>> m_Deleted; // state lock; kept to the end
  RouteTable m_Routes{};                                   // state lock
  std::shared_ptr<const RouteTable> m_PublishedRoutes;     // state lock; copy for the stream
  std::uint64_t m_NextGeneration = 1;                      // state lock

  // Moves, under the state lock, after each change of the routes.
  std::atomic<std::uint64_t> m_StreamVersion{1};
};
