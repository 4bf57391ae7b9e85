// A minimal in-process server: DllMain, DllGetClassObject and one object
// class served under two CLSIDs.
#include "tests/platform/test_module.h"

#include <atomic>

#include "platform/com/objbase.h"

namespace {

std::atomic<LONG> g_attaches{0};
HINSTANCE g_module = nullptr;

class CTestObject final : public ITestModuleObject {
 public:
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    *ppv = riid == IID_IUnknown || riid == IID_ITestModuleObject ? this : nullptr;
    if (*ppv == nullptr) return E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return ++m_RefCount; }
  STDMETHODIMP_(ULONG) Release() override {
    const ULONG count = --m_RefCount;
    if (count == 0) delete this;
    return count;
  }
  STDMETHODIMP_(LONG) AttachCount() override { return g_attaches; }
  STDMETHODIMP_(DWORD) ModulePath(LPSTR buffer, DWORD size) override {
    return GetModuleFileNameA(g_module, buffer, size);
  }

 private:
  ~CTestObject() = default;
  std::atomic<ULONG> m_RefCount{0};
};

class CTestFactory final : public IClassFactory {
 public:
  // Static: the references are not counted.
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    *ppv = riid == IID_IUnknown || riid == IID_IClassFactory ? this : nullptr;
    return *ppv != nullptr ? S_OK : E_NOINTERFACE;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return 2; }
  STDMETHODIMP_(ULONG) Release() override { return 1; }
  STDMETHODIMP CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
    *ppv = nullptr;
    if (outer != nullptr) return CLASS_E_NOAGGREGATION;
    ComPtr<ITestModuleObject> object(new CTestObject);
    return object->QueryInterface(riid, ppv);
  }
  STDMETHODIMP LockServer(BOOL) override { return S_OK; }
};

CTestFactory g_factory;

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    g_module = module;
    ++g_attaches;
  }
  return TRUE;
}

STDAPI DllGetClassObject(REFCLSID clsid, REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  if (clsid != CLSID_TestModuleObject && clsid != CLSID_TestModuleRegistered) {
    return CLASS_E_CLASSNOTAVAILABLE;
  }
  return g_factory.QueryInterface(riid, ppv);
}
