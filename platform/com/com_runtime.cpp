#include "platform/com/objbase.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/com/builtin_classes.h"
#include "platform/win32/files.h"
#include "platform/win32/registry.h"

namespace {

// ---- Per-thread state ----

thread_local int t_initCount = 0;
thread_local std::string t_lastLoadError;

// ---- Class objects and process-only servers ----

struct ClassTable {
  std::mutex lock;
  std::map<CLSID, ComPtr<IClassFactory>, GuidLess> factories;  // guarded by lock
  std::map<CLSID, std::string, GuidLess> servers;              // guarded by lock
};

// Never destroyed, so objects released from static destructors still find it.
ClassTable& Classes() {
  static ClassTable* table = new ClassTable;
  return *table;
}

// The factory behind each of the platform's own classes.
class CPlatformFactory final : public IClassFactory {
 public:
  explicit CPlatformFactory(PlatformCreateFunction create) : m_Create(create) {}

  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_IClassFactory) {
      *ppv = static_cast<IClassFactory*>(this);
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
  STDMETHODIMP CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    return m_Create(outer, riid, ppv);
  }
  STDMETHODIMP LockServer(BOOL) override { return S_OK; }

 private:
  ~CPlatformFactory() = default;
  PlatformCreateFunction m_Create;
  std::atomic<ULONG> m_RefCount{0};
};

// A process that put its own factory under one of these CLSIDs first keeps it.
void RegisterPlatformClassesOnce() {
  static std::once_flag once;
  std::call_once(once, [] {
    ClassTable& table = Classes();
    std::lock_guard<std::mutex> guard(table.lock);
    for (const PlatformClass& c : PlatformClasses()) {
      if (table.factories.count(c.clsid) == 0) {
        table.factories.emplace(c.clsid, ComPtr<IClassFactory>(new CPlatformFactory(c.create)));
      }
    }
  });
}

// ---- Modules ----

struct Module {
  void* handle = nullptr;
  HINSTANCE instance = nullptr;
  LPFNGETCLASSOBJECT getClassObject = nullptr;
  LPFNCANUNLOADNOW canUnloadNow = nullptr;
};

// Recursive like the platform's loader lock, since a DllMain may create
// objects of other modules. Taken before the class table's lock, never after.
struct Loader {
  std::recursive_mutex lock;
  std::vector<std::unique_ptr<Module>> modules;  // guarded by lock
  std::map<std::string, Module*> byPath;         // guarded by lock
};

Loader& Modules() {
  static Loader* loader = new Loader;
  return *loader;
}

HINSTANCE InstanceOfHandle(void* handle) {
  link_map* map = nullptr;
  if (::dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr) return nullptr;
  // The dynamic section lies inside the module, so it leads to its base.
  return PlatformModuleFromAddress(map->l_ld);
}

HRESULT LoadError(DWORD error, std::string text) {
  t_lastLoadError = std::move(text);
  return HRESULT_FROM_WIN32(error);
}

// Under the loader lock. The module stays in `modules` for good once its
// DllMain has agreed.
HRESULT LoadModule(const std::string& path, Module** out) {
  Loader& loader = Modules();
  if (auto found = loader.byPath.find(path); found != loader.byPath.end()) {
    *out = found->second;
    return S_OK;
  }
  ::dlerror();
  void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    const char* why = ::dlerror();
    return LoadError(ERROR_MOD_NOT_FOUND, why != nullptr ? why : path + ": cannot be loaded");
  }
  for (const auto& module : loader.modules) {
    if (module->handle == handle) {
      ::dlclose(handle);  // the same file under another path: one module
      loader.byPath[path] = module.get();
      *out = module.get();
      return S_OK;
    }
  }
  auto module = std::make_unique<Module>();
  module->handle = handle;
  module->instance = InstanceOfHandle(handle);
  module->getClassObject =
      reinterpret_cast<LPFNGETCLASSOBJECT>(::dlsym(handle, "DllGetClassObject"));
  module->canUnloadNow = reinterpret_cast<LPFNCANUNLOADNOW>(::dlsym(handle, "DllCanUnloadNow"));
  const auto dllMain = reinterpret_cast<LPFNDLLMAIN>(::dlsym(handle, "DllMain"));
  if (dllMain != nullptr && !dllMain(module->instance, DLL_PROCESS_ATTACH, nullptr)) {
    ::dlclose(handle);
    return LoadError(ERROR_DLL_INIT_FAILED, path + ": DllMain refused to attach");
  }
  loader.byPath[path] = module.get();
  *out = module.get();
  loader.modules.push_back(std::move(module));
  return S_OK;
}

