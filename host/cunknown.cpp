#include "host/cunknown.h"

namespace {
std::atomic<long> g_ActiveObjects{0};
}

long ActiveObjectCount() { return g_ActiveObjects.load(); }

HRESULT GetInterface(IUnknown* face, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = face;
  face->AddRef();
  return S_OK;
}

CUnknown::CUnknown(const char* name, IUnknown* outer)
    : m_Name(name), m_Inner(this), m_Owner(outer != nullptr ? outer : &m_Inner) {
  ++g_ActiveObjects;
}

CUnknown::~CUnknown() { --g_ActiveObjects; }

STDMETHODIMP CUnknown::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IUnknown) return GetInterface(&m_Inner, ppv);
  *ppv = nullptr;
  return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) CUnknown::NonDelegatingAddRef() {
  return static_cast<ULONG>(++m_RefCount);
}

STDMETHODIMP_(ULONG) CUnknown::NonDelegatingRelease() {
  const long left = --m_RefCount;
  if (left == 0) {
    // Guard the count while the destructor runs, so that an AddRef/Release
    // pair inside it cannot delete the object a second time.
    m_RefCount = 1;
    delete this;
    return 0;
  }
  return static_cast<ULONG>(left < 0 ? 0 : left);
}
