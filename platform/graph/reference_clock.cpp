#include "platform/graph/reference_clock.h"

#include <atomic>
#include <chrono>

#include "platform/graph/strmif.h"

namespace {

// steady_clock never goes back, so neither does GetTime. Advise calls are
// not offered: nothing in the system waits on the clock.
class CSystemClock final : public IReferenceClock {
 public:
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_IReferenceClock) {
      *ppv = static_cast<IReferenceClock*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return ++m_RefCount; }
  STDMETHODIMP_(ULONG) Release() override {
    const ULONG count = --m_RefCount;
    if (count == 0) delete this;
    return count;
  }

  STDMETHODIMP GetTime(REFERENCE_TIME* time) override {
    if (time == nullptr) return E_POINTER;
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    *time =
        std::chrono::duration_cast<std::chrono::duration<REFERENCE_TIME, std::ratio<1, 10000000>>>(
            now)
            .count();
    return S_OK;
  }
  STDMETHODIMP AdviseTime(REFERENCE_TIME, REFERENCE_TIME, HEVENT, DWORD_PTR* cookie) override {
    if (cookie != nullptr) *cookie = 0;
    return E_NOTIMPL;
  }
  STDMETHODIMP AdvisePeriodic(REFERENCE_TIME, REFERENCE_TIME, HSEMAPHORE,
                              DWORD_PTR* cookie) override {
    if (cookie != nullptr) *cookie = 0;
    return E_NOTIMPL;
  }
  // No advice is ever given, so no cookie is known.
  STDMETHODIMP Unadvise(DWORD_PTR) override { return S_FALSE; }

 private:
  ~CSystemClock() = default;
  std::atomic<ULONG> m_RefCount{0};
};

}  // namespace

namespace platform_internal {

HRESULT CreateSystemClock(IUnknown* outer, REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  if (outer != nullptr) return CLASS_E_NOAGGREGATION;
  ComPtr<IReferenceClock> clock(new CSystemClock);
  return clock->QueryInterface(riid, ppv);
}

}  // namespace platform_internal
