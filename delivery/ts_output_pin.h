// The filter's one output pin: it offers one media type, agrees on samples of
// one transport packet, wires the demultiplexer while it connects, and runs
// the worker that carries packets from the packet engine to the peer.
//
// Lock order: state lock, then pin lock (DecideBufferSize), then filter lock
// (connection and wiring; the engine's file reads; seeking). Nothing is held
// across Deliver or across a command to the worker. The pin lock guards the
// engine and the seeking fields; those that others read without it
// (CurrentPacket, the PTS fields, the seek positions, duration and rate, the
// byte format) are atomic, and the H.264 log has a lock of its own.
//
// What each operation takes, on every path:
//
//   FillBuffer (worker)      pin lock for one call; the filter lock inside
//                            it at a block read and when the kept stream
//                            size was cleared; a read error's message box
//                            with both held.
//   OnThreadStartPlay        no lock: the segment comes from atomics.
//   OnThreadDestroy          pin lock.
//   GetMediaType             state lock.
//   DecideBufferSize         state lock, then the pin lock briefly.
//   CheckConnect, BreakConnect
//                            state lock (the base), then the filter lock.
//   SetPositions             pin lock for the arithmetic, with the filter
//                            lock inside it (file size, stream limit); then,
//                            with no lock, the restart under the worker
//                            sequence and the worker's handshake.
//   SetRate                  pin lock for the store.
//   GetDuration, GetCurrentPosition
//                            pin lock, with the filter lock inside it for the
//                            stream size when it is not kept.
//   GetPositions, SetTimeFormat, GetStopPosition, GetAvailable, GetRate,
//   and the format questions no lock.
//   DurationForQueries       no lock of its own: the filter's queries call it
//                            under the filter lock.
//   Notify                   no lock.
#pragma once

#include <atomic>
#include <string>

#include "analysis/bit_reader.h"
#include "analysis/packet_engine.h"
#include "analysis/section_assembler.h"
#include "delivery/ts_seeking.h"
#include "host/source.h"

class CTsSourceFilter;

inline constexpr REFERENCE_TIME kFrameLength = 333333;

class CTsOutputPin final : public CSourceStream {
 public:
  // Called by Load with the filter lock held. The name follows the filter's
  // PrefDemux: "Video" for the elementary output, else "TS Out".
  CTsOutputPin(HRESULT* result, CTsSourceFilter* filter, CPacketEngineHost& host, REFERENCE_TIME duration);
  ~CTsOutputPin() override;

  STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

  // CSourceStream
  HRESULT GetMediaType(CMediaType* type) override;
  using CSourceStream::GetMediaType;
  HRESULT DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* properties) override;
  HRESULT CheckConnect(IPin* peer) override;
  HRESULT BreakConnect() override;
  HRESULT FillBuffer(IMediaSample* sample) override;
  HRESULT OnThreadCreate() override { return S_OK; }
  HRESULT OnThreadDestroy() override;
  HRESULT OnThreadStartPlay() override;
  // Quality messages go no further upstream.
  STDMETHODIMP Notify(IBaseFilter*, Quality) override { return S_OK; }

  // A new length of the stream from the scan; the stop position follows it.
  void SetSeekDuration(REFERENCE_TIME duration);
  // The duration as GetDuration gives it, read without the pin lock.
  REFERENCE_TIME DurationForQueries();

  CTsSeeking& Seeking() { return m_Seeking; }
  CPacketEngine& Engine() { return m_Engine; }
  CCritSec& PinLock() { return m_PinLock; }
  CTsSourceFilter* Filter() { return m_TsFilter; }
  // Gathers long SDT sections during the scan; only the scan's thread uses it.
  CSectionAssembler& SectionAssembler() { return m_SectionAssembler; }
  CParameterLog& ParameterLog() { return m_ParameterLog; }

 private:
  CTsSourceFilter* m_TsFilter;
  CCritSec m_PinLock;
  CPacketEngine m_Engine;  // pin lock
  CTsSeeking m_Seeking;    // pin lock
  CSectionAssembler m_SectionAssembler;
  CParameterLog m_ParameterLog;  // its own lock: the worker writes, queries read
};
