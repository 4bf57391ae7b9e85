// The conversion side of the filter: while it holds a stream buffer sink,
// the first Pause starts a recorder of that sink writing beside the source
// file, and Stop ends it. One recording per filter object: the recorder is
// kept after Stop, so a later Pause starts nothing new.
//
// Every operation runs on the host's thread, with no lock of the filter
// held; only HoldsSink is read elsewhere (the worker, at the end of the
// stream).
#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "platform/com/com_ptr.h"
#include "platform/com/unknwn.h"
#include "platform/win32/win_types.h"

// What the end of the stream shows while the filter holds a sink.
inline constexpr const char* kConversionDoneText = "Conversion done.";

class CRecordingConversion {
 public:
  // Takes the sink once; VFW_E_WRONG_STATE for a second, E_POINTER for null.
  HRESULT SetSinkFilter(IUnknown* sink);
  bool HoldsSink() const { return m_HoldsSink.load(std::memory_order_acquire); }
  bool HoldsRecorder() const { return static_cast<bool>(m_Recorder); }

  // Before the filter base's Pause: with a sink and no recorder yet, makes
  // the recorder for `sourceFile` (retrying once after deleting a leftover
  // target) and starts it. Failures leave things as they were.
  void BeforePause(const std::wstring& sourceFile);

  // The filter's Stop: without a recorder, `baseStop` and its result.
  // With one, a second's sleep, `baseStop` (its result dropped), then the
  // recorder's Stop and status, and another second; the recorder's Stop
  // gives the result.
  HRESULT Stop(const std::function<HRESULT()>& baseStop);

  // The recording's name: the source's wide name cut at its last point, in
  // a buffer of MAX_PATH characters. Empty when the last part of the path
  // has no point (a point in a folder's name does not count, so that the
  // name never reaches outside the file's own name) or the name does not
  // fit the buffer: then there is no recording.
  static std::wstring RecordingName(const std::wstring& sourceFile);

 private:
  ComPtr<IUnknown> m_SinkFilter;
  std::atomic<bool> m_HoldsSink{false};
  ComPtr<IUnknown> m_Recorder;
};
