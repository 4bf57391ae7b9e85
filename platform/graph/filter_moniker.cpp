#include "platform/graph/filter_moniker.h"

#include <atomic>
#include <cstring>
#include <cwctype>
#include <utility>

#include "platform/com/com_memory.h"
#include "platform/com/objbase.h"
#include "platform/win32/codepage.h"

namespace platform_internal {
namespace {

std::wstring UpperCase(std::wstring text) {
  for (wchar_t& c : text) c = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(c)));
  return text;
}

class CFilterMoniker final : public IMoniker {
 public:
  CFilterMoniker(std::wstring displayName, const CLSID& filter)
      : m_DisplayName(std::move(displayName)), m_Filter(filter) {}

  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_IPersist || riid == IID_IPersistStream ||
        riid == IID_IMoniker) {
      *ppv = static_cast<IMoniker*>(this);
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

  STDMETHODIMP GetClassID(CLSID* clsid) override {
    if (clsid == nullptr) return E_POINTER;
    *clsid = CLSID_CDeviceMoniker;
    return S_OK;
  }
  STDMETHODIMP IsDirty() override { return S_FALSE; }
  STDMETHODIMP Load(IStream*) override { return E_NOTIMPL; }
  STDMETHODIMP Save(IStream*, BOOL) override { return E_NOTIMPL; }
  STDMETHODIMP GetSizeMax(ULARGE_INTEGER*) override { return E_NOTIMPL; }

  STDMETHODIMP BindToObject(IBindCtx*, IMoniker*, REFIID riid, void** result) override {
    if (result == nullptr) return E_POINTER;
    return CoCreateInstance(m_Filter, nullptr, CLSCTX_INPROC_SERVER, riid, result);
  }
  STDMETHODIMP BindToStorage(IBindCtx*, IMoniker*, REFIID, void** result) override {
    if (result != nullptr) *result = nullptr;
    return E_NOTIMPL;
  }
  STDMETHODIMP Reduce(IBindCtx*, DWORD, IMoniker**, IMoniker**) override { return E_NOTIMPL; }
  STDMETHODIMP ComposeWith(IMoniker*, BOOL, IMoniker**) override { return E_NOTIMPL; }
  STDMETHODIMP Enum(BOOL, IEnumMoniker** monikers) override {
    if (monikers == nullptr) return E_POINTER;
    *monikers = nullptr;  // not a composite: no parts
    return S_OK;
  }
  STDMETHODIMP IsEqual(IMoniker* other) override {
    if (other == nullptr) return E_INVALIDARG;
    LPOLESTR name = nullptr;
    if (FAILED(other->GetDisplayName(nullptr, nullptr, &name)) || name == nullptr) return S_FALSE;
    const bool equal = UpperCase(name) == UpperCase(m_DisplayName);
    CoTaskMemFree(name);
    return equal ? S_OK : S_FALSE;
  }
  STDMETHODIMP Hash(DWORD* hash) override {
    if (hash == nullptr) return E_POINTER;
    DWORD h = 2166136261u;  // FNV-1a over the upper-cased name, as IsEqual compares
    for (wchar_t c : UpperCase(m_DisplayName)) h = (h ^ static_cast<DWORD>(c)) * 16777619u;
    *hash = h;
    return S_OK;
  }
  STDMETHODIMP IsRunning(IBindCtx*, IMoniker*, IMoniker*) override { return E_NOTIMPL; }
  STDMETHODIMP GetTimeOfLastChange(IBindCtx*, IMoniker*, FILETIME*) override { return E_NOTIMPL; }
  STDMETHODIMP Inverse(IMoniker**) override { return E_NOTIMPL; }
  STDMETHODIMP CommonPrefixWith(IMoniker*, IMoniker**) override { return E_NOTIMPL; }
  STDMETHODIMP RelativePathTo(IMoniker*, IMoniker**) override { return E_NOTIMPL; }
  STDMETHODIMP GetDisplayName(IBindCtx*, IMoniker*, LPOLESTR* displayName) override {
    if (displayName == nullptr) return E_POINTER;
    const std::size_t bytes = (m_DisplayName.size() + 1) * sizeof(OLECHAR);
    *displayName = static_cast<LPOLESTR>(CoTaskMemAlloc(bytes));
    if (*displayName == nullptr) return E_OUTOFMEMORY;
    std::memcpy(*displayName, m_DisplayName.c_str(), bytes);
    return S_OK;
  }
  STDMETHODIMP ParseDisplayName(IBindCtx*, IMoniker*, LPOLESTR, ULONG*, IMoniker**) override {
    return E_NOTIMPL;
  }
  STDMETHODIMP IsSystemMoniker(DWORD* kind) override {
    if (kind == nullptr) return E_POINTER;
    *kind = MKSYS_NONE;
    return S_FALSE;
  }

 private:
  ~CFilterMoniker() = default;
  const std::wstring m_DisplayName;
  const CLSID m_Filter;
  std::atomic<ULONG> m_RefCount{0};
};

}  // namespace

HRESULT CreateFilterMoniker(REFCLSID category, const std::wstring& instance, REFCLSID filter,
                            IMoniker** moniker) {
  if (moniker == nullptr) return E_POINTER;
  std::wstring name = L"@device:sw:" + AnsiToWide(GuidToString(category)) + L"\\" + instance;
  *moniker = ComPtr<IMoniker>(new CFilterMoniker(std::move(name), filter)).Detach();
  return S_OK;
}

}  // namespace platform_internal
