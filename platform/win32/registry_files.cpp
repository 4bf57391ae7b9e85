#include "platform/win32/registry_files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <set>
#include <string>

namespace platform_internal::registry {

namespace {

// ---------------------------------------------------------------------------
// Files. Writers hold an exclusive flock on ".lock" while they read, change
// and replace a hive; readers take no lock, since a hive file is only ever
// replaced whole by rename.

std::string RegistryDir() {
  const char* dir = std::getenv("BRINDLET_REGISTRY_DIR");
  if (dir != nullptr && *dir != '\0') return dir;
  std::string base;
  const char* config = std::getenv("XDG_CONFIG_HOME");
  if (config != nullptr && config[0] == '/') {  // relative values are to be ignored
    base = config;
  } else {
    const char* home = std::getenv("HOME");
    if (home == nullptr || *home == '\0') return {};
    base = std::string(home) + "/.config";
  }
  return base + "/brindlet/registry";
}

std::string HiveFileName(Hive hive) { return std::string(HiveName(hive)) + ".reg"; }

LONG ErrorFromErrno(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
      return ERROR_ACCESS_DENIED;
    case ENOSPC:
    case EDQUOT:
      return ERROR_DISK_FULL;
    case ENOMEM:
      return ERROR_NOT_ENOUGH_MEMORY;
    default:
      return ERROR_GEN_FAILURE;
  }
}

// 0, or the errno of the failure (ENOENT when there is no file).
int ReadWholeFile(const std::string& path, std::string* text) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return errno;
  struct stat info {};
  if (::fstat(fd, &info) != 0 || S_ISDIR(info.st_mode)) {
    const int error = S_ISDIR(info.st_mode) ? EISDIR : errno;
    ::close(fd);
    return error;
  }
  char buffer[65536];
  for (;;) {
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got == 0) break;
    if (got < 0) {
      if (errno == EINTR) continue;
      const int error = errno;
      ::close(fd);
      return error;
    }
    text->append(buffer, static_cast<std::size_t>(got));
  }
  ::close(fd);
  return 0;
}

bool MakeDirectories(const std::string& dir) {
  for (std::size_t i = 1; i <= dir.size(); ++i) {
    if (i < dir.size() && dir[i] != '/') continue;
    const std::string part = dir.substr(0, i);
    if (::mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) return false;
  }
  struct stat info {};
  if (::stat(dir.c_str(), &info) != 0) return false;
  if (!S_ISDIR(info.st_mode)) {
    errno = ENOTDIR;
    return false;
  }
  return true;
}

// Makes a rename in the directory durable. Only the move of a corrupt file
// aside asks for it: after a crash that loses an ordinary write's rename the
// hive is whole, one change older, which the fsync of the file already allows.
void SyncDirectory(const std::string& dir) {
  const int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  ::fsync(fd);
  ::close(fd);
}

class CHiveLock {
 public:
  CHiveLock() = default;
  ~CHiveLock() {
    if (m_Fd >= 0) ::close(m_Fd);  // releases the lock
  }
  CHiveLock(const CHiveLock&) = delete;
  CHiveLock& operator=(const CHiveLock&) = delete;

