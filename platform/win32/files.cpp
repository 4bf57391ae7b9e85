#include "platform/win32/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <unordered_map>

#include "platform/win32/codepage.h"

namespace {

thread_local DWORD t_lastError = ERROR_SUCCESS;

// A handle is the address of one of these. The table owns them, so a handle
// given to us is looked up rather than dereferenced, and a read in flight on
// one thread keeps the descriptor open while another thread closes the handle.
struct FileObject {
  int fd = -1;
  bool canRead = false;
  bool canWrite = false;

  FileObject(int descriptor, bool readable, bool writable)
      : fd(descriptor), canRead(readable), canWrite(writable) {}
  FileObject(const FileObject&) = delete;
  FileObject& operator=(const FileObject&) = delete;
  ~FileObject() { ::close(fd); }
};

struct HandleTable {
  std::mutex lock;
  std::unordered_map<HANDLE, std::shared_ptr<FileObject>> files;  // guarded by lock
};

// Never destroyed, so handles used by threads still running at exit stay valid.
HandleTable& Table() {
  static HandleTable* table = new HandleTable;
  return *table;
}

std::shared_ptr<FileObject> Lookup(HANDLE handle) {
  if (handle == nullptr || handle == INVALID_HANDLE_VALUE) return nullptr;
  HandleTable& table = Table();
  std::lock_guard<std::mutex> guard(table.lock);
  auto it = table.files.find(handle);
  return it == table.files.end() ? nullptr : it->second;
}

DWORD Win32ErrorFromErrno(int error) {
  switch (error) {
    case ENOENT:
      return ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
      return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EISDIR:
    case EROFS:
      return ERROR_ACCESS_DENIED;
    case ENAMETOOLONG:
      return ERROR_FILENAME_EXCED_RANGE;
    case EMFILE:
    case ENFILE:
      return ERROR_TOO_MANY_OPEN_FILES;
    case EEXIST:
      return ERROR_FILE_EXISTS;
    case ENOSPC:
    case EFBIG:   // a file size limit
    case EDQUOT:
      return ERROR_DISK_FULL;
    case ENOMEM:
      return ERROR_NOT_ENOUGH_MEMORY;
    case EINVAL:
      return ERROR_INVALID_PARAMETER;
    default:
      return ERROR_GEN_FAILURE;
  }
}

BOOL FailWith(DWORD error) {
  SetLastError(error);
  return FALSE;
}

BOOL FailWithErrno() { return FailWith(Win32ErrorFromErrno(errno)); }

int OpenPath(const char* name, int flags) { return ::open(name, flags, 0666); }

// CREATE_ALWAYS and OPEN_ALWAYS must tell whether the file was there. Opening
// without O_CREAT first and then creating exclusively answers that without a
// race; a file that appears in between just sends us round again.
int OpenOrCreate(const char* name, int flags, bool* existed) {
  for (int attempt = 0; attempt < 8; ++attempt) {
    int fd = OpenPath(name, flags);
    if (fd >= 0 || errno != ENOENT) {
      *existed = fd >= 0;
      return fd;
    }
    fd = OpenPath(name, (flags & ~O_TRUNC) | O_CREAT | O_EXCL);
    if (fd >= 0 || errno != EEXIST) {
      *existed = false;
      return fd;
    }
  }
  errno = EEXIST;
  return -1;
}

}  // namespace

DWORD GetLastError() { return t_lastError; }

void SetLastError(DWORD error) { t_lastError = error; }

