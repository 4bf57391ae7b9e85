#include "filters/stream_buffer/recorder.h"

#include <new>

#include "filters/stream_buffer/elementary_types.h"
#include "filters/stream_buffer/stream_buffer_sink.h"
#include "host/text_convert.h"

HRESULT CRecorder::Create(CStreamBufferSink* sink, const std::wstring& fileName, IUnknown** recorder) {
  if (recorder == nullptr) return E_POINTER;
  auto* made = new (std::nothrow) CRecorder(sink, fileName);
  if (made == nullptr) {
    *recorder = nullptr;
    return E_OUTOFMEMORY;
  }
  return made->NonDelegatingQueryInterface(IID_IUnknown, reinterpret_cast<void**>(recorder));
}

CRecorder::CRecorder(CStreamBufferSink* sink, std::wstring fileName)
    : CUnknown("Stream buffer recorder", nullptr),
      m_Sink(sink),
      m_SinkReference(sink->GetOwner()),
      m_FileName(std::move(fileName)) {}

// A recorder let go while it runs still ends its file properly.
CRecorder::~CRecorder() { StopRecording(); }

STDMETHODIMP CRecorder::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IStreamBufferRecordControl) {
    return GetInterface(static_cast<IStreamBufferRecordControl*>(this), ppv);
  }
  return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

STDMETHODIMP CRecorder::Start(REFERENCE_TIME* start) {
  if (start == nullptr) return E_POINTER;
  if (*start != 0) return E_NOTIMPL;
  std::lock_guard<std::mutex> control(m_ControlLock);
  if (m_Stopped) return E_UNEXPECTED;  // one recorder, one recording
  if (m_Started) return S_OK;

  std::vector<CMediaType> types;
  if (const HRESULT hr = m_Sink->ProfileTypes(&types); FAILED(hr)) return hr;
  std::vector<RecordingStreamFormat> formats;
  for (const CMediaType& type : types) {
    const std::optional<ElementaryKind> kind = KindOf(type.Type());
    if (!kind) return E_UNEXPECTED;  // the pins take no other types
    formats.push_back({*kind, SampleRateOf(type.Type())});
  }

  std::unique_ptr<CTsRecording> recording;
  const HRESULT opened = CTsRecording::Open(NarrowText(m_FileName), formats, &recording);
  m_Status = opened;
  if (FAILED(opened)) return opened;

  std::vector<CRecordingStream> streams;
  std::vector<RecordedStreamSummary> summary;
  for (std::size_t i = 0; i < types.size(); ++i) {
    const REFERENCE_TIME given = FrameDurationOf(types[i].Type());
    streams.emplace_back(formats[i].kind, given > 0 ? recording->ToTicks(i, given) : 0,
                         recording->ToTicks(i, kDefaultFrameDuration));
    summary.push_back({types[i].Type().majortype, types[i].Type().subtype});
  }
  auto shared = std::make_shared<CRecordingSummary>(std::move(summary));
  {
    std::lock_guard<std::mutex> guard(m_Lock);
    m_Recording = std::move(recording);
    m_Streams = std::move(streams);
    m_Summary = shared;
  }
  m_Started = true;
  m_Sink->AddRunning(this, std::move(shared));
  m_Running = true;
  return S_OK;
}

STDMETHODIMP CRecorder::Stop(REFERENCE_TIME stop) {
  if (stop != 0) return E_NOTIMPL;
  return StopRecording();
}

HRESULT CRecorder::StopRecording() {
  std::lock_guard<std::mutex> control(m_ControlLock);
  if (!m_Running) return S_OK;  // never started, or stopped already
  // Once out of the sink's list, no sample comes in any more.
  m_Sink->RemoveRunning(this);
  m_Running = false;
  {
    std::lock_guard<std::mutex> guard(m_Lock);
    for (std::size_t i = 0; i < m_Streams.size(); ++i) {
      m_Ready.clear();
      m_Streams[i].Finish(m_Ready);
      WriteReadyLocked(i);
    }
    const HRESULT closed = m_Recording->Close();
    if (FAILED(closed) && SUCCEEDED(m_Status.load())) m_Status = closed;
    m_Recording.reset();
    m_Streams.clear();
  }
  m_Stopped = true;
  return m_Status;
}

STDMETHODIMP CRecorder::GetRecordingStatus(HRESULT* result, BOOL* started, BOOL* stopped) {
  if (result != nullptr) *result = m_Status;
  if (started != nullptr) *started = m_Started ? TRUE : FALSE;
  if (stopped != nullptr) *stopped = m_Stopped ? TRUE : FALSE;
  return S_OK;
}

HRESULT CRecorder::Take(std::size_t index, std::span<const std::uint8_t> bytes,
                        std::optional<REFERENCE_TIME> start) {
  std::lock_guard<std::mutex> guard(m_Lock);
  if (!m_Recording || FAILED(m_Status.load()) || index >= m_Streams.size()) return S_OK;
  std::optional<std::int64_t> ticks;
  if (start) ticks = m_Recording->ToTicks(index, *start);
  m_Ready.clear();
  m_Streams[index].Take(bytes, ticks, m_Ready);
  return WriteReadyLocked(index);
}

HRESULT CRecorder::EndStream(std::size_t index) {
  std::lock_guard<std::mutex> guard(m_Lock);
  if (!m_Recording || FAILED(m_Status.load()) || index >= m_Streams.size()) return S_OK;
  m_Ready.clear();
  m_Streams[index].Finish(m_Ready);
  return WriteReadyLocked(index);
}

HRESULT CRecorder::WriteReadyLocked(std::size_t index) {
  if (FAILED(m_Status.load())) return S_OK;  // told already
  for (const RecordedPacket& packet : m_Ready) {
    std::size_t taken = 0;
    const HRESULT hr = m_Recording->Write(index, packet, &taken);
    if (FAILED(hr)) {
      m_Status = hr;
      return hr;
    }
    if (taken > 0) m_Summary->Add(index, taken, m_Recording->ToReferenceTime(index, packet.pts));
  }
  return S_OK;
}
