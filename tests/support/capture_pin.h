// A downstream peer for tests: a filter with one input pin that records what
// arrives, can refuse, hold or slow down samples, and a graph stand-in that
// records events.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "platform/graph/strmif.h"

namespace tsw {

// Records the events a filter sends to its graph.
class EventRecorder final : public IFilterGraph, public IMediaEventSink {
 public:
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
  STDMETHODIMP_(ULONG) AddRef() override { return 2; }
  STDMETHODIMP_(ULONG) Release() override { return 1; }
  STDMETHODIMP AddFilter(IBaseFilter*, LPCWSTR) override { return E_NOTIMPL; }
  STDMETHODIMP RemoveFilter(IBaseFilter*) override { return E_NOTIMPL; }
  STDMETHODIMP EnumFilters(IEnumFilters**) override { return E_NOTIMPL; }
  STDMETHODIMP FindFilterByName(LPCWSTR, IBaseFilter**) override { return E_NOTIMPL; }
  STDMETHODIMP ConnectDirect(IPin*, IPin*, const AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
  STDMETHODIMP Reconnect(IPin*) override { return E_NOTIMPL; }
  STDMETHODIMP Disconnect(IPin*) override { return E_NOTIMPL; }
  STDMETHODIMP SetDefaultSyncSource() override { return E_NOTIMPL; }
  STDMETHODIMP Notify(LONG code, LONG_PTR param1, LONG_PTR param2) override;

  struct Event {
    LONG code;
    LONG_PTR param1;
  };
  std::vector<Event> Events();

 private:
  std::mutex m_Lock;
  std::vector<Event> m_Events;
};

// The input pin and its filter in one object: enough of IBaseFilter for
// QueryPinInfo, and a pin with IMemInputPin that records samples.
// A filter that takes every state and implements nothing more of
// IBaseFilter, as far as a pin's owner or a stand-in peer must answer.
class BaseFilterStubs : public IBaseFilter {
 public:
  STDMETHODIMP GetClassID(CLSID*) override { return E_NOTIMPL; }
  STDMETHODIMP Stop() override { return S_OK; }
  STDMETHODIMP Pause() override { return S_OK; }
  STDMETHODIMP Run(REFERENCE_TIME) override { return S_OK; }
  STDMETHODIMP GetState(DWORD, FILTER_STATE* state) override { return *state = State_Stopped, S_OK; }
  STDMETHODIMP SetSyncSource(IReferenceClock*) override { return S_OK; }
  STDMETHODIMP GetSyncSource(IReferenceClock**) override { return E_NOTIMPL; }
  STDMETHODIMP EnumPins(IEnumPins**) override { return E_NOTIMPL; }
  STDMETHODIMP FindPin(LPCWSTR, IPin**) override { return E_NOTIMPL; }
  STDMETHODIMP QueryFilterInfo(FILTER_INFO*) override { return E_NOTIMPL; }
  STDMETHODIMP JoinFilterGraph(IFilterGraph*, LPCWSTR) override { return S_OK; }
  STDMETHODIMP QueryVendorInfo(LPWSTR*) override { return E_NOTIMPL; }

 protected:
  ~BaseFilterStubs() = default;
};

class CapturePin final : public IPin, public IMemInputPin, public BaseFilterStubs {
 public:
  CapturePin();
  ~CapturePin();

  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
  STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(++m_References); }
  STDMETHODIMP_(ULONG) Release() override { return static_cast<ULONG>(--m_References); }

  // IPin
  STDMETHODIMP Connect(IPin*, const AM_MEDIA_TYPE*) override { return E_UNEXPECTED; }
  STDMETHODIMP ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* type) override;
  STDMETHODIMP Disconnect() override;
  STDMETHODIMP ConnectedTo(IPin** pin) override;
  STDMETHODIMP ConnectionMediaType(AM_MEDIA_TYPE* type) override;
  STDMETHODIMP QueryPinInfo(PIN_INFO* info) override;
  STDMETHODIMP QueryDirection(PIN_DIRECTION* direction) override;
  STDMETHODIMP QueryId(LPWSTR*) override { return E_NOTIMPL; }
  STDMETHODIMP QueryAccept(const AM_MEDIA_TYPE*) override { return S_OK; }
  STDMETHODIMP EnumMediaTypes(IEnumMediaTypes**) override { return E_NOTIMPL; }
  STDMETHODIMP QueryInternalConnections(IPin**, ULONG*) override { return E_NOTIMPL; }
  STDMETHODIMP EndOfStream() override;
  STDMETHODIMP BeginFlush() override;
  STDMETHODIMP EndFlush() override;
  STDMETHODIMP NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) override;

  // IMemInputPin
  STDMETHODIMP GetAllocator(IMemAllocator**) override { return VFW_E_NO_ALLOCATOR; }
  STDMETHODIMP NotifyAllocator(IMemAllocator*, BOOL) override { return S_OK; }
  STDMETHODIMP GetAllocatorRequirements(ALLOCATOR_PROPERTIES*) override { return E_NOTIMPL; }
  STDMETHODIMP Receive(IMediaSample* sample) override;
  STDMETHODIMP ReceiveMultiple(IMediaSample**, LONG, LONG*) override { return E_NOTIMPL; }
  STDMETHODIMP ReceiveCanBlock() override { return S_FALSE; }


  // What came, and how to answer.
  struct Sample {
    std::vector<std::uint8_t> bytes;
    REFERENCE_TIME start;
    REFERENCE_TIME stop;
    bool sync;
    bool discontinuity;
  };
  std::vector<Sample> Samples();
  std::size_t SampleCount();
  int EndOfStreams() const { return m_EndOfStreams; }
  int Flushes() const { return m_Flushes; }
  int NewSegments() const { return m_NewSegments; }
  REFERENCE_TIME LastSegmentStart() const { return m_SegmentStart; }
  // Waits until `count` samples came, or an end of stream, at most `ms`.
  bool WaitFor(std::size_t count, int ms);
  bool WaitForEndOfStream(int ms, int count = 1);

  void SetReceiveResult(HRESULT result) { m_ReceiveResult = result; }
  // Keeps samples instead of letting them go: the allocator runs dry.
  void SetHoldSamples(bool hold) { m_Hold = hold; }
  void ReleaseHeldSamples();
  void SetDelayMicroseconds(int us) { m_DelayUs = us; }
  long References() const { return m_References; }
  bool Connected();

 private:
  std::atomic<long> m_References{0};
  std::mutex m_Lock;
  std::condition_variable m_Changed;
  IPin* m_Connected = nullptr;
  std::vector<Sample> m_Samples;
  std::vector<IMediaSample*> m_Held;
  std::atomic<int> m_EndOfStreams{0};
  std::atomic<int> m_Flushes{0};
  std::atomic<int> m_NewSegments{0};
  std::atomic<REFERENCE_TIME> m_SegmentStart{0};
  std::atomic<bool> m_Flushing{false};
  std::atomic<HRESULT> m_ReceiveResult{S_OK};
  std::atomic<bool> m_Hold{false};
  std::atomic<int> m_DelayUs{0};
};

}  // namespace tsw
