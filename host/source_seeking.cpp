#include "host/source_seeking.h"

namespace {

bool IsMediaTime(const GUID* format) { return format == nullptr || *format == TIME_FORMAT_MEDIA_TIME; }

}  // namespace

CSourceSeeking::CSourceSeeking(IUnknown* owner, CCritSec* lock, REFERENCE_TIME duration)
    : m_Owner(owner), m_Lock(lock), m_Duration(duration), m_Stop(duration) {}

STDMETHODIMP CSourceSeeking::GetCapabilities(DWORD* capabilities) {
  if (capabilities == nullptr) return E_POINTER;
  *capabilities = m_Caps;
  return S_OK;
}

STDMETHODIMP CSourceSeeking::CheckCapabilities(DWORD* capabilities) {
  return capabilities == nullptr ? E_POINTER : S_OK;
}

STDMETHODIMP CSourceSeeking::IsFormatSupported(const GUID* format) {
  if (format == nullptr) return E_POINTER;
  return *format == TIME_FORMAT_MEDIA_TIME || *format == TIME_FORMAT_BYTE ? S_OK : S_FALSE;
}

STDMETHODIMP CSourceSeeking::QueryPreferredFormat(GUID* format) {
  if (format == nullptr) return E_POINTER;
  *format = TIME_FORMAT_MEDIA_TIME;
  return S_OK;
}

// The byte format only changes what the duration and the position report;
// the format answered stays media time.
STDMETHODIMP CSourceSeeking::GetTimeFormat(GUID* format) { return QueryPreferredFormat(format); }

STDMETHODIMP CSourceSeeking::IsUsingTimeFormat(const GUID* format) {
  if (format == nullptr) return E_POINTER;
  return *format == TIME_FORMAT_MEDIA_TIME ? S_OK : S_FALSE;
}

STDMETHODIMP CSourceSeeking::SetTimeFormat(const GUID* format) {
  if (format == nullptr) return E_POINTER;
  if (*format == TIME_FORMAT_MEDIA_TIME) {
    m_TimeFormatIsBytes = false;
  } else if (*format == TIME_FORMAT_BYTE) {
    m_TimeFormatIsBytes = true;
  } else {
    return E_INVALIDARG;
  }
  return S_OK;
}

STDMETHODIMP CSourceSeeking::GetDuration(LONGLONG* duration) {
  if (duration == nullptr) return E_POINTER;
  CAutoLock lock(m_Lock);
  if (m_TimeFormatIsBytes) return DurationInBytes(duration);
  *duration = m_Duration;
  return S_OK;
}

STDMETHODIMP CSourceSeeking::GetStopPosition(LONGLONG* stop) {
  if (stop == nullptr) return E_POINTER;
  *stop = SeekStop();
  return S_OK;
}

STDMETHODIMP CSourceSeeking::GetCurrentPosition(LONGLONG* current) {
  if (current == nullptr) return E_POINTER;
  CAutoLock lock(m_Lock);
  return CurrentPosition(current);
}

STDMETHODIMP CSourceSeeking::ConvertTimeFormat(LONGLONG* target, const GUID* targetFormat, LONGLONG source,
                                               const GUID* sourceFormat) {
  if (target == nullptr) return E_POINTER;
  if (!IsMediaTime(targetFormat) || !IsMediaTime(sourceFormat)) return E_INVALIDARG;
  *target = source;
  return S_OK;
}

STDMETHODIMP CSourceSeeking::SetPositions(LONGLONG* current, DWORD currentFlags, LONGLONG* stop,
                                          DWORD stopFlags) {
  const DWORD currentBits = currentFlags & AM_SEEKING_PositioningBitsMask;
  const DWORD stopBits = stopFlags & AM_SEEKING_PositioningBitsMask;
  if (stopFlags != 0) {
    if (stop == nullptr) return E_POINTER;
    if ((stopFlags & ~AM_SEEKING_PositioningBitsMask) != 0) return E_INVALIDARG;
  }
  if (currentFlags != 0) {
    if (current == nullptr) return E_POINTER;
    if (currentBits != AM_SEEKING_AbsolutePositioning && currentBits != AM_SEEKING_RelativePositioning) {
      return E_INVALIDARG;
    }
  }
  {
    CAutoLock lock(m_Lock);
    if (currentBits == AM_SEEKING_AbsolutePositioning) m_Start = *current;
    if (currentBits == AM_SEEKING_RelativePositioning) m_Start = m_Start + *current;
    if (stopBits == AM_SEEKING_AbsolutePositioning) m_Stop = *stop;
    if (stopBits == AM_SEEKING_IncrementalPositioning) m_Stop = m_Start + *stop;
    if (stopBits == AM_SEEKING_RelativePositioning) m_Stop = m_Stop + *stop;
  }
  // Stop goes first, start second; the start's result is the result.
  HRESULT result = S_OK;
  if (stopBits != 0) result = ChangeStop();
  if (currentBits != 0) result = ChangeStart();
  return result;
}

// Each value is read whole; a seek on another thread may land between the
// two.
STDMETHODIMP CSourceSeeking::GetPositions(LONGLONG* current, LONGLONG* stop) {
  if (current != nullptr) *current = SeekStart();
  if (stop != nullptr) *stop = SeekStop();
  return S_OK;
}

STDMETHODIMP CSourceSeeking::GetAvailable(LONGLONG* earliest, LONGLONG* latest) {
  if (earliest != nullptr) *earliest = 0;
  if (latest != nullptr) *latest = SeekDuration();
  return S_OK;
}

STDMETHODIMP CSourceSeeking::SetRate(double rate) {
  {
    CAutoLock lock(m_Lock);
    m_Rate = rate;
  }
  return ChangeRate();
}

STDMETHODIMP CSourceSeeking::GetRate(double* rate) {
  if (rate == nullptr) return E_POINTER;
  *rate = SeekRate();
  return S_OK;
}

STDMETHODIMP CSourceSeeking::GetPreroll(LONGLONG* preroll) {
  if (preroll == nullptr) return E_POINTER;
  *preroll = 0;
  return S_OK;
}

void CSourceSeeking::SetSeekDuration(REFERENCE_TIME duration) {
  CAutoLock lock(m_Lock);
  m_Duration = duration;
  m_Stop = duration;
}
