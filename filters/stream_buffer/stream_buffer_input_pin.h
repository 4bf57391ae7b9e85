// An input pin of the stream buffer sink: takes one of the five elementary
// stream types a demultiplexer gives and hands its samples to the sink,
// which feeds the recorders that run.
#pragma once

#include <atomic>
#include <string>

#include "host/base_input_pin.h"

class CStreamBufferSink;

// Locks: the connection steps run under the sink's state lock; Receive,
// EndOfStream and the flush calls come on the upstream thread and take the
// sink's receive lock. The stream index is set while the profile locks,
// which a program may do while samples flow, hence an atomic.
class CStreamBufferInputPin final : public CBaseInputPin {
 public:
  CStreamBufferInputPin(CStreamBufferSink* sink, CCritSec* stateLock, const std::wstring& name);

  HRESULT CheckMediaType(const CMediaType* type) override;
  // A connection takes the free pin, so the sink adds another.
  HRESULT CompleteConnect(IPin* receivePin) override;
  // No allocator here: the demultiplexer brings its own.
  STDMETHODIMP GetAllocator(IMemAllocator** allocator) override;
  STDMETHODIMP Receive(IMediaSample* sample) override;
  STDMETHODIMP EndOfStream() override;
  STDMETHODIMP BeginFlush() override;
  STDMETHODIMP EndFlush() override;

  // The pin's stream in the locked profile; -1 when it has none.
  int StreamIndex() const { return m_StreamIndex.load(std::memory_order_acquire); }
  void SetStreamIndex(int index) { m_StreamIndex.store(index, std::memory_order_release); }

  // The sink's receive lock guards it: the pin's end of stream has come
  // since the start or its last flush.
  bool m_Ended = false;

 private:
  CStreamBufferSink* const m_Sink;
  std::atomic<int> m_StreamIndex{-1};
};
