// A COM enumerator over a fixed list of interface pointers, shared by the
// platform's enumerators of pins, filters and monikers. In a namespace of its
// own for the reason graph_plumbing.h gives.
#pragma once

#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/com/com_ptr.h"
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

}  // namespace platform_internal
