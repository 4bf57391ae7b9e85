#include "platform/graph/graph_plumbing.h"

#include <cwchar>

#include <atomic>
#include <cstring>

#include "platform/com/com_memory.h"

namespace platform_internal {

void ClearMediaType(AM_MEDIA_TYPE* type) {
  CoTaskMemFree(type->pbFormat);
  if (type->pUnk != nullptr) type->pUnk->Release();
  *type = AM_MEDIA_TYPE{};
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

}  // namespace platform_internal
