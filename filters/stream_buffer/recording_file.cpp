#include "filters/stream_buffer/recording_file.h"

#include <algorithm>
#include <cerrno>

namespace {

HRESULT FromLastError() {
  const DWORD error = GetLastError();
  return error != ERROR_SUCCESS ? HRESULT_FROM_WIN32(error) : E_FAIL;
}

}  // namespace

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

bool NameTaken(const std::string& path) { return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

CRecordingFile::~CRecordingFile() { Close(); }

HRESULT CRecordingFile::Create(const std::string& path) {
  if (m_File != INVALID_HANDLE_VALUE) return E_UNEXPECTED;
  m_File = CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL,
                       nullptr);
  if (m_File == INVALID_HANDLE_VALUE) return FromLastError();
  m_Failure = S_OK;
  return S_OK;
}

HRESULT CRecordingFile::Write(const std::uint8_t* data, std::size_t size) {
  if (FAILED(m_Failure)) return m_Failure;
  if (m_File == INVALID_HANDLE_VALUE) return E_UNEXPECTED;
  while (size > 0) {
    const DWORD chunk = static_cast<DWORD>(std::min<std::size_t>(size, 1u << 30));
    DWORD written = 0;
    if (!WriteFile(m_File, data, chunk, &written, nullptr)) {
      m_Failure = FromLastError();
      return m_Failure;
    }
    // A write that takes nothing has met a full disk.
    if (written == 0) {
      m_Failure = HRESULT_FROM_WIN32(ERROR_DISK_FULL);
      return m_Failure;
    }
    data += written;
    size -= written;
  }
  return S_OK;
}

HRESULT CRecordingFile::Close() {
  if (m_File != INVALID_HANDLE_VALUE) {
    // Some file systems tell of a full disk only now.
    if (!CloseHandle(m_File) && SUCCEEDED(m_Failure)) m_Failure = FromLastError();
    m_File = INVALID_HANDLE_VALUE;
  }
  return m_Failure;
}