  // Each acquisition opens the file anew, so threads of one process exclude
  // each other as well as other processes do.
  bool Acquire(const std::string& dir) {
    m_Fd = ::open((dir + "/.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (m_Fd < 0) return false;
    while (::flock(m_Fd, LOCK_EX) != 0) {
      if (errno != EINTR) return false;
    }
    return true;
  }

 private:
  int m_Fd = -1;
};

LONG WriteHive(const std::string& dir, Hive hive, const std::string& text) {
  const std::string target = dir + "/" + HiveFileName(hive);
  const std::string temp = target + ".tmp-" + std::to_string(::getpid());
  const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return ErrorFromErrno(errno);
  int error = 0;
  std::size_t done = 0;
  while (done < text.size() && error == 0) {
    const ssize_t wrote = ::write(fd, text.data() + done, text.size() - done);
    if (wrote >= 0) {
      done += static_cast<std::size_t>(wrote);
    } else if (errno != EINTR) {
      error = errno;
    }
  }
  if (error == 0 && ::fsync(fd) != 0) error = errno;
  if (::close(fd) != 0 && error == 0) error = errno;
  if (error == 0 && ::rename(temp.c_str(), target.c_str()) != 0) error = errno;
  if (error != 0) {
    ::unlink(temp.c_str());
    return ErrorFromErrno(error);
  }
  return ERROR_SUCCESS;
}

void Report(const std::string& message) {
  std::fprintf(stderr, "brindlet registry: %s\n", message.c_str());
}

// A corrupt file that stays in place would be met by every call; it is
// reported the first time only.
void ReportStuckOnce(const std::string& path, const std::string& message) {
  static std::mutex lock;
  static auto* reported = new std::set<std::string>;  // guarded by lock
  std::lock_guard<std::mutex> guard(lock);
  if (reported->insert(path).second) Report(message);
}

std::string FailureText(const std::string& path, const ParseFailure& failure) {
  return path + " cannot be read (line " + std::to_string(failure.line) + ": " + failure.reason +
         ")";
}

// Moves a corrupt hive file aside, under the writers' lock. ERROR_BADDB when
// it has to stay: the hive then reads empty and must not be written.
LONG SetAside(const std::string& dir, Hive hive, const ParseFailure& failure) {
  const std::string fileName = HiveFileName(hive);
  const std::string path = dir + "/" + fileName;
  char stamp[32] = "";
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  if (::gmtime_r(&now, &utc) != nullptr) std::strftime(stamp, sizeof stamp, "%Y%m%dT%H%M%SZ", &utc);
  const std::string base = fileName + ".corrupt-" + stamp;
  std::string aside = base;
  for (int n = 2; ::access((dir + "/" + aside).c_str(), F_OK) == 0; ++n) {
    aside = base + "-" + std::to_string(n);
  }
  if (::rename(path.c_str(), (dir + "/" + aside).c_str()) == 0) {
    SyncDirectory(dir);
    Report(FailureText(path, failure) + "; kept as " + aside + "; starting empty");
    return ERROR_SUCCESS;
  }
  ReportStuckOnce(path, FailureText(path, failure) + "; it cannot be kept aside (" +
                            std::strerror(errno) + "), so it reads empty and is not written");
  return ERROR_BADDB;
}

// The hive's tree from its file; an absent file is an empty hive.
LONG LoadHive(const std::string& dir, Hive hive, bool holdingLock, CKeyNode* root) {
  std::string text;
  const int error = ReadWholeFile(dir + "/" + HiveFileName(hive), &text);
  if (error == ENOENT || error == ENOTDIR) return ERROR_SUCCESS;
  if (error != 0) return ErrorFromErrno(error);
  ParseFailure failure;
  if (ParseHive(text, root, &failure)) return ERROR_SUCCESS;
  *root = CKeyNode();
  if (holdingLock) return SetAside(dir, hive, failure);
  // Only under the lock may the file be moved, and by then a writer may
  // already have moved or replaced it: look again.
  CHiveLock lock;
  if (!lock.Acquire(dir)) {
    const std::string path = dir + "/" + HiveFileName(hive);
    ReportStuckOnce(path, FailureText(path, failure) + "; it cannot be kept aside (" +
                              std::strerror(errno) + "), so it reads empty and is not written");
    return ERROR_BADDB;
  }
  return LoadHive(dir, hive, true, root);
}

}  // namespace

LONG ReadHive(Hive hive, const std::function<LONG(const CKeyNode&)>& look) {
  CKeyNode root;
  const std::string dir = RegistryDir();
  if (!dir.empty()) {
    const LONG result = LoadHive(dir, hive, false, &root);
    if (result != ERROR_SUCCESS && result != ERROR_BADDB) return result;
  }
  return look(static_cast<const CKeyNode&>(root));
}

// A first run on an unlocked snapshot lets failures and changes that change
// nothing return without creating, locking or writing anything; the run
// under the lock is the one that counts.
LONG ChangeHive(Hive hive, const std::function<LONG(CKeyNode*, bool*)>& change) {
  const std::string dir = RegistryDir();
  if (dir.empty()) return ERROR_PATH_NOT_FOUND;
  bool changed = false;
  {
    CKeyNode snapshot;
    LONG result = LoadHive(dir, hive, false, &snapshot);
    if (result == ERROR_SUCCESS) result = change(&snapshot, &changed);
    if (result != ERROR_SUCCESS || !changed) return result;
  }
  if (!MakeDirectories(dir)) return ErrorFromErrno(errno);
  CHiveLock lock;
  if (!lock.Acquire(dir)) return ErrorFromErrno(errno);
  CKeyNode root;
  LONG result = LoadHive(dir, hive, true, &root);
  if (result != ERROR_SUCCESS) return result;
  changed = false;
  result = change(&root, &changed);
  if (result != ERROR_SUCCESS || !changed) return result;
  return WriteHive(dir, hive, FormatHive(root, hive));
}

}  // namespace platform_internal::registry
