// The stream buffer sink (CLSID_StreamBufferSink): a renderer with one free
// input pin at all times, whose connected pins become the streams of the
// recordings once the profile is locked. Recorders it makes write those
// streams to a file from their Start to their Stop; the sink feeds each
// sample to the recorders that run, on the upstream thread.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "filters/stream_buffer/recording_summary.h"
#include "filters/stream_buffer/stream_buffer_input_pin.h"
#include "host/base_filter.h"
#include "host/media_type.h"
#include "platform/graph/stream_buffer.h"

class CRecorder;

// Free pins are added up to this many in all.
inline constexpr int kMaxStreamBufferPins = 16;

// Lock order: a recorder's control lock, then the state lock, then the
// receive lock, then a recorder's muxer lock; the summary locks come last.
//   The state lock (the base's) guards the state, the pins and their
//   connections, and the profile.
//   m_ReceiveLock guards the stream side: the running recorders, the ends of
//   stream and the events. The upstream threads take it for each sample, so
//   a recorder that leaves the list is fed no more once its removal returns.
//   Events go to the graph under it: the graph's event sink takes only a
//   lock of its own and never calls back.
class CStreamBufferSink final : public CBaseFilter,
                                public IStreamBufferSink,
                                public IStreamBufferRecordingSummary,
                                public IAMFilterMiscFlags {
 public:
  // The factory function of the module's class table.
  static CUnknown* CreateInstance(IUnknown* outer, HRESULT* result);
  ~CStreamBufferSink() override;

  DECLARE_IUNKNOWN
  STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

  int GetPinCount() override;
  CBasePin* GetPin(int index) override;

  // Each pause out of stopped starts the ends of stream afresh.
  STDMETHODIMP Pause() override;

  STDMETHODIMP_(ULONG) GetMiscFlags() override { return AM_FILTER_MISC_FLAGS_IS_RENDERER; }

  // The buffer file's name is not used: recordings go straight to their files.
  STDMETHODIMP LockProfile(LPCWSTR bufferFile) override;
  // Locks the profile first if no one has.
  STDMETHODIMP CreateRecorder(LPCWSTR fileName, DWORD recordType, IUnknown** recorder) override;
  STDMETHODIMP IsProfileLocked() override;

  // Of the recorder started last.
  STDMETHODIMP GetStreamCount(DWORD* count) override;
  STDMETHODIMP GetStream(DWORD index, GUID* majorType, GUID* subtype, LONGLONG* packets, LONGLONG* bytes,
                         REFERENCE_TIME* first, REFERENCE_TIME* last) override;

  // ---- For the pins ----
  // Under the state lock.
  bool AcceptsLocked(const CStreamBufferInputPin* pin, const AM_MEDIA_TYPE& type) const;
  void PinConnectedLocked();
  // On the upstream thread.
  HRESULT Deliver(CStreamBufferInputPin* pin, std::span<const std::uint8_t> bytes,
                  std::optional<REFERENCE_TIME> start);
  HRESULT EndOfStreamOn(CStreamBufferInputPin* pin);
  void BeginFlushOn(CStreamBufferInputPin* pin);
  void EndFlushOn(CStreamBufferInputPin* pin);

  // ---- For the recorders ----
  // The types of the profile's streams, locking it if no one has.
  HRESULT ProfileTypes(std::vector<CMediaType>* types);
  void AddRunning(CRecorder* recorder, std::shared_ptr<CRecordingSummary> summary);
  void RemoveRunning(CRecorder* recorder);

 private:
  CStreamBufferSink();
  HRESULT LockProfileLocked();
  // Under m_ReceiveLock: a recording failed (the first time for that recorder).
  void RecordingFailedLocked(HRESULT failure);

  CCritSec m_StateLockStorage;
  std::vector<std::unique_ptr<CStreamBufferInputPin>> m_Pins;  // state lock; only grows
  bool m_ProfileLocked = false;                                // state lock
  std::vector<CMediaType> m_Profile;                           // state lock

  std::mutex m_ReceiveLock;
  std::vector<CRecorder*> m_Running;  // m_ReceiveLock; each removes itself before it goes
  int m_PinsToEnd = 0;                // m_ReceiveLock; connected at the start
  int m_PinsEnded = 0;                // m_ReceiveLock
  bool m_CompletionSent = false;      // m_ReceiveLock
  bool m_AbortSent = false;           // m_ReceiveLock

  // A lock of its own, so that a tool's question never waits for a sample.
  std::mutex m_SummaryLock;
  std::shared_ptr<CRecordingSummary> m_LastSummary;  // m_SummaryLock
};
