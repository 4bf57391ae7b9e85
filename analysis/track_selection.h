// Track selection: one program's stream list, or failing any, the census,
// turned into a video PID and the audio tracks that the filter plays.
#pragma once

#include <cstdint>

#include "analysis/audio_track.h"
#include "analysis/pid_census.h"
#include "analysis/program_table.h"
#include "platform/win32/win_types.h"

inline constexpr std::uint16_t kKindMpegAudio = 1;
inline constexpr std::uint16_t kKindAc3Audio = 2;
inline constexpr std::uint16_t kKindAacAudio = 3;

// The choice, as fields of the filter.
struct TrackSelection {
  AudioTrack tracks[kMaxAudioTracks] = {};
  std::uint16_t trackCount = 0;
  std::uint16_t selectedTrack = 0;
  std::uint16_t videoPid = 0;
  std::uint16_t videoStreamType = 0;
  std::uint16_t audioPid = 0;
  int ready = 0;  // a video PID and at least one audio track
  int noPmt = 0;  // the census decided
};

// Runs over the stream list of `programNumber`. S_OK if ready at the end,
// else E_FAIL; a program not in the table changes nothing. Streams without a
// census row are passed over; tracks beyond the tenth are dropped.
HRESULT SelectTracks(const CProgramTable& table, const CPidCensus& census,
                     std::uint32_t programNumber, TrackSelection& selection);

// The census decides: the two largest rows (a null PID only if PES was seen
// on it), or the first AC-3 row for audio when `preferAc3`.
void CensusFallback(const CPidCensus& census, bool preferAc3, TrackSelection& selection);
