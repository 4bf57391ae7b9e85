// Small pieces shared by the graph manager and the sink filters: enumerators,
// media type copies for callers, and pin walks. Everything sits in a
// namespace of its own, because the module loaded into the process has
// classes of the same well-known names (CEnumPins and the like) and an
// exported name here would take the place of the module's.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/graph/strmif.h"
#include "platform/com/unknwn.h"

namespace platform_internal {

// An enumerator over the interface pointers it was given, each held with a
// reference; a later change to the source does not show.
template <class IEnum, class Item>
class CEnumSnapshot final : public IEnum {
 public:
  CEnumSnapshot(REFIID iid, std::vector<ComPtr<Item>> items, std::size_t position = 0)
      : m_Iid(iid), m_Items(std::move(items)), m_Position(position) {}

  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    if (riid == IID_IUnknown || riid == m_Iid) {
      *ppv = static_cast<IEnum*>(this);
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

  STDMETHODIMP Next(ULONG count, Item** items, ULONG* fetched) override {
    if (items == nullptr || (fetched == nullptr && count != 1)) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    ULONG given = 0;
    while (given < count && m_Position < m_Items.size()) {
      items[given++] = ComPtr<Item>(m_Items[m_Position++]).Detach();
    }
    if (fetched != nullptr) *fetched = given;
    return given == count ? S_OK : S_FALSE;
  }
  STDMETHODIMP Skip(ULONG count) override {
    std::lock_guard<std::mutex> guard(m_Lock);
    const std::size_t left = m_Items.size() - m_Position;
    m_Position += count < left ? count : left;
    return count <= left ? S_OK : S_FALSE;
  }
  STDMETHODIMP Reset() override {
    std::lock_guard<std::mutex> guard(m_Lock);
    m_Position = 0;
    return S_OK;
  }
  STDMETHODIMP Clone(IEnum** copy) override {
    if (copy == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    auto* clone = new CEnumSnapshot(m_Iid, m_Items, m_Position);
    clone->AddRef();
    *copy = clone;
    return S_OK;
  }

 private:
  ~CEnumSnapshot() = default;

  const IID m_Iid;
  const std::vector<ComPtr<Item>> m_Items;
  std::mutex m_Lock;
  std::size_t m_Position;  // guarded by m_Lock
  std::atomic<ULONG> m_RefCount{0};
};

// Frees a type's format block and pUnk, as a caller of
// ConnectionMediaType must, and zeroes the type.
void ClearMediaType(AM_MEDIA_TYPE* type);

// `iid` on the object, or null. (A ComPtr filled through PutVoid holds the
// pointer only once the full expression has ended, so conditions use this.)
template <class T>
ComPtr<T> Query(IUnknown* object, REFIID iid) {
  ComPtr<T> result;
  if (object != nullptr) object->QueryInterface(iid, result.PutVoid());
  return result;
}

// The object's identity: its IUnknown, with a reference; null for null.
ComPtr<IUnknown> IdentityOf(IUnknown* object);

// All pins of a filter, in its order; empty when it has none or will not say.
std::vector<ComPtr<IPin>> PinsOf(IBaseFilter* filter);

// The filter that owns `pin`, with a reference; null if the pin will not say.
ComPtr<IBaseFilter> OwnerOf(IPin* pin);

// The pin's peer, or null.
ComPtr<IPin> PeerOf(IPin* pin);

bool IsOutputPin(IPin* pin);

}  // namespace platform_internal