HANDLE CreateFileA(LPCSTR name, DWORD access, DWORD /*share*/, void* /*security*/,
                   DWORD disposition, DWORD /*flagsAndAttributes*/, HANDLE /*templateFile*/) {
  if (name == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return INVALID_HANDLE_VALUE;
  }
  const bool wantRead = (access & (GENERIC_READ | FILE_READ_DATA)) != 0;
  const bool wantWrite = (access & (GENERIC_WRITE | FILE_WRITE_DATA)) != 0;

  // O_NONBLOCK only for the open itself, so a FIFO does not hang us waiting
  // for a writer; it is cleared again below.
  int flags = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  flags |= wantWrite ? (wantRead ? O_RDWR : O_WRONLY) : O_RDONLY;

  int fd = -1;
  bool existed = false;
  switch (disposition) {
    case CREATE_NEW:
      fd = OpenPath(name, flags | O_CREAT | O_EXCL);
      break;
    case CREATE_ALWAYS:
      fd = OpenOrCreate(name, flags | O_TRUNC, &existed);
      break;
    case OPEN_EXISTING:
      fd = OpenPath(name, flags);
      break;
    case OPEN_ALWAYS:
      fd = OpenOrCreate(name, flags, &existed);
      break;
    case TRUNCATE_EXISTING:
      if (!wantWrite) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
      }
      fd = OpenPath(name, flags | O_TRUNC);
      break;
    default:
      SetLastError(ERROR_INVALID_PARAMETER);
      return INVALID_HANDLE_VALUE;
  }
  if (fd < 0) {
    // Making a file, what is missing is a folder on the way.
    const bool creates = disposition == CREATE_NEW || disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS;
    if (creates && errno == ENOENT) {
      SetLastError(ERROR_PATH_NOT_FOUND);
    } else {
      FailWithErrno();
    }
    return INVALID_HANDLE_VALUE;
  }

  // A read-only open of a directory succeeds on POSIX; on the platform it is
  // refused.
  struct stat info {};
  if (::fstat(fd, &info) != 0) {
    const DWORD error = Win32ErrorFromErrno(errno);
    ::close(fd);
    SetLastError(error);
    return INVALID_HANDLE_VALUE;
  }
  if (S_ISDIR(info.st_mode)) {
    ::close(fd);
    SetLastError(ERROR_ACCESS_DENIED);
    return INVALID_HANDLE_VALUE;
  }
  const int statusFlags = ::fcntl(fd, F_GETFL);
  if (statusFlags >= 0) ::fcntl(fd, F_SETFL, statusFlags & ~O_NONBLOCK);

  std::shared_ptr<FileObject> object;
  try {
    object = std::make_shared<FileObject>(fd, wantRead, wantWrite);
    HandleTable& table = Table();
    std::lock_guard<std::mutex> guard(table.lock);
    table.files.emplace(object.get(), object);
  } catch (const std::bad_alloc&) {
    if (!object) ::close(fd);  // otherwise the object closes it
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return INVALID_HANDLE_VALUE;
  }
  const bool reportExisting =
      existed && (disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS);
  SetLastError(reportExisting ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
  return object.get();
}

BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, DWORD* bytesRead, void* overlapped) {
  if (bytesRead != nullptr) *bytesRead = 0;
  const std::shared_ptr<FileObject> object = Lookup(file);
  if (!object) return FailWith(ERROR_INVALID_HANDLE);
  if (bytesRead == nullptr || overlapped != nullptr || (buffer == nullptr && toRead > 0)) {
    return FailWith(ERROR_INVALID_PARAMETER);
  }
  if (!object->canRead) return FailWith(ERROR_ACCESS_DENIED);

  auto* bytes = static_cast<unsigned char*>(buffer);
  DWORD total = 0;
  while (total < toRead) {
    const ssize_t n = ::read(object->fd, bytes + total, toRead - total);
    if (n < 0) {
      if (errno == EINTR) continue;
      *bytesRead = total;
      return FailWithErrno();
    }
    if (n == 0) break;  // end of file
    total += static_cast<DWORD>(n);
  }
  *bytesRead = total;
  return TRUE;
}

BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, DWORD* written, void* overlapped) {
  if (written != nullptr) *written = 0;
  const std::shared_ptr<FileObject> object = Lookup(file);
  if (!object) return FailWith(ERROR_INVALID_HANDLE);
  if (written == nullptr || overlapped != nullptr || (buffer == nullptr && toWrite > 0)) {
    return FailWith(ERROR_INVALID_PARAMETER);
  }
  if (!object->canWrite) return FailWith(ERROR_ACCESS_DENIED);

  const auto* bytes = static_cast<const unsigned char*>(buffer);
  DWORD total = 0;
  while (total < toWrite) {
    const ssize_t n = ::write(object->fd, bytes + total, toWrite - total);
    if (n < 0) {
      if (errno == EINTR) continue;
      *written = total;
      return FailWithErrno();
    }
    if (n == 0) {  // no progress and no error: do not spin
      *written = total;
      return FailWith(ERROR_GEN_FAILURE);
    }
    total += static_cast<DWORD>(n);
  }
  *written = total;
  return TRUE;
}

