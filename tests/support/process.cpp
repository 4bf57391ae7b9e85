#include "tests/support/process.h"

#include <sys/wait.h>

#include <cstdio>

namespace tsw {

CommandResult Shell(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return {-1, ""};
  std::string out;
  char buffer[4096];
  std::size_t n = 0;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
  const int status = pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

bool OnPath(const std::string& tool) { return Shell("command -v " + tool + " >/dev/null 2>&1").status == 0; }

}  // namespace tsw
