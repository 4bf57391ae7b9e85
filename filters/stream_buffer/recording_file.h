// The file a recording goes to: made exclusively at exactly the name given,
// written whole or not at all, and its failures as the platform's codes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/win32/files.h"
#include "platform/win32/win_types.h"

// HRESULT_FROM_WIN32 of the Win32 error that matches `error`, an errno as
// the muxing library reports it. A full disk and a file over its size limit
// are both ERROR_DISK_FULL.
HRESULT HResultFromErrno(int error);

// Whether anything (a file, a directory, a link, even a dangling one) has
// exactly this name, as an exclusive create would find.
bool NameTaken(const std::string& path);

class CRecordingFile {
 public:
  CRecordingFile() = default;
  ~CRecordingFile();
  CRecordingFile(const CRecordingFile&) = delete;
  CRecordingFile& operator=(const CRecordingFile&) = delete;

  // Fails with ERROR_FILE_EXISTS when the name is taken.
  HRESULT Create(const std::string& path);
  // Retries short writes; the first failure is kept and every later write
  // fails with it.
  HRESULT Write(const std::uint8_t* data, std::size_t size);
  // The first failure of the file's life, closing included.
  HRESULT Close();
  HRESULT Failure() const { return m_Failure; }

 private:
  HANDLE m_File = INVALID_HANDLE_VALUE;
  HRESULT m_Failure = S_OK;
};
