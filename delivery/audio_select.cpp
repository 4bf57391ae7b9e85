// IAMStreamSelect: the audio tracks as a player's menu. A track of the kind
// that plays is switched at once; a change of kind needs a new media type,
// so the user is asked to flip the setting for the next start.
#include <atomic>
#include <cstdio>
#include <cstring>

#include "control/settings_store.h"
#include "delivery/media_types.h"
#include "delivery/ts_source_filter.h"
#include "platform/win32/codepage.h"
#include "platform/com/com_memory.h"
#include "platform/win32/messages.h"

namespace {

constexpr DWORD kTrackGroup = 0x00648E51;
// The position must lie behind the packets the scan looked at.
constexpr std::uint32_t kFirstSwitchPacket = 30000;
constexpr char kModeChangeTitle[] = "Media Type Change";
constexpr char kAc3ModeText[] =
    "The Brindlet filter is currently in AC3 audio mode. Would you like to select MPEG mode?\n\n"
    "Note: Restart the player application to activate the new media type.";
constexpr char kMpegModeText[] =
    "The Brindlet filter is currently in MPEG audio mode. Would you like to select AC3 mode?\n\n"
    "Note: Restart the player application to activate the new media type.";

StreamMediaType TypeOfKind(std::uint16_t kind) {
  if (kind == kKindAc3Audio) return StreamMediaType::Ac3Audio;
  if (kind == kKindAacAudio) return StreamMediaType::AacAudio;
  return StreamMediaType::MpegAudio;
}

// "Audio (eng) (AC3) " or "Audio Track 2 (MPG) ": 31 characters at most, the
// language cut where it would pass them.
std::string TrackLabel(const AudioTrack& track, long index) {
  const char* kind = track.kind == kKindAc3Audio ? "(AC3) " : track.kind == kKindAacAudio ? "(AAC) " : "(MPG) ";
  char head[32] = {};
  const std::size_t languageLength = strnlen(track.language, sizeof track.language);
  if (languageLength > 0) {
    const int room = 31 - static_cast<int>(std::strlen("Audio () ") + std::strlen(kind));
    std::snprintf(head, sizeof head, "Audio (%.*s) ", room, track.language);
  } else {
    std::snprintf(head, sizeof head, "Audio Track %ld ", index);
  }
  std::string label = std::string(head) + kind;
  if (label.size() > 31) label.resize(31);
  return label;
}

}  // namespace

STDMETHODIMP CTsSourceFilter::Count(DWORD* streams) {
  if (streams == nullptr) return E_POINTER;
  *streams = m_Tracks.trackCount;
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::Info(LONG index, AM_MEDIA_TYPE** type, DWORD* flags, LCID* lcid, DWORD* group,
                                   LPWSTR* name, IUnknown** object, IUnknown** unknown) {
  if (index < 0 || index >= m_Tracks.trackCount || index >= kMaxAudioTracks) return E_INVALIDARG;
  CAutoLock lock(&m_FilterLock);
  const AudioTrack& track = m_Tracks.tracks[index];
  if (type != nullptr) {
    *type = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
    if (*type != nullptr && FAILED(GetStreamMediaType(TypeOfKind(track.kind)).CopyTo(*type))) {
      CoTaskMemFree(*type);
      *type = nullptr;
    }
  }
  if (flags != nullptr) *flags = index == m_Tracks.selectedTrack ? AMSTREAMSELECTINFO_ENABLED : 0;
  if (lcid != nullptr) *lcid = 0;
  if (group != nullptr) *group = kTrackGroup;
  if (name != nullptr) {
    const std::string label = TrackLabel(track, index);
    const auto chars = static_cast<int>(label.size()) + 1;
    *name = static_cast<LPWSTR>(CoTaskMemAlloc(static_cast<SIZE_T>(chars) * sizeof(WCHAR)));
    if (*name == nullptr) return E_OUTOFMEMORY;
    MultiByteToWideChar(GetACP(), MB_PRECOMPOSED, label.c_str(), -1, *name, chars);
  }
  if (object != nullptr) *object = nullptr;
  if (unknown != nullptr) *unknown = nullptr;
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::Enable(LONG index, DWORD flags) {
  if ((flags & AMSTREAMSELECTENABLE_ENABLE) == 0) return E_NOTIMPL;
  if (index < 0 || index >= m_Tracks.trackCount || index >= kMaxAudioTracks) return E_INVALIDARG;
  if (!m_OutputPin || m_OutputPin->Engine().CurrentPacket < kFirstSwitchPacket) return E_INVALIDARG;

  // The tests run without the filter lock, while another client may switch:
  // the selected index is read and written whole.
  std::atomic_ref<std::uint16_t> selected(m_Tracks.selectedTrack);
  const AudioTrack& wanted = m_Tracks.tracks[index];
  if (wanted.kind == m_Tracks.tracks[selected.load() % kMaxAudioTracks].kind) {
    CAutoLock lock(&m_FilterLock);
    MapPids(&wanted, m_Tracks.videoPid);
    selected.store(static_cast<std::uint16_t>(index));
    return S_OK;
  }
  // Another kind needs another media type: only a new start can give it.
  // The box blocks this caller only; delivery goes on behind it.
  const int ac3 = m_AC3.load();
  const int answer = MessageBoxA(nullptr, ac3 ? kAc3ModeText : kMpegModeText, kModeChangeTitle, MB_YESNO);
  if (answer == IDYES) {
    const int flipped = ac3 ? 0 : 1;
    m_AC3 = flipped;
    WriteSettingDword("AC3", static_cast<DWORD>(flipped));
  }
  return E_INVALIDARG;
}
