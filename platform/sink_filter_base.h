// The filter and input pin plumbing the platform's sinks share: states,
// the one input pin, connection, flushing, counts and the graph's events.
// The platform cannot use the host's base classes, so this is its own.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>

#include "platform/sink_filters.h"
#include "platform/graph/strmif.h"

namespace platform_internal {

class CSinkFilter;

// Lives inside its filter and counts references on it.
class CSinkInputPin final : public IPin, public IMemInputPin {
 public:
  explicit CSinkInputPin(CSinkFilter* filter) : m_Filter(filter) {}

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
  CSinkFilter* const m_Filter;
};

// Lock: m_Lock guards the filter's and the pin's state. Receive holds it
// while a sample is written, so Stop, which takes it too, closes nothing
// under a write; the sample delay waits on m_Wake, which lets it go. Events
// go to the graph under m_Lock: the graph's event sink takes only a lock of
// its own and never calls back.
class CSinkFilter : public IBaseFilter, public IAMFilterMiscFlags, public IStreamSinkControl {
 public:
  CSinkFilter(REFCLSID clsid);
  CSinkFilter(const CSinkFilter&) = delete;
  CSinkFilter& operator=(const CSinkFilter&) = delete;

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

  STDMETHODIMP_(ULONG) GetMiscFlags() override { return AM_FILTER_MISC_FLAGS_IS_RENDERER; }

  STDMETHODIMP SetAcceptAnyType(BOOL acceptAny) override;
  STDMETHODIMP GetCounts(LONGLONG* samples, LONGLONG* bytes, LONG* endOfStreams,
                         LONG* discontinuities, LONG* newSegments) override;
  STDMETHODIMP GetLastNewSegment(REFERENCE_TIME* start, REFERENCE_TIME* stop,
                                 double* rate) override;
  STDMETHODIMP SetSampleDelay(DWORD microseconds) override;

 protected:
  virtual ~CSinkFilter();

  // Interfaces a derived sink adds; E_NOINTERFACE here.
  virtual HRESULT QueryMoreInterfaces(REFIID riid, void** ppv);
  // Under m_Lock. Start runs at the pause out of stopped and may refuse it;
  // Stop at the stop; Write for each sample taken, whose failure is the
  // answer to the upstream pin and is reported once as EC_ERRORABORT.
  virtual HRESULT OnStartStreaming() { return S_OK; }
  virtual void OnStopStreaming() {}
  virtual HRESULT OnWrite(const BYTE*, LONG) { return S_OK; }
  // At each end of stream, before the completion goes out: a failure here
  // aborts instead.
  virtual HRESULT OnEndOfStream() { return S_OK; }

  std::mutex m_Lock;
  FILTER_STATE m_State = State_Stopped;  // guarded by m_Lock

 private:
  friend class CSinkInputPin;

  HRESULT StartLocked();
  void NotifyLocked(LONG code, LONG_PTR param1, LONG_PTR param2);
  void WriteFailedLocked(HRESULT failure);
  bool AcceptsLocked(const AM_MEDIA_TYPE& type) const;

  const CLSID m_Clsid;
  CSinkInputPin m_Pin{this};
  std::condition_variable m_Wake;  // a stop or a flush ends the sample delay

  ComPtr<IReferenceClock> m_Clock;         // guarded by m_Lock
  IFilterGraph* m_Graph = nullptr;         // guarded by m_Lock; the graph holds us, not we it
  IMediaEventSink* m_EventSink = nullptr;  // guarded by m_Lock; same
  std::wstring m_Name;                     // guarded by m_Lock
  ComPtr<IPin> m_Peer;                     // guarded by m_Lock
  AM_MEDIA_TYPE m_ConnectionType{};        // guarded by m_Lock; owns its format block
  bool m_AcceptAny = false;                // guarded by m_Lock
  bool m_Flushing = false;                 // guarded by m_Lock
  bool m_CompletionSent = false;           // guarded by m_Lock
  HRESULT m_WriteFailure = S_OK;           // guarded by m_Lock
  REFERENCE_TIME m_SegmentStart = 0;       // guarded by m_Lock
  REFERENCE_TIME m_SegmentStop = 0;        // guarded by m_Lock
  double m_SegmentRate = 0.0;              // guarded by m_Lock

  std::atomic<DWORD> m_DelayMicroseconds{0};
  std::atomic<LONGLONG> m_Samples{0};
  std::atomic<LONGLONG> m_Bytes{0};
  std::atomic<LONG> m_EndOfStreams{0};
  std::atomic<LONG> m_Discontinuities{0};
  std::atomic<LONG> m_NewSegments{0};
  std::atomic<ULONG> m_RefCount{0};
};

}  // namespace platform_internal
