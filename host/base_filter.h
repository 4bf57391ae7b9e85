// The filter base: state (stopped, paused, running), the pin list, the clock
// and the graph. Only connected pins are activated. One state lock, given by
// the derived filter, is shared with its pins.
#pragma once

#include <atomic>
#include <string>

#include "host/critical_section.h"
#include "host/cunknown.h"
#include "platform/graph/strmif.h"

class CBasePin;

class CBaseFilter : public CUnknown, public IBaseFilter, public IAMovieSetup {
 public:
  CBaseFilter(const char* name, IUnknown* outer, CCritSec* stateLock, REFCLSID clsid);
  ~CBaseFilter() override;

  DECLARE_IUNKNOWN
  STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

  // IPersist
  STDMETHODIMP GetClassID(CLSID* clsid) override;
  // IMediaFilter
  STDMETHODIMP Stop() override;
  STDMETHODIMP Pause() override;
  STDMETHODIMP Run(REFERENCE_TIME start) override;
  STDMETHODIMP GetState(DWORD timeoutMs, FILTER_STATE* state) override;
  STDMETHODIMP SetSyncSource(IReferenceClock* clock) override;
  STDMETHODIMP GetSyncSource(IReferenceClock** clock) override;
  // IBaseFilter
  STDMETHODIMP EnumPins(IEnumPins** pins) override;
  STDMETHODIMP FindPin(LPCWSTR id, IPin** pin) override;
  STDMETHODIMP QueryFilterInfo(FILTER_INFO* info) override;
  STDMETHODIMP JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) override;
  STDMETHODIMP QueryVendorInfo(LPWSTR* vendorInfo) override;
  // IAMovieSetup: the object holds no setup data of its own.
  STDMETHODIMP Register() override { return S_FALSE; }
  STDMETHODIMP Unregister() override { return S_FALSE; }

  virtual int GetPinCount() = 0;
  virtual CBasePin* GetPin(int index) = 0;

  // Tells the graph of an event, if the filter is in one.
  HRESULT NotifyEvent(LONG code, LONG_PTR param1, LONG_PTR param2);

  CCritSec* StateLock() const { return m_StateLock; }
  bool IsActive();
  bool IsStopped();
  FILTER_STATE State();
  IFilterGraph* Graph() const { return m_Graph; }
  IReferenceClock* Clock() const { return m_Clock; }

 protected:
  CCritSec* m_StateLock;
  FILTER_STATE m_State = State_Stopped;  // state lock
  REFERENCE_TIME m_Start = 0;            // state lock
  IReferenceClock* m_Clock = nullptr;    // state lock; referenced
  // The graph holds the filter, so the filter does not hold the graph.
  IFilterGraph* m_Graph = nullptr;
  std::atomic<IMediaEventSink*> m_EventSink{nullptr};  // read by workers
  std::wstring m_Name;
  CLSID m_Clsid;
};