HRESULT ClassObjectFromModule(const std::string& path, REFCLSID clsid, REFIID riid, void** ppv) {
  LPFNGETCLASSOBJECT getClassObject = nullptr;
  {
    std::lock_guard<std::recursive_mutex> guard(Modules().lock);
    Module* module = nullptr;
    const HRESULT hr = LoadModule(path, &module);
    if (FAILED(hr)) return hr;
    getClassObject = module->getClassObject;
  }
  if (getClassObject == nullptr) {
    return LoadError(ERROR_PROC_NOT_FOUND, path + ": no DllGetClassObject");
  }
  return getClassObject(clsid, riid, ppv);
}

// %NAME% is replaced from the environment; an unknown name stays as written.
std::string ExpandEnvironment(const std::string& text) {
  std::string result;
  std::size_t i = 0;
  while (i < text.size()) {
    const std::size_t open = text.find('%', i);
    const std::size_t close = open == std::string::npos ? open : text.find('%', open + 1);
    if (close == std::string::npos) break;
    result.append(text, i, open - i);
    const std::string name = text.substr(open + 1, close - open - 1);
    const char* value = name.empty() ? nullptr : std::getenv(name.c_str());
    if (value != nullptr) {
      result += value;
    } else {
      result.append(text, open, close - open + 1);
    }
    i = close + 1;
  }
  result.append(text, i, std::string::npos);
  return result;
}

bool ServerFromRegistry(REFCLSID clsid, std::string* path) {
  const std::string subKey = "CLSID\\" + GuidToString(clsid) + "\\InprocServer32";
  HKEY key = nullptr;
  if (RegOpenKeyExA(HKEY_CLASSES_ROOT, subKey.c_str(), 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS) {
    return false;
  }
  DWORD type = REG_NONE;
  DWORD size = 0;
  std::string value;
  LONG status = RegQueryValueExA(key, nullptr, nullptr, &type, nullptr, &size);
  if (status == ERROR_SUCCESS && (type == REG_SZ || type == REG_EXPAND_SZ) && size > 0) {
    std::vector<BYTE> data(size);
    status = RegQueryValueExA(key, nullptr, nullptr, &type, data.data(), &size);
    if (status == ERROR_SUCCESS) {
      value.assign(reinterpret_cast<const char*>(data.data()),
                   ::strnlen(reinterpret_cast<const char*>(data.data()), size));
    }
  }
  RegCloseKey(key);
  if (value.empty()) return false;
  *path = type == REG_EXPAND_SZ ? ExpandEnvironment(value) : value;
  return true;
}

// ---- Module file names ----

struct ModuleSearch {
  std::uintptr_t base;
  std::string name;
  bool found;
};

int MatchModuleBase(dl_phdr_info* info, std::size_t, void* data) {
  auto* search = static_cast<ModuleSearch*>(data);
  std::uintptr_t lowest = UINTPTR_MAX;
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    if (info->dlpi_phdr[i].p_type == PT_LOAD && info->dlpi_phdr[i].p_vaddr < lowest) {
      lowest = info->dlpi_phdr[i].p_vaddr;
    }
  }
  if (lowest == UINTPTR_MAX) return 0;
  const auto pageMask = ~static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE) - 1);
  if (((info->dlpi_addr + lowest) & pageMask) != search->base) return 0;
  search->found = true;
  search->name = info->dlpi_name != nullptr ? info->dlpi_name : "";
  return 1;
}

