// The filter mapper object behind CLSID_FilterMapper2 and CLSID_FilterMapper:
// one class answering both interfaces over the entries of filter_store.
#include "platform/graph/filter_mapper.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <cwctype>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/com/com_memory.h"
#include "platform/graph/filter_moniker.h"
#include "platform/graph/filter_registry.h"
#include "platform/graph/filter_store.h"
#include "platform/win32/codepage.h"

namespace platform_internal {
namespace {

constexpr HRESULT kNotFound = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);

// The older interface changes an entry by reading, editing and writing it
// back; this keeps two such changes in one process from losing each other.
std::mutex& EditLock() {
  static std::mutex lock;
  return lock;
}

bool SameNameIgnoringCase(const std::wstring& a, const std::wstring& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](wchar_t x, wchar_t y) {
    return std::towupper(static_cast<wint_t>(x)) == std::towupper(static_cast<wint_t>(y));
  });
}

std::vector<RegisteredPinType> TypePairs(DWORD count, const GUID* types) {
  std::vector<RegisteredPinType> pairs;
  for (DWORD i = 0; i < count; ++i) pairs.push_back({types[2 * i], types[2 * i + 1]});
  return pairs;
}

// Where a moniker the caller passes in to RegisterFilter says to write: only
// our own display form names a place.
bool PlaceOfMoniker(IMoniker* moniker, CLSID* category, std::wstring* instance) {
  LPOLESTR raw = nullptr;
  if (FAILED(moniker->GetDisplayName(nullptr, nullptr, &raw)) || raw == nullptr) return false;
  const std::wstring name = raw;
  CoTaskMemFree(raw);
  const std::wstring prefix = L"@device:sw:";
  constexpr std::size_t kGuidChars = 38;
  if (name.size() <= prefix.size() + kGuidChars + 1 ||
      name.compare(0, prefix.size(), prefix) != 0 || name[prefix.size() + kGuidChars] != L'\\') {
    return false;
  }
  const std::string guid = WideToAnsi(name.substr(prefix.size(), kGuidChars));
  if (!GuidFromString(guid.c_str(), category)) return false;
  *instance = name.substr(prefix.size() + kGuidChars + 1);
  return true;
}

struct FoundFilter {
  CLSID clsid;
  std::wstring name;
};

