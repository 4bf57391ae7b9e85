// A recorder of the stream buffer sink (IStreamBufferRecordControl): from
// Start to Stop it writes the sink's streams, as the sink's pins take them,
// to a transport stream file at exactly the name it was made with.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "filters/stream_buffer/recording_stream.h"
#include "filters/stream_buffer/recording_summary.h"
#include "filters/stream_buffer/ts_recording.h"
#include "host/cunknown.h"
#include "platform/com/com_ptr.h"
#include "platform/graph/stream_buffer.h"

class CStreamBufferSink;

// The frame duration DTS steps back by when neither the type nor the first
// times tell one.
inline constexpr REFERENCE_TIME kDefaultFrameDuration = 400000;  // 40 ms

// Locks: m_ControlLock makes Start and Stop one at a time; it comes before
// the sink's locks. m_Lock guards the muxer and the streams; the sink takes
// it, under its receive lock, for each sample, and Stop only after the
// recorder has left the sink's list. The status is atomic, so
// GetRecordingStatus waits for nothing.
class CRecorder final : public CUnknown, public IStreamBufferRecordControl {
 public:
  // A new recorder of `sink` for `fileName`, as its IUnknown.
  static HRESULT Create(CStreamBufferSink* sink, const std::wstring& fileName, IUnknown** recorder);

  DECLARE_IUNKNOWN
  STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

  // Only 0, now, is a start or stop time here.
  STDMETHODIMP Start(REFERENCE_TIME* start) override;
  STDMETHODIMP Stop(REFERENCE_TIME stop) override;
  STDMETHODIMP GetRecordingStatus(HRESULT* result, BOOL* started, BOOL* stopped) override;

  // ---- For the sink, under its receive lock ----
  // A sample of stream `index`. Answers the recording's failure once, when
  // it happens; samples after it are dropped.
  HRESULT Take(std::size_t index, std::span<const std::uint8_t> bytes, std::optional<REFERENCE_TIME> start);
  // The stream ended or flushes: what it gathered goes out.
  HRESULT EndStream(std::size_t index);

 private:
  CRecorder(CStreamBufferSink* sink, std::wstring fileName);
  ~CRecorder() override;

  HRESULT StopRecording();
  // Under m_Lock.
  HRESULT WriteReadyLocked(std::size_t index);

  CStreamBufferSink* const m_Sink;
  const ComPtr<IUnknown> m_SinkReference;  // the sink lives as long as its recorders
  const std::wstring m_FileName;

  std::mutex m_ControlLock;
  bool m_Running = false;  // m_ControlLock; in the sink's list

  std::mutex m_Lock;
  std::unique_ptr<CTsRecording> m_Recording;  // m_Lock; from Start to Stop
  std::vector<CRecordingStream> m_Streams;    // m_Lock
  std::vector<RecordedPacket> m_Ready;        // m_Lock; scratch
  std::shared_ptr<CRecordingSummary> m_Summary;  // m_Lock; set at Start, then the sink shares it

  std::atomic<HRESULT> m_Status{S_OK};
  std::atomic<bool> m_Started{false};
  std::atomic<bool> m_Stopped{false};
};
