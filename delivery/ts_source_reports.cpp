// What the scan found, for clients: the text queries, the ITsStreamInfo
// getters and the tools' ITsScanReport. Each runs under the filter lock
// (ts_source_filter.h lists what each takes).
#include <cstring>

#include "delivery/ts_source_filter.h"

// ---- Reports --------------------------------------------------------------

std::uint16_t CTsSourceFilter::SelectedAudioPid() {
  return m_Tracks.tracks[m_Tracks.selectedTrack % kMaxAudioTracks].pid;
}

std::uint32_t CTsSourceFilter::SelectedAudioStreamType() {
  return m_Tracks.tracks[m_Tracks.selectedTrack % kMaxAudioTracks].stream_type;
}

HRESULT CTsSourceFilter::SelectedPmtPid(WORD* pid) { return GetPmtPid(m_SelectedProgram, pid); }

std::string CTsSourceFilter::ProgramName(std::int32_t programNumber) {
  // Numbers are compared over the entry's full width.
  const ProgramEntry* entry = FindProgram(static_cast<std::uint32_t>(programNumber));
  return entry != nullptr ? std::string(entry->name, strnlen(entry->name, sizeof entry->name)) : "";
}

std::uint64_t CTsSourceFilter::LastPts() {
  return m_OutputPin ? m_OutputPin->Engine().LastPts.load() : 0;
}

std::uint32_t CTsSourceFilter::CurrentPacket() {
  return m_OutputPin ? m_OutputPin->Engine().CurrentPacket.load() : 0;
}

int CTsSourceFilter::H264LogCount() { return m_OutputPin ? m_OutputPin->ParameterLog().Count() : 0; }

std::string CTsSourceFilter::H264LogLine(int index) {
  return m_OutputPin ? m_OutputPin->ParameterLog().Line(index) : std::string();
}

std::int64_t CTsSourceFilter::Duration() { return m_OutputPin ? m_OutputPin->DurationForQueries() : 0; }

STDMETHODIMP CTsSourceFilter::QueryText(LPCWSTR keyword, LPWSTR* text) {
  return QueryTextAnswer(keyword, text, *this, m_FilterLock);
}

// ---- ITsStreamInfo -------------------------------------------------------
// Each holds the filter lock from before its argument test, so that a page
// sees table entries whole. Indexes at or beyond the count get E_INVALIDARG.

