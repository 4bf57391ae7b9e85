// A push source for graph tests: one output pin that, from the pause out of
// stopped, sends a new segment, then `samples` samples of 188 bytes from a
// thread through IMemInputPin::Receive, then end of stream. Counts its
// references, and can offer a clock.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <span>
#include <thread>

#include <gtest/gtest.h>

#include "platform/graph/control.h"
#include "platform/com/objbase.h"
#include "platform/graph/strmif.h"

struct TestSourceOptions {
  int samples = 0;
  int blockAfter = -1;  // the worker waits here until Stop; -1 never
  bool offerClock = false;      // answers IReferenceClock
  bool chooseOwnClock = false;  // on a foreign clock, makes the graph use its own, as a source may
  bool pushes = true;  // false: no thread, the test feeds the peer itself
};

// Byte `i` of sample `n`, so a test can rebuild what was sent.
inline BYTE TestSampleByte(int n, int i) { return static_cast<BYTE>(n * 7 + i); }

// A sample holding a copy of `bytes`, with no flags set.
ComPtr<IMediaSample> MakeSample(std::span<const BYTE> bytes);
// Sample `n` as the source sends it: 188 bytes, a discontinuity when n is 0.
ComPtr<IMediaSample> MakeTestSample(int n);

class CTestSource final : public IBaseFilter, public IReferenceClock {
 public:
  explicit CTestSource(TestSourceOptions options);

  IPin* OutputPin();
  ULONG References() const { return m_RefCount; }
  ComPtr<IReferenceClock> Clock();
  // The state of the filter behind the output pin when this one paused and
  // stopped, to show the graph's order.
  FILTER_STATE PeerStateAtPause() const { return m_PeerStateAtPause; }
  FILTER_STATE PeerStateAtStop() const { return m_PeerStateAtStop; }
  int Sent() const { return m_Sent; }
  // Waits until the worker has sent what it will send before blocking;
  // Unblock lets it go on to the end.
  void WaitUntilBlocked();
  void Unblock();

  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
  STDMETHODIMP_(ULONG) AddRef() override { return ++m_RefCount; }
  STDMETHODIMP_(ULONG) Release() override;

  STDMETHODIMP GetClassID(CLSID* clsid) override {
    *clsid = GUID_NULL;
    return S_OK;
  }
  STDMETHODIMP Stop() override;
  STDMETHODIMP Pause() override;
  STDMETHODIMP Run(REFERENCE_TIME start) override;
  STDMETHODIMP GetState(DWORD timeoutMs, FILTER_STATE* state) override;
  STDMETHODIMP SetSyncSource(IReferenceClock* clock) override;
  STDMETHODIMP GetSyncSource(IReferenceClock** clock) override {
    *clock = Clock().Detach();
    return S_OK;
  }
  STDMETHODIMP EnumPins(IEnumPins** pins) override;
  STDMETHODIMP FindPin(LPCWSTR, IPin** pin) override {
    *pin = nullptr;
    return VFW_E_NOT_FOUND;
  }
  STDMETHODIMP QueryFilterInfo(FILTER_INFO*) override { return E_NOTIMPL; }
  STDMETHODIMP JoinFilterGraph(IFilterGraph* graph, LPCWSTR) override {
    m_Graph = graph;
    return S_OK;
  }
  STDMETHODIMP QueryVendorInfo(LPWSTR*) override { return E_NOTIMPL; }

  STDMETHODIMP GetTime(REFERENCE_TIME* time) override {
    *time = 1234567;
    return S_OK;
  }
  STDMETHODIMP AdviseTime(REFERENCE_TIME, REFERENCE_TIME, HEVENT, DWORD_PTR*) override {
    return E_NOTIMPL;
  }
  STDMETHODIMP AdvisePeriodic(REFERENCE_TIME, REFERENCE_TIME, HSEMAPHORE, DWORD_PTR*) override {
    return E_NOTIMPL;
  }
  STDMETHODIMP Unadvise(DWORD_PTR) override { return S_FALSE; }

 private:
  class COutputPin;
  ~CTestSource();
  void Push();
  FILTER_STATE PeerState();

  const TestSourceOptions m_Options;
  std::atomic<ULONG> m_RefCount{0};
  COutputPin* m_Pin;

  std::mutex m_Lock;
  std::condition_variable m_Changed;
  FILTER_STATE m_State = State_Stopped;  // guarded by m_Lock
  bool m_Stopping = false;               // guarded by m_Lock
  bool m_Blocked = false;                // guarded by m_Lock
  bool m_Unblocked = false;              // guarded by m_Lock
  ComPtr<IReferenceClock> m_Clock;       // guarded by m_Lock
  bool m_ChoseClock = false;             // guarded by m_Lock
  IFilterGraph* m_Graph = nullptr;       // host thread only
  std::thread m_Worker;                  // host thread only
  std::atomic<int> m_Sent{0};
  std::atomic<FILTER_STATE> m_PeerStateAtPause{State_Stopped};
  std::atomic<FILTER_STATE> m_PeerStateAtStop{State_Stopped};
};

// Small helpers of the graph, sink and demultiplexer tests.
template <class T>
ComPtr<T> QueryAs(IUnknown* object, REFIID iid) {
  ComPtr<T> result;
  if (object != nullptr) object->QueryInterface(iid, result.PutVoid());
  return result;
}

template <class T = IBaseFilter>
ComPtr<T> Create(REFCLSID clsid, REFIID iid = IID_IBaseFilter) {
  ComPtr<T> object;
  EXPECT_EQ(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, iid, object.PutVoid()), S_OK);
  return object;
}

inline AM_MEDIA_TYPE TypeOf(REFGUID major, REFGUID sub) {
  return AM_MEDIA_TYPE{major, sub, TRUE, FALSE, 0, GUID_NULL, nullptr, 0, nullptr};
}

inline ComPtr<IPin> InputPinOf(IBaseFilter* sink) {
  ComPtr<IPin> pin;
  sink->FindPin(L"In", pin.PutAddress());
  return pin;
}

// A filter graph per test. Feed adds a filter whose input pin the test then
// feeds by hand, from a source that does not push, and turns the graph's
// completion handling off so that every EC_COMPLETE shows as sent.
class GraphFixture : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override {
    if (m_Control) m_Control->Stop();
  }
  void Feed(IBaseFilter* filter, LPCWSTR input);

  ComPtr<IGraphBuilder> m_Graph;
  ComPtr<IMediaControl> m_Control;
  ComPtr<IMediaEvent> m_Event;
  ComPtr<CTestSource> m_Source;
  ComPtr<IPin> m_In;
  ComPtr<IMemInputPin> m_Memory;
};
