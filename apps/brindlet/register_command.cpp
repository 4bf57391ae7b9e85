#include "apps/brindlet/register_command.h"

#include <filesystem>
#include <iomanip>
#include <sstream>

#include "apps/brindlet/query_command.h"
#include "platform/com/objbase.h"

namespace {

using RegistrationExport = HRESULT (*)();

std::string Hex(HRESULT hr) {
  std::ostringstream text;
  text << "0x" << std::hex << std::setw(8) << std::setfill('0') << static_cast<unsigned>(hr);
  return text.str();
}

// The registry keeps the path a module is loaded from, so it is made whole.
std::filesystem::path AbsoluteModulePath(const std::string& module) {
  std::error_code error;
  std::filesystem::path path = std::filesystem::weakly_canonical(module, error);
  return error ? std::filesystem::absolute(module, error) : path;
}

std::filesystem::path ModuleBesideTool() {
  std::error_code error;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? std::filesystem::path("Brindlet.ax") : self.parent_path() / "Brindlet.ax";
}

bool RunOne(const std::filesystem::path& path, bool add, std::ostream& out, std::ostream& err) {
  const char* exportName = add ? "DllRegisterServer" : "DllUnregisterServer";
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) {
    err << "brindlet: " << path.string() << ": no such module\n";
    return false;
  }
  const HMODULE module = LoadLibraryA(path.c_str());
  if (module == nullptr) {
    err << "brindlet: cannot load " << path.string() << ": " << PlatformLastLoadError() << "\n";
    return false;
  }
  const auto call = reinterpret_cast<RegistrationExport>(GetProcAddress(module, exportName));
  if (call == nullptr) {
    err << "brindlet: " << path.string() << " has no " << exportName << "\n";
    FreeLibrary(module);
    return false;
  }
  const HRESULT hr = call();
  FreeLibrary(module);
  if (FAILED(hr)) {
    err << "brindlet: " << exportName << " in " << path.string() << " failed (" << Hex(hr) << ")\n";
    return false;
  }
  out << (add ? "registered " : "unregistered ") << path.string() << "\n";
  return true;
}

}  // namespace

int RunRegister(const RegisterOptions& options, std::ostream& out, std::ostream& err) {
  std::vector<std::filesystem::path> modules;
  for (const std::string& module : options.modules) modules.push_back(AbsoluteModulePath(module));
  if (modules.empty()) modules.push_back(ModuleBesideTool());
  bool ok = true;
  for (const auto& module : modules) ok = RunOne(module, options.add, out, err) && ok;
  return ok ? kExitOk : kExitFailure;
}
