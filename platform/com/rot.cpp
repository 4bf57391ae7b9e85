#include "platform/com/rot.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <cwctype>
#include <list>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/com/com_memory.h"
#include "platform/com/enum_snapshot.h"
#include "platform/com/moniker_base.h"

namespace {

// Lets one item moniker see the parts of another without parsing its
// display name, which could not tell delimiter from item.
inline constexpr IID IID_IPlatformItemMoniker =
    MakeGuid(0x7A0C1E52, 0x33B6, 0x4D1F, 0x9C, 0x57, 0x61, 0x0E, 0x2B, 0x8D, 0x4F, 0xA3);

bool SameTextIgnoringCase(const std::wstring& a, const std::wstring& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (std::towupper(static_cast<wint_t>(a[i])) != std::towupper(static_cast<wint_t>(b[i]))) {
      return false;
    }
  }
  return true;
}

class CItemMoniker final : public platform_internal::CMonikerBase {
 public:
  CItemMoniker(std::wstring delimiter, std::wstring item)
      : m_Delimiter(std::move(delimiter)), m_Item(std::move(item)) {}

  const std::wstring& Delimiter() const { return m_Delimiter; }
  const std::wstring& Item() const { return m_Item; }

  STDMETHODIMP GetClassID(CLSID* clsid) override {
    if (clsid == nullptr) return E_POINTER;
    *clsid = CLSID_ItemMoniker;
    return S_OK;
  }
  STDMETHODIMP BindToObject(IBindCtx*, IMoniker*, REFIID, void** result) override {
    if (result != nullptr) *result = nullptr;
    return E_NOTIMPL;
  }
  STDMETHODIMP IsEqual(IMoniker* other) override {
    if (other == nullptr) return E_INVALIDARG;
    void* raw = nullptr;
    if (FAILED(other->QueryInterface(IID_IPlatformItemMoniker, &raw))) return S_FALSE;
    auto* item = static_cast<CItemMoniker*>(static_cast<IMoniker*>(raw));
    const bool equal = SameTextIgnoringCase(m_Delimiter, item->m_Delimiter) &&
                       SameTextIgnoringCase(m_Item, item->m_Item);
    item->Release();
    return equal ? S_OK : S_FALSE;
  }
  STDMETHODIMP Hash(DWORD* hash) override {
    if (hash == nullptr) return E_POINTER;
    DWORD h = 2166136261u;  // FNV-1a over the upper-cased text, so equal monikers agree
    for (const std::wstring* part : {&m_Delimiter, &m_Item}) {
      for (wchar_t c : *part) {
        h = (h ^ static_cast<DWORD>(std::towupper(static_cast<wint_t>(c)))) * 16777619u;
      }
      h = (h ^ 0xFFFFu) * 16777619u;
    }
    *hash = h;
    return S_OK;
  }
  STDMETHODIMP GetDisplayName(IBindCtx*, IMoniker*, LPOLESTR* displayName) override {
    if (displayName == nullptr) return E_POINTER;
    *displayName = nullptr;
    return platform_internal::CopyToTaskMemory(m_Delimiter + m_Item, displayName);
  }
  STDMETHODIMP IsSystemMoniker(DWORD* kind) override {
    if (kind == nullptr) return E_POINTER;
    *kind = MKSYS_ITEMMONIKER;
    return S_OK;
  }

 private:
  ~CItemMoniker() override = default;
  bool AnswersPrivate(REFIID riid) const override { return riid == IID_IPlatformItemMoniker; }
  const std::wstring m_Delimiter;
  const std::wstring m_Item;
};

