#include "conversion/recording_conversion.h"

#include "platform/graph/stream_buffer.h"
#include "platform/win32/files.h"

namespace {

constexpr DWORD kStopSettleMs = 1000;

}  // namespace

HRESULT CRecordingConversion::SetSinkFilter(IUnknown* sink) {
  if (sink == nullptr) return E_POINTER;
  if (m_SinkFilter) return VFW_E_WRONG_STATE;
  m_SinkFilter = ComPtr<IUnknown>(sink);
  m_HoldsSink.store(true, std::memory_order_release);
  return S_OK;
}

std::wstring CRecordingConversion::RecordingName(const std::wstring& sourceFile) {
  const std::size_t point = sourceFile.find_last_of(L'.');
  const std::size_t separator = sourceFile.find_last_of(L"/\\");
  if (point == std::wstring::npos || (separator != std::wstring::npos && point < separator)) return {};
  if (point == 0 || point == separator + 1 || sourceFile.size() >= MAX_PATH) return {};
  return sourceFile.substr(0, point);
}

void CRecordingConversion::BeforePause(const std::wstring& sourceFile) {
  if (!m_SinkFilter || m_Recorder) return;
  ComPtr<IStreamBufferSink> sink;
  m_SinkFilter->QueryInterface(IID_IStreamBufferSink, sink.PutVoid());
  if (!sink) return;
  const std::wstring name = RecordingName(sourceFile);
  if (name.empty()) return;
  sink->LockProfile(nullptr);
  sink->CreateRecorder(name.c_str(), RECORDING_TYPE_CONTENT, m_Recorder.PutAddress());
  if (!m_Recorder) {
    // A target left from an earlier run stands in the way.
    DeleteFileW(name.c_str());
    sink->CreateRecorder(name.c_str(), RECORDING_TYPE_CONTENT, m_Recorder.PutAddress());
  }
  if (!m_Recorder) return;
  ComPtr<IStreamBufferRecordControl> control;
  m_Recorder->QueryInterface(IID_IStreamBufferRecordControl, control.PutVoid());
  if (!control) return;
  REFERENCE_TIME start = 0;
  control->Start(&start);
}

HRESULT CRecordingConversion::Stop(const std::function<HRESULT()>& baseStop) {
  if (!m_Recorder) return baseStop();
  // Lets what the worker already handed on reach the recorder.
  Sleep(kStopSettleMs);
  baseStop();
  ComPtr<IStreamBufferRecordControl> control;
  m_Recorder->QueryInterface(IID_IStreamBufferRecordControl, control.PutVoid());
  if (!control) return S_OK;
  const HRESULT hr = control->Stop(0);
  HRESULT status = S_OK;
  BOOL started = FALSE;
  BOOL stopped = FALSE;
  control->GetRecordingStatus(&status, &started, &stopped);
  Sleep(kStopSettleMs);
  return hr;
}
