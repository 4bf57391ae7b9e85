#include "platform/graph/filter_moniker.h"

#include <atomic>
#include <cstring>
#include <cwctype>
#include <utility>

#include "platform/com/com_memory.h"
#include "platform/com/moniker_base.h"
#include "platform/com/objbase.h"
#include "platform/win32/codepage.h"

namespace platform_internal {
namespace {

std::wstring UpperCase(std::wstring text) {
  for (wchar_t& c : text) c = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(c)));
  return text;
}

class CFilterMoniker final : public CMonikerBase {
 public:
  CFilterMoniker(std::wstring displayName, const CLSID& filter)
      : m_DisplayName(std::move(displayName)), m_Filter(filter) {}

  STDMETHODIMP GetClassID(CLSID* clsid) override {
    if (clsid == nullptr) return E_POINTER;
    *clsid = CLSID_CDeviceMoniker;
    return S_OK;
  }
  STDMETHODIMP BindToObject(IBindCtx*, IMoniker*, REFIID riid, void** result) override {
    if (result == nullptr) return E_POINTER;
    return CoCreateInstance(m_Filter, nullptr, CLSCTX_INPROC_SERVER, riid, result);
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
  STDMETHODIMP GetDisplayName(IBindCtx*, IMoniker*, LPOLESTR* displayName) override {
    if (displayName == nullptr) return E_POINTER;
    *displayName = nullptr;
    return CopyToTaskMemory(m_DisplayName, displayName);
  }
  STDMETHODIMP IsSystemMoniker(DWORD* kind) override {
    if (kind == nullptr) return E_POINTER;
    *kind = MKSYS_NONE;
    return S_FALSE;
  }

 private:
  ~CFilterMoniker() override = default;
  const std::wstring m_DisplayName;
  const CLSID m_Filter;
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