class CEnumRegFilters final : public IEnumRegFilters {
 public:
  using List = std::shared_ptr<const std::vector<FoundFilter>>;
  CEnumRegFilters(List list, std::size_t position)
      : m_List(std::move(list)), m_Position(position) {}

  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_IEnumRegFilters) {
      *ppv = static_cast<IEnumRegFilters*>(this);
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

  // Each record is one block of task memory: the REGFILTER, then its name.
  STDMETHODIMP Next(ULONG count, REGFILTER** filters, ULONG* fetched) override {
    if (filters == nullptr || (fetched == nullptr && count != 1)) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    ULONG given = 0;
    while (given < count && m_Position < m_List->size()) {
      const FoundFilter& found = (*m_List)[m_Position];
      const std::size_t nameBytes = (found.name.size() + 1) * sizeof(WCHAR);
      auto* record = static_cast<REGFILTER*>(CoTaskMemAlloc(sizeof(REGFILTER) + nameBytes));
      if (record == nullptr) {
        for (ULONG i = 0; i < given; ++i) CoTaskMemFree(std::exchange(filters[i], nullptr));
        m_Position -= given;
        if (fetched != nullptr) *fetched = 0;
        return E_OUTOFMEMORY;
      }
      record->Clsid = found.clsid;
      record->Name = reinterpret_cast<LPWSTR>(record + 1);
      std::memcpy(record->Name, found.name.c_str(), nameBytes);
      filters[given++] = record;
      ++m_Position;
    }
    if (fetched != nullptr) *fetched = given;
    return given == count ? S_OK : S_FALSE;
  }
  STDMETHODIMP Skip(ULONG count) override {
    std::lock_guard<std::mutex> guard(m_Lock);
    const std::size_t left = m_List->size() - m_Position;
    m_Position += std::min<std::size_t>(count, left);
    return count <= left ? S_OK : S_FALSE;
  }
  STDMETHODIMP Reset() override {
    std::lock_guard<std::mutex> guard(m_Lock);
    m_Position = 0;
    return S_OK;
  }
  STDMETHODIMP Clone(IEnumRegFilters** clone) override {
    if (clone == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    *clone = ComPtr<IEnumRegFilters>(new CEnumRegFilters(m_List, m_Position)).Detach();
    return S_OK;
  }

 private:
  ~CEnumRegFilters() = default;
  const List m_List;
  std::mutex m_Lock;
  std::size_t m_Position = 0;  // guarded by m_Lock
  std::atomic<ULONG> m_RefCount{0};
};

class CFilterMapper final : public IFilterMapper2, public IFilterMapper {
 public:
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_IFilterMapper2) {
      *ppv = static_cast<IFilterMapper2*>(this);
    } else if (riid == IID_IFilterMapper) {
      *ppv = static_cast<IFilterMapper*>(this);
    } else {
      *ppv = nullptr;
      return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return ++m_RefCount; }
  STDMETHODIMP_(ULONG) Release() override {
    const ULONG count = --m_RefCount;
    if (count == 0) delete this;
    return count;
  }

  // IFilterMapper2

  STDMETHODIMP CreateCategory(REFCLSID category, DWORD categoryMerit,
                              LPCWSTR description) override {
    if (description == nullptr) return E_POINTER;
    return WriteCategory(category, categoryMerit, description);
  }

  STDMETHODIMP UnregisterFilter(const CLSID* category, LPCOLESTR instance,
                                REFCLSID filter) override {
    return DeleteFilterEntry(category != nullptr ? *category : CLSID_LegacyAmFilterCategory,
                             InstanceOrDefault(instance, filter));
  }

  STDMETHODIMP RegisterFilter(REFCLSID filter, LPCWSTR name, IMoniker** moniker,
                              const CLSID* category, LPCOLESTR instance,
                              const REGFILTER2* data) override {
    if (name == nullptr || data == nullptr) return E_POINTER;
    FilterEntry entry;
    entry.category = category != nullptr ? *category : CLSID_LegacyAmFilterCategory;
    entry.instance = InstanceOrDefault(instance, filter);
    // A moniker passed in says where to write, as on the platform; it stays
    // the caller's.
    const bool placed = moniker != nullptr && *moniker != nullptr;
    if (placed && !PlaceOfMoniker(*moniker, &entry.category, &entry.instance)) return E_INVALIDARG;
    entry.clsid = filter;
    entry.name = name;
    HRESULT hr = FilterDataFromRegFilter2(*data, &entry.data);
    if (FAILED(hr)) return hr;
    hr = WriteFilterEntry(entry);
    if (FAILED(hr) || moniker == nullptr || placed) return hr;
    return CreateFilterMoniker(entry.category, entry.instance, filter, moniker);
  }

  STDMETHODIMP EnumMatchingFilters(IEnumMoniker** filters, DWORD, BOOL exactMatch, DWORD merit,
                                   BOOL inputNeeded, DWORD inputTypeCount, const GUID* inputTypes,
                                   const REGPINMEDIUM* inputMedium, const CLSID* inputPinCategory,
                                   BOOL render, BOOL outputNeeded, DWORD outputTypeCount,
                                   const GUID* outputTypes, const REGPINMEDIUM* outputMedium,
                                   const CLSID* outputPinCategory) override {
    if (filters == nullptr) return E_POINTER;
    *filters = nullptr;
    if ((inputTypeCount != 0 && inputTypes == nullptr) ||
        (outputTypeCount != 0 && outputTypes == nullptr)) {
      return E_POINTER;
    }
    FilterSearch search;
    search.query.minimumMerit = merit;
    search.query.exactMatch = exactMatch != FALSE;
    search.query.inputNeeded = inputNeeded != FALSE;
    search.query.inputTypes = TypePairs(inputTypeCount, inputTypes);
    search.query.render = render != FALSE;
    search.query.outputNeeded = outputNeeded != FALSE;
    search.query.outputTypes = TypePairs(outputTypeCount, outputTypes);
    if (inputMedium != nullptr) search.inputMedium = *inputMedium;
    if (inputPinCategory != nullptr) search.inputCategory = *inputPinCategory;
    if (outputMedium != nullptr) search.outputMedium = *outputMedium;
    if (outputPinCategory != nullptr) search.outputCategory = *outputPinCategory;

    std::vector<ComPtr<IMoniker>> monikers;
    for (const FilterEntry& entry : FindFilters(search)) {
      ComPtr<IMoniker> moniker;
      const HRESULT hr =
          CreateFilterMoniker(entry.category, entry.instance, entry.clsid, moniker.PutAddress());
      if (FAILED(hr)) return hr;
      monikers.push_back(std::move(moniker));
    }
    return CreateMonikerEnumerator(std::move(monikers), filters);
  }

  // IFilterMapper: its entries live in the legacy category under the class
  // id's text, where IFilterMapper2 puts them by default as well.

  STDMETHODIMP RegisterFilter(CLSID filter, LPCWSTR name, DWORD merit) override {
    if (name == nullptr) return E_POINTER;
    FilterEntry entry;
    entry.category = CLSID_LegacyAmFilterCategory;
    entry.instance = InstanceNameOf(filter);
    entry.clsid = filter;
    entry.name = name;
    entry.data.merit = merit;
    std::lock_guard<std::mutex> guard(EditLock());
    return WriteFilterEntry(entry);
  }

  STDMETHODIMP RegisterFilterInstance(CLSID, LPCWSTR, CLSID* instance) override {
    if (instance != nullptr) *instance = GUID_NULL;
    return E_NOTIMPL;
  }

  // The connects-to fields are not kept: nothing reads them.
  STDMETHODIMP RegisterPin(CLSID filter, LPCWSTR name, BOOL rendered, BOOL output, BOOL zero,
                           BOOL many, CLSID, LPCWSTR) override {
    if (name == nullptr) return E_POINTER;
    FilterDataPin pin;
    pin.name = name;
    pin.flags = (rendered ? REG_PINFLAG_B_RENDERER : 0) | (output ? REG_PINFLAG_B_OUTPUT : 0) |
                (zero ? REG_PINFLAG_B_ZERO : 0) | (many ? REG_PINFLAG_B_MANY : 0);
    return EditPins(filter, [&pin](std::vector<FilterDataPin>* pins) {
      const auto it = FindPin(pins, pin.name);
      if (it != pins->end()) {
        *it = std::move(pin);
      } else {
        pins->push_back(std::move(pin));
      }
      return S_OK;
    });
  }

  STDMETHODIMP RegisterPinType(CLSID filter, LPCWSTR pin, CLSID majorType, CLSID subType) override {
    if (pin == nullptr) return E_POINTER;
    return EditPins(filter, [pin, &majorType, &subType](std::vector<FilterDataPin>* pins) {
      const auto it = FindPin(pins, pin);
      if (it == pins->end()) return kNotFound;
      const bool known = std::any_of(
          it->types.begin(), it->types.end(),
          [&](const RegisteredPinType& t) { return t.major == majorType && t.minor == subType; });
      if (!known) it->types.push_back({majorType, subType});
      return S_OK;
    });
  }

  STDMETHODIMP UnregisterFilter(CLSID filter) override {
    std::lock_guard<std::mutex> guard(EditLock());
    return DeleteFilterEntry(CLSID_LegacyAmFilterCategory, InstanceNameOf(filter));
  }

  STDMETHODIMP UnregisterFilterInstance(CLSID) override { return E_NOTIMPL; }

  STDMETHODIMP UnregisterPin(CLSID filter, LPCWSTR name) override {
    if (name == nullptr) return E_POINTER;
    return EditPins(filter, [name](std::vector<FilterDataPin>* pins) {
      const auto it = FindPin(pins, name);
      if (it == pins->end()) return kNotFound;
      pins->erase(it);
      return S_OK;
    });
  }

  STDMETHODIMP EnumMatchingFilters(IEnumRegFilters** filters, DWORD merit, BOOL inputNeeded,
                                   CLSID inputMajor, CLSID inputSub, BOOL render, BOOL outputNeeded,
                                   CLSID outputMajor, CLSID outputSub) override {
    if (filters == nullptr) return E_POINTER;
    *filters = nullptr;
    FilterSearch search;
    search.query.minimumMerit = merit;
    search.query.inputNeeded = inputNeeded != FALSE;
    search.query.render = render != FALSE;
    search.query.outputNeeded = outputNeeded != FALSE;
    // GUID_NULL for both halves asks for no type at all, so a pin that
    // lists none still counts.
    if (inputMajor != GUID_NULL || inputSub != GUID_NULL)
      search.query.inputTypes = {{inputMajor, inputSub}};
    if (outputMajor != GUID_NULL || outputSub != GUID_NULL) {
      search.query.outputTypes = {{outputMajor, outputSub}};
    }
    auto list = std::make_shared<std::vector<FoundFilter>>();
    for (FilterEntry& entry : FindFilters(search))
      list->push_back({entry.clsid, std::move(entry.name)});
    *filters = ComPtr<IEnumRegFilters>(new CEnumRegFilters(std::move(list), 0)).Detach();
    return S_OK;
  }

 private:
  ~CFilterMapper() = default;

  static std::wstring InstanceOrDefault(LPCOLESTR instance, REFCLSID filter) {
    return instance != nullptr && *instance != L'\0' ? std::wstring(instance)
                                                     : InstanceNameOf(filter);
  }

  static std::vector<FilterDataPin>::iterator FindPin(std::vector<FilterDataPin>* pins,
                                                      const std::wstring& name) {
    return std::find_if(pins->begin(), pins->end(), [&name](const FilterDataPin& pin) {
      return SameNameIgnoringCase(pin.name, name);
    });
  }

  template <class Edit>
  static HRESULT EditPins(REFCLSID filter, Edit&& edit) {
    const std::wstring instance = InstanceNameOf(filter);
    std::lock_guard<std::mutex> guard(EditLock());
    FilterEntry entry;
    HRESULT hr = ReadFilterEntry(CLSID_LegacyAmFilterCategory, instance, &entry);
    if (FAILED(hr)) return hr;
    hr = edit(&entry.data.pins);
    if (FAILED(hr)) return hr;
    return WriteFilterData(CLSID_LegacyAmFilterCategory, instance, entry.data);
  }

  std::atomic<ULONG> m_RefCount{0};
};

}  // namespace

HRESULT CreateFilterMapper(IUnknown* outer, REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  if (outer != nullptr) return CLASS_E_NOAGGREGATION;
  ComPtr<IFilterMapper2> mapper(new CFilterMapper);
  return mapper->QueryInterface(riid, ppv);
}

}  // namespace platform_internal
