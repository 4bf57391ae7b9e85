// A transport stream file written by libavformat's "mpegts" muxer: one
// stream per recorded pin, fed whole PES payloads with their times, written
// through our own file so that the disk's errors come back as they are.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "filters/stream_buffer/elementary_types.h"
#include "filters/stream_buffer/recording_file.h"
#include "filters/stream_buffer/recording_stream.h"

struct AVFormatContext;
struct AVIOContext;
struct AVPacket;

struct RecordingStreamFormat {
  ElementaryKind kind;
  int sampleRate = 0;  // audio; 0 when the type does not tell
};

class CTsRecording {
 public:
  ~CTsRecording();
  CTsRecording(const CTsRecording&) = delete;
  CTsRecording& operator=(const CTsRecording&) = delete;

  // Makes the file exclusively at exactly `path` and writes the stream's
  // header. Fails with the file's error, or E_FAIL if the muxer refuses.
  static HRESULT Open(const std::string& path, std::span<const RecordingStreamFormat> streams,
                      std::unique_ptr<CTsRecording>* recording);

  // 100 ns units to the muxer's ticks of stream `index` (90 kHz), rounded.
  std::int64_t ToTicks(std::size_t index, REFERENCE_TIME time) const;
  // The muxer's ticks of stream `index` back to 100 ns units.
  REFERENCE_TIME ToReferenceTime(std::size_t index, std::int64_t ticks) const;

  // Interleaves and writes one packet, and tells how many of its bytes went
  // in (an H.264 stream leaves out what comes before its first start code).
  // The first failure is kept and every later call answers with it.
  HRESULT Write(std::size_t index, const RecordedPacket& packet, std::size_t* taken = nullptr);
  // The packets the muxer still holds, its trailer, then the file closes.
  // Answers the first failure of the recording.
  HRESULT Close();

  // The muxer's output callback: `opaque` is the recording.
  static int WriteToFile(void* opaque, const std::uint8_t* data, int size);

 private:
  CTsRecording() = default;
  HRESULT Begin(std::span<const RecordingStreamFormat> streams);
  // A libavformat answer as ours: the file's own error when it had one.
  HRESULT Failed(int averror);

  CRecordingFile m_File;
  AVFormatContext* m_Context = nullptr;
  AVIOContext* m_Io = nullptr;
  AVPacket* m_Packet = nullptr;
  std::vector<ElementaryKind> m_Kinds;
  std::vector<bool> m_Written;  // a stream has had a packet
  bool m_HeaderWritten = false;
  bool m_Closed = false;
  HRESULT m_Failure = S_OK;
};
