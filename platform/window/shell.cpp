// ShellExecuteA through a process-wide handler: the user's browser or
// viewer by default, a recorder in tests.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>

#include "platform/window/shellapi.h"
#include "platform/window/window_model.h"

extern char** environ;

namespace {

std::mutex g_Lock;
ShellExecuteHandler g_Handler;  // guarded by g_Lock

bool HasDisplay() {
  const char* x11 = std::getenv("DISPLAY");
  const char* wayland = std::getenv("WAYLAND_DISPLAY");
  return (x11 != nullptr && x11[0] != '\0') || (wayland != nullptr && wayland[0] != '\0');
}

// xdg-open in a grandchild, so nothing is left to reap and the caller never
// waits on the browser.
int OpenWithDesktop(const std::string& verb, const std::string& file, const std::string&) {
  if ((verb != "open" && !verb.empty()) || file.empty() || !HasDisplay()) return SE_ERR_NOASSOC;
  const pid_t child = ::fork();
  if (child < 0) return SE_ERR_NOASSOC;
  if (child == 0) {
    if (::fork() == 0) {
      const char* argv[] = {"xdg-open", file.c_str(), nullptr};
      ::execvp("xdg-open", const_cast<char* const*>(argv));
      ::_exit(127);
    }
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 42 : SE_ERR_NOASSOC;
}

}  // namespace

ShellExecuteHandler SetShellExecuteHandler(ShellExecuteHandler handler) {
  std::lock_guard<std::mutex> guard(g_Lock);
  ShellExecuteHandler previous = std::move(g_Handler);
  g_Handler = std::move(handler);
  return previous;
}

HINSTANCE ShellExecuteA(HWND, LPCSTR verb, LPCSTR file, LPCSTR parameters, LPCSTR, int) {
  ShellExecuteHandler handler;
  {
    std::lock_guard<std::mutex> guard(g_Lock);
    handler = g_Handler;
  }
  const std::string v = verb != nullptr ? verb : "open";
  const std::string f = file != nullptr ? file : "";
  const std::string p = parameters != nullptr ? parameters : "";
  const int result = handler ? handler(v, f, p) : OpenWithDesktop(v, f, p);
  return reinterpret_cast<HINSTANCE>(static_cast<std::intptr_t>(result));
}

struct CShellExecuteRecorder::State {
  std::mutex lock;
  std::vector<Call> calls;  // guarded by lock
  int result = 42;
};

CShellExecuteRecorder::CShellExecuteRecorder(int result) : m_State(new State) {
  m_State->result = result;
  State* state = m_State;
  m_Previous = SetShellExecuteHandler([state](const std::string& verb, const std::string& file,
                                              const std::string& parameters) {
    std::lock_guard<std::mutex> guard(state->lock);
    state->calls.push_back({verb, file, parameters});
    return state->result;
  });
}

CShellExecuteRecorder::~CShellExecuteRecorder() {
  SetShellExecuteHandler(std::move(m_Previous));
  delete m_State;
}

std::vector<CShellExecuteRecorder::Call> CShellExecuteRecorder::Calls() const {
  std::lock_guard<std::mutex> guard(m_State->lock);
  return m_State->calls;
}
