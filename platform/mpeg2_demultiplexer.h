// The platform's MPEG-2 demultiplexer (CLSID_MPEG2Demultiplexer): one input
// pin "MPEG-2 Stream" that takes a transport stream in samples of any size,
// and output pins made on request through IMpeg2Demultiplexer, each with a
// PID map (IMPEG2PIDMap). A PID mapped as MEDIA_ELEMENTARY_STREAM goes out as
// one PES payload per sample, timed by its PTS; one mapped as
// MEDIA_TRANSPORT_PACKET goes out as its raw packets. Delivery runs on the
// upstream's thread, inside Receive.
#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/demux_output_pin.h"
#include "platform/graph/mpeg2_demux.h"
#include "platform/pes_reassembler.h"
#include "platform/graph/strmif.h"

namespace platform_internal {

// For the platform's class table.
HRESULT CreateMpeg2Demultiplexer(IUnknown* outer, REFIID riid, void** ppv);

inline constexpr wchar_t kDemuxInputPinName[] = L"MPEG-2 Stream";

class CMpeg2Demultiplexer;

// Lives inside its filter and counts references on it.
class CDemuxInputPin final : public IPin, public IMemInputPin {
 public:
  explicit CDemuxInputPin(CMpeg2Demultiplexer* filter) : m_Filter(filter) {}

  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
  STDMETHODIMP_(ULONG) AddRef() override;
  STDMETHODIMP_(ULONG) Release() override;

  STDMETHODIMP Connect(IPin* receivePin, const AM_MEDIA_TYPE* type) override;
  STDMETHODIMP ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* type) override;
  STDMETHODIMP Disconnect() override;
  STDMETHODIMP ConnectedTo(IPin** pin) override;
  STDMETHODIMP ConnectionMediaType(AM_MEDIA_TYPE* type) override;
  STDMETHODIMP QueryPinInfo(PIN_INFO* info) override;
  STDMETHODIMP QueryDirection(PIN_DIRECTION* direction) override;
  STDMETHODIMP QueryId(LPWSTR* id) override;
  STDMETHODIMP QueryAccept(const AM_MEDIA_TYPE* type) override;
  STDMETHODIMP EnumMediaTypes(IEnumMediaTypes** types) override;
  STDMETHODIMP QueryInternalConnections(IPin** pins, ULONG* count) override;
  STDMETHODIMP EndOfStream() override;
  STDMETHODIMP BeginFlush() override;
  STDMETHODIMP EndFlush() override;
  STDMETHODIMP NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) override;

  STDMETHODIMP GetAllocator(IMemAllocator** allocator) override;
  STDMETHODIMP NotifyAllocator(IMemAllocator* allocator, BOOL readOnly) override;
  STDMETHODIMP GetAllocatorRequirements(ALLOCATOR_PROPERTIES* properties) override;
  STDMETHODIMP Receive(IMediaSample* sample) override;
  STDMETHODIMP ReceiveMultiple(IMediaSample** samples, LONG count, LONG* processed) override;
  STDMETHODIMP ReceiveCanBlock() override;

 private:
  CMpeg2Demultiplexer* const m_Filter;
};