DWORD SetFilePointer(HANDLE file, LONG distanceLow, LONG* distanceHigh, DWORD method) {
  const std::shared_ptr<FileObject> object = Lookup(file);
  if (!object) {
    SetLastError(ERROR_INVALID_HANDLE);
    return INVALID_SET_FILE_POINTER;
  }
  std::int64_t distance = distanceLow;
  if (distanceHigh != nullptr) {
    const std::uint64_t bits = static_cast<std::uint64_t>(static_cast<DWORD>(*distanceHigh)) << 32 |
                               static_cast<DWORD>(distanceLow);
    distance = static_cast<std::int64_t>(bits);
  }

  std::int64_t base = 0;
  switch (method) {
    case FILE_BEGIN:
      break;
    case FILE_CURRENT:
      base = ::lseek(object->fd, 0, SEEK_CUR);
      break;
    case FILE_END: {
      struct stat info {};
      base = ::fstat(object->fd, &info) == 0 ? info.st_size : -1;
      break;
    }
    default:
      SetLastError(ERROR_INVALID_PARAMETER);
      return INVALID_SET_FILE_POINTER;
  }
  if (base < 0) {
    FailWithErrno();
    return INVALID_SET_FILE_POINTER;
  }

  // base is never negative, so overflow can only come from a large positive
  // distance; a negative result is the platform's ERROR_NEGATIVE_SEEK.
  std::int64_t target = 0;
  if (__builtin_add_overflow(base, distance, &target)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return INVALID_SET_FILE_POINTER;
  }
  if (target < 0) {
    SetLastError(ERROR_NEGATIVE_SEEK);
    return INVALID_SET_FILE_POINTER;
  }
  if (distanceHigh == nullptr && target > std::int64_t{std::numeric_limits<DWORD>::max()}) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return INVALID_SET_FILE_POINTER;
  }
  if (::lseek(object->fd, static_cast<off_t>(target), SEEK_SET) < 0) {
    FailWithErrno();
    return INVALID_SET_FILE_POINTER;
  }
  if (distanceHigh != nullptr) *distanceHigh = static_cast<LONG>(target >> 32);
  SetLastError(ERROR_SUCCESS);
  return static_cast<DWORD>(target & 0xFFFFFFFF);
}

DWORD GetFileSize(HANDLE file, DWORD* high) {
  if (high != nullptr) *high = 0;
  const std::shared_ptr<FileObject> object = Lookup(file);
  if (!object) {
    SetLastError(ERROR_INVALID_HANDLE);
    return INVALID_FILE_SIZE;
  }
  struct stat info {};
  if (::fstat(object->fd, &info) != 0) {
    FailWithErrno();
    return INVALID_FILE_SIZE;
  }
  const auto size = static_cast<std::uint64_t>(info.st_size);
  if (high != nullptr) *high = static_cast<DWORD>(size >> 32);
  SetLastError(ERROR_SUCCESS);
  return static_cast<DWORD>(size & 0xFFFFFFFF);
}

BOOL CloseHandle(HANDLE handle) {
  if (handle == nullptr || handle == INVALID_HANDLE_VALUE) return FailWith(ERROR_INVALID_HANDLE);
  std::shared_ptr<FileObject> object;
  {
    HandleTable& table = Table();
    std::lock_guard<std::mutex> guard(table.lock);
    auto it = table.files.find(handle);
    if (it == table.files.end()) return FailWith(ERROR_INVALID_HANDLE);
    object = std::move(it->second);
    table.files.erase(it);
  }
  // The descriptor closes here, outside the lock, unless a call in flight on
  // another thread still holds the object.
  return TRUE;
}

BOOL DeleteFileA(LPCSTR name) {
  if (name == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  struct stat info {};
  if (::lstat(name, &info) == 0 && S_ISDIR(info.st_mode)) return FailWith(ERROR_ACCESS_DENIED);
  if (::unlink(name) != 0) return FailWithErrno();
  return TRUE;
}

DWORD GetFileAttributesA(LPCSTR name) {
  struct stat info {};
  if (name == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return INVALID_FILE_ATTRIBUTES;
  }
  if (::lstat(name, &info) != 0) {
    FailWithErrno();
    return INVALID_FILE_ATTRIBUTES;
  }
  if (S_ISDIR(info.st_mode)) return FILE_ATTRIBUTE_DIRECTORY;
  // The platform reports a link itself, even one that leads nowhere.
  if (S_ISLNK(info.st_mode)) return FILE_ATTRIBUTE_REPARSE_POINT;
  return (info.st_mode & S_IWUSR) != 0 ? FILE_ATTRIBUTE_NORMAL : FILE_ATTRIBUTE_READONLY;
}

BOOL DeleteFileW(LPCWSTR name) {
  if (name == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  return DeleteFileA(WideToAnsi(name).c_str());
}

void Sleep(DWORD milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

DWORD GetCurrentProcessId() { return static_cast<DWORD>(::getpid()); }
