// The class table of a module and the class factory that serves it, with
// the two module exports that rest on them.
#pragma once

#include <atomic>
#include <span>

#include "host/cunknown.h"
#include "platform/com/objbase.h"

using LPFNNewCOMObject = CUnknown* (*)(IUnknown* outer, HRESULT* result);
using LPFNInitRoutine = void (*)(BOOL loading, const CLSID* clsid);

// One row of a module's class table.
struct CFactoryTemplate {
  const wchar_t* m_Name;
  const CLSID* m_ClsID;
  LPFNNewCOMObject m_lpfnNew;
  LPFNInitRoutine m_lpfnInit;
  const void* m_pAMovieSetup_Filter;  // filter setup data, or null
};

class CClassFactory : public CUnknown, public IClassFactory {
 public:
  explicit CClassFactory(const CFactoryTemplate* row);
  DECLARE_IUNKNOWN
  STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

  STDMETHODIMP CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override;
  STDMETHODIMP LockServer(BOOL lock) override;

  static long ServerLocks();

 private:
  const CFactoryTemplate* m_Row;
};

// DllGetClassObject over a class table: the iid must be IUnknown or
// IClassFactory, the class a row of the table.
HRESULT GetClassObjectFromTable(std::span<const CFactoryTemplate> table, REFCLSID clsid, REFIID riid, void** ppv);
// DllCanUnloadNow: S_OK when no server lock is held and no object lives.
HRESULT CanUnloadNow();
// Runs the rows' initialisation hooks, as DllMain does on attach and detach.
void RunInitRoutines(std::span<const CFactoryTemplate> table, BOOL loading);

// Exports of a module are C functions visible outside it. A Windows module
// names its exports in its module definition file instead.
#ifdef _WIN32
#define MODULE_EXPORT extern "C"
#else
#define MODULE_EXPORT extern "C" __attribute__((visibility("default")))
#endif