// Lock order: m_ReceiveLock, then m_Lock.
//   m_ReceiveLock serialises the stream: Receive, EndOfStream, NewSegment,
//   EndFlush, and the reset at Pause and Stop. Downstream pins are called
//   under it; under m_Lock only their QueryAccept and their allocators'
//   Commit and Decommit, which never call back.
//   m_Lock guards the filter's state, its pins, their connections and the
//   PID maps; the host thread takes it alone, so CreateOutputPin, MapPID
//   and the like never wait for a sample in delivery. BeginFlush and Stop
//   do not take m_ReceiveLock before they have released a blocked delivery
//   (flush downstream, decommit).
class CMpeg2Demultiplexer final : public IBaseFilter,
                                  public IMpeg2Demultiplexer,
                                  public IAMFilterMiscFlags {
 public:
  CMpeg2Demultiplexer();
  CMpeg2Demultiplexer(const CMpeg2Demultiplexer&) = delete;
  CMpeg2Demultiplexer& operator=(const CMpeg2Demultiplexer&) = delete;

  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
  STDMETHODIMP_(ULONG) AddRef() override { return ++m_RefCount; }
  STDMETHODIMP_(ULONG) Release() override;

  STDMETHODIMP GetClassID(CLSID* clsid) override;
  STDMETHODIMP Stop() override;
  STDMETHODIMP Pause() override;
  STDMETHODIMP Run(REFERENCE_TIME start) override;
  STDMETHODIMP GetState(DWORD timeoutMs, FILTER_STATE* state) override;
  STDMETHODIMP SetSyncSource(IReferenceClock* clock) override;
  STDMETHODIMP GetSyncSource(IReferenceClock** clock) override;
  STDMETHODIMP EnumPins(IEnumPins** pins) override;
  STDMETHODIMP FindPin(LPCWSTR id, IPin** pin) override;
  STDMETHODIMP QueryFilterInfo(FILTER_INFO* info) override;
  STDMETHODIMP JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) override;
  STDMETHODIMP QueryVendorInfo(LPWSTR* vendorInfo) override;

  STDMETHODIMP CreateOutputPin(AM_MEDIA_TYPE* type, LPWSTR pinName, IPin** pin) override;
  STDMETHODIMP SetOutputPinMediaType(LPWSTR pinName, AM_MEDIA_TYPE* type) override;
  STDMETHODIMP DeleteOutputPin(LPWSTR pinName) override;

  // Neither a renderer nor a source.
  STDMETHODIMP_(ULONG) GetMiscFlags() override { return 0; }

  // ---- For the pins ----
  std::mutex& Lock() { return m_Lock; }
  bool StoppedLocked() const { return m_State == State_Stopped; }
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

  ~CMpeg2Demultiplexer();

  CDemuxOutputPin* FindOutputLocked(LPCWSTR name) const;
  void PublishRoutesLocked();
  std::vector<CDemuxOutputPin*> OutputsLocked() const;
  std::vector<ComPtr<IPin>> ConnectedPeers();

  // Stream side, under m_ReceiveLock.
  void ProcessBytes(std::span<const std::uint8_t> data);
  void ProcessPacket(TsPacketBytes packet);
  void DeliverPes(std::uint16_t pid, const PesPacket& pes);
  void ResetStreamLocked();
  void NoteStreamChangeLocked() { m_StreamVersion.fetch_add(1, std::memory_order_release); }
  // Under m_ReceiveLock: S_OK when a sample may be taken, else the answer.
  HRESULT ReceiveGate();
  REFERENCE_TIME TimeOf(std::uint64_t pts);

  CDemuxInputPin m_Input{this};

  std::mutex m_ReceiveLock;
  std::vector<std::uint8_t> m_Carry;                      // guarded by m_ReceiveLock; a partial packet
  std::array<Assembly, kTsPidCount> m_Assemblies;         // guarded by m_ReceiveLock
  const RouteTable* m_ActiveRoutes = nullptr;             // guarded by m_ReceiveLock; during a call
  std::vector<CDemuxOutputPin*> m_QueuedPins;             // guarded by m_ReceiveLock
  bool m_HaveFirstPts = false;                            // guarded by m_ReceiveLock
  std::uint64_t m_LastPts = 0;                            // guarded by m_ReceiveLock
  LONGLONG m_PtsSinceFirst = 0;                           // guarded by m_ReceiveLock; unwrapped ticks
  REFERENCE_TIME m_SegmentStart = 0;                      // guarded by m_ReceiveLock
  // What Receive last saw of the filter: its answer by state, flushing and
  // connection, and the routes. Taken again under m_Lock only when
  // m_StreamVersion has moved, so a packet costs no m_Lock.
  std::uint64_t m_SeenVersion = 0;                        // guarded by m_ReceiveLock
  HRESULT m_SeenGate = VFW_E_WRONG_STATE;                 // guarded by m_ReceiveLock
  std::shared_ptr<const RouteTable> m_SeenRoutes;         // guarded by m_ReceiveLock

  mutable std::mutex m_Lock;
  FILTER_STATE m_State = State_Stopped;                    // guarded by m_Lock
  bool m_Flushing = false;                                 // guarded by m_Lock
  std::vector<std::unique_ptr<CDemuxOutputPin>> m_Pins;    // guarded by m_Lock; creation order
  std::vector<std::unique_ptr<CDemuxOutputPin>> m_Deleted; // guarded by m_Lock; kept to the end
  RouteTable m_Routes{};                                   // guarded by m_Lock
  std::shared_ptr<const RouteTable> m_PublishedRoutes;     // guarded by m_Lock; copy for the stream
  std::uint64_t m_NextGeneration = 1;                      // guarded by m_Lock
  ComPtr<IPin> m_InputPeer;                                // guarded by m_Lock
  AM_MEDIA_TYPE m_InputType{};                             // guarded by m_Lock; owns its block
  ComPtr<IReferenceClock> m_Clock;                         // guarded by m_Lock
  IFilterGraph* m_Graph = nullptr;                         // guarded by m_Lock; the graph holds us
  std::wstring m_Name;                                     // guarded by m_Lock

  // Moves, under m_Lock, after each change of the state, the flushing flag
  // or the routes. A connection changes only while stopped, and the pause
  // that follows moves it.
  std::atomic<std::uint64_t> m_StreamVersion{1};
  std::atomic<ULONG> m_RefCount{0};
};

}  // namespace platform_internal