std::string ProgramPath() {
  char buffer[4096];
  const ssize_t length = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  return length > 0 ? std::string(buffer, static_cast<std::size_t>(length)) : std::string();
}

}  // namespace

HRESULT CoInitialize(LPVOID reserved) { return CoInitializeEx(reserved, COINIT_APARTMENTTHREADED); }

HRESULT CoInitializeEx(LPVOID, DWORD) { return t_initCount++ == 0 ? S_OK : S_FALSE; }

void CoUninitialize() {
  if (t_initCount > 0) --t_initCount;
}

HRESULT CoGetClassObject(REFCLSID clsid, DWORD clsContext, void*, REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_INVALIDARG;
  *ppv = nullptr;
  if ((clsContext & CLSCTX_INPROC_SERVER) == 0) return REGDB_E_CLASSNOTREG;
  RegisterPlatformClassesOnce();

  ComPtr<IClassFactory> registered;
  std::string path;
  {
    ClassTable& table = Classes();
    std::lock_guard<std::mutex> guard(table.lock);
    if (auto found = table.factories.find(clsid); found != table.factories.end()) {
      registered = found->second;
    } else if (auto server = table.servers.find(clsid); server != table.servers.end()) {
      path = server->second;
    }
  }
  if (registered) return registered->QueryInterface(riid, ppv);
  if (path.empty() && !ServerFromRegistry(clsid, &path)) return REGDB_E_CLASSNOTREG;
  return ClassObjectFromModule(path, clsid, riid, ppv);
}

HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD clsContext, REFIID riid,
                         void** ppv) {
  if (ppv == nullptr) return E_INVALIDARG;
  *ppv = nullptr;
  ComPtr<IClassFactory> factory;
  const HRESULT hr =
      CoGetClassObject(clsid, clsContext, nullptr, IID_IClassFactory, factory.PutVoid());
  if (FAILED(hr)) return hr;
  if (!factory) return E_UNEXPECTED;
  return factory->CreateInstance(outer, riid, ppv);
}

void CoFreeUnusedLibraries() {
  std::vector<LPFNCANUNLOADNOW> askers;
  {
    Loader& loader = Modules();
    std::lock_guard<std::recursive_mutex> guard(loader.lock);
    for (const auto& module : loader.modules) {
      if (module->canUnloadNow != nullptr) askers.push_back(module->canUnloadNow);
    }
  }
  for (LPFNCANUNLOADNOW ask : askers) ask();
}

HRESULT PlatformRegisterClassObject(REFCLSID clsid, IClassFactory* factory) {
  RegisterPlatformClassesOnce();  // so it cannot later replace this entry
  ComPtr<IClassFactory> previous;
  ClassTable& table = Classes();
  std::lock_guard<std::mutex> guard(table.lock);
  if (auto found = table.factories.find(clsid); found != table.factories.end()) {
    previous = std::move(found->second);  // released after the lock, in case it re-enters
    table.factories.erase(found);
  }
  if (factory != nullptr) {
    table.factories.emplace(clsid, ComPtr<IClassFactory>(factory));
    return S_OK;
  }
  // Taking away a replacement of one of the platform's classes brings the
  // platform's own back.
  for (const PlatformClass& c : PlatformClasses()) {
    if (c.clsid == clsid) {
      table.factories.emplace(clsid, ComPtr<IClassFactory>(new CPlatformFactory(c.create)));
    }
  }
  return S_OK;
}

HRESULT PlatformRegisterInprocServer(REFCLSID clsid, const char* modulePath) {
  ClassTable& table = Classes();
  std::lock_guard<std::mutex> guard(table.lock);
  if (modulePath == nullptr || modulePath[0] == '\0') {
    table.servers.erase(clsid);
  } else {
    table.servers[clsid] = modulePath;
  }
  return S_OK;
}

