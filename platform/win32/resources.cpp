#include "platform/win32/resources.h"

#include <dlfcn.h>

#include <cstring>

#include "platform/win32/files.h"

namespace {

const PlatformModuleResources* ResourcesOf(HINSTANCE module) {
  void* handle = nullptr;
  if (module == nullptr) {
    handle = ::dlopen(nullptr, RTLD_NOW);
  } else {
    char path[4096];
    const DWORD length = GetModuleFileNameA(module, path, sizeof path);
    if (length == 0 || length >= sizeof path) return nullptr;
    // Only a module already in the process: this never loads one.
    handle = ::dlopen(path, RTLD_NOW | RTLD_NOLOAD);
  }
  if (handle == nullptr) return nullptr;
  const auto* resources = static_cast<const PlatformModuleResources*>(::dlsym(handle, "PlatformResources"));
  ::dlclose(handle);  // the module stays: the process held it before
  return resources;
}

}  // namespace

int LoadStringA(HINSTANCE module, UINT id, LPSTR buffer, int size) {
  if (buffer == nullptr || size <= 0) return 0;
  buffer[0] = '\0';
  const PlatformModuleResources* resources = ResourcesOf(module);
  if (resources == nullptr) {
    SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
    return 0;
  }
  for (UINT i = 0; i < resources->stringCount; ++i) {
    if (resources->strings[i].id != id) continue;
    const std::size_t length = std::strlen(resources->strings[i].text);
    const std::size_t copied = length < static_cast<std::size_t>(size - 1) ? length : static_cast<std::size_t>(size - 1);
    std::memcpy(buffer, resources->strings[i].text, copied);
    buffer[copied] = '\0';
    return static_cast<int>(copied);
  }
  SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
  return 0;
}

const PlatformDialogResource* PlatformFindDialog(HINSTANCE module, LPCSTR name) {
  // Templates have numbers; a name in letters finds none, as no script
  // gives one.
  const PlatformModuleResources* resources = name != nullptr && IS_INTRESOURCE(name) ? ResourcesOf(module) : nullptr;
  if (resources != nullptr) {
    const auto id = static_cast<UINT>(reinterpret_cast<ULONG_PTR>(name));
    for (UINT i = 0; i < resources->dialogCount; ++i) {
      if (resources->dialogs[i].id == id) return &resources->dialogs[i];
    }
  }
  SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
  return nullptr;
}

const PlatformBitmapResource* PlatformFindBitmap(HINSTANCE module, UINT id) {
  const PlatformModuleResources* resources = ResourcesOf(module);
  if (resources != nullptr) {
    for (UINT i = 0; i < resources->bitmapCount; ++i) {
      if (resources->bitmaps[i].id == id) return &resources->bitmaps[i];
    }
  }
  SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
  return nullptr;
}
