// One audio track that the scan chose for playing.
#pragma once

#include <cstdint>

struct AudioTrack {
  std::uint16_t pid;
  std::uint16_t kind;         // 1 MPEG audio, 2 AC-3, 3 AAC
  std::uint16_t stream_type;  // of the PMT row; a census kind after the fallback
  char language[32];
};

inline constexpr int kMaxAudioTracks = 10;
