// The seeking base: IMediaSeeking over start, stop, rate and duration kept
// under the owner's lock, with hooks for the owner to act on a change. It is
// a face of its owner: its IUnknown is the owner's.
//
// Locks: GetDuration, GetCurrentPosition, SetPositions (for its arithmetic)
// and SetRate (for the store) take the owner's lock; GetPositions,
// SetTimeFormat and every other getter take none, so a client polling them
// never waits behind the owner's worker.
#pragma once

#include <atomic>

#include "host/critical_section.h"
#include "platform/graph/strmif.h"

class CSourceSeeking : public IMediaSeeking {
 public:
  CSourceSeeking(IUnknown* owner, CCritSec* lock, REFERENCE_TIME duration);
  virtual ~CSourceSeeking() = default;
  CSourceSeeking(const CSourceSeeking&) = delete;
  CSourceSeeking& operator=(const CSourceSeeking&) = delete;

  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override { return m_Owner->QueryInterface(riid, ppv); }
  STDMETHODIMP_(ULONG) AddRef() override { return m_Owner->AddRef(); }
  STDMETHODIMP_(ULONG) Release() override { return m_Owner->Release(); }

  STDMETHODIMP GetCapabilities(DWORD* capabilities) override;
  STDMETHODIMP CheckCapabilities(DWORD* capabilities) override;
  STDMETHODIMP IsFormatSupported(const GUID* format) override;
  STDMETHODIMP QueryPreferredFormat(GUID* format) override;
  STDMETHODIMP GetTimeFormat(GUID* format) override;
  STDMETHODIMP IsUsingTimeFormat(const GUID* format) override;
  STDMETHODIMP SetTimeFormat(const GUID* format) override;
  STDMETHODIMP GetDuration(LONGLONG* duration) override;
  STDMETHODIMP GetStopPosition(LONGLONG* stop) override;
  STDMETHODIMP GetCurrentPosition(LONGLONG* current) override;
  STDMETHODIMP ConvertTimeFormat(LONGLONG* target, const GUID* targetFormat, LONGLONG source,
                                 const GUID* sourceFormat) override;
  STDMETHODIMP SetPositions(LONGLONG* current, DWORD currentFlags, LONGLONG* stop, DWORD stopFlags) override;
  STDMETHODIMP GetPositions(LONGLONG* current, LONGLONG* stop) override;
  STDMETHODIMP GetAvailable(LONGLONG* earliest, LONGLONG* latest) override;
  STDMETHODIMP SetRate(double rate) override;
  STDMETHODIMP GetRate(double* rate) override;
  STDMETHODIMP GetPreroll(LONGLONG* preroll) override;

  // A new length of the stream; the stop position follows it.
  void SetSeekDuration(REFERENCE_TIME duration);
  // Read without the lock: queries and the worker on every packet use them.
  REFERENCE_TIME SeekDuration() const { return m_Duration.load(std::memory_order_relaxed); }
  REFERENCE_TIME SeekStart() const { return m_Start.load(std::memory_order_relaxed); }
  REFERENCE_TIME SeekStop() const { return m_Stop.load(std::memory_order_relaxed); }
  double SeekRate() const { return m_Rate.load(std::memory_order_relaxed); }
  bool TimeFormatIsBytes() const { return m_TimeFormatIsBytes.load(std::memory_order_relaxed); }

 protected:
  // Run after a change, with no lock held.
  virtual HRESULT ChangeStart() = 0;
  virtual HRESULT ChangeStop() = 0;
  virtual HRESULT ChangeRate() = 0;
  // The answers that depend on the owner's stream; called under m_Lock.
  virtual HRESULT DurationInBytes(LONGLONG* bytes) = 0;
  virtual HRESULT CurrentPosition(LONGLONG* position) = 0;

  IUnknown* m_Owner;
  CCritSec* m_Lock;
  // Changed only under m_Lock, so that a change reads and writes one state;
  // each is atomic, so that the readers that take no lock (GetPositions, the
  // owner's queries, its worker) see whole values.
  std::atomic<REFERENCE_TIME> m_Duration;
  std::atomic<REFERENCE_TIME> m_Start{0};
  std::atomic<REFERENCE_TIME> m_Stop;
  std::atomic<double> m_Rate{1.0};
  const DWORD m_Caps = 0xFFFFFFFF;
  std::atomic<bool> m_TimeFormatIsBytes{false};  // set without a lock, as the caller may
};
