// Pin bases: the connection protocol (the connecting pin drives it: check
// the peer, agree a type, the peer's side, complete; a failed attempt is
// broken off), the output pin's allocator choice and delivery calls.
#pragma once

#include <string>

#include "host/critical_section.h"
#include "host/cunknown.h"
#include "host/media_type.h"
#include "platform/graph/strmif.h"

class CBaseFilter;

class CBasePin : public CUnknown, public IPin, public IQualityControl {
 public:
  CBasePin(const char* objectName, CBaseFilter* filter, CCritSec* stateLock, HRESULT* result,
           LPCWSTR pinName, PIN_DIRECTION direction);
  ~CBasePin() override;

  DECLARE_IUNKNOWN
  STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;
  // A pin lives as long as its filter: references go to the filter.
  STDMETHODIMP_(ULONG) NonDelegatingAddRef() override;
  STDMETHODIMP_(ULONG) NonDelegatingRelease() override;

  // IPin
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
  STDMETHODIMP EndOfStream() override { return S_OK; }
  STDMETHODIMP BeginFlush() override = 0;
  STDMETHODIMP EndFlush() override = 0;
  STDMETHODIMP NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) override;
  // IQualityControl
  STDMETHODIMP Notify(IBaseFilter* self, Quality quality) override;
  STDMETHODIMP SetSink(IQualityControl* sink) override;

  // The connection's steps, for derived pins to refine.
  virtual HRESULT CheckConnect(IPin* peer);
  virtual HRESULT CheckMediaType(const CMediaType* type) = 0;
  virtual HRESULT SetMediaType(const CMediaType* type);
  virtual HRESULT CompleteConnect(IPin* receivePin);
  virtual HRESULT BreakConnect();
  // The pin's own types by position: S_OK, VFW_S_NO_MORE_ITEMS past the
  // end, E_INVALIDARG for a negative position.
  virtual HRESULT GetMediaType(int position, CMediaType* type);

  // Called by the filter on state changes, for connected pins only.
  virtual HRESULT Active() { return S_OK; }
  virtual HRESULT Inactive() { return S_OK; }
  virtual HRESULT Run(REFERENCE_TIME) { return S_OK; }

  bool IsConnected() const { return m_Connected != nullptr; }
  IPin* GetConnected() const { return m_Connected; }
  const std::wstring& Name() const { return m_PinName; }
  const CMediaType& CurrentMediaType() const { return m_MediaType; }

 protected:
  HRESULT AttemptConnection(IPin* receivePin, const CMediaType& type);
  HRESULT AgreeMediaType(IPin* receivePin, const AM_MEDIA_TYPE* type);
  HRESULT DisconnectInternal();

  CBaseFilter* m_Filter;
  CCritSec* m_StateLock;
  std::wstring m_PinName;
  PIN_DIRECTION m_Direction;
  IPin* m_Connected = nullptr;  // state lock; referenced
  CMediaType m_MediaType;       // state lock
  REFERENCE_TIME m_SegmentStart = 0;
  REFERENCE_TIME m_SegmentStop = 0;
  double m_SegmentRate = 1.0;
  IQualityControl* m_QualitySink = nullptr;
};

class CBaseOutputPin : public CBasePin {
 public:
  CBaseOutputPin(const char* objectName, CBaseFilter* filter, CCritSec* stateLock, HRESULT* result,
                 LPCWSTR pinName);
  ~CBaseOutputPin() override;

  HRESULT CheckConnect(IPin* peer) override;
  HRESULT CompleteConnect(IPin* receivePin) override;
  HRESULT BreakConnect() override;
  HRESULT Active() override;
  HRESULT Inactive() override;
  STDMETHODIMP BeginFlush() override { return E_UNEXPECTED; }
  STDMETHODIMP EndFlush() override { return E_UNEXPECTED; }

  // The peer's allocator first, then one of our own.
  virtual HRESULT DecideAllocator(IMemInputPin* peer, IMemAllocator** allocator);
  virtual HRESULT DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* properties) = 0;
  virtual HRESULT InitAllocator(IMemAllocator** allocator);

  HRESULT GetDeliveryBuffer(IMediaSample** sample, REFERENCE_TIME* start, REFERENCE_TIME* stop, DWORD flags);
  HRESULT Deliver(IMediaSample* sample);
  HRESULT DeliverEndOfStream();
  HRESULT DeliverBeginFlush();
  HRESULT DeliverEndFlush();
  HRESULT DeliverNewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate);

 protected:
  IMemAllocator* m_Allocator = nullptr;  // referenced
  IMemInputPin* m_InputPin = nullptr;    // referenced
};
