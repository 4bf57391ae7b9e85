// The filter's one output pin: it offers one media type, agrees on samples of
// one transport packet, wires the demultiplexer while it connects, and runs
// the worker that carries packets from the packet engine to the peer.
//
// Lock order: state lock, then filter lock (connection and wiring); pin lock,
// then filter lock (the engine's file reads, seeking). Nothing is held across
// Deliver or across a command to the worker. The pin lock guards the engine,
// the seeking fields and the H.264 log's writer side.
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

  // Flush, stop, end flush, run: the worker goes on from the new position.
  // Nothing happens without a worker; the position waits for Pause.
  void RestartWorker();

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
  std::atomic<REFERENCE_TIME> m_DurationMirror;
  CSectionAssembler m_SectionAssembler;
  CParameterLog m_ParameterLog;  // its own lock: the worker writes, queries read
};
