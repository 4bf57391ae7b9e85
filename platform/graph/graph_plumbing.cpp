#include "platform/graph/graph_plumbing.h"

#include <cwchar>

#include <atomic>
#include <cstring>

#include "platform/com/com_memory.h"

namespace platform_internal {

namespace {

class CEmptyMediaTypes final : public IEnumMediaTypes {
 public:
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_IEnumMediaTypes) {
      *ppv = static_cast<IEnumMediaTypes*>(this);
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
  STDMETHODIMP Next(ULONG count, AM_MEDIA_TYPE** types, ULONG* fetched) override {
    if (types == nullptr || (fetched == nullptr && count != 1)) return E_POINTER;
    if (fetched != nullptr) *fetched = 0;
    return count == 0 ? S_OK : S_FALSE;
  }
  STDMETHODIMP Skip(ULONG count) override { return count == 0 ? S_OK : S_FALSE; }
  STDMETHODIMP Reset() override { return S_OK; }
  STDMETHODIMP Clone(IEnumMediaTypes** copy) override { return CreateEmptyMediaTypeEnum(copy); }

 private:
  ~CEmptyMediaTypes() = default;
  std::atomic<ULONG> m_RefCount{0};
};

}  // namespace

HRESULT CreateEmptyMediaTypeEnum(IEnumMediaTypes** types) {
  if (types == nullptr) return E_POINTER;
  auto* created = new CEmptyMediaTypes;
  created->AddRef();
  *types = created;
  return S_OK;
}

HRESULT CopyMediaTypeTo(const AM_MEDIA_TYPE& source, AM_MEDIA_TYPE* target) {
  *target = source;
  target->pbFormat = nullptr;
  if (source.cbFormat != 0 && source.pbFormat != nullptr) {
    target->pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(source.cbFormat));
    if (target->pbFormat == nullptr) {
      *target = AM_MEDIA_TYPE{};
      return E_OUTOFMEMORY;
    }
    std::memcpy(target->pbFormat, source.pbFormat, source.cbFormat);
  } else {
    target->cbFormat = 0;
  }
  if (target->pUnk != nullptr) target->pUnk->AddRef();
  return S_OK;
}

void ClearMediaType(AM_MEDIA_TYPE* type) {
  CoTaskMemFree(type->pbFormat);
  if (type->pUnk != nullptr) type->pUnk->Release();
  *type = AM_MEDIA_TYPE{};
}

HRESULT CopyWideString(const std::wstring& text, LPWSTR* out) {
  const std::size_t bytes = (text.size() + 1) * sizeof(WCHAR);
  auto* copy = static_cast<LPWSTR>(CoTaskMemAlloc(bytes));
  if (copy == nullptr) {
    *out = nullptr;
    return E_OUTOFMEMORY;
  }
  std::memcpy(copy, text.c_str(), bytes);
  *out = copy;
  return S_OK;
}

ComPtr<IUnknown> IdentityOf(IUnknown* object) {
  ComPtr<IUnknown> identity;
  if (object != nullptr) object->QueryInterface(IID_IUnknown, identity.PutVoid());
  return identity;
}

std::vector<ComPtr<IPin>> PinsOf(IBaseFilter* filter) {
  std::vector<ComPtr<IPin>> pins;
  ComPtr<IEnumPins> pinEnum;
  if (filter == nullptr || FAILED(filter->EnumPins(pinEnum.PutAddress())) || !pinEnum) return pins;
  IPin* pin = nullptr;
  ULONG fetched = 0;
  while (pinEnum->Next(1, &pin, &fetched) == S_OK && fetched == 1) {
    pins.push_back(ComPtr<IPin>::Attach(pin));
  }
  return pins;
}

ComPtr<IBaseFilter> OwnerOf(IPin* pin) {
  PIN_INFO info{};
  if (pin == nullptr || FAILED(pin->QueryPinInfo(&info))) return nullptr;
  return ComPtr<IBaseFilter>::Attach(info.pFilter);
}

ComPtr<IPin> PeerOf(IPin* pin) {
  ComPtr<IPin> peer;
  if (pin != nullptr && FAILED(pin->ConnectedTo(peer.PutAddress()))) peer = nullptr;
  return peer;
}

bool IsOutputPin(IPin* pin) {
  PIN_DIRECTION direction = PINDIR_INPUT;
  return pin != nullptr && SUCCEEDED(pin->QueryDirection(&direction)) && direction == PINDIR_OUTPUT;
}

HRESULT DisconnectInput(std::mutex& lock, const FILTER_STATE& state, ComPtr<IPin>& peer, AM_MEDIA_TYPE& type) {
  ComPtr<IPin> released;  // let go after the lock: it may hold the last reference to its filter
  std::lock_guard<std::mutex> guard(lock);
  if (!peer) return S_FALSE;
  if (state != State_Stopped) return VFW_E_NOT_STOPPED;
  released = std::move(peer);
  ClearMediaType(&type);
  return S_OK;
}

HRESULT ConnectedPeer(std::mutex& lock, const ComPtr<IPin>& peer, IPin** pin) {
  if (pin == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> guard(lock);
  *pin = ComPtr<IPin>(peer).Detach();
  return *pin != nullptr ? S_OK : VFW_E_NOT_CONNECTED;
}

HRESULT ConnectedType(std::mutex& lock, const ComPtr<IPin>& peer, const AM_MEDIA_TYPE& type, AM_MEDIA_TYPE* out) {
  if (out == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> guard(lock);
  if (!peer) {
    *out = AM_MEDIA_TYPE{};
    return VFW_E_NOT_CONNECTED;
  }
  return CopyMediaTypeTo(type, out);
}

HRESULT InputPinInfo(IBaseFilter* filter, const wchar_t* name, PIN_INFO* info) {
  if (info == nullptr) return E_POINTER;
  info->pFilter = filter;
  filter->AddRef();
  info->dir = PINDIR_INPUT;
  std::wcsncpy(info->achName, name, MAX_PIN_NAME);
  return S_OK;
}

HRESULT InputDirection(PIN_DIRECTION* direction) {
  if (direction == nullptr) return E_POINTER;
  *direction = PINDIR_INPUT;
  return S_OK;
}

}  // namespace platform_internal