STDMETHODIMP CTsSourceFilter::GetTransportStreamId(WORD* id) {
  CAutoLock lock(&m_FilterLock);
  if (id == nullptr) return E_INVALIDARG;
  *id = static_cast<WORD>(m_PatParser.Log().transport_stream_id);
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetPatVersion(BYTE* version) {
  CAutoLock lock(&m_FilterLock);
  if (version == nullptr) return E_INVALIDARG;
  *version = static_cast<BYTE>(m_PatParser.Log().version);
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetProgramCount(DWORD* count) {
  CAutoLock lock(&m_FilterLock);
  if (count == nullptr) return E_INVALIDARG;
  *count = m_Tracks.noPmt ? 1u : static_cast<DWORD>(m_Programs.Count());
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetProgramNumber(LONG index, WORD* number) {
  CAutoLock lock(&m_FilterLock);
  if (number == nullptr) return E_INVALIDARG;
  if (m_Tracks.noPmt) {
    *number = 1;
    return S_OK;
  }
  if (index < 0 || index >= m_Programs.Count()) return E_INVALIDARG;
  *number = static_cast<WORD>(m_Programs.Entry(index).program_number);
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetPmtPidByIndex(LONG index, WORD* pid) {
  CAutoLock lock(&m_FilterLock);
  if (pid == nullptr) return E_INVALIDARG;
  if (index < 0 || index >= m_Programs.Count()) return E_INVALIDARG;
  *pid = static_cast<WORD>(m_Programs.Entry(index).pmt_pid);
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetPmtPid(WORD programNumber, WORD* pid) {
  CAutoLock lock(&m_FilterLock);
  if (pid == nullptr) return E_INVALIDARG;
  const ProgramEntry* entry = FindProgram(programNumber);
  if (entry == nullptr) return E_INVALIDARG;
  *pid = static_cast<WORD>(entry->pmt_pid);
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetPmtVersion(WORD programNumber, BYTE* version) {
  CAutoLock lock(&m_FilterLock);
  if (version == nullptr) return E_INVALIDARG;
  const ProgramEntry* entry = FindProgram(programNumber);
  if (entry == nullptr) return E_INVALIDARG;
  *version = static_cast<BYTE>(entry->pmt.version_number);
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetStreamCount(WORD programNumber, WORD* count) {
  CAutoLock lock(&m_FilterLock);
  if (count == nullptr) return E_INVALIDARG;
  if (const ProgramEntry* entry = FindProgram(programNumber)) {
    *count = static_cast<WORD>(entry->stream_count);
    return S_OK;
  }
  if (!m_Tracks.noPmt) return E_INVALIDARG;
  *count = 2;  // the implied program: video and audio
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetStreamType(WORD programNumber, DWORD streamIndex, BYTE* type) {
  CAutoLock lock(&m_FilterLock);
  if (type == nullptr) return E_INVALIDARG;
  if (const ProgramEntry* entry = FindProgram(programNumber)) {
    if (streamIndex >= entry->stream_count) return E_INVALIDARG;
    *type = static_cast<BYTE>(entry->pmt.streams[streamIndex].stream_type);
    return S_OK;
  }
  if (!m_Tracks.noPmt) return E_INVALIDARG;
  if (streamIndex == 0) *type = static_cast<BYTE>(m_Tracks.videoStreamType);
  if (streamIndex == 1) *type = static_cast<BYTE>(m_Tracks.tracks[0].stream_type);
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetStreamPid(WORD programNumber, DWORD streamIndex, WORD* pid) {
  CAutoLock lock(&m_FilterLock);
  if (pid == nullptr) return E_INVALIDARG;
  if (const ProgramEntry* entry = FindProgram(programNumber)) {
    if (streamIndex >= entry->stream_count) return E_INVALIDARG;
    *pid = static_cast<WORD>(entry->pmt.streams[streamIndex].pid);
    return S_OK;
  }
  if (!m_Tracks.noPmt) return E_INVALIDARG;
  if (streamIndex == 0) *pid = m_Tracks.videoPid;
  if (streamIndex == 1) *pid = m_Tracks.audioPid;
  return S_OK;
}

// ---- ITsScanReport ---------------------------------------------------------

namespace {
void CopyOut(LPSTR out, DWORD size, const char* text, std::size_t length) {
  if (out == nullptr || size == 0) return;
  const std::size_t n = strnlen(text, length < size - 1 ? length : size - 1);
  std::memcpy(out, text, n);
  out[n] = '\0';
}
}  // namespace

STDMETHODIMP CTsSourceFilter::GetVideo(WORD* pid, WORD* streamType) {
  CAutoLock lock(&m_FilterLock);
  if (pid == nullptr || streamType == nullptr) return E_POINTER;
  *pid = m_Tracks.videoPid;
  *streamType = m_Tracks.videoStreamType;
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetAudioTrackCount(WORD* count, WORD* selected) {
  CAutoLock lock(&m_FilterLock);
  if (count == nullptr || selected == nullptr) return E_POINTER;
  *count = m_Tracks.trackCount;
  *selected = m_Tracks.selectedTrack;
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetAudioTrack(WORD index, WORD* pid, WORD* kind, WORD* streamType,
                                            LPSTR language, DWORD size) {
  CAutoLock lock(&m_FilterLock);
  if (pid == nullptr || kind == nullptr || streamType == nullptr) return E_POINTER;
  if (index >= m_Tracks.trackCount || index >= kMaxAudioTracks) return E_INVALIDARG;
  const AudioTrack& track = m_Tracks.tracks[index];
  *pid = track.pid;
  *kind = track.kind;
  *streamType = track.stream_type;
  CopyOut(language, size, track.language, sizeof track.language);
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetStreamLanguage(WORD programNumber, DWORD streamIndex, LPSTR language,
                                                DWORD size) {
  CAutoLock lock(&m_FilterLock);
  if (language == nullptr || size == 0) return E_POINTER;
  const ProgramEntry* entry = FindProgram(programNumber);
  if (entry == nullptr || streamIndex >= entry->stream_count) return E_INVALIDARG;
  const StreamEntry& stream = entry->pmt.streams[streamIndex];
  CopyOut(language, size, stream.language, sizeof stream.language);
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetScanFlags(DWORD* ready, DWORD* noPmt, WORD* selectedProgram) {
  CAutoLock lock(&m_FilterLock);
  if (ready == nullptr || noPmt == nullptr || selectedProgram == nullptr) return E_POINTER;
  *ready = static_cast<DWORD>(m_Tracks.ready);
  *noPmt = static_cast<DWORD>(m_Tracks.noPmt);
  *selectedProgram = m_SelectedProgram;
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetDuration(LONGLONG* duration) {
  CAutoLock lock(&m_FilterLock);
  if (duration == nullptr) return E_POINTER;
  *duration = m_Duration;
  return S_OK;
}
