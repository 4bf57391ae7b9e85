// `brindlet settings list|get NAME|set NAME VALUE|reset`: the per-user
// settings that the filter reads, on the same store.
#pragma once

#include <ostream>
#include <string>

struct SettingsOptions {
  std::string action;  // list, get, set, reset
  std::string name;
  std::string value;
};

int RunSettings(const SettingsOptions& options, std::ostream& out, std::ostream& err);
