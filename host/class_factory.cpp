#include "host/class_factory.h"

#include <new>

namespace {
std::atomic<long> g_ServerLocks{0};
}

CClassFactory::CClassFactory(const CFactoryTemplate* row) : CUnknown("Class factory", nullptr), m_Row(row) {}

STDMETHODIMP CClassFactory::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IClassFactory) return GetInterface(static_cast<IClassFactory*>(this), ppv);
  return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

STDMETHODIMP CClassFactory::CreateInstance(IUnknown* outer, REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  // An aggregating caller must ask for the inner object's own unknown.
  if (outer != nullptr && riid != IID_IUnknown) return E_NOINTERFACE;

  HRESULT hr = S_OK;
  CUnknown* object = m_Row->m_lpfnNew(outer, &hr);
  if (object == nullptr) return SUCCEEDED(hr) ? E_OUTOFMEMORY : hr;
  if (FAILED(hr)) {
    delete object;
    return hr;
  }
  // The reference taken here is given back at once: a refused iid ends the
  // object, and an accepted one leaves the caller's reference.
  object->NonDelegatingAddRef();
  hr = object->NonDelegatingQueryInterface(riid, ppv);
  object->NonDelegatingRelease();
  return hr;
}

STDMETHODIMP CClassFactory::LockServer(BOOL lock) {
  if (lock) {
    ++g_ServerLocks;
  } else {
    --g_ServerLocks;
  }
  return S_OK;
}

long CClassFactory::ServerLocks() { return g_ServerLocks.load(); }

HRESULT GetClassObjectFromTable(std::span<const CFactoryTemplate> table, REFCLSID clsid, REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid != IID_IUnknown && riid != IID_IClassFactory) return E_NOINTERFACE;
  for (const CFactoryTemplate& row : table) {
    if (*row.m_ClsID != clsid) continue;
    auto* factory = new (std::nothrow) CClassFactory(&row);
    if (factory == nullptr) {
      *ppv = nullptr;
      return E_OUTOFMEMORY;
    }
    factory->NonDelegatingAddRef();
    *ppv = static_cast<IClassFactory*>(factory);
    return S_OK;
  }
  return CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT CanUnloadNow() {
  return CClassFactory::ServerLocks() <= 0 && ActiveObjectCount() == 0 ? S_OK : S_FALSE;
}

void RunInitRoutines(std::span<const CFactoryTemplate> table, BOOL loading) {
  for (const CFactoryTemplate& row : table) {
    if (row.m_lpfnInit != nullptr) row.m_lpfnInit(loading, row.m_ClsID);
  }
}
