#include "filters/stream_buffer/recording_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#ifndef O_CLOEXEC
#define O_CLOEXEC 0
#endif

HRESULT HResultFromErrno(int error) {
  switch (error) {
    case 0:
      return E_FAIL;
    case ENOENT:
    case ENOTDIR:
      // Making a file: what is missing is a folder on the way.
      return HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
    case EACCES:
    case EPERM:
    case EISDIR:
    case EROFS:
      return HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
    case EEXIST:
      return HRESULT_FROM_WIN32(ERROR_FILE_EXISTS);
    case ENOSPC:
    case EFBIG:
#ifdef EDQUOT
    case EDQUOT:
#endif
      return HRESULT_FROM_WIN32(ERROR_DISK_FULL);
    case ENAMETOOLONG:
      return HRESULT_FROM_WIN32(ERROR_FILENAME_EXCED_RANGE);
    case EMFILE:
    case ENFILE:
      return HRESULT_FROM_WIN32(ERROR_TOO_MANY_OPEN_FILES);
    case ENOMEM:
      return E_OUTOFMEMORY;
    case EINVAL:
      return E_INVALIDARG;
    default:
      return HRESULT_FROM_WIN32(ERROR_GEN_FAILURE);
  }
}

bool NameTaken(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0;
}

CRecordingFile::~CRecordingFile() { Close(); }

HRESULT CRecordingFile::Create(const std::string& path) {
  if (m_Fd >= 0) return E_UNEXPECTED;
  m_Fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (m_Fd < 0) return HResultFromErrno(errno);
  m_Failure = S_OK;
  return S_OK;
}

HRESULT CRecordingFile::Write(const std::uint8_t* data, std::size_t size) {
  if (FAILED(m_Failure)) return m_Failure;
  if (m_Fd < 0) return E_UNEXPECTED;
  while (size > 0) {
    const ssize_t written = ::write(m_Fd, data, size);
    if (written < 0) {
      if (errno == EINTR) continue;
      m_Failure = HResultFromErrno(errno);
      return m_Failure;
    }
    data += written;
    size -= static_cast<std::size_t>(written);
  }
  return S_OK;
}

HRESULT CRecordingFile::Close() {
  if (m_Fd >= 0) {
    // Some file systems tell of a full disk only now.
    if (::close(m_Fd) != 0 && SUCCEEDED(m_Failure) && errno != EINTR) m_Failure = HResultFromErrno(errno);
    m_Fd = -1;
  }
  return m_Failure;
}
