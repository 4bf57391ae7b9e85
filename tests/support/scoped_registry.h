// Points the platform's registry at a fresh folder for as long as it lives,
// so a test reads and writes settings of its own.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

#include "tests/support/ts_writer.h"

namespace tsw {

class ScopedRegistry {
 public:
  ScopedRegistry() {
    if (const char* old = std::getenv("BRINDLET_REGISTRY_DIR")) m_Previous = old;
    setenv("BRINDLET_REGISTRY_DIR", m_Dir.Path().c_str(), 1);
  }
  ~ScopedRegistry() {
    if (m_Previous) {
      setenv("BRINDLET_REGISTRY_DIR", m_Previous->c_str(), 1);
    } else {
      unsetenv("BRINDLET_REGISTRY_DIR");
    }
  }
  ScopedRegistry(const ScopedRegistry&) = delete;
  ScopedRegistry& operator=(const ScopedRegistry&) = delete;
  const std::filesystem::path& Path() const { return m_Dir.Path(); }

 private:
  TempDir m_Dir;
  std::optional<std::string> m_Previous;
};

}  // namespace tsw