// Recursive, because comparing monikers calls into them and a foreign
// moniker may look at the table again. References are always released
// after the lock is left, since a release may destroy an object whose
// destructor revokes its own entry.
class CRunningObjectTable final : public IRunningObjectTable {
 public:
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_IRunningObjectTable) {
      *ppv = static_cast<IRunningObjectTable*>(this);
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  // The table lives as long as the process.
  STDMETHODIMP_(ULONG) AddRef() override { return 2; }
  STDMETHODIMP_(ULONG) Release() override { return 1; }

  STDMETHODIMP Register(DWORD, IUnknown* object, IMoniker* name, DWORD* cookie) override {
    if (cookie == nullptr) return E_INVALIDARG;
    *cookie = 0;
    if (object == nullptr || name == nullptr) return E_INVALIDARG;
    Entry entry{0, ComPtr<IUnknown>(object), ComPtr<IMoniker>(name), {}};
    LPOLESTR display = nullptr;
    if (SUCCEEDED(name->GetDisplayName(nullptr, nullptr, &display)) && display != nullptr) {
      entry.displayName = display;
    }
    CoTaskMemFree(display);

    std::lock_guard<std::recursive_mutex> guard(m_Lock);
    const bool duplicate = FindLocked(name) != m_Entries.end();
    entry.cookie = m_NextCookie++;
    if (m_NextCookie == 0) m_NextCookie = 1;
    *cookie = entry.cookie;
    m_Entries.push_back(std::move(entry));
    return duplicate ? MK_S_MONIKERALREADYREGISTERED : S_OK;
  }

  STDMETHODIMP Revoke(DWORD cookie) override {
    std::list<Entry> removed;  // released when this returns, after the lock
    std::lock_guard<std::recursive_mutex> guard(m_Lock);
    for (auto it = m_Entries.begin(); it != m_Entries.end(); ++it) {
      if (it->cookie == cookie) {
        removed.splice(removed.begin(), m_Entries, it);
        return S_OK;
      }
    }
    return E_INVALIDARG;
  }

  STDMETHODIMP IsRunning(IMoniker* name) override {
    if (name == nullptr) return E_INVALIDARG;
    std::lock_guard<std::recursive_mutex> guard(m_Lock);
    return FindLocked(name) != m_Entries.end() ? S_OK : S_FALSE;
  }

  STDMETHODIMP GetObject(IMoniker* name, IUnknown** object) override {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (name == nullptr) return E_INVALIDARG;
    std::lock_guard<std::recursive_mutex> guard(m_Lock);
    const auto found = FindLocked(name);
    if (found == m_Entries.end()) return MK_E_UNAVAILABLE;
    *object = ComPtr<IUnknown>(found->object).Detach();
    return S_OK;
  }

  STDMETHODIMP NoteChangeTime(DWORD, FILETIME*) override { return E_NOTIMPL; }
  STDMETHODIMP GetTimeOfLastChange(IMoniker*, FILETIME*) override { return E_NOTIMPL; }
  STDMETHODIMP EnumRunning(IEnumMoniker** monikers) override {
    if (monikers != nullptr) *monikers = nullptr;
    return E_NOTIMPL;
  }

  std::vector<std::wstring> Names() {
    std::lock_guard<std::recursive_mutex> guard(m_Lock);
    std::vector<std::wstring> names;
    names.reserve(m_Entries.size());
    for (const Entry& entry : m_Entries) names.push_back(entry.displayName);
    return names;
  }

  std::atomic<bool> available{true};

 private:
  struct Entry {
    DWORD cookie;
    ComPtr<IUnknown> object;
    ComPtr<IMoniker> name;
    std::wstring displayName;
  };

  std::list<Entry>::iterator FindLocked(IMoniker* name) {
    for (auto it = m_Entries.begin(); it != m_Entries.end(); ++it) {
      if (it->name.Get() == name || name->IsEqual(it->name.Get()) == S_OK) return it;
    }
    return m_Entries.end();
  }

  std::recursive_mutex m_Lock;
  std::list<Entry> m_Entries;  // guarded by m_Lock, in the order of registration
  DWORD m_NextCookie = 1;      // guarded by m_Lock
};

// Never destroyed: objects may revoke themselves from static destructors.
CRunningObjectTable& Table() {
  static CRunningObjectTable* table = new CRunningObjectTable;
  return *table;
}

}  // namespace

HRESULT GetRunningObjectTable(DWORD, IRunningObjectTable** table) {
  if (table == nullptr) return E_INVALIDARG;
  *table = nullptr;
  if (!Table().available) return E_UNEXPECTED;
  *table = &Table();
  return S_OK;
}

HRESULT CreateItemMoniker(LPCOLESTR delimiter, LPCOLESTR item, IMoniker** moniker) {
  if (moniker == nullptr) return E_INVALIDARG;
  *moniker = nullptr;
  if (item == nullptr) return E_INVALIDARG;
  auto* created = new CItemMoniker(delimiter != nullptr ? delimiter : L"", item);
  created->AddRef();
  *moniker = created;
  return S_OK;
}

std::vector<std::wstring> PlatformRunningObjectNames() { return Table().Names(); }

void PlatformSetRunningObjectTableAvailable(bool available) { Table().available = available; }

namespace platform_internal {

HRESULT CreateMonikerEnumerator(std::vector<ComPtr<IMoniker>> monikers, IEnumMoniker** result) {
  if (result == nullptr) return E_POINTER;
  *result = ComPtr<IEnumMoniker>(new CEnumSnapshot<IEnumMoniker, IMoniker>(IID_IEnumMoniker, std::move(monikers)))
                .Detach();
  return S_OK;
}

}  // namespace platform_internal

namespace platform_internal {

HRESULT CopyToTaskMemory(const std::wstring& text, LPOLESTR* out) {
  auto* copy = static_cast<LPOLESTR>(CoTaskMemAlloc((text.size() + 1) * sizeof(OLECHAR)));
  if (copy == nullptr) return E_OUTOFMEMORY;
  std::memcpy(copy, text.c_str(), (text.size() + 1) * sizeof(OLECHAR));
  *out = copy;
  return S_OK;
}

STDMETHODIMP CMonikerBase::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IUnknown || riid == IID_IPersist || riid == IID_IPersistStream || riid == IID_IMoniker ||
      AnswersPrivate(riid)) {
    *ppv = static_cast<IMoniker*>(this);
    AddRef();
    return S_OK;
  }
  *ppv = nullptr;
  return E_NOINTERFACE;
}

STDMETHODIMP CMonikerBase::BindToStorage(IBindCtx*, IMoniker*, REFIID, void** result) {
  if (result != nullptr) *result = nullptr;
  return E_NOTIMPL;
}

STDMETHODIMP CMonikerBase::Enum(BOOL, IEnumMoniker** monikers) {
  if (monikers == nullptr) return E_POINTER;
  *monikers = nullptr;
  return S_OK;
}

}  // namespace platform_internal
