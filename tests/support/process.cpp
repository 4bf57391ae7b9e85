#include "tests/support/process.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
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

CommandResult ShellWithFileLimit(const std::string& command, std::uint64_t maxFileBytes) {
  int fds[2];
  if (pipe(fds) != 0) return {-1, ""};
  const pid_t child = fork();
  if (child == 0) {
    dup2(fds[1], STDOUT_FILENO);
    close(fds[0]);
    close(fds[1]);
    const rlimit limit{static_cast<rlim_t>(maxFileBytes), static_cast<rlim_t>(maxFileBytes)};
    setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, SIG_IGN);  // stays ignored across exec
    execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  close(fds[1]);
  if (child < 0) {
    close(fds[0]);
    return {-1, ""};
  }
  std::string out;
  char buffer[4096];
  ssize_t n = 0;
  while ((n = read(fds[0], buffer, sizeof buffer)) > 0) out.append(buffer, static_cast<std::size_t>(n));
  close(fds[0]);
  int status = 0;
  waitpid(child, &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

bool OnPath(const std::string& tool) { return Shell("command -v " + tool + " >/dev/null 2>&1").status == 0; }

}  // namespace tsw
