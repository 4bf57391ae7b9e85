// `brindlet register [MODULE...]` and `brindlet unregister [MODULE...]`: load
// each module and call its DllRegisterServer or DllUnregisterServer, as the
// platform's registration tool does. Without a module, Brindlet.ax beside
// the tool.
#pragma once

#include <ostream>
#include <string>
#include <vector>

struct RegisterOptions {
  bool add = true;
  std::vector<std::string> modules;
};

int RunRegister(const RegisterOptions& options, std::ostream& out, std::ostream& err);
