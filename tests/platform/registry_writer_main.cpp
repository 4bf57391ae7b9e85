// Test helper: registry_writer PREFIX COUNT writes the DWORD values PREFIX0 =
// 0 ... PREFIX<COUNT-1> under HKEY_CURRENT_USER\Software\Caldrovia\Brindlet\Race,
// one write each. Exit status 0 when every write succeeded.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/win32/registry.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: registry_writer PREFIX COUNT\n");
    return 2;
  }
  const std::string prefix = argv[1];
  const auto count = static_cast<DWORD>(std::strtoul(argv[2], nullptr, 10));
  HKEY key = nullptr;
  LONG result =
      RegCreateKeyExA(HKEY_CURRENT_USER, "Software\\Caldrovia\\Brindlet\\Race", 0, nullptr,
                      REG_OPTION_NON_VOLATILE, KEY_SET_VALUE, nullptr, &key, nullptr);
  for (DWORD i = 0; i < count && result == ERROR_SUCCESS; ++i) {
    const std::string name = prefix + std::to_string(i);
    result = RegSetValueExA(key, name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&i),
                            sizeof i);
  }
  if (result != ERROR_SUCCESS) {
    std::fprintf(stderr, "registry_writer %s: error %d\n", prefix.c_str(),
                 static_cast<int>(result));
    return 1;
  }
  RegCloseKey(key);
  return 0;
}
