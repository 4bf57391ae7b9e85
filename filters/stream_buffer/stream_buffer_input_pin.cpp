#include "filters/stream_buffer/stream_buffer_input_pin.h"

#include "filters/stream_buffer/stream_buffer_sink.h"

CStreamBufferInputPin::CStreamBufferInputPin(CStreamBufferSink* sink, CCritSec* stateLock, const std::wstring& name)
    : CBaseInputPin("stream buffer input pin", sink, stateLock, nullptr, name.c_str()), m_Sink(sink) {}

HRESULT CStreamBufferInputPin::CheckMediaType(const CMediaType* type) {
  return m_Sink->AcceptsLocked(this, type->Type()) ? S_OK : S_FALSE;
}

HRESULT CStreamBufferInputPin::CompleteConnect(IPin* receivePin) {
  const HRESULT hr = CBaseInputPin::CompleteConnect(receivePin);
  if (SUCCEEDED(hr)) m_Sink->PinConnectedLocked();
  return hr;
}

STDMETHODIMP CStreamBufferInputPin::GetAllocator(IMemAllocator** allocator) {
  if (allocator == nullptr) return E_POINTER;
  *allocator = nullptr;
  return VFW_E_NO_ALLOCATOR;
}

STDMETHODIMP CStreamBufferInputPin::Receive(IMediaSample* sample) {
  if (sample == nullptr) return E_POINTER;
  const HRESULT streaming = CheckStreaming();
  if (streaming != S_OK) return streaming;
  const LONG length = sample->GetActualDataLength();
  if (length < 0 || length > sample->GetSize()) return VFW_E_BUFFER_OVERFLOW;
  BYTE* data = nullptr;
  if (length > 0) {
    const HRESULT hr = sample->GetPointer(&data);
    if (FAILED(hr)) return hr;
    if (data == nullptr) return E_POINTER;
  }
  REFERENCE_TIME start = 0;
  REFERENCE_TIME stop = 0;
  std::optional<REFERENCE_TIME> time;
  if (sample->GetTime(&start, &stop) == S_OK) time = start;
  return m_Sink->Deliver(this, std::span<const std::uint8_t>(data, static_cast<std::size_t>(length)), time);
}

STDMETHODIMP CStreamBufferInputPin::EndOfStream() { return m_Sink->EndOfStreamOn(this); }

STDMETHODIMP CStreamBufferInputPin::BeginFlush() {
  CBaseInputPin::BeginFlush();
  m_Sink->BeginFlushOn(this);
  return S_OK;
}

STDMETHODIMP CStreamBufferInputPin::EndFlush() {
  m_Sink->EndFlushOn(this);
  return CBaseInputPin::EndFlush();
}
