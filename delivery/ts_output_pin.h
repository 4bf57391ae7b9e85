// The filter's one output pin: it owns the packet engine and hands out one
// transport packet per sample.
//
// Lock order: pin lock, then filter lock (the engine's file reads and census
// calls). The pin lock guards the engine's fields, the stop time and the rate.
#pragma once

#include <atomic>
#include <string>

#include "analysis/bit_reader.h"
#include "analysis/packet_engine.h"
#include "analysis/section_assembler.h"
#include "host/critical_section.h"
#include "platform/strmif.h"

inline constexpr REFERENCE_TIME kDefaultFrameLength = 333333;

class CTsOutputPin {
 public:
  // `prefDemux` fixes the name: "Video" for the elementary output, else
  // "TS Out". `result` receives the result of joining the filter's pins.
  CTsOutputPin(HRESULT* result, CPacketEngineHost& host, std::uint32_t prefDemux,
               REFERENCE_TIME duration);
  CTsOutputPin(const CTsOutputPin&) = delete;
  CTsOutputPin& operator=(const CTsOutputPin&) = delete;

  const std::wstring& Name() const { return m_Name; }

  // The packet engine: a null sample is a scan call.
  HRESULT FillBuffer(IMediaSample* sample);
  // Runs at the end of the worker and twice in Load.
  HRESULT OnThreadDestroy();
  // A new duration from the scan: the stop time follows it.
  void SetSeekDuration(REFERENCE_TIME duration);

  REFERENCE_TIME Duration() const { return m_Duration; }
  CPacketEngine& Engine() { return m_Engine; }
  // Gathers long SDT sections during the scan; only the scan's thread uses it.
  CSectionAssembler& SectionAssembler() { return m_SectionAssembler; }
  CParameterLog& ParameterLog() { return m_ParameterLog; }
  CCritSec& PinLock() { return m_PinLock; }

 private:
  std::wstring m_Name;
  CCritSec m_PinLock;
  CPacketEngine m_Engine;                       // pin lock
  std::atomic<REFERENCE_TIME> m_Duration;       // pin lock to write; read freely
  REFERENCE_TIME m_Stop;                        // pin lock
  double m_Rate = 1.0;                          // pin lock
  CSectionAssembler m_SectionAssembler;
  CParameterLog m_ParameterLog;  // its own lock: the worker writes, queries read
};
