#include "filters/stream_buffer/stream_buffer_sink.h"

#include <algorithm>
#include <new>
#include <string>

#include "filters/stream_buffer/elementary_types.h"
#include "filters/stream_buffer/recorder.h"
#include "filters/stream_buffer/recording_file.h"
#include "host/text_convert.h"

namespace {

std::wstring PinName(std::size_t index) { return L"Input " + std::to_wstring(index); }

}  // namespace

CUnknown* CStreamBufferSink::CreateInstance(IUnknown* outer, HRESULT* result) {
  if (outer != nullptr) {
    if (result != nullptr) *result = CLASS_E_NOAGGREGATION;
    return nullptr;
  }
  auto* sink = new (std::nothrow) CStreamBufferSink();
  if (sink != nullptr && sink->m_Pins.empty()) {
    delete sink;
    sink = nullptr;
  }
  if (result != nullptr) *result = sink != nullptr ? S_OK : E_OUTOFMEMORY;
  return sink;
}

CStreamBufferSink::CStreamBufferSink()
    : CBaseFilter("Stream Buffer Sink", nullptr, &m_StateLockStorage, CLSID_StreamBufferSink) {
  auto pin = std::unique_ptr<CStreamBufferInputPin>(
      new (std::nothrow) CStreamBufferInputPin(this, &m_StateLockStorage, PinName(0)));
  if (pin) m_Pins.push_back(std::move(pin));
}

CStreamBufferSink::~CStreamBufferSink() = default;

STDMETHODIMP CStreamBufferSink::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IStreamBufferSink) return GetInterface(static_cast<IStreamBufferSink*>(this), ppv);
  if (riid == IID_IStreamBufferRecordingSummary) {
    return GetInterface(static_cast<IStreamBufferRecordingSummary*>(this), ppv);
  }
  if (riid == IID_IAMFilterMiscFlags) return GetInterface(static_cast<IAMFilterMiscFlags*>(this), ppv);
  return CBaseFilter::NonDelegatingQueryInterface(riid, ppv);
}

int CStreamBufferSink::GetPinCount() {
  CAutoLock lock(&m_StateLockStorage);
  return static_cast<int>(m_Pins.size());
}

CBasePin* CStreamBufferSink::GetPin(int index) {
  CAutoLock lock(&m_StateLockStorage);
  if (index < 0 || index >= static_cast<int>(m_Pins.size())) return nullptr;
  return m_Pins[static_cast<std::size_t>(index)].get();
}

STDMETHODIMP CStreamBufferSink::Pause() {
  CAutoLock lock(&m_StateLockStorage);
  if (m_State == State_Stopped) {
    std::lock_guard<std::mutex> guard(m_ReceiveLock);
    m_PinsToEnd = 0;
    for (const auto& pin : m_Pins) {
      pin->m_Ended = false;
      if (pin->IsConnected()) ++m_PinsToEnd;
    }
    m_PinsEnded = 0;
    m_CompletionSent = false;
    m_AbortSent = false;
  }
  return CBaseFilter::Pause();
}

STDMETHODIMP CStreamBufferSink::LockProfile(LPCWSTR) {
  CAutoLock lock(&m_StateLockStorage);
  return LockProfileLocked();
}

STDMETHODIMP CStreamBufferSink::IsProfileLocked() {
  CAutoLock lock(&m_StateLockStorage);
  return m_ProfileLocked ? S_OK : S_FALSE;
}

STDMETHODIMP CStreamBufferSink::CreateRecorder(LPCWSTR fileName, DWORD recordType, IUnknown** recorder) {
  if (recorder != nullptr) *recorder = nullptr;
  if (fileName == nullptr || recorder == nullptr || *fileName == L'\0') return E_INVALIDARG;
  if (recordType != RECORDING_TYPE_CONTENT) return E_INVALIDARG;
  // Checked here as well as at the recorder's start, so that a program
  // learns at once that it must make room.
  if (NameTaken(NarrowText(fileName))) return HRESULT_FROM_WIN32(ERROR_FILE_EXISTS);
  {
    CAutoLock lock(&m_StateLockStorage);
    if (const HRESULT hr = LockProfileLocked(); FAILED(hr)) return hr;
  }
  return CRecorder::Create(this, fileName, recorder);
}

HRESULT CStreamBufferSink::LockProfileLocked() {
  if (m_ProfileLocked) return S_OK;
  std::vector<CMediaType> profile;
  for (const auto& pin : m_Pins) {
    if (pin->IsConnected()) profile.push_back(pin->CurrentMediaType());
  }
  if (profile.empty()) return VFW_E_NOT_CONNECTED;
  int index = 0;
  for (const auto& pin : m_Pins) {
    if (pin->IsConnected()) pin->SetStreamIndex(index++);
  }
  m_Profile = std::move(profile);
  m_ProfileLocked = true;
  return S_OK;
}

bool CStreamBufferSink::AcceptsLocked(const CStreamBufferInputPin* pin, const AM_MEDIA_TYPE& type) const {
  if (!KindOf(type)) return false;
  if (!m_ProfileLocked) return true;
  // The streams are fixed: a pin of the profile may connect again with its
  // type, no other pin at all.
  const int index = pin->StreamIndex();
  if (index < 0) return false;
  const AM_MEDIA_TYPE& locked = m_Profile[static_cast<std::size_t>(index)].Type();
  return locked.majortype == type.majortype && locked.subtype == type.subtype;
}