std::string PlatformLastLoadError() { return t_lastLoadError; }

DWORD GetModuleFileNameA(HINSTANCE module, LPSTR fileName, DWORD size) {
  std::string path;
  if (module == nullptr) {
    path = ProgramPath();
  } else {
    ModuleSearch search{reinterpret_cast<std::uintptr_t>(module), {}, false};
    ::dl_iterate_phdr(MatchModuleBase, &search);
    if (!search.found) {
      SetLastError(ERROR_MOD_NOT_FOUND);
      return 0;
    }
    path = search.name.empty() ? ProgramPath() : search.name;  // the program has no name here
  }
  if (path.empty()) {
    SetLastError(ERROR_MOD_NOT_FOUND);
    return 0;
  }
  if (fileName == nullptr || size == 0) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return 0;
  }
  if (path.size() >= size) {
    std::memcpy(fileName, path.data(), size - 1);
    fileName[size - 1] = '\0';
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return size;
  }
  std::memcpy(fileName, path.c_str(), path.size() + 1);
  SetLastError(ERROR_SUCCESS);
  return static_cast<DWORD>(path.size());
}

HINSTANCE PlatformModuleFromAddress(const void* address) {
  Dl_info info{};
  if (address == nullptr || ::dladdr(address, &info) == 0) return nullptr;
  return static_cast<HINSTANCE>(info.dli_fbase);
}

BOOL DisableThreadLibraryCalls(HMODULE) { return TRUE; }

namespace {

// A bare module name is looked for in the system folder first, which here is
// the folder of the platform library, where the platform's own modules lie.
std::string SystemPathOf(const std::string& name) {
  if (name.find('/') != std::string::npos) return name;
  Dl_info info{};
  if (::dladdr(reinterpret_cast<const void*>(&SystemPathOf), &info) == 0 || info.dli_fname == nullptr) return name;
  const std::string library = info.dli_fname;
  const std::size_t slash = library.rfind('/');
  if (slash == std::string::npos) return name;
  const std::string candidate = library.substr(0, slash + 1) + name;
  return ::access(candidate.c_str(), R_OK) == 0 ? candidate : name;
}

}  // namespace

HMODULE LoadLibraryA(LPCSTR fileName) {
  if (fileName == nullptr || fileName[0] == '\0') {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  std::lock_guard<std::recursive_mutex> guard(Modules().lock);
  Module* module = nullptr;
  const HRESULT hr = LoadModule(SystemPathOf(fileName), &module);
  if (FAILED(hr)) {
    SetLastError(static_cast<DWORD>(hr) & 0xFFFF);
    return nullptr;
  }
  return module->instance;
}

FARPROC GetProcAddress(HMODULE module, LPCSTR procName) {
  void* handle = nullptr;
  {
    Loader& loader = Modules();
    std::lock_guard<std::recursive_mutex> guard(loader.lock);
    for (const auto& loaded : loader.modules) {
      if (loaded->instance == module && module != nullptr) handle = loaded->handle;
    }
  }
  if (handle != nullptr && procName != nullptr && IS_INTRESOURCE(procName)) {
    // An export by ordinal: the module's ordinal table names the function.
    const WORD ordinal = static_cast<WORD>(reinterpret_cast<ULONG_PTR>(procName));
    const auto* table = static_cast<const PlatformOrdinalExport*>(::dlsym(handle, "PlatformOrdinals"));
    procName = nullptr;
    for (; table != nullptr && table->name != nullptr; ++table) {
      if (table->ordinal == ordinal) procName = table->name;
    }
  }
  void* symbol = handle != nullptr && procName != nullptr ? ::dlsym(handle, procName) : nullptr;
  if (symbol == nullptr) {
    SetLastError(ERROR_PROC_NOT_FOUND);
    return nullptr;
  }
  return reinterpret_cast<FARPROC>(symbol);
}

BOOL FreeLibrary(HMODULE module) { return module != nullptr ? TRUE : FALSE; }
