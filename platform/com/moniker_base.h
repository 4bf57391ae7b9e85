// What the platform's monikers share: reference counting, the interfaces a
// moniker answers, and the operations beyond naming, comparing and binding,
// which none of them offers. A moniker derives from it and writes those
// three.
#pragma once

#include <atomic>
#include <string>

#include "platform/com/rot.h"

namespace platform_internal {

// `text` in task memory, as a display name is handed out.
HRESULT CopyToTaskMemory(const std::wstring& text, LPOLESTR* out);

class CMonikerBase : public IMoniker {
 public:
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
  STDMETHODIMP_(ULONG) AddRef() override { return ++m_RefCount; }
  STDMETHODIMP_(ULONG) Release() override {
    const ULONG count = --m_RefCount;
    if (count == 0) delete this;
    return count;
  }

  STDMETHODIMP IsDirty() override { return S_FALSE; }
  STDMETHODIMP Load(IStream*) override { return E_NOTIMPL; }
  STDMETHODIMP Save(IStream*, BOOL) override { return E_NOTIMPL; }
  STDMETHODIMP GetSizeMax(ULARGE_INTEGER*) override { return E_NOTIMPL; }
  STDMETHODIMP BindToStorage(IBindCtx*, IMoniker*, REFIID, void** result) override;
  STDMETHODIMP Reduce(IBindCtx*, DWORD, IMoniker**, IMoniker**) override { return E_NOTIMPL; }
  STDMETHODIMP ComposeWith(IMoniker*, BOOL, IMoniker**) override { return E_NOTIMPL; }
  // Not a composite: no parts, as the platform answers for a simple moniker.
  STDMETHODIMP Enum(BOOL, IEnumMoniker** monikers) override;
  STDMETHODIMP IsRunning(IBindCtx*, IMoniker*, IMoniker*) override { return E_NOTIMPL; }
  STDMETHODIMP GetTimeOfLastChange(IBindCtx*, IMoniker*, FILETIME*) override { return E_NOTIMPL; }
  STDMETHODIMP Inverse(IMoniker**) override { return E_NOTIMPL; }
  STDMETHODIMP CommonPrefixWith(IMoniker*, IMoniker**) override { return E_NOTIMPL; }
  STDMETHODIMP RelativePathTo(IMoniker*, IMoniker**) override { return E_NOTIMPL; }
  STDMETHODIMP ParseDisplayName(IBindCtx*, IMoniker*, LPOLESTR, ULONG*, IMoniker**) override {
    return E_NOTIMPL;
  }

 protected:
  virtual ~CMonikerBase() = default;
  // A private interface a moniker may answer besides the usual ones; the
  // moniker itself is handed out for it.
  virtual bool AnswersPrivate(REFIID) const { return false; }

 private:
  std::atomic<ULONG> m_RefCount{0};
};

}  // namespace platform_internal