void CStreamBufferSink::PinConnectedLocked() {
  if (m_ProfileLocked || static_cast<int>(m_Pins.size()) >= kMaxStreamBufferPins) return;
  const bool allTaken = std::all_of(m_Pins.begin(), m_Pins.end(), [](const auto& pin) { return pin->IsConnected(); });
  if (!allTaken) return;
  auto pin = std::unique_ptr<CStreamBufferInputPin>(
      new (std::nothrow) CStreamBufferInputPin(this, &m_StateLockStorage, PinName(m_Pins.size())));
  if (pin) m_Pins.push_back(std::move(pin));
}

HRESULT CStreamBufferSink::Deliver(CStreamBufferInputPin* pin, std::span<const std::uint8_t> bytes,
                                   std::optional<REFERENCE_TIME> start) {
  std::lock_guard<std::mutex> guard(m_ReceiveLock);
  const HRESULT streaming = pin->CheckStreaming();
  if (streaming != S_OK) return streaming;
  const int stream = pin->StreamIndex();
  if (stream < 0) return S_OK;  // not recorded
  for (CRecorder* recorder : m_Running) {
    const HRESULT hr = recorder->Take(static_cast<std::size_t>(stream), bytes, start);
    if (FAILED(hr)) RecordingFailedLocked(hr);
  }
  // A recording's failure is its own and the graph's event: the stream
  // goes on for the other recorders.
  return S_OK;
}

HRESULT CStreamBufferSink::EndOfStreamOn(CStreamBufferInputPin* pin) {
  std::lock_guard<std::mutex> guard(m_ReceiveLock);
  const HRESULT streaming = pin->CheckStreaming();
  if (streaming != S_OK) return streaming;
  if (const int stream = pin->StreamIndex(); stream >= 0) {
    for (CRecorder* recorder : m_Running) {
      const HRESULT hr = recorder->EndStream(static_cast<std::size_t>(stream));
      if (FAILED(hr)) RecordingFailedLocked(hr);
    }
  }
  if (!pin->m_Ended) {
    pin->m_Ended = true;
    ++m_PinsEnded;
  }
  // One completion per stream, and none after an abort: the graph has its
  // answer then.
  if (m_PinsEnded >= m_PinsToEnd && !m_CompletionSent && !m_AbortSent) {
    m_CompletionSent = true;
    NotifyEvent(EC_COMPLETE, S_OK, reinterpret_cast<LONG_PTR>(static_cast<IBaseFilter*>(this)));
  }
  return S_OK;
}

// What the recorders gathered of the pin's stream is whole as far as it
// goes: it goes out before the stream starts again.
void CStreamBufferSink::BeginFlushOn(CStreamBufferInputPin* pin) {
  std::lock_guard<std::mutex> guard(m_ReceiveLock);
  const int stream = pin->StreamIndex();
  if (stream < 0) return;
  for (CRecorder* recorder : m_Running) {
    const HRESULT hr = recorder->EndStream(static_cast<std::size_t>(stream));
    if (FAILED(hr)) RecordingFailedLocked(hr);
  }
}

void CStreamBufferSink::EndFlushOn(CStreamBufferInputPin* pin) {
  std::lock_guard<std::mutex> guard(m_ReceiveLock);
  if (pin->m_Ended) {
    pin->m_Ended = false;
    --m_PinsEnded;
  }
  m_CompletionSent = false;
}

HRESULT CStreamBufferSink::ProfileTypes(std::vector<CMediaType>* types) {
  CAutoLock lock(&m_StateLockStorage);
  if (const HRESULT hr = LockProfileLocked(); FAILED(hr)) return hr;
  *types = m_Profile;
  return S_OK;
}

void CStreamBufferSink::AddRunning(CRecorder* recorder, std::shared_ptr<CRecordingSummary> summary) {
  {
    std::lock_guard<std::mutex> guard(m_ReceiveLock);
    if (std::find(m_Running.begin(), m_Running.end(), recorder) == m_Running.end()) m_Running.push_back(recorder);
  }
  std::lock_guard<std::mutex> guard(m_SummaryLock);
  m_LastSummary = std::move(summary);
}

STDMETHODIMP CStreamBufferSink::GetStreamCount(DWORD* count) {
  if (count == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> guard(m_SummaryLock);
  *count = m_LastSummary ? static_cast<DWORD>(m_LastSummary->Streams().size()) : 0;
  return m_LastSummary ? S_OK : S_FALSE;
}

STDMETHODIMP CStreamBufferSink::GetStream(DWORD index, GUID* majorType, GUID* subtype, LONGLONG* packets,
                                          LONGLONG* bytes, REFERENCE_TIME* first, REFERENCE_TIME* last) {
  std::vector<RecordedStreamSummary> streams;
  {
    std::lock_guard<std::mutex> guard(m_SummaryLock);
    if (m_LastSummary) streams = m_LastSummary->Streams();
  }
  if (index >= streams.size()) return E_INVALIDARG;
  const RecordedStreamSummary& s = streams[index];
  if (majorType != nullptr) *majorType = s.majorType;
  if (subtype != nullptr) *subtype = s.subtype;
  if (packets != nullptr) *packets = s.packets;
  if (bytes != nullptr) *bytes = s.bytes;
  if (first != nullptr) *first = s.first;
  if (last != nullptr) *last = s.last;
  return S_OK;
}

void CStreamBufferSink::RemoveRunning(CRecorder* recorder) {
  std::lock_guard<std::mutex> guard(m_ReceiveLock);
  std::erase(m_Running, recorder);
}

void CStreamBufferSink::RecordingFailedLocked(HRESULT failure) {
  m_AbortSent = true;
  NotifyEvent(EC_ERRORABORT, failure, 0);
}
