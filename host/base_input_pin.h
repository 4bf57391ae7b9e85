// The input pin base: IMemInputPin over the pin protocol. It keeps the
// allocator the upstream pin chose, offers one of its own, refuses samples
// while stopped or flushing, and leaves what a sample means to the derived
// pin's Receive.
//
// Locks: the connection steps run under the filter's state lock, as every
// pin's do; Receive, EndOfStream and the flush calls come on the upstream
// thread and take no lock here, so a derived pin chooses its own (a
// receive lock of the filter's, as a rule) and Stop never waits for a
// sample in delivery.
#pragma once

#include <atomic>

#include "host/base_pin.h"

class CBaseInputPin : public CBasePin, public IMemInputPin {
 public:
  CBaseInputPin(const char* objectName, CBaseFilter* filter, CCritSec* stateLock, HRESULT* result,
                LPCWSTR pinName);
  ~CBaseInputPin() override;

  DECLARE_IUNKNOWN
  STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

  // IMemInputPin
  // An allocator of our own, made at the first call; the upstream pin may
  // take it or bring its own.
  STDMETHODIMP GetAllocator(IMemAllocator** allocator) override;
  STDMETHODIMP NotifyAllocator(IMemAllocator* allocator, BOOL readOnly) override;
  STDMETHODIMP GetAllocatorRequirements(ALLOCATOR_PROPERTIES* properties) override;
  // The base only checks that samples may be taken now: a derived pin calls
  // it (or CheckStreaming) first and then does its work.
  STDMETHODIMP Receive(IMediaSample* sample) override;
  // Receive for each, until one is not S_OK.
  STDMETHODIMP ReceiveMultiple(IMediaSample** samples, LONG count, LONG* processed) override;
  STDMETHODIMP ReceiveCanBlock() override { return S_OK; }

  // IPin: an input pin waits for the output pin to drive the connection.
  STDMETHODIMP Connect(IPin* receivePin, const AM_MEDIA_TYPE* type) override;
  // The flush brackets set and clear the flushing flag.
  STDMETHODIMP BeginFlush() override;
  STDMETHODIMP EndFlush() override;

  // Connection steps: the peer must be an output pin.
  HRESULT CheckConnect(IPin* peer) override;
  HRESULT BreakConnect() override;
  // Called under the state lock as the filter leaves and enters stopped.
  HRESULT Active() override;
  HRESULT Inactive() override;

  // S_OK while samples are taken; S_FALSE while flushing, VFW_E_WRONG_STATE
  // while stopped, VFW_E_RUNTIME_ERROR after a failure was reported. Takes
  // no lock.
  HRESULT CheckStreaming() const;
  bool IsFlushing() const { return m_Flushing.load(std::memory_order_acquire); }
  bool IsReadOnly() const { return m_ReadOnly; }
  // A failure a derived Receive has reported upstream: samples are refused
  // until the next stop.
  void SetRuntimeError() { m_RuntimeError.store(true, std::memory_order_release); }

 protected:
  IMemAllocator* m_Allocator = nullptr;  // state lock; referenced
  bool m_ReadOnly = false;               // state lock

 private:
  std::atomic<bool> m_Streaming{false};
  std::atomic<bool> m_Flushing{false};
  std::atomic<bool> m_RuntimeError{false};
};
