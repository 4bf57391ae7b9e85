// Reference-counted COM object base with aggregation: every object has a
// non-delegating unknown of its own and forwards its public IUnknown to the
// outer object when it is aggregated.
#pragma once

#include <atomic>

#include "platform/com/unknwn.h"

struct INonDelegatingUnknown {
  virtual HRESULT STDMETHODCALLTYPE NonDelegatingQueryInterface(REFIID riid, void** ppv) = 0;
  virtual ULONG STDMETHODCALLTYPE NonDelegatingAddRef() = 0;
  virtual ULONG STDMETHODCALLTYPE NonDelegatingRelease() = 0;

 protected:
  ~INonDelegatingUnknown() = default;
};

// Hands out `face` with a reference, the usual tail of a QueryInterface.
HRESULT GetInterface(IUnknown* face, void** ppv);

// Count of live COM objects of the module, for DllCanUnloadNow.
long ActiveObjectCount();

class CUnknown : public INonDelegatingUnknown {
 public:
  CUnknown(const char* name, IUnknown* outer);
  virtual ~CUnknown();
  CUnknown(const CUnknown&) = delete;
  CUnknown& operator=(const CUnknown&) = delete;

  // The object's controlling unknown: the outer one when aggregated.
  IUnknown* GetOwner() const { return m_Owner; }
  // The non-delegating unknown as a plain IUnknown, which is what an
  // aggregating outer object must hold.
  IUnknown* NonDelegatingUnknown() { return &m_Inner; }
  const char* Name() const { return m_Name; }

  STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;
  STDMETHODIMP_(ULONG) NonDelegatingAddRef() override;
  STDMETHODIMP_(ULONG) NonDelegatingRelease() override;

 private:
  // IUnknown face of the non-delegating unknown; a separate object so that no
  // pointer is ever reinterpreted as an interface it does not implement.
  class CInnerUnknown final : public IUnknown {
   public:
    explicit CInnerUnknown(CUnknown* owner) : m_Object(owner) {}
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
      return m_Object->NonDelegatingQueryInterface(riid, ppv);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return m_Object->NonDelegatingAddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return m_Object->NonDelegatingRelease(); }

   private:
    CUnknown* m_Object;
  };

  const char* m_Name;
  CInnerUnknown m_Inner;
  IUnknown* m_Owner;
  std::atomic<long> m_RefCount{0};
};

// The public IUnknown of a class that derives from CUnknown and from one or
// more interfaces: everything goes to the controlling unknown.
#define DECLARE_IUNKNOWN                                                        \
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {               \
    return GetOwner()->QueryInterface(riid, ppv);                               \
  }                                                                             \
  STDMETHODIMP_(ULONG) AddRef() override { return GetOwner()->AddRef(); }       \
  STDMETHODIMP_(ULONG) Release() override { return GetOwner()->Release(); }
