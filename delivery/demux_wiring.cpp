// The wiring of the demultiplexer behind the pin: its output pins, made with
// the filter's own media types, and the PID maps of the chosen tracks.
#include "delivery/media_types.h"
#include "delivery/ts_source_filter.h"
#include "platform/com/com_ptr.h"
#include "platform/graph/mpeg2_demux.h"

namespace {

struct PinChoice {
  const wchar_t* name;
  StreamMediaType type;
};

PinChoice VideoPin(std::uint16_t videoStreamType) {
  return videoStreamType == 27 ? PinChoice{L"H.264", StreamMediaType::H264Video}
                               : PinChoice{L"Video", StreamMediaType::Mpeg2Video};
}

PinChoice AudioPin(std::uint16_t kind) {
  if (kind == kKindAc3Audio) return {L"AC3", StreamMediaType::Ac3Audio};
  if (kind == kKindAacAudio) return {L"AAC", StreamMediaType::AacAudio};
  return {L"Audio", StreamMediaType::MpegAudio};
}

// CreateOutputPin takes names and types that it does not change.
HRESULT CreatePin(IMpeg2Demultiplexer* demux, const PinChoice& choice, IPin** pin) {
  CMediaType type = GetStreamMediaType(choice.type);
  AM_MEDIA_TYPE copy = type.Type();
  std::wstring name = choice.name;
  return demux->CreateOutputPin(&copy, name.data(), pin);
}

ComPtr<IMPEG2PIDMap> PidMapOf(IBaseFilter* filter, const wchar_t* name, HRESULT* found) {
  ComPtr<IPin> pin;
  *found = filter->FindPin(name, reinterpret_cast<IPin**>(pin.PutAddress()));
  ComPtr<IMPEG2PIDMap> map;
  if (SUCCEEDED(*found) && pin) pin->QueryInterface(IID_IMPEG2PIDMap, map.PutVoid());
  return map;
}

}  // namespace

HRESULT CTsSourceFilter::WireDemux(IBaseFilter* peer) {
  if (!m_Tracks.ready) return E_FAIL;
  CAutoLock lock(&m_FilterLock);

  // The first audio track: of the preferred kind, where there is a choice.
  m_Tracks.selectedTrack = 0;
  if (m_Tracks.trackCount >= 2) {
    const std::uint16_t wanted = m_AC3 ? kKindAc3Audio : kKindMpegAudio;
    for (std::uint16_t i = 0; i < m_Tracks.trackCount && i < kMaxAudioTracks; ++i) {
      if (m_Tracks.tracks[i].kind == wanted) {
        m_Tracks.selectedTrack = i;
        break;
      }
    }
  }

  ComPtr<IMpeg2Demultiplexer> demux;
  HRESULT result = peer->QueryInterface(IID_IMpeg2Demultiplexer, demux.PutVoid());
  if (SUCCEEDED(result)) {
    ComPtr<IPin> video;
    result = CreatePin(demux.Get(), VideoPin(m_Tracks.videoStreamType), reinterpret_cast<IPin**>(video.PutAddress()));
    if (!video) {
      result = E_FAIL;
    } else if (SUCCEEDED(result)) {
      video.Reset();
      const AudioTrack& chosen = m_Tracks.tracks[m_Tracks.selectedTrack % kMaxAudioTracks];
      ComPtr<IPin> audio;
      result = CreatePin(demux.Get(), AudioPin(chosen.kind), reinterpret_cast<IPin**>(audio.PutAddress()));
      if (SUCCEEDED(result)) {
        // The second language of the preferred kind plays on the same pin.
        const std::uint16_t next = m_Tracks.selectedTrack + 1;
        if (m_Audio2 && next < m_Tracks.trackCount && next < kMaxAudioTracks &&
            m_Tracks.tracks[next].kind == chosen.kind) {
          m_Tracks.selectedTrack = next;
        }
        m_DemuxFilter = peer;
        MapPids(&m_Tracks.tracks[m_Tracks.selectedTrack], m_Tracks.videoPid);
      }
    }
  }
  // Pins that stand from an earlier wiring count as wired.
  return result == VFW_E_DUPLICATE_NAME ? S_OK : result;
}

HRESULT CTsSourceFilter::MapPids(const AudioTrack* track, std::uint16_t videoPid) {
  if (m_DemuxFilter == nullptr) return E_FAIL;
  CAutoLock lock(&m_FilterLock);
  HRESULT found = S_OK;
  ComPtr<IMPEG2PIDMap> videoMap = PidMapOf(m_DemuxFilter, L"H.264", &found);
  if (FAILED(found)) videoMap = PidMapOf(m_DemuxFilter, L"Video", &found);
  if (videoMap) {
    ULONG pid = videoPid;
    videoMap->MapPID(1, &pid, MEDIA_ELEMENTARY_STREAM);
  }

  ComPtr<IMPEG2PIDMap> audioMap;
  for (const wchar_t* name : {L"AC3", L"Audio", L"AAC"}) {
    audioMap = PidMapOf(m_DemuxFilter, name, &found);
    if (SUCCEEDED(found)) break;
  }
  if (FAILED(found)) return found;
  HRESULT result = S_OK;
  if (audioMap) {
    if (m_Tracks.audioPid != 0) {
      ULONG old = m_Tracks.audioPid;
      audioMap->UnmapPID(1, &old);
    }
    ULONG pid = track->pid;
    result = audioMap->MapPID(1, &pid, MEDIA_ELEMENTARY_STREAM);
    m_Tracks.audioPid = track->pid;
  }
  return result;
}
