// What the platform's sinks share, on the filter base library: a filter with
// one input pin "In", the counts of IStreamSinkControl, the once-per-stream
// completion and the report of a failed write. A sink adds what it does with
// the bytes (OnWrite) and around the stream (start, stop, end).
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "platform/graph/stream_sinks.h"
#include "host/base_filter.h"
#include "host/base_input_pin.h"

class CSinkFilter;

class CSinkInputPin final : public CBaseInputPin {
 public:
  CSinkInputPin(CSinkFilter* filter, CCritSec* stateLock, HRESULT* result);

  HRESULT CheckMediaType(const CMediaType* type) override;
  STDMETHODIMP EndOfStream() override;
  STDMETHODIMP BeginFlush() override;
  STDMETHODIMP EndFlush() override;
  STDMETHODIMP NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) override;
  // No allocator here: the upstream pin brings its own.
  STDMETHODIMP GetAllocator(IMemAllocator** allocator) override;
  STDMETHODIMP Receive(IMediaSample* sample) override;
  // A sample waits at most for the delay and the disk's queue.
  STDMETHODIMP ReceiveCanBlock() override { return S_FALSE; }

 private:
  CSinkFilter* const m_Sink;
};

// Locks: the state lock (the base's) guards the state, the connection and
// the accepted types; m_ReceiveLock guards the stream: Receive holds it while
// a sample is written, so Stop, which takes it after the state lock, closes
// nothing under a write. The sample delay waits on m_Wake, which lets it go.
// Events go to the graph under m_ReceiveLock: the graph's event sink takes
// only a lock of its own and never calls back.
class CSinkFilter : public CBaseFilter, public IAMFilterMiscFlags, public IStreamSinkControl {
 public:
  explicit CSinkFilter(const char* name, REFCLSID clsid);
  ~CSinkFilter() override;

  DECLARE_IUNKNOWN
  STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

  int GetPinCount() override { return 1; }
  CBasePin* GetPin(int index) override { return index == 0 ? &m_Pin : nullptr; }

  // The stream starts at the pause out of stopped, connected or not, and
  // ends at the stop.
  STDMETHODIMP Stop() override;
  STDMETHODIMP Pause() override;

  STDMETHODIMP_(ULONG) GetMiscFlags() override { return AM_FILTER_MISC_FLAGS_IS_RENDERER; }

  STDMETHODIMP SetAcceptAnyType(BOOL acceptAny) override;
  STDMETHODIMP GetCounts(LONGLONG* samples, LONGLONG* bytes, LONG* endOfStreams, LONG* discontinuities,
                         LONG* newSegments) override;
  STDMETHODIMP GetLastNewSegment(REFERENCE_TIME* start, REFERENCE_TIME* stop, double* rate) override;
  STDMETHODIMP SetSampleDelay(DWORD microseconds) override;

 protected:
  // Under m_ReceiveLock. Start runs at the pause out of stopped and may
  // refuse it; Stop at the stop; Write for each sample taken, whose failure
  // is the answer to the upstream pin and is reported once as EC_ERRORABORT.
  virtual HRESULT OnStartStreaming() { return S_OK; }
  virtual void OnStopStreaming() {}
  virtual HRESULT OnWrite(const BYTE*, LONG) { return S_OK; }
  // At each end of stream, before the completion goes out: a failure here
  // aborts instead.
  virtual HRESULT OnEndOfStream() { return S_OK; }

  std::mutex m_ReceiveLock;

 private:
  friend class CSinkInputPin;

  bool AcceptsLocked(const AM_MEDIA_TYPE& type) const;
  // Under m_ReceiveLock.
  void WriteFailedLocked(HRESULT failure);

  CCritSec m_StateLockStorage;
  CSinkInputPin m_Pin;
  std::condition_variable m_Wake;  // a stop or a flush ends the sample delay

  bool m_AcceptAny = false;              // state lock
  bool m_CompletionSent = false;         // m_ReceiveLock
  HRESULT m_WriteFailure = S_OK;         // m_ReceiveLock
  REFERENCE_TIME m_SegmentStart = 0;     // m_ReceiveLock
  REFERENCE_TIME m_SegmentStop = 0;      // m_ReceiveLock
  double m_SegmentRate = 0.0;            // m_ReceiveLock

  std::atomic<DWORD> m_DelayMicroseconds{0};
  std::atomic<LONGLONG> m_Samples{0};
  std::atomic<LONGLONG> m_Bytes{0};
  std::atomic<LONG> m_EndOfStreams{0};
  std::atomic<LONG> m_Discontinuities{0};
  std::atomic<LONG> m_NewSegments{0};
};
