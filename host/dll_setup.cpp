#include "host/dll_setup.h"

#include <string>

#include "host/text_convert.h"
#include "platform/com/com_ptr.h"
#include "platform/win32/codepage.h"
#include "platform/win32/files.h"
#include "platform/win32/registry.h"

namespace {

// The mapper answers this when it has no such filter.
constexpr HRESULT kNotRegistered = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);

HRESULT CountNotRegisteredAsSuccess(HRESULT hr) { return hr == kNotRegistered ? S_OK : hr; }

LONG SetDefaultText(HKEY key, const std::string& text) {
  return RegSetValueExA(key, nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                        static_cast<DWORD>(text.size() + 1));
}

LONG SetText(HKEY key, const char* name, const std::string& text) {
  return RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                        static_cast<DWORD>(text.size() + 1));
}

// Deletes `name` under `parent` with all that lies beneath it, always taking
// the first subkey the enumeration gives, so that nothing depends on indexes
// that shift as keys go.
LONG DeleteKeyTree(HKEY parent, const std::string& name) {
  HKEY key = nullptr;
  LONG error = RegOpenKeyExA(parent, name.c_str(), 0, KEY_ALL_ACCESS, &key);
  if (error == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
  if (error != ERROR_SUCCESS) return error;
  for (;;) {
    char sub[256];
    DWORD length = sizeof sub;
    if (RegEnumKeyExA(key, 0, sub, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
    error = DeleteKeyTree(key, sub);
    if (error != ERROR_SUCCESS) break;  // the same first key again would loop
  }
  RegCloseKey(key);
  if (error != ERROR_SUCCESS) return error;
  error = RegDeleteKeyA(parent, name.c_str());
  return error == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : error;
}

LONG AddClass(const CFactoryTemplate& row, const std::string& path) {
  const std::string key = "CLSID\\" + GuidText(*row.m_ClsID);
  HKEY classKey = nullptr;
  LONG error = RegCreateKeyA(HKEY_CLASSES_ROOT, key.c_str(), &classKey);
  if (error != ERROR_SUCCESS) return error;
  error = SetDefaultText(classKey, NarrowText(row.m_Name));
  HKEY server = nullptr;
  if (error == ERROR_SUCCESS) error = RegCreateKeyA(classKey, "InprocServer32", &server);
  if (error == ERROR_SUCCESS) {
    error = SetDefaultText(server, path);
    if (error == ERROR_SUCCESS) error = SetText(server, "ThreadingModel", "Both");
    RegCloseKey(server);
  }
  RegCloseKey(classKey);
  return error;
}

const AMOVIESETUP_FILTER* SetupOf(const CFactoryTemplate& row) {
  return static_cast<const AMOVIESETUP_FILTER*>(row.m_pAMovieSetup_Filter);
}

HRESULT RegisterRow(IFilterMapper2* mapper, const CFactoryTemplate& row, BOOL add) {
  const AMOVIESETUP_FILTER& setup = *SetupOf(row);
  HRESULT hr = CountNotRegisteredAsSuccess(mapper->UnregisterFilter(nullptr, nullptr, *setup.clsID));
  if (FAILED(hr) || !add) return hr;
  REGFILTER2 data{};
  data.dwVersion = 1;
  data.dwMerit = setup.dwMerit;
  data.cPins = setup.nPins;
  data.rgPins = setup.lpPin;
  return CountNotRegisteredAsSuccess(
      mapper->RegisterFilter(*setup.clsID, setup.strName, nullptr, nullptr, nullptr, &data));
}

// The older mapper takes the same data in its own steps: filter, pins, types.
HRESULT RegisterRow(IFilterMapper* mapper, const CFactoryTemplate& row, BOOL add) {
  const AMOVIESETUP_FILTER& setup = *SetupOf(row);
  HRESULT hr = CountNotRegisteredAsSuccess(mapper->UnregisterFilter(*setup.clsID));
  if (FAILED(hr) || !add) return hr;
  hr = mapper->RegisterFilter(*setup.clsID, setup.strName, setup.dwMerit);
  for (UINT p = 0; SUCCEEDED(hr) && p < setup.nPins; ++p) {
    const AMOVIESETUP_PIN& pin = setup.lpPin[p];
    hr = mapper->RegisterPin(*setup.clsID, pin.strName, pin.bRendered, pin.bOutput, pin.bZero, pin.bMany,
                             pin.clsConnectsToFilter != nullptr ? *pin.clsConnectsToFilter : GUID_NULL,
                             pin.strConnectsToPin);
    for (UINT t = 0; SUCCEEDED(hr) && t < pin.nMediaTypes; ++t) {
      hr = mapper->RegisterPinType(*setup.clsID, pin.strName, *pin.lpMediaType[t].clsMajorType,
                                   *pin.lpMediaType[t].clsMinorType);
    }
  }
  return hr;
}

template <typename Mapper>
HRESULT RegisterRows(Mapper* mapper, std::span<const CFactoryTemplate> table, BOOL add) {
  HRESULT hr = S_OK;
  for (const CFactoryTemplate& row : table) {
    if (row.m_pAMovieSetup_Filter == nullptr) continue;
    hr = RegisterRow(mapper, row, add);
    if (FAILED(hr)) break;
  }
  return hr;
}

}  // namespace

HRESULT RegisterClasses(std::span<const CFactoryTemplate> table, LPCWSTR path, BOOL add) {
  const std::string narrowPath = path != nullptr ? NarrowText(path) : std::string();
  for (const CFactoryTemplate& row : table) {
    LONG error = ERROR_SUCCESS;
    if (add) {
      error = AddClass(row, narrowPath);
    } else {
      error = DeleteKeyTree(HKEY_CLASSES_ROOT, "CLSID\\" + GuidText(*row.m_ClsID));
    }
    if (error != ERROR_SUCCESS) return HRESULT_FROM_WIN32(static_cast<DWORD>(error));
  }
  return S_OK;
}

HRESULT RegisterServer(std::span<const CFactoryTemplate> table, HINSTANCE module, BOOL add) {
  char path[MAX_PATH];
  const DWORD length = GetModuleFileNameA(module, path, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) {
    const DWORD error = GetLastError();
    return HRESULT_FROM_WIN32(error != ERROR_SUCCESS ? error : ERROR_INSUFFICIENT_BUFFER);
  }
  const std::wstring widePath = WidenText(std::string_view(path, length));

  HRESULT hr = S_OK;
  if (add) {
    hr = RegisterClasses(table, widePath.c_str(), TRUE);
    if (FAILED(hr)) return hr;
  }

  const HRESULT init = CoInitialize(nullptr);
  {
    ComPtr<IFilterMapper2> mapper2;
    hr = CoCreateInstance(CLSID_FilterMapper2, nullptr, CLSCTX_INPROC_SERVER, IID_IFilterMapper2,
                          mapper2.PutVoid());
    if (SUCCEEDED(hr)) {
      hr = RegisterRows(mapper2.Get(), table, add);
    } else {
      ComPtr<IFilterMapper> mapper;
      hr = CoCreateInstance(CLSID_FilterMapper, nullptr, CLSCTX_INPROC_SERVER, IID_IFilterMapper,
                            mapper.PutVoid());
      if (SUCCEEDED(hr)) hr = RegisterRows(mapper.Get(), table, add);
    }
  }
  CoFreeUnusedLibraries();
  if (SUCCEEDED(init)) CoUninitialize();

  if (FAILED(hr) || add) return hr;
  return RegisterClasses(table, widePath.c_str(), FALSE);
}
