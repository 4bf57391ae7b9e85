#include "analysis/track_selection.h"

#include <cstring>

namespace {

void AddTrack(TrackSelection& s, const StreamEntry& stream, std::uint16_t kind) {
  if (s.trackCount >= kMaxAudioTracks) return;
  AudioTrack& track = s.tracks[s.trackCount++];
  track.pid = static_cast<std::uint16_t>(stream.pid);
  track.kind = kind;
  track.stream_type = static_cast<std::uint16_t>(stream.stream_type);
  static_assert(sizeof track.language == sizeof stream.language);
  std::memcpy(track.language, stream.language, sizeof track.language);
}

bool IsIdleNullRow(const CPidCensus& census, int row) {
  return row < census.Count() && census.Row(static_cast<std::uint16_t>(row)).pid == kNullPid &&
         census.Row(static_cast<std::uint16_t>(row)).kind == 0;
}

}  // namespace

HRESULT SelectTracks(const CProgramTable& table, const CPidCensus& census,
                     std::uint32_t programNumber, TrackSelection& s) {
  int index = 0;
  if (!table.FindIndex(programNumber, &index)) return E_FAIL;
  const ProgramEntry& entry = table.Entry(index);
  s.trackCount = 0;

  const std::uint32_t count = entry.pmt.stream_count < kMaxPmtRows ? entry.pmt.stream_count : kMaxPmtRows;
  for (std::uint32_t i = 0; i < count; ++i) {
    const StreamEntry& stream = entry.pmt.streams[i];
    const PidStat* row = census.Find(static_cast<std::uint16_t>(stream.pid));
    if (row == nullptr) continue;
    switch (stream.stream_type) {
      case 1:
      case 2:
        s.videoPid = static_cast<std::uint16_t>(stream.pid);
        s.videoStreamType = 2;
        break;
      case 27:
        s.videoPid = static_cast<std::uint16_t>(stream.pid);
        s.videoStreamType = 27;
        break;
      case 3:
      case 4:
        AddTrack(s, stream, kKindMpegAudio);
        break;
      case 6:
        // Private data is AC-3 only where the census saw it so.
        if (row->kind == kKindAc3) AddTrack(s, stream, kKindAc3Audio);
        break;
      case 128:
      case 129:
        AddTrack(s, stream, kKindAc3Audio);
        break;
      case 248:
        AddTrack(s, stream, kKindAacAudio);
        break;
      default:
        break;
    }
    s.ready = (s.videoPid != 0 && s.trackCount > 0) ? 1 : 0;
  }
  return s.ready ? S_OK : E_FAIL;
}

void CensusFallback(const CPidCensus& census, bool preferAc3, TrackSelection& s) {
  const auto rowAt = [&](int r) -> PidStat {
    return r < census.Count() ? census.Row(static_cast<std::uint16_t>(r)) : PidStat{0, 0, 0};
  };
  int r = IsIdleNullRow(census, 0) ? 1 : 0;
  s.videoPid = rowAt(r).pid;
  s.videoStreamType = rowAt(r).kind;
  ++r;
  if (IsIdleNullRow(census, r)) ++r;
  if (preferAc3) {
    for (int i = 0; i < census.Count(); ++i) {
      if (census.Row(static_cast<std::uint16_t>(i)).kind == kKindAc3) {
        r = i;
        break;
      }
    }
  }
  const PidStat audio = rowAt(r);
  s.audioPid = audio.pid;
  AudioTrack& track = s.tracks[0];
  track.pid = audio.pid;
  track.kind = audio.kind == kKindAac ? kKindAacAudio : audio.kind == kKindAc3 ? kKindAc3Audio : kKindMpegAudio;
  track.stream_type = audio.kind;
  std::memset(track.language, 0, sizeof track.language);
  std::memcpy(track.language, "eng", 3);
  if (s.trackCount < kMaxAudioTracks) ++s.trackCount;
  s.ready = 1;
  s.noPmt = 1;
}
